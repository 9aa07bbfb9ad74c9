#include "fsutil/TrustedPath.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

constexpr int held = O_PATH | O_DIRECTORY;

/// The path by which a file is found below "/srv", or "/".
std::string nameOf(int file)
{
    struct stat wanted = {};
    (void)fstat(file, &wanted);
    const auto is = [&wanted](const std::string& path) {
        struct stat status = {};
        return lstat(path.c_str(), &status) == 0 && status.st_dev == wanted.st_dev &&
               status.st_ino == wanted.st_ino;
    };
    for (const char* path : {"/", "/srv"}) {
        if (is(path)) {
            return path;
        }
    }
    for (const auto& entry : std::filesystem::recursive_directory_iterator("/srv")) {
        if (is(entry.path())) {
            return entry.path();
        }
    }
    return "something else";
}

/// Who opens, and what happens meanwhile.
struct Opener {
    uid_t user = 0;
    std::function<void()> prepare = [] {};
};

/// With openat2(2) most paths take one call; without it names are taken one by one.
struct Way {
    const char* name;
    int error; ///< of openat2(2); 0 = it is there
};

class TrustedPath : public World, public ::testing::WithParamInterface<Way>
{
protected:
    TrustedPath()
    {
        makeDirs("/srv/a/b");
        makeFile("/srv/file", "x");
        makeFile("/srv/a/file", "x");
    }

    static void makeLinkOf(uid_t owner, const std::string& path, const std::string& target)
    {
        makeLink(path, target);
        ASSERT_EQ(lchown(path.c_str(), owner, users), 0);
    }

    /// What a path leads to, else the error's name.
    static std::string reached(
        const std::string& path, int flags = O_PATH, const Opener& opener = {})
    {
        return inOtherProcess(opener, [&] { return openTrusted(path.c_str(), flags); });
    }

    faults::Guard guard_;

private:
    /// Once the process has found openat2(2) missing it does not forget that.
    static std::string inOtherProcess(const Opener& opener, const std::function<Descriptor()>& open)
    {
        const Outcome end = inChild([&] {
            if (opener.user != 0) {
                ASSERT_EQ(setgid(users) | setuid(opener.user), 0);
            }
            if (GetParam().error != 0) {
                faults::failAlways("openat2", GetParam().error);
            }
            opener.prepare();
            const size_t before = openDescriptors();
            const Descriptor file = open();
            const int error = errno;
            const size_t kept = openDescriptors() - before;
            std::printf("%s", file ? nameOf(file.get()).c_str() : strerrorname_np(error));
            std::printf("%s", kept == (file ? 1U : 0U) ? "" : ", descriptors leaked");
        });
        EXPECT_EQ(end.err, "");
        return end.out;
    }
};

INSTANTIATE_TEST_SUITE_P(Each, TrustedPath,
    ::testing::Values(
        Way{"InOneCall", 0}, Way{"OnAnOlderKernel", ENOSYS}, Way{"BehindAFilter", EPERM}),
    [](const auto& way) { return std::string(way.param.name); });

/// Every kind of opening that the callers use.
constexpr int everyFlags[] = {O_PATH, O_RDONLY, O_RDONLY | O_DIRECTORY, held};

} // namespace

TEST_P(TrustedPath, LeadsWhereNoLinkIs)
{
    ASSERT_EQ(chdir("/srv"), 0);
    for (const char* path : {"/srv/a/b", "//srv//a///b", "/srv/./a/b", "a/b", "./a/./b"}) {
        for (const int flags : everyFlags) {
            EXPECT_EQ(reached(path, flags), "/srv/a/b") << path << ' ' << flags;
        }
    }
    for (const int flags : {O_PATH, O_RDONLY}) {
        EXPECT_EQ(reached("/srv/a/file", flags), "/srv/a/file");
        EXPECT_EQ(reached("file", flags), "/srv/file");
    }
}

TEST_P(TrustedPath, IsNotOpenedIfItCannotBeToldFromALink)
{
    makeLinkOf(site, "/srv/theirs", "a");
    const Opener withoutLook{0, [] { faults::failAlways("fstat", EIO); }};
    for (const char* path : {"/srv/theirs", "/srv/a/../theirs", "/srv/file", "/srv/a/../file"}) {
        EXPECT_EQ(reached(path, O_PATH, withoutLook), "EIO") << path;
    }
}

TEST_P(TrustedPath, MayBeTheRootOrTheWorkingDirectory)
{
    ASSERT_EQ(chdir("/srv/a"), 0);
    for (const int flags : everyFlags) {
        EXPECT_EQ(reached("/", flags), "/");
        EXPECT_EQ(reached("//", flags), "/");
        EXPECT_EQ(reached("/.", flags), "/");
        EXPECT_EQ(reached(".", flags), "/srv/a");
        EXPECT_EQ(reached("./", flags), "/srv/a");
    }
}

TEST_P(TrustedPath, FollowsLinksOfRootAtItsEndAndOnTheWay)
{
    makeLink("/srv/absolute", "/srv/a");
    makeLink("/srv/relative", "a/b");
    makeLink("/srv/a/up", "../file");
    for (const int flags : everyFlags) {
        EXPECT_EQ(reached("/srv/absolute", flags), "/srv/a") << flags;
        EXPECT_EQ(reached("/srv/relative", flags), "/srv/a/b") << flags;
        EXPECT_EQ(reached("/srv/absolute/b", flags), "/srv/a/b") << flags;
    }
    for (const int flags : {O_PATH, O_RDONLY}) {
        EXPECT_EQ(reached("/srv/a/up", flags), "/srv/file");
        EXPECT_EQ(reached("/srv/absolute/up", flags), "/srv/file");
        EXPECT_EQ(reached("/srv/absolute/file", flags), "/srv/a/file");
    }
}

TEST_P(TrustedPath, FollowsLinksOfRootThroughEachOther)
{
    makeDirs("/srv/target/deep");
    makeLink("/srv/first", "srv//./a/../target/");
    makeLink("/srv/srv", ".");
    makeLink("/srv/a/link", "../first/deep");
    makeLink("/srv/a/root", "/");
    for (const int flags : everyFlags) {
        EXPECT_EQ(reached("/srv/a/link", flags), "/srv/target/deep");
        EXPECT_EQ(reached("/srv/a/link/../deep", flags), "/srv/target/deep");
        EXPECT_EQ(reached("/srv/a/root", flags), "/");
        EXPECT_EQ(reached("/srv/a/root/srv/first", flags), "/srv/target");
    }
}

TEST_P(TrustedPath, FollowsFortyLinksAndNoMore)
{
    makeLink("/srv/1", "a");
    for (int link = 2; link <= 41; ++link) {
        makeLink("/srv/" + std::to_string(link), std::to_string(link - 1));
    }
    for (const int flags : everyFlags) {
        EXPECT_EQ(reached("/srv/40", flags), "/srv/a") << flags;
        EXPECT_EQ(reached("/srv/40/b", flags), "/srv/a/b") << flags;
        EXPECT_EQ(reached("/srv/20/../20", flags), "/srv/a") << flags;
        EXPECT_EQ(reached("/srv/41", flags), "ELOOP") << flags;
        EXPECT_EQ(reached("/srv/41/b", flags), "ELOOP") << flags;
        EXPECT_EQ(reached("/srv/20/../21", flags), "ELOOP") << flags;
    }
}

TEST_P(TrustedPath, RefusesLinksOfOthersAtItsEndAndOnTheWay)
{
    makeLinkOf(site, "/srv/theirs", "/srv/a");
    makeLinkOf(site, "/srv/a/link", "b");
    makeLinkOf(site, "/srv/a/dangling", "none");
    makeLinkOf(site, "/srv/a/file2", "file");
    for (const int flags : everyFlags) {
        for (const char* path : {"/srv/theirs", "/srv/theirs/", "/srv/theirs/b", "/srv/theirs/.",
                 "/srv/theirs/..", "/srv/a/b/../link", "/srv/a/link", "/srv/a/link/x",
                 "/srv/a/dangling", "/srv/a/file2"}) {
            EXPECT_EQ(reached(path, flags), "ELOOP") << path << ' ' << flags;
        }
    }
}

TEST_P(TrustedPath, RefusesALinkOfSomebodyElseThatALinkOfRootLeadsThrough)
{
    makeLinkOf(site, "/srv/a/theirs", "/srv/a");
    makeLink("/srv/last", "a/theirs");
    makeLink("/srv/middle", "a/theirs/b");
    makeLink("/srv/absolute", "/srv/a/theirs/b");
    makeLink("/srv/second", "middle");
    for (const int flags : everyFlags) {
        for (const char* path :
            {"/srv/last", "/srv/last/b", "/srv/middle", "/srv/absolute", "/srv/second"}) {
            EXPECT_EQ(reached(path, flags), "ELOOP") << path << ' ' << flags;
        }
    }
}

TEST_P(TrustedPath, FollowsTheLinksOfTheProcessesOwnUser)
{
    makeLinkOf(site, "/srv/own", "/srv/a");
    makeLinkOf(other, "/srv/theirs", "/srv/a");
    makeLink("/srv/roots", "/srv/a");
    for (const int flags : everyFlags) {
        for (const char* path : {"/srv/own/b", "/srv/roots/b"}) {
            EXPECT_EQ(reached(path, flags, {.user = site}), "/srv/a/b") << path;
        }
        EXPECT_EQ(reached("/srv/own", flags, {.user = site}), "/srv/a");
        EXPECT_EQ(reached("/srv/theirs", flags, {.user = site}), "ELOOP");
        EXPECT_EQ(reached("/srv/theirs/b", flags, {.user = site}), "ELOOP");
        EXPECT_EQ(reached("/srv/own", flags), "ELOOP");
    }
}

TEST_P(TrustedPath, EndsAtALinkOfRootThatLeadsNowhere)
{
    makeLink("/srv/dangling", "nowhere");
    makeLink("/srv/loop", "loop");
    makeLink("/srv/below", "file/x");
    for (const int flags : everyFlags) {
        EXPECT_EQ(reached("/srv/dangling", flags), "ENOENT");
        EXPECT_EQ(reached("/srv/loop", flags), "ELOOP");
        EXPECT_EQ(reached("/srv/below", flags), "ENOTDIR");
    }
}

TEST_P(TrustedPath, LeadsWhereTheSystemLeadsThroughLinksOfRoot)
{
    makeDirs("/srv/other/deep/deeper");
    makeFile("/srv/other/file", "x");
    makeLink("/srv/absolute", "/srv/a/b");
    makeLink("/srv/a/relative", "../other/deep");
    makeLink("/srv/a/b/chain", "../relative/deeper");
    makeLink("/srv/other/deep/back", "../../a/b/..");
    makeLink("/srv/other/deep/above", "../../../../..");
    makeLink("/srv/other/to-file", "deep/../file");
    makeLink("/srv/other/through-file", "file/../file");
    makeLink("/srv/dangling", "a/../none");
    makeLink("/srv/a/b/root", "/");
    makeLink("/srv/a/b/from-root", "/../srv/a");
    ASSERT_EQ(chdir("/srv/absolute"), 0);
    for (const char* path : {"/srv/absolute/..", "/srv/absolute/../", "/srv/absolute/../file",
             "/srv/absolute/../..", "/srv/absolute/.././../file", "/srv/a/relative/..",
             "/srv/a/relative/../file", "/srv/a/relative/../../a", "/srv/a/b/chain/..",
             "/srv/a/b/chain/../..", "/srv/absolute/chain/../../file", "/srv/other/deep/back",
             "/srv/other/deep/back/..", "/srv/other/deep/back/../other", "/srv/other/deep/above",
             "/srv/other/deep/above/srv/a", "/srv/other/to-file", "/srv/other/to-file/..",
             "/srv/other/through-file", "/srv/dangling", "/srv/dangling/..", "/srv/none/..",
             "/srv/a/b/../relative/../file", "/../srv/absolute/..", "/srv/a/b/root/..",
             "root/../srv/file", "from-root", "from-root/../file", "chain", "chain/..",
             "chain/../../file", "..", "../relative/..", "../../absolute/..", "./.././file"}) {
        for (const int flags : everyFlags) {
            const Descriptor file(open(path, flags | O_CLOEXEC));
            const std::string expected = file ? nameOf(file.get()) : strerrorname_np(errno);
            EXPECT_EQ(reached(path, flags), expected) << path << ' ' << flags;
        }
    }
}

TEST_P(TrustedPath, GoesBackToTheParentOfWhatALinkLeadsTo)
{
    makeLink("/srv/link", "/srv/a/b");
    EXPECT_EQ(reached("/srv/a/b/../file"), "/srv/a/file");
    EXPECT_EQ(reached("/srv/a/b/../../file"), "/srv/file");
    EXPECT_EQ(reached("/srv/link/../file"), "/srv/a/file");
    EXPECT_EQ(reached("/srv/a/b/..", held), "/srv/a");
    EXPECT_EQ(reached("/srv/a/./b/./../", held), "/srv/a");
    EXPECT_EQ(reached("/srv/a/file/../file"), "ENOTDIR");
    EXPECT_EQ(reached("/srv/none/../file"), "ENOENT");
}

TEST_P(TrustedPath, GoesBackToWhereItCameFromAlsoWhenThatIsElsewhereByNow)
{
    makeDir("/srv/elsewhere");
    makeFile("/srv/elsewhere/file", "x");
    const Opener opener{.prepare = [] {
        // "srv", "a" and "b" have been opened; now comes "file".
        faults::runBefore("openat", 4, [] { ASSERT_EQ(rename("/srv/a", "/srv/elsewhere/a"), 0); });
    }};
    EXPECT_EQ(reached("/srv/a/b/../../file", O_PATH, opener), "/srv/file");
    EXPECT_TRUE(exists("/srv/elsewhere/a"));
}

TEST_P(TrustedPath, GoesBackInsideALinkToWhereItCameFromAlsoWhenTheLinkIsElsewhereByNow)
{
    makeDirs("/srv/releases");
    makeDirs("/srv/elsewhere/releases");
    makeLink("/srv/a/link", "../releases");
    const Opener opener{.prepare = [] {
        // The link has been opened and is looked at; its ".." comes next.
        faults::runBefore("fstat", 1, [] { ASSERT_EQ(rename("/srv/a", "/srv/elsewhere/a"), 0); });
    }};
    EXPECT_EQ(reached("/srv/a/link", held, opener), "/srv/releases");
    EXPECT_TRUE(exists("/srv/elsewhere/a"));
}

TEST_P(TrustedPath, IsTakenAsItIsUpToTheRootOfTheVirtualHosts)
{
    makeDirs("/srv/disk/vhosts/example.test/conf");
    makeLinkOf(site, "/srv/disk/vhosts/theirs", "example.test");
    ASSERT_EQ(rename("/srv/www", "/srv/www-before"), 0);
    makeLinkOf(other, "/srv/www", "/srv/road");
    makeDirs("/srv/road");
    makeLinkOf(other, "/srv/road/vhosts", "/srv/disk/vhosts");
    makeLinkOf(other, "/srv/road/vhosts2", "/srv/disk/vhosts");
    for (const int flags : everyFlags) {
        const std::string reachedSite = "/srv/disk/vhosts/example.test";
        EXPECT_EQ(reached("/srv/www/vhosts", flags), "/srv/disk/vhosts");
        EXPECT_EQ(reached("/srv/www/vhosts/", flags), "/srv/disk/vhosts");
        EXPECT_EQ(reached("/srv/www/vhosts/example.test", flags), reachedSite);
        EXPECT_EQ(reached("/srv/www/vhosts/example.test/conf/..", flags), reachedSite);
        EXPECT_EQ(reached("/srv/www/vhosts/..", flags), "/srv/disk");
        for (const char* path : {"/srv/www/vhosts/theirs", "/srv/www/vhosts/theirs/conf",
                 "/srv/www/vhosts/example.test/../theirs", "/srv/www", "/srv/www/.",
                 "/srv/www/vhosts2", "/srv/www/vhosts2/example.test", "/srv/road/vhosts"}) {
            EXPECT_EQ(reached(path, flags), "ELOOP") << path << ' ' << flags;
        }
    }
}

TEST_P(TrustedPath, IsTakenAsItIsUpToATrustedPlaceAsLongAsThatLives)
{
    makeLinkOf(other, "/srv/theirs", "a");
    makeLinkOf(other, "/srv/a/link", "b");
    const Opener trusting{.prepare = [] { static const TrustedPlace place("/srv/theirs/"); }};
    const Opener noLonger{.prepare = [] { const TrustedPlace place("/srv/theirs"); }};
    for (const int flags : everyFlags) {
        EXPECT_EQ(reached("/srv/theirs", flags, trusting), "/srv/a");
        EXPECT_EQ(reached("/srv/theirs/b", flags, trusting), "/srv/a/b");
        EXPECT_EQ(reached("/srv/theirs/b/..", flags, trusting), "/srv/a");
        EXPECT_EQ(reached("/srv/theirs/link", flags, trusting), "ELOOP");
        for (const char* path : {"/srv/theirs", "/srv/theirs/b", "/srv/theirs/b/.."}) {
            EXPECT_EQ(reached(path, flags, noLonger), "ELOOP") << path << ' ' << flags;
        }
    }
}

TEST_P(TrustedPath, AsksTheSystemForWhatLiesAboveWhereItBegan)
{
    ASSERT_EQ(chdir("/srv/a/b"), 0);
    for (const int flags : everyFlags) {
        EXPECT_EQ(reached("..", flags), "/srv/a");
        EXPECT_EQ(reached("../", flags), "/srv/a");
        EXPECT_EQ(reached("../..", flags), "/srv");
        EXPECT_EQ(reached("../b/../../a", flags), "/srv/a");
        EXPECT_EQ(reached("../../../../..", flags), "/");
    }
    EXPECT_EQ(reached("../../file"), "/srv/file");
}

TEST_P(TrustedPath, HasNothingAboveTheRoot)
{
    EXPECT_EQ(reached("/..", held), "/");
    EXPECT_EQ(reached("/../../srv", held), "/srv");
    EXPECT_EQ(reached("/srv/../../srv/file"), "/srv/file");
}

TEST_P(TrustedPath, IsADirectoryWhenASlashEndsIt)
{
    makeLink("/srv/link", "a");
    makeLink("/srv/to-file", "file");
    for (const int flags : everyFlags) {
        for (const char* path : {"/srv/a/", "/srv/a//", "/srv/a/.", "/srv/link/", "/srv/link//"}) {
            EXPECT_EQ(reached(path, flags), "/srv/a") << path;
        }
        for (const char* path : {"/srv/file/", "/srv/file/.", "/srv/file/..", "/srv/to-file/"}) {
            EXPECT_EQ(reached(path, flags), "ENOTDIR") << path;
        }
        EXPECT_EQ(reached("/srv/none/", flags), "ENOENT");
    }
}

TEST_P(TrustedPath, ReportsWhatCannotBeReached)
{
    for (const int flags : everyFlags) {
        EXPECT_EQ(reached("", flags), "ENOENT");
        EXPECT_EQ(reached("/srv/none", flags), "ENOENT");
        EXPECT_EQ(reached("/srv/none/x", flags), "ENOENT");
        EXPECT_EQ(reached("/srv/file/x", flags), "ENOTDIR");
    }
    for (const int flags : {held, O_RDONLY | O_DIRECTORY}) {
        EXPECT_EQ(reached("/srv/file", flags), "ENOTDIR");
    }
    ASSERT_EQ(chmod("/srv/a", 0700), 0);
    EXPECT_EQ(reached("/srv/a/file", O_PATH, {.user = site}), "EACCES");
    ASSERT_EQ(chmod("/srv/file", 0600), 0);
    EXPECT_EQ(reached("/srv/file", O_RDONLY, {.user = site}), "EACCES");
    EXPECT_EQ(reached("/srv/file", O_PATH, {.user = site}), "/srv/file");
}

TEST_P(TrustedPath, HasUpTo4095CharactersInNamesOfUpTo255)
{
    const auto padded = [](size_t length, const std::string& path) {
        return std::string(length - path.size(), '/') + path;
    };
    for (const std::string path : {"/srv/a", "/srv/a/b/.."}) {
        EXPECT_EQ(reached(padded(4095, path)), "/srv/a");
        EXPECT_EQ(reached(padded(4096, path)), "ENAMETOOLONG");
        EXPECT_EQ(reached(padded(9000, path)), "ENAMETOOLONG");
    }
    EXPECT_EQ(reached("/srv/" + std::string(255, 'n')), "ENOENT");
    EXPECT_EQ(reached("/srv/" + std::string(256, 'n')), "ENAMETOOLONG");
    EXPECT_EQ(reached("/srv/a/../" + std::string(256, 'n') + "/x"), "ENAMETOOLONG");
}

TEST_P(TrustedPath, LeadsToFilesOfEveryTypeWithoutOpeningThem)
{
    makeFifo("/srv/fifo");
    makeSocket("/srv/socket");
    makeDevice("/srv/device");
    for (const std::string path : {"/srv/fifo", "/srv/socket", "/srv/device"}) {
        makeLink(path + "-link", path);
        EXPECT_EQ(reached(path), path);
        EXPECT_EQ(reached(path + "-link"), path);
        EXPECT_EQ(reached(path, held), "ENOTDIR");
        EXPECT_EQ(reached(path + "-link", held), "ENOTDIR");
    }
}

TEST_P(TrustedPath, ReadsTheLinkThatItLookedAtAndNoOther)
{
    makeDirs("/srv/secret/b");
    makeLink("/srv/link", "/srv/a");
    // Between the look at the owner and the reading of the link somebody else's takes its name.
    const Opener opener{.prepare = [] {
        faults::runBefore("fstat", 1, [] {
            ASSERT_EQ(unlink("/srv/link"), 0);
            makeLink("/srv/link", "/srv/secret");
            ASSERT_EQ(lchown("/srv/link", 1001, 100), 0);
        });
    }};
    EXPECT_EQ(reached("/srv/link/b", held, opener), "/srv/a/b");
    EXPECT_EQ(contentOf("/srv/link/b/../../file"), "x") << "it has been exchanged";
    EXPECT_EQ(accessOf("/srv/link"), "0777 site:users");
}

TEST_P(TrustedPath, EndsWhereALinkTurnsIntoSomethingElseBeforeItIsRead)
{
    makeLink("/srv/link", "/srv/a");
    const Opener opener{.prepare = [] {
        // "srv" and "link" have been tried; now the link is to be held.
        faults::runBefore("openat", 3, [] {
            ASSERT_EQ(unlink("/srv/link"), 0);
            makeDirs("/srv/link/b");
        });
    }};
    EXPECT_EQ(reached("/srv/link/b", held, opener), "ENOTDIR");
    EXPECT_TRUE(exists("/srv/link/b"));
}
