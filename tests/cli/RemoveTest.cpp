#include "tests/cli/Site.h"
#include "tests/lib/LargeTree.h"

namespace
{

using Remove = Site;

}

TEST_F(Remove, DeletesTheSubdomainWithEverythingInItAndNothingBeside)
{
    makeDirs(shop + "/httpdocs/a/b");
    makeFile(shop + "/httpdocs/a/file", "x", {0400, site});
    makeLink(shop + "/link", "/etc");
    makeFifo(shop + "/fifo");
    makeDir(subdomains + "/shop2");
    expectSilent(run(removal()), 0);
    EXPECT_EQ(treeOf(root), "dir  0755 root:root .\n"
                            "dir  0755 root:root example.test\n"
                            "dir  0755 root:root example.test/subdomains\n"
                            "dir  0755 root:root example.test/subdomains/shop2\n");
    EXPECT_TRUE(exists("/etc/passwd"));
}

TEST_F(Remove, CountsAMissingSubdomainDomainOrRootAsRemoved)
{
    expectSilent(run(removal()), 0);
    expectSilent(run({"--remove", "--subdomain-name=shop", "--vhost-name=missing.test"}), 0);
    configure("HTTPD_VHOSTS_D /srv/nowhere\n");
    expectSilent(run(removal()), 0);
}

TEST_F(Remove, DeletesASubdomainThatIsALinkAndKeepsItsTarget)
{
    makeDir("/srv/target");
    makeFile("/srv/target/file", "x");
    makeLink(shop, "/srv/target");
    expectSilent(run(removal()), 0);
    EXPECT_FALSE(exists(shop));
    EXPECT_TRUE(exists("/srv/target/file"));
}

TEST_F(Remove, DeletesASubdomainThatIsAFile)
{
    makeFile(shop, "x");
    expectSilent(run(removal()), 0);
    EXPECT_FALSE(exists(shop));
}

TEST_F(Remove, WorksBelowTheConfiguredRoot)
{
    configure("HTTPD_VHOSTS_D /srv/other\n");
    makeDirs("/srv/other/example.test/subdomains/shop");
    makeDir(shop);
    expectSilent(run(removal()), 0);
    EXPECT_FALSE(exists("/srv/other/example.test/subdomains/shop"));
    EXPECT_TRUE(exists(shop));
}

TEST_F(Remove, TakesAConfiguredRootWithItsTrailingBlankAndNewlineToTheLetter)
{
    configure("HTTPD_VHOSTS_D /srv/own \n");
    makeDirs("/srv/own \n/example.test/subdomains/shop");
    expectSilent(run(removal()), 0);
    EXPECT_FALSE(exists("/srv/own \n/example.test/subdomains/shop"));
    EXPECT_TRUE(exists("/srv/own \n/example.test/subdomains"));
}

TEST_F(Remove, ReportsAPathThatHadToBeCutWithoutASystemError)
{
    const std::string name(5000, 'a');
    const std::string path = (root + '/' + name).substr(0, 4095);
    const Outcome end = run({"--remove", "--vhost-name=" + name, "--subdomain-name=shop"});
    expectReported(end, {"Unable to open dir " + path + ": File name too long\n"}, 1);
}

TEST_F(Remove, IsFatalForASubdomainThatIsAPipe)
{
    makeFifo(shop);
    expectReported(run(removal()),
        {"Unable to open dir " + shop + ": Not a directory\n" + systemError(20, "Not a directory")},
        1);
    EXPECT_TRUE(exists(shop));
}

TEST_F(Remove, DeletesALargeTreeWithNamesAndTypesOfEveryKind)
{
    makeLargeTree(shop);
    expectSilent(run(removal()), 0);
    EXPECT_FALSE(exists(shop));
    EXPECT_TRUE(exists("/etc/passwd"));
}
