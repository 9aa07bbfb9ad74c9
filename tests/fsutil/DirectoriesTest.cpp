#include "fsutil/Directories.h"

#include <cerrno>
#include <climits>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/fsutil/Reports.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

constexpr auto unchanged = static_cast<uid_t>(-1);

class Directories : public World
{
protected:
    faults::Guard guard_;
};

/// The path maker on a path that it may write to; the text must be whole again afterwards.
int makePath(const std::string& path, uid_t owner, gid_t group, mode_t mode)
{
    std::string text = path;
    const int result = makeDirectoryPath(text.data(), owner, group, mode);
    EXPECT_EQ(text, path);
    return result;
}

/// How the path maker ends the process.
Outcome endOfMakePath(const std::string& path)
{
    return inChild([&] {
        PROGNAME = "twigctl";
        makePath(path, 0, 0, 0755);
    });
}

void expectEnd(const Outcome& end, const std::string& report)
{
    EXPECT_EQ(end.status, 1);
    EXPECT_EQ(end.err, report);
    EXPECT_EQ(end.out, report);
}

/// "/srv/a/a/a..." of this length.
std::string deepPath(size_t length)
{
    std::string path = "/srv";
    while (path.size() < length) {
        path += path.size() % 2 == 0 ? '/' : 'a';
    }
    return path;
}

} // namespace

using MakeDirectory = Directories;
using MakeDirectoryPath = Directories;
using MakeDirectoryPathCopy = Directories;
using RenameDirectory = Directories;

TEST_F(MakeDirectory, GivesOwnerGroupAndExactlyThisModeWhateverTheUmask)
{
    for (const mode_t mask : {0U, 022U, 077U, 0777U}) {
        umask(mask);
        const std::string path = "/srv/" + std::to_string(mask);
        EXPECT_EQ(
            reportsOf([&] { EXPECT_EQ(makeDirectory(path.c_str(), site, kvoserv, 0755), 0); }), "");
        EXPECT_EQ(treeOf(path), "dir  0755 site:kvoserv .\n");
    }
}

TEST_F(MakeDirectory, SetsEveryModeBit)
{
    EXPECT_EQ(makeDirectory("/srv/new", site, kvoserv, 07777), 0);
    EXPECT_EQ(accessOf("/srv/new"), "7777 site:kvoserv");
}

TEST_F(MakeDirectory, TakesTheSetGroupIdBitOfItsParentAway)
{
    makeDir("/srv/shared", {02775, 0, users});
    EXPECT_EQ(makeDirectory("/srv/shared/new", site, unchanged, 0755), 0);
    EXPECT_EQ(accessOf("/srv/shared/new"), "0755 site:users");
}

TEST_F(MakeDirectory, TakesAnExistingDirectoryOverWithItsContent)
{
    makeDir("/srv/old", {0700, other, users});
    makeFile("/srv/old/file", "text", {0600, other, users});
    int result = -1;
    EXPECT_EQ(reportsOf([&] { result = makeDirectory("/srv/old", site, kvoserv, 0750); }), "");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(treeOf("/srv/old"), "dir  0750 site:kvoserv .\n"
                                  "file 0600 other:users file \"text\"\n");
}

TEST_F(MakeDirectory, TakesAnExistingFileOver)
{
    makeFile("/srv/file", "text", {0600, other, users});
    EXPECT_EQ(makeDirectory("/srv/file", site, kvoserv, 0755), 0);
    EXPECT_EQ(treeOf("/srv/file"), "file 0755 site:kvoserv . \"text\"\n");
}

TEST_F(MakeDirectory, TakesTheTargetOfALinkOver)
{
    makeDir("/srv/target", {0700, other, users});
    makeLink("/srv/link", "target");
    EXPECT_EQ(makeDirectory("/srv/link", site, kvoserv, 0750), 0);
    EXPECT_EQ(treeOf("/srv"), "dir  0755 root:root .\n"
                              "link root:root link -> target\n"
                              "dir  0750 site:kvoserv target\n"
                              "dir  0755 root:root www\n"
                              "dir  0755 root:root www/vhosts\n");
}

TEST_F(MakeDirectory, CountsADanglingLinkAsDoneAndMakesNothing)
{
    makeLink("/srv/link", "target");
    int result = -1;
    EXPECT_EQ(reportsOf([&] { result = makeDirectory("/srv/link", site, kvoserv, 0750); }), "");
    EXPECT_EQ(result, 0);
    EXPECT_FALSE(exists("/srv/target"));
}

TEST_F(MakeDirectory, MakesOneLevelOnly)
{
    int result = 0;
    EXPECT_EQ(reportsOf([&] { result = makeDirectory("/srv/none/new", 0, 0, 0755); }),
        "twigctl: ERROR: Unable to mkdir /srv/none/new: No such file or directory\n"
        "\nSystem error 2: No such file or directory\n");
    EXPECT_EQ(result, -1);
    EXPECT_FALSE(exists("/srv/none"));
}

TEST_F(MakeDirectory, ReportsAnOwnerThatCannotBeSetAndLeavesTheModeAsMade)
{
    umask(077);
    int result = 0;
    EXPECT_EQ(reportsOf([&] {
        faults::fail("fchownat", EPERM);
        result = makeDirectory("/srv/new", site, kvoserv, 0755);
    }),
        "twigctl: ERROR: Unable to chown /srv/new: Operation not permitted\n"
        "\nSystem error 1: Operation not permitted\n");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(accessOf("/srv/new"), "0700 root:root");
}

TEST_F(MakeDirectory, ReportsAModeThatCannotBeSetWithTheOwnerAlreadyChanged)
{
    umask(077);
    int result = 0;
    EXPECT_EQ(reportsOf([&] {
        faults::fail("fchmodat2", EROFS);
        result = makeDirectory("/srv/new", site, kvoserv, 0755);
    }),
        "twigctl: ERROR: Unable to chmod /srv/new: Read-only file system\n"
        "\nSystem error 30: Read-only file system\n");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(accessOf("/srv/new"), "0700 site:kvoserv");
}

TEST_F(MakeDirectory, ForgivesADirectoryThatIsGoneByTheTimeItsOwnerOrModeIsSet)
{
    for (const char* function : {"openat", "fchownat", "fchmodat2"}) {
        int result = -1;
        EXPECT_EQ(reportsOf([&] {
            faults::runBefore(function, 1, [] { ASSERT_EQ(rmdir("/srv/new"), 0); });
            result = makeDirectory("/srv/new", site, kvoserv, 0750);
        }),
            "")
            << function;
        EXPECT_EQ(result, 0) << function;
        EXPECT_FALSE(exists("/srv/new")) << function;
    }
}

TEST_F(MakeDirectory, ReportsADirectoryThatCannotBeHeldAndChangesNothing)
{
    int result = 0;
    EXPECT_EQ(reportsOf([&] {
        faults::fail("openat", EMFILE);
        result = makeDirectory("/srv/new", site, kvoserv, 0750);
    }),
        "twigctl: ERROR: Unable to chown /srv/new: Too many open files\n"
        "\nSystem error 24: Too many open files\n");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(accessOf("/srv/new"), "0750 root:root");
}

TEST_F(MakeDirectory, ForgetsAnOlderErrorAndLeavesThatOfWhatStoodThere)
{
    errno = EPERM;
    makeDirectory("/srv/new", site, kvoserv, 0750);
    EXPECT_EQ(errno, 0);
    makeDirectory("/srv/new", site, kvoserv, 0750);
    EXPECT_EQ(errno, EEXIST);
}

TEST_F(MakeDirectoryPath, MakesTheMissingParentsWithTheSameOwner)
{
    int result = -1;
    EXPECT_EQ(reportsOf([&] { result = makePath("/srv/a/b/c", site, kvoserv, 0750); }), "");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(treeOf("/srv/a"), "dir  0750 site:kvoserv .\n"
                                "dir  0750 site:kvoserv b\n"
                                "dir  0750 site:kvoserv b/c\n");
}

TEST_F(MakeDirectoryPath, LetsTheUmaskCutTheMode)
{
    umask(077);
    EXPECT_EQ(makePath("/srv/a/b", site, kvoserv, 0755), 0);
    EXPECT_EQ(treeOf("/srv/a"), "dir  0700 site:kvoserv .\ndir  0700 site:kvoserv b\n");
    EXPECT_EQ(umask(022), 077U) << "it is asked for by setting it";
}

TEST_F(MakeDirectoryPath, GivesParentsThePermissionBitsOnly)
{
    EXPECT_EQ(makePath("/srv/a/b/c", site, kvoserv, 01750), 0);
    EXPECT_EQ(treeOf("/srv/a"), "dir  0750 site:kvoserv .\n"
                                "dir  0750 site:kvoserv b\n"
                                "dir  1750 site:kvoserv b/c\n");
}

TEST_F(MakeDirectoryPath, InheritsTheSetGroupIdBitOfAParent)
{
    makeDir("/srv/shared", {02775, 0, users});
    EXPECT_EQ(makePath("/srv/shared/a/b", site, kvoserv, 0750), 0);
    EXPECT_EQ(treeOf("/srv/shared"), "dir  2775 root:users .\n"
                                     "dir  2750 site:kvoserv a\n"
                                     "dir  2750 site:kvoserv a/b\n");
}

TEST_F(MakeDirectoryPath, LeavesDirectoriesThatExistAlone)
{
    makeDir("/srv/a", {0711, other, users});
    makeDir("/srv/a/b", {0700, other, users});
    EXPECT_EQ(makePath("/srv/a/b", site, kvoserv, 0755), 0);
    EXPECT_EQ(makePath("/srv/a/c", site, kvoserv, 0755), 0);
    EXPECT_EQ(treeOf("/srv/a"), "dir  0711 other:users .\n"
                                "dir  0700 other:users b\n"
                                "dir  0755 site:kvoserv c\n");
}

TEST_F(MakeDirectoryPath, IsContentWithAFileOrADanglingLinkAtTheEnd)
{
    makeFile("/srv/file", "text", {0600, other, users});
    makeLink("/srv/link", "target");
    EXPECT_EQ(reportsOf([] {
        EXPECT_EQ(makePath("/srv/file", site, kvoserv, 0755), 0);
        EXPECT_EQ(makePath("/srv/link", site, kvoserv, 0755), 0);
    }),
        "");
    EXPECT_EQ(accessOf("/srv/file"), "0600 other:users");
    EXPECT_FALSE(exists("/srv/target"));
}

TEST_F(MakeDirectoryPath, GoesThroughALinkToADirectory)
{
    makeDir("/srv/target");
    makeLink("/srv/link", "target");
    EXPECT_EQ(makePath("/srv/link/a", site, kvoserv, 0755), 0);
    EXPECT_EQ(accessOf("/srv/target/a"), "0755 site:kvoserv");
}

TEST_F(MakeDirectoryPath, AcceptsDoubledAndTrailingSlashes)
{
    EXPECT_EQ(makePath("//srv//a///b//", site, kvoserv, 0755), 0);
    EXPECT_EQ(treeOf("/srv/a"), "dir  0755 site:kvoserv .\ndir  0755 site:kvoserv b\n");
}

TEST_F(MakeDirectoryPath, LeavesTheRootDirectoryAlone)
{
    // In a root of its own, so that a mistake would not reach the machine's.
    const Outcome end = inChild([] {
        ASSERT_EQ(chroot("/srv"), 0);
        // No tidying up: a leak checker needs the /proc that is not here.
        _exit(makePath("/", site, kvoserv, 0700) == 0 ? 7 : 8);
    });
    EXPECT_EQ(end.status, 7);
    EXPECT_EQ(accessOf("/srv"), "0755 root:root");
}

TEST_F(MakeDirectoryPath, TakesARelativePathFromTheCurrentDirectory)
{
    ASSERT_EQ(chdir("/srv"), 0);
    EXPECT_EQ(makePath("a/b", site, kvoserv, 0755), 0);
    EXPECT_EQ(makePath("c", site, kvoserv, 0755), 0);
    EXPECT_EQ(accessOf("/srv/a/b"), "0755 site:kvoserv");
    EXPECT_EQ(accessOf("/srv/c"), "0755 site:kvoserv");
}

TEST_F(MakeDirectoryPath, ReportsAnOwnerThatCannotBeSetAndGoesOn)
{
    int result = -1;
    EXPECT_EQ(reportsOf([&] {
        faults::failAlways("fchownat", EPERM);
        result = makePath("/srv/a/b", site, kvoserv, 0755);
    }),
        "twigctl: Cannot chown /srv/a: Operation not permitted"
        "\nSystem error 1: Operation not permitted\n"
        "twigctl: Cannot chown /srv/a/b: Operation not permitted"
        "\nSystem error 1: Operation not permitted\n");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(treeOf("/srv/a"), "dir  0755 root:root .\ndir  0755 root:root b\n");
}

TEST_F(MakeDirectoryPath, EndsTheProcessBelowAFile)
{
    expectEnd(endOfMakePath("/etc/passwd/x"),
        "twigctl: Cannot create directory /etc/passwd/x: Not a directory"
        "\nSystem error 20: Not a directory\n");
}

TEST_F(MakeDirectoryPath, NamesTheLevelThatCouldNotBeMadeAndKeepsThoseBefore)
{
    makeLink("/srv/link", "a/missing");
    expectEnd(endOfMakePath("/srv/a/../link/b/c"),
        "twigctl: Cannot create directory /srv/a/../link/b: No such file or directory"
        "\nSystem error 2: No such file or directory\n");
    EXPECT_EQ(treeOf("/srv/a"), "dir  0755 root:root .\n");
}

TEST_F(MakeDirectoryPath, EndsTheProcessForAnEmptyPath)
{
    expectEnd(endOfMakePath(""), "twigctl: Cannot create directory : No such file or directory"
                                 "\nSystem error 2: No such file or directory\n");
}

TEST_F(MakeDirectoryPath, MakesTheLongestPathThatTheKernelAcceptsWithLittleStack)
{
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 64UL * 1024), 0);
    pthread_t thread = 0;
    std::string path = deepPath(PATH_MAX - 1);
    const auto body = [](void* text) -> void* {
        makeDirectoryPath(static_cast<char*>(text), site, kvoserv, 0755);
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, body, path.data()), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    ASSERT_EQ(pthread_attr_destroy(&attributes), 0);
    EXPECT_EQ(path, deepPath(PATH_MAX - 1));
    EXPECT_EQ(accessOf(path), "0755 site:kvoserv");
}

TEST_F(MakeDirectoryPath, EndsTheProcessAtTheFirstLevelThatIsTooLong)
{
    expectEnd(endOfMakePath(deepPath(6000)),
        "twigctl: Cannot create directory " + deepPath(PATH_MAX) + ": File name too long\n");
    EXPECT_TRUE(exists(deepPath(PATH_MAX - 2)));
}

TEST_F(MakeDirectoryPathCopy, MakesTheSameOfAConstantPath)
{
    int result = -1;
    EXPECT_EQ(
        reportsOf([&] { result = makeDirectoryPathCopy("/srv/a/b", site, kvoserv, 01750); }), "");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(treeOf("/srv/a"), "dir  0750 site:kvoserv .\ndir  1750 site:kvoserv b\n");
}

TEST_F(MakeDirectoryPathCopy, TakesNothingInThePathForAFormat)
{
    EXPECT_EQ(makeDirectoryPathCopy("/srv/%s%n", site, kvoserv, 0755), 0);
    EXPECT_TRUE(exists("/srv/%s%n"));
}

TEST_F(MakeDirectoryPathCopy, EndsTheProcessWhenADirectoryCannotBeMade)
{
    expectEnd(inChild([] {
        PROGNAME = "twigctl";
        makeDirectoryPathCopy("/etc/passwd/x", 0, 0, 0755);
    }),
        "twigctl: Cannot create directory /etc/passwd/x: Not a directory"
        "\nSystem error 20: Not a directory\n");
}

TEST_F(MakeDirectoryPathCopy, EndsTheProcessWithoutMemory)
{
    expectEnd(inChild([] {
        PROGNAME = "twigctl";
        faults::fail("vasprintf", ENOMEM);
        makeDirectoryPathCopy("/srv/a", 0, 0, 0755);
    }),
        "twigctl: Cannot allocate memory: Cannot allocate memory"
        "\nSystem error 12: Cannot allocate memory\n");
    EXPECT_FALSE(exists("/srv/a"));
}

TEST_F(RenameDirectory, MovesTheDirectoryWithItsContent)
{
    makeDir("/srv/a", {0700, site, users});
    makeFile("/srv/a/file", "text");
    int result = -1;
    EXPECT_EQ(reportsOf([&] { result = renameDirectory("/srv/a", "/srv/b"); }), "");
    EXPECT_EQ(result, 0);
    EXPECT_FALSE(exists("/srv/a"));
    EXPECT_EQ(treeOf("/srv/b"), "dir  0700 site:users .\nfile 0644 root:root file \"text\"\n");
}

TEST_F(RenameDirectory, HasNothingToDoWhenTheOldDirectoryCannotBeSeen)
{
    makeLink("/srv/dangling", "none");
    makeLink("/srv/loop", "loop");
    makeFile("/srv/file", "");
    const std::string tooLong = "/srv/" + std::string(300, 'x');
    for (const char* path :
        {"/srv/none", "", "/srv/dangling", "/srv/loop", "/srv/file/x", tooLong.c_str()}) {
        for (const char* target : {"/srv/b", "/srv/www"}) {
            int result = -1;
            EXPECT_EQ(reportsOf([&] { result = renameDirectory(path, target); }), "");
            EXPECT_EQ(result, 0) << path;
        }
    }
    EXPECT_TRUE(exists("/srv/dangling"));
    EXPECT_FALSE(exists("/srv/b"));
}

TEST_F(RenameDirectory, RefusesATargetThatExistsEvenIfItIsEmptyOrNoDirectory)
{
    makeDir("/srv/a");
    makeDir("/srv/empty");
    makeFile("/srv/file", "");
    makeLink("/srv/link", "empty");
    for (const std::string target : {"/srv/empty", "/srv/file", "/srv/link", "/srv/a"}) {
        int result = 0;
        EXPECT_EQ(reportsOf([&] {
            errno = 0;
            result = renameDirectory("/srv/a", target.c_str());
        }),
            "twigctl: Directory rename error: target directory " + target + " already exists.\n");
        EXPECT_EQ(result, -1);
    }
    EXPECT_TRUE(exists("/srv/a"));
}

TEST_F(RenameDirectory, ShowsAnOlderErrorBehindTheRefusal)
{
    makeDir("/srv/a");
    EXPECT_EQ(reportsOf([] {
        errno = ENOENT;
        renameDirectory("/srv/a", "/srv/www");
    }),
        "twigctl: Directory rename error: target directory /srv/www already exists.\n"
        "\nSystem error 2: No such file or directory\n");
}

TEST_F(RenameDirectory, ReportsADanglingLinkInTheWay)
{
    makeDir("/srv/a");
    makeLink("/srv/b", "none");
    int result = 0;
    EXPECT_EQ(reportsOf([&] { result = renameDirectory("/srv/a", "/srv/b"); }),
        "twigctl: Remaming /srv/a to /srv/b failed: Not a directory\n"
        "\nSystem error 20: Not a directory\n");
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(exists("/srv/b"));
}

TEST_F(RenameDirectory, ReportsATargetInsideTheDirectoryOrWithoutAParent)
{
    makeDir("/srv/a");
    EXPECT_EQ(reportsOf([] { EXPECT_EQ(renameDirectory("/srv/a", "/srv/a/b"), -1); }),
        "twigctl: Remaming /srv/a to /srv/a/b failed: Invalid argument\n"
        "\nSystem error 22: Invalid argument\n");
    EXPECT_EQ(reportsOf([] { EXPECT_EQ(renameDirectory("/srv/a", "/srv/none/b"), -1); }),
        "twigctl: Remaming /srv/a to /srv/none/b failed: No such file or directory\n"
        "\nSystem error 2: No such file or directory\n");
    EXPECT_EQ(treeOf("/srv/a"), "dir  0755 root:root .\n");
}
