#pragma once

#include <string>

/// Makes a directory that holds a chain of directories named "d", this many levels deep, each
/// with the given number of files beside the next level and of small directories before and
/// behind it in the order of making.
void makeDeepTree(const std::string& path, int levels, int filesPerLevel, int twigsPerLevel);

/// Goes down the chain that makeDeepTree() made and counts the levels at which every entry
/// and the level itself belong to the owner and have the mode for their kind.
int levelsWith(const std::string& path, unsigned owner, unsigned fileMode, unsigned directoryMode);

/// Makes about 20,000 files in 500 directories with names of every kind (blanks, newlines, UTF-8,
/// bytes that are no text, leading dashes, 255 characters), and pipes, sockets, devices and links
/// to everything among them.
void makeLargeTree(const std::string& path);

/// What makeLargeTree() made: the number of entries by kind.
struct TreeCount {
    size_t files = 0;
    size_t directories = 0; ///< below the top
    size_t others = 0;
};

/// Counts the entries of a tree whose access is as given ("0640 site:kvocln"); entries that are
/// neither file nor directory count where their owner is root.
TreeCount countTree(
    const std::string& path, const std::string& fileAccess, const std::string& directoryAccess);
