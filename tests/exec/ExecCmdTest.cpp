#include "exec/ExecCmd.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <new>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <type_traits>

#include "conf/ProgramName.h"
#include "support/SystemError.h"
#include "tests/lib/FailingNew.h"
#include "tests/lib/Faults.h"
#include "tests/lib/Process.h"
#include "tests/support/VirtualSlot.h"

namespace
{

using zelto::CmdLine;
using zelto::ExecCmd;

static_assert(!std::is_copy_constructible_v<ExecCmd>);
static_assert(!std::is_copy_assignable_v<ExecCmd>);
static_assert(!std::is_move_constructible_v<ExecCmd>);
static_assert(std::is_abstract_v<CmdLine>);
static_assert(std::has_virtual_destructor_v<CmdLine>);

/// A shell that runs a script; added arguments are its "$0", "$1" and so on.
class Shell : public ExecCmd
{
public:
    explicit Shell(const std::string& script) : ExecCmd("/bin/sh") { add("-c").add(script); }
};

struct ExecCmdFaults : public ::testing::Test {
    faults::Guard guard;
};

} // namespace

TEST(ExecCmd, BeginsWithNothingRunAndNothingCollected)
{
    const ExecCmd command("/bin/true");
    EXPECT_FALSE(command.started());
    EXPECT_FALSE(command.finished());
    EXPECT_EQ(command.returnCode(), 0);
    EXPECT_EQ(command.savedErrno(), 0);
    EXPECT_EQ(command.stdinData(), "");
    EXPECT_EQ(command.stdoutData(), "");
    EXPECT_EQ(command.stderrData(), "");
}

TEST(ExecCmd, ReturnsTheExitStatusAndThrowsNothingUnlessItIsChecked)
{
    Shell command("exit 3");
    EXPECT_EQ(command.run(), 3);
    EXPECT_EQ(command.returnCode(), 3);
    EXPECT_TRUE(command.started());
    EXPECT_TRUE(command.finished());
}

TEST(ExecCmd, ReturnsAnExitStatusOf255AsItIs)
{
    EXPECT_EQ(Shell("exit 255").run(), 255);
}

TEST(ExecCmd, ReturnsMinusOneForAProgramThatASignalEnded)
{
    Shell command("kill -9 $$");
    EXPECT_EQ(command.run(), -1);
    EXPECT_EQ(command.returnCode(), -1);
}

TEST(ExecCmd, KeepsWhatTheProgramWroteToEitherStream)
{
    Shell command("printf out; printf err >&2");
    EXPECT_EQ(command.execute(), 0);
    EXPECT_EQ(command.stdoutData(), "out");
    EXPECT_EQ(command.stderrData(), "err");
}

TEST(ExecCmd, FeedsItsTextToTheProgramAnewInEachRunAndAppendsWhatComesBack)
{
    Shell command("cat; echo e >&2; exit 5");
    command.setStdinData("in\n");
    EXPECT_EQ(command.run(), 5);
    EXPECT_EQ(command.run(), 5);
    EXPECT_EQ(command.stdinData(), "in\n");
    EXPECT_EQ(command.stdoutData(), "in\nin\n");
    EXPECT_EQ(command.stderrData(), "e\ne\n");
}

TEST(ExecCmd, TellsTheReturnCodeOfTheLastRun)
{
    Shell command("read line || exit 7");
    EXPECT_EQ(command.run(), 7);
    command.setStdinData("line\n");
    EXPECT_EQ(command.run(), 0);
    EXPECT_EQ(command.returnCode(), 0);
}

TEST(ExecCmd, MovesMoreThanAPipeHoldsEachWay)
{
    const std::string text(300'000, 'x');
    Shell command("tee /dev/stderr");
    command.setStdinData(text);
    EXPECT_EQ(command.run(), 0);
    EXPECT_TRUE(command.stdoutData() == text);
    EXPECT_TRUE(command.stderrData() == text);
    EXPECT_TRUE(command.stdinData() == text);
}

TEST(ExecCmd, GivesTheProgramAnEmptyInputByDefault)
{
    Shell command("cat; echo end");
    EXPECT_EQ(command.run(), 0);
    EXPECT_EQ(command.stdoutData(), "end\n");
}

TEST(ExecCmd, HandsArgumentsOverAsTheyAre)
{
    Shell command(R"(printf '[%s]' "$0" "$@")");
    command.add("").add("a b").add("'\"\\$HOME").add("line\nline").add("%s").add("-n").add("\xff");
    EXPECT_EQ(command.run(), 0);
    EXPECT_EQ(command.stdoutData(), "[][a b]['\"\\$HOME][line\nline][%s][-n][\xff]");
}

TEST(ExecCmd, TakesAnyNumberOfArguments)
{
    Shell command("echo $#");
    for (int i = 0; i <= 1000; ++i) {
        command.add("x");
    }
    EXPECT_EQ(command.run(), 0);
    EXPECT_EQ(command.stdoutData(), "1000\n");
}

TEST(ExecCmd, TellsTheProgramThePathAsItsName)
{
    Shell command("echo $0");
    EXPECT_EQ(command.run(), 0);
    EXPECT_EQ(command.stdoutData(), "/bin/sh\n");
}

TEST(ExecCmd, LooksAProgramWithoutASlashUpOnThePath)
{
    ExecCmd command("sh");
    EXPECT_EQ(command.add("-c").add("exit 4").run(), 4);
}

TEST(ExecCmd, KeepsItsOwnCopiesOfTheTexts)
{
    std::string path = "/bin/echo";
    std::string argument = "first";
    ExecCmd command(path);
    command.add(argument);
    path = "/no/such";
    argument = "other";
    EXPECT_EQ(command.run(), 0);
    EXPECT_EQ(command.stdoutData(), "first\n");
}

TEST(ExecCmd, KeepsTheSecondOfTwoValuesForAVariable)
{
    Shell command("echo $COLOUR");
    command.setEnv("COLOUR", "red").setEnv("COLOUR", "blue");
    EXPECT_EQ(command.run(), 0);
    EXPECT_EQ(command.stdoutData(), "blue\n");
}

TEST(ExecCmd, ReplacesInheritedVariablesAndLeavesItsOwnAlone)
{
    Shell command("echo $HOME");
    const char* const home = getenv("HOME");
    const std::string before = home != nullptr ? home : "";
    command.setEnv("HOME", "/nowhere");
    EXPECT_EQ(command.run(), 0);
    EXPECT_EQ(command.stdoutData(), "/nowhere\n");
    const char* const after = getenv("HOME");
    EXPECT_EQ(after != nullptr ? after : "", before);
}

TEST(ExecCmd, FailsWithOneForAVariableThatCannotBeSet)
{
    Shell command("echo ran");
    command.setEnv("A=B", "x");
    EXPECT_EQ(command.run(), 1);
    EXPECT_EQ(command.stdoutData(), "");
    EXPECT_EQ(command.stderrData(),
        "Unexpected error: forkExecvPipes: setenv() falied: Invalid argument\n");
}

TEST(ExecCmd, RunsAsTheUserThatItWasTold)
{
    ExecCmd command("/usr/bin/id");
    command.add("-u").setUid(1001);
    EXPECT_EQ(command.run(), 0);
    EXPECT_EQ(command.stdoutData(), "1001\n");
}

TEST(ExecCmd, RunsAsTheCallerUnlessToldAUser)
{
    ExecCmd command("/usr/bin/id");
    EXPECT_EQ(command.add("-u").run(), 0);
    EXPECT_EQ(command.stdoutData(), "0\n");
}

TEST(ExecCmd, CountsAProgramThatCannotBeExecutedAsOneThatEndedWithOne)
{
    PROGNAME = nullptr;
    const std::string report = "forkExecvPipes: execv() failed: No such file or directory\n"
                               "\nSystem error 2: No such file or directory\n";
    ExecCmd command("/no/such/program");
    EXPECT_EQ(command.run(), 1);
    EXPECT_EQ(command.stderrData(), report);
    EXPECT_EQ(command.stdoutData(), report);
}

TEST(ExecCmd, ChainsCallsOnTheObjectItself)
{
    ExecCmd command("/bin/true");
    static_assert(std::is_same_v<decltype(command.add("")), ExecCmd&>);
    static_assert(std::is_same_v<decltype(command.setEnv("", "")), ExecCmd&>);
    static_assert(std::is_same_v<decltype(command.runChecked()), void>);
    EXPECT_EQ(&command.add("a"), &command);
    EXPECT_EQ(&command.setEnv("A", "a"), &command);
}

TEST(ExecCmd, CanBeFilledAsACommandLine)
{
    Shell command("echo $0 $A");
    CmdLine& line = command;
    EXPECT_EQ(&line.add("zero").setEnv("A", "a"), &line);
    EXPECT_EQ(command.run(), 0);
    EXPECT_EQ(command.stdoutData(), "zero a\n");
}

TEST(ExecCmd, RefusesTextsThatACStringWouldCut)
{
    const std::string cut("a\0b", 3);
    EXPECT_THROW(ExecCmd{cut}, std::invalid_argument);
    Shell command("echo $# $0 $A");
    command.add("kept").setEnv("A", "kept");
    EXPECT_THROW(command.add(cut), std::invalid_argument);
    EXPECT_THROW(command.setEnv(cut, "x"), std::invalid_argument);
    EXPECT_THROW(command.setEnv("A", cut), std::invalid_argument);
    EXPECT_EQ(command.run(), 0);
    EXPECT_EQ(command.stdoutData(), "0 kept kept\n");
}

TEST(ExecCmd, LeavesNoDescriptorOpen)
{
    const size_t before = openDescriptors();
    Shell command("echo x; exit 2");
    command.run();
    EXPECT_THROW(command.runChecked(), std::runtime_error);
    EXPECT_EQ(openDescriptors(), before);
}

TEST(ExecCmd, RunsByTheOneOperationThatADerivedClassCanReplace)
{
    class Counting : public ExecCmd
    {
    public:
        Counting() : ExecCmd("/bin/false") {}
        int execute() override { return ++count; }
        int count = 10;
    };
    Counting command;
    EXPECT_EQ(command.run(), 11);
    command.runChecked();
    EXPECT_EQ(command.count, 12);
}

TEST(ExecCmd, HasItsOperationsInAFixedOrderForProgramsBuiltAgainstIt)
{
    EXPECT_EQ(virtualSlot(&CmdLine::add), 2);
    EXPECT_EQ(virtualSlot(&CmdLine::setEnv), 3);
    EXPECT_EQ(virtualSlot(&ExecCmd::add), 2);
    EXPECT_EQ(virtualSlot(&ExecCmd::setEnv), 3);
    EXPECT_EQ(virtualSlot(&ExecCmd::runChecked), 4);
    EXPECT_EQ(virtualSlot(&ExecCmd::run), 5);
    EXPECT_EQ(virtualSlot(&ExecCmd::execute), 6);
}

TEST_F(ExecCmdFaults, KeepTheErrorNumberOfARunWhoseEndCouldNotBeWaitedFor)
{
    Shell command("exit 0");
    faults::fail("waitpid", EINVAL);
    EXPECT_EQ(command.run(), -1);
    EXPECT_EQ(command.savedErrno(), EINVAL);
    EXPECT_TRUE(command.finished());
    EXPECT_GT(waitpid(-1, nullptr, 0), 0);
}

TEST_F(ExecCmdFaults, PassASystemErrorOnAndLeaveTheRunUnfinished)
{
    Shell command("exit 0");
    faults::fail("fork", EAGAIN);
    try {
        command.runChecked();
        FAIL() << "nothing was thrown";
    } catch (const zelto::ExSystemError<EAGAIN>& error) {
        EXPECT_STREQ(
            error.what(), "forkExecvPipes: fork() failed: Resource temporarily unavailable");
    }
    EXPECT_TRUE(command.started());
    EXPECT_FALSE(command.finished());
}

TEST_F(ExecCmdFaults, EndTheProgramThatCannotMakeAPipe)
{
    const Outcome end = inChild([] {
        PROGNAME = "/usr/sbin/twigctl";
        faults::fail("pipe2", EMFILE);
        ExecCmd("/bin/true").run();
    });
    EXPECT_EQ(end.err, "twigctl: forkExecvGetOutErr: pipe() failed\n"
                       "System error 24: Too many open files\n");
    EXPECT_EQ(end.status, 1);
}

TEST_F(ExecCmdFaults, RefuseAnArgumentThatThereIsNoMemoryForAndKeepTheOthers)
{
    Shell command("echo $# $0");
    command.add("kept");
    faults::fail("strdup", ENOMEM);
    EXPECT_THROW(command.add("lost"), std::bad_alloc);
    command.add("next");
    EXPECT_EQ(command.run(), 0);
    EXPECT_EQ(command.stdoutData(), "1 kept\n");
}

TEST_F(ExecCmdFaults, RefuseAnArgumentThatThereIsNoRoomFor)
{
    Shell command("echo $#");
    command.add("zero");
    int taken = 0;
    EXPECT_THROW(
        for (; taken < 1000; ++taken) {
            const FailingNew failing;
            command.add("x");
        },
        std::bad_alloc);
    EXPECT_EQ(command.run(), 0);
    EXPECT_EQ(command.stdoutData(), std::to_string(taken) + "\n");
}
