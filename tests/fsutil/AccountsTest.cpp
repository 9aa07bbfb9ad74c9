#include "fsutil/Accounts.h"

#include <cerrno>

#include "conf/FreeDeleter.h"
#include "tests/fsutil/Reports.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

class Accounts : public World
{
protected:
    faults::Guard guard_;
};

/// The id that a look-up gave and what it reported.
struct Answer {
    id_t id = 12345;
    std::string report;

    bool operator==(const Answer&) const = default;
};

void PrintTo(const Answer& answer, std::ostream* out)
{
    *out << answer.id << " '" << answer.report << "'";
}

/// Asks with an error pending, to see whether it shows.
template<class LookUp>
Answer answerOf(LookUp lookUp)
{
    Answer answer;
    answer.report = reportsOf([&] {
        errno = EPERM;
        answer.id = lookUp();
    });
    return answer;
}

/// Moves the account database out of the way, which is a failure rather than a miss.
void breakDatabase(const char* path)
{
    ASSERT_EQ(std::remove(path), 0);
    makeLink(path, path);
}

} // namespace

using NameOfUid = Accounts;
using UidOfUser = Accounts;
using AccountOfUser = Accounts;
using UidOrGidOfUser = Accounts;
using CheckGid = Accounts;
using GidOfGroup = Accounts;
using GroupIdFromText = Accounts;

TEST_F(NameOfUid, NamesAKnownUser)
{
    EXPECT_STREQ(nameOfUid(0), "root");
    EXPECT_STREQ(nameOfUid(site), "site");
}

TEST_F(NameOfUid, GivesAnUnknownUidInDecimal)
{
    EXPECT_EQ(reportsOf([] {
        EXPECT_STREQ(nameOfUid(64999), "64999");
        EXPECT_STREQ(nameOfUid(4294967295U), "4294967295");
    }),
        "");
}

TEST_F(NameOfUid, AnswersInOneBufferThatTheNextCallOverwrites)
{
    const char* first = nameOfUid(site);
    const char* second = nameOfUid(64999);
    EXPECT_EQ(first, second);
    EXPECT_STREQ(first, "64999");
}

TEST_F(NameOfUid, CutsANameBehind4095Characters)
{
    const std::string name(5000, 'n');
    makeFile("/etc/passwd", name + ":x:1003:100::/:/bin/sh\n");
    EXPECT_EQ(nameOfUid(1003), name.substr(0, 4095));
}

TEST_F(UidOfUser, GivesTheUid)
{
    EXPECT_EQ(answerOf([] { return uidOfUser("site"); }), (Answer{site, ""}));
}

TEST_F(UidOfUser, ReportsAnUnknownUserAsSuccessAndGivesRoot)
{
    EXPECT_EQ(answerOf([] { return uidOfUser("nosuch"); }),
        (Answer{0, "twigctl: Unable to find uid for user nosuch: Success\n"}));
}

TEST_F(UidOfUser, ShowsAnErrorOfTheDatabaseItself)
{
    breakDatabase("/etc/passwd");
    EXPECT_EQ(answerOf([] { return uidOfUser("site"); }),
        (Answer{0, "twigctl: Unable to find uid for user site: Too many levels of symbolic links"
                   "\nSystem error 40: Too many levels of symbolic links\n"}));
}

TEST_F(AccountOfUser, FillsInEverythingAskedFor)
{
    uid_t uid = 0;
    gid_t gid = 0;
    char* home = nullptr;
    EXPECT_EQ(reportsOf([&] { EXPECT_EQ(accountOfUser("site", &uid, &gid, &home), 0); }), "");
    const CString owned(home);
    EXPECT_EQ(uid, site);
    EXPECT_EQ(gid, users);
    EXPECT_STREQ(home, "/srv/www/vhosts/example.test");
}

TEST_F(AccountOfUser, LeavesOutWhatIsNotAskedFor)
{
    uid_t uid = 0;
    gid_t gid = 0;
    char* home = nullptr;
    EXPECT_EQ(accountOfUser("site", nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(accountOfUser("site", &uid, nullptr, nullptr), 0);
    EXPECT_EQ(accountOfUser("other", nullptr, &gid, nullptr), 0);
    EXPECT_EQ(accountOfUser("other", nullptr, nullptr, &home), 0);
    const CString owned(home);
    EXPECT_EQ(uid, site);
    EXPECT_EQ(gid, users);
    EXPECT_STREQ(home, "/home/other");
}

TEST_F(AccountOfUser, GivesAHomeThatOutlivesTheNextLookUp)
{
    char* home = nullptr;
    ASSERT_EQ(accountOfUser("site", nullptr, nullptr, &home), 0);
    const CString owned(home);
    ASSERT_EQ(accountOfUser("other", nullptr, nullptr, nullptr), 0);
    EXPECT_STREQ(home, "/srv/www/vhosts/example.test");
}

TEST_F(AccountOfUser, ReportsAnUnknownUserWithoutASystemErrorAndFillsInNothing)
{
    uid_t uid = 7;
    gid_t gid = 8;
    char nothing[] = "nothing";
    char* home = nothing;
    int result = 0;
    EXPECT_EQ(reportsOf([&] {
        errno = EPERM;
        result = accountOfUser("nosuch", &uid, &gid, &home);
    }),
        "twigctl: Unable to getpwnam for user nosuch\n");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(uid, 7U);
    EXPECT_EQ(gid, 8U);
    EXPECT_EQ(home, nothing);
}

TEST_F(AccountOfUser, ReportsAHomeThatThereIsNoMemoryForAndFillsInNothing)
{
    uid_t uid = 7;
    char* home = nullptr;
    int result = 0;
    EXPECT_EQ(reportsOf([&] {
        faults::fail("strdup", ENOMEM);
        result = accountOfUser("site", &uid, nullptr, &home);
    }),
        "twigctl: Unable to getpwnam for user site\nSystem error 12: Cannot allocate memory\n");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(uid, 7U);
    EXPECT_EQ(home, nullptr);
}

TEST_F(UidOrGidOfUser, GivesTheUidForSelectorZeroAndThePrimaryGroupForAnyOther)
{
    EXPECT_EQ(answerOf([] { return uidOrGidOfUser("site", 0); }), (Answer{site, ""}));
    EXPECT_EQ(answerOf([] { return uidOrGidOfUser("site", 1); }), (Answer{users, ""}));
    EXPECT_EQ(answerOf([] { return uidOrGidOfUser("site", -1); }), (Answer{users, ""}));
}

TEST_F(UidOrGidOfUser, ReportsAnUnknownUserWithoutASystemErrorAndGivesZero)
{
    const Answer expected{0, "twigctl: Unable to getpwnam for user nosuch\n"};
    EXPECT_EQ(answerOf([] { return uidOrGidOfUser("nosuch", 0); }), expected);
    EXPECT_EQ(answerOf([] { return uidOrGidOfUser("nosuch", 1); }), expected);
}

TEST_F(CheckGid, GivesAGroupThatExists)
{
    EXPECT_EQ(answerOf([] { return checkGid(kvoserv); }), (Answer{kvoserv, ""}));
    EXPECT_EQ(answerOf([] { return checkGid(0); }), (Answer{0, ""}));
}

TEST_F(CheckGid, ReportsAnUnknownGroupAsSuccessAndGivesZero)
{
    EXPECT_EQ(
        answerOf([] { return checkGid(4711); }), (Answer{0, "twigctl: getgrgid(4711): Success\n"}));
    EXPECT_EQ(answerOf([] { return checkGid(static_cast<gid_t>(-1)); }),
        (Answer{0, "twigctl: getgrgid(-1): Success\n"}));
}

TEST_F(CheckGid, ShowsAnErrorOfTheDatabaseItself)
{
    breakDatabase("/etc/group");
    EXPECT_EQ(answerOf([] { return checkGid(kvoserv); }),
        (Answer{0, "twigctl: getgrgid(2001): Too many levels of symbolic links"
                   "\nSystem error 40: Too many levels of symbolic links\n"}));
}

TEST_F(CheckGid, ForgetsAnOlderError)
{
    errno = EPERM;
    checkGid(kvoserv);
    EXPECT_EQ(errno, 0);
}

TEST_F(GidOfGroup, GivesTheGidOfAName)
{
    EXPECT_EQ(answerOf([] { return gidOfGroup("kvocln"); }), (Answer{kvocln, ""}));
}

TEST_F(GidOfGroup, ReportsAnUnknownGroupAsSuccessAndGivesZero)
{
    removeGroup("kvoserv");
    EXPECT_EQ(answerOf([] { return gidOfGroup("kvoserv"); }),
        (Answer{0, "twigctl: getgrnam(kvoserv): Success\n"}));
}

TEST_F(GidOfGroup, ShowsAnErrorOfTheDatabaseItself)
{
    breakDatabase("/etc/group");
    EXPECT_EQ(answerOf([] { return gidOfGroup("kvoserv"); }),
        (Answer{0, "twigctl: getgrnam(kvoserv): Too many levels of symbolic links"
                   "\nSystem error 40: Too many levels of symbolic links\n"}));
}

TEST_F(GidOfGroup, ForgetsAnOlderError)
{
    errno = EPERM;
    gidOfGroup("kvoserv");
    EXPECT_EQ(errno, 0);
}

TEST_F(GroupIdFromText, ChecksANumber)
{
    EXPECT_EQ(answerOf([] { return groupIdFromText("2001"); }), (Answer{kvoserv, ""}));
    EXPECT_EQ(answerOf([] { return groupIdFromText("0"); }), (Answer{0, ""}));
    EXPECT_EQ(answerOf([] { return groupIdFromText("0002001"); }), (Answer{kvoserv, ""}));
    EXPECT_EQ(answerOf([] { return groupIdFromText("4711"); }),
        (Answer{0, "twigctl: getgrgid(4711): Success\n"}));
}

TEST_F(GroupIdFromText, LooksZeroUpLikeAnyOtherNumber)
{
    removeGroup("root");
    EXPECT_EQ(answerOf([] { return groupIdFromText("0"); }),
        (Answer{0, "twigctl: getgrgid(0): Success\n"}));
}

TEST_F(GroupIdFromText, TakesAnEmptyTextAsGroupZero)
{
    EXPECT_EQ(answerOf([] { return groupIdFromText(""); }), (Answer{0, ""}));
    removeGroup("root");
    EXPECT_EQ(answerOf([] { return groupIdFromText(""); }),
        (Answer{0, "twigctl: getgrgid(0): Success\n"}));
}

TEST_F(GroupIdFromText, LetsANumberBeyondAnIntWrapAround)
{
    EXPECT_EQ(answerOf([] { return groupIdFromText("99999999999"); }),
        (Answer{0, "twigctl: getgrgid(1215752191): Success\n"}));
    EXPECT_EQ(answerOf([] { return groupIdFromText("99999999999999999999"); }),
        (Answer{0, "twigctl: getgrgid(-1): Success\n"}));
}

TEST_F(GroupIdFromText, LooksAnythingElseUpByName)
{
    EXPECT_EQ(answerOf([] { return groupIdFromText("kvoserv"); }), (Answer{kvoserv, ""}));
    EXPECT_EQ(answerOf([] { return groupIdFromText("-1"); }),
        (Answer{0, "twigctl: getgrnam(-1): Success\n"}));
    EXPECT_EQ(answerOf([] { return groupIdFromText(" 2001"); }),
        (Answer{0, "twigctl: getgrnam( 2001): Success\n"}));
    EXPECT_EQ(answerOf([] { return groupIdFromText("2001x"); }),
        (Answer{0, "twigctl: getgrnam(2001x): Success\n"}));
}
