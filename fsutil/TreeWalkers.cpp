#include "fsutil/TreeWalkers.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fsutil/ChmodNoFollow.h"
#include "fsutil/Descriptor.h"
#include "fsutil/PinnedPath.h"
#include "fsutil/TreeWalk.h"

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
        return S_ISREG(type) ? fchownat(directory, name, owner_, group_, AT_SYMLINK_NOFOLLOW) : 0;
    }

    int actOnOpenDirectory(int directory) override { return fchown(directory, owner_, group_); }

private:
    uid_t owner_;
    gid_t group_;
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

class Remove final : public TreeAction
{
public:
    Remove()
        : TreeAction({"Unable to unlink entry", "Unable to unlink directory entry",
              "Unable to remove dir"})
    {
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

void walkDirectory(const PinnedPath& pinned, const char* path, TreeAction& action, bool includeTop)
{
    CurrentDirectory current;
    Descriptor top = pinned.open(directoryFlags);
    if (!top) {
        failTreeStep("Unable to open dir", path);
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
