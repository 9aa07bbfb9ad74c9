#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <iostream>
#include <string>
#include <unistd.h>

#include "exec/TExec.h"
#include "support/TSysCallErr.h"
#include "tests/exec/Commands.h"
#include "tests/exec/Input.h"
#include "tests/exec/Recorder.h"
#include "tests/lib/Process.h"

using zelto::sys::TExec;
using zelto::sys::TSysCallErr;
using Result = std::pair<int, int>;

TEST(TExecRun, ReturnsTheExitCode)
{
    const auto [pid, code] = TExec(shell("exit 3")).run();
    EXPECT_GT(pid, 0);
    EXPECT_EQ(code, 3);
    EXPECT_TRUE(hasNoChildren());
}

TEST(TExecRun, ReturnsTheWholeRangeOfExitCodes)
{
    EXPECT_EQ(TExec(shell("exit 255")).run().second, 255);
    EXPECT_EQ(TExec(words({"/bin/false"})).run().second, 1);
    EXPECT_EQ(TExec(words({"/bin/true"})).run().second, 0);
}

TEST(TExecRun, ReturnsTheProcessIdOfTheProgram)
{
    Result result;
    const Outcome outcome = outputOf([&] { result = TExec(shell("printf $$")).run(); });
    EXPECT_EQ(outcome.out, std::to_string(result.first));
}

TEST(TExecRun, ReturnsMinusOneForAnEndByASignal)
{
    const auto [pid, code] = TExec(shell("kill -KILL $$")).run();
    EXPECT_GT(pid, 0);
    EXPECT_EQ(code, -1);
}

TEST(TExecRun, CanBeRepeated)
{
    const TExec exec(words({"/bin/echo", "again"}));
    const Outcome outcome = outputOf([&] {
        exec.run();
        exec.run();
    });
    EXPECT_EQ(outcome.out, "again\nagain\n");
}

TEST(TExecRun, LooksTheProgramUpOnPath)
{
    EXPECT_EQ(runCarefully(TExec(words({"true"}))).second, 0);
}

TEST(TExecRun, DoesNotLookTheProgramUpWithoutThatFlag)
{
    const TExec exec(words({"true"}), nullptr, TExec::fork | TExec::wait);
    EXPECT_EQ(runCarefully(exec).second, 100 + ENOENT);
}

TEST(TExecRun, DoesNotWaitWithoutThatFlag)
{
    Input input;
    zelto::sys::TRedirect redirect = input.preparation();
    const auto [pid, code] = TExec(words({"/bin/cat"}), &redirect, TExec::fork).run();
    EXPECT_GT(pid, 0);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(waitpid(pid, nullptr, WNOHANG), 0); // still running: its input is open
    input.end();
    EXPECT_EQ(statusWordOf(pid), 0);
}

TEST(TExecRun, DoesNotFetchTheExitCodeWithoutWaiting)
{
    const auto [pid, code] = TExec(shell("exit 3"), nullptr, TExec::fork).run();
    EXPECT_EQ(code, 0);
    EXPECT_EQ(statusWordOf(pid), 3 << 8);
}

TEST(TExecRun, ReplacesTheCallingProcessWithoutAFork)
{
    const Outcome outcome = inChild([] {
        const pid_t self = getpid();
        const std::string script = "[ $$ = " + std::to_string(self) + " ] && exit 3";
        TExec(shell(script), nullptr, TExec::wait).run();
        _exit(99);
    });
    EXPECT_EQ(outcome.status, 3);
}

TEST(TExecRun, CallsOnlyBeforeExecWithoutAFork)
{
    const Outcome outcome = inChild([] {
        Recorder here;
        TExec(words({"/bin/true"}), &here, 0).run();
        _exit(99);
    });
    EXPECT_EQ(outcome.out, "beforeExec /bin/true\n");
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 0);
}

TEST(TExecRun, CallsThePreparationInOrder)
{
    const Outcome outcome = outputOf([] {
        Recorder recorder;
        TExec(words({"/bin/true"}), &recorder).run();
    });
    EXPECT_EQ(outcome.out, "beforeFork /bin/true\ninParent /bin/true\n");
    EXPECT_EQ(outcome.err, "inChild /bin/true\nbeforeExec /bin/true\n");
}

TEST(TExecRun, CallsInParentAlsoWithoutWaiting)
{
    const Outcome outcome = outputOf([] {
        Recorder recorder;
        statusWordOf(TExec(words({"/bin/true"}), &recorder, TExec::fork).run().first);
    });
    EXPECT_EQ(outcome.out, "beforeFork /bin/true\ninParent /bin/true\n");
}

TEST(TExecRun, LetsPendingOutputBeWrittenOnlyOnce)
{
    const Outcome outcome = inChild([] {
        (void)std::printf("printed ");
        std::cout << "streamed ";
        try {
            TExec(words({"/no/such/program"})).run();
        } catch (const TSysCallErr&) { // the child, which writes what is pending when it exits
        }
    });
    EXPECT_EQ(outcome.out.find("printed "), outcome.out.rfind("printed "));
    EXPECT_EQ(outcome.out.find("streamed "), outcome.out.rfind("streamed "));
    EXPECT_EQ(outcome.out.size(), std::strlen("printed streamed "));
}

TEST(TExecRun, WritesPendingOutputAlsoOfThePreparationBeforeTheFork)
{
    class Printing : public TExec::TPrepare
    {
        void beforeFork(const TExec& /*exec*/) override { (void)std::printf("prepared "); }
    };
    const Outcome outcome = inChild([] {
        Printing printing;
        try {
            TExec(words({"/no/such/program"}), &printing).run();
        } catch (const TSysCallErr&) { // as above
        }
    });
    EXPECT_EQ(outcome.out, "prepared ");
}

TEST(TExecRun, LeavesNoDescriptorBehind)
{
    const size_t before = openDescriptors();
    EXPECT_EQ(TExec(words({"/bin/true"})).run().second, 0);
    EXPECT_EQ(openDescriptors(), before);
}
