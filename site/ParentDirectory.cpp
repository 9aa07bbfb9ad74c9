#include "site/ParentDirectory.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <utility>
#include <vector>

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

/// The way from a base to a directory below it. Where it goes back by ".." it keeps every directory
/// that it came through open: asking the system for ".." would ask where a directory is now, and
/// somebody may have moved it elsewhere.
class Way
{
public:
    Way(const path& base, bool goesBack) : goesBack_(goesBack)
    {
        const char* start = base.empty() ? "." : base.c_str();
        directories_.emplace_back(::open(start, directoryOnly));
    }

    [[nodiscard]] bool isOpen() const { return static_cast<bool>(directories_.back()); }

    void take(const std::string& step)
    {
        if (step == "..") {
            back();
        } else if (step != ".") {
            enter(step);
        }
    }

    Descriptor end() { return std::move(directories_.back()); }

private:
    void enter(const std::string& name)
    {
        Descriptor next = openStep(directories_.back().get(), name.c_str());
        if (!goesBack_) {
            directories_.pop_back();
        }
        directories_.push_back(std::move(next));
    }

    void back()
    {
        if (directories_.size() > 1) {
            directories_.pop_back();
        } else {
            directories_.back().reset();
            errno = EPERM;
        }
    }

    bool goesBack_;
    std::vector<Descriptor> directories_; ///< never empty
};

Descriptor openBelow(const path& base, const path& below)
{
    Way way(base, below.native().find("..") != std::string::npos);
    for (path::iterator step = below.begin(); way.isOpen() && step != below.end(); ++step) {
        way.take(step->native());
    }
    return way.end();
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
