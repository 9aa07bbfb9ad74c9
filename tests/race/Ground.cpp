#include "tests/race/Ground.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace race
{

namespace
{

constexpr uid_t other = 1002;
constexpr gid_t kvoserv = 2001;

/// Belongs to the user and holds what is not the user's.
const std::string beside = home + "/beside";
const std::string sentinel = "/srv/sentinel";

std::string topOf(Place place)
{
    return place == Place::atHome ? home : shop;
}

/// What stands in the sentinel tree for a path of the site.
std::string twinOf(const std::string& path)
{
    const std::string above = path.starts_with(domain) ? domain : "/srv";
    return sentinel + path.substr(above.size());
}

/// Whether the sentinel tree has a twin of it, if it is a file or a directory.
bool isOfSite(const std::string& path)
{
    return path.starts_with(subdomains) || path == home || path.starts_with(home + "/user");
}

void require(bool done, const std::string& what)
{
    if (!done) {
        (void)std::fprintf(
            stderr, "The race's ground: %s: %s\n", what.c_str(), std::strerror(errno));
        std::abort();
    }
}

mode_t typeOf(const std::string& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 ? status.st_mode & S_IFMT : 0;
}

bool isRootsLink(const std::string& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode) && status.st_uid == 0;
}

/// Everything in a directory, "." and ".." not counted.
size_t countOf(const std::string& path)
{
    size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(path)) {
        ++count;
    }
    return count;
}

bool sameTime(const timespec& a, const timespec& b)
{
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

/// The change time tells of every write, chown(), chmod() and link, whatever it came to.
bool same(const struct stat& a, const struct stat& b)
{
    return a.st_ino == b.st_ino && a.st_mode == b.st_mode && a.st_uid == b.st_uid &&
           a.st_gid == b.st_gid && a.st_size == b.st_size && sameTime(a.st_mtim, b.st_mtim) &&
           sameTime(a.st_ctim, b.st_ctim);
}

/// A file or directory that is precious, with an access that no operation would give it.
void makePrecious(const std::string& path, mode_t type, size_t number)
{
    const uid_t owner = number % 2 == 0 ? 0 : other;
    if (type == S_IFDIR) {
        makeDir(
            path, {static_cast<mode_t>(0710 + number % 4), owner, number % 3 == 0 ? kvoserv : 0});
    } else {
        makeFile(path, "precious " + std::to_string(number),
            {static_cast<mode_t>(0600 + number % 4), owner, number % 3 == 0 ? kvoserv : 0});
    }
}

} // namespace

std::string webRootIn(Place place)
{
    return topOf(place) + "/user/middle/httpdocs";
}

std::string cgiDirectoryIn(Place place)
{
    return topOf(place) + "/user/middle/cgi-bin";
}

const char* nameOf(Kind kind)
{
    switch (kind) {
    case Kind::directoryForLink:
        return "DirectoryForLink";
    case Kind::fileForLink:
        return "FileForLink";
    case Kind::fileForFifo:
        return "FileForFifo";
    case Kind::directoryMoved:
        return "DirectoryMoved";
    case Kind::nothingForLink:
        return "NothingForLink";
    case Kind::middle:
        return "MiddleOfTheWebRoot";
    case Kind::base:
        return "WebRootItself";
    case Kind::handedOut:
        return "ConfWhileHandedOut";
    case Kind::confItself:
        return "ConfAndErrorDocsThemselves";
    case Kind::road:
        return "RoadToTheSubdomain";
    }
    return "";
}

bool step(const Exchange& exchange)
{
    const char* inside = exchange.inside.c_str();
    const char* elsewhere = exchange.elsewhere.c_str();
    if (!exchange.moves) {
        return renameat2(AT_FDCWD, inside, AT_FDCWD, elsewhere, RENAME_EXCHANGE) == 0;
    }
    if (rename(elsewhere, inside) == 0) {
        return true;
    }
    return errno == ENOENT && rename(inside, elsewhere) == 0;
}

Ground::Ground(Kind kind, Size size, Place place)
    : directories_(size == Size::small ? 1 : 3), files_(size == Size::small ? 1 : 3),
      top_(topOf(place)), webRoot_(webRootIn(place)), cgiDirectory_(cgiDirectoryIn(place))
{
    add({home, S_IFDIR, 0755, user, users, ""});
    add({beside, S_IFDIR, 0755, user, users, ""});
    add({domain, S_IFDIR, 0755, kind == Kind::road ? user : 0, 0, ""});
    addSite(kind);
    addSkeleton();
    addExchanges(kind);
    layOutSentinel();
    writeDescriptor();
}

void Ground::addFolder(const std::string& path, int directories, int files)
{
    const bool handed = path == shop + "/conf" || path == shop + "/error_docs";
    const uid_t owner = handed ? 0 : user;
    const gid_t group = handed ? kvoserv : users;
    add({path, S_IFDIR, 0700, owner, group, ""});
    for (int file = 0; file < files; ++file) {
        add({path + "/f" + std::to_string(file), S_IFREG, 0600, owner, group, "own"});
    }
    for (int number = 0; number < directories; ++number) {
        const std::string directory = path + "/d" + std::to_string(number);
        add({directory, S_IFDIR, 0700, owner, group, ""});
        add({directory + "/e", S_IFDIR, 0700, owner, group, ""});
        add({directory + "/e/f0", S_IFREG, 0600, owner, group, "own"});
        for (int file = 0; file < files; ++file) {
            add({directory + "/f" + std::to_string(file), S_IFREG, 0600, owner, group, "own"});
        }
    }
}

void Ground::addSite(Kind kind)
{
    const bool inConf = kind == Kind::handedOut || kind == Kind::confItself;
    add({subdomains, S_IFDIR, 0755, 0, 0, ""});
    add({shop, S_IFDIR, 0755, kind == Kind::confItself ? user : 0, 0, ""});
    add({top_ + "/user", S_IFDIR, 0700, user, users, ""});
    add({top_ + "/user/middle", S_IFDIR, 0700, user, users, ""});
    addFolder(webRoot_, directories_, files_);
    addFolder(cgiDirectory_, 0, 1);
    addFolder(shop + "/conf", inConf ? 1 : 0, 1);
    addFolder(shop + "/error_docs", inConf ? 1 : 0, 1);
}

/// For each directory of the web root the skeleton has a file and a directory that it lacks.
void Ground::addSkeleton()
{
    const std::string web = skeleton + "/httpdocs";
    add({virtualHosts + "/.skel", S_IFDIR, 0755, 0, 0, ""});
    for (const std::string& path : {skeleton, web, skeleton + "/cgi-bin", skeleton + "/conf"}) {
        add({path, S_IFDIR, 0755, 0, 0, ""});
    }
    std::vector<std::string> below = {""};
    for (int number = 0; number < directories_; ++number) {
        below.push_back("/d" + std::to_string(number));
        if (directories_ > 1) {
            below.push_back("/d" + std::to_string(number) + "/e");
        }
    }
    for (const std::string& directory : below) {
        add({web + directory, S_IFDIR, 0755, 0, 0, ""});
        add({web + directory + "/f0", S_IFREG, 0644, 0, 0, "from the skeleton"});
        add({web + directory + "/new", S_IFREG, 0644, 0, 0, "@domain_name@"});
        add({web + directory + "/newdir", S_IFDIR, 0755, 0, 0, ""});
        add({web + directory + "/newdir/inner", S_IFREG, 0644, 0, 0, "@domain_name@"});
        add({webRoot_ + directory + "/new", 0, 0, 0, 0, ""});
        add({webRoot_ + directory + "/newdir", 0, 0, 0, 0, ""});
    }
    add({skeleton + "/cgi-bin/new", S_IFREG, 0755, 0, 0, "@domain_name@"});
    add({cgiDirectory_ + "/new", 0, 0, 0, 0, ""});
}

std::string Ground::sectionOf(const char* prefix, const std::string& directory) const
{
    std::string section = "<SECTION PREFIX=\"" + std::string(prefix) + "\">";
    for (const Entry& entry : entries_) {
        if (entry.type != 0 && entry.path.starts_with(directory + "/")) {
            section += "<FILE>" + entry.path.substr(directory.size() + 1) + "</FILE>";
        }
    }
    return section + "</SECTION>";
}

void Ground::writeDescriptor() const
{
    makeFile(descriptor, "<INSTANCE-DATA>" + sectionOf("htdocs", webRoot_) +
                             sectionOf("cgi-bin", cgiDirectory_) + "</INSTANCE-DATA>");
}

void Ground::exchange(const std::string& inside, const std::string& elsewhere, mode_t type)
{
    add({elsewhere, S_IFLNK, 0, user, users, twinOf(inside)});
    exchanges_.push_back({inside, elsewhere, type, false});
}

void Ground::plant(const std::string& inside, const std::string& target)
{
    const std::string elsewhere = home + "/planted" + std::to_string(exchanges_.size());
    add({elsewhere, S_IFLNK, 0, user, users, target});
    exchanges_.push_back({inside, elsewhere, 0, true});
}

void Ground::move(const std::string& inside, const std::string& name)
{
    exchanges_.push_back({inside, beside + "/" + name, S_IFDIR, true});
}

void Ground::addExchangesInDirectory(Kind kind, const std::string& number)
{
    const std::string directory = webRoot_ + "/d" + number;
    const std::string file = directory + "/f0";
    switch (kind) {
    case Kind::directoryForLink:
        exchange(directory + "/e", home + "/inner" + number, S_IFDIR);
        exchange(directory, home + "/link" + number, S_IFDIR);
        break;
    case Kind::fileForLink:
        exchange(file, home + "/link" + number, S_IFREG);
        break;
    case Kind::fileForFifo:
        add({home + "/fifo" + number, S_IFIFO, 0600, user, users, ""});
        exchanges_.push_back({file, home + "/fifo" + number, S_IFREG, false});
        break;
    case Kind::directoryMoved:
        move(directory + "/e", "inner" + number);
        move(directory, "moved" + number);
        break;
    case Kind::nothingForLink:
        plant(directory + "/new", sentinel + "/planted");
        plant(directory + "/newdir", twinOf(directory));
        break;
    default:
        break;
    }
}

void Ground::addExchanges(Kind kind)
{
    for (int number = 0; number < directories_; ++number) {
        addExchangesInDirectory(kind, std::to_string(number));
    }
    if (kind == Kind::middle) {
        exchange(top_ + (top_ == home ? "/user" : "/user/middle"), home + "/middle", S_IFDIR);
    } else if (kind == Kind::base) {
        exchange(webRoot_, home + "/web", S_IFDIR);
        exchange(cgiDirectory_, home + "/cgi", S_IFDIR);
    } else if (kind == Kind::handedOut) {
        exchange(shop + "/conf/d0", home + "/conf", S_IFDIR);
        exchange(shop + "/conf/f0", home + "/conf_file", S_IFREG);
        exchange(shop + "/error_docs/d0", home + "/error_docs", S_IFDIR);
    } else if (kind == Kind::confItself) {
        // A directory of root's goes nowhere else.
        exchange(shop + "/conf", shop + "/conf_link", S_IFDIR);
        exchange(shop + "/error_docs", shop + "/error_docs_link", S_IFDIR);
    } else if (kind == Kind::road) {
        exchange(subdomains, domain + "/exchanged", S_IFDIR);
    }
}

void Ground::comeBack(const Exchange& exchange)
{
    if (exchange.type == 0) {
        return;
    }
    if (typeOf(exchange.inside) != exchange.type && typeOf(exchange.elsewhere) == exchange.type) {
        const char* inside = exchange.inside.c_str();
        const char* elsewhere = exchange.elsewhere.c_str();
        if (renameat2(AT_FDCWD, inside, AT_FDCWD, elsewhere, RENAME_EXCHANGE) != 0) {
            (void)rename(elsewhere, inside);
        }
    }
    if (exchange.moves) {
        std::filesystem::remove_all(exchange.elsewhere);
    }
}

void Ground::make(const Entry& entry)
{
    const char* path = entry.path.c_str();
    switch (entry.type) {
    case S_IFDIR:
        require(mkdir(path, 0700) == 0, entry.path);
        break;
    case S_IFREG:
        makeFile(entry.path, entry.text);
        break;
    case S_IFLNK:
        makeLink(entry.path, entry.text);
        break;
    default:
        require(mkfifo(path, 0600) == 0, entry.path);
    }
    require(lchown(path, entry.owner, entry.group) == 0, entry.path);
    require(entry.type == S_IFLNK || chmod(path, entry.mode) == 0, entry.path);
}

void Ground::ensure(const Entry& entry)
{
    struct stat status = {};
    const bool there = lstat(entry.path.c_str(), &status) == 0;
    const mode_t type = there ? status.st_mode & S_IFMT : 0;
    if (type != entry.type) {
        if (there) {
            std::filesystem::remove_all(entry.path);
        }
        if (entry.type != 0) {
            make(entry);
        }
        return;
    }
    if (!there) {
        return;
    }
    if (status.st_uid != entry.owner || status.st_gid != entry.group) {
        require(lchown(entry.path.c_str(), entry.owner, entry.group) == 0, entry.path);
    }
    if (type != S_IFLNK && (status.st_mode & 07777) != entry.mode) {
        require(chmod(entry.path.c_str(), entry.mode) == 0, entry.path);
    }
}

void Ground::restore()
{
    // The outermost first: nothing may be looked up through a link that still stands there.
    for (auto exchange = exchanges_.rbegin(); exchange != exchanges_.rend(); ++exchange) {
        comeBack(*exchange);
    }
    if (typeOf(renamed) != 0) {
        if (typeOf(shop) == 0) {
            require(rename(renamed.c_str(), shop.c_str()) == 0, renamed);
        }
        std::filesystem::remove_all(renamed);
    }
    for (const Entry& entry : entries_) {
        ensure(entry);
    }
}

void Ground::mark(const std::string& path)
{
    Mark mark{path, {}};
    require(lstat(path.c_str(), &mark.status) == 0, path);
    marks_.push_back(mark);
}

void Ground::layOutSentinel()
{
    std::filesystem::remove_all(sentinel);
    std::filesystem::remove_all(beside);
    restore();
    makeDir(sentinel, {0700});
    std::vector<std::string> made = {sentinel};
    for (const Entry& entry : entries_) {
        if (isOfSite(entry.path) && (entry.type == S_IFDIR || entry.type == S_IFREG)) {
            made.push_back(twinOf(entry.path));
            makePrecious(made.back(), entry.type, made.size());
        }
    }
    // What stands beside a moved directory is called what stood beside it before.
    const auto take = [&made](const std::string& name, mode_t type) {
        made.push_back(beside + name);
        makePrecious(made.back(), type, made.size());
    };
    for (const char* name : {"/d0", "/e"}) {
        take(name, S_IFDIR);
        take(name + std::string("/f0"), S_IFREG);
    }
    for (int file = 0; file < files_; ++file) {
        take("/f" + std::to_string(file), S_IFREG);
    }
    marks_.clear();
    for (const std::string& path : made) {
        mark(path);
    }
    besideMoved_ = countOf(beside);
}

std::string Ground::touched() const
{
    for (const Mark& mark : marks_) {
        struct stat now = {};
        if (lstat(mark.path.c_str(), &now) != 0 || !same(now, mark.status)) {
            return mark.path;
        }
    }
    size_t moved = 0;
    for (const Exchange& exchange : exchanges_) {
        if (isRootsLink(exchange.inside) || isRootsLink(exchange.elsewhere)) {
            return exchange.inside + ", a link that is root's now";
        }
        const bool here = exchange.elsewhere.rfind(beside, 0) == 0;
        moved += here && typeOf(exchange.elsewhere) != 0 ? 1U : 0U;
    }
    return countOf(beside) == besideMoved_ + moved ? "" : beside;
}

} // namespace race
