#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <unistd.h>

#include "exec/Pipeline.h"
#include "exec/TReadFromStr.h"
#include "exec/TRedirect.h"
#include "support/SystemError.h"
#include "tests/exec/PipelineFixture.h"

using zelto::sys::TExec;
using zelto::sys::TReadFromStr;
using zelto::sys::TRedirect;

namespace
{

class CheckedRun : public PipelineFixture
{
};

std::string shown(const std::string& text)
{
    return text.size() < 200 ? text : std::to_string(text.size()) + " bytes";
}

/// Ends a child that was left stopped, and what hangs on it.
void endStopped(const std::string& pid)
{
    ASSERT_FALSE(pid.empty());
    ASSERT_GT(std::stoi(pid), 1);
    kill(std::stoi(pid), SIGKILL);
    EXPECT_EQ(statusWordOf(std::stoi(pid)), SIGKILL);
}

} // namespace

TEST_F(CheckedRun, CollectsTheOutput)
{
    const Checked checked = runChecked(words({"echo", "text"}));
    EXPECT_EQ(checked.output, "text\n");
    EXPECT_EQ(checked.failure, "");
    EXPECT_TRUE(hasNoChildren());
}

TEST_F(CheckedRun, OfNoCommandsComesToNothing)
{
    std::string output = "earlier";
    zelto::sys::runPipelineChecked({}, output);
    EXPECT_EQ(output, "");
    EXPECT_EQ(faults::calls("fork"), 0);
}

TEST_F(CheckedRun, ReplacesWhatTheOutputHeld)
{
    std::string output = "earlier";
    zelto::sys::runPipelineChecked({TExec(words({"echo", "text"}))}, output);
    EXPECT_EQ(output, "text\n");
}

TEST_F(CheckedRun, LeavesTheStandardErrorAlone)
{
    Checked checked;
    const Outcome outcome =
        outputOf([&] { checked = runChecked(shell("echo out; echo err >&2")); });
    EXPECT_EQ(checked.output, "out\n");
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "err\n");
}

TEST_F(CheckedRun, CollectsOnlyWhatTheLastCommandWrites)
{
    const Row row({words({"echo", "text"}), words({"tr", "a-z", "A-Z"}), words({"wc", "-c"})});
    EXPECT_EQ(runChecked(row.commands()).output, "5\n");
    EXPECT_TRUE(hasNoChildren());
}

TEST_F(CheckedRun, LeavesNoDescriptorBehind)
{
    const size_t before = openDescriptors();
    const Row row({words({"echo", "text"}), words({"cat"}), words({"cat"})});
    EXPECT_EQ(runChecked(row.commands()).output, "text\n");
    EXPECT_EQ(runChecked(words({"false"})).failure, "child failed (exit code=1): ");
    outputOf([] { runChecked(words({"/no/such/program"})); });
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(CheckedRun, ThrowsTheExitCodeAndTheOutput)
{
    const Checked checked = runChecked(shell("echo o; exit 3"));
    EXPECT_EQ(checked.failure, "child failed (exit code=3): o\n");
    EXPECT_EQ(checked.output, "o\n");
    std::string output;
    EXPECT_THROW(
        zelto::sys::runPipelineChecked({TExec(words({"false"}))}, output), std::runtime_error);
    EXPECT_EQ(runChecked(shell("exit 255")).failure, "child failed (exit code=255): ");
}

TEST_F(CheckedRun, ThrowsTheStatusWordOfAnEndByASignalAndTheOutput)
{
    const Checked checked = runChecked(shell("printf o; kill -KILL $$"));
    EXPECT_EQ(checked.failure, "child failed (status=9): o");
    EXPECT_EQ(checked.output, "o");
}

TEST_F(CheckedRun, CollectsMoreThanAPipeHoldsBeforeThrowing)
{
    const Checked checked = runChecked(shell("head -c 204800 /dev/zero | tr '\\0' x; exit 3"));
    EXPECT_EQ(checked.output, std::string(204800, 'x')) << shown(checked.output);
    EXPECT_TRUE(checked.failure == "child failed (exit code=3): " + std::string(204800, 'x'))
        << shown(checked.failure);
}

TEST_F(CheckedRun, TakesBeingStoppedForAnEndByASignal)
{
    const Checked checked = runChecked(shell("echo $$; exec >&-; kill -STOP $$"));
    EXPECT_EQ(checked.failure, "child failed (status=4991): " + checked.output);
    endStopped(checked.output);
}

TEST_F(CheckedRun, DoesNotWaitForTheWriterToAStoppedCommand)
{
    const Outcome outcome = inChild([] {
        alarm(60);
        const Row row({words({"yes"}), shell("echo $$; exec >&-; kill -STOP $$")});
        const Checked checked = runChecked(row.commands());
        EXPECT_EQ(checked.failure, "child failed (status=4991): " + checked.output);
        endStopped(checked.output);
        EXPECT_EQ(statusWordOfAnyChild() & 0x7f, SIGPIPE);
        _exit(HasFailure() ? 1 : 0);
    });
    EXPECT_EQ(outcome.status, 0) << outcome.out;
}

TEST_F(CheckedRun, DoesNotWaitForAnEarlierCommandThatIsStopped)
{
    const Row row({shell("echo $$; exec >&-; kill -STOP $$"), words({"cat"})});
    const Checked checked = runChecked(row.commands());
    EXPECT_EQ(checked.failure, "");
    endStopped(checked.output);
}

TEST_F(CheckedRun, TakesAChildThatSomebodyElseWaitedForAsSuccessful)
{
    const Outcome outcome = inChild([] {
        (void)std::signal(SIGCHLD, SIG_IGN); // the kernel waits
        const Checked checked = runChecked(shell("echo o; exit 3"));
        _exit(checked.failure.empty() && checked.output == "o\n" ? 0 : 1);
    });
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(CheckedRun, WaitsAgainAfterAnInterruption)
{
    faults::fail("waitpid", EINTR);
    EXPECT_EQ(runChecked(shell("exit 3")).failure, "child failed (exit code=3): ");
    EXPECT_TRUE(hasNoChildren());
}

TEST_F(CheckedRun, WaitsAgainForAnEarlierCommandAfterAnInterruption)
{
    const Row row({words({"true"}), words({"true"})});
    faults::fail("waitpid", EINTR, 2);
    EXPECT_EQ(runChecked(row.commands()).failure, "");
    EXPECT_TRUE(hasNoChildren());
}

TEST_F(CheckedRun, ThrowsWhenWaitingFails)
{
    faults::fail("waitpid", EINVAL);
    std::string output;
    try {
        zelto::sys::runPipelineChecked({TExec(words({"echo", "o"}))}, output);
        FAIL() << "nothing was thrown";
    } catch (const zelto::SystemError& error) {
        EXPECT_STREQ(error.what(), "waitpid() failed: Invalid argument");
        EXPECT_EQ(error.errorCode(), EINVAL);
    }
    EXPECT_EQ(output, "o\n");
    EXPECT_EQ(statusWordOfAnyChild(), 0);
}

TEST_F(CheckedRun, ReadsAgainAfterAnInterruption)
{
    faults::fail("read", EINTR);
    EXPECT_EQ(runChecked(words({"echo", "o"})).output, "o\n");
}

TEST_F(CheckedRun, ThrowsWhenReadingFails)
{
    faults::fail("read", EIO, 2);
    const Checked checked = runChecked(words({"echo", "o"}));
    EXPECT_EQ(checked.failure, "read() failed: Input/output error");
    EXPECT_EQ(checked.output, "o\n");
    EXPECT_EQ(statusWordOfAnyChild(), 0);
}

TEST_F(CheckedRun, WaitsForTheEarlierCommandsToo)
{
    const Row row({words({"true"}), words({"true"}), words({"true"}), words({"true"})});
    EXPECT_EQ(runChecked(row.commands()).failure, "");
    EXPECT_TRUE(hasNoChildren());
}

TEST_F(CheckedRun, WaitsForTheEarlierCommandsAlsoWhenTheLastFails)
{
    const Row row({words({"true"}), words({"false"})});
    EXPECT_EQ(runChecked(row.commands()).failure, "child failed (exit code=1): ");
    EXPECT_TRUE(hasNoChildren());
}

TEST_F(CheckedRun, DoesNotCareHowTheEarlierCommandsEnd)
{
    const Row row({shell("echo text; exit 3"), words({"cat"})});
    const Checked checked = runChecked(row.commands());
    EXPECT_EQ(checked.failure, "");
    EXPECT_EQ(checked.output, "text\n");
    const Row killed({shell("echo text; kill -KILL $$"), words({"cat"})});
    EXPECT_EQ(runChecked(killed.commands()).failure, "");
}

TEST_F(CheckedRun, LetsAnEarlierCommandWriteMoreThanAPipeHolds)
{
    const Outcome outcome = inChild([] {
        alarm(60);
        const Row row({words({"head", "-c", "1000000", "/dev/zero"}), words({"wc", "-c"})});
        const Checked checked = runChecked(row.commands());
        (void)std::printf("%s%s", checked.output.c_str(), checked.failure.c_str());
    });
    EXPECT_EQ(outcome.out, "1000000\n");
}

TEST_F(CheckedRun, EndsAnEndlessEarlierCommandWithItsReader)
{
    const Row row({words({"yes"}), words({"head", "-n", "1"})});
    EXPECT_EQ(runChecked(row.commands()).output, "y\n");
    EXPECT_TRUE(hasNoChildren());
}

TEST_F(CheckedRun, RunsInChildrenWhateverTheFlags)
{
    const Outcome outcome = inChild([] { // which a program without a child would replace
        const Checked one = runChecked({TExec(words({"/bin/echo", "o"}), nullptr, 0)});
        const Checked two =
            runChecked({TExec(words({"/bin/true"}), nullptr, 0), TExec(words({"/bin/echo", "o"}))});
        _exit(one.output == "o\n" && two.output == "o\n" && hasNoChildren() ? 7 : 1);
    });
    EXPECT_EQ(outcome.status, 7);
}

TEST_F(CheckedRun, LooksAtPathOnlyWithThatFlag)
{
    Checked checked;
    outputOf([&] { checked = runChecked({TExec(words({"true"}), nullptr, TExec::fork)}); });
    EXPECT_EQ(checked.failure, "child failed (exit code=1): ");
}

TEST_F(CheckedRun, KeepsTheLastCommandsOwnPreparation)
{
    TReadFromStr input("text");
    EXPECT_EQ(runChecked({TExec(words({"cat"}), &input)}).output, "text");
}

TEST_F(CheckedRun, LetsTheLastCommandsOwnRedirectionsPrevail)
{
    TRedirect errors(2, 1);
    EXPECT_EQ(runChecked({TExec(shell("echo out; echo err >&2"), &errors)}).output, "out\nerr\n");
    TRedirect away(1, 2);
    const Outcome outcome = outputOf([&] {
        EXPECT_EQ(runChecked({TExec(words({"echo", "o"}), &away)}).output, "");
    });
    EXPECT_EQ(outcome.err, "o\n");
}

TEST_F(CheckedRun, WorksWithoutAnyStandardDescriptor)
{
    for (int closed = 0; closed < 8; ++closed) {
        const Outcome outcome = inChild([closed] {
            for (int fd = 0; fd < 3; ++fd) {
                if ((closed & (1 << fd)) != 0) {
                    close(fd);
                }
            }
            const Row row({words({"echo", "text"}), words({"cat"}), words({"tr", "a-z", "A-Z"})});
            const Checked checked = runChecked(row.commands());
            _exit(checked.output == "TEXT\n" && checked.failure.empty() ? 0 : 1);
        });
        EXPECT_EQ(outcome.status, 0) << closed;
    }
}
