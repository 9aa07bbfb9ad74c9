#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fsutil/ChmodNoFollow.h"
#include "fsutil/TreeWalkers.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

class ChangeModeOfTree : public World
{
protected:
    ChangeModeOfTree()
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
            changeModeOfTree(path, 0640, 0750, 1);
        });
    }

    faults::Guard guard_;
};

} // namespace

TEST_F(ChangeModeOfTree, GivesFilesAndDirectoriesTheirModesWithTheTop)
{
    changeModeOfTree("/srv/t", 0640, 02750, 1);
    EXPECT_EQ(treeOf("/srv/t"), "dir  2750 root:root .\n"
                                "dir  2750 root:root a\n"
                                "file 0640 root:root a/file \"x\"\n"
                                "file 0640 root:root file \"x\"\n");
}

TEST_F(ChangeModeOfTree, LeavesOnlyTheNamedDirectoryWhenTheTopIsNotIncluded)
{
    changeModeOfTree("/srv/t", 0640, 0750, 0);
    EXPECT_EQ(treeOf("/srv/t"), "dir  0755 root:root .\n"
                                "dir  0750 root:root a\n"
                                "file 0640 root:root a/file \"x\"\n"
                                "file 0640 root:root file \"x\"\n");
}

TEST_F(ChangeModeOfTree, LeavesLinksPipesSocketsAndDevicesAloneAndNeverFollowsALink)
{
    makeFifo("/srv/t/a/fifo");
    makeSocket("/srv/t/a/socket");
    makeDevice("/srv/t/a/device");
    makeLink("/srv/t/a/link", "/srv/outside");
    changeModeOfTree("/srv/t/a", 0640, 0750, 1);
    EXPECT_EQ(treeOf("/srv/t/a"), "dir  0750 root:root .\n"
                                  "char 0600 root:root device\n"
                                  "fifo 0600 root:root fifo\n"
                                  "file 0640 root:root file \"x\"\n"
                                  "link root:root link -> /srv/outside\n"
                                  "sock 0600 root:root socket\n");
    EXPECT_EQ(accessOf("/srv/outside"), "0644 root:root");
}

TEST_F(ChangeModeOfTree, DoesNothingToALinkGivenAsThePathNorToItsTarget)
{
    makeLink("/srv/link", "t");
    const std::string before = treeOf("/srv/t");
    changeModeOfTree("/srv/link", 0600, 0700, 1);
    EXPECT_EQ(treeOf("/srv/t"), before);
}

TEST_F(ChangeModeOfTree, ChangesARegularFileGivenAsThePathWhateverIncludeTopSays)
{
    changeModeOfTree("/srv/outside", 0600, 0700, 0);
    EXPECT_EQ(accessOf("/srv/outside"), "0600 root:root");
}

TEST_F(ChangeModeOfTree, TakesAwayEveryRightWithoutLockingItselfOut)
{
    // Somebody who is no root: the order alone must keep the walk able to go on.
    const Outcome end = inChild([] {
        ASSERT_EQ(chown("/srv/t", site, users), 0);
        changeOwnerOfTree("/srv/t", site, users, 1);
        ASSERT_EQ(setgid(users) | setuid(site), 0);
        changeModeOfTree("/srv/t", 0, 0, 1);
    });
    EXPECT_EQ(end.err, "");
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(treeOf("/srv/t"), "dir  0000 site:users .\n"
                                "dir  0000 site:users a\n"
                                "file 0000 site:users a/file \"x\"\n"
                                "file 0000 site:users file \"x\"\n");
}

TEST_F(ChangeModeOfTree, IsFatalForAPathThatDoesNotExist)
{
    const Outcome end = inChild([] { changeModeOfTree("/srv/missing", 0600, 0700, 0); });
    EXPECT_EQ(end.err, "Unable to get entry /srv/missing: No such file or directory\n"
                       "\nSystem error 2: No such file or directory\n");
    EXPECT_EQ(end.out, end.err);
    EXPECT_EQ(end.status, 1);
}

TEST_F(ChangeModeOfTree, TriesToWalkASocketGivenAsThePath)
{
    makeSocket("/srv/socket");
    const Outcome end = inChild([] { changeModeOfTree("/srv/socket", 0600, 0700, 1); });
    EXPECT_EQ(end.err, "Unable to open dir /srv/socket: Not a directory\n"
                       "\nSystem error 20: Not a directory\n");
    EXPECT_EQ(accessOf("/srv/socket"), "0600 root:root");
}

TEST_F(ChangeModeOfTree, HasOtherWordsForAFileGivenAsThePathThanForOneInTheTree)
{
    Outcome end = failing("fchmodat2", EROFS, 1, "/srv/outside");
    EXPECT_EQ(end.err, "Unable to chmod entry /srv/outside: Read-only file system\n"
                       "\nSystem error 30: Read-only file system\n");
    EXPECT_EQ(end.out, end.err);
    EXPECT_EQ(end.status, 1);
    end = failing("fchmodat2", EROFS, 1, "/srv/t/a");
    EXPECT_EQ(end.err, "Unable to chmod directory entry file: Read-only file system\n"
                       "\nSystem error 30: Read-only file system\n");
    EXPECT_EQ(end.status, 1);
}

TEST_F(ChangeModeOfTree, CallsASubdirectoryByItsBareNameAndTheTopByThePathAsGiven)
{
    Outcome end = failing("fchmod", EPERM, 1, "/srv/t");
    EXPECT_EQ(end.err, "Unable to chmod dir a: Operation not permitted\n"
                       "\nSystem error 1: Operation not permitted\n");
    end = failing("fchmod", EPERM, 2, "/srv/t");
    EXPECT_EQ(end.err, "Unable to chmod dir /srv/t: Operation not permitted\n"
                       "\nSystem error 1: Operation not permitted\n");
    EXPECT_EQ(end.status, 1);
}

TEST_F(ChangeModeOfTree, FailsOnAFileThatTurnsIntoALinkAndLeavesItsTarget)
{
    const Outcome end = inChild([] {
        faults::runBefore("fchmodat2", 1, [] {
            ASSERT_EQ(unlink("/srv/t/a/file"), 0);
            makeLink("/srv/t/a/file", "/srv/outside");
        });
        changeModeOfTree("/srv/t/a", 0666, 0777, 0);
    });
    EXPECT_EQ(end.err, "Unable to chmod directory entry file: Operation not supported\n"
                       "\nSystem error 95: Operation not supported\n");
    EXPECT_EQ(accessOf("/srv/outside"), "0644 root:root");
}

TEST_F(ChangeModeOfTree, PassesOverAFileThatVanishesBeforeItsTurn)
{
    faults::runBefore("fchmodat2", 1, [] { ASSERT_EQ(unlink("/srv/t/a/file"), 0); });
    const Outcome end = outputOf([] { changeModeOfTree("/srv/t/a", 0600, 0700, 1); });
    EXPECT_EQ(end.out + end.err, "");
    EXPECT_EQ(treeOf("/srv/t/a"), "dir  0700 root:root .\n");
}

TEST_F(ChangeModeOfTree, GivesTheSameResultOnAKernelWithoutTheCallAndAsksForItOnce)
{
    const Outcome end = inChild([] {
        faults::failAlways("fchmodat2", ENOSYS);
        changeModeOfTree("/srv/t", 0640, 0750, 1);
        std::exit(faults::calls("fchmodat2"));
    });
    EXPECT_EQ(end.err, "");
    EXPECT_EQ(end.status, 1);
    EXPECT_EQ(treeOf("/srv/t"), "dir  0750 root:root .\n"
                                "dir  0750 root:root a\n"
                                "file 0640 root:root a/file \"x\"\n"
                                "file 0640 root:root file \"x\"\n");
}

TEST_F(ChangeModeOfTree, GivesTheSameResultWhereAFilterRefusesTheCall)
{
    const Outcome end = inChild([] {
        faults::failAlways("fchmodat2", EPERM);
        changeModeOfTree("/srv/t", 0640, 0750, 1);
        std::exit(faults::calls("fchmodat2")); // a refusal may be about one file only
    });
    EXPECT_EQ(end.err, "");
    EXPECT_EQ(end.status, 2);
    EXPECT_EQ(accessOf("/srv/t/a/file"), "0640 root:root");
}

TEST_F(ChangeModeOfTree, ReportsWhatTheOtherWaySaysAfterARefusal)
{
    const Outcome end = inChild([] {
        faults::failAlways("fchmodat2", EPERM);
        faults::failAlways("fchmodat", EROFS);
        changeModeOfTree("/srv/t/a", 0640, 0750, 1);
    });
    EXPECT_EQ(end.err, "Unable to chmod directory entry file: Read-only file system\n"
                       "\nSystem error 30: Read-only file system\n");
}

TEST_F(ChangeModeOfTree, LeavesNoErrorBehindWhenTheOtherWaySucceeds)
{
    for (const int error : {ENOSYS, EPERM}) {
        const Outcome end = inChild([error] {
            faults::failAlways("fchmodat2", error);
            errno = 0;
            std::exit(chmodNoFollow(AT_FDCWD, "/srv/outside", 0600) == 0 && errno == 0 ? 7 : 8);
        });
        EXPECT_EQ(end.status, 7);
    }
}

TEST_F(ChangeModeOfTree, NeverFollowsALinkOnAKernelWithoutTheCallEither)
{
    makeLink("/srv/link", "/srv/outside");
    const Outcome end = inChild([] {
        faults::failAlways("fchmodat2", ENOSYS);
        const int result = chmodNoFollow(AT_FDCWD, "/srv/link", 0777);
        std::exit(result == -1 && errno == EOPNOTSUPP ? 7 : 8);
    });
    EXPECT_EQ(end.status, 7);
    EXPECT_EQ(accessOf("/srv/outside"), "0644 root:root");
}
