#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <gtest/gtest.h>
#include <string>
#include <sys/time.h>
#include <unistd.h>

#include "conf/TerminateHandler.h"
#include "exec/TExec.h"
#include "support/TSysCallErr.h"
#include "tests/exec/Commands.h"
#include "tests/exec/Input.h"
#include "tests/exec/Recorder.h"
#include "tests/lib/Faults.h"
#include "tests/lib/Process.h"

using zelto::sys::TEArgs;
using zelto::sys::TExec;
using zelto::sys::TSysCallErr;

namespace
{

using Result = std::pair<int, int>;

/// Runs the body, which must throw; the text and the number of what was thrown.
template<class Body>
std::string callErrorOf(Body body)
{
    try {
        body();
    } catch (const TSysCallErr& error) {
        return std::to_string(error.errorCode()) + " " + error.what();
    }
    return "nothing thrown";
}

class TExecFailure : public ::testing::Test
{
    faults::Guard guard_;
};

} // namespace

TEST_F(TExecFailure, ThrowsInTheCallingProcessWhenItCannotBeReplaced)
{
    const TExec exec(words({"/no/such/program"}), nullptr, 0);
    EXPECT_EQ(callErrorOf([&] { exec.run(); }), "2 No such file or directory");
}

TEST_F(TExecFailure, ThrowsInTheCallingProcessWithoutWords)
{
    const TExec exec(TEArgs(), nullptr, TExec::searchPath);
    EXPECT_EQ(callErrorOf([&] { exec.run(); }), "14 Bad address");
}

TEST_F(TExecFailure, ThrowsAFailedFork)
{
    faults::fail("fork", EAGAIN);
    EXPECT_EQ(callErrorOf([] { TExec(words({"/bin/true"})).run(); }),
        "11 Resource temporarily unavailable");
}

TEST_F(TExecFailure, ThrowsAFailedForkAfterAskingThePreparation)
{
    std::string thrown;
    const Outcome outcome = outputOf([&] {
        Recorder recorder(true);
        faults::fail("fork", EAGAIN);
        thrown = callErrorOf([&] { TExec(words({"x"}), &recorder).run(); });
    });
    EXPECT_EQ(thrown, "11 Resource temporarily unavailable"); // not what the recorder left in errno
    EXPECT_EQ(outcome.out, "beforeFork x\nonForkError x\n");
    EXPECT_EQ(outcome.err, "");
}

TEST_F(TExecFailure, ReturnsFromAFailedForkWhenThePreparationSaysSo)
{
    Result result;
    int error = 0;
    outputOf([&] {
        Recorder recorder(false);
        faults::fail("fork", EAGAIN);
        result = TExec(words({"x"}), &recorder).run();
        error = errno;
    });
    EXPECT_EQ(result, Result(-1, 0));
    EXPECT_EQ(error, EAGAIN);
}

TEST_F(TExecFailure, ThrowsAFailedExecutionInTheChild)
{
    const auto [pid, code] = runCarefully(TExec(words({"/no/such/program"})));
    EXPECT_GT(pid, 0);
    EXPECT_EQ(code, 100 + ENOENT);
}

TEST_F(TExecFailure, ThrowsAFailedExecutionAfterAskingThePreparation)
{
    int code = 0;
    const Outcome outcome = outputOf([&] {
        Recorder recorder(true);
        code = runCarefully(TExec(words({"/no/x"}), &recorder)).second;
    });
    EXPECT_EQ(code, 100 + ENOENT);
    EXPECT_EQ(outcome.out, "beforeFork /no/x\ninParent /no/x\n");
    EXPECT_EQ(outcome.err, "inChild /no/x\nbeforeExec /no/x\nonExecError /no/x\n");
}

TEST_F(TExecFailure, ReturnsIntoTheChildWhenThePreparationSaysSo)
{
    int code = 0;
    outputOf([&] {
        Recorder recorder(false);
        code = runCarefully(TExec(words({"/no/x"}), &recorder)).second;
    });
    EXPECT_EQ(code, 90);
}

TEST_F(TExecFailure, ReturnsFromAFailedExecutionWithoutAForkWhenThePreparationSaysSo)
{
    Result result;
    int error = 0;
    outputOf([&] {
        Recorder recorder(false);
        result = TExec(words({"/no/x"}), &recorder, 0).run();
        error = errno;
    });
    EXPECT_EQ(result, Result(-1, 0));
    EXPECT_EQ(error, ENOENT);
}

TEST_F(TExecFailure, EndsAnUnpreparedCallersChildInTheTerminateHandler)
{
    Result result;
    const Outcome outcome = outputOf([&] {
        const pid_t self = getpid();
        const auto previous = std::set_terminate(unexpectedErrorHandler);
        const auto unprepared = [&]() noexcept {
            result = TExec(words({"/no/such/program"})).run();
        };
        unprepared();
        if (getpid() != self) {
            _exit(99);
        }
        std::set_terminate(previous);
    });
    EXPECT_GT(result.second, 0);
    EXPECT_EQ(outcome.err, "Unexpected error: No such file or directory\n");
}

TEST_F(TExecFailure, ThrowsWhenTheWaitIsInterrupted)
{
    const Outcome outcome = inChild([] {
        Input input;
        zelto::sys::TRedirect redirect = input.preparation();
        struct sigaction action {
        };
        action.sa_handler = [](int) {}; // without SA_RESTART
        sigaction(SIGALRM, &action, nullptr);
        const itimerval often{{0, 5000}, {0, 5000}};
        setitimer(ITIMER_REAL, &often, nullptr);
        const std::string text = callErrorOf([&] { TExec(words({"/bin/cat"}), &redirect).run(); });
        const itimerval never{};
        setitimer(ITIMER_REAL, &never, nullptr);
        input.end();
        (void)std::printf("%s, then %d", text.c_str(), statusWordOfAnyChild());
    });
    EXPECT_EQ(outcome.out, "4 Interrupted system call, then 0");
}

TEST_F(TExecFailure, ThrowsWhenSomebodyElseHasWaited)
{
    const Outcome outcome = inChild([] {
        (void)std::signal(SIGCHLD, SIG_IGN); // the kernel waits
        const std::string text = callErrorOf([] { TExec(words({"/bin/true"})).run(); });
        (void)std::fputs(text.c_str(), stdout);
    });
    EXPECT_EQ(outcome.out, "10 No child processes");
}
