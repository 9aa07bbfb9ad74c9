#include "site/InstanceDescriptor.h"

#include <algorithm>
#include <stdexcept>
#include <unistd.h>

#include "site/DescriptorParser.h"
#include "site/EntryRemover.h"
#include "site/WholeInput.h"

namespace zelto
{

namespace
{

/// Paths are compared as the library does: a descriptor may hold any, unlike a listing.
bool isRemovedBefore(const TreeEntry& a, const TreeEntry& b)
{
    return a.kind != b.kind ? a.kind > b.kind : b.path < a.path;
}

} // namespace

std::vector<TreeEntry> readDescriptor()
{
    std::string text;
    // One byte more than the parser takes shows it that there is more.
    if (readWholeInput(STDIN_FILENO, largestDescriptor + 1, text) != 0) {
        throw std::runtime_error("XML parse error");
    }
    return parseDescriptor(text);
}

void removeApplicationInstance(const boost::filesystem::path& directory,
    const SkeletonOptions& options, const std::string& subdirectory)
{
    std::vector<TreeEntry> entries = readDescriptor();
    if (subdirectory != "." && subdirectory != "/") {
        entries.push_back({1, {}});
    }
    std::sort(entries.begin(), entries.end(), isRemovedBefore);
    EntryRemover remover(SiteRemover(directory, options));
    for (const TreeEntry& entry : entries) {
        remover.remove(entryOfKind(entry, subdirectory));
    }
}

} // namespace zelto
