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
#include <vector>

#include "conf/ConfVariables.h"
#include "conf/Configuration.h"
#include "fsutil/OpenAt2.h"
#include "fsutil/PathNames.h"

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
    void restore() const { errno = error_; }

private:
    int error_ = errno;
};

std::vector<std::string>& trustedPlaces()
{
    static std::vector<std::string> places;
    return places;
}

/// How much of a path a place takes up that is the path or lies on its way.
size_t lengthOf(std::string_view place, std::string_view path)
{
    place = place.substr(0, place.find_last_not_of('/') + 1);
    const bool begins =
        path.starts_with(place) && (path.size() == place.size() || path.at(place.size()) == '/');
    return begins ? place.size() : 0;
}

/// The longest beginning of a path that is taken as it is; empty if there is none.
std::string_view trustedBeginning(std::string_view path)
{
    size_t length = lengthOf(variableByIndex(HTTPD_VHOSTS_D), path);
    for (const std::string& place : trustedPlaces()) {
        length = std::max(length, lengthOf(place, path));
    }
    return path.substr(0, length);
}

std::string takeName(std::string& path)
{
    std::string_view rest = path;
    std::string name(::takeName(rest));
    path.erase(0, path.size() - rest.size());
    return name;
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

/// What was opened with O_NOFOLLOW, unless that is a link itself, as it may be if any type of file
/// was asked for: then none with ELOOP. None also if that cannot be told.
Descriptor unlessLink(Descriptor file, int flags)
{
    const bool mayBeLink = file && (flags & O_PATH) != 0 && (flags & O_DIRECTORY) == 0;
    struct stat status = {};
    if (mayBeLink && fstat(file.get(), &status) != 0) {
        return {};
    }
    if (mayBeLink && S_ISLNK(status.st_mode)) {
        errno = ELOOP;
        return {};
    }
    return file;
}

/// Opens a path that no link lies on, in one call: what most paths are.
/// @return the descriptor; none with ELOOP, ENOTDIR (from a link where a directory is asked for) or
///         ENOSYS when the names are to be taken one by one.
Descriptor openWithoutLinks(const char* path, int flags)
{
    open_how how = {};
    how.flags = static_cast<unsigned>(flags | O_NOFOLLOW | O_CLOEXEC);
    how.resolve = RESOLVE_NO_SYMLINKS;
    return unlessLink(Descriptor(openAt2(AT_FDCWD, path, how)), flags);
}

Descriptor openNameByName(const char* path, int flags)
{
    TrustedWay way(path);
    return way.isOpen() ? way.open(way.rest(), flags) : Descriptor();
}

} // namespace

bool isTrusted(uid_t owner)
{
    return owner == 0 || owner == geteuid();
}

Descriptor openUnlessLink(int directory, const char* name, int flags)
{
    return unlessLink(Descriptor(openat(directory, name, flags | O_NOFOLLOW | O_CLOEXEC)), flags);
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
    Descriptor file;
    const bool inOneCall = stepsBack(path) == 0;
    if (inOneCall) {
        file = openWithoutLinks(path, flags);
    }
    if (!file && (!inOneCall || errno == ELOOP || errno == ENOTDIR || errno == ENOSYS)) {
        file = openNameByName(path, flags);
    }
    if (file) {
        kept.restore();
    }
    return file;
}

TrustedPlace::TrustedPlace(std::string path)
{
    trustedPlaces().push_back(std::move(path));
}

TrustedPlace::~TrustedPlace()
{
    trustedPlaces().pop_back();
}

TrustedWay::TrustedWay(std::string_view path)
    : rest_(path), mostHeld_(std::max(leastHeld, stepsBack(path)) + 1), linksLeft_(mostLinks)
{
    const std::string beginning(trustedBeginning(path));
    Descriptor start(beginning.empty() ? -1 : ::open(beginning.c_str(), heldDirectory));
    if (start) {
        rest_.remove_prefix(beginning.size());
    } else {
        // Also where such a place is missing: it may be what is to be made.
        start.reset(::open(path.starts_with('/') ? "/" : ".", heldDirectory));
    }
    if (start) {
        push(way_, std::move(start));
    }
}

bool TrustedWay::take(const std::string& name)
{
    const KeptError kept;
    Directories way = way_;
    if (!follow(name, way, heldDirectory, nullptr)) {
        return false;
    }
    way_ = std::move(way);
    kept.restore();
    return true;
}

void TrustedWay::enter(Descriptor next)
{
    push(way_, std::move(next));
}

Descriptor TrustedWay::open(std::string_view names, int flags)
{
    Descriptor last;
    (void)follow(std::string(names), way_, flags, &last);
    return last;
}

/// Goes through names, with links replaced by what they say.
/// @param last what the last name leads to is opened for it with the flags, or, if null, gone to.
bool TrustedWay::follow(std::string names, Directories& way, int flags, Descriptor* last)
{
    while (true) {
        const std::string name = takeName(names);
        const int here = way.directories.back()->get();
        if (name.empty()) {
            if (last != nullptr) {
                last->reset(openat(here, ".", flags | O_CLOEXEC));
            }
            return last == nullptr || *last;
        }
        if (name == ".") {
            continue;
        }
        if (name == "..") {
            if (!goBack(way)) {
                return false;
            }
            continue;
        }
        // With slashes behind it the last name must be a directory's too.
        const bool isLast = names.empty() && last != nullptr;
        const int asked = isLast ? flags : heldDirectory;
        Descriptor next = openUnlessLink(here, name.c_str(), asked);
        if (!next) {
            // With O_DIRECTORY a link is no directory.
            const bool mayBeLink = errno == ENOTDIR || errno == ELOOP;
            if (!mayBeLink || !expand(name, names, way)) {
                return false;
            }
        } else if (isLast) {
            *last = std::move(next);
            return true;
        } else {
            push(way, std::move(next));
        }
    }
}

/// Puts what a link says in front of the names that follow it.
bool TrustedWay::expand(const std::string& name, std::string& names, Directories& way)
{
    const std::string target = readTrustedLink(way.directories.back()->get(), name.c_str());
    if (target.empty()) {
        return false;
    }
    if (linksLeft_ == 0) {
        errno = ELOOP;
        return false;
    }
    --linksLeft_;
    if (target.front() == '/') {
        Descriptor root(::open("/", heldDirectory));
        if (!root) {
            return false;
        }
        way = {};
        push(way, std::move(root));
    }
    names.insert(0, target);
    return true;
}

void TrustedWay::push(Directories& way, Descriptor next) const
{
    way.directories.push_back(std::make_shared<const Descriptor>(std::move(next)));
    if (way.directories.size() > mostHeld_) {
        way.behind.push_back(identityOf(*way.directories.front()));
        way.directories.pop_front();
    }
}

/// Asking the system for ".." asks where a directory is now, and somebody may have moved it
/// elsewhere. Where the way began the system has to know; where the way has come through what it
/// does not hold any more, that must be what the system leads to.
bool TrustedWay::goBack(Directories& way)
{
    if (way.directories.size() > 1) {
        way.directories.pop_back();
        return true;
    }
    Descriptor above(openat(way.directories.back()->get(), "..", heldDirectory));
    if (!above) {
        return false;
    }
    if (!way.behind.empty()) {
        const std::optional<Identity> found = identityOf(above);
        if (!found || found != way.behind.back()) {
            errno = found ? ESTALE : errno;
            return false;
        }
        way.behind.pop_back();
    }
    way.directories.back() = std::make_shared<const Descriptor>(std::move(above));
    return true;
}

/// What the directory is to be known by; nothing if that cannot be told.
std::optional<TrustedWay::Identity> TrustedWay::identityOf(const Descriptor& directory)
{
    struct stat status = {};
    return fstat(directory.get(), &status) == 0
               ? std::optional(Identity{status.st_dev, status.st_ino})
               : std::nullopt;
}
