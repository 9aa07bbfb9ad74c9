#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include "fsutil/Descriptor.h"

/// @file
/// Opening what a path names without letting a site's user choose what that is.
///
/// A symbolic link anywhere on the way, at its end and in the target of another link too, counts
/// only if it belongs to root or to the process's own user; anybody else's is ELOOP. Names are
/// looked up one by one, each in the directory that was found for the one before, wherever that
/// directory is by now, and ".." goes back to the directory that the way came through; ESTALE if a
/// link leads back so far that this is not held any more, and somebody has moved what is in it.
/// Otherwise this is the kernel's way to read a path, with its limit of forty links.
///
/// The road to the virtual-hosts root, and to what a TrustedPlace names, is the administrator's and
/// taken as it is.

/// Whether the links of an owner are followed.
[[nodiscard]] bool isTrusted(uid_t owner);

/// Opens a name in a directory, as openat(2) with O_NOFOLLOW and O_CLOEXEC does, but never a link
/// itself, which O_PATH alone would allow.
/// @return a descriptor, or none with `errno`: ELOOP from a link, or ENOTDIR with O_DIRECTORY. What
///         cannot be examined may be a link, and is not given either.
[[nodiscard]] Descriptor openUnlessLink(int directory, const char* name, int flags);

/// The flags that hold a directory for looking things up in it and nothing else.
extern const int heldDirectory;

/// Opens what a path names, as open(2) with O_CLOEXEC does but for the links.
/// @param path  relative to the current directory unless it begins with a slash.
/// @param flags of open(2); with O_PATH nothing but O_DIRECTORY may stand beside it.
/// @return a descriptor, or none with `errno`.
[[nodiscard]] Descriptor openTrusted(const char* path, int flags);

/// As long as it lives, the links on the road to this path are followed whoever they belong to.
class TrustedPlace
{
public:
    explicit TrustedPlace(std::string path);
    TrustedPlace(const TrustedPlace&) = delete;
    TrustedPlace& operator=(const TrustedPlace&) = delete;
    ~TrustedPlace();
};

/// A way through directories, one name after the other.
class TrustedWay
{
public:
    /// Begins where a path begins, for going through its names: at the root or in the current
    /// directory, or behind the road that is taken as it is.
    explicit TrustedWay(std::string_view path);

    /// The names of the path that are still to be gone through.
    [[nodiscard]] std::string_view rest() const { return rest_; }

    /// Whether the way could begin; else `errno` tells why not.
    [[nodiscard]] bool isOpen() const { return !way_.directories.empty(); }

    /// The directory reached.
    [[nodiscard]] int here() const { return way_.directories.back()->get(); }

    /// Goes on to the directory that a name ("." and ".." included) leads to. Without success the
    /// way is where it was, and `errno` tells why.
    [[nodiscard]] bool take(const std::string& name);

    /// Goes on to a directory that is held already.
    void enter(Descriptor next);

    /// Goes on through all names but the last and opens that; the way ends there.
    [[nodiscard]] Descriptor open(std::string_view names, int flags);

    /// Whether as many links were followed as may be on one way: that the next one is ELOOP, as it
    /// is to the system, says nothing about its owner.
    [[nodiscard]] bool hasFollowedAllLinks() const { return linksLeft_ == 0; }

private:
    /// So many directories behind the one reached are held at least, to go back to them. Those
    /// further behind are only known again.
    static constexpr size_t leastHeld = 32;

    struct Identity {
        dev_t device;
        ino_t inode;
        bool operator==(const Identity&) const = default;
    };

    struct Directories {
        std::vector<std::optional<Identity>> behind; ///< those that are not held any more
        std::deque<std::shared_ptr<const Descriptor>> directories;
    };

    bool follow(std::string names, Directories& way, int flags, Descriptor* last);
    bool expand(const std::string& name, std::string& names, Directories& way);
    void push(Directories& way, Descriptor next) const;
    static bool goBack(Directories& way);
    static std::optional<Identity> identityOf(const Descriptor& directory);

    std::string_view rest_;
    size_t mostHeld_;
    int linksLeft_;
    Directories way_;
};
