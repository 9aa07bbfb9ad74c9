#include "site/SkeletonInstaller.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <grp.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

#include "conf/ConfVariables.h"
#include "conf/Configuration.h"
#include "conf/StandardStreams.h"
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

EntryList listSkeleton(const path& skeleton, unsigned int listingMode)
{
    EntryList entries;
    for (const char* name : siteDirectoryNames(listingMode)) {
        listTree(skeleton, name, entries);
    }
    std::sort(entries.begin(), entries.end(), comesBefore);
    return entries;
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
    if (!boost::filesystem::exists(host.directory)) {
        boost::filesystem::create_directory(host.directory);
    }
    const path skeleton = chooseSkeleton(host.root, clientId);
    const EntryList entries = listSkeleton(skeleton, listingMode);
    SkeletonCopier copier(
        host, skeleton, groupOfClients(), standardError(), standardErrorIsARegularFile(), options);
    for (const path& entry : entries) {
        copier.copy(entry);
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
