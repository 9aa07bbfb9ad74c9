#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

#include "site/SkeletonOptions.h"

/// @file
/// Seeding a virtual host from a client's skeleton: the directory ".skel/<client id>" below the
/// virtual-hosts root or, if there is none, ".skel/0".
///
/// All entry points return 0. With a null client id they do nothing more than check the directory
/// they are given. What stops an installation is thrown, with everything that was copied until
/// then left in place:
///   - std::runtime_error: neither skeleton exists, or the group "kvocln" does not;
///   - std::runtime_error of VirtualHostPath::fromDirectory();
///   - boost::filesystem::filesystem_error: a directory cannot be looked at or created.
/// What goes wrong with a single entry is reported on standard error and the rest goes on (see
/// listTree() and SkeletonCopier); messages that tell of nothing wrong appear there only while
/// standard error is a regular file. Relative paths in the options start at the working directory.

namespace zelto
{

/// Seeds a subdomain, whose pages name the parent domain; the document root is left out if the
/// options say so. The subdomain's directory is created if its parent exists.
unsigned int installForSubdomain(const std::string& domain, const std::string& subdomain,
    const char* clientId, const SkeletonOptions& options);

/// Seeds the virtual host that a directory represents with a listing mode's site directories (see
/// SiteDirectories.h). Unlike the other two this does not ask `skip_www_root`.
unsigned int installForVirtualHostDirectory(const boost::filesystem::path& directory,
    unsigned int listingMode, const char* clientId, const SkeletonOptions& options);

/// Seeds the virtual host of a name relative to the virtual-hosts root, such as "example.test".
unsigned int installForNameUnderRoot(
    const boost::filesystem::path& name, const char* clientId, const SkeletonOptions& options);

} // namespace zelto
