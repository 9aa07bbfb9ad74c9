#pragma once

#include <string>
#include <sys/stat.h>

#include "fsutil/Descriptor.h"

/// A path whose directory is held by descriptor, so that everything done to its last component
/// happens in the directory that was found first, whatever becomes of the names that led there.
/// On the way there only links that can be trusted are followed (see TrustedPath.h).
///
/// Trailing slashes stay with the last component and keep their meaning to the system: "link/"
/// names the directory that the link leads to, if the link can be trusted. Where the last component
/// is "..", the directory that it leads back to is the one that is held.
class PinnedPath
{
public:
    explicit PinnedPath(const char* path);

    /// lstat(2) of the path: 0, or -1 with `errno`, also when its directory could not be reached.
    int look(struct stat& status) const;

    /// open(2) of the path without following its last component: a descriptor, or none with
    /// `errno`, also when its directory could not be reached.
    [[nodiscard]] Descriptor open(int flags) const;

    /// The same, following a last component that is a link if the link can be trusted.
    [[nodiscard]] Descriptor openTrusted(int flags) const;

    /// Whether its directory was reached; else `errno` is set to why not.
    [[nodiscard]] bool reached() const;

    /// The directory's descriptor, or AT_FDCWD for a path that has no directory part.
    [[nodiscard]] int directory() const noexcept;

    /// The last component, to be used with directory() for making, renaming and removing.
    [[nodiscard]] const char* name() const noexcept { return name_.c_str(); }

private:
    [[nodiscard]] bool namesDirectory() const noexcept { return name_.size() > lookedUp_.size(); }

    std::string path_;
    Descriptor directory_;
    std::string name_;
    std::string lookedUp_; ///< the name without trailing slashes, "." for ".."
    int error_ = 0;        ///< why the directory could not be reached
};
