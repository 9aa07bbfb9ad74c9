#pragma once

#include <boost/filesystem/path.hpp>
#include <optional>
#include <string>

#include "fsutil/PinnedPath.h"
#include "site/ParentDirectory.h"
#include "site/SiteDestination.h"
#include "site/SiteRemover.h"

namespace zelto
{

/// Removes many entries of one site, one after the other (see SiteRemover.h). Entries that come in
/// the order of their paths mostly share their directory, which stays open between them.
class EntryRemover
{
public:
    explicit EntryRemover(const SiteRemover& site);

    void remove(const boost::filesystem::path& entry);

private:
    void removeAt(const SiteDestination& destination);
    int openParent(const SiteDestination& destination, std::string& name);

    boost::filesystem::path virtualHost_;
    SiteOptions options_;
    ParentDirectory parent_{MountPoints::leftAlone};
    std::optional<PinnedPath> base_; ///< of an entry that is a base itself
};

/// siteDestination(), but also nothing for an entry of a tree whose option is empty.
std::optional<SiteDestination> existingDestination(const boost::filesystem::path& entry,
    const boost::filesystem::path& virtualHost, const SiteOptions& options);

/// The entry that removeOfKind() removes.
boost::filesystem::path entryOfKind(const TreeEntry& entry, const std::string& subdirectory);

} // namespace zelto
