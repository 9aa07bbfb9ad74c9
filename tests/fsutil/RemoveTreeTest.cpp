#include <sys/stat.h>
#include <unistd.h>

#include "fsutil/TreeWalkers.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

class RemoveTree : public World
{
protected:
    RemoveTree()
    {
        makeDir("/srv/t");
        makeDir("/srv/kept");
        makeFile("/srv/kept/file", "kept");
    }

    static void expectFatal(const char* path, const std::string& message)
    {
        const Outcome end = inChild([path] { removeTree(path, 1); });
        EXPECT_EQ(end.err, message);
        EXPECT_EQ(end.out, message);
        EXPECT_EQ(end.status, 1);
    }

    static std::string kept()
    {
        return "dir  0755 root:root .\nfile 0644 root:root file \"kept\"\n";
    }

    faults::Guard guard_;
};

} // namespace

TEST_F(RemoveTree, RemovesEntriesOfEveryTypeAndTheDirectoryItself)
{
    makeDirs("/srv/t/a/b/c");
    makeFile("/srv/t/a/b/file", "x");
    makeFifo("/srv/t/a/fifo");
    makeSocket("/srv/t/a/socket");
    makeDevice("/srv/t/a/b/c/device");
    makeLink("/srv/t/a/link", "b");
    makeLink("/srv/t/a/dangling", "nowhere");
    removeTree("/srv/t", 1);
    EXPECT_FALSE(exists("/srv/t"));
}

TEST_F(RemoveTree, LeavesTheDirectoryItselfEmptyWhenTheTopIsNotToBeRemoved)
{
    makeDirs("/srv/t/a/b");
    makeFile("/srv/t/file", "x");
    removeTree("/srv/t", 0);
    EXPECT_EQ(treeOf("/srv/t"), "dir  0755 root:root .\n");
}

TEST_F(RemoveTree, SaysNothingAboutAPathThatDoesNotExist)
{
    const Outcome end = outputOf([] { removeTree("/srv/missing", 1); });
    EXPECT_EQ(end.out + end.err, "");
}

TEST_F(RemoveTree, SaysNothingAboutAPathBelowADirectoryThatDoesNotExist)
{
    const Outcome end = outputOf([] { removeTree("/srv/missing/too", 1); });
    EXPECT_EQ(end.out + end.err, "");
}

TEST_F(RemoveTree, UnlinksALinkGivenAsThePathAndLeavesItsTarget)
{
    makeLink("/srv/link", "/srv/kept");
    removeTree("/srv/link", 0);
    EXPECT_FALSE(exists("/srv/link"));
    EXPECT_EQ(treeOf("/srv/kept"), kept());
}

TEST_F(RemoveTree, UnlinksARegularFileGivenAsThePathEvenWithoutRemovingTheTop)
{
    makeFile("/srv/file", "x");
    removeTree("/srv/file", 0);
    EXPECT_FALSE(exists("/srv/file"));
}

TEST_F(RemoveTree, UnlinksLinksInTheTreeAndLeavesTheirTargets)
{
    makeLink("/srv/t/directory", "/srv/kept");
    makeLink("/srv/t/file", "/srv/kept/file");
    removeTree("/srv/t", 1);
    EXPECT_FALSE(exists("/srv/t"));
    EXPECT_EQ(treeOf("/srv/kept"), kept());
}

TEST_F(RemoveTree, DescendsALinkGivenWithATrailingSlash)
{
    makeLink("/srv/link", "/srv/kept");
    removeTree("/srv/link/", 0);
    EXPECT_EQ(treeOf("/srv/kept"), "dir  0755 root:root .\n");
}

TEST_F(RemoveTree, CannotRemoveALinkGivenWithATrailingSlash)
{
    makeLink("/srv/link", "/srv/kept");
    expectFatal("/srv/link/",
        "Unable to remove dir /srv/link/: Not a directory\n\nSystem error 20: Not a directory\n");
}

TEST_F(RemoveTree, RemovesADirectoryGivenWithTrailingSlashes)
{
    makeDirs("/srv/t/a");
    removeTree("/srv/t//", 1);
    EXPECT_FALSE(exists("/srv/t"));
}

TEST_F(RemoveTree, RefusesAPipeGivenAsThePathAndKeepsIt)
{
    makeFifo("/srv/fifo");
    expectFatal("/srv/fifo",
        "Unable to open dir /srv/fifo: Not a directory\n\nSystem error 20: Not a directory\n");
    EXPECT_TRUE(exists("/srv/fifo"));
}

TEST_F(RemoveTree, RefusesASocketAndADeviceGivenAsThePath)
{
    makeSocket("/srv/socket");
    makeDevice("/srv/device");
    for (const char* path : {"/srv/socket", "/srv/device"}) {
        expectFatal(path, std::string("Unable to open dir ") + path +
                              ": Not a directory\n\nSystem error 20: Not a directory\n");
        EXPECT_TRUE(exists(path));
    }
}

TEST_F(RemoveTree, CannotRemoveTheCurrentDirectoryByADotButEmptiesIt)
{
    makeDirs("/srv/t/a");
    ASSERT_EQ(chdir("/srv/t"), 0);
    expectFatal(
        ".", "Unable to remove dir .: Invalid argument\n\nSystem error 22: Invalid argument\n");
    EXPECT_EQ(treeOf("/srv/t"), "dir  0755 root:root .\n");
}

TEST_F(RemoveTree, TakesAPathRelativeToTheCurrentDirectory)
{
    makeDirs("/srv/t/a/b");
    ASSERT_EQ(chdir("/srv"), 0);
    removeTree("t/a", 1);
    removeTree("kept", 1);
    EXPECT_EQ(treeOf("/srv/t"), "dir  0755 root:root .\n");
    EXPECT_FALSE(exists("/srv/kept"));
}

TEST_F(RemoveTree, CallsAnEntryThatCannotBeUnlinkedByItsBareName)
{
    makeDirs("/srv/t/a");
    makeFile("/srv/t/a/file", "x");
    const Outcome end = inChild([] {
        faults::fail("unlinkat", EROFS);
        removeTree("/srv/t", 1);
    });
    EXPECT_EQ(end.err, "Unable to unlink directory entry file: Read-only file system\n"
                       "\nSystem error 30: Read-only file system\n");
    EXPECT_EQ(end.out, end.err);
    EXPECT_EQ(end.status, 1);
}

TEST_F(RemoveTree, HasWordsOfItsOwnForAFileOrLinkGivenAsThePath)
{
    makeFile("/srv/file", "x");
    makeLink("/srv/link", "file");
    for (const char* path : {"/srv/file", "/srv/link"}) {
        const Outcome end = inChild([path] {
            faults::fail("unlinkat", EPERM);
            removeTree(path, 1);
        });
        EXPECT_EQ(end.err, std::string("Unable to unlink entry ") + path +
                               ": Operation not permitted\n"
                               "\nSystem error 1: Operation not permitted\n");
        EXPECT_EQ(end.status, 1);
    }
}

TEST_F(RemoveTree, CallsASubdirectoryThatCannotBeRemovedByItsBareName)
{
    makeDirs("/srv/t/a/b");
    const Outcome end = inChild([] {
        faults::fail("unlinkat", EBUSY);
        removeTree("/srv/t", 1);
    });
    EXPECT_EQ(end.err, "Unable to remove dir b: Device or resource busy\n"
                       "\nSystem error 16: Device or resource busy\n");
    EXPECT_EQ(end.status, 1);
}

TEST_F(RemoveTree, CallsTheTopThatCannotBeRemovedByThePathAsGiven)
{
    const Outcome end = inChild([] {
        faults::fail("unlinkat", EBUSY);
        removeTree("/srv/t", 1);
    });
    EXPECT_EQ(end.err, "Unable to remove dir /srv/t: Device or resource busy\n"
                       "\nSystem error 16: Device or resource busy\n");
}

TEST_F(RemoveTree, CountsEveryEntryThatIsGoneAtItsRemovalAsRemoved)
{
    makeDirs("/srv/t/a");
    makeFile("/srv/t/a/file", "x");
    makeFile("/srv/file", "x");
    for (const char* path : {"/srv/t", "/srv/file"}) {
        const Outcome end = inChild([path] {
            faults::failAlways("unlinkat", ENOENT);
            removeTree(path, 1);
        });
        EXPECT_EQ(end.out + end.err, "");
        EXPECT_EQ(end.status, 0);
    }
}

TEST_F(RemoveTree, RemovesADirectoryThatNobodyMayReadOrEnter)
{
    makeDirs("/srv/t/a");
    makeFile("/srv/t/a/file", "x");
    ASSERT_EQ(chmod("/srv/t/a", 0), 0);
    removeTree("/srv/t", 1);
    EXPECT_FALSE(exists("/srv/t"));
}

TEST_F(RemoveTree, ReportsAPathTooLongToBeLookedAtAsOneThatCannotBeOpened)
{
    const std::string path = "/srv/" + std::string(5000, 'a');
    const Outcome end = inChild([&path] { removeTree(path.c_str(), 1); });
    // A message this long carries no system error.
    EXPECT_EQ(end.err, "Unable to open dir " + path + ": File name too long\n");
    EXPECT_EQ(end.status, 1);
}

TEST_F(RemoveTree, DoesNotAcceptByItsPartsAPathThatIsTooLongAsAWhole)
{
    std::string path = "/srv/t";
    while (path.size() < 4094) {
        path += "/.";
    }
    path += "/ab";
    const Outcome end = inChild([&path] { removeTree(path.c_str(), 1); });
    EXPECT_EQ(end.err, "Unable to open dir " + path + ": File name too long\n");
    EXPECT_TRUE(exists("/srv/t"));
}

TEST_F(RemoveTree, ReportsAPathBelowAFileAsOneThatCannotBeOpened)
{
    expectFatal("/srv/kept/file/x", "Unable to open dir /srv/kept/file/x: Not a directory\n"
                                    "\nSystem error 20: Not a directory\n");
}

TEST_F(RemoveTree, UnlinksADirectoryEntryThatTurnsIntoALinkOnlyByFailingToOpenIt)
{
    makeDirs("/srv/t/a");
    const Outcome end = inChild([] {
        // The second openat2() opens "a", behind the one of the way to the tree.
        faults::runBefore("openat2", 2, [] {
            ASSERT_EQ(rmdir("/srv/t/a"), 0);
            makeLink("/srv/t/a", "/srv/kept");
        });
        removeTree("/srv/t", 1);
    });
    EXPECT_EQ(end.err, "Unable to open dir a: Not a directory\n"
                       "\nSystem error 20: Not a directory\n");
    EXPECT_EQ(treeOf("/srv/kept"), kept());
}

TEST_F(RemoveTree, FailsOnAFileThatTurnsIntoADirectory)
{
    makeFile("/srv/t/a", "x");
    const Outcome end = inChild([] {
        faults::runBefore("unlinkat", 1, [] {
            ASSERT_EQ(unlink("/srv/t/a"), 0);
            makeDir("/srv/t/a");
        });
        removeTree("/srv/t", 1);
    });
    EXPECT_EQ(end.err, "Unable to unlink directory entry a: Is a directory\n"
                       "\nSystem error 21: Is a directory\n");
}

TEST_F(RemoveTree, WorksInTheDirectoryItFoundFirstWhenThePathIsExchangedMeanwhile)
{
    makeDirs("/srv/road/site/a");
    makeDirs("/srv/other/site");
    faults::runBefore("openat", 1, [] {
        ASSERT_EQ(rename("/srv/road", "/srv/moved"), 0);
        makeLink("/srv/road", "/srv/other");
    });
    removeTree("/srv/road/site", 1);
    EXPECT_FALSE(exists("/srv/moved/site"));
    EXPECT_TRUE(exists("/srv/other/site"));
}

TEST_F(RemoveTree, DoesNotOpenAPathThatTurnsIntoALink)
{
    const Outcome end = inChild([] {
        faults::runBefore("openat", 1, [] {
            ASSERT_EQ(rmdir("/srv/t"), 0);
            makeLink("/srv/t", "/srv/kept");
        });
        removeTree("/srv/t", 1);
    });
    EXPECT_EQ(end.err, "Unable to open dir /srv/t: Not a directory\n"
                       "\nSystem error 20: Not a directory\n");
    EXPECT_EQ(treeOf("/srv/kept"), kept());
}
