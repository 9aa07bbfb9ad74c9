#include "fsutil/NewDirectory.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "fsutil/HeldFile.h"

namespace
{

constexpr mode_t unfinished = S_ISVTX;

} // namespace

bool isUnfinishedDirectory(const struct stat& status, uid_t owner)
{
    constexpr mode_t bits = 07777 & ~S_ISGID; // which the parent may pass on
    return S_ISDIR(status.st_mode) && (status.st_mode & bits) == unfinished &&
           (status.st_uid == owner || status.st_uid == geteuid());
}

NewDirectory::NewDirectory(int parent, const char* name, uid_t owner) : owner_(owner)
{
    const bool isNew = mkdirat(parent, name, unfinished) == 0;
    if (!isNew && errno != EEXIST) {
        return;
    }
    struct stat status = {};
    if (!isNew && (fstatat(parent, name, &status, AT_SYMLINK_NOFOLLOW) != 0 ||
                      !isUnfinishedDirectory(status, owner))) {
        errno = EEXIST;
        return;
    }
    Descriptor found(openat(parent, name, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!found || fstat(found.get(), &status) != 0) {
        return;
    }
    if (!isUnfinishedDirectory(status, owner)) {
        errno = EEXIST;
        return;
    }
    inheritedMode_ = status.st_mode & S_ISGID;
    directory_ = std::move(found);
}

int NewDirectory::giveOwner(gid_t group)
{
    return changeOwnerOfHeld(directory_.get(), owner_, group);
}

int NewDirectory::giveMode(mode_t mode)
{
    return changeModeOfHeld(directory_.get(), mode);
}
