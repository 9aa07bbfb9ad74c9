#include <boost/filesystem/path.hpp>
#include <boost/format.hpp>
#include <gtest/gtest.h>
#include <vector>

// What is removed where depends on how paths are taken apart and put together. Other libraries, and
// other versions of this one, differ in each of these points.

namespace
{

using boost::filesystem::path;

std::vector<std::string> componentsOf(const path& whole)
{
    std::vector<std::string> components;
    for (const path& component : whole) {
        components.push_back(component.string());
    }
    return components;
}

using Components = std::vector<std::string>;

} // namespace

TEST(PathSemantics, ATrailingSeparatorIsALastComponentDot)
{
    EXPECT_EQ(componentsOf("/a/b/"), (Components{"/", "a", "b", "."}));
    EXPECT_EQ(componentsOf("httpdocs//"), (Components{"httpdocs", "."}));
    EXPECT_EQ(componentsOf("a//b"), (Components{"a", "b"}));
    EXPECT_EQ(componentsOf("a/./b"), (Components{"a", ".", "b"}));
    EXPECT_EQ(componentsOf("//srv/x"), (Components{"//srv", "/", "x"}));
    EXPECT_EQ(componentsOf(""), Components{});
}

TEST(PathSemantics, AppendingAnAbsolutePathGoesOnBelow)
{
    EXPECT_EQ((path("p") / "/x").native(), "p/x");
    EXPECT_EQ((path("httpdocs") / "/").native(), "httpdocs/");
    EXPECT_EQ((path("p/") / "/x").native(), "p//x");
    EXPECT_EQ((path() / "/x").native(), "/x");
}

TEST(PathSemantics, AppendingNothingChangesNothing)
{
    EXPECT_EQ((path("p") / "").native(), "p");
    EXPECT_EQ((path("p/") / "").native(), "p/");
    EXPECT_EQ((path() / "x").native(), "x");
}

TEST(PathSemantics, PathsAreComparedByComponents)
{
    EXPECT_LT(path("a/c"), path("a-x"));
    EXPECT_LT(path("a-x"), path("a.b"));
    EXPECT_LT(path("a"), path("a/b"));
    EXPECT_EQ(path("a//b"), path("a/b"));
    EXPECT_EQ(path("a/"), path("a/."));
    EXPECT_NE(path("httpdocs/"), path("httpdocs"));
}

TEST(PathSemantics, APathInAMessageWouldBeQuoted)
{
    EXPECT_EQ((boost::format("%1%") % path("/a&b")).str(), "\"/a&&b\"");
    EXPECT_EQ((boost::format("%1%") % path("/a&b").string()).str(), "/a&b");
}
