#pragma once

#include <deque>
#include <fcntl.h>
#include <string>
#include <sys/types.h>
#include <unistd.h>

#include "fsutil/Descriptor.h"
#include "fsutil/DirectoryReader.h"
#include "fsutil/ParkedLevels.h"

/// The flags with which the walks open a directory.
constexpr int directoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

/// What a walk does to the tree it goes through. The functions act on one path and return 0, or
/// -1 with `errno`; the walk turns -1 into the fatal report that the action's words begin.
class TreeAction
{
public:
    /// How the report of a failed step begins; the entry's name and the error follow.
    struct Words {
        const char* top;       ///< the path itself, when it is no directory
        const char* entry;     ///< an entry of a directory that is no directory
        const char* directory; ///< a directory, after its contents
    };

    explicit TreeAction(const Words& words) : words_(words) {}
    virtual ~TreeAction() = default;
    TreeAction(const TreeAction&) = delete;
    TreeAction& operator=(const TreeAction&) = delete;

    [[nodiscard]] const Words& words() const noexcept { return words_; }

    /// Opens a directory to walk through it, without following its name.
    /// @return the directory, or none with `errno`. Where the walk empties: EBUSY if it must be
    /// left
    ///         alone, which ends the walk in the words for directories, ENOENT if there is nothing
    ///         left to be done.
    virtual Descriptor openDirectory(int parent, const char* name);

    /// Acts on an entry that is no directory, without following it.
    /// @param type its file type, one of the S_IF values.
    virtual int actOnEntry(int directory, const char* name, mode_t type) = 0;

    /// Acts on a directory whose contents are done, through its own descriptor: whatever its name
    /// means by now, no other directory is changed in its stead. For that the directory must still
    /// be open, so that one whose closing fails is changed already.
    virtual int actOnOpenDirectory(int directory);

    /// Acts on a directory whose contents are done and which has been closed.
    virtual int actOnClosedDirectory(int parent, const char* name);

    /// Whether everything that a directory held is gone once the walk has passed it; reading it
    /// again then starts at its beginning.
    [[nodiscard]] virtual bool empties() const noexcept { return false; }

private:
    Words words_;
};

/// One depth-first walk, contents before the directory itself, that applies an action.
///
/// Every failure ends the process through the fatal logger with status 1, in the words of the
/// step that failed and with the entry's bare name; what was changed before stays changed. Two
/// things are no failure: an entry that has vanished before its turn, and a directory that stops
/// giving entries, which counts as its end.
///
/// Nothing is ever followed: a directory is opened by its bare name without following a link and
/// worked on through that descriptor. An entry that the owner of the tree exchanges before its turn
/// makes its step fail, or is itself what the step acts on: a link that took a file's name gets the
/// owner meant for the file, its target does not. The walk holds at most half of the descriptors
/// open that the process may have. Deeper down it closes the shallowest directories, and comes back
/// to those through "..", going on only in a directory of the same device and inode as the one it
/// left.
///
/// Entering a directory takes the right to search it. Root has that everywhere; on behalf of others
/// the walk changes into each directory, so that what they may not search is not walked.
class TreeWalk
{
public:
    explicit TreeWalk(TreeAction& action);

    /// Walks the contents of an open directory and gives its descriptor back for the step on the
    /// directory itself. The current directory is left anywhere inside the tree.
    /// @param name how reports call the directory.
    Descriptor walk(Descriptor top, const char* name);

private:
    struct Level {
        Descriptor directory;
        std::string name;
        DirectoryReader reader;
    };

    void enter(Descriptor directory, std::string name, DirectoryReader::End end);
    Descriptor open(const char* name);
    int act(const char* name, mode_t type);
    bool makeRoom();
    void visit(const dirent64& entry);
    void visitDirectory(const dirent64& entry, bool looked);
    void leave();
    void findPlace(Level& level, off64_t position, const std::string& name) const;
    void moveUp() const;
    void finish(Level level);
    void enterAgain(const Level& left);
    void parkShallowest();
    void reopenParent(const Level& child);
    void failOpening(const char* name, bool looked) const;
    void failEntry(const char* words, const char* name, bool looked) const;

    TreeAction& action_;
    size_t mostOpen_;
    const bool changesDirectory_ = geteuid() != 0;
    ParkedLevels parked_;
    std::deque<Level> open_;
};

/// Ends the process with "<words> <name>: <text of errno>\n" through the fatal logger.
[[noreturn]] void failTreeStep(const char* words, const char* name);

/// Ends the process with "<words>: <text of errno>\n" through the fatal logger.
[[noreturn]] void failTreeStep(const char* words);
