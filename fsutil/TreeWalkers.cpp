#include "fsutil/TreeWalkers.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/openat2.h>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "fsutil/ChmodNoFollow.h"
#include "fsutil/Descriptor.h"
#include "fsutil/HeldFile.h"
#include "fsutil/MountPoint.h"
#include "fsutil/OpenAt2.h"
#include "fsutil/PathNames.h"
#include "fsutil/PinnedPath.h"
#include "fsutil/TreeWalk.h"
#include "fsutil/TrustedPath.h"

namespace
{

class ChangeOwner final : public TreeAction
{
public:
    ChangeOwner(uid_t owner, gid_t group)
        : TreeAction({"Unable to chown directory entry", "Unable to chown directory entry",
              "Unable to chown dir"}),
          owner_(owner), group_(group)
    {
    }

    int actOnEntry(int directory, const char* name, mode_t type) override
    {
        if (!S_ISREG(type)) {
            return 0;
        }
        return makesTrusted_ ? changeIfFile(directory, name)
                             : fchownat(directory, name, owner_, group_, AT_SYMLINK_NOFOLLOW);
    }

    int actOnOpenDirectory(int directory) override { return fchown(directory, owner_, group_); }

private:
    /// A link that has taken the file's name meanwhile must not get an owner whose links are
    /// followed: whoever placed it would have made one of root's.
    int changeIfFile(int directory, const char* name) const
    {
        const Descriptor file(openat(directory, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
        struct stat status = {};
        if (!file || fstat(file.get(), &status) != 0) {
            return -1;
        }
        return S_ISREG(status.st_mode) ? changeOwnerOfHeld(file.get(), owner_, group_) : 0;
    }

    uid_t owner_;
    gid_t group_;
    bool makesTrusted_ = isTrusted(owner_);
};

class ChangeMode final : public TreeAction
{
public:
    ChangeMode(mode_t fileMode, mode_t directoryMode)
        : TreeAction(
              {"Unable to chmod entry", "Unable to chmod directory entry", "Unable to chmod dir"}),
          fileMode_(fileMode), directoryMode_(directoryMode)
    {
    }

    int actOnEntry(int directory, const char* name, mode_t type) override
    {
        return S_ISREG(type) ? chmodNoFollow(directory, name, fileMode_) : 0;
    }

    int actOnOpenDirectory(int directory) override { return fchmod(directory, directoryMode_); }

private:
    mode_t fileMode_;
    mode_t directoryMode_;
};

/// Whether rmdir(2) failed because of what the directory holds. Nothing is mounted on it then: that
/// would have been refused before.
bool tellsOfEntries(int error)
{
    return error == ENOTEMPTY || error == EEXIST;
}

class Remove final : public TreeAction
{
public:
    Remove()
        : TreeAction({"Unable to unlink entry", "Unable to unlink directory entry",
              "Unable to remove dir"})
    {
    }

    Descriptor openDirectory(int parent, const char* name) override
    {
        open_how how = {};
        how.flags = directoryFlags;
        how.resolve = RESOLVE_NO_XDEV;
        Descriptor directory(openAt2(parent, name, how));
        if (directory || errno != ENOSYS) {
            errno = !directory && errno == EXDEV ? EBUSY : errno;
            return directory;
        }
        return openUnlessMounted(parent, name);
    }

    int actOnEntry(int directory, const char* name, mode_t /*type*/) override
    {
        return goneAfter(unlinkat(directory, name, 0));
    }

    int actOnClosedDirectory(int parent, const char* name) override
    {
        return goneAfter(unlinkat(parent, name, AT_REMOVEDIR));
    }

    [[nodiscard]] bool empties() const noexcept override { return true; }

private:
    /// The way without openat2(2): rmdir(2) refuses a mount point before it looks for entries.
    static Descriptor openUnlessMounted(int parent, const char* name)
    {
        if (unlinkat(parent, name, AT_REMOVEDIR) == 0) {
            errno = ENOENT;
            return {};
        }
        const int error = errno;
        Descriptor directory(error != EBUSY ? openat(parent, name, directoryFlags) : -1);
        if (directory && !tellsOfEntries(error)) {
            // Refused for another reason, which may have come first: a parent on a read-only mount.
            const std::optional<bool> mounted = isMountPoint(directory.get());
            if (mounted.value_or(true)) {
                errno = mounted ? EBUSY : error;
                return {};
            }
        }
        return directory;
    }

    static int goneAfter(int result) { return result != 0 && errno == ENOENT ? 0 : result; }
};

/// The current directory, to come back to whatever its name has become by then.
class CurrentDirectory
{
public:
    CurrentDirectory() : directory_(open(".", O_RDONLY | O_NONBLOCK | O_CLOEXEC))
    {
        if (!directory_) {
            failTreeStep("Unable to get file descriptor of current dir");
        }
    }

    void restoreAndClose()
    {
        const bool restored = fchdir(directory_.get()) == 0;
        const int error = errno;
        const bool closed = directory_.close() == 0;
        if (!restored) {
            errno = error;
        }
        if (!restored || !closed) {
            failTreeStep("Unable to restore & close current dir");
        }
    }

private:
    Descriptor directory_;
};

/// Whether a directory that has been opened must not be emptied, because something is mounted on
/// it or because nothing tells; `errno` is what the report is to say.
bool mustStay(int directory, const PinnedPath& pinned)
{
    if (const std::optional<bool> mounted = isMountPoint(directory)) {
        errno = EBUSY;
        return *mounted;
    }
    // An empty directory is removed by this, which is what was asked for.
    if (unlinkat(pinned.directory(), pinned.name(), AT_REMOVEDIR) == 0 || errno == ENOENT) {
        return false;
    }
    // Of ".." it always says that there are entries.
    std::string_view name = pinned.name();
    return takeName(name) == ".." || !tellsOfEntries(errno);
}

void walkDirectory(const PinnedPath& pinned, const char* path, TreeAction& action, bool includeTop)
{
    CurrentDirectory current;
    Descriptor top = pinned.open(directoryFlags);
    if (!top) {
        failTreeStep("Unable to open dir", path);
    }
    if (includeTop && action.empties() && mustStay(top.get(), pinned)) {
        failTreeStep(action.words().directory, path);
    }
    top = TreeWalk(action).walk(std::move(top), path);
    current.restoreAndClose();
    if (includeTop && action.actOnOpenDirectory(top.get()) != 0) {
        failTreeStep(action.words().directory, path);
    }
    if (top.close() != 0) {
        failTreeStep("Unable to close dir", path);
    }
    if (includeTop && action.actOnClosedDirectory(pinned.directory(), pinned.name()) != 0) {
        failTreeStep(action.words().directory, path);
    }
}

/// Applies an action to a path of any type. A path that does not exist is passed over if it may
/// be missing, and fatal otherwise.
void applyToTree(const char* path, TreeAction& action, bool mayBeMissing, bool includeTop)
{
    const PinnedPath pinned(path);
    struct stat status = {}; // what cannot be looked at is opened as a directory, and fails there
    if (pinned.look(status) != 0 && errno == ENOENT) {
        if (mayBeMissing) {
            return;
        }
        failTreeStep("Unable to get entry", path);
    }
    const mode_t type = status.st_mode & S_IFMT;
    if (!S_ISREG(type) && !S_ISLNK(type)) {
        walkDirectory(pinned, path, action, includeTop);
    } else if (action.actOnEntry(pinned.directory(), pinned.name(), type) != 0) {
        failTreeStep(action.words().top, path);
    }
}

} // namespace

void changeOwnerOfTree(const char* path, uid_t owner, gid_t group, int includeTop)
{
    ChangeOwner action(owner, group);
    applyToTree(path, action, false, includeTop != 0);
}

void changeModeOfTree(const char* path, mode_t fileMode, mode_t directoryMode, int includeTop)
{
    ChangeMode action(fileMode, directoryMode);
    applyToTree(path, action, false, includeTop != 0);
}

int changeOwnerAndModeOfTree(const char* path, uid_t owner, gid_t group, mode_t fileMode,
    mode_t directoryMode, int includeTop)
{
    changeOwnerOfTree(path, owner, group, includeTop);
    changeModeOfTree(path, fileMode, directoryMode, includeTop);
    return 0;
}

void removeTree(const char* path, int removeTop)
{
    Remove action;
    applyToTree(path, action, true, removeTop != 0);
}
