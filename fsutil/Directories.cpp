#include "fsutil/Directories.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "conf/Allocation.h"
#include "conf/FatalLogger.h"
#include "conf/FreeDeleter.h"
#include "fsutil/Descriptor.h"
#include "fsutil/HeldFile.h"
#include "fsutil/NewDirectory.h"
#include "fsutil/PinnedPath.h"
#include "fsutil/TrustedPath.h"

namespace
{

using DirectoryName = char[4096];

/// The name of the directory the process is in, "" if it cannot be told.
void currentName(DirectoryName& name)
{
    if (getcwd(name, sizeof name) == nullptr) {
        name[0] = '\0';
    }
}

/// The directory that the process is in, noted twice: the name may lead elsewhere when it is time
/// to return, and the descriptor may be refused.
class CurrentDirectory
{
public:
    CurrentDirectory() : here_(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)) { currentName(name_); }
    ~CurrentDirectory()
    {
        if (!here_ || fchdir(here_.get()) != 0) {
            [[maybe_unused]] const int unchecked = chdir(name_);
        }
    }
    CurrentDirectory(const CurrentDirectory&) = delete;
    CurrentDirectory& operator=(const CurrentDirectory&) = delete;

private:
    Descriptor here_;
    DirectoryName name_ = {};
};

bool isDirectory(const char* path)
{
    struct stat status = {};
    return lstat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

/// Enters the directory, stays there and tells its name. One that cannot be entered goes by the
/// name of the directory the process is in.
void enterAndName(const char* path, DirectoryName& name)
{
    [[maybe_unused]] const int unchecked = chdir(path);
    currentName(name);
}

/// stat(2) of a path: a link at its end is looked through, whoever it belongs to. Only the road to
/// it must be one that can be trusted.
int lookThrough(const PinnedPath& pinned, struct stat& status)
{
    return pinned.reached() ? fstatat(pinned.directory(), pinned.name(), &status, 0) : -1;
}

/// Whether looking at a path says if there is something. A road that must not be taken, or for
/// which resources are lacking, is no sign that there is nothing at its end.
bool leadsSomewhere(const PinnedPath& pinned)
{
    return pinned.reached() || errno == ENOENT || errno == ENOTDIR || errno == EACCES ||
           errno == ENAMETOOLONG;
}

int failToRename(const char* oldPath, const char* newPath)
{
    fatalLogger(0, 1, "Remaming %s to %s failed: %s\n", oldPath, newPath, std::strerror(errno));
    return -1;
}

/// The mode that mkdir(2) would give.
mode_t cutByUmask(mode_t mode)
{
    const mode_t mask = umask(0);
    umask(mask);
    return mode & (S_ISVTX | (0777 & ~mask));
}

struct Access {
    uid_t owner;
    gid_t group;
    mode_t mode;
};

[[noreturn]] void failToCreate(const char* path)
{
    fatalLogger(1, 1, "Cannot create directory %s: %s", path, std::strerror(errno));
    std::abort(); // never reached: the report ended the process
}

/// One level of a directory path, which must not lead to another place once its owner has got it:
/// it is given back held. None: something stands there already.
Descriptor makeLevel(const char* path, int parent, const char* name, const Access& access)
{
    NewDirectory made(parent, name, access.owner);
    if (!made) {
        if (errno != EEXIST) {
            failToCreate(path);
        }
        return {};
    }
    if (made.giveOwner(access.group) != 0) {
        fatalLogger(0, 1, "Cannot chown %s: %s", path, std::strerror(errno));
    }
    if (made.giveMode(cutByUmask(access.mode) | made.inheritedMode()) != 0) {
        failToCreate(path);
    }
    return made.release();
}

/// Makes the levels of a path from the outermost inwards, in a loop: there may be thousands.
class PathMaker
{
public:
    /// @param path is cut while the maker works, but not yet.
    PathMaker(const char* path, const Access& access) : path_(path), access_(access), way_(path) {}

    /// What is taken as it is exists already.
    [[nodiscard]] size_t lengthOfBeginning() const
    {
        return std::strlen(path_) - way_.rest().size();
    }

    /// @param name the last component of the path as it is cut at the moment.
    void make(const char* name, mode_t mode)
    {
        if (std::strlen(path_) >= PATH_MAX) {
            errno = ENAMETOOLONG;
            failToCreate(path_);
        }
        // What the level before has found there needs to be a directory only now.
        if (!way_.isOpen() || (!found_.empty() && !way_.take(found_))) {
            failToCreate(path_);
        }
        found_.clear();
        Descriptor made = makeLevel(path_, way_.here(), name, {access_.owner, access_.group, mode});
        if (made) {
            way_.enter(std::move(made));
        } else {
            found_ = name;
        }
    }

private:
    const char* path_;
    Access access_;
    TrustedWay way_;
    std::string found_;
};

} // namespace

int makeDirectory(const char* path, uid_t owner, gid_t group, mode_t mode)
{
    errno = 0;
    const PinnedPath pinned(path);
    if (!pinned.reached() ||
        (mkdirat(pinned.directory(), pinned.name(), mode) != 0 && errno != EEXIST)) {
        fatalLogger(0, 1, "ERROR: Unable to mkdir %s: %s\n", path, std::strerror(errno));
        return -1;
    }
    const Descriptor made = pinned.openTrusted(O_PATH);
    if (!made && errno == ENOENT) {
        return 0;
    }
    if (!made || changeOwnerOfHeld(made.get(), owner, group) != 0) {
        fatalLogger(0, 1, "ERROR: Unable to chown %s: %s\n", path, std::strerror(errno));
        return -1;
    }
    if (changeModeOfHeld(made.get(), mode) != 0) {
        fatalLogger(0, 1, "ERROR: Unable to chmod %s: %s\n", path, std::strerror(errno));
        return -1;
    }
    return 0;
}

int makeDirectoryPath(char* path, uid_t owner, gid_t group, mode_t mode)
{
    PathMaker maker(path, {owner, group, mode});
    if (*path == '\0') {
        maker.make(path, mode);
    }
    for (char* name = path + maker.lengthOfBeginning(); *name != '\0';) {
        char* slash = std::strchr(name, '/');
        if (slash == nullptr) {
            maker.make(name, mode);
            break;
        }
        *slash = '\0';
        if (*name != '\0') {
            maker.make(name, mode & 0777U);
        }
        *slash = '/';
        name = slash + 1;
    }
    return 0;
}

int makeDirectoryPathCopy(const char* path, uid_t owner, gid_t group, mode_t mode)
{
    const CString copy(allocatingFormatter("%s", path));
    return makeDirectoryPath(copy.get(), owner, group, mode);
}

int renameDirectory(const char* oldPath, const char* newPath)
{
    const PinnedPath from(oldPath);
    if (!leadsSomewhere(from)) {
        return failToRename(oldPath, newPath);
    }
    struct stat status = {};
    if (lookThrough(from, status) != 0) {
        return 0;
    }
    const PinnedPath to(newPath);
    if (lookThrough(to, status) == 0) {
        fatalLogger(0, 1, "Directory rename error: target directory %s already exists.\n", newPath);
        return -1;
    }
    if (!to.reached() || renameat(from.directory(), from.name(), to.directory(), to.name()) != 0) {
        return failToRename(oldPath, newPath);
    }
    return 0;
}

int isSubdirectory(const char* path, const char* parent)
{
    if (!isDirectory(path) || !isDirectory(parent)) {
        return 0;
    }
    DirectoryName pathName = {};
    DirectoryName parentName = {};
    {
        const CurrentDirectory comeBack;
        enterAndName(path, pathName);
        enterAndName(parent, parentName);
    }
    const std::string_view below(pathName);
    const std::string_view above(parentName);
    return !above.empty() && below.starts_with(above) && below.substr(above.size()).starts_with('/')
               ? 1
               : 0;
}
