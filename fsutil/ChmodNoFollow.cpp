#include "fsutil/ChmodNoFollow.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

int chmodNoFollow(int directory, const char* name, mode_t mode)
{
    // Not wrapped by every C library that we run on; the number is the same on all architectures.
    constexpr long fchmodat2 = 452;
    static constinit bool missing = false;

    if (missing) {
        return fchmodat(directory, name, mode, AT_SYMLINK_NOFOLLOW);
    }
    if (syscall(fchmodat2, directory, name, mode, AT_SYMLINK_NOFOLLOW) == 0) {
        return 0;
    }
    if (errno == ENOSYS) {
        missing = true;
        return fchmodat(directory, name, mode, AT_SYMLINK_NOFOLLOW);
    }
    if (errno != EPERM) {
        return -1;
    }
    // Either the truth, or a filter's way to say that it does not know the call.
    if (fchmodat(directory, name, mode, AT_SYMLINK_NOFOLLOW) == 0) {
        return 0;
    }
    errno = EPERM;
    return -1;
}
