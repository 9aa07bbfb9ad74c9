#include "site/ParentDirectory.h"

#include "fsutil/TrustedPath.h"

namespace zelto
{

namespace
{

using boost::filesystem::path;

Descriptor openBelow(const path& base, const path& below)
{
    TrustedWay way(openTrusted(base.empty() ? "." : base.c_str(), heldDirectory),
        TrustedWay::Above::refused, TrustedWay::stepsBack(below.native()));
    for (path::iterator step = below.begin(); way.isOpen() && step != below.end(); ++step) {
        way.take(step->native());
    }
    return way.end();
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
