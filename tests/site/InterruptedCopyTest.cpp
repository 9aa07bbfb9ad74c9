#include <cerrno>
#include <csignal>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/site/SkeletonCopierFixture.h"

namespace
{

/// What a run that was killed has left, and what the next one makes of it.
class InterruptedCopy : public SkeletonCopierTest
{
protected:
    /// What a killed run left of a directory.
    static void leaveUnfinished(const std::string& path) { makeDir(path, {01000}); }
};

/// A skeleton of every kind of entry, and the copy of it all.
class KilledCopy : public InterruptedCopy
{
protected:
    KilledCopy()
    {
        makeFile("/srv/s/conf/a", "of @domain_name@", {0640});
        makeDir("/srv/s/conf/deep", {02770});
        makeFile("/srv/s/conf/deep/b", "b");
        makeFile("/srv/s/httpdocs/index", "@domain_name@");
        makeFile("/srv/s/cgi-bin/x", "#!", {0755});
        EXPECT_EQ(chmod("/srv/s/conf", 0750), 0);
        options_.www_root = "/srv/w/parent/passing/web";
    }

    static void makePlace()
    {
        for (const char* top : {"/srv/v", "/srv/w"}) {
            std::filesystem::remove_all(top);
            makeDir(top, {02755, 0, users});
        }
    }

    void copyAll(bool areFiles) const
    {
        const std::pair<const char*, bool> entries[] = {{"cgi-bin", false}, {"cgi-bin/x", true},
            {"conf", false}, {"conf/a", true}, {"conf/deep", false}, {"conf/deep/b", true},
            {"httpdocs", false}, {"httpdocs/index", true}};
        for (const auto& [entry, isFile] : entries) {
            (void)copy({entry}, quiet, areFiles && isFile);
        }
    }

    /// Kills a run before each of its calls, and lets another one follow each time.
    /// @return how many were killed.
    int killAtEachCall(void (*prepare)()) const
    {
        makePlace();
        copyAll(true);
        const std::string undisturbed = place();
        EXPECT_NE(undisturbed.find("dir  2770 root:kvocln conf/deep\n"), std::string::npos);
        int killed = 0;
        for (const char* call : {"openat2", "openat", "fstatat", "fstat", "mkdirat", "fchownat",
                 "fchmodat2", "read", "O_TMPFILE", "write", "fchmod", "fchown", "linkat",
                 "renameat2", "unlinkat", "close"}) {
            for (int nth = 1; runKilledAt(call, nth, prepare); ++nth) {
                ++killed;
                completeRun(prepare);
                EXPECT_EQ(place(), undisturbed) << call << ' ' << nth;
            }
            EXPECT_EQ(place(), undisturbed);
        }
        return killed;
    }

    /// @return whether it was killed; it was not if there is no such call.
    bool runKilledAt(const char* call, int nth, void (*prepare)()) const
    {
        makePlace();
        const Outcome outcome = inChild([&] {
            faults::clear();
            prepare();
            faults::runBefore(call, nth, [] { (void)kill(getpid(), SIGKILL); });
            copyAll(true);
        });
        EXPECT_TRUE(outcome.status == 0 || outcome.status == -SIGKILL) << outcome.err;
        return outcome.status == -SIGKILL;
    }

    void completeRun(void (*prepare)()) const
    {
        faults::clear();
        prepare();
        copyAll(true);
    }

    static std::string place() { return treeOf("/srv/v") + treeOf("/srv/w"); }
};

} // namespace

// --- directories that are finished ---

TEST_F(InterruptedCopy, AnUnfinishedDirectoryIsFinishedAsIfItWereMissing)
{
    ASSERT_EQ(chmod("/srv/s/conf", 0751), 0);
    makeDir("/srv/s/conf/deep", {02770});
    leaveUnfinished("/srv/v/conf");
    EXPECT_EQ(copy({"conf"}), "");
    EXPECT_EQ(accessOf("/srv/v/conf"), "0751 root:kvocln");
    leaveUnfinished("/srv/v/conf/deep");
    EXPECT_EQ(copy({"conf/deep"}), "");
    EXPECT_EQ(accessOf("/srv/v/conf/deep"), "2770 root:kvocln");
}

TEST_F(InterruptedCopy, AnUnfinishedDocumentRootAndCgiDirectoryAreFinished)
{
    ASSERT_EQ(chmod("/srv/s/httpdocs", 0711), 0);
    leaveUnfinished("/srv/w/web");
    leaveUnfinished("/srv/w/cgi");
    EXPECT_EQ(copy({"cgi-bin", "httpdocs"}), "");
    EXPECT_EQ(accessOf("/srv/w/web"), "0711 root:kvocln");
    EXPECT_EQ(accessOf("/srv/w/cgi"), "0755 root:kvocln");
}

TEST_F(InterruptedCopy, ADocumentRootWithASlashAtItsEndIsFinishedToo)
{
    options_.www_root = "/srv/w/web/";
    leaveUnfinished("/srv/w/web");
    EXPECT_EQ(copy({"httpdocs"}), "");
    EXPECT_EQ(accessOf("/srv/w/web"), "0755 root:kvocln");
}

TEST_F(InterruptedCopy, TheGroupOfTheParentAndItsBitDoNotHideThatADirectoryIsUnfinished)
{
    for (const gid_t group : {gid_t{users}, gid_t{kvocln}}) {
        makeDir("/srv/v/conf", {03000, 0, group});
        EXPECT_EQ(copy({"conf"}), "");
        EXPECT_EQ(accessOf("/srv/v/conf"), "0755 root:kvocln");
        EXPECT_EQ(rmdir("/srv/v/conf"), 0);
    }
}

TEST_F(InterruptedCopy, ADirectoryThatHasItsGroupAndNotItsModeIsFinished)
{
    makeDir("/srv/v/conf", {01000, 0, kvocln});
    EXPECT_EQ(copy({"conf"}), "");
    EXPECT_EQ(accessOf("/srv/v/conf"), "0755 root:kvocln");
}

TEST_F(InterruptedCopy, AUsersOwnUnfinishedDirectoryIsFinishedByThatUser)
{
    ASSERT_EQ(chown("/srv/v", site, users), 0);
    makeDir("/srv/v/conf", {01000, site, users});
    const Outcome outcome = inChild([this] {
        if (setgid(users) == 0 && setuid(site) == 0) {
            (void)std::fputs(copy({"conf"}).c_str(), stdout);
        }
    });
    EXPECT_EQ(outcome.out + outcome.err, "");
    EXPECT_EQ(accessOf("/srv/v/conf"), "0755 site:users");
}

TEST_F(InterruptedCopy, FinishingADirectoryCostsNoMoreThanMakingIt)
{
    leaveUnfinished("/srv/v/conf");
    faults::clear();
    EXPECT_EQ(copy({"conf"}), "");
    EXPECT_EQ(faults::calls("mkdirat"), 1);
    EXPECT_EQ(faults::calls("fchownat"), 1);
    EXPECT_EQ(faults::calls("fchmodat2"), 1);
}

// --- what is not unfinished ---

TEST_F(InterruptedCopy, SomebodyElsesDirectoryIsAnExistingOneWhateverItsMode)
{
    makeDir("/srv/v/conf", {01000, site, users});
    makeDir("/srv/w/web", {01000, site, users});
    EXPECT_EQ(copy({"conf", "httpdocs"}), "");
    EXPECT_EQ(accessOf("/srv/v/conf") + accessOf("/srv/w/web"), "1000 site:users1000 site:users");
}

TEST_F(InterruptedCopy, ADirectoryWithAnyPermissionIsAnExistingOne)
{
    for (const mode_t mode : {0000U, 01001U, 01100U, 01700U, 05000U, 07000U, 02000U, 01755U}) {
        makeDir("/srv/v/conf", {mode, 0, users});
        const std::string before = accessOf("/srv/v/conf");
        EXPECT_EQ(copy({"conf"}), "") << before;
        EXPECT_EQ(accessOf("/srv/v/conf"), before);
        EXPECT_EQ(rmdir("/srv/v/conf"), 0);
    }
}

TEST_F(InterruptedCopy, NothingButADirectoryIsUnfinished)
{
    makeFile("/srv/v/conf", "theirs", {01000});
    EXPECT_EQ(copy({"conf"}), alreadyExists("/srv/v/conf"));
    EXPECT_EQ(treeOf("/srv/v"), hostWith("file 1000 root:root conf \"theirs\""));
    EXPECT_EQ(unlink("/srv/v/conf"), 0);
    leaveUnfinished("/srv/w/elsewhere");
    makeLink("/srv/v/conf", "/srv/w/elsewhere");
    EXPECT_EQ(copy({"conf"}), alreadyExists("/srv/v/conf"));
    EXPECT_EQ(accessOf("/srv/w/elsewhere"), "1000 root:root");
}

TEST_F(InterruptedCopy, ADirectoryThatTheSkeletonHasAsSomethingElseIsAnExistingOne)
{
    makeFile("/srv/s/file", "new");
    makeLink("/srv/s/link", "conf");
    makeFifo("/srv/s/fifo");
    for (const std::string name : {"file", "link", "fifo", "missing"}) {
        for (const bool areFiles : {false, true}) {
            leaveUnfinished("/srv/v/" + name);
            EXPECT_EQ(copy({name}, verbose, areFiles), alreadyExists("/srv/v/" + name));
            EXPECT_EQ(accessOf("/srv/v/" + name), "1000 root:root");
            EXPECT_EQ(rmdir(("/srv/v/" + name).c_str()), 0);
        }
    }
}

TEST_F(InterruptedCopy, WhatTakesAnUnfinishedDirectorysPlaceMeanwhileIsNotTouched)
{
    makeDir("/srv/outside", {0700, other, users});
    leaveUnfinished("/srv/v/conf");
    // After the look at it, before it is held.
    faults::runBefore("openat", 1, [] {
        ASSERT_EQ(rename("/srv/v/conf", "/srv/v/moved"), 0);
        makeDir("/srv/v/conf", {0711, site, users});
    });
    EXPECT_EQ(copy({"conf"}), "");
    EXPECT_EQ(treeOf("/srv/v"), hostWith("dir  0711 site:users conf\n"
                                         "dir  1000 root:root moved"));
    ASSERT_EQ(rmdir("/srv/v/moved"), 0);
    ASSERT_EQ(rmdir("/srv/v/conf"), 0);
    leaveUnfinished("/srv/v/conf");
    // Once it is held it is the one that is finished.
    faults::runBefore("fchownat", 1, [] {
        ASSERT_EQ(rename("/srv/v/conf", "/srv/v/moved"), 0);
        makeLink("/srv/v/conf", "/srv/outside");
    });
    EXPECT_EQ(copy({"conf"}), "");
    EXPECT_EQ(accessOf("/srv/v/moved"), "0755 root:kvocln");
    EXPECT_EQ(accessOf("/srv/outside"), "0700 other:users");
}

// --- killed at any step ---

TEST_F(KilledCopy, ARunThatIsKilledAtAnyCallIsCompletedByTheNext)
{
    EXPECT_GT(killAtEachCall([] {}), 80);
}

TEST_F(KilledCopy, ARunWithoutNamelessFilesThatIsKilledAtAnyCallIsCompletedByTheNext)
{
    EXPECT_GT(killAtEachCall([] { faults::failAlways("O_TMPFILE", EOPNOTSUPP); }), 80);
}

TEST_F(KilledCopy, TheSameWithoutTheCallThatMovesAFileToAFreeName)
{
    EXPECT_GT(killAtEachCall([] {
        faults::failAlways("O_TMPFILE", EOPNOTSUPP);
        faults::failAlways("renameat2", EINVAL);
    }),
        80);
}

TEST_F(KilledCopy, WhatIsVisibleOfAKilledRunIsWholeOrClosedToEverybody)
{
    int unfinished = 0;
    for (int nth = 1; runKilledAt("fchmodat2", nth, [] {}); ++nth) {
        const std::string left = place();
        size_t found = 0;
        for (const char* shown : {"dir  1000 ", "dir  3000 "}) {
            for (size_t at = left.find(shown); at != std::string::npos;
                 at = left.find(shown, at + 1)) {
                ++found;
            }
        }
        EXPECT_EQ(found, 1U) << left;
        ++unfinished;
    }
    EXPECT_EQ(unfinished, 4); // "cgi-bin", "conf", "conf/deep" and "httpdocs"
}
