#include "fsutil/NewDirectory.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

constexpr auto sameGroup = static_cast<gid_t>(-1);

class NewDirectoryTest : public World
{
protected:
    NewDirectoryTest() : parent_(open("/srv", O_PATH | O_DIRECTORY | O_CLOEXEC)) {}

    NewDirectory made(const char* name = "new", uid_t owner = sameOwner)
    {
        return {parent_.get(), name, owner};
    }

    /// What keeps a directory from being made: the error's name, or "".
    std::string refusal(const char* name = "new", uid_t owner = sameOwner)
    {
        errno = 0;
        const NewDirectory directory(parent_.get(), name, owner);
        return directory ? "" : strerrorname_np(errno);
    }

    Descriptor parent_;
    faults::Guard guard_;
};

} // namespace

TEST_F(NewDirectoryTest, CannotBeUsedByAnybodyUntilItsModeComesWhateverTheUmask)
{
    for (const mode_t mask : {0U, 022U, 0777U}) {
        umask(mask);
        const std::string path = "/srv/" + std::to_string(mask);
        NewDirectory directory = made(path.c_str() + 5, site);
        EXPECT_TRUE(directory);
        EXPECT_EQ(accessOf(path), "1000 root:root");
        EXPECT_EQ(directory.giveOwner(kvoserv), 0);
        EXPECT_EQ(accessOf(path), "1000 site:kvoserv");
        EXPECT_EQ(directory.giveMode(0750), 0);
        EXPECT_EQ(accessOf(path), "0750 site:kvoserv");
    }
}

TEST_F(NewDirectoryTest, KeepsTheIdsThatAreNotGiven)
{
    EXPECT_EQ(made().giveOwner(kvoserv), 0);
    EXPECT_EQ(accessOf("/srv/new"), "1000 root:kvoserv");
    EXPECT_EQ(made("new", site).giveOwner(sameGroup), 0);
    EXPECT_EQ(accessOf("/srv/new"), "1000 site:kvoserv");
}

TEST_F(NewDirectoryTest, IsGivenAwayAsADirectoryToLookThingsUpIn)
{
    const size_t before = openDescriptors();
    NewDirectory directory = made();
    const Descriptor taken = directory.release();
    EXPECT_FALSE(directory);
    EXPECT_EQ(fcntl(taken.get(), F_GETFL) & O_PATH, O_PATH);
    EXPECT_EQ(fcntl(taken.get(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(mkdirat(taken.get(), "below", 0755), 0);
    EXPECT_TRUE(exists("/srv/new/below"));
    EXPECT_EQ(openDescriptors(), before + 1);
}

TEST_F(NewDirectoryTest, TellsTheSetGroupIdBitThatItsParentPassedOn)
{
    makeDir("/srv/shared", {02775, 0, users});
    EXPECT_EQ(made("shared/new").inheritedMode(), static_cast<mode_t>(S_ISGID));
    EXPECT_EQ(accessOf("/srv/shared/new"), "3000 root:users");
    EXPECT_EQ(made().inheritedMode(), 0U);
}

TEST_F(NewDirectoryTest, IsFoundAsAnEarlierRunLeftIt)
{
    makeDir("/srv/new", {01000});
    makeDir("/srv/shared", {03000, 0, users});
    NewDirectory found = made("new", site);
    EXPECT_TRUE(found);
    EXPECT_EQ(found.inheritedMode(), 0U);
    EXPECT_EQ(found.giveOwner(kvoserv), 0);
    EXPECT_EQ(found.giveMode(0755), 0);
    EXPECT_EQ(accessOf("/srv/new"), "0755 site:kvoserv");
    EXPECT_EQ(made("shared").inheritedMode(), static_cast<mode_t>(S_ISGID));
}

TEST_F(NewDirectoryTest, IsFoundWhenItHasItsOwnerButNotItsMode)
{
    EXPECT_EQ(made("new", site).giveOwner(kvoserv), 0);
    NewDirectory found = made("new", site);
    EXPECT_TRUE(found);
    EXPECT_EQ(found.giveOwner(kvoserv), 0);
    EXPECT_EQ(found.giveMode(0750), 0);
    EXPECT_EQ(accessOf("/srv/new"), "0750 site:kvoserv");
}

TEST_F(NewDirectoryTest, IsNothingThatSomebodyHasSetUp)
{
    makeDir("/srv/usual");
    makeDir("/srv/closed", {0});
    makeDir("/srv/sticky", {01755});
    makeDir("/srv/searched", {01001});
    makeDir("/srv/program", {05000});
    makeDir("/srv/of another", {01000, site, users});
    makeFile("/srv/file", "x", {01000});
    makeFifo("/srv/fifo", {01000});
    makeDir("/srv/target", {01000});
    makeLink("/srv/link", "target");
    makeLink("/srv/dangling", "none");
    const std::string before = treeOf("/srv");
    const size_t descriptors = openDescriptors();
    for (const char* name : {"usual", "closed", "sticky", "searched", "program", "of another",
             "file", "fifo", "link", "dangling"}) {
        EXPECT_EQ(refusal(name), "EEXIST") << name;
        EXPECT_EQ(refusal(name, other), "EEXIST") << name;
    }
    EXPECT_EQ(treeOf("/srv"), before);
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(NewDirectoryTest, IsNotWhatTookItsPlaceBeforeItWasHeld)
{
    makeDir("/srv/innocent", {0711, other, users});
    static const char* linked = nullptr;
    for (const char* target : {"/srv/innocent", "/srv/none"}) {
        linked = target;
        faults::runBefore("openat", 1, [] {
            ASSERT_EQ(rmdir("/srv/new"), 0);
            makeLink("/srv/new", linked);
        });
        EXPECT_EQ(refusal(), "ENOTDIR");
        ASSERT_EQ(unlink("/srv/new"), 0);
    }
    faults::runBefore("openat", 1, [] {
        ASSERT_EQ(rmdir("/srv/new"), 0);
        ASSERT_EQ(rename("/srv/innocent", "/srv/new"), 0);
    });
    EXPECT_EQ(refusal(), "EEXIST");
    EXPECT_EQ(accessOf("/srv/new"), "0711 other:users");
}

TEST_F(NewDirectoryTest, IsNotWhatTookThePlaceOfTheOneThatWasFound)
{
    makeDir("/srv/new", {01000});
    makeDir("/srv/theirs", {01000, site, users});
    faults::runBefore("openat", 1, [] {
        ASSERT_EQ(rmdir("/srv/new"), 0);
        ASSERT_EQ(rename("/srv/theirs", "/srv/new"), 0);
    });
    EXPECT_EQ(refusal(), "EEXIST");
    EXPECT_EQ(accessOf("/srv/new"), "1000 site:users");
}

TEST_F(NewDirectoryTest, IsTheOneThatIsHeldWhateverItsNameMeansLater)
{
    makeDir("/srv/innocent");
    NewDirectory directory = made("new", site);
    ASSERT_EQ(rename("/srv/new", "/srv/moved"), 0);
    makeLink("/srv/new", "/srv/innocent");
    EXPECT_EQ(directory.giveOwner(kvoserv), 0);
    EXPECT_EQ(directory.giveMode(0700), 0);
    EXPECT_EQ(accessOf("/srv/moved"), "0700 site:kvoserv");
    EXPECT_EQ(accessOf("/srv/innocent"), "0755 root:root");
}

TEST_F(NewDirectoryTest, TellsWhyItCouldNotBeMadeOrHeld)
{
    const size_t before = openDescriptors();
    EXPECT_FALSE(NewDirectory());
    faults::fail("mkdirat", ENOSPC);
    EXPECT_EQ(refusal(), "ENOSPC");
    EXPECT_FALSE(exists("/srv/new"));
    faults::fail("openat", EMFILE);
    EXPECT_EQ(refusal(), "EMFILE");
    faults::fail("fstatat", EIO);
    EXPECT_EQ(refusal(), "EEXIST");
    faults::fail("fstat", EIO);
    EXPECT_EQ(refusal(), "EIO");
    faults::runBefore("openat", 1, [] { ASSERT_EQ(rmdir("/srv/new"), 0); });
    EXPECT_EQ(refusal(), "ENOENT");
    EXPECT_EQ(refusal("none/new"), "ENOENT");
    EXPECT_EQ(refusal("www/vhosts"), "EEXIST");
    EXPECT_EQ(refusal(std::string(256, 'n').c_str()), "ENAMETOOLONG");
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(NewDirectoryTest, TellsWhyItsOwnerOrModeCouldNotBeSet)
{
    NewDirectory directory = made("new", site);
    faults::fail("fchownat", EDQUOT);
    EXPECT_EQ(directory.giveOwner(kvoserv), -1);
    EXPECT_EQ(errno, EDQUOT);
    faults::fail("fchmodat2", EROFS);
    EXPECT_EQ(directory.giveMode(0755), -1);
    EXPECT_EQ(errno, EROFS);
    EXPECT_EQ(accessOf("/srv/new"), "1000 root:root");
}

TEST_F(NewDirectoryTest, CanBeMadeAndFoundByAUserWithoutPrivileges)
{
    makeDir("/srv/home", {0755, site, users});
    makeDir("/srv/home/found", {01000, site, users});
    makeDir("/srv/home/root's", {01000});
    const Outcome end = inChild([&] {
        ASSERT_EQ(setgid(users) | setuid(site), 0);
        faults::failAlways("fchmodat2", ENOSYS);
        for (const char* name : {"home/made", "home/found"}) {
            NewDirectory directory = made(name, site);
            EXPECT_EQ(directory.giveOwner(users), 0) << name;
            EXPECT_EQ(directory.giveMode(0750), 0) << name;
        }
        EXPECT_EQ(refusal("home/root's"), "EEXIST");
        EXPECT_EQ(refusal("new"), "EACCES");
        std::exit(HasFailure() ? 1 : 0);
    });
    EXPECT_EQ(end.status, 0) << end.out;
    EXPECT_EQ(treeOf("/srv/home"), "dir  0755 site:users .\n"
                                   "dir  0750 site:users found\n"
                                   "dir  0750 site:users made\n"
                                   "dir  1000 root:root root's\n");
}
