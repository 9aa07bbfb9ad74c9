#include <stdexcept>
#include <utility>

#include "site/VirtualHostPath.h"
#include "tests/lib/World.h"

using zelto::VirtualHostPath;

namespace
{

class VirtualHostPathTest : public World
{
protected:
    /// The text with which a directory is refused; "" when it is taken.
    static std::string refusalOf(const std::string& directory)
    {
        try {
            (void)VirtualHostPath::fromDirectory(directory);
            return "";
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    }

    static std::string notBelowTheRoot(const std::string& directory)
    {
        return "Virtual host " + directory + " is not a subdirectory of /srv/www/vhosts";
    }

    static std::string notAVirtualHost(const std::string& directory)
    {
        return "Directory " + directory + " does not represent a virtual host";
    }
};

} // namespace

TEST_F(VirtualHostPathTest, OneComponentBelowTheRootIsADomain)
{
    const auto host = VirtualHostPath::fromDirectory("/srv/www/vhosts/example.test");
    EXPECT_EQ(host.root.string(), "/srv/www/vhosts");
    EXPECT_EQ(host.relative.string(), "example.test");
    EXPECT_EQ(host.directory.string(), "/srv/www/vhosts/example.test");
    EXPECT_EQ(host.name, "example.test");
    EXPECT_FALSE(host.is_subdomain);
}

TEST_F(VirtualHostPathTest, ASubdomainIsNamedAfterItselfAndItsDomain)
{
    const auto host =
        VirtualHostPath::fromDirectory("/srv/www/vhosts/example.test/subdomains/shop");
    EXPECT_EQ(host.root.string(), "/srv/www/vhosts");
    EXPECT_EQ(host.relative.string(), "example.test/subdomains/shop");
    EXPECT_EQ(host.directory.string(), "/srv/www/vhosts/example.test/subdomains/shop");
    EXPECT_EQ(host.name, "shop.example.test");
    EXPECT_TRUE(host.is_subdomain);
}

TEST_F(VirtualHostPathTest, ADomainMayBeCalledSubdomains)
{
    const auto domain = VirtualHostPath::fromDirectory("/srv/www/vhosts/subdomains");
    EXPECT_EQ(domain.name, "subdomains");
    EXPECT_FALSE(domain.is_subdomain);

    const auto subdomain =
        VirtualHostPath::fromDirectory("/srv/www/vhosts/subdomains/subdomains/subdomains");
    EXPECT_EQ(subdomain.name, "subdomains.subdomains");
    EXPECT_TRUE(subdomain.is_subdomain);
}

TEST_F(VirtualHostPathTest, ADirectoryNeedNotExistAndIsKeptAsGiven)
{
    const auto host = VirtualHostPath::fromDirectory("/srv/www//vhosts/missing.test");
    EXPECT_EQ(host.directory.string(), "/srv/www//vhosts/missing.test");
    EXPECT_EQ(host.name, "missing.test");
}

TEST_F(VirtualHostPathTest, OtherNumbersOfComponentsBelowTheRootAreNoVirtualHost)
{
    for (const std::string directory : {"/srv/www/vhosts",
             "/srv/www/vhosts/example.test/subdomains", "/srv/www/vhosts/example.test/httpdocs",
             "/srv/www/vhosts/example.test/subdomains/shop/httpdocs",
             "/srv/www/vhosts/a/subdomains/b/subdomains/c"}) {
        EXPECT_EQ(refusalOf(directory), notAVirtualHost(directory));
    }
}

TEST_F(VirtualHostPathTest, TheMiddleOfThreeComponentsMustBeSubdomains)
{
    for (const std::string directory : {"/srv/www/vhosts/example.test/httpdocs/shop",
             "/srv/www/vhosts/example.test/Subdomains/shop",
             "/srv/www/vhosts/example.test/subdomains2/shop"}) {
        EXPECT_EQ(refusalOf(directory), notAVirtualHost(directory));
    }
}

TEST_F(VirtualHostPathTest, ADirectoryElsewhereIsNotBelowTheRoot)
{
    for (const std::string directory : {"/", "/srv/www", "/srv/other/vhosts/example.test",
             "/home/example.test", "example.test", "srv/www/vhosts/example.test", ""}) {
        EXPECT_EQ(refusalOf(directory), notBelowTheRoot(directory));
    }
}

TEST_F(VirtualHostPathTest, ASiblingWhoseNameBeginsWithTheRootsTextIsNotBelowIt)
{
    EXPECT_EQ(refusalOf("/srv/www/vhosts2/a"), notBelowTheRoot("/srv/www/vhosts2/a"));
    EXPECT_EQ(refusalOf("/srv/www/vhosts.old"), notBelowTheRoot("/srv/www/vhosts.old"));
}

TEST_F(VirtualHostPathTest, MessagesShowThePathWithoutQuotesOrDoubledSigns)
{
    EXPECT_EQ(refusalOf("/a&b \"c\" %1%"), notBelowTheRoot("/a&b \"c\" %1%"));
    EXPECT_EQ(
        refusalOf("/srv/www/vhosts/a&b/ c/%2%"), notAVirtualHost("/srv/www/vhosts/a&b/ c/%2%"));
}

TEST_F(VirtualHostPathTest, TrailingSlashesAndDotsCountAsComponents)
{
    for (const std::string directory :
        {"/srv/www/vhosts/example.test/", "/srv/www/vhosts/example.test/./shop",
            "/srv/www/vhosts/example.test/subdomains/shop/"}) {
        EXPECT_EQ(refusalOf(directory), notAVirtualHost(directory));
    }
}

TEST_F(VirtualHostPathTest, ADotOrTwoBelowTheRootAreADomainOfThatName)
{
    const std::pair<std::string, std::string> names[] = {{"/", "."}, {"/.", "."}, {"/..", ".."}};
    for (const auto& [ending, name] : names) {
        const auto host = VirtualHostPath::fromDirectory("/srv/www/vhosts" + ending);
        EXPECT_EQ(host.directory.string(), "/srv/www/vhosts" + ending);
        EXPECT_EQ(host.relative.string(), name);
        EXPECT_EQ(host.name, name);
        EXPECT_FALSE(host.is_subdomain);
    }
}

TEST_F(VirtualHostPathTest, ARootConfiguredWithATrailingSlashHasNothingBelowIt)
{
    configure("HTTPD_VHOSTS_D /srv/www/vhosts/\n");
    const Outcome outcome = inChild(
        [] { (void)std::fputs(refusalOf("/srv/www/vhosts/example.test").c_str(), stdout); });
    EXPECT_EQ(outcome.out, "Virtual host /srv/www/vhosts/example.test is not a subdirectory of "
                           "/srv/www/vhosts/");
}

TEST_F(VirtualHostPathTest, TheRootIsTheConfiguredOne)
{
    configure("HTTPD_VHOSTS_D /home/sites\n");
    const Outcome outcome = inChild([] {
        const auto host = VirtualHostPath::fromDirectory("/home/sites/a/subdomains/b");
        (void)std::printf("%s %s %s", host.root.c_str(), host.relative.c_str(), host.name.c_str());
    });
    EXPECT_EQ(outcome.out, "/home/sites a/subdomains/b b.a");
}

TEST_F(VirtualHostPathTest, ASubdomainPutTogetherFromNamesCarriesTheDomainsName)
{
    const auto host = VirtualHostPath::ofSubdomain("example.test", "shop");
    EXPECT_EQ(host.root.string(), "/srv/www/vhosts");
    EXPECT_EQ(host.relative.string(), "example.test/subdomains/shop");
    EXPECT_EQ(host.directory.string(), "/srv/www/vhosts/example.test/subdomains/shop");
    EXPECT_EQ(host.name, "example.test");
    EXPECT_TRUE(host.is_subdomain);
}

TEST_F(VirtualHostPathTest, ASubdomainPutTogetherFromNamesIsNotChecked)
{
    const auto host = VirtualHostPath::ofSubdomain("a/b", "c/d");
    EXPECT_EQ(host.directory.string(), "/srv/www/vhosts/a/b/subdomains/c/d");
    EXPECT_EQ(host.name, "a/b");
}
