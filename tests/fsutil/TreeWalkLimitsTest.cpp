#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fsutil/ParkedLevels.h"
#include "fsutil/TreeWalk.h"
#include "fsutil/TreeWalkers.h"
#include "tests/lib/Faults.h"
#include "tests/lib/LargeTree.h"
#include "tests/lib/World.h"

namespace
{

/// Walks with so few descriptors that they close the upper levels of a deep tree.
class TreeWalkLimits : public World
{
protected:
    static constexpr rlim_t fewDescriptors = 64;
    static constexpr size_t mostOpen = fewDescriptors / 2;

    TreeWalkLimits()
    {
        (void)getrlimit(RLIMIT_NOFILE, &usual_);
        setDescriptors(fewDescriptors);
    }

    ~TreeWalkLimits() override { (void)setrlimit(RLIMIT_NOFILE, &usual_); }

    void setDescriptors(rlim_t number) const
    {
        const rlimit changed{number, usual_.rlim_max};
        (void)setrlimit(RLIMIT_NOFILE, &changed);
    }

    /// Runs the body with no more descriptors than these and little stack; recursion by level would
    /// need more.
    static Outcome inNarrowChild(const std::function<void()>& body)
    {
        return inChild([&body] {
            rlimit descriptors = {};
            (void)getrlimit(RLIMIT_NOFILE, &descriptors);
            limit(RLIMIT_NOFILE, descriptors.rlim_cur);
            limit(RLIMIT_STACK, 262144);
            body();
        });
    }

    /// How many calls the body makes of those that walks are made of.
    static int callsOf(const std::function<void()>& body)
    {
        faults::clear();
        body();
        int sum = 0;
        for (const char* call : {"open", "openat", "openat2", "fchdir", "getdents64", "stat",
                 "lstat", "fstat", "fstatat", "statx", "lseek", "fcntl", "close", "chown", "fchown",
                 "fchownat", "chmod", "fchmod", "fchmodat", "fchmodat2", "unlinkat", "rmdir"}) {
            sum += faults::calls(call);
        }
        return sum;
    }

    static void expectQuiet(const Outcome& end)
    {
        EXPECT_EQ(end.err, "");
        EXPECT_EQ(end.out, "");
        EXPECT_EQ(end.status, 0);
    }

    faults::Guard guard_;

private:
    rlimit usual_ = {};

    static void limit(__rlimit_resource_t resource, rlim_t value)
    {
        const rlimit narrow{value, value};
        ASSERT_EQ(setrlimit(resource, &narrow), 0);
    }
};

/// Walks that come back to an upper level and have to find their place there: because the level was
/// closed, or, with more descriptors, because only its buffer was given up.
class TreeWalkPlaces : public TreeWalkLimits, public ::testing::WithParamInterface<rlim_t>
{
protected:
    TreeWalkPlaces() { setDescriptors(GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(Each, TreeWalkPlaces, ::testing::Values(64, 1024),
    [](const auto& descriptors) { return descriptors.param == 64 ? "Closed" : "Open"; });

/// What the process may open, and how much of it is taken already.
struct Room {
    rlim_t descriptors;
    size_t taken;
};

/// Walks that have less than half of the descriptors for themselves.
class TreeWalkRoom : public TreeWalkLimits, public ::testing::WithParamInterface<Room>
{
protected:
    /// Every walk is one of a child, so that the others and the test have all.
    static Outcome inChild(const std::function<void()>& walk)
    {
        return ::inChild([&walk] {
            (void)close_range(3, ~0U, 0); // what other tests have left open
            const rlimit narrow{GetParam().descriptors, GetParam().descriptors};
            ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &narrow), 0);
            while (openDescriptors() < GetParam().taken) {
                ASSERT_GE(open("/", O_PATH | O_CLOEXEC), 0);
            }
            walk();
        });
    }
};

INSTANTIATE_TEST_SUITE_P(Each, TreeWalkRoom,
    ::testing::Values(Room{64, 40}, Room{20, 6}, Room{20, 12}), [](const auto& room) {
        return std::to_string(room.param.taken) + "Of" + std::to_string(room.param.descriptors);
    });

/// The most memory that a process has held, in KiB.
long peakMemory()
{
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == "VmHWM:") {
            long kib = 0;
            status >> kib;
            return kib;
        }
    }
    return -1;
}

/// What the body adds to the peak of a child, in KiB.
long peakOf(const std::function<void()>& body)
{
    const Outcome end = inChild([&body] {
        body();
        std::printf("%ld", peakMemory());
    });
    EXPECT_EQ(end.status, 0) << end.err;
    return std::stol(end.out);
}

void makeWideDirectory(const std::string& path, int files)
{
    makeDir(path);
    const int directory = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int i = 0; i < files; ++i) {
        const std::string name = "a file with a name of usual length " + std::to_string(i);
        close(openat(directory, name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    }
    close(directory);
}

} // namespace

TEST_F(TreeWalkLimits, DoNotIncludeTheDepthOfATree)
{
    constexpr int levels = 100000;
    makeDeepTree("/srv/deep", levels, 0, 0);
    expectQuiet(inNarrowChild([] { changeOwnerOfTree("/srv/deep", site, kvocln, 1); }));
    expectQuiet(inNarrowChild([] { changeModeOfTree("/srv/deep", 0640, 0710, 1); }));
    EXPECT_EQ(levelsWith("/srv/deep", site, 0640, 0710), levels + 1);
    expectQuiet(inNarrowChild([] { removeTree("/srv/deep", 1); }));
    EXPECT_FALSE(exists("/srv/deep"));
}

TEST_P(TreeWalkPlaces, LetADeepWalkReachEverythingBesideItsWay)
{
    constexpr int levels = 500;
    makeDeepTree("/srv/deep", levels, 3, 3);
    expectQuiet(inNarrowChild([] {
        changeOwnerOfTree("/srv/deep", site, kvocln, 1);
        changeModeOfTree("/srv/deep", 0640, 0710, 1);
    }));
    EXPECT_EQ(levelsWith("/srv/deep", site, 0640, 0710), levels + 1);
    expectQuiet(inNarrowChild([] { removeTree("/srv/deep", 0); }));
    EXPECT_EQ(treeOf("/srv/deep"), "dir  0710 site:kvocln .\n");
}

TEST_P(TreeWalkPlaces, LetADeepWalkReadOnInDirectoriesOfManyEntries)
{
    // More entries a level than one read of a directory returns.
    constexpr int levels = 40;
    makeDeepTree("/srv/deep", levels, 2000, 2);
    expectQuiet(inNarrowChild([] {
        changeOwnerOfTree("/srv/deep", site, kvocln, 1);
        changeModeOfTree("/srv/deep", 0640, 0710, 1);
    }));
    EXPECT_EQ(levelsWith("/srv/deep", site, 0640, 0710), levels + 1);
    expectQuiet(inNarrowChild([] { removeTree("/srv/deep", 1); }));
    EXPECT_FALSE(exists("/srv/deep"));
}

TEST_P(TreeWalkPlaces, DoNotIncludeTheDepthWhereTypesAreUnknownEither)
{
    makeDeepTree("/srv/deep", 200, 1, 1);
    expectQuiet(inNarrowChild([] {
        faults::hideEntryTypes(true);
        changeOwnerOfTree("/srv/deep", site, kvocln, 1);
        changeModeOfTree("/srv/deep", 0640, 0710, 1);
    }));
    EXPECT_EQ(levelsWith("/srv/deep", site, 0640, 0710), 201);
}

TEST_F(TreeWalkLimits, StopADeepWalkWhoseWayBackWasMovedOutOfTheTree)
{
    makeDeepTree("/srv/deep", 60, 0, 0);
    makeDeepTree("/srv/outside", 3, 1, 1);
    const Outcome end = inChild([] {
        // The first change happens at the bottom; by then the upper levels are closed.
        faults::runBefore("fchown", 1, [] {
            std::string middle = "/srv/deep";
            for (int i = 0; i < 10; ++i) {
                middle += "/d";
            }
            ASSERT_EQ(rename(middle.c_str(), "/srv/outside/d/d/moved"), 0);
        });
        changeOwnerOfTree("/srv/deep", site, kvocln, 1);
    });
    EXPECT_EQ(end.err, "Unable to restore & close current dir: Stale file handle\n"
                       "\nSystem error 116: Stale file handle\n");
    EXPECT_EQ(end.out, end.err);
    EXPECT_EQ(end.status, 1);
    EXPECT_EQ(accessOf("/srv/outside/d/d"), "0755 root:root");
    EXPECT_EQ(accessOf("/srv/outside/d/d/d"), "0755 root:root");
    EXPECT_EQ(accessOf("/srv/outside/d/d/file0"), "0644 root:root");
}

TEST_F(TreeWalkLimits, StopADeepWalkWhoseWayBackCannotBeOpened)
{
    makeDeepTree("/srv/deep", 60, 0, 0);
    const Outcome end = inChild([] {
        faults::fail("openat", EMFILE, 2); // behind the one of the top
        removeTree("/srv/deep", 1);
    });
    EXPECT_EQ(end.err, "Unable to restore & close current dir: Too many open files\n"
                       "\nSystem error 24: Too many open files\n");
    EXPECT_EQ(end.status, 1);
}

TEST_P(TreeWalkPlaces, StopADeepWalkThatCannotReadOnWhereItWas)
{
    makeDeepTree("/srv/deep", 60, 0, 1);
    const Outcome end = inChild([] {
        faults::failAlways("lseek", EINVAL);
        changeOwnerOfTree("/srv/deep", site, kvocln, 1);
    });
    EXPECT_EQ(end.err, "Unable to restore & close current dir: Invalid argument\n"
                       "\nSystem error 22: Invalid argument\n");
    EXPECT_EQ(end.status, 1);
}

TEST_F(TreeWalkLimits, ReadADirectoryThatIsBeingEmptiedFromItsBeginningAgain)
{
    // A place kept from before would be of no use where removals move the entries behind it.
    makeDeepTree("/srv/deep", 60, 3, 3);
    expectQuiet(inChild([] {
        faults::failAlways("lseek", EINVAL);
        removeTree("/srv/deep", 1);
    }));
    EXPECT_FALSE(exists("/srv/deep"));
}

TEST_P(TreeWalkPlaces, FindTheirPlaceAmongEntriesThatShareOne)
{
    makeDir("/srv/t");
    for (const char* name : {"/srv/t/a", "/srv/t/b", "/srv/t/c", "/srv/t/d"}) {
        makeDeepTree(name, 40, 2, 2);
    }
    expectQuiet(inChild([] {
        alarm(20); // a walk that loses its place goes round for ever
        faults::shareEntryPositions(true);
        changeOwnerOfTree("/srv/t", site, kvocln, 1);
        changeModeOfTree("/srv/t", 0640, 0710, 1);
    }));
    for (const char* name : {"/srv/t/a", "/srv/t/b", "/srv/t/c", "/srv/t/d"}) {
        EXPECT_EQ(levelsWith(name, site, 0640, 0710), 41) << name;
    }
}

TEST_P(TreeWalkPlaces, FindTheirPlaceWhenTheEntryTheyLeftIsGone)
{
    makeDir("/srv/t");
    makeDeepTree("/srv/t/a", 40, 0, 0);
    makeDeepTree("/srv/t/b", 40, 0, 0);
    expectQuiet(inChild([] {
        alarm(20);
        faults::shareEntryPositions(true);
        // At the bottom of either, both get other names.
        faults::runBefore("fchown", 1, [] {
            ASSERT_EQ(rename("/srv/t/a", "/srv/t/c"), 0);
            ASSERT_EQ(rename("/srv/t/b", "/srv/t/d"), 0);
        });
        changeOwnerOfTree("/srv/t", site, kvocln, 1);
    }));
    EXPECT_EQ(levelsWith("/srv/t/c", site, 0644, 0755), 41);
    EXPECT_EQ(levelsWith("/srv/t/d", site, 0644, 0755), 41);
}

TEST_P(TreeWalkPlaces, GoBackIntoADirectoryThatShortReadsMadeLookEmpty)
{
    // With one twig and no file the first read ends right behind the next level.
    for (int number = 0; number < 16; ++number) {
        makeDeepTree("/srv/deep", 60, number % 4, number / 4 + 1);
        expectQuiet(inChild([] {
            faults::shortenReads(true);
            removeTree("/srv/deep", 1);
        }));
        EXPECT_FALSE(exists("/srv/deep"));
    }
}

TEST_P(TreeWalkPlaces, ReadOnAfterShortReads)
{
    makeDeepTree("/srv/deep", 60, 20, 5);
    expectQuiet(inChild([] {
        faults::shortenReads(true);
        changeOwnerOfTree("/srv/deep", site, kvocln, 1);
        changeModeOfTree("/srv/deep", 0640, 0710, 1);
    }));
    EXPECT_EQ(levelsWith("/srv/deep", site, 0640, 0710), 61);
}

TEST_F(TreeWalkLimits, GiveUpOnADirectoryThatStaysFull)
{
    makeDirs("/srv/t/a");
    makeFile("/srv/t/a/file", "x");
    const Outcome end = inChild([] {
        alarm(20);
        faults::failAlways("unlinkat", ENOTEMPTY);
        removeTree("/srv/t", 1);
    });
    EXPECT_EQ(end.err, "Unable to unlink directory entry file: Directory not empty\n"
                       "\nSystem error 39: Directory not empty\n");
    ASSERT_EQ(unlink("/srv/t/a/file"), 0);
    const Outcome again = inChild([] {
        alarm(20);
        faults::failAlways("unlinkat", ENOTEMPTY);
        removeTree("/srv/t", 1);
    });
    EXPECT_EQ(again.err, "Unable to remove dir a: Directory not empty\n"
                         "\nSystem error 39: Directory not empty\n");
    EXPECT_EQ(again.status, 1);
}

TEST_F(TreeWalkLimits, AreEightCallsForADirectoryInADeepChainThatIsRemoved)
{
    // Down: open it, read its entries, look at it, close it. Up again: open it, see that it is the
    // same, close it, remove it.
    constexpr int levels = 10000;
    makeDeepTree("/srv/deep", levels, 0, 0);
    EXPECT_LE(callsOf([] { removeTree("/srv/deep", 1); }), 8 * levels);
    EXPECT_FALSE(exists("/srv/deep"));
}

TEST_F(TreeWalkLimits, AreFourCallsWhereTheDirectoriesMayStayOpen)
{
    // Open it, read its entries, close it, remove it; and a few more for the top.
    constexpr int levels = 400;
    setDescriptors(1024);
    makeDeepTree("/srv/deep", levels, 0, 0);
    EXPECT_LE(callsOf([] { removeTree("/srv/deep", 1); }), 4 * levels + 16);
    EXPECT_FALSE(exists("/srv/deep"));
}

TEST_F(TreeWalkLimits, AreNineCallsForADirectoryInADeepChainThatIsChanged)
{
    // As for a removal, but that it is read to its certain end, and changed instead of removed.
    constexpr int levels = 10000;
    makeDeepTree("/srv/deep", levels, 0, 0);
    EXPECT_LE(callsOf([] { changeOwnerOfTree("/srv/deep", site, kvocln, 1); }), 9 * levels);
    EXPECT_LE(callsOf([] { changeModeOfTree("/srv/deep", 0640, 0710, 1); }), 9 * levels);
    EXPECT_EQ(levelsWith("/srv/deep", site, 0640, 0710), levels + 1);
}

TEST_F(TreeWalkLimits, BringTheCurrentDirectoryOfAnUnprivilegedRemovalUpWithIt)
{
    // It stands in a directory that is removed: see TreeWalk.cpp.
    constexpr int levels = 400;
    makeDeepTree("/srv/deep", levels, 0, 0);
    changeOwnerOfTree("/srv/deep", site, users, 1);
    expectQuiet(inChild([] {
        ASSERT_EQ(setgid(users) | setuid(site), 0);
        removeTree("/srv/deep", 0);
        EXPECT_GE(faults::calls("fchdir"), levels + levels / 16 - 3);
        EXPECT_LE(faults::calls("fchdir"), levels + levels / 16 + 3);
    }));
    EXPECT_EQ(treeOf("/srv/deep"), "dir  0755 site:users .\n");
}

TEST_F(TreeWalkLimits, DoNotGoBackIntoADirectoryThatTakesSeveralReads)
{
    makeDir("/srv/t");
    makeWideDirectory("/srv/t/wide", 5000);
    faults::clear();
    removeTree("/srv/t", 1);
    EXPECT_EQ(faults::calls("openat"), 1) << "the top";
    EXPECT_EQ(faults::calls("openat2"), 2) << "the way to the top, and the wide directory";
}

TEST_F(TreeWalkLimits, StopADeepWalkThatCannotCloseOrKnowAgainALevel)
{
    const struct {
        const char* call;
        int error;
        int nth;
        const char* words;
    } table[] = {
        {"fstat", EIO, 1, "Unable to get file descriptor of current dir"},
        {"close", EIO, 1, "Unable to close dir /srv/deep"},
        {"fstat", EIO, 30, "Unable to restore & close current dir"},
    };
    for (const auto& row : table) {
        removeTree("/srv/deep", 1);
        makeDeepTree("/srv/deep", 60, 0, 0);
        const Outcome end = inChild([&row] {
            faults::fail(row.call, row.error, row.nth);
            removeTree("/srv/deep", 1);
        });
        EXPECT_EQ(end.err.rfind(std::string(row.words) + ": ", 0), 0U) << row.call << row.nth;
        EXPECT_EQ(end.status, 1);
    }
}

TEST_F(TreeWalkLimits, StopAnUnprivilegedRemovalThatCannotBringItsDirectoryUp)
{
    makeDeepTree("/srv/deep", 60, 0, 0);
    changeOwnerOfTree("/srv/deep", site, users, 1);
    const Outcome end = inChild([] {
        ASSERT_EQ(setgid(users) | setuid(site), 0);
        faults::fail("fchdir", EACCES, 62); // behind those that led down
        removeTree("/srv/deep", 0);
    });
    EXPECT_EQ(end.err, "Unable to restore & close current dir: Permission denied\n"
                       "\nSystem error 13: Permission denied\n");
    EXPECT_EQ(end.status, 1);
    EXPECT_TRUE(exists("/srv/deep/d"));
}

TEST_F(TreeWalkLimits, HoldNoMoreDirectoriesOpenThanTheyPromise)
{
    makeDeepTree("/srv/deep", 300, 0, 0);
    static size_t most;
    faults::runBefore("fchown", 1, [] { most = openDescriptors(); });
    const size_t before = openDescriptors();
    changeOwnerOfTree("/srv/deep", site, kvocln, 0);
    EXPECT_LE(most, before + mostOpen + 2);
    EXPECT_GE(most, before + mostOpen);
}

TEST_P(TreeWalkRoom, SufficesForAWalkHoweverMuchTheProcessHoldsAlready)
{
    makeDeepTree("/srv/deep", 300, 2, 2);
    expectQuiet(inChild([] { changeOwnerOfTree("/srv/deep", site, kvocln, 1); }));
    expectQuiet(inChild([] { changeModeOfTree("/srv/deep", 0640, 0710, 1); }));
    EXPECT_EQ(levelsWith("/srv/deep", site, 0640, 0710), 301);
    expectQuiet(inChild([] { removeTree("/srv/deep", 1); }));
    EXPECT_FALSE(exists("/srv/deep"));
}

TEST_P(TreeWalkRoom, SufficesForHoldingTheFilesThatRootGets)
{
    makeDeepTree("/srv/deep", 300, 2, 2);
    changeOwnerOfTree("/srv/deep", site, users, 1);
    expectQuiet(inChild([] { changeOwnerOfTree("/srv/deep", 0, 0, 1); }));
    EXPECT_EQ(levelsWith("/srv/deep", 0, 0644, 0755), 301);
}

TEST_F(TreeWalkLimits, HoldNoBufferForEveryLevelThatIsOpen)
{
    // 400 buffers would be 12800 KiB. AddressSanitizer keeps what was given up for a while.
#ifdef __SANITIZE_ADDRESS__
    constexpr long most = 65536;
#else
    constexpr long most = 2048;
#endif
    setDescriptors(1024);
    makeDeepTree("/srv/flat", 40, 1, 1);
    makeDeepTree("/srv/deep", 400, 1, 1);
    const auto changing = [](const char* path) {
        return [path] { changeOwnerOfTree(path, site, kvocln, 1); };
    };
    EXPECT_LT(peakOf(changing("/srv/deep")) - peakOf(changing("/srv/flat")), most) << "KiB";
}

TEST_F(TreeWalkLimits, HoldNoMemoryThatGrowsWithADirectory)
{
    makeWideDirectory("/srv/narrow", 1000);
    makeWideDirectory("/srv/wide", 100000);
    const auto everything = [](const char* path) {
        changeOwnerOfTree(path, site, kvocln, 1);
        changeModeOfTree(path, 0640, 0710, 1);
        removeTree(path, 1);
    };
    const long narrow = peakOf([&] { everything("/srv/narrow"); });
    const long wide = peakOf([&] { everything("/srv/wide"); });
    EXPECT_LT(wide - narrow, 512) << "KiB for 100 times as many entries";
    EXPECT_FALSE(exists("/srv/wide"));
}

TEST_F(TreeWalkLimits, CoverALargeTreeWithNamesAndTypesOfEveryKind)
{
    makeLargeTree("/srv/large");
    const TreeCount made = countTree("/srv/large", "0644 root:root", "0755 root:root");
    EXPECT_EQ(made.files, 20000U);
    EXPECT_EQ(made.directories, 500U);
    EXPECT_EQ(made.others, 450U);

    const Outcome quiet = outputOf([] {
        changeOwnerOfTree("/srv/large", site, kvocln, 0);
        changeModeOfTree("/srv/large", 0640, 0710, 0);
    });
    EXPECT_EQ(quiet.out + quiet.err, "");
    const TreeCount changed = countTree("/srv/large", "0640 site:kvocln", "0710 site:kvocln");
    EXPECT_EQ(changed.files, made.files);
    EXPECT_EQ(changed.directories, made.directories);
    EXPECT_EQ(changed.others, made.others);
    EXPECT_EQ(accessOf("/etc/passwd"), "0644 root:root");
    EXPECT_EQ(accessOf("/srv/large"), "0755 root:root");

    removeTree("/srv/large", 0);
    EXPECT_EQ(treeOf("/srv/large"), "dir  0755 root:root .\n");
    EXPECT_TRUE(exists("/etc/passwd"));
}

TEST(ParkedLevels, ReturnWhatWasPushedLastFirst)
{
    ParkedLevels levels;
    EXPECT_TRUE(levels.empty());
    levels.push({1, 2, 3, false, false}, "top");
    levels.push({4, 5, 6, false, false}, "");
    levels.push({7, 8, 9, true, true}, "deepest");
    EXPECT_EQ(levels.size(), 3U);
    std::string name;
    const ParkedLevels::Level deepest = levels.pop(name);
    EXPECT_EQ(name, "deepest");
    EXPECT_EQ(deepest.device, 7U);
    EXPECT_EQ(deepest.inode, 8U);
    EXPECT_EQ(deepest.position, 9);
    EXPECT_TRUE(deepest.ended && deepest.endIsLikely);
    (void)levels.pop(name);
    EXPECT_EQ(name, "");
    EXPECT_EQ(levels.pop(name).inode, 2U);
    EXPECT_EQ(name, "top");
    EXPECT_TRUE(levels.empty());
}
