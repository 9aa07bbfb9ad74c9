#include "fsutil/PinnedPath.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>

#include "fsutil/TrustedPath.h"

PinnedPath::PinnedPath(const char* path) : path_(path), name_(path), lookedUp_(path)
{
    const size_t last = path_.find_last_not_of('/');
    if (last == std::string::npos) {
        return;
    }
    if (path_.size() >= PATH_MAX) {
        // The parts might fit where the whole does not; the whole decides.
        error_ = ENAMETOOLONG;
        return;
    }
    const size_t begin = path_.rfind('/', last) + 1; // 0 without a slash
    name_ = path_.substr(begin);
    lookedUp_ = path_.substr(begin, last + 1 - begin);
    const bool goesBack = lookedUp_ == "..";
    if (goesBack) {
        // Asked for "..", the system would say where the directory is by then.
        lookedUp_ = ".";
    }
    if (begin > 0 || goesBack) {
        const std::string held = goesBack ? path_ : path_.substr(0, begin);
        directory_ = ::openTrusted(held.c_str(), heldDirectory);
        error_ = directory_ ? 0 : errno;
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
    if (reached() && !namesDirectory()) {
        return fstatat(directory(), lookedUp_.c_str(), &status, AT_SYMLINK_NOFOLLOW);
    }
    const Descriptor found = openTrusted(heldDirectory);
    return found ? fstat(found.get(), &status) : -1;
}

Descriptor PinnedPath::open(int flags) const
{
    if (namesDirectory()) {
        return openTrusted(flags);
    }
    return Descriptor(
        reached() ? openat(directory(), lookedUp_.c_str(), flags | O_NOFOLLOW | O_CLOEXEC) : -1);
}

Descriptor PinnedPath::openTrusted(int flags) const
{
    if (!reached()) {
        return {};
    }
    const int error = errno;
    const int asked = namesDirectory() ? flags | O_DIRECTORY : flags;
    Descriptor file = openUnlessLink(directory(), lookedUp_.c_str(), asked);
    if (!file && (errno == ELOOP || errno == ENOTDIR)) {
        file = ::openTrusted(path_.c_str(), asked);
    }
    if (file) {
        errno = error;
    }
    return file;
}
