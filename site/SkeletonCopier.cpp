#include "site/SkeletonCopier.h"

#include <boost/filesystem/operations.hpp>
#include <boost/format.hpp>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <ostream>
#include <stdexcept>
#include <unistd.h>

#include "fsutil/Descriptor.h"
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
    if (lstat(destination->path.c_str(), &existing) == 0) {
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
        copyFile(source, destination.path);
    } else if (S_ISDIR(status.st_mode)) {
        copyDirectory(destination, status.st_mode);
    } else {
        reportIfVerbose(destination.path, otherKind);
    }
}

void SkeletonCopier::copyFile(const path& source, const path& destination)
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
        reportIfVerbose(destination, otherKind);
        return;
    }
    std::string content;
    if (readFor(host_.name, file.get(), status.st_size, content) != 0) {
        reportError(source, errno);
        return;
    }
    createFile(destination, content, status.st_mode);
}

void SkeletonCopier::createFile(const path& destination, std::string_view content, mode_t mode)
{
    const int directory = parent_.of(destination.native());
    const char* name = ParentDirectory::nameIn(destination.native());
    if (directory >= 0 && createWholeFile(directory, name, content, mode, group_) == 0) {
        return;
    }
    if (errno == EEXIST) {
        reportIfVerbose(destination, alreadyExists);
    } else {
        reportError(destination, errno);
    }
}

void SkeletonCopier::copyDirectory(const SiteDestination& destination, mode_t mode)
{
    const path& created = destination.path;
    const bool isNew = destination.inside ? boost::filesystem::create_directory(created)
                                          : boost::filesystem::create_directories(created);
    if (!isNew) {
        // Somebody else was faster; theirs is an existing directory like any other.
        return;
    }
    const Descriptor directory(
        ::open(created.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (directory) {
        (void)fchmod(directory.get(), mode & 07777);
        [[maybe_unused]] const int ignored =
            fchown(directory.get(), static_cast<uid_t>(-1), group_);
    }
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
