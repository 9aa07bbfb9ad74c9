#pragma once

#include <boost/filesystem/path.hpp>
#include <string>
#include <vector>

#include "site/SkeletonOptions.h"
#include "support/Api.h"

/// @file
/// Emptying the site directories of a virtual host, and removing single entries of it.
///
/// An entry is a path whose first component names a site directory: "httpdocs" stands for the
/// document root, "cgi-bin" for the CGI directory (nothing is removed from it while `skip_cgi_bin`
/// is set); everything else lies in the virtual host's directory under its own name ("error_docs"
/// is left alone while `skip_error_docs` is set). `skip_www_root` is not asked for anything. An
/// option text that is empty stands for a tree that is not there: nothing is looked at, removed or
/// reported through it. Relative paths start at the working directory.
///
/// Nothing here throws because a file cannot be removed. Each failure is one line on standard
/// error, and the next entry is tried:
///
///     lstat("<path>"): <reason>      it could not be looked at; one that is not there is silent
///     rmdir("<path>"): <reason>      a directory was left, for example because it is not empty
///     unlink("<path>"): <reason>     anything else was left
///
/// Only lack of memory ends the work, as std::bad_alloc, with what was removed until then gone;
/// while a tree is listed it is reported like anything else and ends the listing of a directory.
///
/// What lies on the way to an entry may belong to the site's user, who cannot lead a removal
/// elsewhere, not even by exchanging directories while it runs: only a symbolic link of root (or of
/// the process's own user) is followed, on the road to a base directory too, anybody else's is
/// refused (ELOOP), also where a link of root leads through it; an entry that is a link is removed
/// itself, ".." goes back to the directory that the way came from, and a path that leads above its
/// base by ".." is refused (EPERM). A directory exchanged while a tree is listed can only add names
/// to the list that are looked for in the tree afterwards.
///
/// What is mounted in a site is not the site's, be it another file system or a bind mount of the
/// same one. The directories that are bases may be mount points: the document root, the CGI
/// directory, the virtual host's and the site directories in it that are kept. Below them a mount
/// point is an entry itself, whose removal fails (EBUSY), and nothing in it is listed or removed:
/// an entry that lies in it, an instance's too, cannot be looked at (EBUSY), and a link of root
/// that leads to it does not open it either. A base is held from the first of its entries on, and
/// they are sought in it wherever it is by then.

namespace zelto
{

/// Where the entries of one virtual host stand: the per-entry remover.
struct ZELTO_API SiteRemover {
    /// @param directory the virtual host's directory.
    /// @param options   copied; a null text becomes the empty one.
    SiteRemover(boost::filesystem::path directory, const SkeletonOptions& options);

    boost::filesystem::path vhost_directory; ///< the virtual host's directory
    std::string www_root;                    ///< the document root, "httpdocs" of the entries
    bool skip_www_root;                      ///< carried along; removal does not ask for it
    bool skip_error_docs;                    ///< leave "error_docs" alone
    bool skip_cgi_bin;                       ///< leave the CGI directory alone
    std::string cgi_bin_path;                ///< the CGI directory, "cgi-bin" of the entries
};

/// A file or directory in one of the two trees that an option places.
struct ZELTO_API TreeEntry {
    int kind = 0; ///< 0: of the CGI directory, 1: of the document root, others: of neither
    boost::filesystem::path path; ///< below an instance's subdirectory in that tree
};

/// Removes everything in the document root, in the CGI directory and in "private" of the virtual
/// host, and keeps these three directories themselves. Symbolic links are removed and never
/// followed; an option text that names a link empties nothing, unless a separator behind it says
/// that the directory is meant. A directory that holds something that could not be removed, such as
/// a mount point, stays and is reported, too.
///
/// What cannot be looked at or read while the trees are listed, before anything is removed, is
/// reported on standard error, as `<path>: <reason>` or with the text of Boost.Filesystem's
/// exception, and ends the listing of that directory only.
/// @param directory the virtual host's directory.
/// @param options   where the two other trees are and whether the CGI directory is left alone.
/// @return 0.
ZELTO_API unsigned int emptySiteDirectories(
    const boost::filesystem::path& directory, const SkeletonOptions& options);

/// Lists a tree: the directory itself as the empty path, then everything below it as paths relative
/// to it, a directory before what it holds and otherwise in the order in which the directories give
/// their entries. A separator at the end of `directory` changes nothing about the paths. Symbolic
/// links are listed and not followed; `directory` itself may be one, and then that is all there is,
/// unless it ends in a separator. What is mounted in the tree is listed like the rest. Failures are
/// reported as for emptySiteDirectories().
/// @param directory need not exist, which is no failure.
/// @param entries   replaced by the list.
ZELTO_API void listTree(
    const boost::filesystem::path& directory, std::vector<boost::filesystem::path>& entries);

/// Removes one entry: a directory as by rmdir(2), anything else as by unlink(2), after a look as by
/// lstat(2). The site directories "cgi-bin", "private", "httpsdocs" and "httpdocs" themselves,
/// written exactly so, are kept.
ZELTO_API void removeEntry(const SiteRemover& site, const boost::filesystem::path& entry);

/// Removes, as removeEntry() does, the entry that is made of the name of the kind's site directory
/// ("cgi-bin" for 0, "httpdocs" for 1, none for others), the subdirectory and the path.
/// @param entry        what to remove.
/// @param subdirectory of an instance; "." and "" count as none.
/// @param site         where the trees are.
ZELTO_API void removeOfKind(
    const TreeEntry& entry, const std::string& subdirectory, const SiteRemover& site);

} // namespace zelto
