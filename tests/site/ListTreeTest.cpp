#include <algorithm>
#include <unistd.h>

#include "tests/site/SiteRemovalFixture.h"

namespace
{

using Paths = std::vector<boost::filesystem::path>;

class ListTree : public SiteRemoval
{
protected:
    ListTree()
    {
        makeDirs("/srv/web/d/e");
        makeFile("/srv/web/d/x", "");
        makeLink("/srv/web/link", "/srv/www");
    }

    /// The entries behind the first one sorted, as directories give theirs in any order.
    static Paths list(const std::string& directory)
    {
        Paths entries;
        EXPECT_EQ(errorsOf([&] { zelto::listTree(directory, entries); }), "");
        std::sort(entries.begin() + 1, entries.end());
        return entries;
    }

    const Paths whole_ = {"", "d", "d/e", "d/x", "link"};
};

} // namespace

TEST_F(ListTree, BeginsWithTheEmptyPathAndIsRelativeToTheDirectory)
{
    EXPECT_EQ(list("/srv/web"), whole_);
}

TEST_F(ListTree, IsTheSameForADirectoryWithASeparatorBehindIt)
{
    for (const char* directory :
        {"/srv/web/", "/srv/web//", "/srv/web/.", "//srv/web", "/srv//web"}) {
        EXPECT_EQ(list(directory), whole_);
        EXPECT_EQ(list(directory)[0].native(), "");
    }
}

TEST_F(ListTree, FindsARelativeDirectoryFromTheWorkingDirectory)
{
    ASSERT_EQ(chdir("/srv"), 0);
    EXPECT_EQ(list("web"), whole_);
    EXPECT_EQ(list("web/"), whole_);
    ASSERT_EQ(chdir("/srv/web"), 0);
    EXPECT_EQ(list("."), whole_);
    ASSERT_EQ(chdir("/"), 0);
}

TEST_F(ListTree, ReplacesWhatTheListHeld)
{
    Paths entries = {"old", "older"};
    zelto::listTree("/srv/web/d/e", entries);
    EXPECT_EQ(entries, Paths{""});
}

TEST_F(ListTree, MayTakeItsDirectoryFromTheList)
{
    Paths entries = {"/srv/web"};
    zelto::listTree(entries[0], entries);
    EXPECT_EQ(entries.size(), whole_.size());
}

TEST_F(ListTree, HoldsADirectoryBeforeWhatIsInIt)
{
    Paths entries;
    zelto::listTree("/srv/web", entries);
    ASSERT_EQ(entries.size(), 5U);
    EXPECT_EQ(entries[0], "");
    const auto place = [&](const char* path) {
        return std::find(entries.begin(), entries.end(), path) - entries.begin();
    };
    EXPECT_LT(place("d"), place("d/e"));
    EXPECT_LT(place("d"), place("d/x"));
}

TEST_F(ListTree, OfWhatIsNotThereIsTheEmptyPath)
{
    EXPECT_EQ(list("/srv/nowhere"), Paths{""});
    EXPECT_EQ(list("/srv/web/d/x"), Paths{""});
}

TEST_F(ListTree, FollowsALinkOnlyWithASeparatorBehindIt)
{
    makeLink("/srv/link", "web");
    EXPECT_EQ(list("/srv/link"), Paths{""});
    EXPECT_EQ(list("/srv/link/"), whole_);
}

TEST_F(ListTree, ReportsADirectoryThatCannotBeLookedAt)
{
    Paths entries;
    EXPECT_EQ(errorsOf([&] { zelto::listTree("/srv/web/d/x/y", entries); }),
        "/srv/web/d/x/y: Not a directory\n");
    EXPECT_EQ(entries, Paths{""});
}
