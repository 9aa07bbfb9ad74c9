#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "site/SiteDirectories.h"

namespace
{

std::vector<std::string> namesOf(unsigned int mode)
{
    const auto names = zelto::siteDirectoryNames(mode);
    return {names.begin(), names.end()};
}

using Names = std::vector<std::string>;

} // namespace

TEST(SiteDirectories, ModeZeroNamesEveryStandardDirectoryInOrder)
{
    EXPECT_EQ(namesOf(0), (Names{"httpdocs", "conf", "cgi-bin", "anon_ftp", "error_docs"}));
}

TEST(SiteDirectories, ModeOneNamesTheThreeThatHoldUserFiles)
{
    EXPECT_EQ(namesOf(1), (Names{"httpdocs", "cgi-bin", "private"}));
}

TEST(SiteDirectories, ModeTwoLeavesOutTheWebRootOnly)
{
    EXPECT_EQ(namesOf(2), (Names{"conf", "cgi-bin", "anon_ftp", "error_docs"}));
}

TEST(SiteDirectories, AnyOtherModeNamesNothing)
{
    EXPECT_EQ(namesOf(3), Names{});
    EXPECT_EQ(namesOf(static_cast<unsigned int>(-1)), Names{});
}
