#include <string>

#include "front/SubdomainPath.h"
#include "tests/lib/World.h"

namespace
{

using SubdomainPath = World;

/// The path, formed in a process that has not loaded a configuration yet.
std::string formed(const std::string& domain, const std::string& subdomain)
{
    return inChild([&] {
        std::printf("%s", subdomainPath(domain.c_str(), subdomain.c_str()).text);
    }).out;
}

} // namespace

TEST_F(SubdomainPath, LiesBelowTheDefaultRootWithoutAConfiguration)
{
    EXPECT_EQ(formed("example.test", "shop"), "/srv/www/vhosts/example.test/subdomains/shop");
}

TEST_F(SubdomainPath, LiesBelowTheConfiguredRoot)
{
    configure("HTTPD_VHOSTS_D /home/vhosts\n");
    EXPECT_EQ(formed("example.test", "shop"), "/home/vhosts/example.test/subdomains/shop");
}

TEST_F(SubdomainPath, TakesNamesAsTheyAre)
{
    EXPECT_EQ(formed("a/b", "%s%n c"), "/srv/www/vhosts/a/b/subdomains/%s%n c");
}

TEST_F(SubdomainPath, IsCutAt4095Characters)
{
    const std::string whole =
        "/srv/www/vhosts/" + std::string(4096, 'd') + "/subdomains/" + std::string(4096, 's');
    EXPECT_EQ(formed(std::string(4096, 'd'), std::string(4096, 's')), whole.substr(0, 4095));
}

TEST_F(SubdomainPath, IsCutAgainWhenANameIsAddedToIt)
{
    const std::string added = inChild([] {
        const FixedPath path = subdomainPath(std::string(4060, 'd').c_str(), "s");
        std::printf("%s", pathInside(path, "error_docs").text);
    }).out;
    const std::string whole =
        "/srv/www/vhosts/" + std::string(4060, 'd') + "/subdomains/s/error_docs";
    EXPECT_EQ(added, whole.substr(0, 4095));
}
