#include "fsutil/OpenAt2.h"

#include <cerrno>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

/// Whether the call turned out not to be there.
constinit bool missing = false;

} // namespace

int openAt2(int directory, const char* path, const open_how& how)
{
    if (missing) {
        errno = ENOSYS;
        return -1;
    }
    const long file = syscall(SYS_openat2, directory, path, &how, sizeof how);
    // EPERM is no answer that the call gives to flags that open without writing.
    if (file < 0 && (errno == ENOSYS || errno == EPERM)) {
        missing = true;
        errno = ENOSYS;
    }
    return static_cast<int>(file);
}
