#include "fsutil/HeldFile.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fsutil/ChmodNoFollow.h"
#include "fsutil/Descriptor.h"

int changeOwnerOfHeld(int file, uid_t owner, gid_t group)
{
    return fchownat(file, "", owner, group, AT_EMPTY_PATH);
}

namespace
{

int changeModeInAnotherWay(int file, mode_t mode)
{
    const Descriptor directory(openat(file, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory) {
        return fchmod(directory.get(), mode);
    }
    char path[sizeof "/proc/self/fd/-2147483648"];
    (void)std::snprintf(path, sizeof path, "/proc/self/fd/%d", file);
    return chmod(path, mode);
}

} // namespace

int changeModeOfHeld(int file, mode_t mode)
{
    const int error = errno;
    if (fchmodAt2(file, "", mode, AT_EMPTY_PATH) == 0) {
        return 0;
    }
    if ((errno != ENOSYS && errno != EPERM) || changeModeInAnotherWay(file, mode) != 0) {
        return -1;
    }
    errno = error;
    return 0;
}
