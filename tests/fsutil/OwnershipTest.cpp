#include "fsutil/Ownership.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/fsutil/Reports.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

class Ownership : public World
{
protected:
    Ownership() { makeFile("/srv/file", "text", {0640, other, users}); }

    faults::Guard guard_;
};

} // namespace

using SetOwnerAndMode = Ownership;
using SetOwnerAndModeForUser = Ownership;
using SetOwnerAndModeIfPresent = Ownership;

TEST_F(SetOwnerAndMode, GivesOwnerGroupAndExactlyThisModeWhateverTheUmask)
{
    umask(077);
    EXPECT_EQ(setOwnerAndMode("/srv/file", site, kvoserv, 0755), 0);
    EXPECT_EQ(accessOf("/srv/file"), "0755 site:kvoserv");
}

TEST_F(SetOwnerAndMode, SetsTheModeLastSoThatSetIdBitsStay)
{
    EXPECT_EQ(setOwnerAndMode("/srv/file", site, kvoserv, 06755), 0);
    EXPECT_EQ(accessOf("/srv/file"), "6755 site:kvoserv");
}

TEST_F(SetOwnerAndMode, LeavesAnIdOfMinusOneAsItIs)
{
    EXPECT_EQ(setOwnerAndMode("/srv/file", static_cast<uid_t>(-1), kvoserv, 0600), 0);
    EXPECT_EQ(accessOf("/srv/file"), "0600 other:kvoserv");
    EXPECT_EQ(setOwnerAndMode("/srv/file", site, static_cast<gid_t>(-1), 0600), 0);
    EXPECT_EQ(accessOf("/srv/file"), "0600 site:kvoserv");
}

TEST_F(SetOwnerAndMode, FollowsALink)
{
    makeLink("/srv/link", "file");
    EXPECT_EQ(setOwnerAndMode("/srv/link", site, kvoserv, 0700), 0);
    EXPECT_EQ(accessOf("/srv/file"), "0700 site:kvoserv");
    EXPECT_EQ(accessOf("/srv/link"), "0777 root:root");
}

TEST_F(SetOwnerAndMode, SaysNothingWhenAllWentWell)
{
    EXPECT_EQ(reportsOf([] {
        errno = EPERM;
        setOwnerAndMode("/srv/file", site, kvoserv, 0755);
    }),
        "");
}

TEST_F(SetOwnerAndMode, ReportsAMissingPath)
{
    int result = 0;
    EXPECT_EQ(reportsOf([&] { result = setOwnerAndMode("/srv/none", site, kvoserv, 0755); }),
        "twigctl: ERROR: unable to chown /srv/none: No such file or directory\n"
        "\nSystem error 2: No such file or directory\n");
    EXPECT_EQ(result, -1);
}

TEST_F(SetOwnerAndMode, DoesNotTouchTheModeWhenTheOwnerCannotBeSet)
{
    int result = 0;
    EXPECT_EQ(reportsOf([&] {
        faults::fail("fchownat", EPERM);
        result = setOwnerAndMode("/srv/file", site, kvoserv, 0755);
    }),
        "twigctl: ERROR: unable to chown /srv/file: Operation not permitted\n"
        "\nSystem error 1: Operation not permitted\n");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(accessOf("/srv/file"), "0640 other:users");
}

TEST_F(SetOwnerAndMode, ReportsAModeThatCannotBeSetWithTheOwnerAlreadyChanged)
{
    int result = 0;
    EXPECT_EQ(reportsOf([&] {
        faults::fail("fchmodat2", EROFS);
        result = setOwnerAndMode("/srv/file", site, kvoserv, 0755);
    }),
        "twigctl: ERROR: unable to chmod /srv/file: Read-only file system\n"
        "\nSystem error 30: Read-only file system\n");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(accessOf("/srv/file"), "0640 site:kvoserv");
}

TEST_F(SetOwnerAndModeForUser, TakesOwnerAndPrimaryGroupFromTheAccount)
{
    EXPECT_EQ(
        reportsOf([] { EXPECT_EQ(setOwnerAndModeForUser("/srv/file", "site", 04711), 0); }), "");
    EXPECT_EQ(accessOf("/srv/file"), "4711 site:users");
}

TEST_F(SetOwnerAndModeForUser, RefusesAnUnknownUserWithoutASystemErrorAndChangesNothing)
{
    int result = 0;
    EXPECT_EQ(reportsOf([&] {
        errno = EPERM;
        result = setOwnerAndModeForUser("/srv/file", "nosuch", 0777);
    }),
        "twigctl: user nosuch not found\n");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(accessOf("/srv/file"), "0640 other:users");
}

TEST_F(SetOwnerAndModeForUser, ReportsTheFailedCallForAKnownUser)
{
    int result = 0;
    EXPECT_EQ(reportsOf([&] { result = setOwnerAndModeForUser("/srv/file/x", "site", 0777); }),
        "twigctl: ERROR: unable to chown /srv/file/x: Not a directory\n"
        "\nSystem error 20: Not a directory\n");
    EXPECT_EQ(result, -1);
}

TEST_F(SetOwnerAndModeIfPresent, ChangesWhatIsThere)
{
    EXPECT_EQ(setOwnerAndModeIfPresent("/srv/file", site, kvocln, 0600), 0);
    EXPECT_EQ(accessOf("/srv/file"), "0600 site:kvocln");
}

TEST_F(SetOwnerAndModeIfPresent, IsSilentSuccessWhateverKeepsThePathFromBeingSeen)
{
    makeLink("/srv/dangling", "none");
    makeLink("/srv/loop", "loop");
    const std::string tooLong = "/srv/" + std::string(300, 'x');
    for (const char* path :
        {"/srv/none", "", "/srv/file/x", "/srv/dangling", "/srv/loop", tooLong.c_str()}) {
        int result = -1;
        EXPECT_EQ(
            reportsOf([&] { result = setOwnerAndModeIfPresent(path, site, kvocln, 0600); }), "");
        EXPECT_EQ(result, 0) << path;
    }
}

TEST_F(SetOwnerAndModeIfPresent, LeavesAFileAloneThatCannotBeExamined)
{
    for (const int error : {EACCES, EIO}) {
        faults::fail("openat2", error);
        EXPECT_EQ(setOwnerAndModeIfPresent("/srv/file", site, kvocln, 0600), 0);
        EXPECT_EQ(accessOf("/srv/file"), "0640 other:users");
    }
}

TEST_F(SetOwnerAndModeIfPresent, DoesNotTakeALackOfDescriptorsForAbsence)
{
    for (const int error : {EMFILE, ENFILE}) {
        int result = 0;
        const std::string report = reportsOf([&] {
            faults::fail("openat2", error);
            result = setOwnerAndModeIfPresent("/srv/file", site, kvocln, 0600);
        });
        EXPECT_EQ(report.substr(0, 42), "twigctl: ERROR: unable to chown /srv/file:");
        EXPECT_EQ(result, -1);
    }
}

TEST_F(SetOwnerAndModeIfPresent, RefusesALinkOfSomebodyElseThatLeadsToNothing)
{
    makeLink("/srv/dangling", "none");
    makeLink("/srv/loop", "loop");
    ASSERT_EQ(lchown("/srv/dangling", site, users) | lchown("/srv/loop", site, users), 0);
    for (const std::string path : {"/srv/dangling", "/srv/dangling/none", "/srv/loop"}) {
        int result = 0;
        EXPECT_EQ(
            reportsOf([&] { result = setOwnerAndModeIfPresent(path.c_str(), site, kvocln, 0777); }),
            "twigctl: ERROR: unable to chown " + path +
                ": Too many levels of symbolic links\n"
                "\nSystem error 40: Too many levels of symbolic links\n");
        EXPECT_EQ(result, -1);
    }
}

TEST_F(SetOwnerAndModeIfPresent, ReportsAsSetOwnerAndModeDoes)
{
    int result = 0;
    EXPECT_EQ(reportsOf([&] {
        faults::fail("fchownat", EPERM);
        result = setOwnerAndModeIfPresent("/srv/file", site, kvocln, 0600);
    }),
        "twigctl: ERROR: unable to chown /srv/file: Operation not permitted\n"
        "\nSystem error 1: Operation not permitted\n");
    EXPECT_EQ(result, -1);
}

TEST_F(SetOwnerAndModeIfPresent, ForgetsAnOlderError)
{
    errno = EPERM;
    setOwnerAndModeIfPresent("/srv/file", site, kvocln, 0600);
    EXPECT_EQ(errno, 0);
}

TEST_F(SetOwnerAndMode, KeepsAnOlderError)
{
    makeLink("/srv/link", "file");
    for (const char* path : {"/srv/file", "/srv/link"}) {
        errno = EPERM;
        setOwnerAndMode(path, site, kvocln, 0600);
        EXPECT_EQ(errno, EPERM) << path;
    }
}

TEST_F(SetOwnerAndMode, KeepsAnOlderErrorWhereNewerCallsAreMissing)
{
    makeDir("/srv/directory");
    for (const char* path : {"/srv/file", "/srv/directory"}) {
        for (const char* call : {"openat2", "fchmodat2"}) {
            const Outcome end = inChild([=] {
                faults::failAlways(call, ENOSYS);
                errno = ENOENT;
                setOwnerAndMode(path, site, kvocln, 0700);
                EXPECT_EQ(errno, ENOENT) << path << ' ' << call;
                std::exit(HasFailure() ? 1 : 0);
            });
            EXPECT_EQ(end.status, 0) << end.out;
        }
    }
}

TEST_F(SetOwnerAndMode, RefusesALinkOfSomebodyElseAtTheEndAndOnTheWay)
{
    makeDir("/srv/directory");
    makeFile("/srv/directory/file", "x");
    makeLink("/srv/theirs", "file");
    makeLink("/srv/way", "directory");
    ASSERT_EQ(lchown("/srv/theirs", site, users) | lchown("/srv/way", site, users), 0);
    for (const std::string path : {"/srv/theirs", "/srv/way/file"}) {
        for (const auto set : {setOwnerAndMode, setOwnerAndModeIfPresent}) {
            int result = 0;
            EXPECT_EQ(reportsOf([&] { result = set(path.c_str(), site, kvocln, 0777); }),
                "twigctl: ERROR: unable to chown " + path +
                    ": Too many levels of symbolic links\n"
                    "\nSystem error 40: Too many levels of symbolic links\n");
            EXPECT_EQ(result, -1);
        }
    }
    EXPECT_EQ(accessOf("/srv/file"), "0640 other:users");
    EXPECT_EQ(accessOf("/srv/directory/file"), "0644 root:root");
}

TEST_F(SetOwnerAndMode, ChangesTheFileThatItFoundWhateverTakesItsName)
{
    makeFile("/srv/innocent", "x");
    for (const char* function : {"fchownat", "fchmodat2"}) {
        makeFile("/srv/new", "x");
        faults::runBefore(function, 1, [] {
            ASSERT_EQ(rename("/srv/new", "/srv/moved"), 0);
            makeLink("/srv/new", "innocent");
        });
        EXPECT_EQ(setOwnerAndMode("/srv/new", site, kvocln, 0600), 0);
        EXPECT_EQ(accessOf("/srv/moved"), "0600 site:kvocln") << function;
        EXPECT_EQ(accessOf("/srv/innocent"), "0644 root:root") << function;
        ASSERT_EQ(unlink("/srv/new"), 0);
    }
}

TEST_F(SetOwnerAndMode, ChangesAPipeWithoutWaitingForItsOtherEnd)
{
    makeFifo("/srv/fifo");
    const Outcome end = inChild([] {
        alarm(20);
        std::exit(setOwnerAndMode("/srv/fifo", site, kvocln, 0620) == 0 ? 7 : 8);
    });
    EXPECT_EQ(end.status, 7);
    EXPECT_EQ(accessOf("/srv/fifo"), "0620 site:kvocln");
}

TEST_F(SetOwnerAndMode, LeavesNoDescriptorOpen)
{
    const size_t before = openDescriptors();
    EXPECT_EQ(setOwnerAndMode("/srv/file", site, kvocln, 0600), 0);
    EXPECT_EQ(openDescriptors(), before);
}
