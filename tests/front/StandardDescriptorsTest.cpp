#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "front/StandardDescriptors.h"
#include "tests/lib/Process.h"

namespace
{

bool isDevNull(int fd)
{
    struct stat status = {};
    return fstat(fd, &status) == 0 && S_ISCHR(status.st_mode) && status.st_rdev == makedev(1, 3);
}

/// What each of the standard descriptors leads to.
std::vector<std::pair<dev_t, ino_t>> standardFiles()
{
    std::vector<std::pair<dev_t, ino_t>> files;
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        struct stat status = {};
        EXPECT_EQ(fstat(fd, &status), 0);
        files.emplace_back(status.st_dev, status.st_ino);
    }
    return files;
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
    const Outcome end = inChild([] {
        // Standard input may be anything, and missing as well.
        dup2(STDOUT_FILENO, STDIN_FILENO);
        const size_t before = openDescriptors();
        const auto files = standardFiles();
        openMissingStandardDescriptors();
        std::exit(openDescriptors() == before && standardFiles() == files ? 7 : 8);
    });
    EXPECT_EQ(end.status, 7);
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
