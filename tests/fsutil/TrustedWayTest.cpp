#include <cerrno>
#include <fcntl.h>
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
    TrustedWayTest() { makeDirs("/srv/a/b"); }

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

    faults::Guard guard_;
};

using Above = TrustedWay::Above;

} // namespace

TEST_F(TrustedWayTest, TakesOneCallForAPathWithoutLinks)
{
    EXPECT_TRUE(openTrusted("/srv/a/b", heldDirectory));
    EXPECT_EQ(faults::calls("openat2"), 1);
    EXPECT_EQ(faults::calls("open") + faults::calls("openat"), 0);
}

TEST_F(TrustedWayTest, GoesFromOneDirectoryToTheNext)
{
    TrustedWay way(held("/srv"), Above::refused, 5);
    EXPECT_EQ(inodeOf(way.here()), inodeOf("/srv"));
    way.take("a");
    way.take(".");
    EXPECT_EQ(inodeOf(way.here()), inodeOf("/srv/a"));
    way.enter(held("/srv/www"));
    way.take("vhosts");
    EXPECT_EQ(inodeOf(way.here()), inodeOf("/srv/www/vhosts"));
    way.take("..");
    way.take("..");
    EXPECT_EQ(inodeOf(way.here()), inodeOf("/srv/a")) << "where it was entered from";
    EXPECT_EQ(inodeOf(way.end().get()), inodeOf("/srv/a"));
    EXPECT_FALSE(way.isOpen());
}

TEST_F(TrustedWayTest, OpensANameWithoutGoingThere)
{
    TrustedWay way(held("/srv"), Above::refused, 0);
    EXPECT_EQ(inodeOf(way.openHere("a", heldDirectory).get()), inodeOf("/srv/a"));
    EXPECT_FALSE(way.openHere("none", heldDirectory));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(inodeOf(way.here()), inodeOf("/srv"));
}

TEST_F(TrustedWayTest, StaysBelowItsBeginningWhereThatIsAskedFor)
{
    TrustedWay way(held("/srv/a"), Above::refused, 5);
    way.take("b");
    way.take("..");
    EXPECT_TRUE(way.isOpen());
    way.take("..");
    EXPECT_FALSE(way.isOpen());
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(way.here(), -1);
}

TEST_F(TrustedWayTest, GoesAboveItsBeginningWhereThatIsAllowed)
{
    TrustedWay way(held("/srv/a/b"), Above::asked, 5);
    way.take("..");
    EXPECT_EQ(inodeOf(way.here()), inodeOf("/srv/a"));
    way.take("..");
    way.take("www");
    EXPECT_EQ(inodeOf(way.here()), inodeOf("/srv/www"));
}

TEST_F(TrustedWayTest, IsAtItsEndWithoutABeginning)
{
    const TrustedWay way(Descriptor(), Above::asked, 0);
    EXPECT_FALSE(way.isOpen());
    EXPECT_EQ(way.here(), -1);
}

TEST_F(TrustedWayTest, TellsWhyItCouldNotGoOn)
{
    makeFile("/srv/file", "x");
    makeLink("/srv/theirs", "a");
    ASSERT_EQ(lchown("/srv/theirs", site, users), 0);
    const struct {
        const char* name;
        int error;
    } table[] = {{"none", ENOENT}, {"file", ENOTDIR}, {"theirs", ELOOP}};
    for (const size_t stepsBack : {5U, 0U}) {
        for (const auto& row : table) {
            TrustedWay way(held("/srv"), Above::asked, stepsBack);
            errno = 0;
            way.take(row.name);
            EXPECT_EQ(errno, row.error) << row.name;
            EXPECT_FALSE(way.isOpen()) << row.name;
        }
    }
}

TEST_F(TrustedWayTest, CountsItsLinksFromBeginningToEnd)
{
    makeLink("/srv/self", ".");
    TrustedWay way(held("/srv"), Above::asked, 0);
    for (int link = 1; link <= 40; ++link) {
        way.take("self");
    }
    EXPECT_TRUE(way.isOpen());
    EXPECT_TRUE(way.openHere("a", heldDirectory));
    EXPECT_FALSE(way.openHere("self", heldDirectory));
    EXPECT_EQ(errno, ELOOP);
}

TEST_F(TrustedWayTest, HoldsOfWhatLiesBehindItAsMuchAsItMayGoBack)
{
    const size_t before = openDescriptors();
    for (const size_t stepsBack : {0U, 3U}) {
        std::string deep = "/srv";
        TrustedWay way(held(deep), Above::asked, stepsBack);
        for (int level = 0; level < 50; ++level) {
            deep += "/d";
            makeDirs(deep);
            way.take("d");
        }
        EXPECT_EQ(inodeOf(way.here()), inodeOf(deep));
        EXPECT_EQ(openDescriptors(), before + stepsBack + 1);
        for (size_t step = 0; step < stepsBack; ++step) {
            deep.resize(deep.size() - 2);
            way.take("..");
        }
        EXPECT_EQ(inodeOf(way.here()), inodeOf(deep));
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(TrustedWayTest, KnowsHowOftenAPathGoesBack)
{
    for (const char* path : {"..", "../a", "a/..", "a/../b", "/..", "//..//", "./.."}) {
        EXPECT_EQ(TrustedWay::stepsBack(path), 1U) << path;
    }
    EXPECT_EQ(TrustedWay::stepsBack("../a/../.."), 3U);
    for (const char* path : {"", "/", ".", "a", "a..", "..a", "/...", "a/..b/c", "a../b"}) {
        EXPECT_EQ(TrustedWay::stepsBack(path), 0U) << path;
    }
}
