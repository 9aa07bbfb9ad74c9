#pragma once

#include <boost/filesystem/path.hpp>

#include "fsutil/Descriptor.h"
#include "site/MountPoints.h"

namespace zelto
{

/// The directory in which entries are made, found from a base by one component after the other and
/// held open from one entry to the next: entries that come in the order of their paths mostly share
/// it.
///
/// What lies on the way may belong to a site's user, who must not send root elsewhere: a symbolic
/// link, on the road to the base too, counts only if it can be trusted (see fsutil/TrustedPath.h),
/// and ".." goes back to the directory that the way came through, wherever it is by now, but not
/// above the base.
class ParentDirectory
{
public:
    /// @param mountPoints leftAlone is for removing what is in the directory: then no directory
    ///        below the base, and none that a link leads to, may be a mount point, and the base is
    ///        held as well and stays the directory that it was at first.
    explicit ParentDirectory(MountPoints mountPoints = MountPoints::entered)
        : mountPoints_(mountPoints)
    {
    }

    /// Opens the directory `below` (relative, may be empty) of a base (empty for the working
    /// directory), or keeps it if it is the one of the last call.
    /// @return a descriptor that stays valid until the next call, or -1 with `errno`: ELOOP for a
    ///         link that cannot be trusted, EPERM for a way above the base, EBUSY for a mount point
    ///         that is left alone, otherwise as open(2) says.
    int of(const boost::filesystem::path& base, const boost::filesystem::path& below);

private:
    bool hold(const boost::filesystem::path& base, const boost::filesystem::path& start);

    MountPoints mountPoints_;
    boost::filesystem::path base_;
    boost::filesystem::path below_;
    Descriptor heldBase_; ///< if mount points are left alone
    Descriptor directory_;
};

} // namespace zelto
