#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <sys/types.h>

#include "fsutil/Descriptor.h"

/// @file
/// Opening what a path names without letting a site's user choose what that is.
///
/// A symbolic link anywhere on the way, at its end and in the target of another link too, counts
/// only if it belongs to root or to the process's own user; anybody else's is ELOOP. Names are
/// looked up one by one, each in the directory that was found for the one before, wherever that
/// directory is by now. Forty links may lie on a way, as with the kernel.

/// Whether the links of an owner are followed.
[[nodiscard]] bool isTrusted(uid_t owner);

/// The flags that hold a directory for looking things up in it and nothing else.
extern const int heldDirectory;

/// Opens what a path names, as open(2) with O_CLOEXEC does but for the links.
/// @param path  relative to the current directory unless it begins with a slash. ".." goes back to
///              the directory that the way came through.
/// @param flags of open(2); with O_PATH nothing but O_DIRECTORY may stand beside it.
/// @return a descriptor, or none with `errno`.
[[nodiscard]] Descriptor openTrusted(const char* path, int flags);

/// The same for one name in an open directory (or AT_FDCWD).
[[nodiscard]] Descriptor openTrustedAt(int directory, const char* name, int flags);

/// A way through directories, one name after the other.
class TrustedWay
{
public:
    /// What ".." does where the way began.
    enum class Above {
        refused, ///< EPERM: what begins in a directory stays below it
        asked,   ///< the system knows the parent
    };

    /// @param start     the first directory; a way that has none is at its end already.
    /// @param stepsBack how often ".." will come. So many directories on the way are held: asking
    ///                  the system for ".." would ask where a directory is now, and somebody may
    ///                  have moved it elsewhere.
    TrustedWay(Descriptor start, Above above, size_t stepsBack);

    /// How often ".." is among the names of a path.
    [[nodiscard]] static size_t stepsBack(std::string_view path);

    [[nodiscard]] bool isOpen() const { return static_cast<bool>(directories_.back()); }

    /// The directory reached; -1 if there is none.
    [[nodiscard]] int here() const { return directories_.back().get(); }

    /// Goes on to the directory of this name ("." and ".." included); without it the way is no
    /// longer open, and `errno` tells why.
    void take(const std::string& name);

    /// Goes on to a directory that is held already.
    void enter(Descriptor next);

    /// Opens a name in the directory reached, without going there.
    [[nodiscard]] Descriptor openHere(const char* name, int flags);

    /// Gives the directory reached away.
    [[nodiscard]] Descriptor end() { return std::move(directories_.back()); }

private:
    void back();

    Above above_;
    size_t stepsBack_;
    int linksLeft_;
    std::deque<Descriptor> directories_; ///< never empty
};
