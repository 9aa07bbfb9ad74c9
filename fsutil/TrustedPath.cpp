#include "fsutil/TrustedPath.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "fsutil/OpenAt2.h"

const int heldDirectory = O_PATH | O_DIRECTORY | O_CLOEXEC;

namespace
{

/// How many links there may be on one way; the kernel's own limit.
constexpr int mostLinks = 40;

/// An older error, which an attempt that succeeded in the end leaves alone: reports that follow no
/// failed call show what is pending.
class KeptError
{
public:
    [[nodiscard]] Descriptor unlessFailed(Descriptor file) const
    {
        if (file) {
            errno = error_;
        }
        return file;
    }

private:
    int error_ = errno;
};

Descriptor openStep(int directory, const char* name, int flags, int& linksLeft);

/// Takes the first name off a path; empty when only slashes are left.
std::string takeName(std::string_view& path)
{
    path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
    const size_t end = std::min(path.find('/'), path.size());
    std::string name(path.substr(0, end));
    path.remove_prefix(end);
    return name;
}

/// Each name of a link's target, which counts from the directory unless it begins at the root.
/// Who made the link can be trusted, but what it leads through may be anybody's.
Descriptor openTarget(int directory, std::string_view target, int flags, int& linksLeft)
{
    const bool fromRoot = target.front() == '/';
    Descriptor reached(openat(directory, fromRoot ? "/" : ".", heldDirectory));
    while (reached) {
        const std::string name = takeName(target);
        if (target.empty() && !name.empty()) {
            return openStep(reached.get(), name.c_str(), flags, linksLeft);
        }
        if (name.empty()) {
            return Descriptor(openat(reached.get(), ".", flags | O_CLOEXEC));
        }
        reached = openStep(reached.get(), name.c_str(), heldDirectory, linksLeft);
    }
    return reached;
}

/// The target of a link that may be followed, or "" with `errno`. The link is held by descriptor,
/// so that what is asked and what is read are the same link, whatever takes its name meanwhile.
std::string readTrustedLink(int directory, const char* name)
{
    const Descriptor link(openat(directory, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status = {};
    if (!link || fstat(link.get(), &status) != 0) {
        return {};
    }
    if (!S_ISLNK(status.st_mode) || !isTrusted(status.st_uid)) {
        errno = S_ISLNK(status.st_mode) ? ELOOP : ENOTDIR;
        return {};
    }
    char target[PATH_MAX] = "";
    return readlinkat(link.get(), "", target, sizeof target - 1) > 0 ? target : "";
}

/// Whether a descriptor holds a link itself, as one that was opened for any type of file may.
bool holdsLink(const Descriptor& file, int flags)
{
    struct stat status = {};
    return (flags & O_PATH) != 0 && (flags & O_DIRECTORY) == 0 && fstat(file.get(), &status) == 0 &&
           S_ISLNK(status.st_mode);
}

Descriptor openStep(int directory, const char* name, int flags, int& linksLeft)
{
    Descriptor next(openat(directory, name, flags | O_NOFOLLOW | O_CLOEXEC));
    // With O_DIRECTORY a link is no directory.
    if (next ? !holdsLink(next, flags) : errno != ENOTDIR && errno != ELOOP) {
        return next;
    }
    const std::string target = readTrustedLink(directory, name);
    if (target.empty()) {
        return {};
    }
    if (linksLeft-- == 0) {
        errno = ELOOP;
        return {};
    }
    return openTarget(directory, target, flags, linksLeft);
}

/// Opens a path that no link lies on, in one call: what most paths are.
/// @return the descriptor; none with ELOOP, ENOTDIR (from a link where a directory is asked for) or
///         ENOSYS when the names are to be taken one by one.
Descriptor openWithoutLinks(const char* path, int flags)
{
    open_how how = {};
    how.flags = static_cast<unsigned>(flags | O_NOFOLLOW | O_CLOEXEC);
    how.resolve = RESOLVE_NO_SYMLINKS;
    Descriptor file(openAt2(AT_FDCWD, path, how));
    if (file && holdsLink(file, flags)) {
        file.reset();
        errno = ELOOP;
    }
    return file;
}

Descriptor openNameByName(const char* path, int flags)
{
    std::string_view rest = path;
    TrustedWay way(Descriptor(open(rest.front() == '/' ? "/" : ".", heldDirectory)),
        TrustedWay::Above::asked, TrustedWay::stepsBack(path));
    while (way.isOpen()) {
        const std::string name = takeName(rest);
        if (name.empty() || (rest.empty() && (name == "." || name == ".."))) {
            way.take(name.empty() ? "." : name);
            return way.isOpen() ? way.openHere(".", flags) : Descriptor();
        }
        if (rest.empty()) {
            return way.openHere(name.c_str(), flags);
        }
        way.take(name);
    }
    return {};
}

} // namespace

bool isTrusted(uid_t owner)
{
    return owner == 0 || owner == geteuid();
}

Descriptor openTrusted(const char* path, int flags)
{
    const KeptError kept;
    const size_t length = std::strlen(path);
    if (length == 0 || length >= PATH_MAX) {
        // The names might fit one by one where the whole does not; the whole decides.
        errno = length == 0 ? ENOENT : ENAMETOOLONG;
        return {};
    }
    if (TrustedWay::stepsBack(path) == 0) {
        Descriptor file = openWithoutLinks(path, flags);
        if (file || (errno != ELOOP && errno != ENOTDIR && errno != ENOSYS)) {
            return kept.unlessFailed(std::move(file));
        }
    }
    return kept.unlessFailed(openNameByName(path, flags));
}

Descriptor openTrustedAt(int directory, const char* name, int flags)
{
    const KeptError kept;
    int linksLeft = mostLinks;
    return kept.unlessFailed(openStep(directory, name, flags, linksLeft));
}

TrustedWay::TrustedWay(Descriptor start, Above above, size_t stepsBack)
    : above_(above), stepsBack_(stepsBack), linksLeft_(mostLinks)
{
    directories_.push_back(std::move(start));
}

size_t TrustedWay::stepsBack(std::string_view path)
{
    size_t steps = 0;
    while (!path.empty()) {
        steps += takeName(path) == ".." ? 1 : 0;
    }
    return steps;
}

void TrustedWay::take(const std::string& name)
{
    if (name == "..") {
        back();
    } else if (name != ".") {
        enter(openStep(here(), name.c_str(), heldDirectory, linksLeft_));
    }
}

Descriptor TrustedWay::openHere(const char* name, int flags)
{
    const KeptError kept;
    return kept.unlessFailed(openStep(here(), name, flags, linksLeft_));
}

void TrustedWay::enter(Descriptor next)
{
    directories_.push_back(std::move(next));
    if (directories_.size() > stepsBack_ + 1) {
        directories_.pop_front();
    }
}

void TrustedWay::back()
{
    if (directories_.size() > 1) {
        directories_.pop_back();
    } else if (above_ == Above::asked) {
        directories_.back() = Descriptor(openat(here(), "..", heldDirectory));
    } else {
        directories_.back().reset();
        errno = EPERM;
    }
}
