#include "site/ParentDirectory.h"

#include <cerrno>
#include <vector>

#include "fsutil/TrustedPath.h"

namespace zelto
{

namespace
{

using boost::filesystem::path;

/// Opens a directory below a base. A ".." takes the name before it back, for which that name must
/// lead to a directory.
Descriptor openBelow(const path& base, const path& below)
{
    const path start = base.empty() ? path(".") : base;
    std::vector<path> directories = {start};
    for (const path& step : below) {
        if (step.native() == "..") {
            if (!openTrusted(directories.back().c_str(), heldDirectory)) {
                return {};
            }
            directories.pop_back();
        } else if (step.native() != ".") {
            directories.push_back(directories.back() / step);
        }
        if (directories.empty()) {
            errno = EPERM;
            return {};
        }
    }
    return openTrusted(directories.back().c_str(), heldDirectory);
}

} // namespace

int ParentDirectory::of(const path& base, const path& below)
{
    if (!directory_ || below.native() != below_.native() || base.native() != base_.native()) {
        directory_ = openBelow(base, below);
        base_ = base;
        below_ = below;
    }
    return directory_.get();
}

} // namespace zelto
