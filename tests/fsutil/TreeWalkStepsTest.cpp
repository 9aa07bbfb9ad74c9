#include <functional>
#include <sys/stat.h>
#include <unistd.h>

#include "fsutil/TreeWalkers.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

/// The steps that all walks share, tried on each of them.
struct Walk {
    const char* name;
    void (*on)(const char* path);
    const char* file;      ///< access of a file that is done, "" if it is gone
    const char* directory; ///< the same for a directory
    const char* opening;   ///< the call that opens subdirectories, used once before the first
};

void remove(const char* path)
{
    removeTree(path, 0);
}

void own(const char* path)
{
    changeOwnerOfTree(path, 1001, 2002, 0);
}

void mode(const char* path)
{
    changeModeOfTree(path, 0640, 0750, 0);
}

class TreeWalkSteps : public World, public ::testing::WithParamInterface<Walk>
{
protected:
    TreeWalkSteps()
    {
        makeDir("/srv/t");
        makeDir("/srv/t/a");
        makeFile("/srv/t/a/file", "x");
    }

    static void expectFatal(const std::function<void()>& prepare, const std::string& message,
        int error, const char* path = "/srv/t")
    {
        const Outcome end = inChild([&] {
            prepare();
            GetParam().on(path);
        });
        const std::string text = strerror(error);
        const std::string whole = message + ": " + text + "\n\nSystem error " +
                                  std::to_string(error) + ": " + text + '\n';
        EXPECT_EQ(end.err, whole);
        EXPECT_EQ(end.out, whole);
        EXPECT_EQ(end.status, 1);
    }

    /// Becomes the user to whom the tree belongs from then on, in a child.
    static void becomeItsOwner()
    {
        ASSERT_EQ(chown("/srv/t", site, users) | chown("/srv/t/a", site, users), 0);
        ASSERT_EQ(setgid(users) | setuid(site), 0);
    }

    static std::string accessIfThere(const std::string& path)
    {
        return exists(path) ? accessOf(path) : "";
    }

    static void expectDone()
    {
        EXPECT_EQ(accessIfThere("/srv/t/a/file"), GetParam().file);
        EXPECT_EQ(accessIfThere("/srv/t/a"), GetParam().directory);
    }

    faults::Guard guard_;
};

INSTANTIATE_TEST_SUITE_P(Each, TreeWalkSteps,
    ::testing::Values(Walk{"removing", remove, "", "", "openat2"},
        Walk{"owner", own, "0644 site:kvocln", "0755 site:kvocln", "openat"},
        Walk{"mode", mode, "0640 root:root", "0750 root:root", "openat"}),
    [](const auto& walk) { return std::string(walk.param.name); });

} // namespace

TEST_P(TreeWalkSteps, FailToKeepTheCurrentDirectoryBeforeTheTreeIsOpened)
{
    expectFatal([] { faults::fail("open", EMFILE); },
        "Unable to get file descriptor of current dir", EMFILE);
    EXPECT_EQ(accessOf("/srv/t/a/file"), "0644 root:root");
}

TEST_P(TreeWalkSteps, FailToOpenTheTopByThePathAsGiven)
{
    expectFatal([] { faults::fail("openat", EIO); }, "Unable to open dir /srv/t", EIO);
}

TEST_P(TreeWalkSteps, FailToOpenASubdirectoryByItsBareName)
{
    expectFatal(
        [] { faults::fail(GetParam().opening, EMFILE, 2); }, "Unable to open dir a", EMFILE);
}

TEST_P(TreeWalkSteps, FailToChangeIntoATopThatTheUserMayReadButNotSearch)
{
    ASSERT_EQ(chmod("/srv/t", 0400), 0);
    expectFatal(becomeItsOwner, "Unable to change dir /srv/t", EACCES);
}

TEST_P(TreeWalkSteps, FailToChangeIntoASubdirectoryThatTheUserMayReadButNotSearch)
{
    ASSERT_EQ(chmod("/srv/t/a", 0400), 0);
    expectFatal(becomeItsOwner, "Unable to change dir a", EACCES);
    EXPECT_EQ(treeOf("/srv/t"), "dir  0755 site:users .\n"
                                "dir  0400 site:users a\n"
                                "file 0644 root:root a/file \"x\"\n");
}

TEST_P(TreeWalkSteps, FailToChangeIntoDirectoriesForAnyOtherReasonToo)
{
    const auto failAt = [](int nth) {
        return [nth] {
            becomeItsOwner();
            faults::fail("fchdir", EIO, nth);
        };
    };
    expectFatal(failAt(1), "Unable to change dir /srv/t", EIO);
    expectFatal(failAt(2), "Unable to change dir a", EIO);
}

TEST_P(TreeWalkSteps, ChangeIntoNoDirectoryForRootWhoMaySearchThemAll)
{
    ASSERT_EQ(chmod("/srv/t/a", 0) | chmod("/srv/t", 0), 0);
    GetParam().on("/srv/t");
    EXPECT_EQ(accessIfThere("/srv/t/a/file"), GetParam().file);
    EXPECT_EQ(faults::calls("fchdir"), 1) << "the way back at the end";
}

TEST_P(TreeWalkSteps, FailToRestoreTheCurrentDirectory)
{
    expectFatal([] { faults::fail("fchdir", EIO); }, "Unable to restore & close current dir", EIO);
}

TEST_P(TreeWalkSteps, FailToCloseASubdirectory)
{
    expectFatal([] { faults::fail("close", EIO, 1); }, "Unable to close dir a", EIO);
    // By then a directory has been changed, since that is done while it is open, and not removed.
    const std::string directory = GetParam().directory;
    EXPECT_EQ(accessOf("/srv/t/a"), directory.empty() ? "0755 root:root" : directory);
}

TEST_P(TreeWalkSteps, FailToCloseTheCurrentDirectoryThatWasKept)
{
    expectFatal(
        [] { faults::fail("close", EIO, 2); }, "Unable to restore & close current dir", EIO);
}

TEST_P(TreeWalkSteps, FailToCloseTheTop)
{
    expectFatal([] { faults::fail("close", EIO, 3); }, "Unable to close dir /srv/t", EIO);
}

TEST_P(TreeWalkSteps, NameTheFirstOfTwoFailuresToRestoreAndClose)
{
    expectFatal(
        [] {
            faults::fail("fchdir", ESTALE);
            faults::fail("close", EIO, 2);
        },
        "Unable to restore & close current dir", ESTALE);
}

TEST_P(TreeWalkSteps, LookAtAnEntryOfUnknownTypeAndFailWhenThatFails)
{
    makeDir("/srv/one");
    makeFile("/srv/one/file", "x");
    // Of the looks, the first is at the top; ".", ".." and "file" follow in some order.
    for (int nth = 2; nth <= 4; ++nth) {
        const Outcome end = inChild([nth] {
            faults::hideEntryTypes(true);
            faults::fail("fstatat", EIO, nth);
            GetParam().on("/srv/one");
        });
        EXPECT_EQ(end.err.rfind("Unable to check directory entry ", 0), 0U) << end.err;
        EXPECT_EQ(end.out, end.err);
        EXPECT_EQ(end.status, 1);
    }
}

TEST_P(TreeWalkSteps, LookAtADotBeforePassingItOverWhereTypesAreUnknown)
{
    makeDir("/srv/empty");
    expectFatal(
        [] {
            faults::hideEntryTypes(true);
            faults::fail("fstatat", EIO, 2);
        },
        "Unable to check directory entry .", EIO, "/srv/empty");
}

TEST_P(TreeWalkSteps, PassOverAnEntryOfUnknownTypeThatHasVanished)
{
    makeDir("/srv/one");
    makeFile("/srv/one/file", "x");
    faults::hideEntryTypes(true);
    faults::runBefore("fstatat", 2, [] { (void)unlink("/srv/one/file"); });
    const Outcome end = outputOf([] { GetParam().on("/srv/one"); });
    EXPECT_EQ(end.out + end.err, "");
}

TEST_P(TreeWalkSteps, GiveTheSameResultWhereTypesAreUnknown)
{
    makeFifo("/srv/t/a/fifo");
    makeLink("/srv/t/link", "a");
    makeDir("/srv/t/a/b");
    makeFile("/srv/t/a/b/file", "x");
    ASSERT_EQ(runProgram("/bin/cp", {"cp", "-a", "/srv/t", "/srv/twin"}).status, 0);
    GetParam().on("/srv/t");
    faults::hideEntryTypes(true);
    GetParam().on("/srv/twin");
    EXPECT_EQ(treeOf("/srv/twin"), treeOf("/srv/t"));
    expectDone();
}

TEST_P(TreeWalkSteps, FailOnADirectoryOfUnknownTypeThatVanishesAfterTheLookUnlessItWasToVanish)
{
    const bool removes = *GetParam().directory == '\0';
    const Outcome end = inChild([] {
        faults::hideEntryTypes(true);
        faults::fail(GetParam().opening, ENOENT, 2);
        GetParam().on("/srv/t");
    });
    EXPECT_EQ(end.err, removes ? ""
                               : "Unable to open dir a: No such file or directory\n"
                                 "\nSystem error 2: No such file or directory\n");
    EXPECT_EQ(end.out, end.err);
    EXPECT_EQ(end.status, removes ? 0 : 1);
    EXPECT_EQ(accessOf("/srv/t/a/file"), "0644 root:root");
}

TEST_P(TreeWalkSteps, PassOverASubdirectoryThatVanishesBeforeItsTurn)
{
    makeDir("/srv/one");
    makeDir("/srv/one/a");
    faults::runBefore(GetParam().opening, 2, [] { ASSERT_EQ(rmdir("/srv/one/a"), 0); });
    const Outcome end = outputOf([] { GetParam().on("/srv/one"); });
    EXPECT_EQ(end.out + end.err, "");
    EXPECT_EQ(faults::calls("unlinkat"), 0) << "nothing was left to remove";
}

TEST_P(TreeWalkSteps, SayFirstThatAnEntryCannotBeLookedAtWhenItCanNeitherBeOpened)
{
    expectFatal(
        [] {
            faults::fail(GetParam().opening, EIO, 2);
            faults::fail("fstatat", EIO, 2);
        },
        "Unable to check directory entry a", EIO);
}

TEST_P(TreeWalkSteps, CountAFailedReadAsTheEndOfTheDirectory)
{
    faults::fail("getdents64", EIO);
    const Outcome end = outputOf([] { GetParam().on("/srv/t"); });
    EXPECT_EQ(end.out + end.err, "");
    EXPECT_EQ(accessOf("/srv/t/a/file"), "0644 root:root");
}

TEST_P(TreeWalkSteps, TryToWalkATopThatCannotBeLookedAt)
{
    faults::fail("fstatat", EIO);
    const Outcome end = outputOf([] { GetParam().on("/srv/t"); });
    EXPECT_EQ(end.out + end.err, "");
    expectDone();
}

TEST_P(TreeWalkSteps, LeaveTheCurrentDirectoryAsItWas)
{
    ASSERT_EQ(chdir("/srv/www"), 0);
    GetParam().on("/srv/t");
    char directory[64];
    EXPECT_STREQ(getcwd(directory, sizeof directory), "/srv/www");
}

TEST_P(TreeWalkSteps, ComeBackToACurrentDirectoryWhosePathHasMovedAway)
{
    makeDirs("/srv/here/now");
    ASSERT_EQ(chdir("/srv/here/now"), 0);
    ASSERT_EQ(rename("/srv/here", "/srv/there"), 0);
    GetParam().on("/srv/t");
    makeFile("mark", "");
    EXPECT_TRUE(exists("/srv/there/now/mark"));
}

TEST_P(TreeWalkSteps, LeaveNoDescriptorOpen)
{
    const size_t before = openDescriptors();
    GetParam().on("/srv/t");
    EXPECT_EQ(openDescriptors(), before);
}

TEST_P(TreeWalkSteps, TakeNamesOfAnyBytes)
{
    for (const char* name : {" ", "-rf", "a\nb", "\xc3\xa4\xe2\x82\xac", "\xff\xfe", "*", "%s%n"}) {
        makeDir(std::string("/srv/t/a/") + name);
        makeFile(std::string("/srv/t/a/") + name + "/" + name, "x");
    }
    makeFile("/srv/t/a/" + std::string(255, 'n'), "x");
    const Outcome end = outputOf([] { GetParam().on("/srv/t"); });
    EXPECT_EQ(end.out + end.err, "");
    EXPECT_EQ(treeOf("/srv/t").find("0644 root:root"), std::string::npos);
}

TEST_P(TreeWalkSteps, PrintANameWithPercentSignsAsItIs)
{
    makeDir("/srv/percent");
    makeDir("/srv/percent/%s%n");
    expectFatal([] { faults::fail(GetParam().opening, EIO, 2); }, "Unable to open dir %s%n", EIO,
        "/srv/percent");
}

TEST_P(TreeWalkSteps, ActOnTheDirectoryThatThePathLedBackToWhateverBecomesOfTheWay)
{
    makeDir("/srv/elsewhere");
    makeFile("/srv/elsewhere/file", "x");
    const struct {
        const char* call;
        int nth;
    } moments[] = {
        {"openat", 4}, // the way has been gone, there and back; now its end is held
        {"openat", 5}, // and held once more to be looked at
        {"fstat", 1},  // looked at
        {"open", 2},   // the current directory; the root was opened before
        {"openat", 6}, // opened for the walk
    };
    for (const auto& moment : moments) {
        makeFile("/srv/t/file", "x");
        const Outcome end = inChild([&moment] {
            faults::runBefore(moment.call, moment.nth,
                [] { ASSERT_EQ(rename("/srv/t/a", "/srv/elsewhere/a"), 0); });
            GetParam().on("/srv/t/a/..");
        });
        EXPECT_EQ(end.out + end.err, "") << moment.call << moment.nth;
        EXPECT_EQ(accessIfThere("/srv/t/file"), GetParam().file) << moment.call << moment.nth;
        EXPECT_EQ(treeOf("/srv/elsewhere"), "dir  0755 root:root .\n"
                                            "dir  0755 root:root a\n"
                                            "file 0644 root:root a/file \"x\"\n"
                                            "file 0644 root:root file \"x\"\n")
            << moment.call << moment.nth;
        (void)unlink("/srv/t/file");
        ASSERT_EQ(rename("/srv/elsewhere/a", "/srv/t/a"), 0);
    }
}
