#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/cli/Site.h"
#include "tests/lib/LargeTree.h"

namespace
{

class Create : public Site
{
protected:
    /// Options that leave out every directory that can be left out.
    inline static const Arguments bare{"--skip-www-root", "--skip-cgi-bin", "--skip-error-docs"};

    static void makeEmptySkeleton() { makeDirs(skeleton); }

    /// The creation with another user.
    static Arguments creationFor(const std::string& user, const Arguments& options)
    {
        return with({"--create", "--subdomain-name=shop", "--vhost-name=example.test",
                        "--user-name=" + user, "--cl-id=7"},
            options);
    }

    static std::string usualTree()
    {
        return "dir  0755 root:root .\n"
               "dir  0755 root:kvocln anon_ftp\n"
               "dir  0750 site:kvoserv cgi-bin\n"
               "file 0755 site:kvocln cgi-bin/run \"#!/bin/sh\\n\"\n"
               "dir  0750 root:kvoserv conf\n"
               "file 0644 root:kvoserv conf/site \"ServerName example.test\\n\"\n"
               "dir  0750 root:kvoserv error_docs\n"
               "file 0644 root:kvoserv error_docs/404 \"nothing at example.test\"\n"
               "dir  0750 site:kvoserv httpdocs\n"
               "dir  0755 site:kvocln httpdocs/img\n"
               "file 0755 site:kvocln httpdocs/img/logo \"\\x00\xff\"\n"
               "file 0755 site:kvocln httpdocs/index.html \"<h1>example.test</h1>\"\n";
    }
};

} // namespace

TEST_F(Create, LeavesTheWholeSiteWithItsOwnersGroupsAndModes)
{
    makeSkeleton();
    expectSilent(run(usualCreation()), 0);
    EXPECT_EQ(treeOf(shop), usualTree());
}

TEST_F(Create, PrefersTheSkeletonOfTheClient)
{
    makeSkeleton();
    makeDirs(root + "/.skel/7/conf");
    makeFile(root + "/.skel/7/conf/own", "client 7");
    expectSilent(run(creation(bare)), 0);
    EXPECT_EQ(treeOf(shop), "dir  0755 root:root .\n"
                            "dir  0750 root:kvoserv conf\n"
                            "file 0644 root:kvoserv conf/own \"client 7\"\n");
}

TEST_F(Create, TakesTheSkeletonsRootForAnEmptyClient)
{
    makeDirs(skeleton + "/conf");
    makeFile(skeleton + "/conf/f", "of client 0");
    const Arguments creation =
        with({"--create", "--subdomain-name=shop", "--vhost-name=example.test", "--user-name=site",
                 "--cl-id="},
            bare);
    expectSilent(run(creation), 0);
    EXPECT_FALSE(exists(shop + "/conf/f"));
    makeDirs(root + "/.skel/conf");
    makeFile(root + "/.skel/conf/f", "of nobody");
    expectSilent(run(creation), 0);
    EXPECT_EQ(contentOf(shop + "/conf/f"), "of nobody");
}

TEST_F(Create, HandlesOnlyTheSubdomainTheSkeletonAndConfWhenEverythingElseIsSkipped)
{
    makeSkeleton();
    expectSilent(run(creation(bare)), 0);
    EXPECT_EQ(treeOf(shop), "dir  0755 root:root .\n"
                            "dir  0755 root:kvocln anon_ftp\n"
                            "dir  0750 root:kvoserv conf\n"
                            "file 0644 root:kvoserv conf/site \"ServerName example.test\\n\"\n");
}

TEST_F(Create, MakesConfAndErrorDocsThatTheSkeletonDoesNotHave)
{
    makeEmptySkeleton();
    expectSilent(run(creation({"--skip-www-root", "--skip-cgi-bin"})), 0);
    EXPECT_EQ(treeOf(shop), "dir  0755 root:root .\n"
                            "dir  0750 root:kvoserv conf\n"
                            "dir  0750 root:kvoserv error_docs\n");
}

TEST_F(Create, OnAnExistingSiteAppliesOwnersAndModesAgainAndOverwritesNothing)
{
    makeSkeleton();
    ASSERT_EQ(run(usualCreation()).status, 0);
    makeFile(shop + "/httpdocs/index.html", "my own", {0600, other, users});
    makeFile(shop + "/conf/site", "edited", {0600, other, users});
    makeFile(shop + "/httpdocs/new", "", {0600, other, users});
    ASSERT_EQ(chmod(shop.c_str(), 0700), 0);
    ASSERT_EQ(chown(shop.c_str(), other, users), 0);
    ASSERT_EQ(unlink((shop + "/error_docs/404").c_str()), 0);
    expectSilent(run(usualCreation()), 0);
    EXPECT_EQ(treeOf(shop), "dir  0755 root:root .\n"
                            "dir  0755 root:kvocln anon_ftp\n"
                            "dir  0750 site:kvoserv cgi-bin\n"
                            "file 0755 site:kvocln cgi-bin/run \"#!/bin/sh\\n\"\n"
                            "dir  0750 root:kvoserv conf\n"
                            "file 0644 root:kvoserv conf/site \"edited\"\n"
                            "dir  0750 root:kvoserv error_docs\n"
                            "file 0644 root:kvoserv error_docs/404 \"nothing at example.test\"\n"
                            "dir  0750 site:kvoserv httpdocs\n"
                            "dir  0755 site:kvocln httpdocs/img\n"
                            "file 0755 site:kvocln httpdocs/img/logo \"\\x00\xff\"\n"
                            "file 0755 site:kvocln httpdocs/index.html \"my own\"\n"
                            "file 0755 site:kvocln httpdocs/new \"\"\n");
}

TEST_F(Create, LeavesErrorDocsUntouchedWhenTheyAreSkipped)
{
    makeSkeleton();
    makeDirs(shop + "/error_docs");
    makeFile(shop + "/error_docs/own", "x", {0600, other, users});
    expectSilent(run(with(usualCreation(), {"--skip-error-docs"})), 0);
    EXPECT_EQ(treeOf(shop + "/error_docs"), "dir  0755 root:root .\n"
                                            "file 0600 other:users own \"x\"\n");
}

TEST_F(Create, GivesTheModesExactlyWhateverTheUmask)
{
    makeSkeleton();
    for (const mode_t mask : {0U, 077U, 0777U}) {
        ASSERT_EQ(run(removal()).status, 0);
        expectSilent(run(usualCreation(), {.inChild = [mask] { umask(mask); }}), 0);
        EXPECT_EQ(treeOf(shop), usualTree()) << mask;
    }
}

TEST_F(Create, GivesFilesTheirModeAfterTheirOwner)
{
    makeEmptySkeleton();
    makeDirs(shop + "/httpdocs");
    makeFile(shop + "/httpdocs/program", "x", {06755, site, kvocln});
    expectSilent(run(creation({"--www-root=" + shop + "/httpdocs", "--skip-cgi-bin"})), 0);
    EXPECT_EQ(accessOf(shop + "/httpdocs/program"), "0755 site:kvocln");
}

TEST_F(Create, SeedsARelativeDocumentRootInTheCallersDirectoryAndMakesItInTheSubdomain)
{
    makeSkeleton();
    makeDir("/srv/x");
    expectSilent(
        run(creation({"--www-root=httpdocs", "--cgi-bin-path=cgi-bin"}), {.directory = "/srv/x"}),
        0);
    EXPECT_EQ(treeOf("/srv/x"), "dir  0755 root:root .\n"
                                "dir  0755 root:kvocln cgi-bin\n"
                                "file 0700 root:kvocln cgi-bin/run \"#!/bin/sh\\n\"\n"
                                "dir  0755 root:kvocln httpdocs\n"
                                "dir  0755 root:kvocln httpdocs/img\n"
                                "file 0600 root:kvocln httpdocs/img/logo \"\\x00\xff\"\n"
                                "file 0644 root:kvocln httpdocs/index.html "
                                "\"<h1>example.test</h1>\"\n");
    EXPECT_EQ(treeOf(shop + "/httpdocs"), "dir  0750 site:kvoserv .\n");
    EXPECT_EQ(treeOf(shop + "/cgi-bin"), "dir  0750 site:kvoserv .\n");
}

TEST_F(Create, LetsTheSkeletonMakeMissingParentsOfTheDocumentRootForRoot)
{
    makeSkeleton();
    expectSilent(run(creation({"--www-root=/srv/w/a/b", "--skip-cgi-bin"})), 0);
    EXPECT_EQ(accessOf("/srv/w"), "0755 root:root");
    EXPECT_EQ(accessOf("/srv/w/a"), "0755 root:root");
    EXPECT_EQ(accessOf("/srv/w/a/b"), "0750 site:kvoserv");
    EXPECT_EQ(accessOf("/srv/w/a/b/index.html"), "0755 site:kvocln");
}

TEST_F(Create, MakesMissingParentsForTheUserWhenTheSkeletonHasNoPages)
{
    makeEmptySkeleton();
    expectSilent(run(creation({"--www-root=/srv/w/a/b", "--skip-cgi-bin"})), 0);
    EXPECT_EQ(treeOf("/srv/w"), "dir  0750 site:kvoserv .\n"
                                "dir  0750 site:kvoserv a\n"
                                "dir  0750 site:kvoserv a/b\n");
}

TEST_F(Create, TakesTheUmaskFromMissingParentsOnly)
{
    makeEmptySkeleton();
    expectSilent(
        run(creation({"--www-root=/srv/w/a", "--skip-cgi-bin"}), {.inChild = [] { umask(077); }}),
        0);
    EXPECT_EQ(accessOf("/srv/w"), "0700 site:kvoserv");
    EXPECT_EQ(accessOf("/srv/w/a"), "0750 site:kvoserv");
}

TEST_F(Create, EndsWithStatus1WhenTheDocumentRootCannotBeMade)
{
    makeSkeleton();
    const Outcome end = run(creation({"--www-root=/etc/passwd/x", "--skip-cgi-bin"}));
    const std::string fatal = "twigctl: Cannot create directory /etc/passwd/x: Not a directory" +
                              systemError(20, "Not a directory");
    const std::string skipped = "corbel:InstallSkeleton(): stat(\"/etc/passwd/x\") failed: Not a "
                                "directory\n"
                                "corbel:InstallSkeleton(): stat(\"/etc/passwd/x/img\") failed: Not "
                                "a directory\n"
                                "corbel:InstallSkeleton(): stat(\"/etc/passwd/x/img/logo\") "
                                "failed: Not a directory\n"
                                "corbel:InstallSkeleton(): stat(\"/etc/passwd/x/index.html\") "
                                "failed: Not a directory\n";
    EXPECT_EQ(end.err, skipped + fatal);
    EXPECT_EQ(end.out, fatal);
    EXPECT_EQ(end.status, 1);
    EXPECT_EQ(accessOf("/etc/passwd"), "0644 root:root");
}

TEST_F(Create, TreatsADocumentRootThatIsAFileAsItsOnlyContent)
{
    makeEmptySkeleton();
    makeFile("/srv/file", "x");
    expectSilent(run(creation({"--www-root=/srv/file", "--skip-cgi-bin"})), 0);
    EXPECT_EQ(accessOf("/srv/file"), "0755 site:kvocln");
}

TEST_F(Create, SetsTheTargetOfADocumentRootThatIsALinkAndLeavesItsContent)
{
    makeEmptySkeleton();
    makeDir("/srv/target");
    makeFile("/srv/target/file", "x");
    makeLink("/srv/link", "/srv/target");
    expectSilent(run(creation({"--www-root=/srv/link", "--skip-cgi-bin"})), 0);
    EXPECT_EQ(treeOf("/srv/target"), "dir  0750 site:kvoserv .\n"
                                     "file 0644 root:root file \"x\"\n");
    EXPECT_EQ(treeOf("/srv/link"), "link root:root . -> /srv/target\n");
}

TEST_F(Create, ReportsADocumentRootWhoseAccessCannotBeSet)
{
    makeEmptySkeleton();
    makeLink("/srv/dangling", "nowhere");
    expectReported(run(creation({"--www-root=/srv/dangling", "--skip-cgi-bin"})),
        {"Unable to create and set permissions for /srv/dangling" + noSuchFile}, 255);
    EXPECT_FALSE(exists(shop + "/conf"));
}

TEST_F(Create, ReportsACgiDirectoryWhoseAccessCannotBeSet)
{
    makeEmptySkeleton();
    makeLink("/srv/dangling", "nowhere");
    expectReported(run(creation({"--skip-www-root", "--cgi-bin-path=/srv/dangling"})),
        {"Unable to create and set permissions for /srv/dangling" + noSuchFile}, 255);
    EXPECT_FALSE(exists(shop + "/conf"));
}

TEST_F(Create, KeepsLinksInTheTreesAsTheyAre)
{
    makeSkeleton();
    makeFile("/srv/outside", "x");
    makeDirs(shop + "/httpdocs");
    makeDirs(shop + "/conf");
    makeLink(shop + "/httpdocs/link", "/srv/outside");
    makeLink(shop + "/conf/link", "/srv/outside");
    expectSilent(run(usualCreation()), 0);
    EXPECT_EQ(accessOf("/srv/outside"), "0644 root:root");
    EXPECT_EQ(treeOf(shop + "/httpdocs/link"), "link root:root . -> /srv/outside\n");
}

TEST_F(Create, ReportsAnUnknownUserAndGoesOnForRoot)
{
    makeSkeleton();
    const Outcome end = run(creationFor("nosuch", {"--www-root=/srv/w", "--cgi-bin-path=/srv/c"}));
    expectReported(end, {"Unable to getpwnam for user nosuch\n"}, 0);
    EXPECT_EQ(accessOf("/srv/w"), "0750 root:kvoserv");
    EXPECT_EQ(accessOf("/srv/w/index.html"), "0755 root:kvocln");
}

TEST_F(Create, ReportsAnUnknownServerGroupAndGoesOnForRoots)
{
    makeSkeleton();
    removeGroup("kvoserv");
    expectReported(run(creation({"--www-root=/srv/w", "--skip-cgi-bin"})),
        {"getgrnam(kvoserv): Success\n"}, 0);
    EXPECT_EQ(accessOf("/srv/w"), "0750 site:root");
    EXPECT_EQ(accessOf(shop + "/conf"), "0750 root:root");
}

TEST_F(Create, ReportsUnknownNamesInOrderBeforeAnythingIsMade)
{
    makeSkeleton();
    removeGroup("kvoserv");
    removeGroup("kvocln");
    ASSERT_EQ(rmdir(subdomains.c_str()), 0);
    expectReported(run(creationFor("nosuch", {"--skip-www-root", "--skip-cgi-bin"})),
        {"Unable to getpwnam for user nosuch\n", "getgrnam(kvoserv): Success\n",
            "getgrnam(kvocln): Success\n",
            "ERROR: Unable to mkdir " + shop + ": No such file or directory\n" + noSuchFile,
            "Unable to create directory '" + shop + "'" + noSuchFile},
        255);
}

TEST_F(Create, EndsWithoutTheClientsGroupAndKeepsTheSubdomain)
{
    makeSkeleton();
    removeGroup("kvocln");
    const Outcome end = run(usualCreation());
    const std::string report = "twigctl: getgrnam(kvocln): Success\n";
    EXPECT_EQ(end.err, report + "Unexpected error: group kvocln not found\n");
    EXPECT_EQ(end.out, report);
    EXPECT_EQ(end.status, 1);
    EXPECT_EQ(treeOf(shop), "dir  0755 root:root .\n");
}

TEST_F(Create, EndsWithoutASkeletonAndKeepsTheSubdomain)
{
    const Outcome end = run(usualCreation());
    EXPECT_EQ(end.err, "Unexpected error: Skeleton directory `" + skeleton + "' does not exist\n");
    EXPECT_EQ(end.out, "");
    EXPECT_EQ(end.status, 1);
    EXPECT_EQ(treeOf(shop), "dir  0755 root:root .\n");
}

TEST_F(Create, DoesNotMakeMissingDirectoriesAboveTheSubdomain)
{
    makeSkeleton();
    ASSERT_EQ(rmdir(subdomains.c_str()), 0);
    expectReported(run(usualCreation()),
        {"ERROR: Unable to mkdir " + shop + ": No such file or directory\n" + noSuchFile,
            "Unable to create directory '" + shop + "'" + noSuchFile},
        255);
}

TEST_F(Create, CannotEnterASubdomainThatIsAFile)
{
    makeDirs(skeleton + "/conf");
    makeFile(shop, "x", {0600, site, kvocln});
    const Outcome end = run(creation(bare));
    const std::string report = "twigctl: ERROR: Unable to change directory to " + shop +
                               systemError(20, "Not a directory");
    EXPECT_EQ(end.out, report);
    EXPECT_EQ(end.err, "corbel:InstallSkeleton(): stat(\"" + shop +
                           "/anon_ftp\") failed: Not a directory\n" +
                           "corbel:InstallSkeleton(): stat(\"" + shop +
                           "/conf\") failed: Not a directory\n" + report);
    EXPECT_EQ(end.status, 255);
    EXPECT_EQ(accessOf(shop), "0755 root:root");
}

TEST_F(Create, TreatsAConfThatIsAFileAsAnExistingOne)
{
    makeEmptySkeleton();
    makeDir(shop);
    makeFile(shop + "/conf", "x", {0600, site, kvocln});
    expectSilent(run(creation(bare)), 0);
    EXPECT_EQ(accessOf(shop + "/conf"), "0644 root:kvoserv");
}

TEST_F(Create, ReportsConfThatCannotBeMade)
{
    makeEmptySkeleton();
    makeDir(shop);
    const PrivateDirectory full(shop, "nr_inodes=1");
    const std::string noSpace = systemError(28, "No space left on device");
    expectReported(run(creation(bare)),
        {"ERROR: Unable to mkdir conf: No space left on device\n" + noSpace,
            "Unable to create directory 'conf' of subdomain shop for Standard Hosting "
            "example.test" +
                noSpace},
        255);
}

TEST_F(Create, ReportsErrorDocsThatCannotBeMade)
{
    makeEmptySkeleton();
    makeDir(shop);
    const PrivateDirectory full(shop, "nr_inodes=2");
    const std::string noSpace = systemError(28, "No space left on device");
    expectReported(run(creation({"--skip-www-root", "--skip-cgi-bin"})),
        {"ERROR: Unable to mkdir error_docs: No space left on device\n" + noSpace,
            "Unable to create directory 'error_docs' of subdomain shop for Standard Hosting "
            "example.test" +
                noSpace},
        255);
    EXPECT_EQ(accessOf(shop + "/conf"), "0750 root:kvoserv");
}

TEST_F(Create, LeavesAConfThatIsALinkToNothingAsItIs)
{
    makeEmptySkeleton();
    makeDir(shop);
    makeLink(shop + "/conf", "nowhere");
    expectSilent(run(creation(bare)), 0);
    EXPECT_EQ(treeOf(shop + "/conf"), "link root:root . -> nowhere\n");
}

TEST_F(Create, KeepsWhatIsThereWhenMessagesGoIntoAFile)
{
    makeSkeleton();
    makeDirs(shop + "/conf");
    makeFile(shop + "/conf/site", "mine");
    const Outcome end = run(usualCreation(), {.standardErrorIntoFile = true});
    EXPECT_EQ(end.err,
        "corbel:InstallSkeleton(): " + shop + "/conf/site already exists, not restoring\n");
    EXPECT_EQ(end.out, "");
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(contentOf(shop + "/conf/site"), "mine");
}

TEST_F(Create, FillsTheExampleSkeletonInWithoutLeavingThePlaceholder)
{
    ASSERT_EQ(
        runProgram("/bin/cp", {"cp", "-r", PROJECT_PATH "/examples/skeleton", "/srv/s"}).status, 0);
    makeDirs(root + "/.skel");
    ASSERT_EQ(rename("/srv/s", skeleton.c_str()), 0);
    ASSERT_EQ(runProgram("/bin/grep", {"grep", "-rqF", "@domain_name@", skeleton}).status, 0);
    expectSilent(run(usualCreation()), 0);
    EXPECT_EQ(runProgram("/bin/grep", {"grep", "-rqF", "@domain_name@", shop}).status, 1);
    EXPECT_EQ(
        runProgram("/bin/grep", {"grep", "-rqF", "example.test", shop + "/httpdocs"}).status, 0);
}

TEST_F(Create, CopiesALargeSkeletonWithNamesAndTypesOfEveryKind)
{
    makeEmptySkeleton();
    makeLargeTree(skeleton + "/httpdocs");
    expectSilent(run(creation({"--www-root=/srv/w", "--skip-cgi-bin"})), 0);
    const TreeCount copied = countTree("/srv/w", "0755 site:kvocln", "0755 site:kvocln");
    EXPECT_EQ(copied.files, 20000U);
    EXPECT_EQ(copied.directories, 500U);
    EXPECT_EQ(copied.others, 0U);
    const TreeCount left = countTree(skeleton + "/httpdocs", "0644 root:root", "0755 root:root");
    EXPECT_EQ(left.files, 20000U);
    EXPECT_EQ(left.others, 450U);
}

TEST_F(Create, WorksBelowTheConfiguredRoot)
{
    configure("HTTPD_VHOSTS_D /srv/own\n");
    makeDirs("/srv/own/.skel/0/conf");
    makeFile("/srv/own/.skel/0/conf/f", "@domain_name@");
    makeDirs("/srv/own/example.test/subdomains");
    expectSilent(run(creation(bare)), 0);
    EXPECT_EQ(contentOf("/srv/own/example.test/subdomains/shop/conf/f"), "example.test");
    EXPECT_FALSE(exists(shop));
}

TEST_F(Create, EmptiesNothingOfAFullDisk)
{
    makeDirs(skeleton + "/conf");
    makeFile(skeleton + "/conf/big", std::string(200000, 'x'));
    makeFile(skeleton + "/conf/small", "fits");
    makeDir(shop);
    const PrivateDirectory narrow(shop, "size=64k");
    const Outcome end = run(creation(bare));
    EXPECT_EQ(
        end.err, "corbel:InstallSkeleton(): " + shop + "/conf/big: No space left on device\n");
    EXPECT_EQ(end.out, "");
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(treeOf(shop), "dir  0755 root:root .\n"
                            "dir  0750 root:kvoserv conf\n"
                            "file 0644 root:kvoserv conf/small \"fits\"\n");
}
