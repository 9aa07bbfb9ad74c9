#pragma once

#include <string>
#include <string_view>
#include <sys/types.h>

/// @file
/// Builders and readers of real files. Every builder fails the test program at once when the file
/// cannot be made as asked: a test must never run on a world other than the one it describes.

/// Owner, group and mode of a path to be made.
struct Access {
    mode_t mode = 0;
    uid_t owner = 0;
    gid_t group = 0;
};

void makeDir(const std::string& path, Access access = {0755});
void makeDirs(const std::string& path); ///< with missing parents, root:root 0755
void makeFile(const std::string& path, std::string_view content, Access access = {0644});
void makeLink(const std::string& path, const std::string& target);
void makeFifo(const std::string& path, Access access = {0600});
void makeSocket(const std::string& path, Access access = {0600});
void makeDevice(const std::string& path, Access access = {0600}); ///< a twin of /dev/null

std::string contentOf(const std::string& path);

/// "0755 site:kvoserv" of the path itself; links are not followed.
std::string accessOf(const std::string& path);

/// One line per path of a tree, sorted, the top as ".":
///     dir  0755 root:root .
///     file 0644 root:kvocln conf/site.conf "name = example.test\n"
///     link root:root conf/current -> site.conf
/// with fifo, sock, char and block like dir; odd bytes in names and content are escaped; longer
/// content is shown as its size and a checksum. Returns "" when nothing is there.
std::string treeOf(const std::string& path);

bool exists(const std::string& path); ///< links are not followed
