#include "exec/Pipeline.h"

#include <cerrno>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "support/TSysCallErr.h"
#include "tests/exec/PipelineFixture.h"

using zelto::sys::runPipeline;
using zelto::sys::TExec;
using zelto::sys::TSysCallErr;

namespace
{

using Result = std::pair<int, int>;

constexpr unsigned startOnly = TExec::fork | TExec::searchPath;

class RunPipeline : public PipelineFixture
{
};

/// Lets no failure be thrown.
class Veto : public TExec::TPrepare
{
    bool onForkError(const TExec& /*exec*/) override { return false; }
    bool onExecError(const TExec& /*exec*/) override { return false; }
};

} // namespace

TEST_F(RunPipeline, OfNoCommandsComesToNothing)
{
    EXPECT_EQ(runPipeline({}), Result(0, 0));
}

TEST_F(RunPipeline, ReturnsTheResultOfTheLastCommand)
{
    const auto [pid, code] = runPipeline({TExec(shell("exit 4")), TExec(shell("exit 3"))});
    EXPECT_GT(pid, 0);
    EXPECT_EQ(code, 3);
    EXPECT_TRUE(hasNoChildren());
}

TEST_F(RunPipeline, RunsEachCommandWithItsOwnFlags)
{
    const auto [pid, code] =
        runPipeline({TExec(shell("exit 4"), nullptr, startOnly), TExec(shell("exit 3"))});
    EXPECT_EQ(code, 3);
    const pid_t first = waitpid(-1, nullptr, 0); // the caller's, as asked
    EXPECT_GT(first, 0);
    EXPECT_NE(first, pid);
    EXPECT_TRUE(hasNoChildren());
}

TEST_F(RunPipeline, ConnectsNeighboursAndLeavesNoDescriptorBehind)
{
    const size_t before = openDescriptors();
    const Row row(
        {words({"echo", "text"}), words({"tr", "a-z", "A-Z"}), words({"tr", "X", "S"})}, startOnly);
    Result result;
    const Outcome outcome = outputOf([&] {
        result = runPipeline(row.commands());
        EXPECT_EQ(openDescriptors(), before + 4); // the capture's own four
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(statusWordOfAnyChild(), 0);
        }
    });
    EXPECT_EQ(outcome.out, "TEST\n");
    EXPECT_EQ(result.second, 0);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(RunPipeline, PassesAFailureOnAndStartsNothingBehindIt)
{
    const Outcome outcome = outputOf([] {
        faults::fail("fork", EAGAIN, 2);
        const std::vector<TExec> commands(3, TExec(words({"echo", "text"})));
        EXPECT_THROW(runPipeline(commands), TSysCallErr);
    });
    EXPECT_EQ(outcome.out, "text\n");
}

TEST_F(RunPipeline, GoesOnAfterAForkThatMayFail)
{
    Veto veto;
    faults::fail("fork", EAGAIN);
    EXPECT_EQ(runPipeline({TExec(words({"true"}), &veto), TExec(shell("exit 3"))}).second, 3);
}

TEST_F(RunPipeline, DoesNotStartTheRestTwiceAfterAnExecutionThatMayFail)
{
    const pid_t caller = getpid();
    Veto veto;
    Result result;
    const Outcome outcome = outputOf([&] {
        result = runPipeline(
            {TExec(words({"/no/such/program"}), &veto), TExec(words({"echo", "text"}))});
        if (getpid() != caller) {
            _exit(result == Result(-1, 0) ? 0 : 1);
        }
    });
    EXPECT_EQ(outcome.out, "text\n");
    EXPECT_EQ(result.second, 0);
}
