#include "fsutil/TreeWalk.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/resource.h>
#include <sys/stat.h>

#include "conf/FatalLogger.h"

namespace
{

constexpr const char* comingBack = "Unable to restore & close current dir";

/// The directories nearest to the walk whose buffers are kept. Further up, what is left to be read
/// is found again when the walk comes back.
constexpr size_t mostBuffers = 32;

/// How many directories a walk holds: those that it does not hold cost about as much again to find.
size_t mostOpenDirectories()
{
    constexpr rlim_t least = 2;
    constexpr rlim_t most = 16384;
    rlimit limit = {};
    const bool known = getrlimit(RLIMIT_NOFILE, &limit) == 0;
    return static_cast<size_t>(std::clamp(known ? limit.rlim_cur / 2 : least, least, most));
}

} // namespace

void failTreeStep(const char* words, const char* name)
{
    fatalLogger(1, 1, "%s %s: %s\n", words, name, std::strerror(errno));
    std::abort(); // never reached: the report ended the process
}

void failTreeStep(const char* words)
{
    fatalLogger(1, 1, "%s: %s\n", words, std::strerror(errno));
    std::abort(); // never reached: the report ended the process
}

Descriptor TreeAction::openDirectory(int parent, const char* name)
{
    return Descriptor(openat(parent, name, directoryFlags));
}

int TreeAction::actOnOpenDirectory(int /*directory*/)
{
    return 0;
}

int TreeAction::actOnClosedDirectory(int /*parent*/, const char* /*name*/)
{
    return 0;
}

TreeWalk::TreeWalk(TreeAction& action) : action_(action), mostOpen_(mostOpenDirectories()) {}

Descriptor TreeWalk::walk(Descriptor top, const char* name)
{
    enter(std::move(top), name, DirectoryReader::End::certain);
    for (;;) {
        Level& level = open_.back();
        if (const dirent64* entry = level.reader.next(level.directory.get())) {
            visit(*entry);
        } else if (open_.size() > 1 || !parked_.empty()) {
            leave();
        } else {
            return std::move(level.directory);
        }
    }
}

void TreeWalk::enter(Descriptor directory, std::string name, DirectoryReader::End end)
{
    if (changesDirectory_ && fchdir(directory.get()) != 0) {
        failTreeStep("Unable to change dir", name.c_str());
    }
    if (open_.size() == mostOpen_) {
        parkShallowest();
    }
    open_.push_back({std::move(directory), std::move(name), DirectoryReader(end)});
    if (open_.size() > mostBuffers) {
        open_[open_.size() - 1 - mostBuffers].reader.rest();
    }
}

void TreeWalk::visit(const dirent64& entry)
{
    const char* name = entry.d_name;
    mode_t type = DTTOIF(entry.d_type);
    const bool look = entry.d_type == DT_UNKNOWN;
    if (look) {
        struct stat status = {};
        if (fstatat(open_.back().directory.get(), name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno == ENOENT) {
                return;
            }
            failTreeStep("Unable to check directory entry", name);
        }
        type = status.st_mode & S_IFMT;
    }
    if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) {
        return;
    }
    if (S_ISDIR(type)) {
        visitDirectory(entry, look);
    } else if (act(name, type) != 0) {
        failEntry(action_.words().entry, name, look);
    }
}

void TreeWalk::visitDirectory(const dirent64& entry, bool looked)
{
    Level& parent = open_.back();
    const char* name = entry.d_name;
    Descriptor directory = open(name);
    if (!directory) {
        failOpening(name, looked);
        return;
    }
    std::string kept = name;
    // A read that is due anyway: if nothing comes, there is no need to find this place again.
    parent.reader.readAhead(parent.directory.get());
    // What is to be empty in the end shows when it is removed whether all of it was read.
    enter(std::move(directory), std::move(kept),
        action_.empties() ? DirectoryReader::End::likely : DirectoryReader::End::certain);
}

/// Opens an entry of the directory that the walk is in.
Descriptor TreeWalk::open(const char* name)
{
    const int parent = open_.back().directory.get();
    Descriptor directory = action_.openDirectory(parent, name);
    while (!directory && makeRoom()) {
        directory = action_.openDirectory(parent, name);
    }
    return directory;
}

int TreeWalk::act(const char* name, mode_t type)
{
    const int directory = open_.back().directory.get();
    int result = action_.actOnEntry(directory, name, type);
    while (result != 0 && makeRoom()) {
        result = action_.actOnEntry(directory, name, type);
    }
    return result;
}

/// After a failed call: whether it may succeed now. Should the process hold more descriptors of its
/// own than the walk has reckoned with, the walk makes do with fewer.
bool TreeWalk::makeRoom()
{
    if (errno != EMFILE || open_.size() == 1) {
        return false;
    }
    parkShallowest();
    mostOpen_ = open_.size();
    return true;
}

void TreeWalk::leave()
{
    Level level = std::move(open_.back());
    open_.pop_back();
    if (open_.empty()) {
        reopenParent(level);
    } else if (open_.back().reader.isResting()) {
        findPlace(open_.back(), open_.back().reader.position(), level.name);
    }
    moveUp();
    finish(std::move(level));
}

void TreeWalk::finish(Level level)
{
    const char* name = level.name.c_str();
    if (action_.actOnOpenDirectory(level.directory.get()) != 0) {
        failTreeStep(action_.words().directory, name);
    }
    if (level.directory.close() != 0) {
        failTreeStep("Unable to close dir", name);
    }
    if (action_.actOnClosedDirectory(open_.back().directory.get(), name) == 0) {
        return;
    }
    if ((errno == ENOTEMPTY || errno == EEXIST) && level.reader.endIsLikely()) {
        enterAgain(level);
        return;
    }
    failTreeStep(action_.words().directory, name);
}

/// Goes back into a directory that was not read to its end after all.
void TreeWalk::enterAgain(const Level& left)
{
    const char* name = left.name.c_str();
    Descriptor directory = open(name);
    if (!directory) {
        failOpening(name, false);
        return;
    }
    enter(std::move(directory), left.name, DirectoryReader::End::certain);
}

void TreeWalk::parkShallowest()
{
    Level& level = open_.front();
    struct stat status = {};
    if (fstat(level.directory.get(), &status) != 0) {
        failTreeStep("Unable to get file descriptor of current dir");
    }
    parked_.push({status.st_dev, status.st_ino, level.reader.position(), level.reader.ended(),
                     level.reader.endIsLikely()},
        level.name);
    if (level.directory.close() != 0) {
        failTreeStep("Unable to close dir", level.name.c_str());
    }
    open_.pop_front();
}

void TreeWalk::reopenParent(const Level& child)
{
    std::string name;
    const ParkedLevels::Level known = parked_.pop(name);
    Descriptor directory(openat(child.directory.get(), "..", directoryFlags));
    struct stat status = {};
    if (!directory || fstat(directory.get(), &status) != 0) {
        failTreeStep(comingBack);
    }
    if (status.st_dev != known.device || status.st_ino != known.inode) {
        // Somebody has moved the directory that the walk was in: ".." leads out of the tree.
        errno = ESTALE;
        failTreeStep(comingBack);
    }
    open_.push_back({std::move(directory), std::move(name), DirectoryReader()});
    if (known.ended) {
        open_.back().reader.endHere(known.endIsLikely);
    } else if (!action_.empties()) {
        findPlace(open_.back(), known.position, child.name);
    } // opened anew, it is at its beginning
}

/// Goes on in a directory behind the entry that the walk comes back from, or at its beginning if
/// what it held so far is gone.
void TreeWalk::findPlace(Level& level, off64_t position, const std::string& name) const
{
    const int directory = level.directory.get();
    const int result = action_.empties() ? level.reader.startAgain(directory)
                                         : level.reader.goOnBehind(directory, position, name);
    if (result != 0) {
        failTreeStep(comingBack);
    }
}

/// Staying in a removed directory would keep all of its removed parents alive in the kernel, which
/// looks through them at every further removal: quadratic in the depth. To move up now and then is
/// enough.
void TreeWalk::moveUp() const
{
    constexpr size_t levelsBetweenMoves = 16;
    const size_t depth = parked_.size() + open_.size();
    if (changesDirectory_ && action_.empties() && depth % levelsBetweenMoves == 0 &&
        fchdir(open_.back().directory.get()) != 0) {
        failTreeStep(comingBack);
    }
}

void TreeWalk::failOpening(const char* name, bool looked) const
{
    const bool isToBeLeftAlone = errno == EBUSY && action_.empties();
    const bool isGone = errno == ENOENT && action_.empties();
    if (isToBeLeftAlone) {
        failTreeStep(action_.words().directory, name);
    }
    if (!isGone) {
        failEntry("Unable to open dir", name, looked);
    }
}

/// The type that came with an entry saved the look at it, which would have found a vanished or an
/// unreadable entry before anything else was tried. What that look would have said counts first.
void TreeWalk::failEntry(const char* words, const char* name, bool looked) const
{
    const int error = errno;
    struct stat status = {};
    if (!looked && fstatat(open_.back().directory.get(), name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno == ENOENT) {
            return;
        }
        failTreeStep("Unable to check directory entry", name);
    }
    errno = error;
    failTreeStep(words, name);
}
