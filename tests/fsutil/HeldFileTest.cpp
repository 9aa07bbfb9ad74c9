#include "fsutil/HeldFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>

#include "fsutil/Descriptor.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

/// With fchmodat2(2) a mode takes one call; without it, or behind a filter, there are other ways.
struct Way {
    const char* name;
    int error; ///< of fchmodat2(2); 0 = it is there
};

class HeldFile : public World, public ::testing::WithParamInterface<Way>
{
protected:
    HeldFile()
    {
        makeDir("/srv/directory");
        makeFile("/srv/file", "x");
        makeFifo("/srv/fifo");
        makeSocket("/srv/socket");
        makeDevice("/srv/device");
    }

    /// Gives what a path names a mode: "", else the error's name.
    static std::string changed(
        const char* path, mode_t mode, const std::function<void(int file)>& meanwhile = [](int) {})
    {
        return inChild([&] {
            if (GetParam().error != 0) {
                faults::failAlways("fchmodat2", GetParam().error);
            }
            const Descriptor file(open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC));
            meanwhile(file.get());
            const int result = changeModeOfHeld(file.get(), mode);
            const char* text = result == 0 ? "" : strerrorname_np(errno);
            (void)!write(STDOUT_FILENO, text, strlen(text));
            _exit(0); // a leak checker needs the /proc that is not always here
        }).out;
    }

    faults::Guard guard_;
};

INSTANTIATE_TEST_SUITE_P(Each, HeldFile,
    ::testing::Values(
        Way{"InOneCall", 0}, Way{"OnAnOlderKernel", ENOSYS}, Way{"BehindAFilter", EPERM}),
    [](const auto& way) { return std::string(way.param.name); });

using HeldFileOwner = World;

} // namespace

TEST_P(HeldFile, GetsExactlyThisModeWhateverItsType)
{
    umask(077);
    for (const char* path :
        {"/srv/directory", "/srv/file", "/srv/fifo", "/srv/socket", "/srv/device"}) {
        EXPECT_EQ(changed(path, 06751), "") << path;
        EXPECT_EQ(accessOf(path), "6751 root:root") << path;
        EXPECT_EQ(changed(path, 0), "") << path;
        EXPECT_EQ(accessOf(path), "0000 root:root") << path;
    }
}

TEST_P(HeldFile, GetsItsModeWhereverItIsByNow)
{
    makeDir("/srv/innocent");
    for (const char* path : {"/srv/directory", "/srv/file"}) {
        const auto exchange = [path](int) {
            ASSERT_EQ(rename(path, "/srv/moved"), 0);
            makeLink(path, "/srv/innocent");
        };
        EXPECT_EQ(changed(path, 0640, exchange), "");
        EXPECT_EQ(accessOf("/srv/moved"), "0640 root:root");
        EXPECT_EQ(accessOf("/srv/innocent"), "0755 root:root");
        ASSERT_EQ(runProgram("/bin/rm", {"rm", "-r", "/srv/moved"}).status, 0);
    }
}

TEST_P(HeldFile, GetsItsModeFromAnOwnerWhoMayNotOpenIt)
{
    const auto becomeOwner = [](int) { ASSERT_EQ(setgid(users) | setuid(site), 0); };
    for (const char* path : {"/srv/directory", "/srv/file", "/srv/fifo"}) {
        ASSERT_EQ(chown(path, site, users) | chmod(path, 0), 0);
        EXPECT_EQ(changed(path, 0750, becomeOwner), "") << path;
        EXPECT_EQ(accessOf(path), "0750 site:users") << path;
    }
}

TEST_P(HeldFile, KeepsItsModeFromSomebodyElse)
{
    const auto becomeOther = [](int) { ASSERT_EQ(setgid(users) | setuid(site), 0); };
    for (const char* path : {"/srv/directory", "/srv/file"}) {
        const std::string before = accessOf(path);
        EXPECT_EQ(changed(path, 0777, becomeOther), "EPERM") << path;
        EXPECT_EQ(accessOf(path), before) << path;
    }
}

TEST_P(HeldFile, NeedsProcOnlyWhereTheCallIsMissingAndItIsNoDirectory)
{
    const PrivateDirectory noProc("/proc");
    EXPECT_EQ(changed("/srv/directory", 0700), "");
    EXPECT_EQ(accessOf("/srv/directory"), "0700 root:root");
    EXPECT_EQ(changed("/srv/file", 0600), GetParam().error == 0 ? "" : "ENOENT");
    EXPECT_EQ(accessOf("/srv/file"), GetParam().error == 0 ? "0600 root:root" : "0644 root:root");
}

TEST_P(HeldFile, ReportsWhatTheLastWaySaid)
{
    const char* directoryCall = GetParam().error == 0 ? "fchmodat2" : "fchmod";
    const char* fileCall = GetParam().error == 0 ? "fchmodat2" : "chmod";
    EXPECT_EQ(changed("/srv/directory", 0, [=](int) { faults::failAlways(directoryCall, EROFS); }),
        "EROFS");
    EXPECT_EQ(changed("/srv/file", 0, [=](int) { faults::failAlways(fileCall, EROFS); }), "EROFS");
    EXPECT_EQ(accessOf("/srv/directory"), "0755 root:root");
    EXPECT_EQ(accessOf("/srv/file"), "0644 root:root");
}

TEST_P(HeldFile, LeavesNoDescriptorOpen)
{
    for (const char* path : {"/srv/directory", "/srv/file"}) {
        const Outcome end = inChild([path] {
            if (GetParam().error != 0) {
                faults::failAlways("fchmodat2", GetParam().error);
            }
            const Descriptor file(open(path, O_PATH | O_CLOEXEC));
            const size_t before = openDescriptors();
            EXPECT_EQ(changeModeOfHeld(file.get(), 0600), 0);
            EXPECT_EQ(openDescriptors(), before);
            std::exit(HasFailure() ? 1 : 0);
        });
        EXPECT_EQ(end.status, 0) << end.out;
    }
}

TEST_F(HeldFileOwner, IsSetWhateverTheType)
{
    makeDir("/srv/directory");
    makeFile("/srv/file", "x");
    makeFifo("/srv/fifo");
    makeLink("/srv/link", "/srv/directory");
    for (const char* path : {"/srv/directory", "/srv/file", "/srv/fifo", "/srv/link"}) {
        const std::string mode = accessOf(path).substr(0, 4);
        const Descriptor file(open(path, O_PATH | O_NOFOLLOW | O_CLOEXEC));
        EXPECT_EQ(changeOwnerOfHeld(file.get(), site, kvoserv), 0);
        EXPECT_EQ(accessOf(path), mode + " site:kvoserv");
        EXPECT_EQ(changeOwnerOfHeld(file.get(), static_cast<uid_t>(-1), users), 0);
        EXPECT_EQ(accessOf(path), mode + " site:users");
        EXPECT_EQ(changeOwnerOfHeld(file.get(), other, static_cast<gid_t>(-1)), 0);
        EXPECT_EQ(accessOf(path), mode + " other:users");
    }
}

TEST_F(HeldFileOwner, IsThatOfTheFileThatWasFoundWhereverItIsByNow)
{
    makeDir("/srv/directory");
    makeDir("/srv/innocent");
    const Descriptor file(open("/srv/directory", O_PATH | O_CLOEXEC));
    ASSERT_EQ(rename("/srv/directory", "/srv/moved"), 0);
    makeLink("/srv/directory", "/srv/innocent");
    EXPECT_EQ(changeOwnerOfHeld(file.get(), site, kvoserv), 0);
    EXPECT_EQ(accessOf("/srv/moved"), "0755 site:kvoserv");
    EXPECT_EQ(accessOf("/srv/innocent"), "0755 root:root");
}

TEST_F(HeldFileOwner, StaysWhenItMayNotBeSet)
{
    makeFile("/srv/file", "x");
    const Outcome end = inChild([] {
        ASSERT_EQ(setgid(users) | setuid(site), 0);
        const Descriptor file(open("/srv/file", O_PATH | O_CLOEXEC));
        std::exit(changeOwnerOfHeld(file.get(), site, users) == -1 && errno == EPERM ? 7 : 8);
    });
    EXPECT_EQ(end.status, 7);
    EXPECT_EQ(accessOf("/srv/file"), "0644 root:root");
    EXPECT_EQ(changeOwnerOfHeld(-1, site, users), -1);
    EXPECT_EQ(errno, EBADF);
}
