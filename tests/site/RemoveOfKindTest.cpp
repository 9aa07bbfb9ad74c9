#include <unistd.h>

#include "tests/site/SiteRemovalFixture.h"

namespace
{

class RemoveOfKind : public SiteRemoval
{
protected:
    std::string messagesOfKind(
        int kind, const boost::filesystem::path& path, const std::string& subdirectory) const
    {
        return errorsOf([&] {
            zelto::removeOfKind({kind, path}, subdirectory, zelto::SiteRemover(host, options_));
        });
    }
};

} // namespace

TEST_F(RemoveOfKind, FindsKind0InTheCgiDirectoryAndKind1InTheDocumentRoot)
{
    makeFile("/srv/cgi/x", "");
    makeFile("/srv/web/x", "");
    EXPECT_EQ(messagesOfKind(0, "x", "."), "");
    EXPECT_EQ(treeOf("/srv/cgi"), emptyDirectory);
    EXPECT_TRUE(exists("/srv/web/x"));
    EXPECT_EQ(messagesOfKind(1, "x", "."), "");
    EXPECT_EQ(treeOf("/srv/web"), emptyDirectory);
}

TEST_F(RemoveOfKind, FindsOtherKindsInTheVirtualHost)
{
    makeDirs(host + "/conf/a");
    makeDirs(host + "/conf/b");
    makeDirs(host + "/c");
    EXPECT_EQ(messagesOfKind(2, "a", "conf"), "");
    EXPECT_EQ(messagesOfKind(-1, "b", "conf"), "");
    EXPECT_EQ(messagesOfKind(3, "c", "."), "");
    EXPECT_EQ(messagesOfKind(2, "/conf", "."), "");
    EXPECT_EQ(treeOf(host), emptyDirectory);
}

TEST_F(RemoveOfKind, LooksInTheSubdirectory)
{
    makeDirs("/srv/web/app/sub");
    makeFile("/srv/web/app/sub/x", "");
    makeFile("/srv/web/x", "");
    EXPECT_EQ(messagesOfKind(1, "x", "app/sub"), "");
    EXPECT_EQ(messagesOfKind(1, "", "app/sub"), "");
    EXPECT_EQ(treeOf("/srv/web"), "dir  0755 root:root .\ndir  0755 root:root app\n"
                                  "file 0644 root:root x \"\"\n");
}

TEST_F(RemoveOfKind, TakesASeparatorAsTheTopOfTheTree)
{
    makeFile("/srv/a", "");
    makeFile("/srv/web/a", "");
    EXPECT_EQ(messagesOfKind(1, "/srv/a", "/"), "");
    EXPECT_EQ(messagesOfKind(1, "a", "/"), "");
    EXPECT_EQ(treeOf("/srv/web"), emptyDirectory);
    EXPECT_TRUE(exists("/srv/a"));
    EXPECT_EQ(messagesOfKind(1, "", "/"), "rmdir(\"/srv/web/.\"): Invalid argument\n");
}

TEST_F(RemoveOfKind, TakesAnEmptySubdirectoryAsNone)
{
    makeFile("/srv/web/x", "");
    EXPECT_EQ(messagesOfKind(1, "", ""), "");
    EXPECT_EQ(messagesOfKind(1, "x", ""), "");
    EXPECT_EQ(treeOf("/srv/web"), emptyDirectory);
}

TEST_F(RemoveOfKind, AppendsAnAbsolutePathLikeAnyOther)
{
    makeDirs("/srv/web/etc");
    makeFile("/srv/web/etc/passwd", "");
    EXPECT_EQ(messagesOfKind(1, "/etc/passwd", "."), "");
    EXPECT_EQ(treeOf("/srv/web/etc"), emptyDirectory);
    EXPECT_TRUE(exists("/etc/passwd"));
}

TEST_F(RemoveOfKind, KeepsTheTreesThemselves)
{
    for (const int kind : {0, 1}) {
        EXPECT_EQ(messagesOfKind(kind, "", "."), "");
    }
    EXPECT_EQ(messagesOfKind(1, ".", "."), "rmdir(\"/srv/web/.\"): Invalid argument\n");
    EXPECT_EQ(messagesOfKind(1, "/", "."), "rmdir(\"/srv/web/.\"): Invalid argument\n");
    EXPECT_EQ(messagesOfKind(0, ".", "./"), "rmdir(\"/srv/cgi/./.\"): Invalid argument\n");
    EXPECT_EQ(messagesOfKind(1, "..", "."), "lstat(\"/srv/web/..\"): Operation not permitted\n");
    makeDir("/srv/web/app");
    EXPECT_EQ(messagesOfKind(1, "..", "app"), "rmdir(\"/srv/web/app/..\"): Directory not empty\n");
    EXPECT_EQ(messagesOfKind(1, "", "app/"), "rmdir(\"/srv/web/app/.\"): Invalid argument\n");
    EXPECT_EQ(treeOf("/srv/web"), "dir  0755 root:root .\ndir  0755 root:root app\n");
    EXPECT_TRUE(exists("/srv/cgi"));
}

TEST_F(RemoveOfKind, LeavesTheCgiDirectoryAloneWhenItIsToBeSkipped)
{
    makeFile("/srv/cgi/x", "");
    options_.skip_cgi_bin = 1;
    EXPECT_EQ(messagesOfKind(0, "x", "."), "");
    EXPECT_TRUE(exists("/srv/cgi/x"));
}

TEST_F(RemoveOfKind, RefusesASubdirectoryThatLeadsAboveTheTree)
{
    makeFile("/srv/x", "");
    makeFile("/srv/cgi/x", "");
    EXPECT_EQ(messagesOfKind(1, "x", ".."), "lstat(\"/srv/web/../x\"): Operation not permitted\n");
    EXPECT_EQ(messagesOfKind(1, "cgi/x", "../"),
        "lstat(\"/srv/web/../cgi/x\"): Operation not permitted\n");
    EXPECT_EQ(messagesOfKind(2, "x", "../.."),
        "lstat(\"" + host + "/../../x\"): Operation not permitted\n");
    EXPECT_TRUE(exists("/srv/x"));
    EXPECT_TRUE(exists("/srv/cgi/x"));
}

TEST_F(RemoveOfKind, GoesUpFromTheSubdirectoryAsFarAsTheTree)
{
    makeDirs("/srv/web/app");
    makeFile("/srv/web/x", "");
    EXPECT_EQ(messagesOfKind(1, "../x", "app"), "");
    EXPECT_EQ(messagesOfKind(1, "../../x", "app"),
        "lstat(\"/srv/web/app/../../x\"): Operation not permitted\n");
    EXPECT_EQ(treeOf("/srv/web"), "dir  0755 root:root .\ndir  0755 root:root app\n");
}
