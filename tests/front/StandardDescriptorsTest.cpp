#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "front/StandardDescriptors.h"
#include "tests/lib/Process.h"

namespace
{

bool isDevNull(int fd)
{
    struct stat status = {};
    return fstat(fd, &status) == 0 && S_ISCHR(status.st_mode) && status.st_rdev == makedev(1, 3);
}

} // namespace

TEST(StandardDescriptors, AreOpenedOnDevNullWhereTheyWereMissing)
{
    const Outcome end = inChild([] {
        close(STDIN_FILENO);
        close(STDERR_FILENO);
        openMissingStandardDescriptors();
        std::exit(isDevNull(0) && !isDevNull(1) && isDevNull(2) ? 7 : 8);
    });
    EXPECT_EQ(end.status, 7);
}

TEST(StandardDescriptors, MayAllBeMissing)
{
    const Outcome end = inChild([] {
        for (int fd = 0; fd <= 2; ++fd) {
            close(fd);
        }
        openMissingStandardDescriptors();
        const int next = open("/dev/null", O_RDONLY);
        _exit(isDevNull(0) && isDevNull(1) && isDevNull(2) && next > 2 ? 7 : 8);
    });
    EXPECT_EQ(end.status, 7);
}

TEST(StandardDescriptors, AreLeftAloneWhereTheyAreOpen)
{
    const size_t before = openDescriptors();
    openMissingStandardDescriptors();
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_FALSE(isDevNull(STDOUT_FILENO) && isDevNull(STDERR_FILENO));
}

TEST(StandardDescriptors, AreOpenedWithoutTouchingThePendingError)
{
    const Outcome end = inChild([] {
        close(STDIN_FILENO);
        errno = 0;
        openMissingStandardDescriptors();
        std::exit(errno == 0 ? 7 : 8);
    });
    EXPECT_EQ(end.status, 7);
}
