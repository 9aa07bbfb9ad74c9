#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <ostream>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fsutil/Descriptor.h"
#include "fsutil/MountPoint.h"
#include "fsutil/TreeWalkers.h"
#include "tests/lib/Faults.h"
#include "tests/lib/MissingCalls.h"
#include "tests/lib/Mount.h"
#include "tests/lib/World.h"

namespace
{

/// The kinds of mounts, and the calls that tell them: openat2(2), and for the top statx(2) or
/// renameat(2).
struct Case {
    const char* name;
    bool bind;
    int openat2Error;         ///< 0 = it is there
    int statxError;           ///< the same
    const char* missing = ""; ///< what else is (see tests/lib/MissingCalls.h)

    friend std::ostream& operator<<(std::ostream& out, const Case& shown)
    {
        return out << shown.name;
    }
};

class MountPointRemoval : public World, public ::testing::WithParamInterface<Case>
{
protected:
    MountPointRemoval()
    {
        makeDirs("/srv/t/a/m");
        makeDirs("/srv/elsewhere");
        if (GetParam().bind) {
            mount_.emplace("/srv/elsewhere", "/srv/t/a/m");
        } else {
            mount_.emplace("/srv/t/a/m");
        }
        makeDirs("/srv/t/a/m/kept");
        makeFile("/srv/t/a/m/file", "kept");
    }

    ~MountPointRemoval() override { faults::clear(); }

    static Outcome removed(const char* path, int removeTop, const char* from = "/")
    {
        return inChild([=] {
            ASSERT_EQ(chdir(from), 0);
            if (GetParam().openat2Error != 0) {
                faults::failAlways("openat2", GetParam().openat2Error);
            }
            if (GetParam().statxError != 0) {
                faults::failAlways("statx", GetParam().statxError);
            }
            if (*GetParam().missing != '\0') {
                takeAwayCalls(GetParam().missing);
            }
            removeTree(path, removeTop);
        });
    }

    /// @param error what only rmdir(2) can tell, if nothing else does.
    static void expectBusy(const Outcome& end, const std::string& what, int error = EBUSY)
    {
        const bool isToldOtherwise = *GetParam().missing == '\0';
        const int number = isToldOtherwise ? EBUSY : error;
        const std::string text = strerror(number);
        EXPECT_EQ(end.err,
            what + ": " + text + "\n\nSystem error " + std::to_string(number) + ": " + text + '\n');
        EXPECT_EQ(end.out, end.err);
        EXPECT_EQ(end.status, 1);
    }

    static void expectUntouched(const std::string& path = "/srv/t/a/m")
    {
        EXPECT_EQ(treeOf(path), "dir  0755 root:root .\n"
                                "file 0644 root:root file \"kept\"\n"
                                "dir  0755 root:root kept\n");
    }

    std::optional<Mount> mount_;
};

INSTANTIATE_TEST_SUITE_P(Each, MountPointRemoval,
    ::testing::Values(Case{"OtherFileSystem", false, 0, 0}, Case{"SameFileSystem", true, 0, 0},
        Case{"OtherFileSystemOnAnOlderKernel", false, ENOSYS, ENOSYS},
        Case{"SameFileSystemOnAnOlderKernel", true, ENOSYS, ENOSYS},
        Case{"SameFileSystemBehindAFilter", true, EPERM, EPERM},
        Case{"OtherFileSystemWithoutStatx", false, 0, EINVAL},
        Case{"SameFileSystemWithoutOpenat2", true, ENOSYS, 0},
        Case{"OtherFileSystemWithoutAnyAnswer", false, 0, ENOSYS, "renameat:ENOSYS"},
        Case{"SameFileSystemWithoutAnyAnswer", true, ENOSYS, ENOSYS, "renameat:ENOSYS"},
        Case{"SameFileSystemWithAllAnswersForbidden", true, EPERM, EPERM, "renameat:EPERM"}),
    [](const auto& parameter) { return std::string(parameter.param.name); });

using IsMountPoint = World;

} // namespace

TEST_P(MountPointRemoval, EndsAtAMountPointInTheTreeWithoutTouchingWhatIsMounted)
{
    expectBusy(removed("/srv/t", 1), "Unable to remove dir m");
    expectUntouched();
    expectBusy(removed("/srv/t", 0), "Unable to remove dir m");
    expectUntouched();
    expectBusy(removed("/srv/t/a", 1), "Unable to remove dir m");
    expectUntouched();
}

TEST_P(MountPointRemoval, EndsAtAnEmptyMountPointToo)
{
    ASSERT_EQ(rmdir("/srv/t/a/m/kept") | unlink("/srv/t/a/m/file"), 0);
    expectBusy(removed("/srv/t", 1), "Unable to remove dir m");
    EXPECT_TRUE(exists("/srv/t/a/m"));
}

TEST_P(MountPointRemoval, EndsAtAMountPointWhoseTypeIsUnknown)
{
    faults::hideEntryTypes(true);
    expectBusy(removed("/srv/t", 1), "Unable to remove dir m");
    expectUntouched();
}

TEST_P(MountPointRemoval, EndsAtAMountPointDeepInATree)
{
    mount_.reset();
    std::string deep = "/srv/t/a/m";
    for (int level = 0; level < 60; ++level) {
        deep += "/d";
    }
    makeDirs(deep);
    makeDirs("/srv/source/kept");
    makeFile("/srv/source/file", "kept");
    const Mount bound("/srv/source", deep);
    expectBusy(removed("/srv/t", 1), "Unable to remove dir d");
    expectUntouched("/srv/source");
}

TEST_P(MountPointRemoval, IsRefusedByThePathAsGivenBeforeAnythingIsTouched)
{
    expectBusy(removed("/srv/t/a/m", 1), "Unable to remove dir /srv/t/a/m");
    expectUntouched();
    expectBusy(removed("/srv/t/a/m/", 1), "Unable to remove dir /srv/t/a/m/");
    expectUntouched();
    expectBusy(removed("a/m", 1, "/srv/t"), "Unable to remove dir a/m");
    expectUntouched();
}

TEST_P(MountPointRemoval, IsRefusedByEveryNameOfTheMountPointBeforeAnythingIsTouched)
{
    makeLink("/srv/link", "/srv/t/a/m");
    expectBusy(removed("/srv/link/", 1), "Unable to remove dir /srv/link/", ENOTDIR);
    expectUntouched();
    for (const std::string name : {".", "./", "/srv/t/a/m/.", "kept/../."}) {
        expectBusy(removed(name.c_str(), 1, "/srv/t/a/m"), "Unable to remove dir " + name, EINVAL);
        expectUntouched();
    }
    for (const std::string name : {"..", "..//", "/srv/t/a/m/kept/.."}) {
        expectBusy(
            removed(name.c_str(), 1, "/srv/t/a/m/kept"), "Unable to remove dir " + name, ENOTEMPTY);
        expectUntouched();
    }
}

TEST_P(MountPointRemoval, IsRefusedAlsoWhereWhatItIsMountedInIsReadOnly)
{
    // What rmdir(2) says there is the same for every directory.
    mount_.reset();
    const Mount outer("/srv/t", "/srv/t");
    makeDirs("/srv/t/a/m");
    const Mount inner("/srv/elsewhere", "/srv/t/a/m");
    makeDirs("/srv/t/a/m/kept");
    makeFile("/srv/t/a/m/file", "kept");
    ASSERT_EQ(mount("", "/srv/t", "none", MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
    expectBusy(removed("/srv/t/a/m", 1), "Unable to remove dir /srv/t/a/m", EROFS);
    expectUntouched();
    const Outcome end = removed("/srv/t/a", 0);
    const bool isTold = *GetParam().missing == '\0' || GetParam().openat2Error == 0;
    EXPECT_EQ(end.err.substr(0, end.err.find('\n')),
        isTold ? "Unable to remove dir m: Device or resource busy"
               : "Unable to open dir m: Read-only file system");
    EXPECT_EQ(end.status, 1);
    expectUntouched();
}

TEST_P(MountPointRemoval, EmptiesAPathThatIsAMountPointItselfIfItIsToStay)
{
    const Outcome end = removed("/srv/t/a/m", 0);
    EXPECT_EQ(end.out + end.err, "");
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(treeOf("/srv/t/a/m"), "dir  0755 root:root .\n");
}

TEST_P(MountPointRemoval, EndsAtAMountPointInsideAnother)
{
    makeDirs("/srv/source/kept");
    makeFile("/srv/source/file", "kept");
    const Mount bound("/srv/source", "/srv/t/a/m/kept");
    expectBusy(removed("/srv/t/a/m", 0), "Unable to remove dir kept");
    expectUntouched("/srv/source");
}

TEST_P(MountPointRemoval, DoesNotUnlinkAFileThatSomethingIsMountedOn)
{
    makeDir("/srv/one");
    makeFile("/srv/one/file", "below");
    makeFile("/srv/source", "kept");
    const Mount bound("/srv/source", "/srv/one/file");
    expectBusy(removed("/srv/one", 1), "Unable to unlink directory entry file");
    expectBusy(removed("/srv/one/file", 1), "Unable to unlink entry /srv/one/file");
    EXPECT_EQ(contentOf("/srv/one/file"), "kept");
}

TEST_P(MountPointRemoval, RemovesATreeWithoutMountPointsAllTheSame)
{
    mount_.reset();
    makeDirs("/srv/t/b/c");
    makeDirs("/srv/t/b/empty");
    makeFile("/srv/t/b/c/file", "x");
    makeLink("/srv/t/b/link", "/srv/elsewhere");
    const Outcome end = removed("/srv/t", 1);
    EXPECT_EQ(end.out + end.err, "");
    EXPECT_EQ(end.status, 0);
    EXPECT_FALSE(exists("/srv/t"));
    makeDir("/srv/empty");
    EXPECT_EQ(removed("/srv/empty", 1).status, 0);
    EXPECT_FALSE(exists("/srv/empty"));
}

TEST_P(MountPointRemoval, PassesOverADirectoryThatVanishesBeforeItIsOpened)
{
    makeDirs("/srv/one/a");
    const Outcome end = inChild([] {
        if (GetParam().openat2Error != 0) {
            faults::failAlways("openat2", GetParam().openat2Error);
            faults::runBefore("unlinkat", 1, [] { ASSERT_EQ(rmdir("/srv/one/a"), 0); });
        } else {
            faults::runBefore("openat2", 2, [] { ASSERT_EQ(rmdir("/srv/one/a"), 0); });
        }
        removeTree("/srv/one", 0);
    });
    EXPECT_EQ(end.out + end.err, "");
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(treeOf("/srv/one"), "dir  0755 root:root .\n");
}

TEST_F(IsMountPoint, DoesNotCallADirectoryThatCannotBeExaminedNoMountPoint)
{
    const Descriptor directory(open("/srv/www", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const faults::Guard guard;
    faults::failAlways("statx", ENOSYS);
    EXPECT_EQ(isMountPoint(directory.get()), false);
    for (const char* function : {"fstat", "fstatat"}) {
        faults::fail(function, EIO);
        EXPECT_EQ(isMountPoint(directory.get()), std::nullopt) << function;
    }
}
