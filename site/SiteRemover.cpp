#include "site/SiteRemover.h"

#include <algorithm>
#include <utility>

#include "site/EntryRemover.h"
#include "site/SiteDirectories.h"
#include "site/SiteOptions.h"
#include "site/TreeListing.h"

namespace zelto
{

namespace
{

using boost::filesystem::path;

/// Everything in the directories to be emptied, what a directory holds before the directory.
EntryList listSiteDirectories(const path& virtualHost, const SiteOptions& options)
{
    EntryList entries;
    for (const path name : siteDirectoryNames(emptiedSiteDirectories)) {
        if (const auto tree = existingDestination(name, virtualHost, options)) {
            visitTree(
                tree->path, {},
                [&](const path& below, bool /*isFile*/) { entries.push_back(name / below); },
                MountPoints::leftAlone);
        }
    }
    std::sort(entries.begin(), entries.end(),
        [](const path& a, const path& b) { return comesBefore(b, a); });
    return entries;
}

} // namespace

SiteRemover::SiteRemover(path directory, const SkeletonOptions& options)
    : vhost_directory(std::move(directory)),
      www_root(options.www_root != nullptr ? options.www_root : ""),
      skip_www_root(options.skip_www_root != 0), skip_error_docs(options.skip_error_docs != 0),
      skip_cgi_bin(options.skip_cgi_bin != 0),
      cgi_bin_path(options.cgi_bin_path != nullptr ? options.cgi_bin_path : "")
{
}

unsigned int emptySiteDirectories(const path& directory, const SkeletonOptions& options)
{
    EntryRemover remover(SiteRemover(directory, options));
    for (const path& entry : listSiteDirectories(directory, SiteOptions(options))) {
        remover.remove(entry);
    }
    return 0;
}

void listTree(const path& directory, EntryList& entries)
{
    EntryList found;
    listTree(directory, {}, found);
    entries = std::move(found);
}

void removeEntry(const SiteRemover& site, const path& entry)
{
    EntryRemover(site).remove(entry);
}

void removeOfKind(const TreeEntry& entry, const std::string& subdirectory, const SiteRemover& site)
{
    removeEntry(site, entryOfKind(entry, subdirectory));
}

} // namespace zelto
