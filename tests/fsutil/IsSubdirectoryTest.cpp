#include "fsutil/Directories.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/fsutil/Reports.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

ino_t inodeOf(const char* path)
{
    struct stat status = {};
    EXPECT_EQ(stat(path, &status), 0);
    return status.st_ino;
}

/// A few directories, and a current directory of its own that every test must find again.
class IsSubdirectory : public World
{
protected:
    faults::Guard guard_;

    IsSubdirectory() : descriptors_(openDescriptors())
    {
        makeDirs("/srv/a/b/c");
        makeDir("/srv/a/bc");
        makeDirs("/srv/here/deeper");
        makeFile("/srv/a/file", "");
        makeLink("/srv/link", "a");
        makeLink("/srv/a/link", "b");
        EXPECT_EQ(chdir("/srv/here"), 0);
        here_ = inodeOf(".");
    }
    ~IsSubdirectory() override
    {
        EXPECT_EQ(inodeOf("."), here_) << "the current directory is another one";
        EXPECT_EQ(openDescriptors(), descriptors_);
    }

    static int answer(const char* path, const char* parent)
    {
        int result = -1;
        EXPECT_EQ(reportsOf([&] { result = isSubdirectory(path, parent); }), "");
        return result;
    }

    size_t descriptors_;
    ino_t here_ = 0;
};

} // namespace

TEST_F(IsSubdirectory, HoldsAtAnyDepth)
{
    EXPECT_EQ(answer("/srv/a/b", "/srv/a"), 1);
    EXPECT_EQ(answer("/srv/a/b/c", "/srv/a"), 1);
    EXPECT_EQ(answer("/srv/a/b/c", "/srv"), 1);
}

TEST_F(IsSubdirectory, DoesNotHoldForTheDirectoryItselfOrTheOtherWayRound)
{
    EXPECT_EQ(answer("/srv/a", "/srv/a"), 0);
    EXPECT_EQ(answer("/srv/a", "/srv/a/b"), 0);
    EXPECT_EQ(answer("/", "/"), 0);
}

TEST_F(IsSubdirectory, ComparesWholeNames)
{
    EXPECT_EQ(answer("/srv/a/bc", "/srv/a/b"), 0);
    EXPECT_EQ(answer("/srv/here", "/srv/a"), 0);
}

TEST_F(IsSubdirectory, NeverHoldsForTheRootAsTheParent)
{
    EXPECT_EQ(answer("/srv", "/"), 0);
    EXPECT_EQ(answer("/srv/a", "/"), 0);
}

TEST_F(IsSubdirectory, ResolvesNames)
{
    EXPECT_EQ(answer("/srv/here/../a//b/.", "/srv/a/"), 1);
    EXPECT_EQ(answer("/srv/a/..", "/srv/a"), 0);
    EXPECT_EQ(answer("/srv/link/b", "/srv/a"), 1);
    EXPECT_EQ(answer("/srv/a/b", "/srv/link/b/.."), 1);
}

TEST_F(IsSubdirectory, TakesALinkForADirectoryOnlyWithASlashBehindIt)
{
    EXPECT_EQ(answer("/srv/a/link", "/srv/a"), 0);
    EXPECT_EQ(answer("/srv/a/b", "/srv/link"), 0);
    EXPECT_EQ(answer("/srv/a/link/", "/srv/a"), 1);
    EXPECT_EQ(answer("/srv/a/b", "/srv/link/"), 1);
}

TEST_F(IsSubdirectory, DoesNotHoldForWhatIsNoDirectory)
{
    EXPECT_EQ(answer("/srv/a/file", "/srv/a"), 0);
    EXPECT_EQ(answer("/srv/a/b", "/srv/a/file"), 0);
    EXPECT_EQ(answer("/srv/a/none", "/srv/a"), 0);
    EXPECT_EQ(answer("/srv/a/b", "/srv/none"), 0);
    EXPECT_EQ(answer("", ""), 0);
}

TEST_F(IsSubdirectory, TakesARelativePathFromTheCurrentDirectory)
{
    EXPECT_EQ(answer("../a/b", "/srv/a"), 1);
    EXPECT_EQ(answer("deeper", "/srv/here"), 1);
    EXPECT_EQ(answer(".", "/srv"), 1);
}

TEST_F(IsSubdirectory, LooksARelativeParentUpFromInsideThePath)
{
    EXPECT_EQ(answer("/srv/here/deeper", "."), 0);
    EXPECT_EQ(answer("/srv/a/b", ".."), 1);
    EXPECT_EQ(answer("/srv/here/deeper", "deeper"), 0);
}

TEST_F(IsSubdirectory, ReturnsToACurrentDirectoryWhoseNameIsGone)
{
    ASSERT_EQ(chdir("deeper"), 0);
    here_ = inodeOf(".");
    ASSERT_EQ(rmdir("/srv/here/deeper"), 0);
    EXPECT_EQ(answer("/srv/a/b", "/srv/a"), 1);
}

TEST_F(IsSubdirectory, ReturnsByNameWhenTheDescriptorIsRefused)
{
    faults::fail("open", EMFILE);
    EXPECT_EQ(answer("/srv/a/b", "/srv/a"), 1);
    EXPECT_EQ(faults::calls("open"), 1);
    faults::fail("fchdir", EACCES);
    EXPECT_EQ(answer("/srv/a/b", "/srv/a"), 1);
    EXPECT_EQ(faults::calls("fchdir"), 1);
}

TEST_F(IsSubdirectory, DoesNotHoldWhenANameCannotBeTold)
{
    faults::fail("getcwd", ENOENT, 2);
    EXPECT_EQ(answer("/srv/a/b", "/srv/a"), 0);
    faults::clear();
    faults::fail("getcwd", ENOENT, 3);
    EXPECT_EQ(answer("/srv/a/b", "/srv/a"), 0);
}

TEST_F(IsSubdirectory, TakesThePlaceItIsInForADirectoryThatCannotBeEntered)
{
    faults::fail("chdir", EACCES);
    EXPECT_EQ(answer("/srv/a/b", "/srv/a"), 0) << "the path counts as the current directory";
    faults::clear();
    faults::fail("chdir", EACCES);
    EXPECT_EQ(answer("/srv/a/b", "/srv"), 1) << "the path counts as the current directory";
    faults::clear();
    faults::fail("chdir", EACCES, 2);
    EXPECT_EQ(answer("/srv/a/b", "/srv/a"), 0) << "the parent counts as the path";
}
