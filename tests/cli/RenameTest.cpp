#include <unistd.h>

#include "tests/cli/Site.h"

namespace
{

class Rename : public Site
{
protected:
    inline static const std::string blog = subdomains + "/blog";

    static std::string taken()
    {
        return "Directory rename error: target directory " + blog + " already exists.\n";
    }
};

} // namespace

TEST_F(Rename, MovesTheSubdomainWithItsContentAndAccess)
{
    makeDir(shop, {0711, site, kvoserv});
    makeFile(shop + "/file", "x", {0600, site, kvocln});
    expectSilent(run(renaming("shop", "blog")), 0);
    EXPECT_EQ(treeOf(subdomains), "dir  0755 root:root .\n"
                                  "dir  0711 site:kvoserv blog\n"
                                  "file 0600 site:kvocln blog/file \"x\"\n");
}

TEST_F(Rename, SaysNothingAboutASubdomainThatIsNotThereEvenIfTheNewNameIsTaken)
{
    expectSilent(run(renaming("shop", "blog")), 0);
    makeDir(blog);
    expectSilent(run(renaming("shop", "blog")), 0);
    EXPECT_TRUE(exists(blog));
}

TEST_F(Rename, SaysNothingAboutAnOldNameThatCannotBeLookedAt)
{
    expectSilent(run(renaming(std::string(300, 'a'), "blog")), 0);
    makeLink(shop, "nowhere");
    expectSilent(run(renaming("shop", "blog")), 0);
    ASSERT_EQ(unlink(shop.c_str()), 0);
    makeLink(shop, "shop");
    expectSilent(run(renaming("shop", "blog")), 0);
    EXPECT_TRUE(exists(shop));
    EXPECT_FALSE(exists(blog));
}

TEST_F(Rename, RefusesANameThatIsTaken)
{
    configure("# nothing\n");
    makeDir(shop);
    makeDir(blog);
    expectReported(run(renaming("shop", "blog")), {taken()}, 255);
    EXPECT_TRUE(exists(shop));
}

TEST_F(Rename, ShowsTheMissingConfigurationBehindANameThatIsTaken)
{
    makeDir(shop);
    makeDir(blog);
    expectReported(run(renaming("shop", "blog")), {taken() + noSuchFile}, 255);
}

TEST_F(Rename, RefusesANameThatAFileHas)
{
    configure("# nothing\n");
    makeDir(shop);
    makeFile(blog, "x");
    expectReported(run(renaming("shop", "blog")), {taken()}, 255);
}

TEST_F(Rename, RefusesTheNameThatTheSubdomainHasAlready)
{
    configure("# nothing\n");
    makeDir(blog);
    expectReported(run(renaming("blog", "blog")), {taken()}, 255);
}

TEST_F(Rename, ReportsARenameThatTheSystemRefuses)
{
    makeDir(shop);
    makeLink(blog, "nowhere");
    expectReported(run(renaming("shop", "blog")),
        {"Remaming " + shop + " to " + blog + " failed: Not a directory\n" +
            systemError(20, "Not a directory")},
        255);
    EXPECT_TRUE(exists(shop));
}

TEST_F(Rename, ReportsANewNameInADirectoryThatDoesNotExist)
{
    makeDir(shop);
    expectReported(run(renaming("shop", "no/where")),
        {"Remaming " + shop + " to " + subdomains +
            "/no/where failed: No such file or directory\n" + noSuchFile},
        255);
}

TEST_F(Rename, MovesALinkAndNotItsTarget)
{
    makeDir("/srv/target");
    makeLink(shop, "/srv/target");
    expectSilent(run(renaming("shop", "blog")), 0);
    EXPECT_EQ(treeOf(blog), "link root:root . -> /srv/target\n");
    EXPECT_TRUE(exists("/srv/target"));
}
