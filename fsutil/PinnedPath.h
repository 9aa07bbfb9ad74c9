#pragma once

#include <string>
#include <sys/stat.h>

#include "fsutil/Descriptor.h"

/// A path whose directory is held by descriptor, so that everything done to its last component
/// happens in the directory that was found first, whatever becomes of the names that led there.
///
/// Trailing slashes stay with the last component and keep their meaning to the system: "link/"
/// names what the link leads to.
class PinnedPath
{
public:
    explicit PinnedPath(const char* path);

    /// lstat(2) of the path: 0, or -1 with `errno`, also when its directory could not be reached.
    int look(struct stat& status) const;

    /// open(2) of the path without following its last component: a descriptor, or none with
    /// `errno`, also when its directory could not be reached.
    [[nodiscard]] Descriptor open(int flags) const;

    /// The directory's descriptor, or AT_FDCWD for a path that has no directory part.
    [[nodiscard]] int directory() const noexcept;

    /// The last component, to be used with directory().
    [[nodiscard]] const char* name() const noexcept { return name_.c_str(); }

private:
    Descriptor directory_;
    std::string name_;
    int error_ = 0; ///< why the directory could not be reached
};
