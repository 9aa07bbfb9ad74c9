#include "fsutil/PinnedPath.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>

PinnedPath::PinnedPath(const char* path) : name_(path)
{
    const size_t last = name_.find_last_not_of('/');
    const size_t slash = last == std::string::npos ? last : name_.rfind('/', last);
    if (slash == std::string::npos) {
        return;
    }
    if (name_.size() >= PATH_MAX) {
        // The parts might fit where the whole does not; the whole decides.
        error_ = ENAMETOOLONG;
        return;
    }
    const std::string parent = name_.substr(0, slash + 1);
    name_.erase(0, slash + 1);
    directory_.reset(::open(parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    error_ = directory_ ? 0 : errno;
}

int PinnedPath::directory() const noexcept
{
    return directory_ ? directory_.get() : AT_FDCWD;
}

int PinnedPath::look(struct stat& status) const
{
    if (error_ != 0) {
        errno = error_;
        return -1;
    }
    return fstatat(directory(), name(), &status, AT_SYMLINK_NOFOLLOW);
}

Descriptor PinnedPath::open(int flags) const
{
    if (error_ != 0) {
        errno = error_;
        return {};
    }
    return Descriptor(openat(directory(), name(), flags | O_NOFOLLOW));
}
