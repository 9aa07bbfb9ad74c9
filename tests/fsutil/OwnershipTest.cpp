#include "fsutil/Ownership.h"

#include <cerrno>
#include <sys/stat.h>

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
        faults::fail("chown", EPERM);
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
        faults::fail("chmod", EROFS);
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
    faults::fail("stat", EACCES);
    EXPECT_EQ(setOwnerAndModeIfPresent("/srv/file", site, kvocln, 0600), 0);
    EXPECT_EQ(accessOf("/srv/file"), "0640 other:users");
}

TEST_F(SetOwnerAndModeIfPresent, ReportsAsSetOwnerAndModeDoes)
{
    int result = 0;
    EXPECT_EQ(reportsOf([&] {
        faults::fail("chown", EPERM);
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
    errno = EPERM;
    setOwnerAndMode("/srv/file", site, kvocln, 0600);
    EXPECT_EQ(errno, EPERM);
}
