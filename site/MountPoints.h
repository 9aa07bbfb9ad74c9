#pragma once

namespace zelto
{

/// What becomes of a mount point that a walk or a way comes upon below the directory that it began
/// in. That directory itself may be one: whoever named it meant what is mounted there.
enum class MountPoints {
    entered,   ///< like any directory
    leftAlone, ///< what is mounted there is not the tree's, a bind mount of its own file system
               ///< included
};

} // namespace zelto
