#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include "fsutil/Directories.h"
#include "tests/fsutil/Reports.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

/// What links may be followed, and what becomes of directories that somebody exchanges.
class DirectoriesTrust : public World
{
protected:
    DirectoriesTrust()
    {
        makeDir("/srv/target", {0711, other, users});
        makeDir("/srv/target/in", {0711, other, users});
        makeLink("/srv/root's", "target");
        makeLink("/srv/theirs", "target");
        makeLink("/srv/their-dangling", "none");
        EXPECT_EQ(lchown("/srv/theirs", site, users), 0);
        EXPECT_EQ(lchown("/srv/their-dangling", site, users), 0);
    }

    /// Puts a link of the site's user in the place of a directory.
    static void exchange(const char* path, const char* movedTo)
    {
        ASSERT_EQ(rename(path, movedTo), 0);
        makeLink(path, "/srv/target");
        ASSERT_EQ(lchown(path, site, users), 0);
    }

    static void expectTargetUntouched()
    {
        EXPECT_EQ(treeOf("/srv/target"), "dir  0711 other:users .\ndir  0711 other:users in\n");
        EXPECT_FALSE(exists("/srv/none"));
    }

    faults::Guard guard_;
};

using MakeDirectoryTrust = DirectoriesTrust;
using MakeDirectoryPathTrust = DirectoriesTrust;
using RenameDirectoryTrust = DirectoriesTrust;

std::string tooManyLinks(const std::string& beginning)
{
    return "twigctl: " + beginning +
           ": Too many levels of symbolic links\n"
           "\nSystem error 40: Too many levels of symbolic links\n";
}

std::string failed(const std::string& beginning, int error)
{
    const std::string text = strerror(error);
    return "twigctl: " + beginning + ": " + text + "\n\nSystem error " + std::to_string(error) +
           ": " + text + '\n';
}

int makePath(const std::string& path, mode_t mode = 0750)
{
    return makeDirectoryPathCopy(path.c_str(), 1001, 2001, mode);
}

/// How the path maker ends the process.
void expectEnd(const std::string& path, const std::string& level, int error)
{
    const Outcome end = inChild([&] {
        PROGNAME = "twigctl";
        makePath(path);
    });
    const std::string text = strerror(error);
    EXPECT_EQ(end.err, "twigctl: Cannot create directory " + level + ": " + text +
                           "\nSystem error " + std::to_string(error) + ": " + text + '\n');
    EXPECT_EQ(end.out, end.err);
    EXPECT_EQ(end.status, 1);
}

/// Lets the path maker be killed before a call, and then run again.
void expectSameAfterKill(const char* function, int nth)
{
    const Outcome end = inChild([=] {
        faults::runBefore(function, nth, [] { _exit(9); });
        makePath("/srv/a/b/c", 01750);
    });
    EXPECT_EQ(end.status, 9) << function << nth;
    EXPECT_EQ(reportsOf([] { EXPECT_EQ(makePath("/srv/a/b/c", 01750), 0); }), "");
    EXPECT_EQ(treeOf("/srv/a"), "dir  0750 site:kvoserv .\n"
                                "dir  0750 site:kvoserv b\n"
                                "dir  1750 site:kvoserv b/c\n")
        << function << nth;
    for (const char* path : {"/srv/a/b/c", "/srv/a/b", "/srv/a"}) {
        ASSERT_EQ(rmdir(path), 0);
    }
}

} // namespace

TEST_F(MakeDirectoryTrust, FollowsLinksOfRoot)
{
    EXPECT_EQ(makeDirectory("/srv/root's/new", site, kvoserv, 0750), 0);
    EXPECT_EQ(accessOf("/srv/target/new"), "0750 site:kvoserv");
    EXPECT_EQ(makeDirectory("/srv/root's", site, kvoserv, 0700), 0);
    EXPECT_EQ(accessOf("/srv/target"), "0700 site:kvoserv");
    EXPECT_EQ(makeDirectory("/srv/root's/", site, kvoserv, 0755), 0);
    EXPECT_EQ(accessOf("/srv/target"), "0755 site:kvoserv");
    EXPECT_EQ(accessOf("/srv/root's"), "0777 root:root");
}

TEST_F(MakeDirectoryTrust, RefusesALinkOfSomebodyElseAtTheEnd)
{
    for (const std::string path :
        {"/srv/theirs", "/srv/theirs/", "/srv/their-dangling", "/srv/their-dangling/"}) {
        int result = 0;
        EXPECT_EQ(reportsOf([&] { result = makeDirectory(path.c_str(), site, kvoserv, 0777); }),
            tooManyLinks("ERROR: Unable to chown " + path));
        EXPECT_EQ(result, -1);
    }
    expectTargetUntouched();
    EXPECT_EQ(accessOf("/srv/theirs"), "0777 site:users");
}

TEST_F(MakeDirectoryTrust, RefusesALinkOfSomebodyElseOnTheWay)
{
    for (const std::string path : {"/srv/theirs/new", "/srv/theirs/in", "/srv/theirs/../new"}) {
        int result = 0;
        EXPECT_EQ(reportsOf([&] { result = makeDirectory(path.c_str(), site, kvoserv, 0777); }),
            tooManyLinks("ERROR: Unable to mkdir " + path));
        EXPECT_EQ(result, -1);
    }
    expectTargetUntouched();
    EXPECT_FALSE(exists("/srv/new"));
}

TEST_F(MakeDirectoryTrust, GivesNothingToTheTargetOfALinkThatTookTheNewDirectorysPlace)
{
    int result = 0;
    EXPECT_EQ(reportsOf([&] {
        faults::runBefore("openat", 1, [] { exchange("/srv/new", "/srv/moved"); });
        result = makeDirectory("/srv/new", site, kvoserv, 0777);
    }),
        tooManyLinks("ERROR: Unable to chown /srv/new"));
    EXPECT_EQ(result, -1);
    EXPECT_EQ(accessOf("/srv/moved"), "0755 root:root");
    expectTargetUntouched();
}

TEST_F(MakeDirectoryTrust, ChangesTheDirectoryThatItHoldsWhateverTakesItsName)
{
    for (const char* function : {"fchownat", "fchmodat2"}) {
        faults::runBefore(function, 1, [] { exchange("/srv/new", "/srv/moved"); });
        EXPECT_EQ(makeDirectory("/srv/new", site, kvoserv, 0750), 0);
        EXPECT_EQ(accessOf("/srv/moved"), "0750 site:kvoserv") << function;
        EXPECT_EQ(accessOf("/srv/new"), "0777 site:users") << function;
        expectTargetUntouched();
        ASSERT_EQ(rmdir("/srv/moved") | unlink("/srv/new"), 0);
    }
}

TEST_F(MakeDirectoryPathTrust, FollowsLinksOfRoot)
{
    EXPECT_EQ(makePath("/srv/root's/a/b"), 0);
    EXPECT_EQ(treeOf("/srv/target/a"), "dir  0750 site:kvoserv .\ndir  0750 site:kvoserv b\n");
    EXPECT_EQ(accessOf("/srv/target"), "0711 other:users");
    EXPECT_EQ(makePath("/srv/root's"), 0);
    EXPECT_EQ(accessOf("/srv/target"), "0711 other:users");
}

TEST_F(MakeDirectoryPathTrust, EndsTheProcessBehindALinkOfSomebodyElse)
{
    expectEnd("/srv/theirs/a/b", "/srv/theirs/a", ELOOP);
    expectEnd("/srv/theirs/in", "/srv/theirs/in", ELOOP);
    expectEnd("/srv/their-dangling/a", "/srv/their-dangling/a", ELOOP);
    expectTargetUntouched();
}

TEST_F(MakeDirectoryPathTrust, LeavesALinkOfSomebodyElseAtTheEndAlone)
{
    EXPECT_EQ(reportsOf([] {
        EXPECT_EQ(makePath("/srv/theirs"), 0);
        EXPECT_EQ(makePath("/srv/theirs/"), 0);
        EXPECT_EQ(makePath("/srv/their-dangling"), 0);
    }),
        "");
    EXPECT_EQ(accessOf("/srv/theirs"), "0777 site:users");
    expectTargetUntouched();
}

TEST_F(MakeDirectoryPathTrust, GoesBackToWhereItCameFrom)
{
    EXPECT_EQ(makePath("/srv/root's/../a/./b/../c"), 0);
    EXPECT_EQ(treeOf("/srv/a"), "dir  0750 site:kvoserv .\n"
                                "dir  0750 site:kvoserv b\n"
                                "dir  0750 site:kvoserv c\n");
    ASSERT_EQ(chdir("/srv/target/in"), 0);
    EXPECT_EQ(makePath("../../d"), 0);
    EXPECT_EQ(accessOf("/srv/d"), "0750 site:kvoserv");
    expectTargetUntouched();
}

TEST_F(MakeDirectoryPathTrust, GoesBackToTheParentOfWhatALinkLeadsTo)
{
    makeLink("/srv/to-in", "target/in");
    EXPECT_EQ(makePath("/srv/to-in/../new"), 0);
    EXPECT_EQ(accessOf("/srv/target/new"), "0750 site:kvoserv");
    EXPECT_FALSE(exists("/srv/new"));
}

TEST_F(MakeDirectoryPathTrust, TakesTheRoadToTheRootOfTheVirtualHostsAsItIs)
{
    ASSERT_EQ(rmdir("/srv/www/vhosts"), 0);
    makeLink("/srv/www/vhosts", "/srv/target");
    ASSERT_EQ(lchown("/srv/www/vhosts", other, users), 0);
    EXPECT_EQ(makePath("/srv/www/vhosts/a//b"), 0);
    EXPECT_EQ(treeOf("/srv/target/a"), "dir  0750 site:kvoserv .\ndir  0750 site:kvoserv b\n");
    EXPECT_EQ(makePath("/srv/www/vhosts"), 0);
    EXPECT_EQ(accessOf("/srv/target"), "0711 other:users");
}

TEST_F(MakeDirectoryPathTrust, MakesTheRootOfTheVirtualHostsToo)
{
    ASSERT_EQ(rmdir("/srv/www/vhosts") | rmdir("/srv/www"), 0);
    const Outcome end = inChild([] { EXPECT_EQ(makePath("/srv/www/vhosts/a"), 0); });
    EXPECT_EQ(end.err, "");
    EXPECT_EQ(treeOf("/srv/www"), "dir  0750 site:kvoserv .\n"
                                  "dir  0750 site:kvoserv vhosts\n"
                                  "dir  0750 site:kvoserv vhosts/a\n");
}

TEST_F(MakeDirectoryPathTrust, FinishesLevelsThatAnEarlierRunLeftUnfinished)
{
    makeDir("/srv/a", {01000});
    makeDir("/srv/a/b", {01000, site, kvoserv});
    EXPECT_EQ(reportsOf([] { EXPECT_EQ(makePath("/srv/a/b/c"), 0); }), "");
    EXPECT_EQ(treeOf("/srv/a"), "dir  0750 site:kvoserv .\n"
                                "dir  0750 site:kvoserv b\n"
                                "dir  0750 site:kvoserv b/c\n");
}

TEST_F(MakeDirectoryPathTrust, LeavesALevelAloneThatIsUnfinishedForSomebodyElse)
{
    makeDir("/srv/a", {01000, other, users});
    makeDir("/srv/a/b", {01001});
    EXPECT_EQ(makePath("/srv/a/b/c"), 0);
    EXPECT_EQ(treeOf("/srv/a"), "dir  1000 other:users .\n"
                                "dir  1001 root:root b\n"
                                "dir  0750 site:kvoserv b/c\n");
}

TEST_F(MakeDirectoryPathTrust, ReachesTheSameInASecondRunWhereverTheFirstWasKilled)
{
    for (int level = 1; level <= 3; ++level) {
        for (const char* function : {"openat", "fchownat", "fchmodat2"}) {
            expectSameAfterKill(function, level);
        }
    }
}

TEST_F(MakeDirectoryPathTrust, EndsTheProcessWhenALinkTakesThePlaceOfANewLevel)
{
    const Outcome end = inChild([] {
        PROGNAME = "twigctl";
        // "srv" is opened first, then the new level.
        faults::runBefore("mkdirat", 2,
            [] { faults::runBefore("openat", 1, [] { exchange("/srv/a", "/srv/moved"); }); });
        makePath("/srv/a/b");
    });
    EXPECT_EQ(end.err, "twigctl: Cannot create directory /srv/a: Not a directory"
                       "\nSystem error 20: Not a directory\n");
    EXPECT_EQ(end.status, 1);
    EXPECT_EQ(treeOf("/srv/moved"), "dir  1000 root:root .\n");
    expectTargetUntouched();
}

TEST_F(MakeDirectoryPathTrust, LeavesADirectoryAloneThatTakesThePlaceOfANewLevel)
{
    faults::runBefore("mkdirat", 2, [] {
        faults::runBefore("openat", 1, [] {
            ASSERT_EQ(rename("/srv/a", "/srv/moved"), 0);
            makeDir("/srv/a", {0700, other, users});
        });
    });
    EXPECT_EQ(makePath("/srv/a/b"), 0);
    EXPECT_EQ(treeOf("/srv/a"), "dir  0700 other:users .\ndir  0750 site:kvoserv b\n");
    EXPECT_EQ(treeOf("/srv/moved"), "dir  1000 root:root .\n");
}

TEST_F(MakeDirectoryPathTrust, GoesOnInTheLevelThatItHoldsWhateverTakesItsName)
{
    for (const char* function : {"fchownat", "fchmodat2"}) {
        faults::runBefore(function, 1, [] { exchange("/srv/a", "/srv/moved"); });
        EXPECT_EQ(makePath("/srv/a/b"), 0);
        EXPECT_EQ(treeOf("/srv/moved"), "dir  0750 site:kvoserv .\ndir  0750 site:kvoserv b\n")
            << function;
        expectTargetUntouched();
        ASSERT_EQ(rmdir("/srv/moved/b") | rmdir("/srv/moved") | unlink("/srv/a"), 0);
    }
}

TEST_F(MakeDirectoryPathTrust, GoesOnInALevelThatItsOwnerHasAlreadyExchanged)
{
    // The third directory is made in the second, which is the site's by then.
    faults::runBefore("mkdirat", 3, [] { exchange("/srv/a", "/srv/moved"); });
    EXPECT_EQ(makePath("/srv/a/b"), 0);
    EXPECT_EQ(treeOf("/srv/moved"), "dir  0750 site:kvoserv .\ndir  0750 site:kvoserv b\n");
    expectTargetUntouched();
}

TEST_F(MakeDirectoryPathTrust, EndsTheProcessWhenAModeCannotBeSet)
{
    const Outcome end = inChild([] {
        PROGNAME = "twigctl";
        faults::fail("fchmodat2", EROFS);
        makePath("/srv/a/b");
    });
    EXPECT_EQ(end.err, "twigctl: Cannot create directory /srv/a: Read-only file system"
                       "\nSystem error 30: Read-only file system\n");
    EXPECT_EQ(end.status, 1);
    EXPECT_EQ(treeOf("/srv/a"), "dir  1000 site:kvoserv .\n");
}

TEST_F(MakeDirectoryPathTrust, LeavesNoDescriptorOpen)
{
    const size_t before = openDescriptors();
    makePath("/srv/a/b/../c");
    makePath("/srv/root's/a");
    (void)makeDirectory("/srv/a/d", site, kvoserv, 0750);
    (void)outputOf([] { (void)makeDirectory("/srv/theirs/x", site, kvoserv, 0750); });
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(RenameDirectoryTrust, FollowsLinksOfRootOnEitherWay)
{
    makeDir("/srv/target/old");
    EXPECT_EQ(renameDirectory("/srv/root's/old", "/srv/new"), 0);
    EXPECT_TRUE(exists("/srv/new"));
    EXPECT_EQ(renameDirectory("/srv/new", "/srv/root's/new"), 0);
    EXPECT_TRUE(exists("/srv/target/new"));
}

TEST_F(RenameDirectoryTrust, RefusesALinkOfSomebodyElseOnEitherWay)
{
    makeDir("/srv/old");
    int result = 0;
    EXPECT_EQ(reportsOf([&] { result = renameDirectory("/srv/theirs/in", "/srv/new"); }),
        tooManyLinks("Remaming /srv/theirs/in to /srv/new failed"));
    EXPECT_EQ(result, -1);
    EXPECT_EQ(reportsOf([&] { result = renameDirectory("/srv/old", "/srv/theirs/new"); }),
        tooManyLinks("Remaming /srv/old to /srv/theirs/new failed"));
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(exists("/srv/old"));
    EXPECT_FALSE(exists("/srv/new"));
    expectTargetUntouched();
}

TEST_F(RenameDirectoryTrust, RefusesALinkOfSomebodyElseOnTheWayToTheOldAlsoIfThatIsNothing)
{
    for (const std::string path : {"/srv/theirs/none", "/srv/theirs/none/none"}) {
        int result = 0;
        EXPECT_EQ(reportsOf([&] { result = renameDirectory(path.c_str(), "/srv/new"); }),
            tooManyLinks("Remaming " + path + " to /srv/new failed"));
        EXPECT_EQ(result, -1);
    }
    expectTargetUntouched();
}

TEST_F(RenameDirectoryTrust, DoesNotLookForTheNewWhereTheOldIsMissing)
{
    makeFile("/srv/file", "x");
    const std::string tooLong = "/srv/" + std::string(300, 'x') + "/none";
    for (const char* path : {"/srv/none", "/srv/none/none", "/srv/file/none", tooLong.c_str()}) {
        EXPECT_EQ(
            reportsOf([=] { EXPECT_EQ(renameDirectory(path, "/srv/theirs/new"), 0) << path; }), "");
    }
    faults::fail("openat2", EACCES);
    EXPECT_EQ(reportsOf([] { EXPECT_EQ(renameDirectory("/srv/none", "/srv/theirs/new"), 0); }), "");
    expectTargetUntouched();
}

TEST_F(RenameDirectoryTrust, TellsWhyTheNewCannotBeReachedWhereTheOldIsThere)
{
    makeDir("/srv/old");
    makeFile("/srv/file", "x");
    const struct {
        const char* path;
        int error;
    } table[] = {{"/srv/theirs/new", ELOOP}, {"/srv/none/new", ENOENT}, {"/srv/file/x", ENOTDIR}};
    for (const auto& row : table) {
        EXPECT_EQ(reportsOf([&] { EXPECT_EQ(renameDirectory("/srv/old", row.path), -1); }),
            failed(std::string("Remaming /srv/old to ") + row.path + " failed", row.error));
    }
    EXPECT_TRUE(exists("/srv/old"));
}

TEST_F(RenameDirectoryTrust, DoesNotTakeARoadThatCannotBeTakenForOneToNothing)
{
    makeDir("/srv/old");
    for (const int nth : {1, 2}) { // the way to the old, the way to the new
        for (const int error : {EMFILE, ENOMEM, EIO}) {
            int result = 0;
            EXPECT_EQ(reportsOf([&] {
                faults::fail("openat2", error, nth);
                result = renameDirectory("/srv/old", "/srv/new");
            }),
                failed("Remaming /srv/old to /srv/new failed", error))
                << nth;
            EXPECT_EQ(result, -1);
            EXPECT_TRUE(exists("/srv/old"));
        }
    }
}

TEST_F(RenameDirectoryTrust, HasNothingToDoWhereTheOldIsMissingBehindALinkOfRoot)
{
    EXPECT_EQ(reportsOf([] {
        EXPECT_EQ(renameDirectory("/srv/root's/none", "/srv/new"), 0);
        EXPECT_EQ(renameDirectory("/srv/root's/none/none", "/srv/root's/new"), 0);
    }),
        "");
    EXPECT_FALSE(exists("/srv/new"));
    expectTargetUntouched();
}

TEST_F(RenameDirectoryTrust, RenamesALinkItselfAndNotWhatItLeadsTo)
{
    EXPECT_EQ(renameDirectory("/srv/theirs", "/srv/new"), 0);
    EXPECT_EQ(treeOf("/srv/new"), "link site:users . -> target\n");
    expectTargetUntouched();
}

TEST_F(RenameDirectoryTrust, RenamesInTheDirectoriesItFoundFirst)
{
    makeDirs("/srv/road/old");
    // The road to the old has been gone; now its name is looked at.
    makeLink("/srv/way", "/srv/road");
    faults::runBefore("fstatat", 1, [] { exchange("/srv/road", "/srv/moved"); });
    EXPECT_EQ(renameDirectory("/srv/way/old", "/srv/new"), 0);
    EXPECT_TRUE(exists("/srv/new"));
    EXPECT_TRUE(exists("/srv/moved"));
    EXPECT_FALSE(exists("/srv/moved/old"));
    expectTargetUntouched();
}

TEST_F(RenameDirectoryTrust, RenamesIntoTheDirectoryItFoundFirst)
{
    makeDirs("/srv/old");
    makeDirs("/srv/road");
    // The new name is looked at after the old.
    faults::runBefore("fstatat", 2, [] { exchange("/srv/road", "/srv/moved"); });
    EXPECT_EQ(renameDirectory("/srv/old", "/srv/road/new"), 0);
    EXPECT_TRUE(exists("/srv/moved/new"));
    expectTargetUntouched();
}

TEST_F(RenameDirectoryTrust, LeavesNoDescriptorOpen)
{
    makeDir("/srv/old");
    const size_t before = openDescriptors();
    EXPECT_EQ(renameDirectory("/srv/old", "/srv/new"), 0);
    (void)outputOf([] { (void)renameDirectory("/srv/new", "/srv/theirs/x"); });
    EXPECT_EQ(openDescriptors(), before);
}
