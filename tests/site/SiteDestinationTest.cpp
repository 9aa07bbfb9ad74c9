#include <gtest/gtest.h>
#include <string>

#include "site/SiteDestination.h"

using zelto::SiteOptions;
using zelto::SkeletonOptions;

namespace
{

/// "<path> inside", "<path> outside", or "left alone".
std::string placeOf(const std::string& entry, const SkeletonOptions& options)
{
    const auto destination = siteDestination(entry, "/v/example.test", SiteOptions(options));
    if (!destination) {
        return "left alone";
    }
    EXPECT_EQ(destination->path,
        destination->below.empty() ? destination->base : destination->base / destination->below);
    return destination->path.string() + (destination->inside ? " inside" : " outside");
}

constexpr SkeletonOptions usual = {"/w/root", 0, 0, 0, "/w/cgi"};

} // namespace

TEST(SiteDestination, TheWebRootStandsWhereItsOptionSays)
{
    EXPECT_EQ(placeOf("httpdocs", usual), "/w/root outside");
    EXPECT_EQ(placeOf("httpdocs/img/a b.png", usual), "/w/root/img/a b.png outside");
}

TEST(SiteDestination, TheCgiDirectoryStandsWhereItsOptionSays)
{
    EXPECT_EQ(placeOf("cgi-bin", usual), "/w/cgi outside");
    EXPECT_EQ(placeOf("cgi-bin/test/x.cgi", usual), "/w/cgi/test/x.cgi outside");
}

TEST(SiteDestination, EverythingElseLiesInTheVirtualHost)
{
    for (const std::string entry : {"conf", "conf/a/b", "anon_ftp/pub", "error_docs/404.html",
             "private", "httpsdocs/x", "httpdocs2", "cgi-bin.old/x"}) {
        EXPECT_EQ(placeOf(entry, usual), "/v/example.test/" + entry + " inside");
    }
}

TEST(SiteDestination, OnlyTheFirstComponentDecides)
{
    EXPECT_EQ(placeOf("conf/httpdocs/x", usual), "/v/example.test/conf/httpdocs/x inside");
    EXPECT_EQ(placeOf("httpdocs/cgi-bin/error_docs", usual), "/w/root/cgi-bin/error_docs outside");
}

TEST(SiteDestination, ASlashAtTheEndOfABaseIsNotDoubled)
{
    const SkeletonOptions options = {"/w/root/", 0, 0, 0, "/w/cgi/"};
    EXPECT_EQ(placeOf("httpdocs", options), "/w/root/ outside");
    EXPECT_EQ(placeOf("httpdocs/x", options), "/w/root/x outside");
    EXPECT_EQ(placeOf("cgi-bin/x", options), "/w/cgi/x outside");
}

TEST(SiteDestination, NullTextsCountAsEmpty)
{
    const SkeletonOptions options;
    EXPECT_EQ(placeOf("httpdocs", options), " outside");
    EXPECT_EQ(placeOf("httpdocs/a/b", options), "a/b outside");
    EXPECT_EQ(placeOf("cgi-bin/x", options), "x outside");
}

TEST(SiteDestination, SkippingTheCgiDirectoryLeavesAllOfItAlone)
{
    for (const int flag : {1, -1, 2}) {
        const SkeletonOptions options = {"/w/root", 0, 0, flag, "/w/cgi"};
        EXPECT_EQ(placeOf("cgi-bin", options), "left alone");
        EXPECT_EQ(placeOf("cgi-bin/x", options), "left alone");
        EXPECT_EQ(placeOf("conf/cgi-bin", options), "/v/example.test/conf/cgi-bin inside");
        EXPECT_EQ(placeOf("error_docs/x", options), "/v/example.test/error_docs/x inside");
        EXPECT_EQ(placeOf("httpdocs/x", options), "/w/root/x outside");
    }
}

TEST(SiteDestination, SkippingErrorDocumentsLeavesAllOfThemAlone)
{
    const SkeletonOptions options = {"/w/root", 0, 1, 0, "/w/cgi"};
    EXPECT_EQ(placeOf("error_docs", options), "left alone");
    EXPECT_EQ(placeOf("error_docs/404.html", options), "left alone");
    EXPECT_EQ(placeOf("conf/error_docs", options), "/v/example.test/conf/error_docs inside");
    EXPECT_EQ(placeOf("cgi-bin/x", options), "/w/cgi/x outside");
}

TEST(SiteDestination, SkippingTheWebRootIsNotConsulted)
{
    const SkeletonOptions options = {"/w/root", 1, 0, 0, "/w/cgi"};
    EXPECT_EQ(placeOf("httpdocs/x", options), "/w/root/x outside");
}

TEST(SiteDestination, AnEmptyEntryIsTheVirtualHostItself)
{
    EXPECT_EQ(placeOf("", usual), "/v/example.test inside");
}
