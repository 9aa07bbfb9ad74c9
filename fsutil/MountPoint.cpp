#include "fsutil/MountPoint.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace
{

/// The number of the mount that a name in a directory is on; nothing where handles are not known.
std::optional<int> mountOf(int directory, const char* name)
{
    file_handle handle = {}; // without room for one: the number comes all the same
    int mount = 0;
    const bool told = name_to_handle_at(directory, name, &handle, &mount, AT_EMPTY_PATH) == 0 ||
                      errno == EOVERFLOW;
    return told ? std::optional(mount) : std::nullopt;
}

bool isRoot(int directory)
{
    struct stat here = {};
    struct stat above = {};
    return fstat(directory, &here) == 0 && fstatat(directory, "..", &above, 0) == 0 &&
           here.st_dev == above.st_dev && here.st_ino == above.st_ino;
}

} // namespace

std::optional<bool> isMountPoint(int directory)
{
    struct statx status = {};
    if (statx(directory, "", AT_EMPTY_PATH, 0, &status) == 0 &&
        (status.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) != 0) {
        return (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
    }
    // Linux before 5.8: what is mounted here has another number than what it is mounted in.
    const std::optional<int> here = mountOf(directory, "");
    const std::optional<int> above = mountOf(directory, "..");
    if (!here || !above) {
        return std::nullopt;
    }
    return *here != *above || isRoot(directory);
}
