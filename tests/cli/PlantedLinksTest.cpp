#include <cerrno>
#include <unistd.h>

#include "tests/cli/Site.h"
#include "tests/lib/SystemCallNames.h"
#include "tests/lib/Traced.h"

// Links that a site's user has planted before root comes along lead nowhere; those of root lead
// where they always did.

namespace
{

const std::string refused = "Too many levels of symbolic links";
const std::string tooMany = systemError(40, refused);

/// "/srv/elsewhere" looks like the domain's directory with its subdomain "shop".
class PlantedLinks : public Site
{
protected:
    inline static const std::string elsewhere = "/srv/elsewhere";
    inline static const std::string otherShop = elsewhere + "/subdomains/shop";

    PlantedLinks()
    {
        makeSkeleton();
        makeSite(otherShop);
        makeDir("/srv/home", {0755, site, users});
        before_ = treeOf(elsewhere);
    }

    static void makeSite(const std::string& path)
    {
        makeDirs(path);
        makeDir(path + "/httpdocs", {0700, other, kvoserv});
        makeFile(path + "/httpdocs/page", "a page", {0600, site, kvoserv});
        makeDir(path + "/cgi-bin", {0700, other, kvoserv});
        makeDir(path + "/conf", {0700, other, 0});
        makeFile(path + "/conf/old", "old", {0600, site, 0});
        makeDir(path + "/error_docs", {0700, other, 0});
    }

    static void plant(const std::string& path, const std::string& target, uid_t owner)
    {
        makeLink(path, target);
        ASSERT_EQ(lchown(path.c_str(), owner, 0), 0);
    }

    static Arguments creationAt(const std::string& webRoot)
    {
        return creation({"--www-root=" + webRoot, "--skip-cgi-bin"});
    }

    static Arguments creationWithCgiAt(const std::string& path)
    {
        return creation({"--skip-www-root", "--cgi-bin-path=" + path});
    }

    static Arguments changeWithoutWebRoot()
    {
        return change({"--skip-www-root", "--skip-cgi-bin"});
    }

    /// What the skeleton's copier says on standard error alone.
    static std::string notCopied(const std::string& path)
    {
        return "corbel:InstallSkeleton(): stat(\"" + path + "\") failed: " + refused + "\n";
    }

    static void expectCopierAndReports(const Outcome& end, const std::string& copier,
        const std::vector<std::string>& reports, int status)
    {
        EXPECT_EQ(end.err.substr(0, copier.size()), copier);
        const std::string rest = end.err.substr(std::min(copier.size(), end.err.size()));
        expectReported({end.status, end.out, rest}, reports, status);
    }

    /// With the user's link in place of a directory into which the skeleton brings one entry.
    static void expectCreationStoppedAt(const std::string& name, const std::string& entry)
    {
        const std::string place = shop + "/" + name;
        makeSite(shop);
        ASSERT_EQ(runProgram("/bin/rm", {"rm", "-r", place}).status, 0);
        plant(place, otherShop + "/" + name, site);
        expectCopierAndReports(run(usualCreation()), notCopied(place + "/" + entry),
            {"ERROR: Unable to chown " + name + ": " + refused + "\n" + tooMany,
                "Unable to create directory '" + name +
                    "' of subdomain shop for Standard Hosting example.test" + tooMany},
            255);
        ASSERT_EQ(runProgram("/bin/rm", {"rm", "-r", shop}).status, 0);
    }

    void expectNothingTouchedElsewhere() const { EXPECT_EQ(treeOf(elsewhere), before_); }

private:
    std::string before_;
};

/// A directory between the virtual-hosts root and the subdomain, and what a link there leads to.
struct Road {
    const char* name;
    const char* place;
    const char* target;
};

class LinksOnTheRoad : public PlantedLinks, public ::testing::WithParamInterface<Road>
{
protected:
    LinksOnTheRoad()
    {
        EXPECT_EQ(rmdir(subdomains.c_str()), 0);
        EXPECT_TRUE(rmdir(GetParam().place) == 0 || GetParam().place == subdomains);
    }

    static void plantOnTheRoad(uid_t owner) { plant(GetParam().place, GetParam().target, owner); }
};

INSTANTIATE_TEST_SUITE_P(For, LinksOnTheRoad,
    ::testing::Values(Road{"TheDomain", "/srv/www/vhosts/example.test", "/srv/elsewhere"},
        Road{"Subdomains", "/srv/www/vhosts/example.test/subdomains", "/srv/elsewhere/subdomains"}),
    [](const auto& road) { return std::string(road.param.name); });

} // namespace

TEST_P(LinksOnTheRoad, OfTheUserStopACreation)
{
    plantOnTheRoad(site);
    expectReported(run(usualCreation()),
        {"ERROR: Unable to mkdir " + shop + ": " + refused + "\n" + tooMany,
            "Unable to create directory '" + shop + "'" + tooMany},
        255);
    expectNothingTouchedElsewhere();
}

TEST_P(LinksOnTheRoad, OfTheUserStopAChangeOfUser)
{
    plantOnTheRoad(site);
    expectReported(run(changeWithoutWebRoot()),
        {"Unable to open dir " + shop + ": " + refused + "\n" + tooMany}, 1);
    expectNothingTouchedElsewhere();
}

TEST_P(LinksOnTheRoad, OfTheUserStopARemoval)
{
    plantOnTheRoad(site);
    expectReported(
        run(removal()), {"Unable to open dir " + shop + ": " + refused + "\n" + tooMany}, 1);
    expectNothingTouchedElsewhere();
}

TEST_P(LinksOnTheRoad, OfTheUserStopARenaming)
{
    plantOnTheRoad(site);
    expectReported(run(renaming("shop", "blog")),
        {"Remaming " + shop + " to " + subdomains + "/blog failed: " + refused + "\n" + tooMany},
        255);
    expectNothingTouchedElsewhere();
}

TEST_P(LinksOnTheRoad, OfRootAreFollowedByACreation)
{
    plantOnTheRoad(0);
    expectSilent(run(usualCreation()), 0);
    EXPECT_EQ(accessOf(otherShop + "/httpdocs"), "0750 site:kvoserv");
    EXPECT_EQ(contentOf(otherShop + "/httpdocs/index.html"), "<h1>example.test</h1>");
    EXPECT_EQ(accessOf(otherShop + "/conf/old"), "0644 root:kvoserv");
}

TEST_P(LinksOnTheRoad, OfRootAreFollowedByAChangeOfUser)
{
    plantOnTheRoad(0);
    expectSilent(run(changeWithoutWebRoot()), 0);
    EXPECT_EQ(accessOf(otherShop + "/httpdocs/page"), "0600 other:kvoserv");
    EXPECT_EQ(accessOf(otherShop + "/conf/old"), "0600 root:root");
}

TEST_P(LinksOnTheRoad, OfRootAreFollowedByARemoval)
{
    plantOnTheRoad(0);
    expectSilent(run(removal()), 0);
    EXPECT_EQ(treeOf(elsewhere), "dir  0755 root:root .\n"
                                 "dir  0755 root:root subdomains\n");
}

TEST_P(LinksOnTheRoad, OfRootAreFollowedByARenaming)
{
    plantOnTheRoad(0);
    expectSilent(run(renaming("shop", "blog")), 0);
    EXPECT_FALSE(exists(otherShop));
    EXPECT_TRUE(exists(elsewhere + "/subdomains/blog/httpdocs/page"));
}

TEST_F(PlantedLinks, ASubdomainThatIsTheUsersLinkStopsACreation)
{
    plant(shop, otherShop, site);
    expectReported(run(usualCreation()),
        {"ERROR: Unable to chown " + shop + ": " + refused + "\n" + tooMany,
            "Unable to create directory '" + shop + "'" + tooMany},
        255);
    expectNothingTouchedElsewhere();
}

TEST_F(PlantedLinks, ASubdomainThatIsTheUsersLinkStopsAChangeOfUser)
{
    const std::vector<std::string> reports{
        "ERROR: unable to chown " + shop + ": " + refused + "\n" + tooMany,
        "Unable to open dir " + shop + "/conf: " + refused + "\n" + tooMany};
    for (const std::string& target : {otherShop, std::string("nowhere")}) {
        plant(shop, target, site);
        expectReported(run(changeWithoutWebRoot()), reports, 1);
        ASSERT_EQ(unlink(shop.c_str()), 0);
    }
    expectNothingTouchedElsewhere();
}

TEST_F(PlantedLinks, ASubdomainThatIsALinkIsRemovedAndRenamedItselfWhoseverItIs)
{
    for (const uid_t owner : {uid_t{0}, site}) {
        plant(shop, otherShop, owner);
        expectSilent(run(renaming("shop", "blog")), 0);
        EXPECT_FALSE(exists(shop));
        expectSilent(run({"--remove", "--subdomain-name=blog", "--vhost-name=example.test"}), 0);
        EXPECT_FALSE(exists(subdomains + "/blog"));
    }
    expectNothingTouchedElsewhere();
}

TEST_F(PlantedLinks, OnTheRoadToANewNameStopARenamingOnlyIfThereIsSomethingToRename)
{
    plant(subdomains + "/link", elsewhere, site);
    expectSilent(run(renaming("shop", "link/blog")), 0);
    makeDir(shop);
    expectReported(run(renaming("shop", "link/blog")),
        {"Remaming " + shop + " to " + subdomains + "/link/blog failed: " + refused + "\n" +
            tooMany},
        255);
    EXPECT_TRUE(exists(shop));
    expectNothingTouchedElsewhere();
}

TEST_F(PlantedLinks, ASubdomainThatIsRootsLinkIsFollowedByACreation)
{
    plant(shop, otherShop, 0);
    expectSilent(run(usualCreation()), 0);
    EXPECT_EQ(accessOf(otherShop), "0755 root:root");
    EXPECT_EQ(accessOf(otherShop + "/httpdocs"), "0750 site:kvoserv");
    EXPECT_EQ(accessOf(otherShop + "/httpdocs/page"), "0755 site:kvocln");
    EXPECT_EQ(accessOf(otherShop + "/conf/old"), "0644 root:kvoserv");
}

TEST_F(PlantedLinks, ASubdomainThatIsRootsLinkIsNotWalkedByAChangeOfUserButConfInItIs)
{
    plant(shop, otherShop, 0);
    expectSilent(run(changeWithoutWebRoot()), 0);
    EXPECT_EQ(accessOf(otherShop + "/httpdocs/page"), "0600 site:kvoserv");
    EXPECT_EQ(accessOf(otherShop + "/conf"), "0700 root:root");
    EXPECT_EQ(accessOf(otherShop + "/conf/old"), "0600 root:root");
}

TEST_F(PlantedLinks, AWebRootThatIsTheUsersLinkGetsNothing)
{
    const std::string web = "/srv/home/web";
    plant(web, otherShop + "/httpdocs", site);
    expectCopierAndReports(run(creationAt(web)),
        notCopied(web + "/img") + notCopied(web + "/img/logo") + notCopied(web + "/index.html"),
        {"Unable to create and set permissions for " + web + tooMany}, 255);
    expectNothingTouchedElsewhere();
}

TEST_F(PlantedLinks, ACgiDirectoryThatIsTheUsersLinkGetsNothing)
{
    const std::string cgi = "/srv/home/cgi";
    plant(cgi, otherShop + "/cgi-bin", site);
    expectCopierAndReports(run(creationWithCgiAt(cgi)), notCopied(cgi + "/run"),
        {"Unable to create and set permissions for " + cgi + tooMany}, 255);
    expectNothingTouchedElsewhere();
}

TEST_F(PlantedLinks, AWebRootBehindALinkOfTheUserGetsNothing)
{
    plant("/srv/home/middle", otherShop, site);
    const std::string web = "/srv/home/middle/httpdocs";
    expectCopierAndReports(run(creationAt(web)),
        notCopied(web) + notCopied(web + "/img") + notCopied(web + "/img/logo") +
            notCopied(web + "/index.html"),
        {"Cannot create directory " + web + ": " + refused + tooMany}, 1);
    expectNothingTouchedElsewhere();
}

TEST_F(PlantedLinks, ACgiDirectoryBehindALinkOfTheUserGetsNothing)
{
    plant("/srv/home/middle", otherShop, site);
    const std::string cgi = "/srv/home/middle/cgi-bin";
    expectCopierAndReports(run(creationWithCgiAt(cgi)), notCopied(cgi) + notCopied(cgi + "/run"),
        {"Cannot create directory " + cgi + ": " + refused + tooMany}, 1);
    expectNothingTouchedElsewhere();
}

TEST_F(PlantedLinks, AMissingWebRootIsNotMadeBehindALinkOfTheUser)
{
    plant("/srv/home/middle", elsewhere, site);
    const std::string web = "/srv/home/middle/new/httpdocs";
    const Outcome end = run(creationAt(web));
    EXPECT_EQ(
        end.out, "twigctl: Cannot create directory /srv/home/middle/new: " + refused + tooMany);
    EXPECT_EQ(end.status, 1);
    expectNothingTouchedElsewhere();
}

TEST_F(PlantedLinks, ALinkOfTheUserToNothingIsNoPlaceForAWebRoot)
{
    plant("/srv/home/web", elsewhere + "/new", site);
    EXPECT_EQ(run(creationAt("/srv/home/web")).status, 255);
    expectNothingTouchedElsewhere();
}

TEST_F(PlantedLinks, AWebRootThatIsRootsLinkIsFilledAndItselfHandedOver)
{
    makeDir("/srv/web", {0700, other, 0});
    plant("/srv/home/web", "/srv/web", 0);
    expectSilent(run(creationAt("/srv/home/web")), 0);
    EXPECT_EQ(treeOf("/srv/web"), "dir  0750 site:kvoserv .\n"
                                  "dir  0755 root:kvocln img\n"
                                  "file 0600 root:kvocln img/logo \"\\x00\xff\"\n"
                                  "file 0644 root:kvocln index.html \"<h1>example.test</h1>\"\n");
}

TEST_F(PlantedLinks, AWebRootBehindALinkOfRootIsFilledAndHandedOverAltogether)
{
    makeDir("/srv/big");
    plant("/srv/home/middle", "/srv/big", 0);
    expectSilent(run(creationAt("/srv/home/middle/web")), 0);
    EXPECT_EQ(treeOf("/srv/big"),
        "dir  0755 root:root .\n"
        "dir  0750 site:kvoserv web\n"
        "dir  0755 site:kvocln web/img\n"
        "file 0755 site:kvocln web/img/logo \"\\x00\xff\"\n"
        "file 0755 site:kvocln web/index.html \"<h1>example.test</h1>\"\n");
}

TEST_F(PlantedLinks, ALinkOfRootThatLeadsThroughOneOfTheUserIsNotFollowed)
{
    plant("/srv/home/theirs", otherShop, site);
    plant("/srv/web", "/srv/home/theirs/httpdocs", 0);
    EXPECT_EQ(run(creationAt("/srv/web")).status, 255);
    expectNothingTouchedElsewhere();
}

TEST_F(PlantedLinks, AChangeOfUserPassesOverAWebRootThatIsALinkWhoseverItIs)
{
    makeSite(shop);
    for (const uid_t owner : {uid_t{0}, site}) {
        plant("/srv/home/web" + std::to_string(owner), otherShop + "/httpdocs", owner);
        expectSilent(
            run(change({"--www-root=/srv/home/web" + std::to_string(owner), "--skip-cgi-bin"})), 0);
    }
    EXPECT_EQ(accessOf(shop + "/conf/old"), "0600 root:root");
    expectNothingTouchedElsewhere();
}

TEST_F(PlantedLinks, AChangeOfUserEndsAtAWebRootBehindALinkOfTheUser)
{
    makeSite(shop);
    plant("/srv/home/middle", otherShop, site);
    expectReported(run(change({"--www-root=/srv/home/middle/httpdocs", "--skip-cgi-bin"})),
        {"Unable to open dir /srv/home/middle/httpdocs: " + refused + "\n" + tooMany}, 1);
    EXPECT_EQ(accessOf(shop + "/httpdocs/page"), "0600 other:kvoserv");
    EXPECT_EQ(accessOf(shop + "/conf/old"), "0600 other:root");
    expectNothingTouchedElsewhere();
}

TEST_F(PlantedLinks, AChangeOfUserFollowsALinkOfRootOnTheWayToTheWebRoot)
{
    makeSite(shop);
    plant("/srv/home/middle", otherShop, 0);
    expectSilent(run(change({"--www-root=/srv/home/middle/httpdocs", "--skip-cgi-bin"})), 0);
    EXPECT_EQ(accessOf(otherShop + "/httpdocs/page"), "0600 other:kvoserv");
}

TEST_F(PlantedLinks, InPlaceOfConfOrErrorDocsStopACreation)
{
    expectCreationStoppedAt("conf", "site");
    expectCreationStoppedAt("error_docs", "404");
    expectNothingTouchedElsewhere();
}

TEST_F(PlantedLinks, InPlaceOfConfAreNotHandedOverThemselvesWhateverLookAtAFileFails)
{
    const Arguments arguments = with({"twigctl"}, usualCreation());
    makeDirs(shop);
    plant(shop + "/conf", otherShop + "/conf", site);
    const std::vector<long> calls = callsOfRun(program(), arguments, {});
    size_t looks = 0;
    for (size_t index = 1; index <= calls.size(); ++index) {
        const std::string name = systemCallName(calls[index - 1]);
        if (name != "newfstatat" && name != "fstat") {
            continue;
        }
        ++looks;
        ASSERT_EQ(runProgram("/bin/rm", {"rm", "-r", shop}).status, 0);
        makeDirs(shop);
        plant(shop + "/conf", otherShop + "/conf", site);
        (void)runTracedAt(program(), arguments, {}, calls, index,
            [](const SystemCall& /*call*/) { return Verdict::failLast(EIO); });
        EXPECT_EQ(accessOf(shop + "/conf"), "0777 site:root") << index;
    }
    EXPECT_GT(looks, 10U);
    expectNothingTouchedElsewhere();
}

TEST_F(PlantedLinks, InPlaceOfConfArePassedOverByAChangeOfUser)
{
    makeSite(shop);
    ASSERT_EQ(runProgram("/bin/rm", {"rm", "-r", shop + "/conf"}).status, 0);
    plant(shop + "/conf", otherShop + "/conf", site);
    expectSilent(run(changeWithoutWebRoot()), 0);
    EXPECT_EQ(accessOf(shop + "/httpdocs/page"), "0600 other:kvoserv");
    EXPECT_EQ(accessOf(shop + "/error_docs"), "0700 root:root");
    expectNothingTouchedElsewhere();
}

TEST_F(PlantedLinks, InPlaceOfConfAreFollowedByACreationIfTheyAreRoots)
{
    makeSite(shop);
    ASSERT_EQ(runProgram("/bin/rm", {"rm", "-r", shop + "/conf"}).status, 0);
    makeDir("/srv/shared", {0700});
    plant(shop + "/conf", "/srv/shared", 0);
    expectSilent(run(usualCreation()), 0);
    EXPECT_EQ(treeOf("/srv/shared"), "dir  0750 root:kvoserv .\n"
                                     "file 0644 root:kvocln site \"ServerName example.test\\n\"\n");
}

TEST_F(PlantedLinks, InTheSiteAreRemovedThemselves)
{
    makeSite(shop);
    plant(shop + "/httpdocs/theirs", elsewhere, site);
    plant(shop + "/httpdocs/ours", otherShop, 0);
    plant(shop + "/httpdocs/file", otherShop + "/httpdocs/page", site);
    expectSilent(run(removal()), 0);
    EXPECT_FALSE(exists(shop));
    expectNothingTouchedElsewhere();
}
