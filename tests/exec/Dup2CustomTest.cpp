#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "exec/ForkExec.h"
#include "support/SystemError.h"
#include "tests/exec/OpenDescriptors.h"
#include "tests/lib/Faults.h"

namespace
{

/// Two descriptors, of "/proc/self/status" at 100 and of "/dev/zero" at 101.
class Dup2Custom : public ::testing::Test
{
protected:
    static constexpr int source = 100;
    static constexpr int target = 101;

    Dup2Custom()
    {
        place("/proc/self/status", source);
        place("/dev/zero", target);
        faults::clear(); // forgets the calls that were made for this
    }
    ~Dup2Custom() override
    {
        close(source);
        close(target);
    }

    static void place(const char* path, int number)
    {
        const int fd = open(path, O_RDONLY | O_CLOEXEC);
        ASSERT_EQ(dup2(fd, number), number);
        close(fd);
    }

    const std::string status_ = "/proc/" + std::to_string(getpid()) + "/status";
    faults::Guard guard_;
};

} // namespace

TEST_F(Dup2Custom, LeavesADescriptorThatIsInItsPlaceAlone)
{
    EXPECT_EQ(dup2Custom(source, source), source);
    EXPECT_EQ(behind(source), status_);
    EXPECT_EQ(faults::calls("dup2"), 0);
    EXPECT_EQ(faults::calls("close"), 0);
}

TEST_F(Dup2Custom, DoesNothingForNoSourceAndNoTarget)
{
    const DescriptorWatch watch;
    EXPECT_EQ(dup2Custom(-1, -1), -1);
    EXPECT_EQ(faults::calls("open"), 0);
    EXPECT_EQ(watch.closeAdded(), 0U);
}

TEST_F(Dup2Custom, MovesTheSourceToTheTarget)
{
    EXPECT_EQ(dup2Custom(source, target), target);
    EXPECT_EQ(behind(target), status_);
    EXPECT_EQ(behind(source), "");
}

TEST_F(Dup2Custom, OpensTheTargetWhenItWasClosed)
{
    close(target);
    EXPECT_EQ(dup2Custom(source, target), target);
    EXPECT_EQ(behind(target), status_);
}

TEST_F(Dup2Custom, LeavesNoCloseOnExecMark)
{
    fcntl(source, F_SETFD, FD_CLOEXEC);
    dup2Custom(source, target);
    EXPECT_EQ(fcntl(target, F_GETFD), 0);
}

TEST_F(Dup2Custom, PutsTheNullDeviceInThePlaceWhenThereIsNoSource)
{
    const DescriptorWatch watch;
    EXPECT_EQ(dup2Custom(-1, target), target);
    EXPECT_EQ(behind(target), "/dev/null");
    EXPECT_EQ(fcntl(target, F_GETFL) & O_ACCMODE, O_RDWR);
    EXPECT_EQ(fcntl(target, F_GETFD), 0);
    EXPECT_EQ(watch.closeAdded(), 0U);
}

TEST_F(Dup2Custom, KeepsTheNullDeviceThatGotTheTargetsNumberByItself)
{
    const int next = dup(target);
    close(next);
    EXPECT_EQ(dup2Custom(-1, next), next);
    EXPECT_EQ(behind(next), "/dev/null");
    EXPECT_EQ(fcntl(next, F_GETFD), 0);
    close(next);
}

TEST_F(Dup2Custom, ClosesTheSourceAlsoWhenItCouldNotBeMoved)
{
    faults::fail("dup2", EMFILE);
    EXPECT_EQ(dup2Custom(source, target), -1);
    EXPECT_EQ(errno, EMFILE);
    EXPECT_EQ(behind(source), "");
    EXPECT_EQ(behind(target), "/dev/zero");
}

TEST_F(Dup2Custom, ReturnsTheFailureOfABadSource)
{
    close(source);
    EXPECT_EQ(dup2Custom(source, target), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(behind(target), "/dev/zero");
}

TEST_F(Dup2Custom, ReturnsTheFailureOfABadTarget)
{
    EXPECT_EQ(dup2Custom(source, -1), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(behind(source), "");
}

TEST_F(Dup2Custom, ThrowsWhenTheNullDeviceCannotBeOpened)
{
    faults::fail("open", EMFILE);
    try {
        dup2Custom(-1, target);
        FAIL() << "nothing was thrown";
    } catch (const zelto::SystemError& error) {
        EXPECT_STREQ(error.what(), "dup2Custom failed: Too many open files");
        EXPECT_EQ(error.errorCode(), EMFILE);
    }
    EXPECT_EQ(behind(target), "/dev/zero");
}

TEST_F(Dup2Custom, ThrowsTheMissingNullDeviceAsSuch)
{
    faults::fail("open", ENOENT);
    EXPECT_THROW(dup2Custom(-1, target), zelto::ExSystemError<ENOENT>);
}
