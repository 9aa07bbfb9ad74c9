#include <sys/stat.h>
#include <unistd.h>

#include "tests/cli/Site.h"
#include "tests/lib/LargeTree.h"

namespace
{

class ChangeUser : public Site
{
protected:
    ChangeUser()
    {
        makeDir(shop);
        makeDir(shop + "/httpdocs", {0750, site, kvoserv});
        makeFile(shop + "/httpdocs/index.html", "x", {0755, site, kvocln});
        makeDir(shop + "/conf", {0750, 0, kvoserv});
        makeFile(shop + "/conf/site", "x", {0644, 0, kvoserv});
        makeDir(shop + "/error_docs", {0750, 0, kvoserv});
        makeFile(shop + "/error_docs/404", "x", {0644, 0, kvoserv});
        makeDir("/srv/w", {0750, site, kvoserv});
        makeFile("/srv/w/page", "x", {0644, site, kvocln});
        makeDir("/srv/w/deep", {0755, site, kvocln});
    }

    static Outcome changed(const Arguments& options, const Start& start = {})
    {
        return run(change(with(options, {"--skip-cgi-bin"})), start);
    }

    static std::string missing(const std::string& path)
    {
        return "Unable to get entry " + path + ": No such file or directory\n" + noSuchFile;
    }
};

} // namespace

TEST_F(ChangeUser, GivesTheContentToTheUserAndKeepsForRootWhatIsRoots)
{
    expectSilent(changed({"--www-root=/srv/w"}), 0);
    EXPECT_EQ(treeOf(shop), "dir  0755 root:root .\n"
                            "dir  0750 root:kvoserv conf\n"
                            "file 0644 root:kvoserv conf/site \"x\"\n"
                            "dir  0750 root:kvoserv error_docs\n"
                            "file 0644 root:kvoserv error_docs/404 \"x\"\n"
                            "dir  0750 other:kvoserv httpdocs\n"
                            "file 0755 other:kvocln httpdocs/index.html \"x\"\n");
    EXPECT_EQ(treeOf("/srv/w"), "dir  0750 site:kvoserv .\n"
                                "dir  0755 other:kvocln deep\n"
                                "file 0644 other:kvocln page \"x\"\n");
}

TEST_F(ChangeUser, GivesADocumentRootInsideTheSubdomainWithTheRest)
{
    expectSilent(changed({"--www-root=" + shop + "/httpdocs"}), 0);
    EXPECT_EQ(accessOf(shop + "/httpdocs"), "0750 other:kvoserv");
    EXPECT_EQ(accessOf(shop + "/httpdocs/index.html"), "0755 other:kvocln");
}

TEST_F(ChangeUser, SetsOwnerAndModeOfTheSubdomainItselfAndKeepsItsGroup)
{
    ASSERT_EQ(chown(shop.c_str(), site, kvocln), 0);
    ASSERT_EQ(chmod(shop.c_str(), 0700), 0);
    expectSilent(changed({"--skip-www-root"}), 0);
    EXPECT_EQ(accessOf(shop), "0755 root:kvocln");
}

TEST_F(ChangeUser, LeavesTheDocumentRootAloneWhenItIsSkippedAndNotNamed)
{
    expectSilent(changed({"--skip-www-root"}), 0);
    EXPECT_EQ(accessOf("/srv/w/page"), "0644 site:kvocln");
    expectSilent(changed({"--skip-www-root", "--www-root="}), 0);
    EXPECT_EQ(accessOf("/srv/w/page"), "0644 site:kvocln");
}

TEST_F(ChangeUser, WalksADocumentRootThatIsNamedAndSkipped)
{
    expectSilent(changed({"--skip-www-root", "--www-root=/srv/w"}), 0);
    EXPECT_EQ(accessOf("/srv/w/page"), "0644 other:kvocln");
}

TEST_F(ChangeUser, TakesARelativeDocumentRootFromTheCallersDirectory)
{
    expectSilent(changed({"--www-root=w"}, {.directory = "/srv"}), 0);
    EXPECT_EQ(accessOf("/srv/w/page"), "0644 other:kvocln");
    EXPECT_EQ(accessOf("/srv/w"), "0750 site:kvoserv");
}

TEST_F(ChangeUser, DoesNotFindADocumentRootRelativeToTheSubdomain)
{
    expectReported(changed({"--www-root=httpdocs"}), {missing("httpdocs")}, 1);
}

TEST_F(ChangeUser, DoesNotReadTheCgiDirectory)
{
    makeDir("/srv/c", {0755, site, kvoserv});
    makeFile("/srv/c/run", "x", {0755, site, kvocln});
    expectSilent(run(change({"--skip-www-root", "--cgi-bin-path=/srv/c"})), 0);
    EXPECT_EQ(accessOf("/srv/c/run"), "0755 site:kvocln");
    expectSilent(run(change({"--skip-www-root", "--cgi-bin-path=/srv/nowhere"})), 0);
}

TEST_F(ChangeUser, EndsAtAMissingDocumentRootWithConfStillTheUsers)
{
    expectReported(changed({"--www-root=/srv/nowhere"}), {missing("/srv/nowhere")}, 1);
    EXPECT_EQ(accessOf(shop + "/conf/site"), "0644 other:kvoserv");
    EXPECT_EQ(accessOf(shop + "/error_docs/404"), "0644 other:kvoserv");
    EXPECT_EQ(accessOf(shop), "0755 root:root");
}

TEST_F(ChangeUser, EndsAtAMissingConf)
{
    ASSERT_EQ(rename((shop + "/conf").c_str(), "/srv/conf"), 0);
    expectReported(changed({"--www-root=/srv/w"}), {missing(shop + "/conf")}, 1);
    EXPECT_EQ(accessOf("/srv/w/page"), "0644 other:kvocln");
    EXPECT_EQ(accessOf(shop + "/error_docs/404"), "0644 other:kvoserv");
}

TEST_F(ChangeUser, EndsAtMissingErrorDocsAfterEverythingElseIsDone)
{
    ASSERT_EQ(rename((shop + "/error_docs").c_str(), "/srv/error_docs"), 0);
    expectReported(changed({"--www-root=/srv/w"}), {missing(shop + "/error_docs")}, 1);
    EXPECT_EQ(treeOf(shop), "dir  0755 root:root .\n"
                            "dir  0750 root:kvoserv conf\n"
                            "file 0644 root:kvoserv conf/site \"x\"\n"
                            "dir  0750 other:kvoserv httpdocs\n"
                            "file 0755 other:kvocln httpdocs/index.html \"x\"\n");
    EXPECT_EQ(accessOf("/srv/w/page"), "0644 other:kvocln");
}

TEST_F(ChangeUser, EndsAtAMissingSubdomain)
{
    expectReported(run({"--change-user", "--subdomain-name=none", "--vhost-name=example.test",
                       "--user-name=other", "--skip-www-root", "--skip-cgi-bin"}),
        {missing(subdomains + "/none")}, 1);
}

TEST_F(ChangeUser, ReportsAnUnknownUserOnceAndGivesEverythingToRoot)
{
    const Outcome end = run({"--change-user", "--subdomain-name=shop", "--vhost-name=example.test",
        "--user-name=nosuch", "--www-root=/srv/w", "--skip-cgi-bin"});
    expectReported(end, {"Unable to getpwnam for user nosuch\n"}, 0);
    EXPECT_EQ(accessOf(shop + "/httpdocs/index.html"), "0755 root:kvocln");
    EXPECT_EQ(accessOf("/srv/w/page"), "0644 root:kvocln");
}

TEST_F(ChangeUser, LeavesEverythingButFilesAndDirectoriesAlone)
{
    makeFile("/srv/outside", "x");
    makeFifo(shop + "/httpdocs/fifo", {0600, site, kvocln});
    makeSocket(shop + "/httpdocs/socket", {0600, site, kvocln});
    makeDevice(shop + "/httpdocs/device");
    makeLink(shop + "/httpdocs/link", "/srv/outside");
    expectSilent(changed({"--skip-www-root"}), 0);
    EXPECT_EQ(treeOf(shop + "/httpdocs"), "dir  0750 other:kvoserv .\n"
                                          "char 0600 root:root device\n"
                                          "fifo 0600 site:kvocln fifo\n"
                                          "file 0755 other:kvocln index.html \"x\"\n"
                                          "link root:root link -> /srv/outside\n"
                                          "sock 0600 site:kvocln socket\n");
    EXPECT_EQ(accessOf("/srv/outside"), "0644 root:root");
}

TEST_F(ChangeUser, TakesTheSetIdBitsFromFiles)
{
    makeFile(shop + "/httpdocs/program", "x", {04755, site, kvocln});
    expectSilent(changed({"--skip-www-root"}), 0);
    EXPECT_EQ(accessOf(shop + "/httpdocs/program"), "0755 other:kvocln");
}

TEST_F(ChangeUser, DoesNotEnterASubdomainThatIsALinkButSetsItsTarget)
{
    ASSERT_EQ(rename(shop.c_str(), "/srv/elsewhere"), 0);
    makeLink(shop, "/srv/elsewhere");
    ASSERT_EQ(chmod("/srv/elsewhere", 0700), 0);
    expectSilent(changed({"--skip-www-root"}), 0);
    EXPECT_EQ(accessOf("/srv/elsewhere"), "0755 root:root");
    EXPECT_EQ(accessOf("/srv/elsewhere/httpdocs/index.html"), "0755 site:kvocln");
}

TEST_F(ChangeUser, CoversALargeTreeWithNamesAndTypesOfEveryKind)
{
    makeLargeTree(shop + "/httpdocs/large");
    expectSilent(changed({"--skip-www-root"}), 0);
    const TreeCount count =
        countTree(shop + "/httpdocs/large", "0644 other:root", "0755 other:root");
    EXPECT_EQ(count.files, 20000U);
    EXPECT_EQ(count.directories, 500U);
    EXPECT_EQ(count.others, 450U);
}
