#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <set>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fsutil/Descriptor.h"
#include "fsutil/NewFile.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

/// The ways in which a file can get its name, each forced by refusing those before it.
enum class Way { nameless, throughProc, renamed, linkedAndUnlinked };

const char* nameOf(Way way)
{
    constexpr const char* names[] = {"Nameless", "ThroughProc", "Renamed", "LinkedAndUnlinked"};
    return names[static_cast<int>(way)];
}

void force(Way way)
{
    switch (way) {
    case Way::nameless:
        break;
    case Way::throughProc:
        faults::fail("linkat", ENOENT);
        break;
    case Way::linkedAndUnlinked:
        faults::failAlways("renameat2", EINVAL);
        [[fallthrough]];
    case Way::renamed:
        faults::failAlways("O_TMPFILE", EOPNOTSUPP);
        break;
    }
}

/// A file that is looked at before every call that is made for it.
struct Watched {
    std::string path;
    int looks = 0;
    mode_t rights = 0; ///< the set-id bits under which it could be run
};

class NewFile : public World
{
protected:
    NewFile() : directory_((makeDir("/srv/d"), open("/srv/d", O_PATH | O_DIRECTORY | O_CLOEXEC)))
    {
        faults::clear();
    }

    /// "" for success, else the error's name.
    std::string create(
        const char* name, std::string_view content, mode_t mode = 0644, gid_t group = kvocln) const
    {
        const size_t before = openDescriptors();
        errno = 0;
        const int result = createWholeFile(directory_.get(), name, content, mode, group);
        const int error = errno;
        EXPECT_EQ(openDescriptors(), before);
        return result == 0 ? "" : strerrorname_np(error);
    }

    static std::string tree() { return treeOf("/srv/d"); }
    static std::string withFile(const std::string& line)
    {
        return "dir  0755 root:root .\nfile " + line + '\n';
    }

    /// The name under which a file is written where it cannot be written without one.
    [[nodiscard]] std::string hiddenNameOf(const char* name) const
    {
        faults::clear();
        faults::failAlways("O_TMPFILE", EOPNOTSUPP);
        faults::runBefore("renameat2", 1, [] { seenBefore = tree(); });
        EXPECT_EQ(create(name, ""), "");
        EXPECT_EQ(unlinkat(directory_.get(), name, 0), 0);
        faults::clear();
        const size_t begin = seenBefore.find(".new-");
        return seenBefore.substr(begin, seenBefore.find(' ', begin) - begin);
    }

    static void watchFromNextCall()
    {
        for (const char* call :
            {"write", "fchmod", "fchown", "close", "renameat2", "linkat", "unlinkat"}) {
            faults::runBefore(call, 1, [] {
                struct stat status = {};
                if (lstat(watched.path.c_str(), &status) == 0) {
                    ++watched.looks;
                    const bool runsAsGroup = (status.st_mode & S_IXGRP) != 0;
                    watched.rights |= status.st_mode & (S_ISUID | (runsAsGroup ? S_ISGID : 0U));
                }
                watchFromNextCall();
            });
        }
    }

    inline static Watched watched;
    inline static std::string seenBefore; ///< what stood in the directory just before a renaming

    static constexpr const char* empty = "dir  0755 root:root .\n";

    faults::Guard guard_;
    Descriptor directory_;
};

class NewFileInAnyWay : public NewFile, public ::testing::WithParamInterface<Way>
{
protected:
    NewFileInAnyWay() { force(GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(Ways, NewFileInAnyWay,
    ::testing::Values(Way::nameless, Way::throughProc, Way::renamed, Way::linkedAndUnlinked),
    [](const auto& way) { return nameOf(way.param); });
} // namespace

TEST_P(NewFileInAnyWay, TheFileHasContentModeAndGroupAndBelongsToTheProcess)
{
    EXPECT_EQ(create("a b", std::string_view("one\0two\n", 8), 0640), "");
    EXPECT_EQ(tree(), withFile("0640 root:kvocln a b \"one\\x00two\\n\""));
}

TEST_P(NewFileInAnyWay, AnEmptyFileIsMadeAsWell)
{
    EXPECT_EQ(create("f", ""), "");
    EXPECT_EQ(tree(), withFile("0644 root:kvocln f \"\""));
}

TEST_P(NewFileInAnyWay, TheModeIsExactWhateverTheUmask)
{
    for (const mode_t mask : {000U, 077U, 0777U}) {
        umask(mask);
        faults::clear();
        force(GetParam());
        EXPECT_EQ(create("f", "x", 0666), "");
        EXPECT_EQ(tree(), withFile("0666 root:kvocln f \"x\""));
        EXPECT_EQ(unlink("/srv/d/f"), 0);
    }
}

TEST_P(NewFileInAnyWay, ChangingTheGroupTakesSetIdBitsAwayAsForAnyFile)
{
    const std::pair<mode_t, const char*> table[] = {{06755, "0755"}, {04644, "0644"},
        {02755, "0755"}, {02644, "2644"}, {01644, "1644"}, {07777, "1777"}, {0, "0000"},
        {S_IFREG | 0600, "0600"}, {0444, "0444"}};
    for (const auto& [mode, shown] : table) {
        faults::clear();
        force(GetParam());
        EXPECT_EQ(create("f", "x", mode), "");
        EXPECT_EQ(tree(), withFile(shown + std::string(" root:kvocln f \"x\"")));
        EXPECT_EQ(unlink("/srv/d/f"), 0);
    }
}

TEST_P(NewFileInAnyWay, TheGroupIsTheOneAskedForAlsoInASetGroupIdDirectory)
{
    ASSERT_EQ(chown("/srv/d", 0, users), 0);
    ASSERT_EQ(chmod("/srv/d", 02777), 0);
    EXPECT_EQ(create("f", "x"), "");
    EXPECT_EQ(accessOf("/srv/d/f"), "0644 root:kvocln");
}

TEST_P(NewFileInAnyWay, NothingThatExistsIsReplaced)
{
    makeFile("/srv/d/file", "old", {0600, site, users});
    makeDir("/srv/d/directory");
    makeLink("/srv/d/dangling", "nowhere");
    makeFifo("/srv/d/fifo");
    const std::string before = tree();
    for (const char* name : {"file", "directory", "dangling", "fifo"}) {
        faults::clear();
        force(GetParam());
        EXPECT_EQ(create(name, "new"), "EEXIST") << name;
    }
    EXPECT_EQ(tree(), before);
}

TEST_P(NewFileInAnyWay, AFileThatTakesTheNameMeanwhileStays)
{
    faults::runBefore("fchown", 1, [] { makeFile("/srv/d/f", "theirs"); });
    EXPECT_EQ(create("f", "ours"), "EEXIST");
    EXPECT_EQ(tree(), withFile("0644 root:root f \"theirs\""));
}

TEST_P(NewFileInAnyWay, AnInterruptedWriteIsRepeated)
{
    faults::fail("write", EINTR);
    EXPECT_EQ(create("f", "content"), "");
    EXPECT_EQ(contentOf("/srv/d/f"), "content");
}

TEST_P(NewFileInAnyWay, AFailedWriteLeavesNothing)
{
    faults::fail("write", EIO);
    EXPECT_EQ(create("f", "content"), "EIO");
    EXPECT_EQ(tree(), empty);
}

TEST_P(NewFileInAnyWay, AFullFileSystemLeavesNothingAndALaterAttemptSucceeds)
{
    makeDir("/srv/small");
    const PrivateDirectory small("/srv/small", "size=64k");
    makeFile("/srv/small/ballast", std::string(40000, 'b'));
    const std::string before = treeOf("/srv/small");
    directory_.reset(open("/srv/small", O_PATH | O_DIRECTORY | O_CLOEXEC));
    const std::string content(40000, 'c');
    EXPECT_EQ(create("f", content), "ENOSPC");
    EXPECT_EQ(treeOf("/srv/small"), before);

    EXPECT_EQ(unlink("/srv/small/ballast"), 0);
    EXPECT_EQ(treeOf("/srv/small"), empty);
    faults::clear();
    force(GetParam());
    EXPECT_EQ(create("f", content), "");
    EXPECT_TRUE(contentOf("/srv/small/f") == content);
}

TEST_P(NewFileInAnyWay, AFileSystemWithoutInodesLeavesNothing)
{
    makeDir("/srv/small");
    const PrivateDirectory small("/srv/small", "nr_inodes=3");
    makeFile("/srv/small/1", "");
    makeFile("/srv/small/2", "");
    const std::string before = treeOf("/srv/small");
    directory_.reset(open("/srv/small", O_PATH | O_DIRECTORY | O_CLOEXEC));
    EXPECT_EQ(create("f", ""), "ENOSPC");
    EXPECT_EQ(treeOf("/srv/small"), before);
}

TEST_P(NewFileInAnyWay, ADirectoryThatIsGoneIsReported)
{
    ASSERT_EQ(rmdir("/srv/d"), 0);
    EXPECT_EQ(create("f", "x"), "ENOENT");
}

TEST_P(NewFileInAnyWay, ModeAndGroupAreNotChecked)
{
    faults::failAlways("fchmod", EPERM);
    faults::failAlways("fchown", EPERM);
    EXPECT_EQ(create("f", "x", 0755), "");
    EXPECT_EQ(tree(), withFile("0600 root:root f \"x\""));
}

TEST_P(NewFileInAnyWay, WithoutTheChangeOfGroupSetIdBitsDoNotStayEither)
{
    faults::failAlways("fchown", EPERM);
    EXPECT_EQ(create("f", "x", 07755), "");
    EXPECT_EQ(tree(), withFile("1755 root:root f \"x\""));
}

TEST_P(NewFileInAnyWay, TheWorkingDirectoryCanBeTheDirectory)
{
    ASSERT_EQ(chdir("/srv/d"), 0);
    EXPECT_EQ(createWholeFile(AT_FDCWD, "f", "x", 0644, kvocln), 0);
    EXPECT_EQ(tree(), withFile("0644 root:kvocln f \"x\""));
}

TEST_P(NewFileInAnyWay, AUserWithoutPrivilegesCanMakeFilesToo)
{
    ASSERT_EQ(chown("/srv/d", site, users), 0);
    const Outcome outcome = inChild([this] {
        if (setgid(users) == 0 && setuid(site) == 0) {
            std::_Exit(createWholeFile(directory_.get(), "f", "x", 0640, users) == 0 ? 0 : 1);
        }
    });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(tree(), "dir  0755 site:users .\nfile 0640 site:users f \"x\"\n");
}

TEST_F(NewFile, UsuallyTheFileHasNoNameUntilItIsFinished)
{
    faults::runBefore("linkat", 1, [] { seenBefore = tree(); });
    EXPECT_EQ(create("f", "x"), "");
    EXPECT_EQ(seenBefore, empty);
    EXPECT_EQ(faults::calls("linkat"), 1);
    EXPECT_EQ(faults::calls("openat"), 0);
    EXPECT_EQ(faults::calls("renameat2"), 0);
    EXPECT_EQ(faults::calls("unlinkat"), 0);
}

TEST_F(NewFile, WhereLinkingByDescriptorIsRefusedTheProcFileSystemHelps)
{
    for (const int error : {ENOENT, EINVAL, ENOSYS, EPERM, EACCES, EOPNOTSUPP}) {
        faults::clear();
        faults::fail("linkat", error);
        EXPECT_EQ(create("f", "x"), "") << error;
        EXPECT_EQ(faults::calls("linkat"), 2);
        EXPECT_EQ(faults::calls("renameat2"), 0);
        EXPECT_EQ(tree(), withFile("0644 root:kvocln f \"x\""));
        EXPECT_EQ(unlink("/srv/d/f"), 0);
    }
}

TEST_F(NewFile, WithoutNamelessFilesAHiddenNameIsUsedAndThenRenamed)
{
    for (const int error : {EOPNOTSUPP, EISDIR, ENOSYS, EPERM, EINVAL, ENOENT}) {
        faults::clear();
        faults::failAlways("O_TMPFILE", error);
        faults::runBefore("renameat2", 1, [] { seenBefore = tree(); });
        EXPECT_EQ(create("f", "x", 0640), "") << error;
        EXPECT_EQ(seenBefore.find("dir  0755 root:root .\nfile 0640 root:kvocln ."), 0U)
            << seenBefore;
        EXPECT_EQ(tree(), withFile("0640 root:kvocln f \"x\""));
        EXPECT_EQ(faults::calls("renameat2"), 1);
        EXPECT_EQ(faults::calls("linkat"), 0);
        EXPECT_EQ(faults::calls("unlinkat"), 0); // the name may be somebody else's by now
        EXPECT_EQ(unlink("/srv/d/f"), 0);
    }
}

TEST_F(NewFile, WhereNamelessFilesCannotBeLinkedAHiddenNameIsUsedToo)
{
    for (const int error : {ENOENT, EINVAL, ENOSYS, EPERM, EACCES, EOPNOTSUPP}) {
        faults::clear();
        faults::failAlways("linkat", error);
        EXPECT_EQ(create("f", "x", 0640), "") << error;
        EXPECT_EQ(tree(), withFile("0640 root:kvocln f \"x\""));
        EXPECT_EQ(faults::calls("renameat2"), 1);
        EXPECT_EQ(unlink("/srv/d/f"), 0);
    }
}

TEST_F(NewFile, AHiddenNameIsLinkedWhereItCannotBeRenamedWithoutReplacing)
{
    for (const int error : {EINVAL, ENOSYS, EPERM}) {
        faults::clear();
        faults::failAlways("O_TMPFILE", EOPNOTSUPP);
        faults::failAlways("renameat2", error);
        EXPECT_EQ(create("f", "x"), "") << error;
        EXPECT_EQ(tree(), withFile("0644 root:kvocln f \"x\""));
        EXPECT_EQ(faults::calls("linkat"), 1);
        EXPECT_EQ(faults::calls("unlinkat"), 1);
        EXPECT_EQ(unlink("/srv/d/f"), 0);
    }
}

TEST_F(NewFile, UnderItsHiddenNameAFileNeverRunsWithTheRightsOfSomebodyElse)
{
    watched.path = "/srv/d/" + hiddenNameOf("f");
    const std::pair<mode_t, const char*> table[] = {
        {04755, "0755"}, {02755, "0755"}, {06755, "0755"}, {02644, "2644"}};
    for (const Way way : {Way::renamed, Way::linkedAndUnlinked}) {
        for (const auto& [mode, shown] : table) {
            faults::clear();
            force(way);
            watched.looks = 0;
            watchFromNextCall();
            EXPECT_EQ(create("f", "x", mode), "");
            EXPECT_EQ(watched.rights, 0U) << std::oct << mode;
            EXPECT_GE(watched.looks, 5) << nameOf(way);
            EXPECT_EQ(tree(), withFile(shown + std::string(" root:kvocln f \"x\"")));
            EXPECT_EQ(unlink("/srv/d/f"), 0);
        }
    }
}

TEST_F(NewFile, AHiddenNameBelongsToTheFinalOne)
{
    EXPECT_EQ(hiddenNameOf("f"), hiddenNameOf("f"));
    EXPECT_NE(hiddenNameOf("f"), hiddenNameOf("g"));
}

TEST_F(NewFile, WhatAKilledRunLeftUnderTheHiddenNameIsRemovedByTheNext)
{
    const std::string hidden = "/srv/d/" + hiddenNameOf("f");
    for (const char* call : {"write", "fchmod", "fchown", "renameat2"}) {
        const Outcome end = inChild([&] {
            faults::failAlways("O_TMPFILE", EOPNOTSUPP);
            faults::runBefore(call, 1, [] { _exit(9); });
            create("f", "half");
        });
        EXPECT_EQ(end.status, 9) << call;
        EXPECT_TRUE(exists(hidden)) << call;
        faults::clear();
        faults::failAlways("O_TMPFILE", EOPNOTSUPP);
        EXPECT_EQ(create("f", "x"), "");
        EXPECT_EQ(tree(), withFile("0644 root:kvocln f \"x\"")) << call;
        EXPECT_EQ(unlink("/srv/d/f"), 0);
    }
}

TEST_F(NewFile, ASecondLinkThatAKilledRunLeftIsRemoved)
{
    const std::string hidden = hiddenNameOf("f");
    const Outcome end = inChild([&] {
        force(Way::linkedAndUnlinked);
        faults::runBefore("unlinkat", 1, [] { _exit(9); });
        create("f", "x");
    });
    EXPECT_EQ(end.status, 9);
    ASSERT_TRUE(exists("/srv/d/" + hidden));
    removeLeftoverOf(directory_.get(), "f");
    EXPECT_EQ(tree(), withFile("0644 root:kvocln f \"x\""));
}

TEST_F(NewFile, AFileThatIsNoLeftoverKeepsItsHiddenName)
{
    const std::string hidden = "/srv/d/" + hiddenNameOf("f");
    makeFile("/srv/d/f", "x");
    makeFile(hidden, "another file");
    removeLeftoverOf(directory_.get(), "f");
    EXPECT_TRUE(exists(hidden));
    ASSERT_EQ(unlink(hidden.c_str()), 0);
    ASSERT_EQ(link("/srv/d/f", hidden.c_str()), 0);
    const Descriptor inUse(open(hidden.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(flock(inUse.get(), LOCK_EX), 0);
    removeLeftoverOf(directory_.get(), "f");
    EXPECT_TRUE(exists(hidden));
}

TEST_F(NewFile, AHiddenNameThatIsTakenIsReplacedByOneThatCannotBeForeseen)
{
    const std::string hidden = "/srv/d/" + hiddenNameOf("f");
    const auto take = [&](const std::string& kind) {
        if (kind == "directory") {
            makeDir(hidden);
        } else if (kind == "link") {
            makeLink(hidden, "/etc/passwd");
        } else if (kind == "pipe") {
            makeFifo(hidden);
        } else {
            makeFile(hidden, "theirs");
        }
        if (kind == "their file") {
            ASSERT_EQ(chown(hidden.c_str(), site, users), 0);
        }
    };
    for (const char* kind : {"directory", "link", "pipe", "their file", "file in use"}) {
        take(kind);
        const Descriptor inUse(
            open(hidden.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        (void)flock(inUse.get(), LOCK_EX);
        const std::string before = tree();
        std::set<std::string> seen;
        for (int i = 0; i < 5; ++i) {
            faults::clear();
            faults::failAlways("O_TMPFILE", EOPNOTSUPP);
            faults::runBefore("renameat2", 1, [] { seenBefore = tree(); });
            EXPECT_EQ(create("f", ""), "") << kind;
            seen.insert(seenBefore);
            EXPECT_EQ(unlink("/srv/d/f"), 0);
            EXPECT_EQ(tree(), before) << kind;
        }
        EXPECT_EQ(seen.size(), 5U) << kind;
        EXPECT_EQ(remove(hidden.c_str()), 0);
    }
}

TEST_F(NewFile, WithoutRandomnessATakenHiddenNameCannotBeReplaced)
{
    makeDir("/srv/d/" + hiddenNameOf("f"));
    const std::string before = tree();
    faults::failAlways("O_TMPFILE", EOPNOTSUPP);
    faults::fail("getentropy", ENOSYS);
    EXPECT_EQ(create("f", "x"), "ENOSYS");
    EXPECT_EQ(tree(), before);
}

TEST_F(NewFile, RunningOutOfHiddenNamesIsNotMistakenForATakenFinalName)
{
    faults::failAlways("O_TMPFILE", EOPNOTSUPP);
    faults::failAlways("openat", EEXIST);
    EXPECT_EQ(create("f", "x"), "EAGAIN");
}

TEST_F(NewFile, RealFailuresOfTheNamelessWayEndTheAttempt)
{
    for (const int error : {EIO, ENOSPC, EDQUOT, EMFILE, ENOMEM, EROFS}) {
        for (const char* call : {"O_TMPFILE", "write", "linkat"}) {
            faults::clear();
            faults::fail(call, error);
            EXPECT_EQ(create("f", "x"), strerrorname_np(error)) << call;
            EXPECT_EQ(tree(), empty);
            EXPECT_EQ(faults::calls("openat"), 0);
        }
    }
}

TEST_F(NewFile, NoFailureLeavesTheHiddenNameBehind)
{
    for (const int error : {EIO, ENOSPC, EDQUOT, EMFILE, ENOMEM, EROFS}) {
        for (const char* call : {"openat", "write", "close", "renameat2"}) {
            faults::clear();
            faults::failAlways("O_TMPFILE", EOPNOTSUPP);
            faults::fail(call, error);
            EXPECT_EQ(createWholeFile(directory_.get(), "f", "x", 0644, kvocln), -1) << call;
            EXPECT_STREQ(strerrorname_np(errno), strerrorname_np(error)) << call;
            faults::clear();
            EXPECT_EQ(tree(), empty) << call;
        }
    }
}

TEST_F(NewFile, WhereNoWayIsSupportedTheLastRefusalIsReportedAndNothingStays)
{
    faults::failAlways("O_TMPFILE", EOPNOTSUPP);
    faults::failAlways("renameat2", EINVAL);
    faults::failAlways("linkat", EPERM);
    EXPECT_EQ(create("f", "x"), "EPERM");
    faults::clear();
    EXPECT_EQ(tree(), empty);
}
