#include "fsutil/ChmodNoFollow.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

// Not wrapped by every C library that we run on, and not known to every kernel's headers.
#ifdef SYS_fchmodat2
constexpr long fchmodat2 = SYS_fchmodat2;
#else
constexpr long fchmodat2 = 452;
#endif

/// Whether the kernel turned out not to have the call.
constinit bool missing = false;

} // namespace

int chmodNoFollow(int directory, const char* name, mode_t mode)
{
    if (!missing) {
        const int error = errno;
        if (syscall(fchmodat2, directory, name, mode, AT_SYMLINK_NOFOLLOW) == 0) {
            return 0;
        }
        // EPERM is either the truth or a filter's way to say that it does not know the call; the
        // other way will tell.
        if (errno != ENOSYS && errno != EPERM) {
            return -1;
        }
        missing = errno == ENOSYS;
        errno = error;
    }
    return fchmodat(directory, name, mode, AT_SYMLINK_NOFOLLOW);
}
