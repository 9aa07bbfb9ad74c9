#include <sys/stat.h>
#include <unistd.h>

#include "fsutil/TreeWalkers.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

constexpr uid_t sameOwner = static_cast<uid_t>(-1);
constexpr gid_t sameGroup = static_cast<gid_t>(-1);

class ChangeOwnerOfTree : public World
{
protected:
    ChangeOwnerOfTree()
    {
        makeDir("/srv/t");
        makeDir("/srv/t/a");
        makeFile("/srv/t/a/file", "x");
        makeFile("/srv/t/file", "x");
        makeFile("/srv/outside", "x");
    }

    static Outcome failing(const char* function, int error, int nth, const char* path)
    {
        return inChild([=] {
            faults::fail(function, error, nth);
            changeOwnerOfTree(path, site, kvocln, 1);
        });
    }

    faults::Guard guard_;
};

} // namespace

TEST_F(ChangeOwnerOfTree, ChangesEveryRegularFileAndDirectoryWithTheTop)
{
    changeOwnerOfTree("/srv/t", site, kvocln, 1);
    EXPECT_EQ(treeOf("/srv/t"), "dir  0755 site:kvocln .\n"
                                "dir  0755 site:kvocln a\n"
                                "file 0644 site:kvocln a/file \"x\"\n"
                                "file 0644 site:kvocln file \"x\"\n");
}

TEST_F(ChangeOwnerOfTree, LeavesOnlyTheNamedDirectoryWhenTheTopIsNotIncluded)
{
    changeOwnerOfTree("/srv/t", site, kvocln, 0);
    EXPECT_EQ(treeOf("/srv/t"), "dir  0755 root:root .\n"
                                "dir  0755 site:kvocln a\n"
                                "file 0644 site:kvocln a/file \"x\"\n"
                                "file 0644 site:kvocln file \"x\"\n");
}

TEST_F(ChangeOwnerOfTree, LeavesAnIdOfMinusOneUnchanged)
{
    changeOwnerOfTree("/srv/t/a", site, sameGroup, 1);
    EXPECT_EQ(accessOf("/srv/t/a/file"), "0644 site:root");
    EXPECT_EQ(accessOf("/srv/t/a"), "0755 site:root");
    changeOwnerOfTree("/srv/t/a", sameOwner, kvocln, 1);
    EXPECT_EQ(accessOf("/srv/t/a/file"), "0644 site:kvocln");
    EXPECT_EQ(accessOf("/srv/t/a"), "0755 site:kvocln");
}

TEST_F(ChangeOwnerOfTree, LeavesLinksPipesSocketsAndDevicesAloneAndNeverFollowsALink)
{
    makeFifo("/srv/t/fifo");
    makeSocket("/srv/t/socket");
    makeDevice("/srv/t/device");
    makeLink("/srv/t/link", "/srv/outside");
    makeLink("/srv/t/directory", "a");
    changeOwnerOfTree("/srv/t", site, kvocln, 0);
    EXPECT_EQ(treeOf("/srv/t"), "dir  0755 root:root .\n"
                                "dir  0755 site:kvocln a\n"
                                "file 0644 site:kvocln a/file \"x\"\n"
                                "char 0600 root:root device\n"
                                "link root:root directory -> a\n"
                                "fifo 0600 root:root fifo\n"
                                "file 0644 site:kvocln file \"x\"\n"
                                "link root:root link -> /srv/outside\n"
                                "sock 0600 root:root socket\n");
    EXPECT_EQ(accessOf("/srv/outside"), "0644 root:root");
}

TEST_F(ChangeOwnerOfTree, DoesNothingToALinkGivenAsThePathNorToItsTarget)
{
    makeLink("/srv/link", "t");
    const std::string before = treeOf("/srv/t");
    changeOwnerOfTree("/srv/link", site, kvocln, 1);
    EXPECT_EQ(treeOf("/srv/t"), before);
    EXPECT_EQ(treeOf("/srv/link"), "link root:root . -> t\n");
}

TEST_F(ChangeOwnerOfTree, DescendsALinkGivenWithATrailingSlash)
{
    makeLink("/srv/link", "t");
    changeOwnerOfTree("/srv/link/", site, kvocln, 1);
    EXPECT_EQ(accessOf("/srv/t"), "0755 site:kvocln");
    EXPECT_EQ(accessOf("/srv/t/a/file"), "0644 site:kvocln");
}

TEST_F(ChangeOwnerOfTree, ChangesARegularFileGivenAsThePathWhateverIncludeTopSays)
{
    changeOwnerOfTree("/srv/outside", site, kvocln, 0);
    EXPECT_EQ(accessOf("/srv/outside"), "0644 site:kvocln");
}

TEST_F(ChangeOwnerOfTree, LosesTheSetIdBitsOfFilesAndKeepsThoseOfDirectories)
{
    makeFile("/srv/t/program", "x", {06755});
    makeDir("/srv/t/shared", {03775});
    changeOwnerOfTree("/srv/t", site, kvocln, 0);
    EXPECT_EQ(accessOf("/srv/t/program"), "0755 site:kvocln");
    EXPECT_EQ(accessOf("/srv/t/shared"), "3775 site:kvocln");
}

TEST_F(ChangeOwnerOfTree, IsFatalForAPathThatDoesNotExist)
{
    const Outcome end = inChild([] { changeOwnerOfTree("/srv/missing", site, kvocln, 0); });
    EXPECT_EQ(end.err, "Unable to get entry /srv/missing: No such file or directory\n"
                       "\nSystem error 2: No such file or directory\n");
    EXPECT_EQ(end.out, end.err);
    EXPECT_EQ(end.status, 1);
}

TEST_F(ChangeOwnerOfTree, IsFatalForAPathBelowADirectoryThatDoesNotExist)
{
    const Outcome end = inChild([] { changeOwnerOfTree("/srv/missing/x", site, kvocln, 0); });
    EXPECT_EQ(end.err, "Unable to get entry /srv/missing/x: No such file or directory\n"
                       "\nSystem error 2: No such file or directory\n");
    EXPECT_EQ(end.status, 1);
}

TEST_F(ChangeOwnerOfTree, IsFatalForAnEmptyPath)
{
    const Outcome end = inChild([] { changeOwnerOfTree("", site, kvocln, 0); });
    EXPECT_EQ(end.err, "Unable to get entry : No such file or directory\n"
                       "\nSystem error 2: No such file or directory\n");
}

TEST_F(ChangeOwnerOfTree, TriesToWalkAPipeGivenAsThePath)
{
    makeFifo("/srv/fifo");
    const Outcome end = inChild([] { changeOwnerOfTree("/srv/fifo", site, kvocln, 1); });
    EXPECT_EQ(end.err, "Unable to open dir /srv/fifo: Not a directory\n"
                       "\nSystem error 20: Not a directory\n");
    EXPECT_EQ(end.status, 1);
    EXPECT_EQ(accessOf("/srv/fifo"), "0600 root:root");
}

TEST_F(ChangeOwnerOfTree, HasTheSameWordsForAFileInTheTreeAndForOneGivenAsThePath)
{
    Outcome end = failing("fchownat", EROFS, 1, "/srv/t/a");
    EXPECT_EQ(end.err, "Unable to chown directory entry file: Read-only file system\n"
                       "\nSystem error 30: Read-only file system\n");
    EXPECT_EQ(end.out, end.err);
    EXPECT_EQ(end.status, 1);
    end = failing("fchownat", EROFS, 1, "/srv/outside");
    EXPECT_EQ(end.err, "Unable to chown directory entry /srv/outside: Read-only file system\n"
                       "\nSystem error 30: Read-only file system\n");
    EXPECT_EQ(end.status, 1);
}

TEST_F(ChangeOwnerOfTree, CallsASubdirectoryByItsBareNameAndTheTopByThePathAsGiven)
{
    Outcome end = failing("fchown", EPERM, 1, "/srv/t");
    EXPECT_EQ(end.err, "Unable to chown dir a: Operation not permitted\n"
                       "\nSystem error 1: Operation not permitted\n");
    end = failing("fchown", EPERM, 2, "/srv/t");
    EXPECT_EQ(end.err, "Unable to chown dir /srv/t: Operation not permitted\n"
                       "\nSystem error 1: Operation not permitted\n");
    EXPECT_EQ(end.status, 1);
}

TEST_F(ChangeOwnerOfTree, TreatsAFileThatIsThereButCannotBeFoundByChownAsFatal)
{
    const Outcome end = failing("fchownat", ENOENT, 1, "/srv/t/a");
    EXPECT_EQ(end.err, "Unable to chown directory entry file: No such file or directory\n"
                       "\nSystem error 2: No such file or directory\n");
    EXPECT_EQ(end.status, 1);
}

TEST_F(ChangeOwnerOfTree, PassesOverAFileThatVanishesBeforeItsTurn)
{
    faults::runBefore("fchownat", 1, [] { ASSERT_EQ(unlink("/srv/t/a/file"), 0); });
    const Outcome end = outputOf([] { changeOwnerOfTree("/srv/t/a", site, kvocln, 1); });
    EXPECT_EQ(end.out + end.err, "");
    EXPECT_EQ(treeOf("/srv/t/a"), "dir  0755 site:kvocln .\n");
}

TEST_F(ChangeOwnerOfTree, NeverReachesTheTargetOfALinkThatAFileTurnsInto)
{
    faults::runBefore("fchownat", 1, [] {
        ASSERT_EQ(unlink("/srv/t/a/file"), 0);
        makeLink("/srv/t/a/file", "/srv/outside");
    });
    const Outcome end = outputOf([] { changeOwnerOfTree("/srv/t/a", site, kvocln, 0); });
    EXPECT_EQ(end.out + end.err, "");
    EXPECT_EQ(accessOf("/srv/outside"), "0644 root:root");
    // The link took the file's place and gets what was meant for it.
    EXPECT_EQ(treeOf("/srv/t/a/file"), "link site:kvocln . -> /srv/outside\n");
}

TEST_F(ChangeOwnerOfTree, ChangesTheDirectoryItWalkedAndNotTheOneThatTookItsName)
{
    makeDir("/srv/innocent");
    faults::runBefore("fchown", 1, [] {
        ASSERT_EQ(rename("/srv/t/a", "/srv/t/moved"), 0);
        makeLink("/srv/t/a", "/srv/innocent");
    });
    changeOwnerOfTree("/srv/t", site, kvocln, 0);
    EXPECT_EQ(accessOf("/srv/innocent"), "0755 root:root");
    EXPECT_EQ(accessOf("/srv/t/moved"), "0755 site:kvocln");
}

TEST_F(ChangeOwnerOfTree, ChangesAFileWithSeveralNamesWhereverItIsFound)
{
    ASSERT_EQ(link("/srv/t/file", "/srv/t/a/again"), 0);
    changeOwnerOfTree("/srv/t/a", site, kvocln, 0);
    EXPECT_EQ(accessOf("/srv/t/file"), "0644 site:kvocln");
}

TEST_F(ChangeOwnerOfTree, WalksWithTheModesFollowingTheOwnersInTheCombinedWalk)
{
    makeFile("/srv/t/program", "x", {06755});
    EXPECT_EQ(changeOwnerAndModeOfTree("/srv/t", site, kvocln, 06711, 0750, 0), 0);
    EXPECT_EQ(treeOf("/srv/t"), "dir  0755 root:root .\n"
                                "dir  0750 site:kvocln a\n"
                                "file 6711 site:kvocln a/file \"x\"\n"
                                "file 6711 site:kvocln file \"x\"\n"
                                "file 6711 site:kvocln program \"x\"\n");
}

TEST_F(ChangeOwnerOfTree, IncludesTheTopInBothPassesOfTheCombinedWalk)
{
    EXPECT_EQ(changeOwnerAndModeOfTree("/srv/t/a", site, kvocln, 0600, 0700, 1), 0);
    EXPECT_EQ(treeOf("/srv/t/a"), "dir  0700 site:kvocln .\n"
                                  "file 0600 site:kvocln file \"x\"\n");
}
