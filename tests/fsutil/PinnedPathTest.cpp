#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "fsutil/PinnedPath.h"
#include "tests/lib/World.h"

namespace
{

class PinnedPathTest : public World
{
protected:
    PinnedPathTest()
    {
        makeDirs("/srv/a/b");
        makeLink("/srv/link", "a/b");
        makeFile("/srv/file", "x");
    }

    /// What look() finds: the path of a file below, else the error's name.
    static std::string looked(const std::string& path)
    {
        struct stat status = {};
        return PinnedPath(path.c_str()).look(status) == 0 ? nameOf(status) : strerrorname_np(errno);
    }

    /// The same for open().
    static std::string opened(const std::string& path)
    {
        struct stat status = {};
        const Descriptor file = PinnedPath(path.c_str()).open(O_RDONLY | O_CLOEXEC);
        return file && fstat(file.get(), &status) == 0 ? nameOf(status) : strerrorname_np(errno);
    }

    /// A path of this many characters that leads to "/srv/file".
    static std::string longPath(size_t length)
    {
        const std::string path = "/srv/file";
        return std::string(length - path.size(), '/') + path;
    }

private:
    static std::string nameOf(const struct stat& status)
    {
        for (const char* path : {"/", "/srv", "/srv/a", "/srv/a/b", "/srv/link", "/srv/file"}) {
            struct stat known = {};
            if (lstat(path, &known) == 0 && known.st_dev == status.st_dev &&
                known.st_ino == status.st_ino) {
                return path;
            }
        }
        return "something else";
    }
};

} // namespace

TEST_F(PinnedPathTest, DoesNotFollowALinkUnlessASlashStandsBehindIt)
{
    EXPECT_EQ(looked("/srv/link"), "/srv/link");
    EXPECT_EQ(opened("/srv/link"), "ELOOP");
    EXPECT_EQ(looked("/srv/link/"), "/srv/a/b");
    EXPECT_EQ(opened("/srv/link/"), "/srv/a/b");
}

TEST_F(PinnedPathTest, KeepsTrailingSlashesForWhatTheyMean)
{
    EXPECT_EQ(looked("/srv/a//b//"), "/srv/a/b");
    EXPECT_EQ(opened("/srv/a//b//"), "/srv/a/b");
    EXPECT_EQ(looked("/srv/file/"), "ENOTDIR");
    EXPECT_EQ(opened("/srv/file/"), "ENOTDIR");
}

TEST_F(PinnedPathTest, FindsTheRootAndTheWorkingDirectory)
{
    const Outcome end = inChild([] {
        ASSERT_EQ(chdir("/srv"), 0);
        std::string found;
        for (const char* path : {"/", "//", ".", "./", "..", "a", "a//b//", "link/", "file"}) {
            found += std::string(path) + ": " + looked(path) + ' ' + opened(path) + '\n';
        }
        (void)std::fputs(found.c_str(), stdout);
    });
    EXPECT_EQ(end.out, "/: / /\n"
                       "//: / /\n"
                       ".: /srv /srv\n"
                       "./: /srv /srv\n"
                       "..: / /\n"
                       "a: /srv/a /srv/a\n"
                       "a//b//: /srv/a/b /srv/a/b\n"
                       "link/: /srv/a/b /srv/a/b\n"
                       "file: /srv/file /srv/file\n");
}

TEST_F(PinnedPathTest, ReportsADirectoryThatCannotBeReached)
{
    EXPECT_EQ(looked("/srv/nowhere/x"), "ENOENT");
    EXPECT_EQ(opened("/srv/nowhere/x"), "ENOENT");
    EXPECT_EQ(looked("/srv/file/x"), "ENOTDIR");
    EXPECT_EQ(looked(""), "ENOENT");
    EXPECT_EQ(opened(""), "ENOENT");
}

TEST_F(PinnedPathTest, TakesPathsUpTo4095Characters)
{
    EXPECT_EQ(looked(longPath(4095)), "/srv/file");
    EXPECT_EQ(opened(longPath(4095)), "/srv/file");
    EXPECT_EQ(looked(longPath(4096)), "ENAMETOOLONG");
    EXPECT_EQ(opened(longPath(4096)), "ENAMETOOLONG");
}

TEST_F(PinnedPathTest, StaysInItsDirectoryWhenThatIsMovedAway)
{
    const PinnedPath path("/srv/a/b");
    ASSERT_EQ(rename("/srv/a", "/srv/moved"), 0);
    makeDir("/srv/a");
    struct stat status = {};
    EXPECT_EQ(path.look(status), 0);
    EXPECT_TRUE(path.open(O_RDONLY | O_CLOEXEC));
}
