#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

#include "site/SiteRemover.h"
#include "tests/site/SkeletonInstallerFixture.h"

// The roads to the directories that a site is made of: the virtual host, the document root, the CGI
// directory and the skeleton. A link on them is followed if it is root's. The site's user, who can
// put one into any directory that is theirs, sends nobody anywhere.

namespace
{

/// The skeleton has a file for each tree. "/srv/real" is where links lead: it holds "place", and
/// nothing of it may change.
class SiteRoads : public SkeletonInstaller
{
protected:
    SiteRoads()
    {
        makeSkeletonFile("httpdocs/css/style", "new");
        makeSkeletonFile("httpdocs/index", "new");
        makeSkeletonFile("cgi-bin/x", "new");
        makeSkeletonFile("conf/c", "new");
        makeDirs("/srv/real/place");
        makeFile("/srv/real/kept", "precious");
        makeDir("/srv/home", {0755, site, users});
        real_ = treeOf("/srv/real");
    }

    /// A link that the site's user put there.
    static void plantLink(const std::string& path, const std::string& target)
    {
        makeLink(path, target);
        EXPECT_EQ(lchown(path.c_str(), site, users), 0);
    }

    static std::string loop(const std::string& destination)
    {
        return installer("stat(\"" + destination + "\") failed: Too many levels of symbolic links");
    }

    static std::string sourceLoop(const std::string& source)
    {
        return installer(source + ": Too many levels of symbolic links");
    }

    static std::string emptying(const std::string& directory, const zelto::SkeletonOptions& options)
    {
        return errorsOf([&] { EXPECT_EQ(zelto::emptySiteDirectories(directory, options), 0U); });
    }

    std::string real_;
};

} // namespace

// --- the document root and the CGI directory ---

TEST_F(SiteRoads, TheWebRootIsNotSoughtThroughALinkOfTheUser)
{
    plantLink("/srv/home/link", "/srv/real");
    for (const std::string web :
        {"/srv/home/link/web", "/srv/home/link/place", "/srv/home/link/a/b"}) {
        options_.www_root = web.c_str();
        EXPECT_EQ(messages(),
            loop(web) + loop(web + "/css") + loop(web + "/css/style") + loop(web + "/index"));
        EXPECT_EQ(treeOf("/srv/real"), real_);
    }
    EXPECT_TRUE(exists("/srv/cgi/x"));
    EXPECT_TRUE(exists(subdomain + "/conf/c"));
}

TEST_F(SiteRoads, AWebRootThatTheUserMadeALinkIsThereAndNothingIsPutWhereItLeads)
{
    plantLink("/srv/web", "/srv/real/place");
    EXPECT_EQ(
        messages(), loop("/srv/web/css") + loop("/srv/web/css/style") + loop("/srv/web/index"));
    EXPECT_EQ(allMessages(), alreadyExists("/srv/cgi/x") + alreadyExists(subdomain + "/conf/c") +
                                 alreadyExists("/srv/web") + loop("/srv/web/css") +
                                 loop("/srv/web/css/style") + loop("/srv/web/index"));
    EXPECT_EQ(treeOf("/srv/real"), real_);
}

TEST_F(SiteRoads, AWebRootThatTheUserMadeALinkIsNotFollowedForASlashAtItsEnd)
{
    plantLink("/srv/web", "/srv/real/place");
    options_.www_root = "/srv/web/";
    EXPECT_EQ(messages(), loop("/srv/web/") + loop("/srv/web/css") + loop("/srv/web/css/style") +
                              loop("/srv/web/index"));
    EXPECT_EQ(treeOf("/srv/real"), real_);
}

TEST_F(SiteRoads, ALinkOfRootThatLeadsThroughOneOfTheUserIsNoBetter)
{
    plantLink("/srv/home/link", "/srv/real");
    makeLink("/srv/ours", "home/link/place");
    options_.www_root = "/srv/ours/web";
    EXPECT_EQ(messages(), loop("/srv/ours/web") + loop("/srv/ours/web/css") +
                              loop("/srv/ours/web/css/style") + loop("/srv/ours/web/index"));
    EXPECT_EQ(treeOf("/srv/real"), real_);
}

TEST_F(SiteRoads, TheCgiDirectoryIsNotSoughtThroughALinkOfTheUser)
{
    plantLink("/srv/home/link", "/srv/real");
    options_.cgi_bin_path = "/srv/home/link/cgi";
    EXPECT_EQ(messages(), loop("/srv/home/link/cgi") + loop("/srv/home/link/cgi/x"));
    EXPECT_EQ(treeOf("/srv/real"), real_);
    EXPECT_TRUE(exists("/srv/web/css/style"));
    EXPECT_TRUE(exists(subdomain + "/conf/c"));
}

TEST_F(SiteRoads, NothingIsPutWhereACgiDirectoryThatTheUserMadeALinkLeads)
{
    plantLink("/srv/cgi", "/srv/real/place");
    EXPECT_EQ(messages(), loop("/srv/cgi/x"));
    EXPECT_EQ(treeOf("/srv/real"), real_);
    EXPECT_TRUE(exists("/srv/web/css/style"));
    EXPECT_TRUE(exists(subdomain + "/conf/c"));
}

TEST_F(SiteRoads, LinksOfRootLeadToTheWebRootAndTheCgiDirectory)
{
    makeLink("/srv/home/link", "/srv/real");
    makeLink("/srv/cgi", "real/place");
    options_.www_root = "/srv/home/link/a/web";
    EXPECT_EQ(messages(), "");
    EXPECT_EQ(treeOf("/srv/real"), "dir  0755 root:root .\n"
                                   "dir  0755 root:root a\n"
                                   "dir  0755 root:kvocln a/web\n"
                                   "dir  0755 root:kvocln a/web/css\n"
                                   "file 0644 root:kvocln a/web/css/style \"new\"\n"
                                   "file 0644 root:kvocln a/web/index \"new\"\n"
                                   "file 0644 root:root kept \"precious\"\n"
                                   "dir  0755 root:root place\n"
                                   "file 0644 root:kvocln place/x \"new\"\n");
}

TEST_F(SiteRoads, AWebRootExchangedForALinkWhileItIsFilledIsFilledNoFurther)
{
    // While "css" is being made: "cgi-bin", "conf" and the document root itself were before it.
    faults::runBefore("fchownat", 4, [] {
        ASSERT_EQ(rename("/srv/web", "/srv/moved"), 0);
        plantLink("/srv/web", "/srv/real");
    });
    EXPECT_EQ(messages(), loop("/srv/web/css/style") + loop("/srv/web/index"));
    EXPECT_EQ(treeOf("/srv/real"), real_);
    EXPECT_EQ(treeOf("/srv/moved"), "dir  0755 root:kvocln .\n"
                                    "dir  0755 root:kvocln css\n");
}

// --- the virtual host ---

TEST_F(SiteRoads, NothingIsPutWhereAVirtualHostThatTheUserMadeALinkLeads)
{
    ASSERT_EQ(rmdir(subdomain.c_str()), 0);
    plantLink(subdomain, "/srv/real/place");
    EXPECT_EQ(messages(), loop(subdomain + "/anon_ftp") + loop(subdomain + "/conf") +
                              loop(subdomain + "/conf/c") + loop(subdomain + "/error_docs"));
    EXPECT_EQ(treeOf("/srv/real"), real_);
    EXPECT_TRUE(exists("/srv/web/index"));
    EXPECT_TRUE(exists("/srv/cgi/x"));
}

TEST_F(SiteRoads, AVirtualHostIsNotSoughtThroughALinkOfTheUser)
{
    ASSERT_EQ(rename((domain + "/subdomains").c_str(), "/srv/real/subdomains"), 0);
    const std::string before = treeOf("/srv/real");
    plantLink(domain + "/subdomains", "/srv/real/subdomains");
    EXPECT_EQ(messages(), loop(subdomain + "/anon_ftp") + loop(subdomain + "/conf") +
                              loop(subdomain + "/conf/c") + loop(subdomain + "/error_docs"));
    EXPECT_EQ(treeOf("/srv/real"), before);
    EXPECT_TRUE(exists("/srv/web/index"));
}

TEST_F(SiteRoads, AMissingVirtualHostIsNotMadeThroughALinkOfTheUser)
{
    ASSERT_EQ(rmdir(subdomain.c_str()), 0);
    ASSERT_EQ(rmdir((domain + "/subdomains").c_str()), 0);
    plantLink(domain + "/subdomains", "/srv/real/place");
    EXPECT_EQ(thrownBy([&] { (void)install(); }),
        "boost::filesystem::create_directory: Too many levels of symbolic links: \"" + subdomain +
            '"');
    EXPECT_EQ(treeOf("/srv/real"), real_);
    EXPECT_FALSE(exists("/srv/web"));
}

TEST_F(SiteRoads, LinksOfRootLeadToTheVirtualHost)
{
    ASSERT_EQ(rmdir(subdomain.c_str()), 0);
    ASSERT_EQ(rmdir((domain + "/subdomains").c_str()), 0);
    makeLink(domain + "/subdomains", "/srv/real/place");
    EXPECT_EQ(messages(), "");
    EXPECT_EQ(accessOf("/srv/real/place/shop"), "0755 root:root");
    EXPECT_TRUE(exists("/srv/real/place/shop/conf/c"));
    makeLink("/srv/real/place/second", "/srv/home");
    EXPECT_EQ(zelto::installForSubdomain("example.test", "second", "7", options_), 0U);
    EXPECT_TRUE(exists("/srv/home/conf/c"));
}

TEST_F(SiteRoads, AVirtualHostThatIsALinkToNothingCannotBeMade)
{
    ASSERT_EQ(rmdir(subdomain.c_str()), 0);
    makeLink(subdomain, "nowhere");
    EXPECT_EQ(thrownBy([&] { (void)install(); }),
        "boost::filesystem::create_directory: File exists: \"" + subdomain + '"');
    EXPECT_FALSE(exists(domain + "/subdomains/nowhere"));
}

TEST_F(SiteRoads, AVirtualHostThatAppearsMeanwhileIsKeptIfItIsADirectory)
{
    static const char* const shop = "/srv/www/vhosts/example.test/subdomains/shop";
    const auto installWhile = [this](void (*appear)()) {
        (void)remove(shop);
        faults::clear();
        faults::runBefore("mkdirat", 1, appear);
        return thrownBy([&] { (void)install(); });
    };
    const std::string isThere =
        "boost::filesystem::create_directory: File exists: \"" + subdomain + '"';
    EXPECT_EQ(installWhile([] { makeFile(shop, "theirs"); }), isThere);
    EXPECT_EQ(contentOf(shop), "theirs");
    EXPECT_EQ(installWhile([] { plantLink(shop, "/srv/real"); }), isThere);
    EXPECT_EQ(treeOf("/srv/real"), real_);
    EXPECT_EQ(installWhile([] {
        makeFile(shop, "theirs");
        faults::runBefore("fstatat", 1, [] { ASSERT_EQ(unlink(shop), 0); });
    }),
        isThere);
    EXPECT_EQ(installWhile([] { makeDir(shop, {0711, site, users}); }), "nothing");
    EXPECT_EQ(accessOf(shop), "0711 site:users");
    EXPECT_TRUE(exists(subdomain + "/conf/c"));
}

TEST_F(SiteRoads, AVirtualHostIsMadeUnderTheUmask)
{
    ASSERT_EQ(rmdir(subdomain.c_str()), 0);
    umask(002);
    EXPECT_EQ(messages(), "");
    EXPECT_EQ(accessOf(subdomain), "0775 root:root");
}

// --- the skeleton ---

TEST_F(SiteRoads, ASkeletonThatIsALinkOfSomebodyElseIsTheAdministratorsAllTheSame)
{
    plantLink(root + "/.skel/8", "7");
    EXPECT_EQ(messages("8"), "");
    EXPECT_EQ(contentOf("/srv/web/css/style"), "new");
}

TEST_F(SiteRoads, SoIsTheRoadToTheSkeleton)
{
    ASSERT_EQ(rename((root + "/.skel").c_str(), "/srv/real/skel"), 0);
    plantLink(root + "/.skel", "/srv/real/skel");
    EXPECT_EQ(messages(), "");
    EXPECT_EQ(contentOf(subdomain + "/conf/c"), "new");
}

TEST_F(SiteRoads, LinksOfRootLeadToTheSkeleton)
{
    ASSERT_EQ(rename((root + "/.skel").c_str(), "/srv/real/skel"), 0);
    makeLink(root + "/.skel", "/srv/real/skel");
    makeLink("/srv/real/skel/8", "7");
    EXPECT_EQ(messages("8"), "");
    EXPECT_EQ(contentOf("/srv/web/css/style"), "new");
    EXPECT_EQ(contentOf(subdomain + "/conf/c"), "new");
}

TEST_F(SiteRoads, ADirectoryOfTheSkeletonThatBecomesALinkAfterTheListingIsNotReadThrough)
{
    static const std::string directory = root + "/.skel/7/httpdocs/css";
    // Everything has been listed when the first directory is made.
    faults::runBefore("mkdirat", 1, [] {
        ASSERT_EQ(rename(directory.c_str(), (root + "/.skel/moved").c_str()), 0);
        plantLink(directory, "/srv/real");
    });
    makeFile("/srv/real/style", "secret");
    EXPECT_EQ(messages(), sourceLoop(directory + "/style"));
    EXPECT_FALSE(exists("/srv/web/css"));
    EXPECT_EQ(contentOf("/srv/web/index"), "new");
}

// --- emptying ---

TEST_F(SiteRoads, NothingIsRemovedThroughALinkOfTheUser)
{
    plantLink("/srv/home/link", "/srv/real");
    plantLink("/srv/web", "/srv/real");
    for (const char* place : {"/srv/home/link/place", "/srv/web"}) {
        const std::string web = place;
        options_.www_root = place;
        zelto::SiteRemover remover(subdomain, options_);
        EXPECT_EQ(errorsOf([&] { zelto::removeEntry(remover, "httpdocs/kept"); }),
            "lstat(\"" + web + "/kept\"): Too many levels of symbolic links\n");
        EXPECT_EQ(errorsOf([&] { zelto::removeEntry(remover, "httpdocs/a/kept"); }),
            "lstat(\"" + web + "/a/kept\"): Too many levels of symbolic links\n");
    }
    zelto::SiteRemover remover("/srv/home/link/place", options_);
    EXPECT_EQ(errorsOf([&] { zelto::removeEntry(remover, "private/kept"); }),
        "lstat(\"/srv/home/link/place/private/kept\"): Too many levels of symbolic links\n");
    EXPECT_EQ(treeOf("/srv/real"), real_);
}

TEST_F(SiteRoads, AVirtualHostIsNotRemovedThroughALinkOfTheUser)
{
    plantLink("/srv/home/link", "/srv/real");
    // The empty entry is the virtual host itself.
    EXPECT_EQ(errorsOf([&] {
        zelto::removeEntry(zelto::SiteRemover("/srv/home/link/place", options_), "");
    }),
        "lstat(\"/srv/home/link/place\"): Too many levels of symbolic links\n");
    EXPECT_EQ(treeOf("/srv/real"), real_);
}

TEST_F(SiteRoads, NothingIsListedToBeRemovedThroughALinkOfTheUserAndTheRestIsEmptied)
{
    plantLink("/srv/home/link", "/srv/real");
    makeDirs("/srv/cgi");
    makeFile("/srv/cgi/x", "");
    options_.www_root = "/srv/home/link/place";
    EXPECT_EQ(
        emptying(subdomain, options_), "/srv/home/link/place: Too many levels of symbolic links\n");
    EXPECT_EQ(treeOf("/srv/real"), real_);
    EXPECT_FALSE(exists("/srv/cgi/x"));
    plantLink("/srv/web", "/srv/real");
    options_.www_root = "/srv/web"; // a link is an entry without any of its own
    EXPECT_EQ(emptying(subdomain, options_), "");
    EXPECT_EQ(treeOf("/srv/real"), real_);
}

TEST_F(SiteRoads, LinksOfRootLeadToWhatIsEmptied)
{
    makeLink("/srv/home/link", "/srv/real");
    makeDirs("/srv/real/place/d");
    makeFile("/srv/real/place/d/x", "");
    options_.www_root = "/srv/home/link/place";
    EXPECT_EQ(emptying(subdomain, options_), "");
    EXPECT_EQ(treeOf("/srv/real"), real_);
}
