#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "fsutil/TrustedPath.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

class TrustedWayTest : public World
{
protected:
    /// So many directories a way holds if its path does not ask for more.
    static constexpr size_t mostHeld = 33;

    TrustedWayTest()
    {
        makeDirs("/srv/a/b");
        EXPECT_EQ(chdir("/srv"), 0);
    }

    static Descriptor held(const std::string& path)
    {
        return Descriptor(open(path.c_str(), heldDirectory));
    }

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

    /// "/srv/d/d/..." with so many levels, made for it.
    static std::string deepPath(int levels)
    {
        std::string path = "/srv";
        for (int level = 0; level < levels; ++level) {
            path += "/d";
            makeDirs(path);
        }
        return path;
    }

    /// "../../.." with so many names.
    static std::string stepsBack(size_t steps)
    {
        std::string path = "..";
        while (--steps > 0) {
            path += "/..";
        }
        return path;
    }

    static void go(TrustedWay& way, const std::string& name, int times)
    {
        for (int time = 0; time < times; ++time) {
            EXPECT_TRUE(way.take(name)) << name << ' ' << time;
        }
    }

    faults::Guard guard_;
};

} // namespace

TEST_F(TrustedWayTest, TakesOneCallForAPathWithoutLinks)
{
    EXPECT_TRUE(openTrusted("/srv/a/b", heldDirectory));
    EXPECT_EQ(faults::calls("openat2"), 1);
    EXPECT_EQ(faults::calls("open") + faults::calls("openat"), 0);
}

TEST_F(TrustedWayTest, BeginsWhereItsPathBegins)
{
    const struct {
        const char* path;
        const char* beginning;
        const char* rest;
    } table[] = {{"/srv/a", "/", "/srv/a"}, {"/", "/", "/"}, {"a/b", "/srv", "a/b"},
        {"../x", "/srv", "../x"}, {"", "/srv", ""}, {"/srv/www/vhosts/x", "/srv/www/vhosts", "/x"},
        {"/srv/www/vhosts", "/srv/www/vhosts", ""}, {"/srv/www/vhosts2", "/", "/srv/www/vhosts2"}};
    for (const auto& row : table) {
        const TrustedWay way(row.path);
        ASSERT_TRUE(way.isOpen()) << row.path;
        EXPECT_EQ(inodeOf(way.here()), inodeOf(row.beginning)) << row.path;
        EXPECT_EQ(way.rest(), row.rest) << row.path;
    }
}

TEST_F(TrustedWayTest, TellsWhyItCouldNotBegin)
{
    faults::fail("open", EMFILE);
    const TrustedWay way("/srv/a");
    EXPECT_EQ(errno, EMFILE);
    EXPECT_FALSE(way.isOpen());
}

TEST_F(TrustedWayTest, GoesFromOneDirectoryToTheNext)
{
    TrustedWay way("a/b");
    EXPECT_TRUE(way.take("a"));
    EXPECT_TRUE(way.take("."));
    EXPECT_EQ(inodeOf(way.here()), inodeOf("/srv/a"));
    way.enter(held("/srv/www"));
    EXPECT_TRUE(way.take("vhosts"));
    EXPECT_EQ(inodeOf(way.here()), inodeOf("/srv/www/vhosts"));
    go(way, "..", 2);
    EXPECT_EQ(inodeOf(way.here()), inodeOf("/srv/a")) << "where it was entered from";
}

TEST_F(TrustedWayTest, GoesBackToTheParentOfWhatALinkLeadsTo)
{
    makeLink("/srv/absolute", "/srv/www/vhosts");
    makeLink("/srv/relative", "a/b");
    TrustedWay way("x");
    EXPECT_TRUE(way.take("absolute"));
    EXPECT_TRUE(way.take(".."));
    EXPECT_EQ(inodeOf(way.here()), inodeOf("/srv/www"));
    EXPECT_TRUE(way.take(".."));
    EXPECT_TRUE(way.take("relative"));
    EXPECT_TRUE(way.take(".."));
    EXPECT_EQ(inodeOf(way.here()), inodeOf("/srv/a"));
}

TEST_F(TrustedWayTest, GoesBackToWhatItHoldsWhereverThatIsByNow)
{
    TrustedWay way("a/b");
    EXPECT_TRUE(way.take("a"));
    EXPECT_TRUE(way.take("b"));
    const ino_t parent = inodeOf("/srv/a");
    ASSERT_EQ(rename("/srv/a/b", "/srv/www/b"), 0);
    EXPECT_TRUE(way.take(".."));
    EXPECT_EQ(inodeOf(way.here()), parent);
}

TEST_F(TrustedWayTest, AsksTheSystemForWhatLiesAboveItsBeginning)
{
    ASSERT_EQ(chdir("/srv/a/b"), 0);
    TrustedWay way("x");
    EXPECT_TRUE(way.take(".."));
    EXPECT_EQ(inodeOf(way.here()), inodeOf("/srv/a"));
    EXPECT_TRUE(way.take(".."));
    EXPECT_TRUE(way.take("www"));
    EXPECT_EQ(inodeOf(way.here()), inodeOf("/srv/www"));
}

TEST_F(TrustedWayTest, StaysAtTheRootWhenItGoesBackThere)
{
    TrustedWay way("/");
    go(way, "..", 3);
    EXPECT_EQ(inodeOf(way.here()), inodeOf("/"));
    EXPECT_TRUE(way.take("srv"));
    EXPECT_EQ(inodeOf(way.here()), inodeOf("/srv"));
    go(way, "..", 2);
    EXPECT_EQ(inodeOf(way.here()), inodeOf("/"));
}

TEST_F(TrustedWayTest, StaysWhereItWasWhenANameCannotBeTaken)
{
    makeFile("/srv/a/file", "x");
    makeLink("/srv/a/theirs", "b");
    ASSERT_EQ(lchown("/srv/a/theirs", site, users), 0);
    makeLink("/srv/a/half", "b/../../www/none");
    makeLink("/srv/a/half-absolute", "/srv/www/none/x");
    makeLink("/srv/a/to-theirs", "../www/../a/theirs");
    makeLink("/srv/a/above", "../../../../none");
    const struct {
        const char* name;
        int error;
    } table[] = {{"none", ENOENT}, {"file", ENOTDIR}, {"theirs", ELOOP}, {"half", ENOENT},
        {"half-absolute", ENOENT}, {"to-theirs", ELOOP}, {"above", ENOENT}};
    for (const auto& row : table) {
        const size_t before = openDescriptors();
        TrustedWay way("x");
        EXPECT_TRUE(way.take("a"));
        errno = 0;
        EXPECT_FALSE(way.take(row.name)) << row.name;
        EXPECT_EQ(errno, row.error) << row.name;
        EXPECT_TRUE(way.isOpen()) << row.name;
        EXPECT_EQ(inodeOf(way.here()), inodeOf("/srv/a")) << row.name;
        EXPECT_EQ(openDescriptors(), before + 2) << row.name;
        EXPECT_TRUE(way.take("b")) << row.name;
        go(way, "..", 2);
        EXPECT_EQ(inodeOf(way.here()), inodeOf("/srv")) << row.name;
    }
}

TEST_F(TrustedWayTest, LeavesTheErrorNumberAloneWhereItGoesOn)
{
    makeLink("/srv/link", "a");
    TrustedWay way("x");
    for (const char* name : {"a", "..", ".", "link"}) {
        errno = EDOM;
        EXPECT_TRUE(way.take(name));
        EXPECT_EQ(errno, EDOM) << name;
    }
}

TEST_F(TrustedWayTest, OpensTheLastOfSeveralNames)
{
    makeFile("/srv/a/file", "x");
    makeLink("/srv/link", "a/b");
    const struct {
        const char* names;
        const char* reached;
    } table[] = {{"a", "/srv/a"}, {"a/b", "/srv/a/b"}, {"/a//file", "/srv/a/file"},
        {"link/../file", "/srv/a/file"}, {"a/b/", "/srv/a/b"}, {"a/b/..", "/srv/a"}, {"", "/srv"}};
    for (const auto& row : table) {
        TrustedWay way("x");
        const Descriptor file = way.open(row.names, O_RDONLY);
        ASSERT_TRUE(file) << row.names;
        EXPECT_EQ(inodeOf(file.get()), inodeOf(row.reached)) << row.names;
    }
    TrustedWay way("x");
    EXPECT_FALSE(way.open("a/none", O_RDONLY));
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(TrustedWayTest, CountsItsLinksFromBeginningToEnd)
{
    makeLink("/srv/self", ".");
    TrustedWay way("x");
    go(way, "self", 40);
    EXPECT_FALSE(way.take("self"));
    EXPECT_EQ(errno, ELOOP);
    EXPECT_TRUE(way.take("a"));
    EXPECT_FALSE(way.open("../self", heldDirectory));
    EXPECT_EQ(errno, ELOOP);
}

TEST_F(TrustedWayTest, HoldsNoMoreDirectoriesThanItPromisesHoweverFarItGoes)
{
    const std::string deep = deepPath(50);
    const size_t before = openDescriptors();
    {
        TrustedWay way(deep);
        go(way, "srv", 1);
        go(way, "d", 50);
        EXPECT_EQ(inodeOf(way.here()), inodeOf(deep));
        EXPECT_EQ(openDescriptors(), before + mostHeld);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(TrustedWayTest, HoldsAsManyDirectoriesAsItsPathGoesBack)
{
    const std::string path = deepPath(50) + '/' + stepsBack(40);
    const size_t before = openDescriptors();
    TrustedWay way(path);
    go(way, "srv", 1);
    go(way, "d", 50);
    EXPECT_EQ(openDescriptors(), before + 41);
    go(way, "..", 40);
    EXPECT_EQ(inodeOf(way.here()), inodeOf(path));
}

TEST_F(TrustedWayTest, GoesBackFurtherThanWhatItHoldsWhereALinkSaysSo)
{
    const std::string deep = deepPath(40);
    makeLink(deep + "/held", stepsBack(mostHeld - 1));
    makeLink(deep + "/not held", stepsBack(mostHeld));
    makeLink(deep + "/first", stepsBack(39));
    makeLink(deep + "/above the root", stepsBack(100) + "/srv/a");
    const struct {
        const char* link;
        const char* target;
    } table[] = {{"held", "/srv/d/d/d/d/d/d/d/d"}, {"not held", "/srv/d/d/d/d/d/d/d"},
        {"first", "/srv/d"}, {"above the root", "/srv/a"}};
    for (const auto& row : table) {
        TrustedWay way(deep);
        go(way, "srv", 1);
        go(way, "d", 40);
        EXPECT_TRUE(way.take(row.link)) << row.link;
        EXPECT_EQ(inodeOf(way.here()), inodeOf(row.target)) << row.link;
        EXPECT_EQ(inodeOf(openTrusted((deep + '/' + row.link).c_str(), heldDirectory).get()),
            inodeOf(row.target))
            << row.link;
    }
}

TEST_F(TrustedWayTest, GoesForthAndBackBehindWhatItHolds)
{
    const std::string deep = deepPath(40);
    makeLink(deep + "/link", stepsBack(mostHeld + 2) + "/d/d/d/" + stepsBack(4));
    TrustedWay way(deep);
    go(way, "srv", 1);
    go(way, "d", 40);
    EXPECT_TRUE(way.take("link"));
    EXPECT_EQ(inodeOf(way.here()), inodeOf("/srv/d/d/d/d"));
    go(way, "..", 4);
    EXPECT_EQ(inodeOf(way.here()), inodeOf("/srv"));
}

TEST_F(TrustedWayTest, DoesNotGoBackToWhereSomebodyHasMovedADirectoryThatItDoesNotHold)
{
    const std::string deep = deepPath(40);
    makeLink(deep + "/link", stepsBack(mostHeld));
    TrustedWay way(deep);
    go(way, "srv", 1);
    go(way, "d", 40);
    ASSERT_EQ(rename("/srv/d/d/d/d/d/d/d/d", "/srv/a/moved"), 0);
    EXPECT_FALSE(way.take("link"));
    EXPECT_EQ(errno, ESTALE);
    EXPECT_TRUE(way.take("."));
    ASSERT_EQ(rename("/srv/a/moved", "/srv/d/d/d/d/d/d/d/d"), 0);
    EXPECT_EQ(inodeOf(way.here()), inodeOf(deep)) << "it stayed where it was";
    EXPECT_TRUE(way.take("link"));
}

TEST_F(TrustedWayTest, DoesNotGoBackToWhatItCannotRecognise)
{
    const std::string deep = deepPath(40);
    makeLink(deep + "/link", stepsBack(mostHeld));
    {
        TrustedWay way(deep);
        go(way, "srv", 1);
        go(way, "d", 40);
        // The directory of the link is looked at first: whose is it?
        faults::fail("fstat", EIO, 2);
        EXPECT_FALSE(way.take("link"));
        EXPECT_EQ(errno, EIO);
    }
    TrustedWay way(deep);
    faults::failAlways("fstat", EIO);
    go(way, "srv", 1);
    go(way, "d", 40);
    faults::clear();
    EXPECT_FALSE(way.take("link"));
    EXPECT_EQ(errno, ESTALE);
}

TEST_F(TrustedWayTest, ForgetsAtTheRootWhatItCouldNotHoldBefore)
{
    const std::string deep = deepPath(40);
    makeLink(deep + "/root", "/srv/" + stepsBack(mostHeld));
    TrustedWay way(deep);
    go(way, "srv", 1);
    go(way, "d", 40);
    EXPECT_TRUE(way.take("root"));
    EXPECT_EQ(inodeOf(way.here()), inodeOf("/"));
}
