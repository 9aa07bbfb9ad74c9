#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

#include "site/ParentDirectory.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

using zelto::ParentDirectory;

namespace
{

class ParentDirectoryTest : public World
{
protected:
    static ino_t inodeOf(const std::string& path)
    {
        struct stat status = {};
        (void)stat(path.c_str(), &status);
        return status.st_ino;
    }

    static ino_t inodeOf(int directory)
    {
        struct stat status = {};
        (void)fstat(directory, &status);
        return status.st_ino;
    }

    ParentDirectory parent_;
    faults::Guard guard_;
};

} // namespace

TEST_F(ParentDirectoryTest, IsFoundBelowItsBase)
{
    makeDirs("/srv/a/b/c");
    EXPECT_EQ(inodeOf(parent_.of("/srv/a", "b/c")), inodeOf("/srv/a/b/c"));
    EXPECT_EQ(inodeOf(parent_.of("/srv/a", "")), inodeOf("/srv/a"));
    EXPECT_EQ(inodeOf(parent_.of("/srv/a/", "b")), inodeOf("/srv/a/b"));
    EXPECT_EQ(inodeOf(parent_.of("/", "srv")), inodeOf("/srv"));
}

TEST_F(ParentDirectoryTest, WithoutABaseIsFoundBelowTheWorkingDirectory)
{
    ASSERT_EQ(chdir("/srv/www"), 0);
    EXPECT_EQ(inodeOf(parent_.of("", "")), inodeOf("/srv/www"));
    EXPECT_EQ(inodeOf(parent_.of("", "vhosts")), inodeOf("/srv/www/vhosts"));
}

TEST_F(ParentDirectoryTest, IsOpenedOnceForTheEntriesThatShareIt)
{
    makeDirs("/srv/a/b");
    faults::clear();
    const int directory = parent_.of("/srv/a", "b");
    EXPECT_EQ(parent_.of("/srv/a", "b"), directory);
    EXPECT_EQ(faults::calls("openat2"), 1);
    EXPECT_EQ(faults::calls("openat"), 0);
    EXPECT_EQ(faults::calls("open"), 0);
    EXPECT_EQ(inodeOf(parent_.of("/srv/a", "")), inodeOf("/srv/a"));
    EXPECT_EQ(inodeOf(parent_.of("/srv/a/b", "")), inodeOf("/srv/a/b"));
}

TEST_F(ParentDirectoryTest, ForRemovalIsFoundFromABaseThatIsHeld)
{
    makeDirs("/srv/a/b");
    makeDirs("/srv/a/c");
    makeDirs("/srv/d/c");
    ParentDirectory parent(zelto::MountPoints::leftAlone);
    faults::clear();
    EXPECT_EQ(inodeOf(parent.of("/srv/a", "b")), inodeOf("/srv/a/b"));
    EXPECT_EQ(inodeOf(parent.of("/srv/a", "")), inodeOf("/srv/a"));
    EXPECT_EQ(inodeOf(parent.of("/srv/a", "c")), inodeOf("/srv/a/c"));
    EXPECT_EQ(faults::calls("openat2"), 3);
    EXPECT_EQ(inodeOf(parent.of("/srv/d", "")), inodeOf("/srv/d"));
    EXPECT_EQ(inodeOf(parent.of("/srv/d", "c")), inodeOf("/srv/d/c"));
    EXPECT_EQ(parent.of("/srv/none", "b"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(inodeOf(parent.of("/srv/a", "c")), inodeOf("/srv/a/c"));
}

TEST_F(ParentDirectoryTest, IsTriedAgainWhenItCouldNotBeOpened)
{
    EXPECT_EQ(parent_.of("/srv", "missing"), -1);
    EXPECT_EQ(errno, ENOENT);
    makeDir("/srv/missing");
    EXPECT_EQ(inodeOf(parent_.of("/srv", "missing")), inodeOf("/srv/missing"));
}

TEST_F(ParentDirectoryTest, IsNoFile)
{
    makeFile("/srv/file", "");
    EXPECT_EQ(parent_.of("/srv/file", ""), -1);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(parent_.of("/srv", "file/below"), -1);
    EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(ParentDirectoryTest, FollowsALinkOfRootThatIsItsBase)
{
    makeDirs("/srv/target/a");
    makeLink("/srv/base", "target");
    makeLink("/srv/middle", "/srv");
    for (const char* base : {"/srv/base", "/srv/base/", "/srv/middle/base", "/srv/middle/target"}) {
        EXPECT_EQ(inodeOf(parent_.of(base, "a")), inodeOf("/srv/target/a")) << base;
        EXPECT_EQ(inodeOf(parent_.of(base, "")), inodeOf("/srv/target")) << base;
    }
}

TEST_F(ParentDirectoryTest, RefusesALinkOfSomebodyElseThatIsItsBaseOrOnTheRoadToIt)
{
    makeDirs("/srv/target/deep/a");
    makeLink("/srv/theirs", "target");
    ASSERT_EQ(lchown("/srv/theirs", site, users), 0);
    makeLink("/srv/ours", "theirs");
    ASSERT_EQ(chdir("/srv"), 0);
    for (const char* base : {"/srv/theirs", "/srv/theirs/", "/srv/theirs/deep", "/srv/ours",
             "/srv/ours/deep", "theirs", "./theirs/deep", "/srv/www/../theirs"}) {
        for (const char* below : {"", "deep", "a"}) {
            errno = 0;
            EXPECT_EQ(parent_.of(base, below), -1) << base << ' ' << below;
            EXPECT_EQ(errno, ELOOP) << base << ' ' << below;
        }
    }
}

TEST_F(ParentDirectoryTest, FollowsALinkOfRootBelowTheBase)
{
    makeDirs("/srv/target/deep");
    makeDir("/srv/base");
    makeLink("/srv/base/absolute", "/srv/target");
    makeLink("/srv/base/relative", "../target/deep");
    EXPECT_EQ(inodeOf(parent_.of("/srv/base", "absolute/deep")), inodeOf("/srv/target/deep"));
    EXPECT_EQ(inodeOf(parent_.of("/srv/base", "relative")), inodeOf("/srv/target/deep"));
}

TEST_F(ParentDirectoryTest, RefusesALinkOfSomebodyElseBelowTheBase)
{
    makeDirs("/srv/target/deep");
    makeDir("/srv/base");
    makeLink("/srv/base/link", "/srv/target");
    ASSERT_EQ(lchown("/srv/base/link", site, users), 0);
    for (const char* below : {"link", "link/deep"}) {
        errno = 0;
        EXPECT_EQ(parent_.of("/srv/base", below), -1);
        EXPECT_EQ(errno, ELOOP);
    }
}

TEST_F(ParentDirectoryTest, TellsItsReasonAfterADirectoryThatWasOpen)
{
    EXPECT_GE(parent_.of("/srv", ""), 0);
    EXPECT_EQ(parent_.of("/srv", "missing"), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(ParentDirectoryTest, HoldsOneDescriptorAndLeavesNone)
{
    const size_t before = openDescriptors();
    {
        ParentDirectory parent;
        (void)parent.of("/srv", "www");
        (void)parent.of("/srv", "");
        (void)parent.of("/srv", "www/vhosts");
        EXPECT_EQ(openDescriptors(), before + 1);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(ParentDirectoryTest, GoesBackToWhereItCameFrom)
{
    makeDirs("/srv/base/a/b");
    makeDirs("/srv/base/c");
    makeDirs("/srv/target/deep");
    makeLink("/srv/base/link", "/srv/target/deep");
    EXPECT_EQ(inodeOf(parent_.of("/srv/base", "a/b/..")), inodeOf("/srv/base/a"));
    EXPECT_EQ(inodeOf(parent_.of("/srv/base", "a/b/../../c")), inodeOf("/srv/base/c"));
    EXPECT_EQ(inodeOf(parent_.of("/srv/base", "a/..")), inodeOf("/srv/base"));
    EXPECT_EQ(inodeOf(parent_.of("/srv/base", "link/../a")), inodeOf("/srv/base/a"));
    EXPECT_EQ(inodeOf(parent_.of("/srv/base", "./a/./../a/.")), inodeOf("/srv/base/a"));
    EXPECT_EQ(inodeOf(parent_.of("/srv/base", "a/b/")), inodeOf("/srv/base/a/b"));
}

TEST_F(ParentDirectoryTest, GoesBackAlsoWhenTheDirectoryIsElsewhereByNow)
{
    makeDirs("/srv/base/a/b");
    makeDirs("/srv/elsewhere");
    // "a/b" and "a" were gone back from; now "a" is sought anew.
    faults::runBefore(
        "openat2", 3, [] { ASSERT_EQ(rename("/srv/base/a", "/srv/elsewhere/a"), 0); });
    EXPECT_EQ(parent_.of("/srv/base", "a/b/../../a"), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(ParentDirectoryTest, IsNeverAboveItsBase)
{
    makeDirs("/srv/base/a");
    for (const char* below : {"..", "../base", "a/../..", "./..", "a/../../base/a"}) {
        errno = 0;
        EXPECT_EQ(parent_.of("/srv/base", below), -1) << below;
        EXPECT_EQ(errno, EPERM) << below;
    }
}
