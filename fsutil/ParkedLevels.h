#pragma once

#include <deque>
#include <string>
#include <sys/types.h>

/// The directories of a deep walk that are not held open, from the top of the tree down: for each
/// its name, its identity, by which it is recognised when the walk comes back, and the place to
/// read on from. A few dozen bytes a level, whatever the directories hold.
class ParkedLevels
{
public:
    struct Level {
        dev_t device;
        ino_t inode;
        off64_t position;
        bool ended;       ///< nothing is left to read,
        bool endIsLikely; ///< as far as can be told
    };

    [[nodiscard]] bool empty() const noexcept { return levels_.empty(); }
    [[nodiscard]] size_t size() const noexcept { return levels_.size(); }

    void push(const Level& level, const std::string& name);

    /// Takes the deepest level and its name out.
    Level pop(std::string& name);

private:
    struct Entry {
        Level level;
        size_t nameLength;
    };

    std::deque<Entry> levels_;
    std::string names_; ///< all names, one behind the other
};
