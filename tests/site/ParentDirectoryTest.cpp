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

TEST_F(ParentDirectoryTest, APathsLastSlashDividesDirectoryAndName)
{
    makeDirs("/srv/a/b");
    EXPECT_EQ(inodeOf(parent_.of("/srv/a/b/file")), inodeOf("/srv/a/b"));
    EXPECT_EQ(inodeOf(parent_.of("/srv/a//b")), inodeOf("/srv/a"));
    EXPECT_STREQ(ParentDirectory::nameIn("/srv/a/b/file"), "file");
    EXPECT_STREQ(ParentDirectory::nameIn("/srv/a//b"), "b");
    EXPECT_STREQ(ParentDirectory::nameIn("/srv/a/"), "");
}

TEST_F(ParentDirectoryTest, ANameAtTheTopLiesInTheRootDirectory)
{
    EXPECT_EQ(inodeOf(parent_.of("/file")), inodeOf("/"));
    EXPECT_EQ(inodeOf(parent_.of("//file")), inodeOf("/"));
    EXPECT_STREQ(ParentDirectory::nameIn("/file"), "file");
    EXPECT_STREQ(ParentDirectory::nameIn("//file"), "file");
}

TEST_F(ParentDirectoryTest, ANameWithoutDirectoryLiesInTheWorkingDirectory)
{
    ASSERT_EQ(chdir("/srv/www"), 0);
    EXPECT_EQ(inodeOf(parent_.of("file")), inodeOf("/srv/www"));
    EXPECT_STREQ(ParentDirectory::nameIn("file"), "file");
    EXPECT_EQ(inodeOf(parent_.of("vhosts/file")), inodeOf("/srv/www/vhosts"));
}

TEST_F(ParentDirectoryTest, FilesOfOneDirectoryShareOneOpenCall)
{
    makeDirs("/srv/a/b");
    faults::clear();
    const int directory = parent_.of("/srv/a/b/1");
    EXPECT_EQ(parent_.of("/srv/a/b/2"), directory);
    EXPECT_EQ(faults::calls("open"), 1);
    EXPECT_EQ(inodeOf(parent_.of("/srv/a/1")), inodeOf("/srv/a"));
    EXPECT_EQ(faults::calls("open"), 2);
}

TEST_F(ParentDirectoryTest, ADirectoryThatCannotBeOpenedIsTriedAgain)
{
    EXPECT_EQ(parent_.of("/srv/missing/file"), -1);
    EXPECT_EQ(errno, ENOENT);
    makeDir("/srv/missing");
    EXPECT_EQ(inodeOf(parent_.of("/srv/missing/file")), inodeOf("/srv/missing"));
    makeFile("/srv/file", "");
    EXPECT_EQ(parent_.of("/srv/file/below"), -1);
    EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(ParentDirectoryTest, AFailureAfterADirectoryThatWasOpenStillTellsItsReason)
{
    EXPECT_GE(parent_.of("/srv/file"), 0);
    EXPECT_EQ(parent_.of("/srv/missing/file"), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(ParentDirectoryTest, AtMostOneDescriptorIsHeldAndNoneLeftBehind)
{
    const size_t before = openDescriptors();
    {
        ParentDirectory parent;
        (void)parent.of("/srv/www/file");
        (void)parent.of("/srv/file");
        (void)parent.of("/srv/www/vhosts/file");
        EXPECT_EQ(openDescriptors(), before + 1);
    }
    EXPECT_EQ(openDescriptors(), before);
}
