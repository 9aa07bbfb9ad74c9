#include "fsutil/NewFile.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fsutil/Descriptor.h"

namespace
{

constexpr mode_t unfinished = 0600;

/// Whether the error says that this way of making the file is not to be had here rather than that
/// the file cannot be made.
/// O_TMPFILE: EOPNOTSUPP from the file system, EISDIR from a kernel that does not know the flag.
/// Linking without a name: ENOENT without the capability or without /proc, EACCES where /proc is
/// closed to this process. Flags that a file system does not take: EINVAL. A filter of system
/// calls: ENOSYS, EPERM. Some of these have other causes as well; the next way then meets them
/// again and says so.
bool notSupportedHere(int error)
{
    return error == EOPNOTSUPP || error == EISDIR || error == ENOENT || error == EINVAL ||
           error == ENOSYS || error == EPERM || error == EACCES;
}

int writeAll(int file, std::string_view content)
{
    while (!content.empty()) {
        const ssize_t written = write(file, content.data(), content.size());
        if (written >= 0) {
            content.remove_prefix(static_cast<size_t>(written));
        } else if (errno != EINTR) {
            return -1;
        }
    }
    return 0;
}

/// The mode without the set-id bits that a change of group takes from a file.
mode_t modeAfterChange(mode_t mode)
{
    const mode_t taken = S_ISUID | ((mode & S_IXGRP) != 0 ? S_ISGID : 0U);
    return mode & 07777 & ~taken;
}

/// The group comes first, and the mode without the bits that giving the group would take away: the
/// file may have a name already, under which somebody could run it. Without the group no such bit
/// is given at all.
void giveAccess(int file, mode_t mode, gid_t group)
{
    const bool isGiven = fchown(file, static_cast<uid_t>(-1), group) == 0;
    constexpr mode_t setId = S_ISUID | S_ISGID;
    (void)fchmod(file, isGiven ? modeAfterChange(mode) : mode & 07777 & ~setId);
}

int fill(int file, std::string_view content, mode_t mode, gid_t group)
{
    if (writeAll(file, content) != 0) {
        return -1;
    }
    giveAccess(file, mode, group);
    return 0;
}

int linkNameless(int file, int directory, const char* name)
{
    if (linkat(file, "", directory, name, AT_EMPTY_PATH) == 0) {
        return 0;
    }
    if (!notSupportedHere(errno)) {
        return -1;
    }
    char path[sizeof "/proc/self/fd/-2147483648"];
    (void)std::snprintf(path, sizeof path, "/proc/self/fd/%d", file);
    return linkat(AT_FDCWD, path, directory, name, AT_SYMLINK_FOLLOW);
}

int createNameless(
    int directory, const char* name, std::string_view content, mode_t mode, gid_t group)
{
    const Descriptor file(openat(directory, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, unfinished));
    if (!file || fill(file.get(), content, mode, group) != 0) {
        return -1;
    }
    // Closing is not checked: file systems that report a failed write only then have no nameless
    // files.
    return linkNameless(file.get(), directory, name);
}

constexpr const char* hiddenName = ".new-%016" PRIx64;
using HiddenName = char[sizeof ".new-0123456789abcdef"];

/// The hidden name that belongs to a name, so that what a killed run left is found again.
void nameHidden(const char* name, HiddenName& hidden)
{
    uint64_t hash = 0xcbf29ce484222325; // FNV-1a
    for (const char character : std::string_view(name)) {
        hash = (hash ^ static_cast<unsigned char>(character)) * 0x100000001b3;
    }
    (void)std::snprintf(hidden, sizeof hidden, hiddenName, hash);
}

/// Whether a file under a hidden name was made by a run that is no more: it is this user's, and
/// nobody holds the lock that a run keeps on its file.
bool isLeftover(int directory, const char* hidden)
{
    const Descriptor file(
        openat(directory, hidden, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status = {};
    return file && fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode) &&
           status.st_uid == geteuid() && flock(file.get(), LOCK_EX | LOCK_NB) == 0;
}

/// A file under a hidden name, removed unless it was moved to its place.
class TemporaryFile
{
public:
    TemporaryFile(int directory, const char* finalName) : directory_(directory) { open(finalName); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() { remove(); }

    explicit operator bool() const noexcept { return named_; }
    [[nodiscard]] int get() const noexcept { return file_.get(); }

    /// Closes the file and gives it the name, unless that is taken: 0, or -1 with `errno`.
    int moveTo(const char* name);

private:
    void open(const char* finalName);
    void create();
    void remove() noexcept;

    int directory_;
    HiddenName name_ = "";
    bool named_ = false;
    Descriptor file_;
};

void TemporaryFile::create()
{
    file_.reset(openat(
        directory_, name_, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, unfinished));
    named_ = static_cast<bool>(file_);
    if (named_) {
        (void)flock(file_.get(), LOCK_EX | LOCK_NB); // without locks there is no telling
    }
}

/// Should the hidden name be taken by something else, one is tried that nobody can foresee.
void TemporaryFile::open(const char* finalName)
{
    nameHidden(finalName, name_);
    create();
    if (!named_ && errno == EEXIST) {
        if (isLeftover(directory_, name_)) {
            (void)unlinkat(directory_, name_, 0);
        }
        create();
    }
    constexpr int attempts = 100;
    for (int i = 0; i < attempts && !named_ && errno == EEXIST; ++i) {
        uint64_t random = 0;
        if (getentropy(&random, sizeof random) != 0) {
            return;
        }
        (void)std::snprintf(name_, sizeof name_, hiddenName, random);
        create();
    }
    if (!named_ && errno == EEXIST) {
        // EEXIST would say that the final name is taken.
        errno = EAGAIN;
    }
}

int TemporaryFile::moveTo(const char* name)
{
    if (file_.close() != 0) {
        return -1;
    }
    if (renameat2(directory_, name_, directory_, name, RENAME_NOREPLACE) == 0) {
        named_ = false;
        return 0;
    }
    return notSupportedHere(errno) ? linkat(directory_, name_, directory_, name, 0) : -1;
}

void TemporaryFile::remove() noexcept
{
    if (named_) {
        const int error = errno;
        (void)unlinkat(directory_, name_, 0);
        errno = error;
    }
}

int createUnderTemporaryName(
    int directory, const char* name, std::string_view content, mode_t mode, gid_t group)
{
    TemporaryFile file(directory, name);
    if (!file || fill(file.get(), content, mode, group) != 0) {
        return -1;
    }
    return file.moveTo(name);
}

} // namespace

void removeLeftoverOf(int directory, const char* name)
{
    HiddenName hidden = "";
    nameHidden(name, hidden);
    struct stat status = {};
    struct stat other = {};
    if (fstatat(directory, hidden, &other, AT_SYMLINK_NOFOLLOW) == 0 &&
        fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        status.st_ino == other.st_ino && status.st_dev == other.st_dev &&
        isLeftover(directory, hidden)) {
        (void)unlinkat(directory, hidden, 0);
    }
}

int createWholeFile(
    int directory, const char* name, std::string_view content, mode_t mode, gid_t group)
{
    if (createNameless(directory, name, content, mode, group) == 0) {
        return 0;
    }
    return notSupportedHere(errno) ? createUnderTemporaryName(directory, name, content, mode, group)
                                   : -1;
}
