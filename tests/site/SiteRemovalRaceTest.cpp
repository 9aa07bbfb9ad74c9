#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/site/SiteRemovalFixture.h"

// The site's user exchanges directories while root removes what was in them.

namespace
{

void plant(const char* path, const char* target)
{
    makeLink(path, target);
    EXPECT_EQ(lchown(path, 1001, 100), 0);
}

void move(const char* from, const char* to)
{
    EXPECT_EQ(std::rename(from, to), 0);
}

/// "/srv/victim" holds what "/srv/web/d" holds, and nothing of it may go.
class SiteRemovalRace : public SiteRemoval
{
protected:
    SiteRemovalRace()
    {
        makeDir("/srv/web/d", {0755, site, users});
        makeDir("/srv/web/d/e", {0755, site, users});
        makeFile("/srv/web/d/e/x", "");
        makeFile("/srv/web/d/y", "");
        makeDirs("/srv/victim/e");
        makeFile("/srv/victim/e/x", "precious");
        makeFile("/srv/victim/y", "precious");
        victim_ = treeOf("/srv/victim");
    }

    ~SiteRemovalRace() override { EXPECT_EQ(treeOf("/srv/victim"), victim_); }

private:
    std::string victim_;
};

} // namespace

TEST_F(SiteRemovalRace, ALinkPlantedBetweenListingAndRemovalIsRefused)
{
    // Nine lead to the three trees and through them; then come the document root and "d" for "y".
    faults::runBefore("openat2", 11, [] {
        move("/srv/web/d", "/srv/web/moved");
        plant("/srv/web/d", "/srv/victim");
    });
    EXPECT_EQ(messagesOfEmptying(), "lstat(\"/srv/web/d/y\"): Too many levels of symbolic links\n"
                                    "lstat(\"/srv/web/d/e/x\"): Too many levels of symbolic links\n"
                                    "lstat(\"/srv/web/d/e\"): Too many levels of symbolic links\n");
    // The link itself is an entry like any other.
    EXPECT_FALSE(exists("/srv/web/d"));
    EXPECT_TRUE(exists("/srv/web/moved/e/x"));
}

TEST_F(SiteRemovalRace, ALinkPlantedDeeperOnTheWayIsRefused)
{
    // As above, then "d/e" for "e/x".
    faults::runBefore("openat2", 12, [] {
        move("/srv/web/d/e", "/srv/web/moved");
        plant("/srv/web/d/e", "/srv/victim/e");
    });
    EXPECT_EQ(
        messagesOfEmptying(), "lstat(\"/srv/web/d/e/x\"): Too many levels of symbolic links\n");
    EXPECT_FALSE(exists("/srv/web/d"));
    EXPECT_TRUE(exists("/srv/web/moved/x"));
}

TEST_F(SiteRemovalRace, ADirectoryOnceOpenedIsTheOneThatIsEmptied)
{
    // Three trees, "d" and "e" are looked at to be listed; then "y" is, to be removed.
    faults::runBefore("fstatat", 5 + 1, [] {
        move("/srv/web/d", "/srv/web/moved");
        plant("/srv/web/d", "/srv/victim");
    });
    EXPECT_EQ(messagesOfEmptying(), "lstat(\"/srv/web/d/e/x\"): Too many levels of symbolic links\n"
                                    "lstat(\"/srv/web/d/e\"): Too many levels of symbolic links\n");
    EXPECT_FALSE(exists("/srv/web/moved/y"));
    EXPECT_TRUE(exists("/srv/web/moved/e/x"));
}

TEST_F(SiteRemovalRace, ADirectoryExchangedJustBeforeItsFileIsRemovedLeadsNowhereElse)
{
    faults::runBefore("unlinkat", 1, [] {
        move("/srv/web/d", "/srv/web/moved");
        plant("/srv/web/d", "/srv/victim");
    });
    EXPECT_EQ(messagesOf("httpdocs/d/y"), "");
    EXPECT_FALSE(exists("/srv/web/moved/y"));
    EXPECT_TRUE(exists("/srv/web/d"));
}

TEST_F(SiteRemovalRace, ALinkThatReplacesAFileIsRemovedItself)
{
    faults::runBefore("unlinkat", 1, [] {
        EXPECT_EQ(unlink("/srv/web/d/y"), 0);
        plant("/srv/web/d/y", "/srv/victim/y");
    });
    EXPECT_EQ(messagesOf("httpdocs/d/y"), "");
    EXPECT_FALSE(exists("/srv/web/d/y"));
}

TEST_F(SiteRemovalRace, ALinkThatReplacesADirectoryIsNotRemovedAsOne)
{
    faults::runBefore("unlinkat", 1, [] {
        move("/srv/web/d", "/srv/web/moved");
        plant("/srv/web/d", "/srv/victim");
    });
    EXPECT_EQ(messagesOf("httpdocs/d"), "rmdir(\"/srv/web/d\"): Not a directory\n");
}

TEST_F(SiteRemovalRace, ADirectoryThatReplacesAFileIsNotUnlinked)
{
    faults::runBefore("unlinkat", 1, [] {
        EXPECT_EQ(unlink("/srv/web/d/y"), 0);
        makeDir("/srv/web/d/y");
    });
    EXPECT_EQ(messagesOf("httpdocs/d/y"), "unlink(\"/srv/web/d/y\"): Is a directory\n");
    EXPECT_TRUE(exists("/srv/web/d/y"));
}

TEST_F(SiteRemovalRace, ALinkWithASeparatorBehindItIsRefusedWhateverItLeadsTo)
{
    makeDirs(host + "/private");
    makeDirs("/srv/empty");
    makeFile("/srv/file", "");
    for (const char* target : {"/srv/empty", "/srv/file", "/srv/none"}) {
        plantLink(host + "/private/link", target);
        for (const char* entry :
            {"private/link/", "private/link//", "/private/link/", "private/link/."}) {
            EXPECT_EQ(messagesOf(entry), "lstat(\"" +
                                             (boost::filesystem::path(host) / entry).native() +
                                             "\"): Too many levels of symbolic links\n");
        }
        ASSERT_EQ(unlink((host + "/private/link").c_str()), 0);
    }
    EXPECT_TRUE(exists("/srv/empty"));
}

TEST_F(SiteRemovalRace, ALinkOfRootThatLeadsThroughOneOfTheUserIsRefusedWithASeparatorToo)
{
    makeDirs(host + "/conf");
    plantLink(host + "/conf/theirs", "/srv/victim");
    makeLink(host + "/conf/ours", "theirs");
    EXPECT_EQ(messagesOf("conf/ours/"),
        "lstat(\"" + host + "/conf/ours/\"): Too many levels of symbolic links\n");
}

TEST_F(SiteRemovalRace, ALinkOfTheUserOnTheWayIsRefusedAndOneOfRootFollowed)
{
    makeDirs("/srv/shared");
    makeFile("/srv/shared/x", "");
    plantLink("/srv/web/theirs", "/srv/victim");
    makeLink("/srv/web/ours", "/srv/shared");
    EXPECT_EQ(messagesOf("httpdocs/theirs/y"),
        "lstat(\"/srv/web/theirs/y\"): Too many levels of symbolic links\n");
    EXPECT_EQ(messagesOf("httpdocs/theirs/../d/y"),
        "lstat(\"/srv/web/theirs/../d/y\"): Too many levels of symbolic links\n");
    EXPECT_EQ(messagesOf("httpdocs/ours/x"), "");
    EXPECT_FALSE(exists("/srv/shared/x"));
}

TEST_F(SiteRemovalRace, TheWayBackDoesNotFollowADirectoryThatWasMoved)
{
    // "d/e" was gone back from and the document root held; now "d/e" is sought anew.
    faults::runBefore("openat2", 3, [] { move("/srv/web/d/e", "/srv/victim/moved"); });
    EXPECT_EQ(messagesOf("httpdocs/d/e/../e/x"), "");
    EXPECT_TRUE(exists("/srv/victim/moved/x"));
    move("/srv/victim/moved", "/srv/web/d/e");
}

TEST_F(SiteRemovalRace, TheWayBackFromALinkOfRootIsToTheDirectoryThatHoldsTheLink)
{
    makeDirs("/srv/shared/deep");
    makeFile("/srv/shared/y", "");
    makeFile("/srv/web/y", "");
    makeLink("/srv/web/ours", "/srv/shared/deep");
    EXPECT_EQ(messagesOf("httpdocs/ours/../y"), "");
    EXPECT_FALSE(exists("/srv/web/y"));
    EXPECT_TRUE(exists("/srv/shared/y"));
}

TEST_F(SiteRemovalRace, ALastDotDotNeverRemovesWhereItLeadsByNow)
{
    makeDirs("/srv/elsewhere/inner");
    faults::runBefore("fstatat", 1, [] { move("/srv/web/d/e", "/srv/elsewhere/inner/e"); });
    EXPECT_EQ(messagesOf("httpdocs/d/e/.."), "rmdir(\"/srv/web/d/e/..\"): Directory not empty\n");
    EXPECT_TRUE(exists("/srv/elsewhere/inner/e/x"));
    EXPECT_TRUE(exists("/srv/web/d/y"));
}

TEST_F(SiteRemovalRace, ATreeThatTheUserMakesALinkWhileItIsEmptiedIsEmptiedWhereItIs)
{
    // "y" in "d" is the first, and the document root is held by then.
    faults::runBefore("unlinkat", 1, [] {
        move("/srv/web", "/srv/moved");
        plant("/srv/web", "/srv/victim");
    });
    EXPECT_EQ(messagesOfEmptying(), "");
    EXPECT_EQ(treeOf("/srv/moved"), emptyDirectory);
}

TEST_F(SiteRemovalRace, ATreeThatTheUserMakesALinkAfterTheListingIsRefused)
{
    // Nine lead to the three trees and through them; the next is the document root's.
    faults::runBefore("openat2", 10, [] {
        move("/srv/web", "/srv/moved");
        plant("/srv/web", "/srv/victim");
    });
    EXPECT_EQ(messagesOfEmptying(), "lstat(\"/srv/web/d/y\"): Too many levels of symbolic links\n"
                                    "lstat(\"/srv/web/d/e/x\"): Too many levels of symbolic links\n"
                                    "lstat(\"/srv/web/d/e\"): Too many levels of symbolic links\n"
                                    "lstat(\"/srv/web/d\"): Too many levels of symbolic links\n");
    EXPECT_TRUE(exists("/srv/moved/d/e/x"));
    EXPECT_TRUE(exists("/srv/moved/d/y"));
}
