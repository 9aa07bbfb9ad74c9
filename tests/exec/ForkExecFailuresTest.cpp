#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

#include "conf/ProgramName.h"
#include "support/SystemError.h"
#include "tests/exec/ForkExecFixture.h"
#include "tests/exec/OpenDescriptors.h"

namespace
{

/// What forkExecvGetOutErr() does when a call fails.
class ForkExecvGetOutErrFailing : public ForkExecvGetOutErr
{
protected:
    /// Whether there is a child that nobody has waited for; waits for it.
    static bool childWasLeft() { return waitpid(-1, nullptr, 0) > 0; }

    ForkExecvGetOutErrFailing() { makeFifo("/srv/go"); }

    /// Ends a child that stays, and cleans up after it.
    void letGo()
    {
        close(open("/srv/go", O_WRONLY | O_CLOEXEC));
        EXPECT_GT(watch_.closeAdded(), 0U);
        EXPECT_TRUE(childWasLeft());
    }

    /// Runs cat in a child of its own and returns how that ended.
    static Outcome catInChild(const char* call, int error, int nth)
    {
        return inChild([=] {
            PROGNAME = "twigctl";
            std::string output;
            faults::fail(call, error, nth);
            forkExecvGetOutErr(output, "/bin/cat", Arguments{"cat"});
            _exit(42);
        });
    }

    void expectFailure(const std::string& script, const char* text, int number)
    {
        try {
            shell(script);
            FAIL() << "nothing was thrown";
        } catch (const zelto::SystemError& error) {
            EXPECT_STREQ(error.what(), text);
            EXPECT_EQ(error.errorCode(), number);
        }
    }

    /// A script that goes on until letGo(), but not for ever when it is forgotten.
    static constexpr const char* stay = "exec timeout 60 cat /srv/go";

    DescriptorWatch watch_;
};

} // namespace

TEST_F(ForkExecvGetOutErrFailing, EndsTheCallerWhenAPipeCannotBeMade)
{
    for (int nth = 1; nth <= 3; ++nth) {
        const Outcome outcome = catInChild("pipe2", EMFILE, nth);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.err, "twigctl: forkExecvGetOutErr: pipe() failed\n"
                               "System error 24: Too many open files\n");
        EXPECT_EQ(outcome.out, outcome.err);
    }
    EXPECT_EQ(catInChild("pipe2", EMFILE, 4).status, 42);
}

TEST_F(ForkExecvGetOutErrFailing, EndsTheCallerWhenAPipeCannotBeSetUp)
{
    for (int nth = 1; nth <= 3; ++nth) {
        const Outcome outcome = catInChild("fcntl", EPERM, nth);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.err, "twigctl: forkExecvGetOutErr: fcntl(O_NONBLOCK) failed\n"
                               "System error 1: Operation not permitted\n");
        EXPECT_EQ(outcome.out, outcome.err);
    }
    EXPECT_EQ(catInChild("fcntl", EPERM, 4).status, 42);
}

TEST_F(ForkExecvGetOutErrFailing, ThrowsWhenThereCanBeNoChildAndClosesItsPipes)
{
    input_ = "text";
    faults::fail("fork", ENOMEM);
    expectFailure("cat", "forkExecvPipes: fork() failed: Cannot allocate memory", ENOMEM);
    EXPECT_EQ(watch_.closeAdded(), 0U);
    EXPECT_EQ(input_, "text");
}

TEST_F(ForkExecvGetOutErrFailing, WantsArguments)
{
    EXPECT_THROW(forkExecvGetOutErr(output_, "/bin/cat", nullptr), std::invalid_argument);
    EXPECT_EQ(watch_.closeAdded(), 0U);
}

TEST_F(ForkExecvGetOutErrFailing, ThrowsWhenItCannotWaitForTheStreamsAndLeavesThemOpen)
{
    input_ = "text";
    faults::fail("select", ENOMEM);
    expectFailure("cat", "forkExecvGetOutErr: select() failed: Cannot allocate memory", ENOMEM);
    EXPECT_EQ(input_, "text");
    EXPECT_EQ(watch_.closeAdded(), 3U);
    EXPECT_TRUE(childWasLeft());
}

TEST_F(ForkExecvGetOutErrFailing, ThrowsANumberThatHasAClassAsThatClass)
{
    faults::fail("select", EAGAIN);
    EXPECT_THROW(shell("cat"), zelto::ExSystemError<EAGAIN>);
    EXPECT_EQ(watch_.closeAdded(), 3U);
    EXPECT_TRUE(childWasLeft());
}

TEST_F(ForkExecvGetOutErrFailing, LeavesOnlyTheEndsThatWereStillOpen)
{
    faults::fail("select", ENOMEM, 2); // the input was complete before
    expectFailure(
        "cat >/dev/null", "forkExecvGetOutErr: select() failed: Cannot allocate memory", ENOMEM);
    EXPECT_EQ(watch_.closeAdded(), 2U);
    EXPECT_TRUE(childWasLeft());
}

TEST_F(ForkExecvGetOutErrFailing, LeavesEndsThatNoOtherProgramInherits)
{
    faults::fail("select", ENOMEM);
    expectFailure("cat", "forkExecvGetOutErr: select() failed: Cannot allocate memory", ENOMEM);
    for (const int fd : watch_.added()) {
        EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    }
    EXPECT_EQ(watch_.closeAdded(), 3U);
    EXPECT_TRUE(childWasLeft());
}

TEST_F(ForkExecvGetOutErrFailing, TakesAllStreamsForReadyAfterASignal)
{
    input_ = "text";
    faults::fail("select", EINTR);
    faults::runBefore("select", 2, [] { faults::fail("select", ENOMEM, 0); });
    expectFailure(stay, "forkExecvGetOutErr: select() failed: Cannot allocate memory", ENOMEM);
    EXPECT_EQ(input_, "");
    EXPECT_EQ(watch_.added().size(), 2U);
    letGo();
}

TEST_F(ForkExecvGetOutErrFailing, ThrowsWhenTheProgramStopsReading)
{
    const std::string text = std::string(100000, 'a') + std::string(100000, 'b');
    input_ = text;
    expectFailure("exec <&-; echo done", "writeToString failed: Broken pipe", EPIPE);
    EXPECT_GE(input_.size(), text.size() - 65536);
    EXPECT_TRUE(text.ends_with(input_));
    EXPECT_EQ(watch_.closeAdded(), 3U);
    EXPECT_TRUE(childWasLeft());
}

TEST_F(ForkExecvGetOutErrFailing, ThrowsWhenItCannotWrite)
{
    input_ = "text";
    faults::fail("write", EIO);
    expectFailure("cat", "writeToString failed: Input/output error", EIO);
    EXPECT_EQ(input_, "text");
    EXPECT_EQ(watch_.closeAdded(), 3U);
    EXPECT_TRUE(childWasLeft());
}

TEST_F(ForkExecvGetOutErrFailing, KeepsExactlyTheUnwrittenRest)
{
    const std::string text = std::string(65536, 'a') + std::string(65536, 'b') + "rest";
    input_ = text;
    faults::fail("select", ENOMEM, 2); // what a pipe holds was written by then
    expectFailure(stay, "forkExecvGetOutErr: select() failed: Cannot allocate memory", ENOMEM);
    EXPECT_EQ(input_, text.substr(65536));
    EXPECT_EQ(watch_.added().size(), 3U);
    letGo();
}

TEST_F(ForkExecvGetOutErrFailing, ThrowsWhenItCannotRead)
{
    faults::fail("read", EIO);
    expectFailure("echo text", "readToString failed: Input/output error", EIO);
    EXPECT_EQ(output_, "");
    EXPECT_EQ(watch_.closeAdded(), 2U);
    EXPECT_TRUE(childWasLeft());
}

TEST_F(ForkExecvGetOutErrFailing, KeepsWhatItCollectedBefore)
{
    output_ = "before ";
    faults::fail("read", EIO, 2);
    expectFailure(
        std::string("echo text; ") + stay, "readToString failed: Input/output error", EIO);
    EXPECT_EQ(output_, "before text\n");
    letGo();
}

TEST_F(ForkExecvGetOutErrFailing, WaitsOnAfterASignal)
{
    faults::fail("waitpid", EINTR);
    EXPECT_EQ(shell("exit 3"), 3);
    EXPECT_EQ(faults::calls("waitpid"), 2);
}

TEST_F(ForkExecvGetOutErrFailing, WaitsOnWhenItHasNoChild)
{
    faults::fail("waitpid", ECHILD);
    EXPECT_EQ(shell("exit 3"), 3);
    EXPECT_EQ(faults::calls("waitpid"), 2);
}

TEST_F(ForkExecvGetOutErrFailing, NeverComesBackWhenTheSystemReapsItsChildren)
{
    const Outcome outcome = inChild([] {
        (void)std::signal(SIGCHLD, SIG_IGN);
        faults::runBefore("waitpid", 1000, [] { _exit(43); });
        std::string output;
        forkExecvGetOutErr(output, "/bin/true", Arguments{"true"});
        _exit(42);
    });
    EXPECT_EQ(outcome.status, 43);
}

TEST_F(ForkExecvGetOutErrFailing, ReturnsMinusOneWhenItCannotWaitForTheProgram)
{
    faults::fail("waitpid", EINVAL);
    EXPECT_EQ(shell("echo text"), -1);
    EXPECT_EQ(output_, "text\n");
    EXPECT_EQ(watch_.closeAdded(), 0U);
    EXPECT_TRUE(childWasLeft());
}

TEST_F(ForkExecvGetOutErrFailing, CollectsWhatTheChildSaysAboutAnErrorOfItsOwn)
{
    const Arguments argv{"true"};
    EXPECT_EQ(
        forkExecvGetOutErr(input_, output_, error_, "/bin/true", argv, sameUser, {{"A=B", ""}}), 1);
    EXPECT_EQ(error_, "Unexpected error: forkExecvPipes: setenv() falied: Invalid argument\n");
    EXPECT_EQ(output_, "");
}

namespace
{

/// The pipe ends above 2 that do not block, as "w 4"-like words in ascending order; the numbers are
/// counted from the first pipe end.
std::string nonBlockingEnds()
{
    std::string text;
    int number = 0;
    for (const int fd : openNumbers()) {
        if (fd < 3 || !behind(fd).starts_with("pipe:")) {
            continue;
        }
        ++number;
        std::string info = contentOf("/proc/self/fdinfo/" + std::to_string(fd));
        info = info.substr(info.find("flags:") + 6);
        const unsigned long flags = std::stoul(info, nullptr, 8);
        if ((flags & O_NONBLOCK) != 0) {
            text += (flags & O_ACCMODE) == O_WRONLY ? 'w' : 'r';
            text += std::to_string(number) + ' ';
        }
    }
    return text;
}

std::string& seen()
{
    static std::string text;
    return text;
}

void look()
{
    seen() += nonBlockingEnds() + '\n';
}

} // namespace

TEST_F(ForkExecvGetOutErrFailing, SetsItsOwnThreeEndsNonBlockingOneAfterTheOther)
{
    const Outcome outcome = inChild([] {
        closefrom(3); // so that the pipes are numbered in the order they are made
        faults::runBefore("fcntl", 2, [] {
            look();
            faults::runBefore("fcntl", 1, [] {
                look();
                faults::runBefore("fork", 1, look);
            });
        });
        std::string output;
        forkExecvGetOutErr(output, "/bin/true", Arguments{"true"});
        (void)!write(STDOUT_FILENO, seen().data(), seen().size());
        _exit(faults::calls("fcntl"));
    });
    EXPECT_EQ(outcome.out, "w2 \nw2 r3 \nw2 r3 r5 \n");
    EXPECT_EQ(outcome.status, 3); // nothing asked for flags to add to
}
