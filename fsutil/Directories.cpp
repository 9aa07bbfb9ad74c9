#include "fsutil/Directories.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "conf/Allocation.h"
#include "conf/FatalLogger.h"
#include "conf/FreeDeleter.h"
#include "fsutil/Descriptor.h"

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

/// One level of a directory path.
void makeLevel(const char* path, uid_t owner, gid_t group, mode_t mode)
{
    if (mkdir(path, mode) != 0) {
        if (errno != EEXIST) {
            fatalLogger(1, 1, "Cannot create directory %s: %s", path, std::strerror(errno));
        }
        return;
    }
    if (chown(path, owner, group) != 0) {
        fatalLogger(0, 1, "Cannot chown %s: %s", path, std::strerror(errno));
    }
}

} // namespace

int makeDirectory(const char* path, uid_t owner, gid_t group, mode_t mode)
{
    errno = 0;
    if (mkdir(path, mode) != 0 && errno != EEXIST) {
        fatalLogger(0, 1, "ERROR: Unable to mkdir %s: %s\n", path, std::strerror(errno));
        return -1;
    }
    if (chown(path, owner, group) != 0 && errno != ENOENT) {
        fatalLogger(0, 1, "ERROR: Unable to chown %s: %s\n", path, std::strerror(errno));
        return -1;
    }
    if (chmod(path, mode) != 0 && errno != ENOENT) {
        fatalLogger(0, 1, "ERROR: Unable to chmod %s: %s\n", path, std::strerror(errno));
        return -1;
    }
    return 0;
}

int makeDirectoryPath(char* path, uid_t owner, gid_t group, mode_t mode)
{
    // From the outermost parent inwards, in a loop: a path may have thousands of levels.
    char* slash = *path != '\0' ? std::strchr(path + 1, '/') : nullptr;
    for (; slash != nullptr; slash = std::strchr(slash + 1, '/')) {
        *slash = '\0';
        makeLevel(path, owner, group, mode & 0777U);
        *slash = '/';
    }
    makeLevel(path, owner, group, mode);
    return 0;
}

int makeDirectoryPathCopy(const char* path, uid_t owner, gid_t group, mode_t mode)
{
    const CString copy(allocatingFormatter("%s", path));
    return makeDirectoryPath(copy.get(), owner, group, mode);
}

int renameDirectory(const char* oldPath, const char* newPath)
{
    struct stat status = {};
    if (stat(oldPath, &status) != 0) {
        return 0;
    }
    if (stat(newPath, &status) == 0) {
        fatalLogger(0, 1, "Directory rename error: target directory %s already exists.\n", newPath);
        return -1;
    }
    if (rename(oldPath, newPath) != 0) {
        fatalLogger(0, 1, "Remaming %s to %s failed: %s\n", oldPath, newPath, std::strerror(errno));
        return -1;
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
