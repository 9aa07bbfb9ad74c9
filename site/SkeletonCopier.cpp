#include "site/SkeletonCopier.h"

#include <boost/filesystem/exception.hpp>
#include <boost/format.hpp>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <ostream>
#include <stdexcept>
#include <unistd.h>

#include "fsutil/NewFile.h"
#include "fsutil/PinnedPath.h"
#include "site/BaseDirectory.h"
#include "site/TokenSubstitution.h"
#include "site/WholeFile.h"

namespace zelto
{

namespace
{

using boost::filesystem::path;

constexpr const char* alreadyExists = "already exists, not restoring";
constexpr const char* otherKind = "not a file or directory, skipping";

/// What is behind the last slash of a path; unlike filename() this does not invent a ".".
std::string nameIn(const path& whole)
{
    return whole.native().substr(whole.native().rfind('/') + 1);
}

/// What is in front of that, with the slash: it is the whole path of the root directory.
path directoryPart(const path& whole)
{
    return whole.native().substr(0, whole.native().rfind('/') + 1);
}

[[noreturn]] void failToMake(const SiteDestination& destination, int error)
{
    const path* failed = &destination.path;
    struct stat status = {};
    if (!destination.inside && error == ENOENT && lstat(destination.base.c_str(), &status) == 0 &&
        S_ISLNK(status.st_mode)) {
        // The base is a link to nothing: what is missing and cannot be made is the base.
        error = EEXIST;
        failed = &destination.base;
    }
    throw boost::filesystem::filesystem_error(destination.inside
                                                  ? "boost::filesystem::create_directory"
                                                  : "boost::filesystem::create_directories",
        *failed, boost::system::error_code(error, boost::system::system_category()));
}

/// The file's content with the name filled in: 0, or -1 with `errno`.
int readFor(std::string_view name, int file, off_t size, std::string& content)
{
    try {
        if (readWholeFile(file, static_cast<size_t>(size), content) != 0) {
            return -1;
        }
        content = withDomainName(std::move(content), name);
        return 0;
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
    } catch (const std::length_error&) {
        errno = ENOMEM;
    }
    return -1;
}

} // namespace

SkeletonCopier::SkeletonCopier(const VirtualHostPath& host, const path& skeleton, gid_t group,
    std::ostream& messages, bool verbose, const SkeletonOptions& options)
    : host_(host), skeleton_(skeleton), group_(group), messages_(messages), verbose_(verbose),
      options_(options)
{
}

void SkeletonCopier::copy(const path& entry, bool isFile)
{
    if (!entry.empty() && entry.begin()->native() == "httpsdocs") {
        return;
    }
    const auto destination = siteDestination(entry, host_.directory, options_);
    if (!destination) {
        return;
    }
    const Source source{entry, skeleton_ / entry};
    struct stat existing = {};
    if (look(*destination, existing) == 0) {
        keepExisting(source, *destination, existing);
    } else if (errno != ENOENT) {
        const char* reason = std::strerror(errno);
        print(boost::format("corbel:InstallSkeleton(): stat(\"%1%\") failed: %2%\n") %
              destination->path.string() % reason);
    } else {
        copyMissing(source, *destination, isFile);
    }
}

void SkeletonCopier::keepExisting(
    const Source& source, const SiteDestination& destination, const struct stat& existing)
{
    struct stat status = {};
    const bool bothDirectories =
        S_ISDIR(existing.st_mode) && look(source, status) == 0 && S_ISDIR(status.st_mode);
    if (!bothDirectories) {
        reportIfVerbose(destination.path, alreadyExists);
    } else if (isUnfinishedDirectory(existing, sameOwner)) {
        copyDirectory(destination, status.st_mode);
    }
    if (S_ISREG(existing.st_mode) && existing.st_nlink > 1) {
        // The second link may be the hidden one of a run that was killed.
        removeLeftoverOf(openParent(destination), nameIn(destination.path).c_str());
    }
}

void SkeletonCopier::copyMissing(
    const Source& source, const SiteDestination& destination, bool isFile)
{
    struct stat status = {};
    if (isFile) {
        copyFile(source, destination, true);
    } else if (look(source, status) != 0) {
        if (errno != ENOENT) {
            reportError(source.whole, errno);
        }
    } else if (S_ISREG(status.st_mode)) {
        copyFile(source, destination, false);
    } else if (S_ISDIR(status.st_mode)) {
        copyDirectory(destination, status.st_mode);
    } else {
        reportIfVerbose(destination.path, otherKind);
    }
}

/// @param unseen whether the file has not been looked at; then a look says why it cannot be opened.
void SkeletonCopier::copyFile(const Source& source, const SiteDestination& destination, bool unseen)
{
    const Descriptor file = open(source);
    if (!file && unseen) {
        copyMissing(source, destination, false);
        return;
    }
    struct stat status = {};
    if (!file || fstat(file.get(), &status) != 0) {
        reportError(source.whole, errno);
        return;
    }
    if (!S_ISREG(status.st_mode)) {
        reportIfVerbose(destination.path, otherKind);
        return;
    }
    std::string content;
    if (readFor(host_.name, file.get(), status.st_size, content) != 0) {
        reportError(source.whole, errno);
        return;
    }
    createFile(destination, content, status.st_mode);
}

void SkeletonCopier::createFile(
    const SiteDestination& destination, std::string_view content, mode_t mode)
{
    const std::string name = nameIn(destination.path);
    const int directory = openParent(destination);
    if (directory >= 0 && createWholeFile(directory, name.c_str(), content, mode, group_) == 0) {
        return;
    }
    if (errno == EEXIST) {
        reportIfVerbose(destination.path, alreadyExists);
    } else {
        reportError(destination.path, errno);
    }
}

void SkeletonCopier::copyDirectory(const SiteDestination& destination, mode_t mode)
{
    NewDirectory made = makeDirectory(destination);
    if (made) {
        (void)made.giveOwner(group_);
        (void)made.giveMode(mode & 07777);
    }
}

/// lstat(2) of a source.
int SkeletonCopier::look(const Source& source, struct stat& status)
{
    const int directory = openParent(source);
    return directory >= 0
               ? fstatat(directory, nameIn(source.entry).c_str(), &status, AT_SYMLINK_NOFOLLOW)
               : -1;
}

/// Should something else have taken a file's name by now, this neither follows a link nor waits for
/// a FIFO's writer.
Descriptor SkeletonCopier::open(const Source& source)
{
    const int directory = openParent(source);
    return Descriptor(directory >= 0
                          ? openat(directory, nameIn(source.entry).c_str(),
                                O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)
                          : -1);
}

/// lstat(2) of a destination.
int SkeletonCopier::look(const SiteDestination& destination, struct stat& status)
{
    if (destination.below.empty()) {
        return PinnedPath(destination.path.c_str()).look(status);
    }
    const int directory = openParent(destination);
    return directory >= 0
               ? fstatat(directory, nameIn(destination.path).c_str(), &status, AT_SYMLINK_NOFOLLOW)
               : -1;
}

/// The directory that a source stands in, or -1 with `errno`.
int SkeletonCopier::openParent(const Source& source)
{
    if (source.whole.size() >= PATH_MAX) {
        errno = ENAMETOOLONG;
        return -1;
    }
    return sourceParent_.of(skeleton_, source.entry.parent_path());
}

/// The directory that a destination stands in, or -1 with `errno`.
int SkeletonCopier::openParent(const SiteDestination& destination)
{
    if (destination.path.size() >= PATH_MAX) {
        errno = ENAMETOOLONG;
        return -1;
    }
    return destination.below.empty()
               ? parent_.of(directoryPart(destination.path), {})
               : parent_.of(destination.base, destination.below.parent_path());
}

/// The directory that was made or found unfinished, or none when it is there already: somebody else
/// was faster, and theirs is an existing directory like any other.
NewDirectory SkeletonCopier::makeDirectory(const SiteDestination& destination)
{
    if (destination.below.empty()) {
        return makeBaseDirectory(destination.path);
    }
    const std::string name = nameIn(destination.path);
    const int parent = openParent(destination);
    if (parent < 0) {
        failToMake(destination, errno);
    }
    NewDirectory made(parent, name.c_str(), sameOwner);
    if (!made) {
        const int error = errno; // what has the name may be gone by the time it is looked at
        struct stat status = {};
        if (error != EEXIST || fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
            !S_ISDIR(status.st_mode)) {
            failToMake(destination, error);
        }
    }
    return made;
}

void SkeletonCopier::reportError(const path& failed, int error)
{
    const char* reason = std::strerror(error);
    print(boost::format("corbel:InstallSkeleton(): %1%: %2%\n") % failed.string() % reason);
}

void SkeletonCopier::reportIfVerbose(const path& destination, const char* what)
{
    if (verbose_) {
        print(boost::format("corbel:InstallSkeleton(): %1% %2%\n") % destination.string() % what);
    }
}

/// In one piece: the stream has no buffer, and a message is a line whoever else writes there.
void SkeletonCopier::print(const boost::format& message)
{
    messages_ << message.str();
}

} // namespace zelto
