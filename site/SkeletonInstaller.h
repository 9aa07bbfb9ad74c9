#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

#include "site/SkeletonOptions.h"
#include "support/Api.h"

/// @file
/// Seeding a virtual host from a client's skeleton: the directory ".skel/<client id>" below the
/// virtual-hosts root or, if there is none, ".skel/0".
///
/// All entry points return 0. With a null client id they do nothing more than check the directory
/// they are given. What stops an installation is thrown, with everything that was copied until
/// then left in place:
///
///   - std::runtime_error: neither skeleton exists, or the group "kvocln" does not;
///   - std::runtime_error of VirtualHostPath::fromDirectory();
///   - boost::filesystem::filesystem_error: a directory cannot be looked at or created.
/// Relative paths in the options start at the working directory.
///
/// What exists is never changed. A copied file appears whole or not at all, with "@domain_name@"
/// replaced in it; files and directories get the permission bits of the skeleton's entry and the
/// group "kvocln", which costs a file its set-id bits. Other kinds of entries are not copied. No
/// symbolic link is followed unless it belongs to root or to the process's own user, be it on the
/// way to the document root, the CGI directory, the virtual host's or the skeleton's directory or
/// below them. A directory that an earlier run made and, killed, did not finish is finished.
///
/// What goes wrong with a single entry is one line on standard error, and the rest goes on. While
/// the skeleton is listed that is "<path>: <reason>", or the text of an exception for a directory
/// that cannot be read; while it is copied, behind "corbel:InstallSkeleton(): ", one of
///
///     stat("<destination>") failed: <reason>     the destination cannot be looked at
///     <source>: <reason>                         the skeleton's entry cannot be looked at or read
///     <destination>: <reason>                    the file cannot be created or written
///
/// and, only while standard error is a regular file,
///
///     <destination> already exists, not restoring
///     <destination> not a file or directory, skipping

namespace zelto
{

/// Seeds a subdomain, whose pages name the parent domain; the document root is left out if the
/// options say so. The subdomain's directory is created if its parent exists.
ZELTO_API unsigned int installForSubdomain(const std::string& domain, const std::string& subdomain,
    const char* clientId, const SkeletonOptions& options);

/// Seeds the virtual host that a directory represents with a listing mode's site directories (see
/// SiteDirectories.h). Unlike the other two this does not ask `skip_www_root`.
ZELTO_API unsigned int installForVirtualHostDirectory(const boost::filesystem::path& directory,
    unsigned int listingMode, const char* clientId, const SkeletonOptions& options);

/// Seeds the virtual host of a name relative to the virtual-hosts root, such as "example.test".
ZELTO_API unsigned int installForNameUnderRoot(
    const boost::filesystem::path& name, const char* clientId, const SkeletonOptions& options);

} // namespace zelto
