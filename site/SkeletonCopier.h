#pragma once

#include <boost/filesystem/path.hpp>
#include <boost/format/format_fwd.hpp>
#include <iosfwd>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/types.h>

#include "fsutil/Descriptor.h"
#include "fsutil/NewDirectory.h"
#include "site/ParentDirectory.h"
#include "site/SiteDestination.h"
#include "site/SiteOptions.h"
#include "site/VirtualHostPath.h"

namespace zelto
{

/// Copies a skeleton's entries one by one into a virtual host, its document root and its CGI
/// directory, with "@domain_name@" in the content of files replaced by the virtual host's name.
///
/// What stands at a destination is never changed, whatever it is. Files and directories get the
/// skeleton entry's permission bits and then the clients' group, which costs a file its set-id
/// bits; whether these two could be set is not checked. A file appears whole or not at all. Other
/// kinds of entries are not copied.
///
/// On the way to a destination or a source no symbolic link is followed unless it can be trusted
/// (see fsutil/TrustedPath.h); another one counts as a destination or source that cannot be looked
/// at. A directory that an earlier run made and, killed, did not finish counts as missing.
///
/// An entry that cannot be copied is reported on the message stream and does not stop the ones
/// after it: behind "corbel:InstallSkeleton(): " stands
///     stat("<destination>") failed: <reason>     the destination cannot be looked at,
///     <source>: <reason>                         the skeleton's entry cannot be looked at or read,
///     <destination>: <reason>                    the file cannot be created or written,
/// and, only if verbose,
///     <destination> already exists, not restoring
///     <destination> not a file or directory, skipping
class SkeletonCopier
{
public:
    /// @param host, skeleton, messages borrowed; they must outlive the copier.
    /// @param group the group that every copied entry gets.
    SkeletonCopier(const VirtualHostPath& host, const boost::filesystem::path& skeleton,
        gid_t group, std::ostream& messages, bool verbose, const SkeletonOptions& options);

    /// Copies one entry, given relative to the skeleton; its directory must have been copied
    /// before it.
    /// @param isFile whether it is known to be a regular file, which saves looking at it.
    /// @throw boost::filesystem::filesystem_error when a directory cannot be created.
    void copy(const boost::filesystem::path& entry, bool isFile = false);

private:
    using path = boost::filesystem::path;

    /// An entry of the skeleton.
    struct Source {
        const path& entry;
        path whole;
    };

    void keepExisting(
        const Source& source, const SiteDestination& destination, const struct stat& existing);
    void copyMissing(const Source& source, const SiteDestination& destination, bool isFile);
    void copyFile(const Source& source, const SiteDestination& destination, bool unseen);
    void createFile(const SiteDestination& destination, std::string_view content, mode_t mode);
    void copyDirectory(const SiteDestination& destination, mode_t mode);

    int look(const Source& source, struct stat& status);
    Descriptor open(const Source& source);
    int look(const SiteDestination& destination, struct stat& status);
    int openParent(const Source& source);
    int openParent(const SiteDestination& destination);
    NewDirectory makeDirectory(const SiteDestination& destination);

    void reportError(const path& failed, int error);
    void reportIfVerbose(const path& destination, const char* what);
    void print(const boost::format& message);

    const VirtualHostPath& host_;
    const path& skeleton_;
    gid_t group_;
    std::ostream& messages_;
    bool verbose_;
    SiteOptions options_;
    ParentDirectory sourceParent_;
    ParentDirectory parent_;
};

} // namespace zelto
