#include "fsutil/Ownership.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>

#include "conf/FatalLogger.h"
#include "fsutil/Descriptor.h"
#include "fsutil/HeldFile.h"
#include "fsutil/TrustedPath.h"

int setOwnerAndMode(const char* path, uid_t owner, gid_t group, mode_t mode)
{
    const Descriptor file = openTrusted(path, O_PATH);
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
    struct stat status = {};
    return stat(path, &status) == 0 ? setOwnerAndMode(path, owner, group, mode) : 0;
}
