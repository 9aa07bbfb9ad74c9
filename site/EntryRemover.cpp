#include "site/EntryRemover.h"

#include <algorithm>
#include <boost/format.hpp>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <ostream>
#include <sys/stat.h>
#include <unistd.h>

#include "conf/StandardStreams.h"
#include "fsutil/TrustedPath.h"

namespace zelto
{

namespace
{

using boost::filesystem::path;

constexpr int none = -1;

/// The site directories that stay when they are emptied.
constexpr const char* keptNames[] = {"cgi-bin", "private", "httpsdocs", "httpdocs"};

bool isKept(const path& entry)
{
    return std::any_of(std::begin(keptNames), std::end(keptNames),
        [&](const char* name) { return entry.native() == name; });
}

/// Whether a relative path leads above where it starts.
bool leavesItsBase(const path& below)
{
    int depth = 0;
    for (const path& name : below) {
        if (name.native() == "..") {
            --depth;
        } else if (name.native() != ".") {
            ++depth;
        }
        if (depth < 0) {
            return true;
        }
    }
    return false;
}

/// What the system would say about a path that no file can have, or 0.
int errorOfPath(const path& whole, const path& below)
{
    if (whole.native().find('\0') != std::string::npos) {
        return EINVAL;
    }
    if (leavesItsBase(below)) {
        return EPERM;
    }
    return whole.size() >= PATH_MAX ? ENAMETOOLONG : 0;
}

/// The path below a base without the separators in front, with which it would start at the root.
path relative(const path& below)
{
    return below.native().substr(std::min(below.native().find_first_not_of('/'), below.size()));
}

/// Where the last name of a path begins. Separators behind it belong to it: with them the system
/// takes nothing but a directory.
size_t lastName(const std::string& text)
{
    return text.rfind('/', text.find_last_not_of('/')) + 1;
}

/// A directory below a base.
struct Way {
    path base;
    path below;
};

/// The way to the directory that an entry stands in. A site directory of the virtual host's that is
/// kept is a base of its own: like the others it may be a mount point.
Way wayTo(const SiteDestination& destination, const path& directory)
{
    const size_t slash = directory.native().find('/');
    if (destination.inside && slash != std::string::npos) {
        const path first = directory.native().substr(0, slash);
        const path rest = relative(directory.native().substr(slash));
        if (isKept(first) && !leavesItsBase(rest)) {
            return {destination.base / first, rest};
        }
    }
    return {destination.base, directory};
}

/// lstat(2) of a name, without following a link of the user's because separators stand behind it.
/// @param whole the path that ends in the name.
int look(int parent, const std::string& name, const path& whole, struct stat& status)
{
    const size_t length = name.find_last_not_of('/') + 1;
    const bool namesDirectory = length > 0 && length < name.size();
    const std::string bare = namesDirectory ? name.substr(0, length) : name;
    if (fstatat(parent, bare.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return -1;
    }
    if (!namesDirectory || S_ISDIR(status.st_mode)) {
        return 0;
    }
    if (S_ISLNK(status.st_mode)) {
        const Descriptor found = openTrusted(whole.c_str(), heldDirectory);
        return found ? fstat(found.get(), &status) : -1;
    }
    errno = ENOTDIR;
    return -1;
}

SiteOptions optionsOf(const SiteRemover& site)
{
    SiteOptions options;
    options.www_root = site.www_root;
    options.skip_www_root = site.skip_www_root;
    options.skip_error_docs = site.skip_error_docs;
    options.skip_cgi_bin = site.skip_cgi_bin;
    options.cgi_bin_path = site.cgi_bin_path;
    return options;
}

void report(const char* call, const path& target, int error)
{
    const char* reason = std::strerror(error);
    standardError()
        << (boost::format("%1%(\"%2%\"): %3%\n") % call % target.string() % reason).str();
}

} // namespace

EntryRemover::EntryRemover(const SiteRemover& site)
    : virtualHost_(site.vhost_directory), options_(optionsOf(site))
{
}

void EntryRemover::remove(const path& entry)
{
    if (isKept(entry)) {
        return;
    }
    const auto destination = existingDestination(entry, virtualHost_, options_);
    if (destination) {
        removeAt(*destination);
    }
}

void EntryRemover::removeAt(const SiteDestination& destination)
{
    std::string name;
    const int parent = openParent(destination, name);
    struct stat status = {};
    if (parent == none || look(parent, name, destination.path, status) != 0) {
        if (errno != ENOENT) {
            report("lstat", destination.path, errno);
        }
        return;
    }
    const bool isDirectory = S_ISDIR(status.st_mode);
    if (unlinkat(parent, name.c_str(), isDirectory ? AT_REMOVEDIR : 0) != 0) {
        report(isDirectory ? "rmdir" : "unlink", destination.path, errno);
    }
}

/// The directory that a destination stands in, and its name there; or none, with `errno`.
int EntryRemover::openParent(const SiteDestination& destination, std::string& name)
{
    const path below = relative(destination.below);
    const int error = errorOfPath(destination.path, below);
    if (error != 0) {
        errno = error;
        return none;
    }
    if (below.empty()) {
        base_.emplace(destination.path.c_str());
        name = base_->name();
        return base_->reached() ? base_->directory() : none;
    }
    const size_t nameBegin = lastName(below.native());
    name = below.native().substr(nameBegin);
    const Way way = wayTo(destination, below.native().substr(0, nameBegin));
    return parent_.of(way.base, way.below);
}

std::optional<SiteDestination> existingDestination(
    const path& entry, const path& virtualHost, const SiteOptions& options)
{
    auto destination = siteDestination(entry, virtualHost, options);
    if (destination && !destination->inside && destination->base.empty()) {
        return std::nullopt;
    }
    return destination;
}

path entryOfKind(const TreeEntry& entry, const std::string& subdirectory)
{
    path whole = entry.kind == 0 ? "cgi-bin" : entry.kind == 1 ? "httpdocs" : "";
    if (subdirectory != ".") {
        whole /= subdirectory;
    }
    return whole / entry.path;
}

} // namespace zelto
