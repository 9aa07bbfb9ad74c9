#include "site/SkeletonCopier.h"

#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>
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
#include "site/TokenSubstitution.h"
#include "site/WholeFile.h"

namespace zelto
{

namespace
{

using boost::filesystem::path;

constexpr const char* alreadyExists = "already exists, not restoring";
constexpr const char* otherKind = "not a file or directory, skipping";

constexpr int newDirectory = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

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

bool isDirectory(const path& examined)
{
    struct stat status = {};
    return lstat(examined.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
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

void SkeletonCopier::copy(const path& entry)
{
    if (!entry.empty() && entry.begin()->native() == "httpsdocs") {
        return;
    }
    const auto destination = siteDestination(entry, host_.directory, options_);
    if (!destination) {
        return;
    }
    const path source = skeleton_ / entry;
    struct stat existing = {};
    if (look(*destination, existing) == 0) {
        keepExisting(source, destination->path, existing);
    } else if (errno == ENOENT) {
        copyMissing(source, *destination);
    } else {
        const char* reason = std::strerror(errno);
        messages_ << boost::format("corbel:InstallSkeleton(): stat(\"%1%\") failed: %2%\n") %
                         destination->path.string() % reason;
    }
}

void SkeletonCopier::keepExisting(
    const path& source, const path& destination, const struct stat& existing)
{
    if (!S_ISDIR(existing.st_mode) || !isDirectory(source)) {
        reportIfVerbose(destination, alreadyExists);
    }
}

void SkeletonCopier::copyMissing(const path& source, const SiteDestination& destination)
{
    struct stat status = {};
    if (lstat(source.c_str(), &status) != 0) {
        if (errno != ENOENT) {
            reportError(source, errno);
        }
    } else if (S_ISREG(status.st_mode)) {
        copyFile(source, destination);
    } else if (S_ISDIR(status.st_mode)) {
        copyDirectory(destination, status.st_mode);
    } else {
        reportIfVerbose(destination.path, otherKind);
    }
}

void SkeletonCopier::copyFile(const path& source, const SiteDestination& destination)
{
    // Should something else have taken the file's name by now, this neither follows a link nor
    // waits for a FIFO's writer.
    const Descriptor file(
        ::open(source.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status = {};
    if (!file || fstat(file.get(), &status) != 0) {
        reportError(source, errno);
        return;
    }
    if (!S_ISREG(status.st_mode)) {
        reportIfVerbose(destination.path, otherKind);
        return;
    }
    std::string content;
    if (readFor(host_.name, file.get(), status.st_size, content) != 0) {
        reportError(source, errno);
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
    const Descriptor made = makeDirectory(destination);
    if (made) {
        (void)fchmod(made.get(), mode & 07777);
        [[maybe_unused]] const int ignored = fchown(made.get(), static_cast<uid_t>(-1), group_);
    }
}

/// lstat(2) of a destination.
int SkeletonCopier::look(const SiteDestination& destination, struct stat& status)
{
    if (destination.below.empty()) {
        return lstat(destination.path.c_str(), &status);
    }
    const int directory = openParent(destination);
    return directory >= 0
               ? fstatat(directory, nameIn(destination.path).c_str(), &status, AT_SYMLINK_NOFOLLOW)
               : -1;
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

/// The directory that was made, or none when it is there already: somebody else was faster, and
/// theirs is an existing directory like any other.
Descriptor SkeletonCopier::makeDirectory(const SiteDestination& destination)
{
    if (!destination.below.empty()) {
        return makeDirectoryBelow(destination);
    }
    const path& made = destination.path;
    const bool isNew = destination.inside ? boost::filesystem::create_directory(made)
                                          : boost::filesystem::create_directories(made);
    return Descriptor(isNew ? ::open(made.c_str(), newDirectory) : -1);
}

Descriptor SkeletonCopier::makeDirectoryBelow(const SiteDestination& destination)
{
    const std::string name = nameIn(destination.path);
    const int parent = openParent(destination);
    if (parent >= 0 && mkdirat(parent, name.c_str(), 0777) == 0) {
        return Descriptor(openat(parent, name.c_str(), newDirectory));
    }
    int error = errno;
    struct stat status = {};
    if (parent >= 0 && error == EEXIST &&
        fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISDIR(status.st_mode)) {
        return {};
    }
    const path* failed = &destination.path;
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

void SkeletonCopier::reportError(const path& failed, int error)
{
    const char* reason = std::strerror(error);
    messages_ << boost::format("corbel:InstallSkeleton(): %1%: %2%\n") % failed.string() % reason;
}

void SkeletonCopier::reportIfVerbose(const path& destination, const char* what)
{
    if (verbose_) {
        messages_ << boost::format("corbel:InstallSkeleton(): %1% %2%\n") % destination.string() %
                         what;
    }
}

} // namespace zelto
