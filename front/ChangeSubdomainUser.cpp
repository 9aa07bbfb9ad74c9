#include "front/ChangeSubdomainUser.h"

#include <sys/types.h>

#include "front/SubdomainPath.h"
#include "fsutil/Accounts.h"
#include "fsutil/Ownership.h"
#include "fsutil/TreeWalkers.h"

int changeSubdomainUser(const char* domain, const char* subdomain, const char* user,
    const zelto::SkeletonOptions& options)
{
    constexpr uid_t rootUser = 0;
    constexpr gid_t sameGroup = static_cast<gid_t>(-1);

    const uid_t uid = uidOrGidOfUser(user, 0);
    const FixedPath directory = subdomainPath(domain, subdomain);
    // Formed first: a path that is refused must not leave the user with what is root's.
    const FixedPath rootsOwn[] = {
        pathInside(directory, "conf"), pathInside(directory, "error_docs")};

    // The user gets everything first and root takes its own back: "conf" and "error_docs" are not
    // singled out on the way, so that the one walk stays the same for every layout of a site.
    changeOwnerOfTree(directory.text, uid, sameGroup, 0);
    (void)setOwnerAndModeIfPresent(directory.text, rootUser, sameGroup, 0755);
    if (options.www_root != nullptr && *options.www_root != '\0') {
        changeOwnerOfTree(options.www_root, uid, sameGroup, 0);
    }
    for (const FixedPath& path : rootsOwn) {
        changeOwnerOfTree(path.text, rootUser, sameGroup, 1);
    }
    return 0;
}
