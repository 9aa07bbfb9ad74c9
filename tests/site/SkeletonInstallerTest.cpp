#include <sys/stat.h>
#include <unistd.h>

#include "conf/TerminateHandler.h"
#include "tests/site/SkeletonInstallerFixture.h"

using zelto::installForNameUnderRoot;
using zelto::installForSubdomain;
using zelto::installForVirtualHostDirectory;

// --- the three entry points ---

TEST_F(SkeletonInstaller, ASubdomainIsSeededAndNamesTheParentDomain)
{
    makeSkeletonFile("httpdocs/index.html", "at @domain_name@");
    makeSkeletonFile("cgi-bin/x.cgi", "#!");
    makeSkeletonFile("conf/site.conf", "@domain_name@ @domain_name@");
    makeSkeletonFile("anon_ftp/pub/README", "");
    makeSkeletonFile("error_docs/404.html", "none");
    makeSkeletonFile("httpsdocs/x", "");
    makeSkeletonFile("private/x", "");
    EXPECT_EQ(messages(), "");
    EXPECT_EQ(treeOf(subdomain),
        "dir  0755 root:root .\n"
        "dir  0755 root:kvocln anon_ftp\n"
        "dir  0755 root:kvocln anon_ftp/pub\n"
        "file 0644 root:kvocln anon_ftp/pub/README \"\"\n"
        "dir  0755 root:kvocln conf\n"
        "file 0644 root:kvocln conf/site.conf \"example.test example.test\"\n"
        "dir  0755 root:kvocln error_docs\n"
        "file 0644 root:kvocln error_docs/404.html \"none\"\n");
    EXPECT_EQ(treeOf("/srv/web"), "dir  0755 root:kvocln .\n"
                                  "file 0644 root:kvocln index.html \"at example.test\"\n");
    EXPECT_EQ(treeOf("/srv/cgi"), "dir  0755 root:kvocln .\n"
                                  "file 0644 root:kvocln x.cgi \"#!\"\n");
}

TEST_F(SkeletonInstaller, AVirtualHostDirectoryIsSeededUnderItsOwnName)
{
    makeSkeletonFile("conf/f", "@domain_name@");
    EXPECT_EQ(installForVirtualHostDirectory(subdomain, 0, "7", options_), 0U);
    EXPECT_EQ(contentOf(subdomain + "/conf/f"), "shop.example.test");
    EXPECT_EQ(installForVirtualHostDirectory(domain, 0, "7", options_), 0U);
    EXPECT_EQ(contentOf(domain + "/conf/f"), "example.test");
}

TEST_F(SkeletonInstaller, ANameUnderTheRootIsSeededUnderItsOwnName)
{
    makeSkeletonFile("conf/f", "@domain_name@");
    EXPECT_EQ(installForNameUnderRoot("new.test", "7", options_), 0U);
    EXPECT_EQ(contentOf(root + "/new.test/conf/f"), "new.test");
    EXPECT_EQ(accessOf(root + "/new.test"), "0755 root:root");
    EXPECT_EQ(installForNameUnderRoot("example.test/subdomains/shop", "7", options_), 0U);
    EXPECT_EQ(contentOf(subdomain + "/conf/f"), "shop.example.test");
}

TEST_F(SkeletonInstaller, DirectoriesThatAreNoVirtualHostsAreRefusedEvenWithoutAClient)
{
    for (const char* client : {"7", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(thrownBy([&] {
            (void)installForVirtualHostDirectory("/srv/elsewhere", 0, client, options_);
        }),
            "Virtual host /srv/elsewhere is not a subdirectory of /srv/www/vhosts");
        EXPECT_EQ(thrownBy([&] { (void)installForNameUnderRoot("a/b", client, options_); }),
            "Directory /srv/www/vhosts/a/b does not represent a virtual host");
        EXPECT_EQ(thrownBy([&] { (void)installForNameUnderRoot("", client, options_); }),
            "Directory /srv/www/vhosts does not represent a virtual host");
    }
}

TEST_F(SkeletonInstaller, ANullClientDoesNothingAtAll)
{
    const std::string before = treeOf(root);
    EXPECT_EQ(installForSubdomain("new.test", "a", nullptr, options_), 0U);
    EXPECT_EQ(installForNameUnderRoot("new.test", nullptr, options_), 0U);
    EXPECT_EQ(installForVirtualHostDirectory(root + "/new.test", 0, nullptr, options_), 0U);
    EXPECT_EQ(treeOf(root), before);
}

TEST_F(SkeletonInstaller, SkippingTheWebRootTakesItOutOfTheListing)
{
    makeSkeletonFile("httpdocs/index.html");
    makeSkeletonFile("conf/f");
    makeDir("/srv/web");
    options_.skip_www_root = 1;
    EXPECT_EQ(allMessages(), "");
    EXPECT_EQ(errorsIntoAFile(
                  [&] { EXPECT_EQ(installForNameUnderRoot("example.test", "7", options_), 0U); }),
        "");
    EXPECT_EQ(treeOf("/srv/web"), emptyDirectory);
    EXPECT_TRUE(exists(subdomain + "/conf/f"));
}

TEST_F(SkeletonInstaller, TheListingModeOfADirectorySaysWhetherTheWebRootIsSeeded)
{
    makeSkeletonFile("httpdocs/index.html");
    options_.skip_www_root = 1;
    EXPECT_EQ(installForVirtualHostDirectory(domain, 2, "7", options_), 0U);
    EXPECT_FALSE(exists("/srv/web"));
    EXPECT_EQ(installForVirtualHostDirectory(domain, 0, "7", options_), 0U);
    EXPECT_TRUE(exists("/srv/web/index.html"));
}

TEST_F(SkeletonInstaller, ModeOneSeedsThePrivateDirectory)
{
    makeSkeletonFile("httpdocs/1");
    makeSkeletonFile("cgi-bin/2");
    makeSkeletonFile("private/3");
    makeSkeletonFile("conf/4");
    EXPECT_EQ(installForVirtualHostDirectory(subdomain, 1, "7", options_), 0U);
    EXPECT_TRUE(exists("/srv/web/1") && exists("/srv/cgi/2"));
    EXPECT_TRUE(exists(subdomain + "/private/3"));
    EXPECT_FALSE(exists(subdomain + "/conf"));
}

TEST_F(SkeletonInstaller, AnUnknownModeSeedsNothingButStillWantsTheGroup)
{
    makeSkeletonFile("conf/f");
    EXPECT_EQ(installForVirtualHostDirectory(root + "/new.test", 3, "7", options_), 0U);
    EXPECT_EQ(treeOf(root + "/new.test"), emptyDirectory);
    removeGroup("kvocln");
    EXPECT_EQ(thrownBy([&] { (void)installForVirtualHostDirectory(domain, 3, "7", options_); }),
        "group kvocln not found");
}

TEST_F(SkeletonInstaller, SkippedDirectoriesAreLeftOut)
{
    makeSkeletonFile("cgi-bin/x");
    makeSkeletonFile("error_docs/404");
    makeSkeletonFile("conf/f");
    options_.skip_cgi_bin = 1;
    options_.skip_error_docs = 1;
    EXPECT_EQ(allMessages(), "");
    EXPECT_FALSE(exists("/srv/cgi"));
    EXPECT_FALSE(exists(subdomain + "/error_docs"));
    EXPECT_TRUE(exists(subdomain + "/conf/f"));
}

// --- the virtual host's directory ---

TEST_F(SkeletonInstaller, TheVirtualHostsDirectoryIsMadeOneLevelOnly)
{
    makeSkeletonFile("conf/f");
    EXPECT_EQ(installForSubdomain("example.test", "new", "7", options_), 0U);
    EXPECT_EQ(accessOf(domain + "/subdomains/new"), "0755 root:root");
    EXPECT_EQ(thrownBy([&] { (void)installForSubdomain("new.test", "a", "7", options_); }),
        "boost::filesystem::create_directory: No such file or directory: "
        "\"/srv/www/vhosts/new.test/subdomains/a\"");
}

TEST_F(SkeletonInstaller, TheVirtualHostsDirectoryIsMadeBeforeTheSkeletonIsChosen)
{
    ASSERT_EQ(rmdir(skeleton_.c_str()), 0);
    EXPECT_EQ(thrownBy([&] { (void)installForNameUnderRoot("new.test", "7", options_); }),
        "Skeleton directory `/srv/www/vhosts/.skel/0' does not exist");
    EXPECT_EQ(treeOf(root + "/new.test"), emptyDirectory);
}

TEST_F(SkeletonInstaller, AVirtualHostThatCannotBeLookedAtIsAnError)
{
    makeLink(root + "/loop.test", "loop.test");
    EXPECT_EQ(thrownBy([&] { (void)installForNameUnderRoot("loop.test", "7", options_); }),
        "boost::filesystem::status: Too many levels of symbolic links: "
        "\"/srv/www/vhosts/loop.test\"");
    const std::string tooLong(256, 'n');
    EXPECT_EQ(thrownBy([&] { (void)installForNameUnderRoot(tooLong, "7", options_); }),
        "boost::filesystem::status: File name too long: \"" + root + '/' + tooLong + '"');
}

TEST_F(SkeletonInstaller, AVirtualHostThatIsAFileGetsOneMessagePerEntryAndNoChange)
{
    makeSkeletonFile("conf/a");
    makeSkeletonFile("error_docs/404");
    ASSERT_EQ(rmdir(subdomain.c_str()), 0);
    makeFile(subdomain, "a file", {0640, site, users});
    std::string expected;
    for (const char* entry : {"anon_ftp", "conf", "conf/a", "error_docs", "error_docs/404"}) {
        expected += installer("stat(\"" + subdomain + '/' + entry + "\") failed: Not a directory");
    }
    EXPECT_EQ(messages(), expected);
    EXPECT_EQ(treeOf(subdomain), "file 0640 site:users . \"a file\"\n");
}

// --- the choice of the skeleton ---

TEST_F(SkeletonInstaller, WithoutAClientsSkeletonTheCommonOneIsUsed)
{
    skeleton_ = root + "/.skel/0";
    makeSkeletonFile("conf/common");
    EXPECT_EQ(messages("8"), "");
    EXPECT_TRUE(exists(subdomain + "/conf/common"));
}

TEST_F(SkeletonInstaller, AClientsOwnSkeletonComesFirstHoweverEmpty)
{
    skeleton_ = root + "/.skel/0";
    makeSkeletonFile("conf/common");
    EXPECT_EQ(messages("7"), "");
    EXPECT_EQ(treeOf(subdomain), emptyDirectory);
}

TEST_F(SkeletonInstaller, ALinkToASkeletonIsFollowed)
{
    skeleton_ = root + "/.skel/shared";
    makeSkeletonFile("conf/f");
    makeLink(root + "/.skel/8", "shared");
    EXPECT_EQ(messages("8"), "");
    EXPECT_TRUE(exists(subdomain + "/conf/f"));
}

TEST_F(SkeletonInstaller, WithNeitherSkeletonTheCommonOneIsNamed)
{
    EXPECT_EQ(thrownBy([&] { (void)install("8"); }),
        "Skeleton directory `/srv/www/vhosts/.skel/0' does not exist");
}

TEST_F(SkeletonInstaller, AMissingSkeletonEndsAProcessThatDoesNotCatch)
{
    const Outcome outcome = inChild([&] {
        installTerminateHandler();
        [&]() noexcept { (void)install("8"); }();
    });
    EXPECT_EQ(outcome.err,
        "Unexpected error: Skeleton directory `/srv/www/vhosts/.skel/0' does not exist\n");
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(treeOf(subdomain), emptyDirectory);
}

TEST_F(SkeletonInstaller, ASkeletonThatIsAFileIsKeptAndReportedEntryByEntry)
{
    makeFile(root + "/.skel/8", "");
    skeleton_ = root + "/.skel/0";
    makeSkeletonFile("conf/f");
    const std::string listing =
        root + "/.skel/8/httpdocs: Not a directory\n" + root + "/.skel/8/conf: Not a directory\n" +
        root + "/.skel/8/cgi-bin: Not a directory\n" + root +
        "/.skel/8/anon_ftp: Not a directory\n" + root + "/.skel/8/error_docs: Not a directory\n";
    std::string copying;
    for (const char* name : {"anon_ftp", "cgi-bin", "conf", "error_docs", "httpdocs"}) {
        copying += installer(root + "/.skel/8/" + name + ": Not a directory");
    }
    EXPECT_EQ(messages("8"), listing + copying);
    EXPECT_EQ(treeOf(subdomain), emptyDirectory);
}

TEST_F(SkeletonInstaller, ASkeletonBehindALoopIsKeptAndOneBehindADanglingLinkIsNot)
{
    skeleton_ = root + "/.skel/0";
    makeSkeletonFile("conf/f");
    makeLink(root + "/.skel/loop", "loop");
    makeLink(root + "/.skel/dangling", "nowhere");
    const std::string text = messages("loop");
    EXPECT_EQ(text.substr(0, text.find('\n') + 1),
        root + "/.skel/loop/httpdocs: Too many levels of symbolic links\n");
    EXPECT_EQ(treeOf(subdomain), emptyDirectory);
    EXPECT_EQ(messages("dangling"), "");
    EXPECT_TRUE(exists(subdomain + "/conf/f"));
}

TEST_F(SkeletonInstaller, AnyErrorButAbsenceKeepsTheCommonSkeletonToo)
{
    makeLink(root + "/.skel/0", "0");
    const std::string text = messages("8");
    EXPECT_EQ(text.substr(0, text.find('\n') + 1),
        root + "/.skel/0/httpdocs: Too many levels of symbolic links\n");
}

TEST_F(SkeletonInstaller, AnEmptyClientMeansTheDirectoryOfAllSkeletons)
{
    skeleton_ = root + "/.skel/0";
    makeSkeletonFile("conf/common");
    EXPECT_EQ(messages(""), "");
    EXPECT_EQ(treeOf(subdomain), emptyDirectory);
    skeleton_ = root + "/.skel";
    makeSkeletonFile("conf/f");
    EXPECT_EQ(messages(""), "");
    EXPECT_TRUE(exists(subdomain + "/conf/f"));
}

TEST_F(SkeletonInstaller, AClientThatBeginsWithASlashStaysBelowTheSkeletons)
{
    skeleton_ = root + "/.skel/etc";
    makeSkeletonFile("conf/f");
    makeDirs("/etc/conf");
    makeFile("/etc/conf/host", "");
    EXPECT_EQ(messages("/etc"), "");
    EXPECT_EQ(
        treeOf(subdomain + "/conf"), "dir  0755 root:kvocln .\nfile 0644 root:kvocln f \"\"\n");
}

// --- where the web root goes ---

TEST_F(SkeletonInstaller, RelativeRootsStartAtTheCallersWorkingDirectory)
{
    makeSkeletonFile("httpdocs/index.html");
    makeSkeletonFile("cgi-bin/x.cgi");
    makeDir("/srv/cwd");
    ASSERT_EQ(chdir("/srv/cwd"), 0);
    options_.www_root = "httpdocs";
    options_.cgi_bin_path = "cgi-bin";
    EXPECT_EQ(messages(), "");
    EXPECT_EQ(treeOf("/srv/cwd"), "dir  0755 root:root .\n"
                                  "dir  0755 root:kvocln cgi-bin\n"
                                  "file 0644 root:kvocln cgi-bin/x.cgi \"\"\n"
                                  "dir  0755 root:kvocln httpdocs\n"
                                  "file 0644 root:kvocln httpdocs/index.html \"\"\n");
    EXPECT_EQ(treeOf(subdomain), emptyDirectory);
}

TEST_F(SkeletonInstaller, MissingParentsOfTheWebRootAreMadeOnlyIfTheSkeletonHasOne)
{
    umask(027);
    options_.www_root = "/srv/a/b/web";
    EXPECT_EQ(messages(), "");
    EXPECT_FALSE(exists("/srv/a"));
    makeSkeletonFile("httpdocs/index.html");
    EXPECT_EQ(messages(), "");
    EXPECT_EQ(treeOf("/srv/a"), "dir  0750 root:root .\n"
                                "dir  0750 root:root b\n"
                                "dir  0755 root:kvocln b/web\n"
                                "file 0644 root:kvocln b/web/index.html \"\"\n");
}

TEST_F(SkeletonInstaller, AWebRootThatCannotBeMadeStopsWithWhatWasCopiedLeftInPlace)
{
    makeSkeletonFile("conf/f");
    makeSkeletonFile("httpdocs/index.html");
    makeLink("/srv/d", "nowhere");
    options_.www_root = "/srv/d/x";
    EXPECT_EQ(thrownBy([&] { (void)install(); }),
        "boost::filesystem::create_directories: File exists: \"/srv/d\"");
    EXPECT_TRUE(exists(subdomain + "/conf/f"));
}

TEST_F(SkeletonInstaller, ALinkAtTheWebRootCountsAsExistingAndItsTargetIsSeeded)
{
    makeSkeletonFile("httpdocs/index.html");
    makeDir("/srv/target");
    makeLink("/srv/web", "target");
    EXPECT_EQ(allMessages(), alreadyExists("/srv/web"));
    EXPECT_TRUE(exists("/srv/target/index.html"));
}

// --- doing it again ---

TEST_F(SkeletonInstaller, ASecondRunRestoresWhatIsGoneAndTouchesNothingElse)
{
    makeSkeletonFile("httpdocs/a", "skeleton");
    makeSkeletonFile("httpdocs/b", "skeleton");
    makeSkeletonFile("conf/c", "skeleton");
    EXPECT_EQ(messages(), "");
    makeFile("/srv/web/a", "edited", {0600, site, users});
    ASSERT_EQ(chmod("/srv/web", 0711), 0);
    ASSERT_EQ(unlink("/srv/web/b"), 0);
    EXPECT_EQ(allMessages(), alreadyExists(subdomain + "/conf/c") + alreadyExists("/srv/web/a"));
    EXPECT_EQ(treeOf("/srv/web"), "dir  0711 root:kvocln .\n"
                                  "file 0600 site:users a \"edited\"\n"
                                  "file 0644 root:kvocln b \"skeleton\"\n");
}

TEST_F(SkeletonInstaller, AfterSpaceIsFreedASecondRunCompletesTheSite)
{
    makeSkeletonFile("conf/large", std::string(50000, 'x'));
    makeSkeletonFile("conf/small", "s");
    makeSkeletonFile("error_docs/404", "e");
    const PrivateDirectory full(subdomain, "size=60k");
    makeFile(subdomain + "/ballast", std::string(40000, 'b'));
    EXPECT_EQ(messages(), installer(subdomain + "/conf/large: No space left on device"));
    EXPECT_FALSE(exists(subdomain + "/conf/large"));
    EXPECT_EQ(contentOf(subdomain + "/error_docs/404"), "e");
    ASSERT_EQ(unlink((subdomain + "/ballast").c_str()), 0);
    EXPECT_EQ(messages(), "");
    EXPECT_TRUE(contentOf(subdomain + "/conf/large") == std::string(50000, 'x'));
}

TEST_F(SkeletonInstaller, AFileIsLookedAtOnlyWhereItIsToGo)
{
    constexpr int files = 50;
    for (int number = 0; number < files; ++number) {
        makeSkeletonFile("conf/" + std::to_string(number));
    }
    makeDir("/srv/web");
    const auto looks = [this] {
        faults::clear();
        EXPECT_EQ(messages(), "");
        EXPECT_EQ(faults::calls("lstat"), 0);
        return faults::calls("fstatat");
    };
    // To be listed, each of five site directories; to be copied, each of them, its source for the
    // four whose destinations are missing, and every file.
    EXPECT_EQ(looks(), 5 + 5 + 5 + files);
    // Now "conf" is there, which its source is looked at for as well.
    EXPECT_EQ(looks(), 5 + 5 + 5 + files);
}

TEST_F(SkeletonInstaller, NoDescriptorStaysOpen)
{
    makeSkeletonFile("httpdocs/a/b/c/d", "x");
    makeSkeletonFile("conf/e");
    makeLink("/srv/loop", "loop");
    const size_t before = openDescriptors();
    EXPECT_EQ(install(), 0U);
    options_.www_root = "/srv/loop/x";
    EXPECT_NE(messages(), "");
    removeGroup("kvocln");
    EXPECT_NE(thrownBy([&] { (void)install(); }), "nothing");
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(SkeletonInstaller, TheRootIsTheConfiguredOne)
{
    configure("HTTPD_VHOSTS_D /srv/sites\n");
    makeDirs("/srv/sites/example.test/subdomains/shop");
    skeleton_ = "/srv/sites/.skel/7";
    makeSkeletonFile("conf/f", "@domain_name@");
    const Outcome outcome = inChild([&] { std::_Exit(static_cast<int>(install())); });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(contentOf("/srv/sites/example.test/subdomains/shop/conf/f"), "example.test");
    EXPECT_EQ(treeOf(subdomain), emptyDirectory);
}
