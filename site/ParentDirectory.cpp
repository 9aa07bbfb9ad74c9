#include "site/ParentDirectory.h"

#include <cerrno>
#include <linux/openat2.h>
#include <optional>
#include <vector>

#include "fsutil/MountPoint.h"
#include "fsutil/OpenAt2.h"
#include "fsutil/PathNames.h"
#include "fsutil/TrustedPath.h"

namespace zelto
{

namespace
{

using boost::filesystem::path;

/// The way below a base without ".". A ".." takes the name before it back, for which that name must
/// lead to a directory.
/// @return nothing, with `errno`, for a way that cannot be gone.
std::optional<path> straightened(const path& start, const path& below)
{
    std::vector<path> directories = {path()};
    for (const path& step : below) {
        if (step.native() == "..") {
            if (!openTrusted((start / directories.back()).c_str(), heldDirectory)) {
                return std::nullopt;
            }
            directories.pop_back();
        } else if (step.native() != ".") {
            directories.push_back(directories.back() / step);
        }
        if (directories.empty()) {
            errno = EPERM;
            return std::nullopt;
        }
    }
    return directories.back();
}

/// Goes name by name, which takes more calls, and looks at each directory.
Descriptor openNameByName(const path& start, const path& below)
{
    TrustedWay way(start.native());
    std::string_view road = way.rest();
    bool goesOn = way.isOpen();
    for (std::string_view name = takeName(road); goesOn && !name.empty(); name = takeName(road)) {
        goesOn = way.take(std::string(name));
    }
    for (path::iterator name = below.begin(); goesOn && name != below.end(); ++name) {
        goesOn = way.take(name->native());
        if (goesOn && isMountPoint(way.here()).value_or(true)) {
            errno = EBUSY;
            goesOn = false;
        }
    }
    return goesOn ? way.open({}, heldDirectory) : Descriptor();
}

/// Opens a directory below a held one, with no mount point on the way.
Descriptor openOnOneMount(int held, const path& start, const path& below)
{
    open_how how = {};
    how.flags = static_cast<unsigned>(heldDirectory);
    how.resolve = RESOLVE_NO_XDEV | RESOLVE_NO_SYMLINKS;
    Descriptor directory(openAt2(held, below.c_str(), how));
    if (!directory && errno == EXDEV) {
        errno = EBUSY;
    } else if (!directory && (errno == ELOOP || errno == ENOSYS)) {
        directory = openNameByName(start, below);
    }
    return directory;
}

} // namespace

int ParentDirectory::of(const path& base, const path& below)
{
    if (directory_ && below.native() == below_.native() && base.native() == base_.native()) {
        return directory_.get();
    }
    const path start = base.empty() ? path(".") : base;
    const std::optional<path> way = straightened(start, below);
    if (!way) {
        return -1;
    }
    if (mountPoints_ == MountPoints::leftAlone) {
        if (!hold(base, start)) {
            return -1;
        }
        if (way->empty()) {
            return heldBase_.get();
        }
        directory_ = openOnOneMount(heldBase_.get(), start, *way);
    } else {
        directory_ = openTrusted((start / *way).c_str(), heldDirectory);
    }
    base_ = base;
    below_ = below;
    return directory_.get();
}

/// Holds a base, or goes on holding it if it is the one of the last call.
bool ParentDirectory::hold(const path& base, const path& start)
{
    if (!heldBase_ || base.native() != base_.native()) {
        directory_.reset();
        heldBase_ = openTrusted(start.c_str(), heldDirectory);
        base_ = base;
    }
    return static_cast<bool>(heldBase_);
}

} // namespace zelto
