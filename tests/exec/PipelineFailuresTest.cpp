#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "exec/Pipeline.h"
#include "support/TSysCallErr.h"
#include "tests/exec/PipelineFixture.h"
#include "tests/lib/FailingNew.h"

// Children of a checked run that fail, and failures to have children at all.

using zelto::sys::TExec;

namespace
{

class FailedChild : public PipelineFixture
{
};
class FailedStart : public PipelineFixture
{
};

/// Lets no failure be thrown.
class Veto : public TExec::TPrepare
{
    bool onForkError(const TExec& /*exec*/) override { return false; }
    bool onExecError(const TExec& /*exec*/) override { return false; }
};

template<class Thrown>
class Throwing : public TExec::TPrepare
{
public:
    explicit Throwing(Thrown thrown) : thrown_(std::move(thrown)) {}
    void inChild(const TExec& /*exec*/) override { throw thrown_; }

private:
    Thrown thrown_;
};

/// The outcome of a checked run together with what the children wrote to standard error.
struct Failure {
    Checked checked;
    std::string errors;
};

Failure failureOf(const std::vector<TExec>& commands)
{
    Failure failure;
    failure.errors = outputOf([&] { failure.checked = runChecked(commands); }).err;
    return failure;
}

} // namespace

TEST_F(FailedChild, ReportsAMissingProgramAndEndsWithOne)
{
    const Failure failure = failureOf({TExec(words({"/no/such/program"}))});
    EXPECT_EQ(failure.checked.failure, "child failed (exit code=1): ");
    EXPECT_EQ(failure.checked.output, "");
    EXPECT_EQ(failure.errors, "Unexpected error: No such file or directory\n");
}

TEST_F(FailedChild, ReportsAMissingProgramAlsoWhenItsPreparationSaysNotToThrow)
{
    Veto veto;
    const Failure failure = failureOf({TExec(words({"/no/such/program"}), &veto)});
    EXPECT_EQ(failure.checked.failure, "child failed (exit code=1): ");
    EXPECT_EQ(failure.errors, "Unexpected error: No such file or directory\n");
}

TEST_F(FailedChild, EndsAlsoBeforeTheLastCommand)
{
    const Row row({words({"/no/such/program"}), words({"wc", "-c"})});
    const Failure failure = failureOf(row.commands());
    EXPECT_EQ(failure.checked.failure, "");
    EXPECT_EQ(failure.checked.output, "0\n");
    EXPECT_EQ(failure.errors, "Unexpected error: No such file or directory\n");
    EXPECT_TRUE(hasNoChildren());
}

TEST_F(FailedChild, EndsBeforeTheLastCommandAlsoWhenItsPreparationSaysNotToThrow)
{
    Veto veto;
    const Failure failure =
        failureOf({TExec(words({"/no/such/program"}), &veto), TExec(words({"echo", "o"}))});
    EXPECT_EQ(failure.checked.output, "o\n");
    EXPECT_EQ(failure.errors, "Unexpected error: No such file or directory\n");
}

TEST_F(FailedChild, ReportsWhatItsPreparationThrows)
{
    Throwing prepare{std::runtime_error("not today")};
    const Failure failure = failureOf({TExec(words({"true"}), &prepare)});
    EXPECT_EQ(failure.checked.failure, "child failed (exit code=1): ");
    EXPECT_EQ(failure.errors, "Unexpected error: not today\n");
}

TEST_F(FailedChild, ReportsEvenWhatIsNoException)
{
    Throwing prepare{42};
    const Failure failure = failureOf({TExec(words({"true"}), &prepare)});
    EXPECT_EQ(failure.checked.failure, "child failed (exit code=1): ");
    EXPECT_EQ(failure.errors, "Unexpected error: not a std::exception\n");
}

TEST_F(FailedChild, ReportsThatThereIsNoMemoryForTheArguments)
{
    class WithoutMemory : public TExec::TPrepare
    {
        void beforeExec(const TExec& /*exec*/) override { static const FailingNew failing; }
    };
    WithoutMemory prepare;
    const Failure failure = failureOf({TExec(words({"true"}), &prepare)});
    EXPECT_EQ(failure.checked.failure, "child failed (exit code=1): ");
    EXPECT_EQ(failure.errors, "Unexpected error: std::bad_alloc\n");
}

TEST_F(FailedChild, DoesNotWriteWhatTheParentHasPending)
{
    const Outcome outcome = inChild([] {
        (void)std::printf("pending ");
        runChecked(words({"/no/such/program"}));
    });
    EXPECT_EQ(outcome.out, "pending ");
}

TEST_F(FailedChild, SkipsTheExitHandlersOfTheCaller)
{
    const Outcome outcome = inChild([] {
        (void)std::atexit([] { (void)!write(STDERR_FILENO, "at exit\n", 8); });
        runChecked(words({"/no/such/program"}));
    });
    EXPECT_EQ(outcome.err, "Unexpected error: No such file or directory\nat exit\n");
}

TEST_F(FailedStart, OfTheOnlyCommandIsThrown)
{
    const size_t before = openDescriptors();
    faults::fail("fork", EAGAIN);
    std::string output = "earlier";
    EXPECT_THROW(
        zelto::sys::runPipelineChecked({TExec(words({"true"}))}, output), zelto::sys::TSysCallErr);
    EXPECT_EQ(output, "");
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(FailedStart, OfTheOnlyCommandIsNoErrorWhenItsPreparationSaysSo)
{
    const size_t before = openDescriptors();
    const pid_t child = fork(); // not the run's, and not to be waited for by it
    if (child == 0) {
        _exit(5);
    }
    Veto veto;
    faults::fail("fork", EAGAIN);
    const Checked checked = runChecked({TExec(words({"true"}), &veto)});
    EXPECT_EQ(checked.failure, "");
    EXPECT_EQ(checked.output, "");
    EXPECT_EQ(statusWordOf(child), 5 << 8);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(FailedStart, OfThePipeIsThrown)
{
    faults::fail("pipe2", EMFILE);
    EXPECT_EQ(runChecked(words({"true"})).failure, "Too many open files");
    EXPECT_EQ(faults::calls("fork"), 0);
}

TEST_F(FailedStart, WaitsForAnEarlierCommandThatHasEnded)
{
    class UntilTheEarlierEnds : public TExec::TPrepare
    {
        void beforeFork(const TExec& /*exec*/) override
        {
            siginfo_t info{};
            EXPECT_EQ(waitid(P_ALL, 0, &info, WEXITED | WNOWAIT), 0);
        }
    };
    UntilTheEarlierEnds prepare;
    faults::fail("fork", EAGAIN, 2);
    const Checked checked = runChecked({TExec(words({"true"})), TExec(words({"true"}), &prepare)});
    EXPECT_EQ(checked.failure, "Resource temporarily unavailable");
    EXPECT_TRUE(hasNoChildren());
}

TEST_F(FailedStart, LeavesAnEarlierCommandThatStillRunsToTheCaller)
{
    Row row({words({"cat"}), words({"true"})});
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const int input = fcntl(0, F_DUPFD_CLOEXEC, 3);
    dup2(ends[0], 0); // on which the first command waits
    faults::fail("fork", EAGAIN, 2);
    EXPECT_EQ(runChecked(row.commands()).failure, "Resource temporarily unavailable");
    dup2(input, 0);
    for (const int fd : {input, ends[0], ends[1]}) {
        close(fd);
    }
    EXPECT_EQ(statusWordOfAnyChild(), 0);
}

TEST_F(FailedStart, OfACommandInTheMiddleDoesNotHoldTheRunUp)
{
    // The first command's pipe stays open here without a reader, so that it never ends.
    const auto left = std::make_shared<zelto::sys::Pipe>();
    Veto veto;
    zelto::sys::TWriteToPipeline writer(left);
    const std::vector<TExec> commands{
        TExec(words({"yes"}), &writer), TExec(words({"cat"}), &veto), TExec(words({"echo", "o"}))};
    faults::fail("fork", EAGAIN, 2);
    const Checked checked = runChecked(commands);
    EXPECT_EQ(checked.failure, "");
    EXPECT_EQ(checked.output, "o\n");
    left->closeReadEnd();
    EXPECT_NE(statusWordOfAnyChild(), 0);
}
