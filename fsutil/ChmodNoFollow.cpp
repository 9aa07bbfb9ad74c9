#include "fsutil/ChmodNoFollow.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

// Not known to every kernel's headers.
#ifdef SYS_fchmodat2
constexpr long number = SYS_fchmodat2;
#else
constexpr long number = 452;
#endif

/// Whether the kernel turned out not to have the call.
constinit bool missing = false;

} // namespace

int fchmodAt2(int directory, const char* name, mode_t mode, int flags)
{
    if (missing) {
        errno = ENOSYS;
        return -1;
    }
    const long result = syscall(number, directory, name, mode, flags);
    missing = result != 0 && errno == ENOSYS;
    return static_cast<int>(result);
}

int chmodNoFollow(int directory, const char* name, mode_t mode)
{
    const int error = errno;
    if (fchmodAt2(directory, name, mode, AT_SYMLINK_NOFOLLOW) == 0) {
        return 0;
    }
    if (errno != ENOSYS && errno != EPERM) {
        return -1;
    }
    errno = error;
    return fchmodat(directory, name, mode, AT_SYMLINK_NOFOLLOW);
}
