#include "fsutil/PinnedPath.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>

#include "fsutil/TrustedPath.h"

PinnedPath::PinnedPath(const char* path) : name_(path)
{
    const size_t last = name_.find_last_not_of('/');
    if (last == std::string::npos) {
        return;
    }
    if (name_.size() >= PATH_MAX) {
        // The parts might fit where the whole does not; the whole decides.
        error_ = ENAMETOOLONG;
        return;
    }
    if (const size_t slash = name_.rfind('/', last); slash != std::string::npos) {
        directory_ = ::openTrusted(name_.substr(0, slash + 1).c_str(), heldDirectory);
        error_ = directory_ ? 0 : errno;
        name_.erase(0, slash + 1);
    }
    if (const size_t end = name_.find('/'); end != std::string::npos) {
        followed_ = name_.substr(0, end);
    }
}

bool PinnedPath::reached() const
{
    if (error_ != 0) {
        errno = error_;
    }
    return error_ == 0;
}

int PinnedPath::directory() const noexcept
{
    return directory_ ? directory_.get() : AT_FDCWD;
}

int PinnedPath::look(struct stat& status) const
{
    if (!reached()) {
        return -1;
    }
    if (followed_.empty()) {
        return fstatat(directory(), name(), &status, AT_SYMLINK_NOFOLLOW);
    }
    const Descriptor found = openTrustedAt(directory(), followed_.c_str(), heldDirectory);
    return found ? fstat(found.get(), &status) : -1;
}

Descriptor PinnedPath::open(int flags) const
{
    if (!followed_.empty()) {
        return openTrusted(flags | O_DIRECTORY);
    }
    return Descriptor(reached() ? openat(directory(), name(), flags | O_NOFOLLOW) : -1);
}

Descriptor PinnedPath::openTrusted(int flags) const
{
    if (!reached()) {
        return {};
    }
    return followed_.empty() ? openTrustedAt(directory(), name(), flags)
                             : openTrustedAt(directory(), followed_.c_str(), flags | O_DIRECTORY);
}
