#include "fsutil/MountPoint.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>

namespace
{

std::optional<bool> isRoot(int directory)
{
    struct stat here = {};
    struct stat above = {};
    if (fstat(directory, &here) != 0 || fstatat(directory, "..", &above, 0) != 0) {
        return std::nullopt;
    }
    return here.st_dev == above.st_dev && here.st_ino == above.st_ino;
}

} // namespace

std::optional<bool> isMountPoint(int directory)
{
    struct statx status = {};
    if (statx(directory, "", AT_EMPTY_PATH, 0, &status) == 0 &&
        (status.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) != 0) {
        return (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
    }
    // Linux before 5.8. No "." can be renamed, but first the system says whether both places are on
    // one mount.
    const bool isRenamed = renameat(directory, ".", directory, "../.") == 0;
    if (isRenamed || (errno != EXDEV && errno != EBUSY)) {
        return std::nullopt;
    }
    return errno == EXDEV ? true : isRoot(directory);
}
