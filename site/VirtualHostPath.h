#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

#include "support/Api.h"

namespace zelto
{

/// Where a hosted domain or one of its subdomains lives, and the name that it goes by.
///
/// A domain's directory is root / domain, a subdomain's is root / domain / "subdomains" /
/// subdomain. Paths are compared by whole components and are never normalised, so callers pass
/// clean paths: a trailing separator counts as one more component, "."; the root followed by "/" or
/// "/." is the domain ".", followed by "/.." the domain "..".
struct ZELTO_API VirtualHostPath {
    boost::filesystem::path root;      ///< the virtual-hosts root (setting HTTPD_VHOSTS_D)
    boost::filesystem::path relative;  ///< the directory's components below the root
    boost::filesystem::path directory; ///< the directory, as it was given
    std::string name;                  ///< what "@domain_name@" stands for
    bool is_subdomain = false;         ///< whether it is a subdomain's

    /// The virtual host that a directory represents; its name is the domain's directory name, or
    /// the subdomain's, a full stop and the domain's. The directory need not exist.
    /// @throw std::runtime_error "Virtual host <directory> is not a subdirectory of <root>", or
    ///        "Directory <directory> does not represent a virtual host".
    static VirtualHostPath fromDirectory(const boost::filesystem::path& directory);

    /// The place of a subdomain, put together without any check. Pages of a subdomain name the
    /// domain they belong to, so unlike in fromDirectory() `name` is the domain's alone.
    static VirtualHostPath ofSubdomain(const std::string& domain, const std::string& subdomain);
};

} // namespace zelto
