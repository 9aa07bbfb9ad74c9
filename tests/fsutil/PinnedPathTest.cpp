#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "fsutil/PinnedPath.h"
#include "tests/lib/Faults.h"
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

    /// The same for openTrusted().
    static std::string openedTrusted(const std::string& path, int flags)
    {
        struct stat status = {};
        const Descriptor file = PinnedPath(path.c_str()).openTrusted(flags);
        return file && fstat(file.get(), &status) == 0 ? nameOf(status) : strerrorname_np(errno);
    }

    static ino_t inodeOf(const std::string& path)
    {
        struct stat status = {};
        (void)lstat(path.c_str(), &status);
        return status.st_ino;
    }

    /// A path of this many characters that leads to "/srv/file".
    static std::string longPath(size_t length)
    {
        const std::string path = "/srv/file";
        return std::string(length - path.size(), '/') + path;
    }

    faults::Guard guard_;

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

TEST_F(PinnedPathTest, HoldsTheDirectoryThatItLeadsBackTo)
{
    for (const char* path : {"/srv/a/b/..", "/srv/a/b/../", "/srv/link/..", "/srv/a/./b//..//"}) {
        EXPECT_EQ(looked(path), "/srv/a") << path;
        EXPECT_EQ(opened(path), "/srv/a") << path;
        EXPECT_EQ(openedTrusted(path, O_PATH), "/srv/a") << path;
    }
    EXPECT_EQ(looked("/srv/file/.."), "ENOTDIR");
    EXPECT_EQ(opened("/srv/none/.."), "ENOENT");
}

TEST_F(PinnedPathTest, LeadsBackToWhereItCameFromAlsoWhenThatIsElsewhereByNow)
{
    makeDir("/srv/elsewhere");
    const ino_t parent = inodeOf("/srv/a");
    for (const char* path : {"/srv/a/b/..", "/srv/a/b/../"}) {
        const PinnedPath pinned(path);
        ASSERT_EQ(rename("/srv/a/b", "/srv/elsewhere/b"), 0);
        struct stat status = {};
        EXPECT_EQ(pinned.look(status), 0);
        EXPECT_EQ(status.st_ino, parent) << path;
        EXPECT_EQ(fstat(pinned.open(O_RDONLY).get(), &status), 0);
        EXPECT_EQ(status.st_ino, parent) << path;
        EXPECT_EQ(fstat(pinned.openTrusted(O_PATH).get(), &status), 0);
        EXPECT_EQ(status.st_ino, parent) << path;
        ASSERT_EQ(rename("/srv/elsewhere/b", "/srv/a/b"), 0);
    }
}

TEST_F(PinnedPathTest, OpensWhatALinkOfRootLeadsTo)
{
    for (const int flags : {O_PATH, O_RDONLY, O_PATH | O_DIRECTORY, O_RDONLY | O_DIRECTORY}) {
        EXPECT_EQ(openedTrusted("/srv/link", flags), "/srv/a/b") << flags;
        EXPECT_EQ(openedTrusted("/srv/link/", flags), "/srv/a/b") << flags;
        EXPECT_EQ(openedTrusted("/srv/a", flags), "/srv/a") << flags;
    }
    ASSERT_EQ(lchown("/srv/link", site, users), 0);
    for (const int flags : {O_PATH, O_RDONLY, O_PATH | O_DIRECTORY, O_RDONLY | O_DIRECTORY}) {
        EXPECT_EQ(openedTrusted("/srv/link", flags), "ELOOP") << flags;
        EXPECT_EQ(openedTrusted("/srv/link/", flags), "ELOOP") << flags;
    }
}

TEST_F(PinnedPathTest, IsNotOpenedIfItCannotBeToldFromALink)
{
    ASSERT_EQ(lchown("/srv/link", site, users), 0);
    for (const char* path : {"/srv/link", "/srv/file"}) {
        const PinnedPath pinned(path);
        faults::fail("fstat", EIO);
        EXPECT_FALSE(pinned.openTrusted(O_PATH)) << path;
        EXPECT_EQ(errno, EIO) << path;
    }
}

TEST_F(PinnedPathTest, NeverHoldsALinkOfSomebodyElseThatTakesTheName)
{
    const auto exchange = [] {
        ASSERT_EQ(rename("/srv/a/b", "/srv/moved"), 0);
        makeLink("/srv/a/b", "/srv/file");
        ASSERT_EQ(lchown("/srv/a/b", 1001, 100), 0);
    };
    for (const int flags : {O_PATH, O_PATH | O_DIRECTORY, O_RDONLY}) {
        const PinnedPath path("/srv/a/b");
        faults::runBefore("openat", 1, exchange);
        EXPECT_FALSE(path.openTrusted(flags)) << flags;
        EXPECT_EQ(errno, ELOOP) << flags;
        EXPECT_TRUE(exists("/srv/moved"));
        ASSERT_EQ(unlink("/srv/a/b") | rename("/srv/moved", "/srv/a/b"), 0);
    }
}

TEST_F(PinnedPathTest, NeverHoldsALinkOfSomebodyElseThatTakesTheNameOfOneOfRoot)
{
    makeLink("/srv/a/link", "b");
    // The link is tried, and its name looked up anew: at any of these moments.
    for (int nth = 1; nth <= 5; ++nth) {
        const PinnedPath path("/srv/a/link");
        faults::runBefore("openat", nth, [] {
            ASSERT_EQ(rename("/srv/a/link", "/srv/moved"), 0);
            makeLink("/srv/a/link", "/srv/file");
            ASSERT_EQ(lchown("/srv/a/link", 1001, 100), 0);
        });
        EXPECT_FALSE(path.openTrusted(O_PATH)) << nth;
        EXPECT_EQ(errno, ELOOP) << nth;
        ASSERT_EQ(rename("/srv/moved", "/srv/a/link"), 0) << nth;
    }
}
