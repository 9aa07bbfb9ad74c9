#include "tests/disturbed/PassedOver.h"

#include <cerrno>
#include <set>
#include <sstream>
#include <unistd.h>

#include "tests/lib/SystemCallNames.h"

namespace
{

bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

bool isIn(const std::string& name, const std::set<std::string>& names)
{
    return names.count(name) > 0;
}

/// The path that a call looks at, "" if it does not look at one.
std::string lookedAt(const std::string& name, const SystemCall& call)
{
    if (!isIn(name, {"newfstatat", "statx"})) {
        return "";
    }
    const std::string path = call.text(1);
    const std::string directory = call.descriptor(static_cast<int>(call.arguments[0]));
    return path.empty() ? directory : path[0] == '/' ? path : directory + '/' + path;
}

/// What the calls that set access work on: a descriptor, or a path below one.
std::string changed(const std::string& name, const SystemCall& call)
{
    const bool byDescriptor = isIn(name, {"fchmod", "fchown"});
    if (!byDescriptor && !isIn(name, {"fchmodat", "fchmodat2", "fchownat"})) {
        return "";
    }
    const std::string directory = call.descriptor(static_cast<int>(call.arguments[0]));
    const std::string path = byDescriptor ? "" : call.text(1);
    return path.empty() ? directory : directory + '/' + path;
}

/// A copied file, before it has its name.
bool isNewFile(const std::string& path)
{
    return contains(path, "/#") || contains(path, "/.new-");
}

/// A sanitizer takes memory, and tries through a pipe whether some can be read; if it cannot, it
/// ends the program or complains of what is right. The program itself makes no pipe.
bool isOfSanitizer(const std::string& name, const SystemCall& call)
{
#ifdef __SANITIZE_ADDRESS__
    const int file = static_cast<int>(call.arguments[0]);
    const bool triesMemory =
        name == "write" && file > STDERR_FILENO && call.descriptor(file).starts_with("pipe:");
    return triesMemory || isIn(name, {"mmap", "pipe", "pipe2"});
#else
    (void)name;
    (void)call;
    return false;
#endif
}

const std::string skeletons = "/srv/www/vhosts/.skel/";
const std::string shop = "/srv/www/vhosts/example.test/subdomains/shop";

} // namespace

bool canFail(const SystemCall& call)
{
    const std::string name = systemCallName(call.number);
    // The first four have no errors, and a wake-up of nobody has none that could come up here.
    return !isIn(name, {"umask", "geteuid", "getuid", "getpid", "futex"}) &&
           !isOfSanitizer(name, call);
}

Allowance allowanceFor(const Scenario& scenario, const SystemCall& call)
{
    using Lasting = Allowance::Lasting;
    const std::string name = systemCallName(call.number);
    const std::string file = call.descriptor(static_cast<int>(call.arguments[0]));
    const std::string path = lookedAt(name, call);
    // A directory of the site that cannot be read further ends there.
    if (name == "getdents64" && !file.starts_with(skeletons)) {
        return {true};
    }
    // The copier does not check what mode and group an entry gets. No other step sets those of
    // "anon_ftp".
    const std::string target = changed(name, call);
    if (isNewFile(target)) {
        return {true, Lasting::accessOfFiles};
    }
    if (target.starts_with(shop + "/anon_ftp")) {
        return {true, name == "fchownat" ? Lasting::groupInAnonFtp : Lasting::nothing};
    }
    // A skeleton that cannot be looked at is used nevertheless, which copies nothing.
    if (path == skeletons + "7" || path == skeletons + "0") {
        return {true, Lasting::levelsAbove};
    }
    // What cannot be looked at counts as missing: nothing to rename, no top to give to root. So
    // does what lies behind a directory that may not be searched.
    const bool looks = path == shop || (name == "openat2" && call.text(1) == shop);
    if (looks && !scenario.name.starts_with("Create")) {
        return {true};
    }
    if (scenario.name.starts_with("Rename") && scenario.error == EACCES && name == "openat2") {
        return {true};
    }
    // A report that cannot be written, here or there.
    if (name == "write" && call.arguments[0] <= 2) {
        return {.silence = true, .cutReports = true};
    }
    return {};
}

Allowance::Lasting allowanceAfter(const Scenario& scenario, const std::string& reports)
{
    // An account that cannot be looked up is told, and has the id 0. A web root or a CGI directory
    // that the copier does not make is made by a later step, and so are the levels above it. A
    // level that cannot be given to its owner is told, and is root's.
    const std::vector<std::string> texts = {"Unable to getpwnam for user", "getgrnam(",
        "Cannot chown ", "stat(\"" + scenario.webRoot + "\") failed",
        "stat(\"" + scenario.cgiBin + "\") failed",
        skeletons + "0/httpdocs: ", skeletons + "0/cgi-bin: "};
    for (const std::string& text : texts) {
        if (contains(reports, text)) {
            return Allowance::Lasting::levelsAbove;
        }
    }
    return Allowance::Lasting::nothing;
}

bool covers(Allowance::Lasting lasting, const Scenario& scenario, const std::string& differences)
{
    if (lasting == Allowance::Lasting::nothing) {
        return false;
    }
    std::istringstream lines(differences);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string mark;
        std::string kind;
        std::string mode;
        std::string owner;
        std::string path;
        if (!(words >> mark >> kind >> mode >> owner >> path)) {
            return false;
        }
        const std::string whole = "/srv/www/" + path + '/';
        const bool above =
            scenario.webRoot.starts_with(whole) || scenario.cgiBin.starts_with(whole);
        const bool isCovered = lasting == Allowance::Lasting::accessOfFiles ? kind == "file"
                               : lasting == Allowance::Lasting::groupInAnonFtp
                                   ? kind == "dir" && whole.starts_with(shop + "/anon_ftp/")
                                   : kind == "dir" && above;
        if (!isCovered) {
            return false;
        }
    }
    return true;
}
