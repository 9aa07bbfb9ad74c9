#pragma once

#include <boost/filesystem/path.hpp>
#include <optional>

#include "site/SiteOptions.h"

namespace zelto
{

/// Where an entry of a site stands on disk: at the base, or below it.
struct SiteDestination {
    boost::filesystem::path base;  ///< the document root, the CGI directory or the virtual host's
    boost::filesystem::path below; ///< relative to the base, empty for the base itself
    boost::filesystem::path path;  ///< both, as messages show it
    bool inside; ///< below the virtual host's directory, not in a tree that an option places
};

/// Maps an entry, whose first component names a site directory, to its place: "httpdocs" stands
/// for the document root, "cgi-bin" for the CGI directory, everything else lies in the virtual
/// host's directory under its own name.
/// @return nothing for an entry of "cgi-bin" or "error_docs" that the options leave alone.
///         Leaving out the document root is the listing's business, not this mapping's.
std::optional<SiteDestination> siteDestination(const boost::filesystem::path& entry,
    const boost::filesystem::path& virtualHostDirectory, const SiteOptions& options);

} // namespace zelto
