#include "tests/lib/Files.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <pwd.h>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace
{

void require(bool done, const char* what, const std::string& path)
{
    if (!done) {
        (void)std::fprintf(
            stderr, "building the world: %s %s: %s\n", what, path.c_str(), std::strerror(errno));
        std::abort();
    }
}

void applyAccess(const std::string& path, Access access)
{
    require(lchown(path.c_str(), access.owner, access.group) == 0, "chown", path);
    require(chmod(path.c_str(), access.mode) == 0, "chmod", path);
}

std::string escaped(std::string_view text)
{
    std::string result;
    for (const char character : text) {
        if (character == '\n') {
            result += "\\n";
        } else if (character == '\\' || character == '"') {
            result += {'\\', character};
        } else if (static_cast<unsigned char>(character) < 32 || character == 127) {
            char code[8];
            (void)std::snprintf(
                code, sizeof code, "\\x%02x", static_cast<unsigned char>(character));
            result += code;
        } else {
            result += character;
        }
    }
    return result;
}

std::string shown(const std::string& content)
{
    constexpr size_t longest = 200;
    if (content.size() <= longest) {
        return '"' + escaped(content) + '"';
    }
    unsigned long sum = 14695981039346656037UL;
    for (const char character : content) {
        sum = (sum ^ static_cast<unsigned char>(character)) * 1099511628211UL;
    }
    std::ostringstream text;
    text << content.size() << " bytes #" << std::hex << sum;
    return text.str();
}

std::string ownerName(uid_t uid)
{
    const passwd* entry = getpwuid(uid);
    return entry != nullptr ? entry->pw_name : std::to_string(uid);
}

std::string groupName(gid_t gid)
{
    const group* entry = getgrgid(gid);
    return entry != nullptr ? entry->gr_name : std::to_string(gid);
}

std::string ownership(const struct stat& status)
{
    return ownerName(status.st_uid) + ':' + groupName(status.st_gid);
}

std::string mode(const struct stat& status)
{
    char text[8];
    (void)std::snprintf(text, sizeof text, "%04o", status.st_mode & 07777U);
    return text;
}

const char* kind(const struct stat& status)
{
    switch (status.st_mode & S_IFMT) {
    case S_IFDIR:
        return "dir ";
    case S_IFREG:
        return "file";
    case S_IFLNK:
        return "link";
    case S_IFIFO:
        return "fifo";
    case S_IFSOCK:
        return "sock";
    case S_IFCHR:
        return "char";
    default:
        return "block";
    }
}

std::string lineOf(const std::string& path, const std::string& name)
{
    struct stat status = {};
    require(lstat(path.c_str(), &status) == 0, "lstat", path);
    std::string line = kind(status);
    if (S_ISLNK(status.st_mode)) {
        return line + ' ' + ownership(status) + ' ' + escaped(name) + " -> " +
               escaped(std::filesystem::read_symlink(path).string());
    }
    line += ' ' + mode(status) + ' ' + ownership(status) + ' ' + escaped(name);
    if (S_ISREG(status.st_mode)) {
        line += ' ' + shown(contentOf(path));
    }
    return line;
}

} // namespace

void makeDir(const std::string& path, Access access)
{
    require(mkdir(path.c_str(), 0700) == 0, "mkdir", path);
    applyAccess(path, access);
}

void makeDirs(const std::string& path)
{
    const size_t slash = path.rfind('/');
    if (slash != 0 && slash != std::string::npos && !exists(path.substr(0, slash))) {
        makeDirs(path.substr(0, slash));
    }
    if (!exists(path)) {
        makeDir(path);
    }
}

void makeFile(const std::string& path, std::string_view content, Access access)
{
    std::ofstream file(path, std::ios::binary);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    require(file.good(), "write", path);
    applyAccess(path, access);
}

void makeLink(const std::string& path, const std::string& target)
{
    require(symlink(target.c_str(), path.c_str()) == 0, "symlink", path);
}

void makeFifo(const std::string& path, Access access)
{
    require(mkfifo(path.c_str(), 0600) == 0, "mkfifo", path);
    applyAccess(path, access);
}

void makeSocket(const std::string& path, Access access)
{
    require(mknod(path.c_str(), S_IFSOCK | 0600, 0) == 0, "mknod", path);
    applyAccess(path, access);
}

void makeDevice(const std::string& path, Access access)
{
    require(mknod(path.c_str(), S_IFCHR | 0600, makedev(1, 3)) == 0, "mknod", path);
    applyAccess(path, access);
}

std::string contentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    if (file.peek() != std::ifstream::traits_type::eof()) {
        text << file.rdbuf();
    }
    return text.str();
}

std::string accessOf(const std::string& path)
{
    struct stat status = {};
    require(lstat(path.c_str(), &status) == 0, "lstat", path);
    return mode(status) + ' ' + ownership(status);
}

std::string treeOf(const std::string& path)
{
    if (!exists(path)) {
        return "";
    }
    std::set<std::string> names;
    if (std::filesystem::symlink_status(path).type() == std::filesystem::file_type::directory) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
            names.insert(entry.path().lexically_relative(path).string());
        }
    }
    std::string lines = lineOf(path, ".") + '\n';
    const std::string prefix = path + '/';
    for (const std::string& name : names) {
        lines.append(lineOf(prefix + name, name)).append("\n");
    }
    return lines;
}

bool exists(const std::string& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0;
}
