#include "front/CreateSubdomain.h"

#include <fcntl.h>
#include <unistd.h>

#include "conf/FatalLogger.h"
#include "front/SubdomainPath.h"
#include "fsutil/Accounts.h"
#include "fsutil/Descriptor.h"
#include "fsutil/Directories.h"
#include "fsutil/HeldFile.h"
#include "fsutil/TreeWalkers.h"
#include "fsutil/TrustedPath.h"
#include "site/SkeletonInstaller.h"

namespace
{

constexpr uid_t rootUser = 0;
constexpr gid_t rootGroup = 0;

struct Ids {
    uid_t user;
    gid_t kvoserv; ///< the web server's group: may enter the site directories
    gid_t kvocln;  ///< the clients' group: owns what is inside
};

Ids lookUpIds(const char* user)
{
    // One after the other: each look-up may report, and the order of the reports is fixed.
    Ids ids = {};
    ids.user = uidOrGidOfUser(user, 0);
    ids.kvoserv = groupIdFromText("kvoserv");
    ids.kvocln = groupIdFromText("kvocln");
    return ids;
}

/// Gives what the path names this owner, group and mode: 0, or -1 with `errno`.
int takeOver(const char* path, uid_t owner, gid_t group, mode_t mode)
{
    const Descriptor file = openTrusted(path, O_PATH);
    return file && changeOwnerOfHeld(file.get(), owner, group) == 0
               ? changeModeOfHeld(file.get(), mode)
               : -1;
}

/// Goes where the path leads: 0, or -1 with `errno`.
int enter(const char* path)
{
    const Descriptor directory = openTrusted(path, heldDirectory);
    return directory ? fchdir(directory.get()) : -1;
}

/// Makes a directory that the user works in, wherever it lies, and hands its content over.
int prepareContentDirectory(const char* path, const Ids& ids)
{
    constexpr mode_t mode = 0750;
    if (makeDirectoryPathCopy(path, ids.user, ids.kvoserv, mode) != 0 ||
        takeOver(path, ids.user, ids.kvoserv, mode) != 0) {
        fatalLogger(0, 1, "Unable to create and set permissions for %s", path);
        return -1;
    }
    return changeOwnerAndModeOfTree(path, ids.user, ids.kvocln, 0755, 0755, 0);
}

/// Makes a directory inside the current one that only root may change and the server may read.
int prepareServerDirectory(
    const char* name, const char* domain, const char* subdomain, const Ids& ids)
{
    constexpr mode_t mode = 0750;
    if (makeDirectory(name, rootUser, ids.kvoserv, mode) != 0) {
        fatalLogger(0, 1, "Unable to create directory '%s' of subdomain %s for Standard Hosting %s",
            name, subdomain, domain);
        return -1;
    }
    return changeOwnerAndModeOfTree(
        pathInside({"."}, name).text, rootUser, ids.kvoserv, 0644, mode, 0);
}

const char* textOrEmpty(const char* text)
{
    return text != nullptr ? text : "";
}

/// Everything that follows the skeleton; the current directory is the subdomain's.
int prepareSite(const char* domain, const char* subdomain, const Ids& ids,
    const zelto::SkeletonOptions& options)
{
    if (options.skip_www_root == 0 &&
        prepareContentDirectory(textOrEmpty(options.www_root), ids) != 0) {
        return -1;
    }
    if (options.skip_cgi_bin == 0 &&
        prepareContentDirectory(textOrEmpty(options.cgi_bin_path), ids) != 0) {
        return -1;
    }
    if (prepareServerDirectory("conf", domain, subdomain, ids) != 0) {
        return -1;
    }
    if (options.skip_error_docs != 0) {
        return 0;
    }
    return prepareServerDirectory("error_docs", domain, subdomain, ids);
}

} // namespace

int createSubdomain(const char* domain, const char* subdomain, const char* user,
    const char* clientId, const zelto::SkeletonOptions& options)
{
    const Ids ids = lookUpIds(user);
    const FixedPath directory = subdomainPath(domain, subdomain);
    if (makeDirectory(directory.text, rootUser, rootGroup, 0755) != 0) {
        fatalLogger(0, 1, "Unable to create directory '%s'", directory.text);
        return -1;
    }
    if (zelto::installForSubdomain(domain, subdomain, clientId, options) != 0) {
        fatalLogger(0, 1, "Unable to setup skeleton on subdomain '%s.%s'", subdomain, domain);
        return -1;
    }
    if (enter(directory.text) != 0) {
        fatalLogger(0, 1, "ERROR: Unable to change directory to %s", directory.text);
        return -1;
    }
    return prepareSite(domain, subdomain, ids, options);
}
