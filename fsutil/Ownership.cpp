#include "fsutil/Ownership.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <pwd.h>

#include "conf/FatalLogger.h"
#include "fsutil/Descriptor.h"
#include "fsutil/HeldFile.h"
#include "fsutil/TrustedPath.h"

namespace
{

/// @param file what was opened for the path; if none, `errno` tells why.
int giveOwnerAndMode(
    const Descriptor& file, const char* path, uid_t owner, gid_t group, mode_t mode)
{
    if (!file || changeOwnerOfHeld(file.get(), owner, group) != 0) {
        fatalLogger(0, 1, "ERROR: unable to chown %s: %s\n", path, std::strerror(errno));
        return -1;
    }
    if (changeModeOfHeld(file.get(), mode) != 0) {
        fatalLogger(0, 1, "ERROR: unable to chmod %s: %s\n", path, std::strerror(errno));
        return -1;
    }
    return 0;
}

/// Whether the forty links that may be on one way lead nowhere, so that stat(2) finds too many too.
bool hasTooManyLinks(const char* path)
{
    TrustedWay way(path);
    return way.isOpen() && !way.open(way.rest(), O_PATH) && way.hasFollowedAllLinks();
}

/// Whether the failure to open a path tells that stat(2) would not see it either: neither a link
/// that may not be followed nor a lack of descriptors does.
bool isOutOfSight(const char* path)
{
    const int error = errno;
    const bool outOfSight =
        error == ELOOP ? hasTooManyLinks(path) : error != EMFILE && error != ENFILE;
    errno = error; // for the report
    return outOfSight;
}

} // namespace

int setOwnerAndMode(const char* path, uid_t owner, gid_t group, mode_t mode)
{
    return giveOwnerAndMode(openTrusted(path, O_PATH), path, owner, group, mode);
}

int setOwnerAndModeForUser(const char* path, const char* user, mode_t mode)
{
    const passwd* account = getpwnam(user);
    if (account == nullptr) {
        fatalLogger(0, 1, "user %s not found", user);
        return -1;
    }
    return setOwnerAndMode(path, account->pw_uid, account->pw_gid, mode);
}

int setOwnerAndModeIfPresent(const char* path, uid_t owner, gid_t group, mode_t mode)
{
    errno = 0;
    const Descriptor file = openTrusted(path, O_PATH);
    return !file && isOutOfSight(path) ? 0 : giveOwnerAndMode(file, path, owner, group, mode);
}
