#pragma once

#include <sys/stat.h>

#include "fsutil/Descriptor.h"

/// Leaves an owner as it is.
constexpr uid_t sameOwner = static_cast<uid_t>(-1);

/// A directory that is being made, until it has its owner, group and mode.
///
/// The process may be killed in between, and the next run must tell what was left then from a
/// directory that somebody has set up. So a directory is made without any permission but with the
/// sticky bit, which nobody else gives a directory, and its mode comes last. One that is found like
/// that and belongs to the process's user, or already to the owner that it is meant for, is
/// finished as if it had just been made.
class NewDirectory
{
public:
    /// No directory.
    NewDirectory() = default;

    /// Makes a directory in an open one, or finds it unfinished. It is held from here on, and only
    /// if it is such a directory: what somebody may have put in its place is not touched.
    /// Without success `errno` is mkdir(2)'s (EEXIST for whatever else has the name) or open(2)'s.
    /// @param owner the one it will get; sameOwner if it stays the process's.
    NewDirectory(int parent, const char* name, uid_t owner);

    explicit operator bool() const noexcept { return static_cast<bool>(directory_); }

    /// The set-group-id bit, if the parent passed it on, else 0.
    [[nodiscard]] mode_t inheritedMode() const noexcept { return inheritedMode_; }

    /// Gives the owner and this group (-1 leaves it as it is): 0, or -1 with `errno`.
    int giveOwner(gid_t group);

    /// Gives exactly this mode, which finishes the directory: 0, or -1 with `errno`.
    int giveMode(mode_t mode);

    /// Gives the directory (O_PATH) away.
    [[nodiscard]] Descriptor release() { return std::move(directory_); }

private:
    Descriptor directory_;
    uid_t owner_ = sameOwner;
    mode_t inheritedMode_ = 0;
};

/// Whether this is a directory for that owner whose making was interrupted.
[[nodiscard]] bool isUnfinishedDirectory(const struct stat& status, uid_t owner);
