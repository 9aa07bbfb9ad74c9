#include "site/TreeListing.h"

#include <algorithm>
#include <boost/filesystem/exception.hpp>
#include <boost/format.hpp>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <exception>
#include <fcntl.h>
#include <linux/openat2.h>
#include <memory>
#include <ostream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "conf/StandardStreams.h"
#include "fsutil/Descriptor.h"
#include "fsutil/MountPoint.h"
#include "fsutil/OpenAt2.h"
#include "fsutil/PinnedPath.h"
#include "fsutil/TrustedPath.h"

namespace zelto
{

namespace
{

using boost::filesystem::path;

using Visit = std::function<void(const path& relative, bool isFile)>;

struct Entry {
    path name;
    unsigned char type;
};

/// What reading a directory gave: its entries and, if it ended early, why.
struct DirectoryContent {
    std::vector<Entry> entries;
    std::exception_ptr error;
};

struct CloseDirectory {
    void operator()(DIR* directory) const noexcept { closedir(directory); }
};

[[noreturn]] void fail(const char* call, const path& directory)
{
    throw boost::filesystem::filesystem_error(
        std::string("boost::filesystem::directory_iterator::") + call, directory,
        boost::system::error_code(errno, boost::system::system_category()));
}

constexpr int toRead = O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC;

/// Opens a directory that is to be emptied. EXDEV: it is a mount point.
Descriptor openToEmpty(int parent, const char* name)
{
    open_how how = {};
    how.flags = toRead;
    how.resolve = RESOLVE_NO_XDEV | RESOLVE_NO_SYMLINKS;
    Descriptor directory(openAt2(parent, name, how));
    if (!directory && errno == ENOSYS) {
        directory.reset(openat(parent, name, toRead | O_NOFOLLOW));
        if (directory && isMountPoint(directory.get()).value_or(true)) {
            directory.reset();
            errno = EXDEV;
        }
    }
    return directory;
}

/// @param file the directory, or none with `errno`.
std::unique_ptr<DIR, CloseDirectory> streamOf(const path& directory, Descriptor file)
{
    std::unique_ptr<DIR, CloseDirectory> stream(file ? fdopendir(file.get()) : nullptr);
    if (!stream) {
        fail("construct", directory);
    }
    (void)file.release(); // the stream's own by now
    return stream;
}

bool isDots(const char* name)
{
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

void readDirectory(const path& directory, Descriptor file, std::vector<Entry>& entries)
{
    const auto stream = streamOf(directory, std::move(file));
    while (true) {
        errno = 0;
        // NOLINTNEXTLINE(concurrency-mt-unsafe): the stream is nobody else's
        const dirent* entry = readdir(stream.get());
        if (entry == nullptr) {
            break;
        }
        if (!isDots(entry->d_name)) {
            entries.push_back({entry->d_name, entry->d_type});
        }
    }
    if (errno != 0) {
        fail("operator++", directory);
    }
}

DirectoryContent contentOf(const path& directory, Descriptor file)
{
    DirectoryContent content;
    try {
        readDirectory(directory, std::move(file), content.entries);
    } catch (const std::exception&) {
        content.error = std::current_exception();
    }
    return content;
}

bool isDirectory(const PinnedPath& pinned, const path& examined)
{
    struct stat status = {};
    if (pinned.look(status) == 0) {
        return S_ISDIR(status.st_mode);
    }
    if (errno != ENOENT) {
        const char* reason = std::strerror(errno);
        standardError() << (boost::format("%1%: %2%\n") % examined.string() % reason).str();
    }
    return false;
}

/// One walk, with a stack of its own: a tree may be deeper than the process's.
class Listing
{
public:
    Listing(const path& base, const Visit& told, MountPoints mountPoints)
        : base_(base), told_(told), leavesMountPoints_(mountPoints == MountPoints::leftAlone)
    {
    }

    void walk(const path& top)
    {
        visit({top, DT_UNKNOWN});
        while (!levels_.empty()) {
            try {
                step();
            } catch (const std::exception& exception) {
                levels_.pop_back();
                reportException(exception);
            }
        }
    }

private:
    /// A directory, read to its end and closed before the walk goes deeper.
    struct Level {
        path relative;
        DirectoryContent content;
        size_t next;
    };

    void step()
    {
        Level& level = levels_.back();
        if (level.next < level.content.entries.size()) {
            const Entry& entry = level.content.entries[level.next++];
            visit({level.relative / entry.name, entry.type});
        } else if (level.content.error) {
            std::rethrow_exception(level.content.error);
        } else {
            levels_.pop_back();
        }
    }

    /// @param entry with its name relative to the base.
    void visit(const Entry& entry)
    {
        told_(entry.name, entry.type == DT_REG);
        if (isKnownAsNoDirectory(entry.type)) {
            return;
        }
        const path whole = base_ / entry.name;
        if (leavesMountPoints_ && !levels_.empty()) {
            enterUnlessMounted(entry.name, whole);
        } else if (isDirectory(PinnedPath(whole.c_str()), whole)) {
            enter(entry.name, whole, openTrusted(whole.c_str(), toRead));
        }
    }

    void enterUnlessMounted(const path& relative, const path& whole)
    {
        Descriptor directory;
        {
            const PinnedPath pinned(whole.c_str());
            if (!isDirectory(pinned, whole)) {
                return;
            }
            directory = openToEmpty(pinned.directory(), pinned.name());
        }
        if (directory || errno != EXDEV) {
            enter(relative, whole, std::move(directory));
        }
    }

    /// @param directory to be read, or none with `errno`.
    void enter(const path& relative, const path& whole, Descriptor directory)
    {
        levels_.push_back({relative, contentOf(whole, std::move(directory)), 0});
    }

    /// Looking at an entry takes the right to search its directory, which root always has. On
    /// behalf of others each is looked at, which shows what is missing.
    [[nodiscard]] bool isKnownAsNoDirectory(unsigned char type) const
    {
        return isRoot_ && type != DT_UNKNOWN && type != DT_DIR;
    }

    const path& base_;
    const Visit& told_;
    const bool leavesMountPoints_;
    std::vector<Level> levels_;
    const bool isRoot_ = geteuid() == 0;
};

} // namespace

void visitTree(const path& base, const path& relative, const Visit& told, MountPoints mountPoints)
{
    Listing(base, told, mountPoints).walk(relative);
}

void listTree(const path& base, const path& relative, EntryList& entries)
{
    visitTree(base, relative,
        [&entries](const path& found, bool /*isFile*/) { entries.push_back(found); });
}

bool comesBefore(const path& a, const path& b) noexcept
{
    const std::string& first = a.native();
    const std::string& second = b.native();
    const auto [here, there] =
        std::mismatch(first.begin(), first.end(), second.begin(), second.end());
    if (here == first.end() || there == second.end()) {
        return there != second.end();
    }
    // No name holds a NUL byte, so a separator that counts as one sorts a component that ends
    // before every longer one.
    const auto rank = [](char character) {
        return character == '/' ? 0 : static_cast<unsigned char>(character);
    };
    return rank(*here) < rank(*there);
}

} // namespace zelto
