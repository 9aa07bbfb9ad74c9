#include <gtest/gtest.h>
#include <memory>
#include <string>

#include "conf/ProgramName.h"
#include "exec/ExecCmd.h"
#include "tests/lib/Process.h"
#include "tests/support/RecordingVisitor.h"

namespace
{

using zelto::ExecCmd;

/// What a checked run reports; "" if it throws nothing.
std::string reportOf(ExecCmd& command)
{
    try {
        command.runChecked();
    } catch (const zelto::Exc<&ExecCmd::Failed>& failure) {
        return failure.what();
    }
    return "";
}

/// A failing command with arguments; "exit 3" is its "$0".
class Failing : public ExecCmd
{
public:
    Failing() : ExecCmd("sh") { add("-c").add("exit 3"); }
};

} // namespace

TEST(ExecCmdReport, IsOneLineForACommandWithoutInputAndOutput)
{
    ExecCmd command("/bin/false");
    EXPECT_EQ(reportOf(command), "Execution of /bin/false failed with return code 1.\n");
}

TEST(ExecCmdReport, IsNotMadeForAnExitStatusOfZeroWhateverWasWritten)
{
    ExecCmd command("/bin/sh");
    command.add("-c").add("echo oops >&2; echo more");
    EXPECT_EQ(reportOf(command), "");
    EXPECT_EQ(command.stderrData(), "oops\n");
}

TEST(ExecCmdReport, ShowsInputOutputAndErrorsInThisOrder)
{
    ExecCmd command("sh");
    command.add("-c").add("cat; printf e >&2; exit 3").setStdinData("i");
    EXPECT_EQ(reportOf(command), "Execution of sh -c cat\\;\\ printf\\ e\\ \\>\\&2\\;\\ exit\\ 3 "
                                 "failed with return code 3.\n"
                                 "Stdin is\ni\n"
                                 "Stdout is\ni\n"
                                 "Stderr is\ne\n");
}

TEST(ExecCmdReport, EndsASectionWithOneNewlineWhetherTheOutputHasOneOrNot)
{
    ExecCmd command("sh");
    command.add("-c").add("echo oops >&2; exit 1");
    EXPECT_EQ(reportOf(command),
        "Execution of sh -c echo\\ oops\\ \\>\\&2\\;\\ exit\\ 1 failed with return code 1.\n"
        "Stderr is\noops\n");
}

TEST(ExecCmdReport, KeepsBlankLinesAtTheEndOfAnOutput)
{
    ExecCmd command("/bin/sh");
    command.add("-c").add("cat; exit 1").setStdinData("a\n\n");
    EXPECT_EQ(reportOf(command),
        "Execution of /bin/sh -c cat\\;\\ exit\\ 1 failed with return code 1.\n"
        "Stdin is\na\n\n"
        "Stdout is\na\n\n");
}

TEST(ExecCmdReport, TellsAProgramThatASignalEndedByMinusOne)
{
    ExecCmd command("/bin/sh");
    command.add("-c").add("kill -9 $$");
    EXPECT_EQ(reportOf(command),
        "Execution of /bin/sh -c kill\\ -9\\ \\$\\$ failed with return code -1.\n");
}

TEST(ExecCmdReport, ShowsWhatAllRunsWrote)
{
    ExecCmd command("sh");
    command.add("-c").add("echo a; exit 1");
    EXPECT_EQ(reportOf(command),
        "Execution of sh -c echo\\ a\\;\\ exit\\ 1 failed with return code 1.\nStdout is\na\n");
    EXPECT_EQ(reportOf(command),
        "Execution of sh -c echo\\ a\\;\\ exit\\ 1 failed with return code 1.\nStdout is\na\na\n");
}

TEST(ExecCmdReport, TakesPercentSignsAsTheyAre)
{
    ExecCmd command("/bin/false");
    command.add("100%").add("%1%");
    EXPECT_EQ(reportOf(command), "Execution of /bin/false 100% %1% failed with return code 1.\n");
}

TEST(ExecCmdReport, TakesPercentSignsOfTheOutputAsTheyAre)
{
    ExecCmd command("sh");
    command.add("-c").add("cat; exit 1").setStdinData("%s %5% %");
    EXPECT_EQ(reportOf(command), "Execution of sh -c cat\\;\\ exit\\ 1 failed with return code 1.\n"
                                 "Stdin is\n%s %5% %\n"
                                 "Stdout is\n%s %5% %\n");
}

TEST(ExecCmdReport, WritesAnEmptyArgumentAsTwoQuotes)
{
    Failing command;
    command.add("").add("x").add("");
    EXPECT_EQ(
        reportOf(command), "Execution of sh -c exit\\ 3 '' x '' failed with return code 3.\n");
}

TEST(ExecCmdReport, EscapesBlanksQuotesAndNewlinesInArguments)
{
    Failing command;
    command.add("a b").add("it's").add("\"q\"").add("1\n2");
    EXPECT_EQ(reportOf(command),
        "Execution of sh -c exit\\ 3 a\\ b it\\'s \\\"q\\\" 1'\n'2 failed with "
        "return code 3.\n");
}

TEST(ExecCmdReport, EscapesThePathOfTheProgramToo)
{
    PROGNAME = nullptr;
    ExecCmd command("/a b/x");
    EXPECT_EQ(reportOf(command), "Execution of /a\\ b/x failed with return code 1.\n"
                                 "Stdout is\n"
                                 "forkExecvPipes: execv() failed: No such file or directory\n\n"
                                 "System error 2: No such file or directory\n"
                                 "Stderr is\n"
                                 "forkExecvPipes: execv() failed: No such file or directory\n\n"
                                 "System error 2: No such file or directory\n");
}

TEST(ExecCmdReport, WritesAnEmptyPathAsTwoQuotes)
{
    PROGNAME = nullptr;
    ExecCmd command("");
    EXPECT_EQ(reportOf(command).find("Execution of '' failed with return code 1.\n"), 0U);
}

TEST(ExecCmdReport, ShowsTheCommandSoThatAShellTakesItForTheSame)
{
    ExecCmd command("/bin/sh");
    command.add("-c").add("printf '[%s]' \"$@\"; exit 1").add("");
    command.add("a  b").add("").add("'").add("$HOME `id` \\").add("x\ny").add("*?[a]").add("~ #");
    const std::string report = reportOf(command);
    const size_t begin = std::string("Execution of ").size();
    const size_t end = report.find(" failed with return code 1.\n");
    ASSERT_NE(end, std::string::npos);
    const Outcome again = runProgram("/bin/sh", {"sh", "-c", report.substr(begin, end - begin)});
    EXPECT_EQ(command.stdoutData(), "[a  b][]['][$HOME `id` \\][x\ny][*?[a]][~ #]");
    EXPECT_EQ(again.out, command.stdoutData());
}

TEST(ExecCmdReport, TellsVisitorsItsNameAndThePlaceThatRaisedIt)
{
    ExecCmd command("/bin/false");
    Visit visit;
    try {
        command.runChecked();
    } catch (const zelto::ExVisitable& failure) {
        visit = visitOf(failure);
    }
    EXPECT_EQ(visit, (Visit{"function void zelto::ExecCmd::reportError() const", "file ExecCmd",
                         "line 49", "message ExecCmd::ExFailed",
                         "trace Execution of /bin/false failed with return code 1.\n"}));
}

TEST(ExecCmdReport, IsCaughtByItsKindAndByAllItsBases)
{
    ExecCmd command("/bin/false");
    EXPECT_THROW(command.runChecked(), zelto::Exc<&zelto::ExecCmd::Failed>);
    EXPECT_THROW(command.runChecked(), ExecCmd::ExFailed);
    EXPECT_THROW(command.runChecked(), zelto::ExTaggedIncludable);
    EXPECT_THROW(command.runChecked(), zelto::ExTraceable);
    EXPECT_THROW(command.runChecked(), std::runtime_error);
}

TEST(ExecCmdReport, OutlivesTheCommandAndCanBeCloned)
{
    std::unique_ptr<Cloneable> copy;
    try {
        ExecCmd("/bin/false").runChecked();
    } catch (const ExecCmd::ExFailed& failure) {
        EXPECT_EQ(failure.included(), nullptr);
        copy.reset(failure.clone());
    }
    const auto* report = dynamic_cast<const ExecCmd::ExFailed*>(copy.get());
    ASSERT_NE(report, nullptr);
    EXPECT_STREQ(report->what(), "Execution of /bin/false failed with return code 1.\n");
    EXPECT_EQ(report->line(), 49);
}

TEST(ExecCmdReport, HasATagThatDoesNothing)
{
    const Outcome end = outputOf([] {
        ExecCmd::Failed(true);
        ExecCmd::Failed(false);
    });
    EXPECT_EQ(end.out + end.err, "");
}

TEST(ExecCmdSummary, SaysThatThereWasNoOutput)
{
    ExecCmd command("/bin/false");
    command.run();
    EXPECT_EQ(command.summary(),
        "The return code was  \nNo output on STDOUT were performed by the utility"
        " \nNo output on STDERR were performed by the utility");
}

TEST(ExecCmdSummary, ShowsWhatWasWrittenAndNoReturnCode)
{
    ExecCmd command("/bin/sh");
    command.add("-c").add("echo o; printf e >&2; exit 9").run();
    EXPECT_EQ(command.summary(), "The return code was  \nThe output on STDOUT was: \no\n"
                                 " \nThe output on STDERR was: \ne");
}

TEST(ExecCmdSummary, TellsOneStreamFromTheOther)
{
    ExecCmd onlyOutput("/bin/echo");
    onlyOutput.add("o").run();
    EXPECT_EQ(onlyOutput.summary(), "The return code was  \nThe output on STDOUT was: \no\n"
                                    " \nNo output on STDERR were performed by the utility");
    ExecCmd onlyErrors("/bin/sh");
    onlyErrors.add("-c").add("echo e >&2").run();
    EXPECT_EQ(onlyErrors.summary(),
        "The return code was  \nNo output on STDOUT were performed by the utility"
        " \nThe output on STDERR was: \ne\n");
}
