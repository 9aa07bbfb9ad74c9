#include "tests/lib/LargeTree.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "tests/lib/Files.h"

namespace
{

void require(bool done, const char* what)
{
    if (!done) {
        std::perror(what);
        std::abort();
    }
}

void makeEmptyFile(int directory, const std::string& name)
{
    const int file = openat(directory, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    require(file >= 0, "openat");
    close(file);
}

void makeTwigs(int directory, const char* prefix, int count)
{
    for (int i = 0; i < count; ++i) {
        const std::string name = prefix + std::to_string(i);
        require(mkdirat(directory, name.c_str(), 0755) == 0, "mkdirat");
        makeEmptyFile(directory, name + "/file");
    }
}

bool hasAccess(
    int directory, const char* name, unsigned owner, unsigned fileMode, unsigned directoryMode)
{
    struct stat status = {};
    require(fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) == 0, "fstatat");
    const unsigned mode = S_ISDIR(status.st_mode) ? directoryMode : fileMode;
    return status.st_uid == owner && (status.st_mode & 07777U) == mode;
}

/// Whether every entry of a directory has the access; twigs are looked into. Keeps the descriptor.
bool allHaveAccess(int directory, unsigned owner, unsigned fileMode, unsigned directoryMode)
{
    const int again = openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* stream = fdopendir(again);
    require(stream != nullptr, "fdopendir");
    bool all = true;
    while (const dirent* entry = readdir(stream)) {
        const std::string name = entry->d_name;
        if (name == "..") {
            continue;
        }
        all = all && hasAccess(directory, name.c_str(), owner, fileMode, directoryMode);
        if (name.size() > 1 && entry->d_type == DT_DIR) {
            all = all &&
                  hasAccess(directory, (name + "/file").c_str(), owner, fileMode, directoryMode);
        }
    }
    closedir(stream);
    return all;
}

const std::vector<std::string>& oddNames()
{
    static const std::vector<std::string> names{" ", "with blanks in it", "new\nline", "tab\there",
        "\xc3\xa4\xc3\xb6\xe2\x82\xac", "\xff\xfe\x80", "-rf", "--", "*", "~", "$HOME", "`id`",
        "quote'\"", "back\\slash", "%s%n", "...", ".hidden", std::string(255, 'n')};
    return names;
}

void makeOthers(const std::string& directory)
{
    makeFifo(directory + "/fifo");
    makeSocket(directory + "/socket");
    makeDevice(directory + "/device");
    makeLink(directory + "/link to a file", "file 1");
    makeLink(directory + "/link to a directory", "..");
    makeLink(directory + "/link to a fifo", "fifo");
    makeLink(directory + "/link out", "/etc/passwd");
    makeLink(directory + "/link to nothing", "nothing");
    makeLink(directory + "/link to itself", "link to itself");
}

} // namespace

void makeDeepTree(const std::string& path, int levels, int filesPerLevel, int twigsPerLevel)
{
    makeDir(path);
    int directory = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int level = 0; level < levels; ++level) {
        makeTwigs(directory, "before", twigsPerLevel);
        require(mkdirat(directory, "d", 0755) == 0, "mkdirat");
        makeTwigs(directory, "after", twigsPerLevel);
        for (int i = 0; i < filesPerLevel; ++i) {
            makeEmptyFile(directory, "file" + std::to_string(i));
        }
        const int next = openat(directory, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        require(next >= 0, "openat");
        close(directory);
        directory = next;
    }
    close(directory);
}

int levelsWith(const std::string& path, unsigned owner, unsigned fileMode, unsigned directoryMode)
{
    int count = 0;
    int directory = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    while (directory >= 0) {
        count += allHaveAccess(directory, owner, fileMode, directoryMode) ? 1 : 0;
        const int next = openat(directory, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        close(directory);
        directory = next;
    }
    return count;
}

void makeLargeTree(const std::string& path)
{
    constexpr int directories = 500;
    constexpr int filesEach = 40;
    makeDir(path);
    std::vector<std::string> parents{path};
    for (int i = 0; i < directories; ++i) {
        const auto& odd = oddNames()[static_cast<size_t>(i) % oddNames().size()];
        const std::string directory =
            parents[static_cast<size_t>(i) / 3] + '/' + odd.substr(0, 40) + std::to_string(i);
        makeDir(directory);
        parents.push_back(directory);
        const int held = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        for (const std::string& name : oddNames()) {
            makeEmptyFile(held, name);
        }
        for (int file = static_cast<int>(oddNames().size()); file < filesEach; ++file) {
            makeEmptyFile(held, "file " + std::to_string(file));
        }
        close(held);
        if (i % 10 == 0) {
            makeOthers(directory);
        }
    }
}

TreeCount countTree(
    const std::string& path, const std::string& fileAccess, const std::string& directoryAccess)
{
    TreeCount count;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
        const std::string access = accessOf(entry.path().string());
        switch (entry.symlink_status().type()) {
        case std::filesystem::file_type::regular:
            count.files += access == fileAccess ? 1 : 0;
            break;
        case std::filesystem::file_type::directory:
            count.directories += access == directoryAccess ? 1 : 0;
            break;
        default:
            count.others += access.ends_with(" root:root") ? 1 : 0;
        }
    }
    return count;
}
