#include "fsutil/FileSystem.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "fsutil/Descriptor.h"
#include "tests/lib/World.h"

namespace
{

using FileSystemTest = World;

FileSystem fileSystemOf(const char* path)
{
    const Descriptor directory(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return FileSystem(directory.get());
}

} // namespace

TEST_F(FileSystemTest, TellsItsInodesInEntriesIfItIsATmpfs)
{
    struct stat status = {};
    ASSERT_EQ(stat("/srv", &status), 0);
    EXPECT_TRUE(fileSystemOf("/srv").entriesTellInodes());
    EXPECT_EQ(fileSystemOf("/srv").device(), status.st_dev);
}

TEST_F(FileSystemTest, IsNotReliedOnIfItIsOfAnotherKind)
{
    makeDir("/srv/ram");
    ASSERT_EQ(mount("ram", "/srv/ram", "ramfs", 0, nullptr), 0);
    for (const char* path : {"/srv/ram", "/proc"}) {
        struct stat status = {};
        ASSERT_EQ(stat(path, &status), 0);
        EXPECT_FALSE(fileSystemOf(path).entriesTellInodes()) << path;
        EXPECT_EQ(fileSystemOf(path).device(), status.st_dev) << path;
    }
    EXPECT_EQ(umount2("/srv/ram", MNT_DETACH), 0);
}

TEST_F(FileSystemTest, IsNotReliedOnIfItCannotBeAsked)
{
    EXPECT_FALSE(FileSystem().entriesTellInodes());
    EXPECT_FALSE(FileSystem(-1).entriesTellInodes());
}
