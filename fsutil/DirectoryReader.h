#pragma once

#include <dirent.h>
#include <memory>
#include <string>

/// Reads the entries of an open directory through a buffer of fixed size, so that neither memory
/// nor descriptors grow with the directory. The buffer is there only between the first entry and
/// the last. Unlike readdir(3) it needs no stream of its own and can go on behind a known entry
/// after the directory was closed and opened again.
class DirectoryReader
{
public:
    /// When a directory counts as read to its end.
    enum class End {
        certain, ///< when a read returns nothing
        likely,  ///< already when a read leaves room for more; saves a call and may be wrong
    };

    explicit DirectoryReader(End end = End::certain) : trusted_(end) {}

    /// The next entry, valid until the next call of any function; null at the end. A failed read
    /// counts as the end of the directory.
    const dirent64* next(int directory);

    /// Looks for entries behind the last one returned, if that takes a read, so that ended() tells
    /// whether there are any.
    void readAhead(int directory);

    /// Whether nothing is left to return.
    [[nodiscard]] bool ended() const noexcept { return ended_ && at_ == end_; }

    /// Whether the end was taken for granted and not seen.
    [[nodiscard]] bool endIsLikely() const noexcept { return likely_; }

    /// Where the entry behind the last one returned stands, for goOnBehind().
    [[nodiscard]] off64_t position() const noexcept { return position_; }

    /// Goes on in a directory opened anew, behind an entry returned before, given by its name and
    /// the position() behind it. A position may stand for several entries in a row; of these, the
    /// ones up to the named entry are passed over.
    /// @return 0, or -1 with `errno`.
    int goOnBehind(int directory, off64_t position, const std::string& name);

    /// Gives the buffer up. If there was something left to return, that is isResting() until
    /// goOnBehind() or startAgain() finds it again.
    void rest();

    [[nodiscard]] bool isResting() const noexcept { return resting_; }

    /// Reads the directory from its beginning, for those who empty it.
    /// @return 0, or -1 with `errno`.
    int startAgain(int directory) { return startAt(directory, 0); }

    /// Becomes a reader that has come to its end, seen or taken for granted.
    void endHere(bool likely) noexcept
    {
        ended_ = true;
        likely_ = likely;
    }

private:
    bool fill(int directory);
    int startAt(int directory, off64_t position);

    std::unique_ptr<char[]> buffer_;
    size_t at_ = 0;
    size_t end_ = 0;
    off64_t position_ = 0;
    End trusted_;
    bool ended_ = false;
    bool likely_ = false;
    bool resting_ = false;
};
