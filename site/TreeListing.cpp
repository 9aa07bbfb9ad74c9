#include "site/TreeListing.h"

#include <algorithm>
#include <boost/filesystem/directory.hpp>
#include <boost/format.hpp>
#include <cerrno>
#include <cstring>
#include <exception>
#include <ostream>
#include <sys/stat.h>

#include "conf/StandardStreams.h"

namespace zelto
{

namespace
{

using boost::filesystem::path;

/// What reading a directory gave: its entries' names and, if it ended early, why.
struct DirectoryContent {
    EntryList names;
    std::exception_ptr error;
};

DirectoryContent contentOf(const path& directory)
{
    DirectoryContent content;
    try {
        for (const auto& entry : boost::filesystem::directory_iterator(directory)) {
            content.names.push_back(entry.path().filename());
        }
    } catch (const std::exception&) {
        content.error = std::current_exception();
    }
    return content;
}

bool isDirectory(const path& examined)
{
    struct stat status = {};
    if (lstat(examined.c_str(), &status) == 0) {
        return S_ISDIR(status.st_mode);
    }
    if (errno != ENOENT) {
        const char* reason = std::strerror(errno);
        standardError() << boost::format("%1%: %2%\n") % examined.string() % reason;
    }
    return false;
}

void listDirectory(const path& base, const path& relative, EntryList& entries)
{
    // Read to its end and closed before the walk goes deeper.
    const DirectoryContent content = contentOf(base / relative);
    for (const path& name : content.names) {
        listTree(base, relative / name, entries);
    }
    if (content.error) {
        std::rethrow_exception(content.error);
    }
}

} // namespace

void listTree(const path& base, const path& relative, EntryList& entries)
{
    entries.push_back(relative);
    if (!isDirectory(base / relative)) {
        return;
    }
    try {
        listDirectory(base, relative, entries);
    } catch (const std::exception& exception) {
        reportException(exception);
    }
}

bool comesBefore(const path& a, const path& b) noexcept
{
    // No name holds a NUL byte, so a separator that counts as one sorts a component that ends
    // before every longer one.
    const auto rank = [](char character) {
        return character == '/' ? 0 : static_cast<unsigned char>(character);
    };
    return std::lexicographical_compare(a.native().begin(), a.native().end(), b.native().begin(),
        b.native().end(), [rank](char x, char y) { return rank(x) < rank(y); });
}

} // namespace zelto
