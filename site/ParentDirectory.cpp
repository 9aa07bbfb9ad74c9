#include "site/ParentDirectory.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <sys/stat.h>

namespace zelto
{

namespace
{

using boost::filesystem::path;

constexpr int directoryOnly = O_PATH | O_DIRECTORY | O_CLOEXEC;

/// Where a link of root leads to. The link is held by descriptor, so that what is asked and what is
/// read are the same link, whatever takes its name meanwhile.
Descriptor openLinkOfRoot(int directory, const char* name)
{
    const Descriptor link(openat(directory, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status = {};
    if (!link || fstat(link.get(), &status) != 0) {
        return {};
    }
    if (!S_ISLNK(status.st_mode) || status.st_uid != 0) {
        errno = S_ISLNK(status.st_mode) ? ELOOP : ENOTDIR;
        return {};
    }
    char target[PATH_MAX] = "";
    if (readlinkat(link.get(), "", target, sizeof target - 1) < 0) {
        return {};
    }
    return Descriptor(openat(directory, target, directoryOnly));
}

Descriptor openStep(int directory, const char* name)
{
    Descriptor next(openat(directory, name, directoryOnly | O_NOFOLLOW));
    // With these flags a link is no directory.
    return !next && (errno == ENOTDIR || errno == ELOOP) ? openLinkOfRoot(directory, name)
                                                         : std::move(next);
}

Descriptor openBelow(const path& base, const path& below)
{
    const char* start = base.empty() ? "." : base.c_str();
    Descriptor directory(::open(start, directoryOnly));
    for (path::iterator name = below.begin(); directory && name != below.end(); ++name) {
        directory = openStep(directory.get(), name->c_str());
    }
    return directory;
}

} // namespace

int ParentDirectory::of(const path& base, const path& below)
{
    if (!directory_ || below.native() != below_.native() || base.native() != base_.native()) {
        directory_ = openBelow(base, below);
        base_ = base;
        below_ = below;
    }
    return directory_.get();
}

} // namespace zelto
