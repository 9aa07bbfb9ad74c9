#include "tests/disturbed/Scenario.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>

#include "tests/lib/Files.h"

namespace
{

using Arguments = std::vector<std::string>;

constexpr uid_t site = 1001;
constexpr gid_t users = 100;
constexpr gid_t kvoserv = 2001;
constexpr gid_t kvocln = 2002;

const std::string root = "/srv/www/vhosts";
const std::string domain = root + "/example.test";
const std::string shop = domain + "/subdomains/shop";
const std::string skeleton = root + "/.skel/0";

const std::string page = "<h1>@domain_name@</h1>\n";

/// What may stand beside files and directories; none of it is copied or followed.
void makeOddEntries(const std::string& directory, Access access)
{
    makeLink(directory + "/link", "index.html");
    makeLink(directory + "/astray", "/srv/www/elsewhere");
    makeFifo(directory + "/fifo", access);
    makeSocket(directory + "/socket", access);
    makeDevice(directory + "/device", access);
}

void makeLargeSkeleton()
{
    makeFile(skeleton + "/httpdocs/empty", "", {0400});
    std::string large;
    for (int i = 0; i < 20000; ++i) {
        large += page;
    }
    makeFile(skeleton + "/httpdocs/img/large", large, {06755});
    makeDirs(skeleton + "/httpdocs/deep/er/est");
    makeFile(skeleton + "/httpdocs/deep/er/est/page", page, {0000});
    makeDir(skeleton + "/httpdocs/closed", {0000});
    makeOddEntries(skeleton + "/httpdocs/img", {0644});
    makeFile(skeleton + "/cgi-bin/run", "#!/bin/sh\n", {04711});
    makeDir(skeleton + "/anon_ftp/incoming", {01733});
    makeDir(skeleton + "/anon_ftp/pub/all", {07777, 0, users});
    makeFile(skeleton + "/error_docs/404", "nothing at @domain_name@", {0444});
    makeDir(skeleton + "/error_docs/de", {01755});
    makeFile(skeleton + "/error_docs/de/404", "nichts", {01644});
    makeDir(skeleton + "/conf/parts", {03700});
    makeFile(skeleton + "/conf/parts/part", "x");
}

void makeSkeleton()
{
    makeDirs(skeleton);
    makeDir(skeleton + "/httpdocs", {0755});
    makeFile(skeleton + "/httpdocs/index.html", page);
    makeLink(skeleton + "/httpdocs/link", "index.html");
    makeDir(skeleton + "/httpdocs/img", {02775, 0, users});
    makeFile(skeleton + "/httpdocs/img/logo", std::string("\0\xff", 2), {0600});
    makeDir(skeleton + "/cgi-bin", {0750});
    makeDir(skeleton + "/conf", {0700});
    makeFile(skeleton + "/conf/site", "ServerName @domain_name@\n", {0600});
    // Nothing sets owners and modes in here again after the copy.
    makeDir(skeleton + "/anon_ftp", {0755});
    makeDir(skeleton + "/anon_ftp/pub", {02750, 0, users});
    makeFile(skeleton + "/anon_ftp/pub/readme", "of @domain_name@", {02640});
    makeDir(skeleton + "/error_docs", {0755});
    if (isFullRun()) {
        makeLargeSkeleton();
    }
}

void makeElsewhere()
{
    makeDir("/srv/www/elsewhere", {0751, 7, 7});
    makeFile("/srv/www/elsewhere/file", "not the site's", {0640, 7, 7});
}

/// A site that is in use: with files of its own, some of the skeleton's changed, some missing.
void makeSiteDirectories()
{
    makeDir(shop, {0700, site, users});
    makeDir(shop + "/httpdocs", {0711, site, users});
    makeFile(shop + "/httpdocs/index.html", "my own", {0600, site, users});
    makeFile(shop + "/httpdocs/more.html", "more", {06711, site, users});
    makeDir(shop + "/httpdocs/photos", {03777, site, users});
    makeDir(shop + "/httpdocs/photos/2006", {0700, site, users});
    makeFile(shop + "/httpdocs/photos/2006/one", "1", {0400, site, users});
    makeOddEntries(shop + "/httpdocs/photos", {0666, site, users});
    makeDir(shop + "/cgi-bin", {0777, site, users});
    makeFile(shop + "/cgi-bin/form", "#!/bin/sh\n", {0777, site, users});
    makeFile(shop + "/notes", "keep", {0640, site, users});
    makeElsewhere();
}

void makeSite()
{
    makeSiteDirectories();
    makeDir(shop + "/conf", {0700, site, users});
    makeFile(shop + "/conf/own", "Options None\n", {0600, site, users});
    makeDir(shop + "/error_docs", {0755, 0, kvoserv});
    makeFile(shop + "/error_docs/404", "gone", {0664, site, kvocln});
    makeDir(shop + "/error_docs/fr", {01777, site, kvocln});
}

void makeFreshGround()
{
    makeDirs(domain + "/subdomains");
    makeSkeleton();
    makeElsewhere();
}

/// A skeleton that leaves the web root and the CGI directory to be made without it.
void makeFreshGroundWithoutPages()
{
    makeDirs(domain + "/subdomains");
    makeDirs(skeleton);
    makeDir(skeleton + "/conf");
    makeElsewhere();
}

void makeSkeletonAndSite()
{
    makeDirs(domain + "/subdomains");
    makeSkeleton();
    makeSite();
}

void makeSkeletonAndSiteWithoutConf()
{
    makeDirs(domain + "/subdomains");
    makeSkeleton();
    makeSiteDirectories();
}

void makeOldSite()
{
    makeDirs(domain + "/subdomains");
    makeSite();
}

void makeOldSiteWithoutErrorDocs()
{
    makeDirs(domain + "/subdomains");
    makeSiteDirectories();
    makeDir(shop + "/conf", {0700, site, users});
}

const Arguments ofShop = {"--subdomain-name=shop", "--vhost-name=example.test"};

Arguments with(Arguments arguments, const Arguments& more)
{
    arguments.insert(arguments.begin(), "twigctl");
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
}

Arguments creation(const std::string& webRoot, const std::string& cgiBin)
{
    return with({"--create", "--user-name=site", "--cl-id=7", "--www-root=" + webRoot,
                    "--cgi-bin-path=" + cgiBin},
        ofShop);
}

Arguments usualCreation()
{
    return creation(shop + "/httpdocs", shop + "/cgi-bin");
}

Arguments change()
{
    return with({"--change-user", "--user-name=other", "--www-root=" + shop + "/httpdocs",
                    "--skip-cgi-bin"},
        ofShop);
}

/// The first ones make the short run.
std::vector<Scenario> allScenarios()
{
    return {
        {"CreateFresh", "create, fresh", usualCreation(), makeFreshGround},
        {"CreateOnSite", "create, existing site", usualCreation(), makeSkeletonAndSite},
        {"CreateDeepAlone", "create, relative web root four levels deep, not in the skeleton",
            creation("a/b/c/web", "a/b/x/cgi"), makeFreshGroundWithoutPages, shop + "/a/b/c/web",
            shop + "/a/b/x/cgi"},
        {"Remove", "remove", with({"--remove"}, ofShop), makeOldSite},
        {"ChangeUser", "change-user", change(), makeOldSite},
        {"Rename", "rename",
            with({"--rename", "--vhost-name=example.test", "--old-name=shop", "--new-name=store"},
                {}),
            makeOldSite},
        {"CreateOnBareSite", "create, existing site without conf and error_docs", usualCreation(),
            makeSkeletonAndSiteWithoutConf},
        {"CreateDeepInside", "create, web root four levels deep inside",
            creation(shop + "/a/b/c/web", shop + "/a/b/x/cgi"), makeFreshGround,
            shop + "/a/b/c/web", shop + "/a/b/x/cgi"},
        {"CreateDeepOutside", "create, web root four levels deep outside",
            creation("/srv/www/roots/a/b/web", "/srv/www/roots/a/x/cgi"), makeFreshGround,
            "/srv/www/roots/a/b/web", "/srv/www/roots/a/x/cgi"},
        {"ChangeUserPartly", "change-user without error_docs", change(),
            makeOldSiteWithoutErrorDocs, "", "", 1},
    };
}

} // namespace

bool isFullRun()
{
    return std::getenv("TWIGCTL_FULL") != nullptr;
}

std::vector<Scenario> scenarios()
{
    std::vector<Scenario> chosen = allScenarios();
    if (!isFullRun()) {
        chosen.resize(6);
    }
    return chosen;
}

std::vector<Scenario> scenariosWithFallbacks()
{
    struct Missing {
        std::string name;
        std::string calls;
    };
    std::vector<Missing> ways = {
        {"Everything", "O_TMPFILE:EOPNOTSUPP,linkat:EPERM,openat2:ENOSYS,"
                       "fchmodat2:ENOSYS,statx:ENOSYS,close_range:ENOSYS"},
        {"NamelessFiles", "O_TMPFILE:EOPNOTSUPP"},
        {"RenameNoReplace", "O_TMPFILE:EOPNOTSUPP,renameat2:EINVAL"},
        {"Linkat", "linkat:EPERM"},
        {"Openat2", "openat2:ENOSYS"},
        {"Fchmodat2", "fchmodat2:ENOSYS"},
    };
    std::vector<Scenario> operations = allScenarios();
    operations.resize(isFullRun() ? 6 : 1);
    if (!isFullRun()) {
        ways.resize(1);
    }
    std::vector<Scenario> all;
    for (const Scenario& scenario : operations) {
        for (const Missing& missing : ways) {
            Scenario without = scenario;
            without.name += "Without" + missing.name;
            without.title += ", without " + missing.calls;
            without.without = missing.calls;
            all.push_back(without);
        }
    }
    return all;
}

std::vector<Scenario> scenariosWithErrors()
{
    const std::vector<int> errors =
        isFullRun() ? std::vector<int>{EIO, ENOSPC, EDQUOT, EMFILE, ENOMEM, EACCES, EINTR, EROFS}
                    : std::vector<int>{EIO, EINTR};
    std::vector<Scenario> all;
    for (const Scenario& scenario : scenarios()) {
        for (const int error : errors) {
            Scenario failing = scenario;
            failing.name += std::string("With") + strerrorname_np(error);
            failing.error = error;
            all.push_back(failing);
        }
    }
    return all;
}
