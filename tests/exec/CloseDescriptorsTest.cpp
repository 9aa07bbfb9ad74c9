#include "exec/CloseDescriptors.h"

#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "tests/lib/Faults.h"
#include "tests/lib/Process.h"

namespace
{

class CloseDescriptors : public ::testing::Test
{
    faults::Guard guard_;
};

bool isOpen(int fd)
{
    return fcntl(fd, F_GETFD) != -1;
}

/// Closes in a process of at most 20 descriptors, of which the first, one between and the last are
/// open, and says whether just those are closed that should be.
int statusAfterClosing()
{
    return inChild([] {
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = 20;
        bool passed = setrlimit(RLIMIT_NOFILE, &limit) == 0;
        for (const int fd : {3, 4, 11, 19}) {
            passed = passed && dup2(0, fd) == fd;
        }
        zelto::closeDescriptorsFrom(4);
        passed = passed && isOpen(0) && isOpen(2) && isOpen(3);
        _exit(passed && !isOpen(4) && !isOpen(11) && !isOpen(19) ? 0 : 1);
    }).status;
}

} // namespace

TEST_F(CloseDescriptors, ClosesThatOneAndAllAboveIt)
{
    EXPECT_EQ(statusAfterClosing(), 0);
}

TEST_F(CloseDescriptors, ClosesThemAlsoOnAnOlderKernel)
{
    faults::failAlways("close_range", ENOSYS);
    EXPECT_EQ(statusAfterClosing(), 0);
}

TEST_F(CloseDescriptors, ClosesNothingWhereNoDescriptorIsAllowed)
{
    const Outcome outcome = inChild([] {
        bool passed = dup2(0, 3) == 3;
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = 0;
        passed = passed && setrlimit(RLIMIT_NOFILE, &limit) == 0;
        zelto::closeDescriptorsFrom(3);
        _exit(passed && isOpen(3) ? 0 : 1);
    });
    EXPECT_EQ(outcome.status, 0);
}
