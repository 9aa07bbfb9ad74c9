#include <cerrno>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <sys/mount.h>

#include "support/SystemError.h"
#include "support/misc.h"
#include "tests/lib/World.h"

namespace
{

/// A process whose status is another file; the mount goes with the process.
class ContainerId : public World
{
protected:
    static std::string with(const std::string& status)
    {
        makeFile("/srv/status", status);
        const Outcome end = inChild([] {
            if (mount("/srv/status", "/proc/self/status", "none", MS_BIND, nullptr) != 0) {
                std::perror("mount over /proc/self/status");
            }
            std::puts(zelto::containerId().c_str());
            (void)umount("/proc/self/status");
        });
        EXPECT_EQ(end.err, "");
        EXPECT_EQ(end.status, 0);
        return end.out;
    }
};

} // namespace

TEST_F(ContainerId, IsTheNumberBehindTheTab)
{
    EXPECT_EQ(with("Name:\ttwigctl\nenvID:\t101\nVPid:\t1\n"), "101\n");
}

TEST_F(ContainerId, IsFoundInAStatusLikeARealOne)
{
    EXPECT_EQ(with(zelto::readFile("/proc/self/status") + "envID:\t7\n"), "7\n");
}

TEST_F(ContainerId, IsZeroOutsideOfAContainer)
{
    EXPECT_EQ(with("envID:\t0\n"), "0\n");
}

TEST_F(ContainerId, IsTextAndNoNumber)
{
    EXPECT_EQ(
        with("envID:\t00123456789012345678901234567890\n"), "00123456789012345678901234567890\n");
}

TEST_F(ContainerId, NeedsNoBlankBeforeIt)
{
    EXPECT_EQ(with("envID:5"), "5\n");
}

TEST_F(ContainerId, MayBeginOnALaterLine)
{
    EXPECT_EQ(with("envID:\n\n101\nVPid:\t1\n"), "101\n");
}

TEST_F(ContainerId, IsTheFirstOfSeveral)
{
    EXPECT_EQ(with("envID:\t1\nenvID:\t2\n"), "1\n");
}

TEST_F(ContainerId, IsEmptyForALineThatHoldsMoreThanDigits)
{
    EXPECT_EQ(with("envID:\t101 \n"), "\n");
    EXPECT_EQ(with("envID:\t10a\n"), "\n");
    EXPECT_EQ(with("envID:\t-1\n"), "\n");
    EXPECT_EQ(with("envID:\n"), "\n");
}

TEST_F(ContainerId, IsEmptyForALineThatOnlyEndsLikeTheRightOne)
{
    EXPECT_EQ(with("parent envID:\t101\n"), "\n");
}

TEST_F(ContainerId, IsEmptyWhereTheStatusHasNoSuchLine)
{
    EXPECT_EQ(zelto::containerId(), "");
}

TEST_F(ContainerId, IsNotKnownWithoutAStatus)
{
    const Outcome end = inChild([] {
        const PrivateDirectory proc("/proc");
        try {
            (void)zelto::containerId();
        } catch (const zelto::ExSystemError<ENOENT>& error) {
            std::puts(error.what());
        }
    });
    EXPECT_EQ(end.out, "/proc/self/status: open failed: No such file or directory\n");
}
