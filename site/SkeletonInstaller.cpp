#include "site/SkeletonInstaller.h"

#include <algorithm>
#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <grp.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "conf/ConfVariables.h"
#include "conf/Configuration.h"
#include "conf/StandardStreams.h"
#include "fsutil/PinnedPath.h"
#include "fsutil/TrustedPath.h"
#include "site/SiteDirectories.h"
#include "site/SkeletonCopier.h"
#include "site/TreeListing.h"
#include "site/VirtualHostPath.h"

namespace zelto
{

namespace
{

using boost::filesystem::path;

unsigned int listingModeOf(const SkeletonOptions& options)
{
    return options.skip_www_root != 0 ? siteDirectoriesButWebRoot : everySiteDirectory;
}

/// Only ENOENT means that there is no skeleton; one that cannot be looked at is still the
/// client's, and what is wrong with it shows when its entries are listed.
bool isAbsent(const path& skeleton)
{
    struct stat status = {};
    return ::stat(skeleton.c_str(), &status) != 0 && errno == ENOENT;
}

path chooseSkeleton(const path& root, const char* clientId)
{
    path own = root / ".skel" / clientId;
    if (!isAbsent(own)) {
        return own;
    }
    path common = root / ".skel/0";
    if (isAbsent(common)) {
        throw std::runtime_error("Skeleton directory `" + common.string() + "' does not exist");
    }
    return common;
}

struct Entry {
    path relative;
    bool isFile;
};

std::vector<Entry> listSkeleton(const path& skeleton, unsigned int listingMode)
{
    std::vector<Entry> entries;
    for (const char* name : siteDirectoryNames(listingMode)) {
        visitTree(skeleton, name, [&entries](const path& relative, bool isFile) {
            entries.push_back({relative, isFile});
        });
    }
    std::sort(entries.begin(), entries.end(),
        [](const Entry& a, const Entry& b) { return comesBefore(a.relative, b.relative); });
    return entries;
}

/// Makes the virtual host's directory if it does not exist, in a parent that does.
void makeIfMissing(const path& directory)
{
    if (boost::filesystem::exists(directory)) {
        return;
    }
    const PinnedPath pinned(directory.c_str());
    if (pinned.reached() && mkdirat(pinned.directory(), pinned.name(), 0777) == 0) {
        return;
    }
    const int error = errno; // what has the name may be gone by the time it is looked at
    struct stat status = {};
    if (error != EEXIST || pinned.look(status) != 0 || !S_ISDIR(status.st_mode)) {
        throw boost::filesystem::filesystem_error("boost::filesystem::create_directory", directory,
            boost::system::error_code(error, boost::system::system_category()));
    }
}

gid_t groupOfClients()
{
    const group* entry = getgrnam("kvocln");
    if (entry == nullptr) {
        throw std::runtime_error("group kvocln not found");
    }
    return entry->gr_gid;
}

/// Whoever sends the messages into a file wants to read later what was left as it is.
bool standardErrorIsARegularFile()
{
    struct stat status = {};
    return fstat(STDERR_FILENO, &status) == 0 && S_ISREG(status.st_mode);
}

unsigned int install(const VirtualHostPath& host, unsigned int listingMode, const char* clientId,
    const SkeletonOptions& options)
{
    if (clientId == nullptr) {
        return 0;
    }
    makeIfMissing(host.directory);
    const path skeleton = chooseSkeleton(host.root, clientId);
    const TrustedPlace place(
        skeleton.native()); // the administrator's, as it was when it was chosen
    const std::vector<Entry> entries = listSkeleton(skeleton, listingMode);
    SkeletonCopier copier(
        host, skeleton, groupOfClients(), standardError(), standardErrorIsARegularFile(), options);
    for (const Entry& entry : entries) {
        copier.copy(entry.relative, entry.isFile);
    }
    return 0;
}

} // namespace

unsigned int installForSubdomain(const std::string& domain, const std::string& subdomain,
    const char* clientId, const SkeletonOptions& options)
{
    const VirtualHostPath host = VirtualHostPath::ofSubdomain(domain, subdomain);
    return install(host, listingModeOf(options), clientId, options);
}

unsigned int installForVirtualHostDirectory(const path& directory, unsigned int listingMode,
    const char* clientId, const SkeletonOptions& options)
{
    const VirtualHostPath host = VirtualHostPath::fromDirectory(directory);
    return install(host, listingMode, clientId, options);
}

unsigned int installForNameUnderRoot(
    const path& name, const char* clientId, const SkeletonOptions& options)
{
    return installForVirtualHostDirectory(
        path(variableByIndex(HTTPD_VHOSTS_D)) / name, listingModeOf(options), clientId, options);
}

} // namespace zelto
