#include "site/ParentDirectory.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace zelto
{

namespace
{

using boost::filesystem::path;

constexpr int directoryOnly = O_PATH | O_DIRECTORY | O_CLOEXEC;

/// How many links there may be on one way; the kernel's own limit.
constexpr int mostLinks = 40;

Descriptor openStep(int directory, const char* name, int& linksLeft);

/// Each name of a link's target, which counts from the directory unless it begins at the root. Root
/// wrote the target, but what it leads through may be anybody's.
Descriptor openTarget(int directory, std::string_view target, int& linksLeft)
{
    const bool fromRoot = target.front() == '/';
    Descriptor reached(openat(directory, fromRoot ? "/" : ".", directoryOnly));
    while (reached && !target.empty()) {
        const size_t end = std::min(target.find('/'), target.size());
        const std::string name(target.substr(0, end));
        target.remove_prefix(std::min(end + 1, target.size()));
        if (!name.empty()) {
            reached = openStep(reached.get(), name.c_str(), linksLeft);
        }
    }
    return reached;
}

/// The target of a link of root, or "" with `errno`. The link is held by descriptor, so that what
/// is asked and what is read are the same link, whatever takes its name meanwhile.
std::string readLinkOfRoot(int directory, const char* name)
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
    return readlinkat(link.get(), "", target, sizeof target - 1) > 0 ? target : "";
}

Descriptor openStep(int directory, const char* name, int& linksLeft)
{
    Descriptor next(openat(directory, name, directoryOnly | O_NOFOLLOW));
    // With these flags a link is no directory.
    if (next || (errno != ENOTDIR && errno != ELOOP)) {
        return next;
    }
    const std::string target = readLinkOfRoot(directory, name);
    if (target.empty()) {
        return {};
    }
    if (linksLeft-- == 0) {
        errno = ELOOP;
        return {};
    }
    return openTarget(directory, target, linksLeft);
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
        Descriptor next = openStep(directories_.back().get(), name.c_str(), linksLeft_);
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
    int linksLeft_ = mostLinks;
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
