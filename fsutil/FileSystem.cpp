#include "fsutil/FileSystem.h"

#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>

namespace
{

bool isPlain(const struct statfs& fileSystem)
{
    return fileSystem.f_type == EXT4_SUPER_MAGIC || fileSystem.f_type == XFS_SUPER_MAGIC ||
           fileSystem.f_type == TMPFS_MAGIC;
}

} // namespace

FileSystem::FileSystem(int directory)
{
    struct stat status = {};
    struct statfs fileSystem = {};
    if (fstat(directory, &status) == 0 && fstatfs(directory, &fileSystem) == 0) {
        device_ = status.st_dev;
        entriesTellInodes_ = isPlain(fileSystem);
    }
}
