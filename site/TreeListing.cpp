#include "site/TreeListing.h"

#include <algorithm>
#include <boost/filesystem/exception.hpp>
#include <boost/format.hpp>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <exception>
#include <fcntl.h>
#include <memory>
#include <ostream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "conf/StandardStreams.h"
#include "fsutil/Descriptor.h"
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

std::unique_ptr<DIR, CloseDirectory> openToRead(const path& directory)
{
    Descriptor file = openTrusted(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK);
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

void readDirectory(const path& directory, std::vector<Entry>& entries)
{
    const auto stream = openToRead(directory);
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

DirectoryContent contentOf(const path& directory)
{
    DirectoryContent content;
    try {
        readDirectory(directory, content.entries);
    } catch (const std::exception&) {
        content.error = std::current_exception();
    }
    return content;
}

bool isDirectory(const path& examined)
{
    struct stat status = {};
    if (PinnedPath(examined.c_str()).look(status) == 0) {
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
    Listing(const path& base, const Visit& told) : base_(base), told_(told) {}

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
        if (!isKnownAsNoDirectory(entry.type) && isDirectory(base_ / entry.name)) {
            levels_.push_back({entry.name, contentOf(base_ / entry.name), 0});
        }
    }

    /// Looking at an entry takes the right to search its directory, which root always has. On
    /// behalf of others each is looked at, which shows what is missing.
    [[nodiscard]] bool isKnownAsNoDirectory(unsigned char type) const
    {
        return isRoot_ && type != DT_UNKNOWN && type != DT_DIR;
    }

    const path& base_;
    const Visit& told_;
    std::vector<Level> levels_;
    const bool isRoot_ = geteuid() == 0;
};

} // namespace

void visitTree(const path& base, const path& relative, const Visit& told)
{
    Listing(base, told).walk(relative);
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
