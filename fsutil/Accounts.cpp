#include "fsutil/Accounts.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <grp.h>
#include <pwd.h>

#include "conf/FatalLogger.h"
#include "conf/FreeDeleter.h"
#include "fsutil/Text.h"

const char* nameOfUid(uid_t uid)
{
    static char name[4096];
    const passwd* account = getpwuid(uid);
    if (account != nullptr) {
        boundedCopy(name, account->pw_name, sizeof name);
    } else {
        (void)std::snprintf(name, sizeof name, "%u", uid);
    }
    return name;
}

uid_t uidOfUser(const char* name)
{
    const passwd* account = getpwnam(name);
    if (account == nullptr) {
        fatalLogger(0, 1, "Unable to find uid for user %s: %s", name, std::strerror(errno));
        return 0;
    }
    return account->pw_uid;
}

int accountOfUser(const char* name, uid_t* uid, gid_t* gid, char** home)
{
    const passwd* account = getpwnam(name);
    CString homeCopy(account != nullptr && home != nullptr ? strdup(account->pw_dir) : nullptr);
    if (account == nullptr || (home != nullptr && !homeCopy)) {
        fatalLogger(0, 1, "Unable to getpwnam for user %s", name);
        return -1;
    }
    if (uid != nullptr) {
        *uid = account->pw_uid;
    }
    if (gid != nullptr) {
        *gid = account->pw_gid;
    }
    if (home != nullptr) {
        *home = homeCopy.release();
    }
    return 0;
}

id_t uidOrGidOfUser(const char* name, int selector)
{
    uid_t uid = 0;
    gid_t gid = 0;
    (void)accountOfUser(name, &uid, &gid, nullptr);
    return selector == 0 ? uid : gid;
}

gid_t checkGid(gid_t gid)
{
    errno = 0;
    if (getgrgid(gid) == nullptr) {
        fatalLogger(0, 1, "getgrgid(%d): %s", static_cast<int>(gid), std::strerror(errno));
        return 0;
    }
    return gid;
}

gid_t gidOfGroup(const char* name)
{
    errno = 0;
    const group* entry = getgrnam(name);
    if (entry == nullptr) {
        fatalLogger(0, 1, "getgrnam(%s): %s", name, std::strerror(errno));
        return 0;
    }
    return entry->gr_gid;
}

gid_t groupIdFromText(const char* text)
{
    if (isAllDigits(text) == 0) {
        return gidOfGroup(text);
    }
    // What scanf's %d makes of the digits, without its undefined overflow.
    return checkGid(static_cast<gid_t>(std::strtol(text, nullptr, 10)));
}
