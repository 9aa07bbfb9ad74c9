#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "exec/DescriptorStrings.h"
#include "fsutil/Descriptor.h"
#include "support/SystemError.h"
#include "tests/lib/Faults.h"

namespace
{

volatile std::sig_atomic_t handled = 0;

void count(int /*signal*/)
{
    handled = handled + 1;
}

sigset_t only(int signal)
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, signal);
    return signals;
}

bool isPending(int signal)
{
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, signal) == 1;
}

/// The signals of the set as a string of 0 and 1, for comparing.
std::string textOf(const sigset_t& signals)
{
    std::string text;
    for (int signal = 1; signal < NSIG; ++signal) {
        text += sigismember(&signals, signal) == 1 ? '1' : '0';
    }
    return text;
}

std::string mask()
{
    sigset_t signals;
    sigprocmask(SIG_BLOCK, nullptr, &signals);
    return textOf(signals);
}

struct sigaction disposition()
{
    struct sigaction action {
    };
    sigaction(SIGPIPE, nullptr, &action);
    return action;
}

/// A pipe that nobody reads; SIGPIPE is counted, and everything is put back at the end.
class WriteWithoutAReader : public ::testing::Test
{
protected:
    WriteWithoutAReader()
    {
        struct sigaction counting {
        };
        counting.sa_handler = count;
        counting.sa_flags = SA_RESTART;
        sigaction(SIGPIPE, &counting, &dispositionBefore_);
        const sigset_t signals = only(SIGPIPE);
        sigprocmask(SIG_UNBLOCK, &signals, &maskBefore_);
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        close(ends[0]);
        write_ = Descriptor(ends[1]);
        handled = 0;
    }
    ~WriteWithoutAReader() override
    {
        (void)std::signal(SIGPIPE, SIG_IGN); // drops what is pending
        sigaction(SIGPIPE, &dispositionBefore_, nullptr);
        sigprocmask(SIG_SETMASK, &maskBefore_, nullptr);
    }

    static void block(int signal)
    {
        const sigset_t signals = only(signal);
        sigprocmask(SIG_BLOCK, &signals, nullptr);
    }
    static void unblock(int signal)
    {
        const sigset_t signals = only(signal);
        sigprocmask(SIG_UNBLOCK, &signals, nullptr);
    }

    void failToWrite() const
    {
        std::string text = "text";
        try {
            writeToString(write_.get(), text);
            FAIL() << "nothing was thrown";
        } catch (const zelto::SystemError& error) {
            EXPECT_STREQ(error.what(), "writeToString failed: Broken pipe");
            EXPECT_EQ(error.errorCode(), EPIPE);
        }
        EXPECT_EQ(text, "text");
    }

    Descriptor write_;
    faults::Guard guard_;

private:
    sigset_t maskBefore_{};
    struct sigaction dispositionBefore_ {
    };
};

} // namespace

TEST_F(WriteWithoutAReader, IsAnExceptionAndNoSignal)
{
    failToWrite();
    EXPECT_EQ(handled, 0);
    EXPECT_FALSE(isPending(SIGPIPE));
}

TEST_F(WriteWithoutAReader, DoesNotEndAProcessThatLetsTheSignalHaveItsWay)
{
    (void)std::signal(SIGPIPE, SIG_DFL);
    failToWrite();
    EXPECT_EQ(disposition().sa_handler, SIG_DFL);
}

TEST_F(WriteWithoutAReader, LeavesNothingBehindWhereTheSignalIsIgnored)
{
    (void)std::signal(SIGPIPE, SIG_IGN);
    failToWrite();
    EXPECT_EQ(disposition().sa_handler, SIG_IGN);
    EXPECT_FALSE(isPending(SIGPIPE));
}

TEST_F(WriteWithoutAReader, LeavesTheHandlerAndTheMaskAsTheyWere)
{
    block(SIGUSR1);
    const std::string before = mask();
    failToWrite();
    EXPECT_EQ(mask(), before);
    EXPECT_EQ(disposition().sa_handler, count);
    EXPECT_EQ(disposition().sa_flags & SA_RESTART, SA_RESTART);
}

TEST_F(WriteWithoutAReader, LeavesABlockedSignalBlockedAndNotPending)
{
    block(SIGPIPE);
    const std::string before = mask();
    failToWrite();
    EXPECT_FALSE(isPending(SIGPIPE));
    EXPECT_EQ(mask(), before);
    unblock(SIGPIPE);
    EXPECT_EQ(handled, 0);
}

TEST_F(WriteWithoutAReader, LeavesTheThreadsOwnPendingSignalForLater)
{
    block(SIGPIPE);
    (void)std::raise(SIGPIPE);
    failToWrite();
    EXPECT_TRUE(isPending(SIGPIPE));
    EXPECT_EQ(handled, 0);
    unblock(SIGPIPE);
    EXPECT_EQ(handled, 1);
}

TEST_F(WriteWithoutAReader, LeavesAPendingSignalOfTheProcessForLaterAndAddsNoSecond)
{
    block(SIGPIPE);
    kill(getpid(), SIGPIPE);
    failToWrite();
    EXPECT_TRUE(isPending(SIGPIPE));
    unblock(SIGPIPE);
    EXPECT_EQ(handled, 1);
}

TEST_F(WriteWithoutAReader, TakesNoOtherPendingSignal)
{
    block(SIGUSR1);
    (void)std::raise(SIGUSR1);
    failToWrite();
    EXPECT_TRUE(isPending(SIGUSR1));
    (void)std::signal(SIGUSR1, SIG_IGN);
    (void)std::signal(SIGUSR1, SIG_DFL);
}

TEST_F(WriteWithoutAReader, IsTheSameForASocket)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    close(ends[0]);
    write_.reset(ends[1]);
    failToWrite();
    EXPECT_EQ(handled, 0);
}

TEST_F(WriteWithoutAReader, LetsASignalThatComesDuringOtherWritingThrough)
{
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    faults::runBefore("write", 1, [] { (void)std::raise(SIGPIPE); });
    std::string text = "text";
    writeToString(null, text);
    close(null);
    EXPECT_EQ(handled, 1);
}

TEST_F(WriteWithoutAReader, LeavesTheMaskAsItWasAfterOtherFailuresAndAfterSuccess)
{
    const std::string before = mask();
    std::string text = "text";
    faults::fail("write", EIO);
    EXPECT_THROW(writeToString(write_.get(), text), zelto::SystemError);
    EXPECT_EQ(mask(), before);
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    writeToString(null, text);
    close(null);
    EXPECT_EQ(mask(), before);
}
