#include <cerrno>
#include <functional>
#include <string>

#include "conf/ProgramName.h"
#include "front/RenameSubdomain.h"
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

/// A domain's name of this length that means "example.test": slashes more or less change nothing.
std::string padded(size_t length)
{
    const std::string domain = "example.test";
    return domain + std::string(length - domain.size(), '/');
}

/// Which parameter the body ends the process for; "" if it does not.
std::string refusedOf(const std::function<void()>& body)
{
    const Outcome end = inChild([&body] {
        PROGNAME = "twigctl";
        errno = 0;
        body();
    });
    if (end.status == 0) {
        return "";
    }
    EXPECT_EQ(end.status, 1);
    EXPECT_EQ(end.out, end.err);
    for (const char* parameter : {"subdomain-name", "vhost-name", "old-name", "new-name"}) {
        if (end.err == std::string("twigctl: Error: parameter '") + parameter +
                           "' leads out of its directory\n") {
            return parameter;
        }
    }
    return end.err;
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

TEST_F(SubdomainPath, IsRefusedWhenWhatIsLeftOfItNamesSomethingElseThanASubdomain)
{
    configure("# nothing\n");
    // 16 characters before the domain and 12 behind it: 4067 leave no room for anything else.
    const struct {
        size_t domain;
        const char* subdomain;
        const char* refused;
    } table[] = {
        {4065, "..x", "subdomain-name"}, // "subdomains/.."
        {4066, "..x", "subdomain-name"}, // "subdomains/."
        {4066, ".x", "subdomain-name"},
        {4067, "shop", "vhost-name"}, // "subdomains/"
        {4068, "shop", "vhost-name"}, // "subdomains"
        {4079, "shop", "vhost-name"}, // "example.test///"
        {4096, "shop", "vhost-name"},
    };
    for (const auto& row : table) {
        EXPECT_EQ(
            refusedOf([&] { (void)subdomainPath(padded(row.domain).c_str(), row.subdomain); }),
            row.refused)
            << row.domain << ' ' << row.subdomain;
    }
}

TEST_F(SubdomainPath, IsTakenAsLongAsItNamesASubdomain)
{
    EXPECT_EQ(formed(padded(4064), "..x").substr(4083), "bdomains/..x");
    EXPECT_EQ(formed(padded(4065), ".xy").substr(4083), "ubdomains/.x");
    EXPECT_EQ(formed(padded(4066), "shop").substr(4083), "subdomains/s");
}

TEST_F(SubdomainPath, IsTakenWhenTheSystemWillRefuseItAnyway)
{
    const std::string whole = "/srv/www/vhosts/" + std::string(4065, 'd') + "/subdomains/..";
    EXPECT_EQ(formed(std::string(4065, 'd'), "..x"), whole);
}

TEST_F(SubdomainPath, CallsTheParameterOfARefusedNameByItsOwnName)
{
    configure("# nothing\n");
    const std::string domain = padded(4065);
    EXPECT_EQ(refusedOf([&] { renameSubdomain(domain.c_str(), "..x", "b"); }), "old-name");
    EXPECT_EQ(refusedOf([&] { renameSubdomain(domain.c_str(), "a", "..x"); }), "new-name");
    EXPECT_EQ(refusedOf([&] { renameSubdomain(domain.c_str(), "..x", "..x"); }), "old-name");
}

TEST_F(SubdomainPath, IsRefusedWhenNothingIsLeftOfANameThatIsAddedToIt)
{
    configure("# nothing\n");
    const struct {
        size_t domain;
        const char* refused;
    } table[] = {{4061, ""}, {4062, "subdomain-name"}, {4063, "subdomain-name"}};
    for (const auto& row : table) {
        for (const char* name : {"conf", "c"}) {
            EXPECT_EQ(refusedOf([&] {
                (void)pathInside(subdomainPath(padded(row.domain).c_str(), "shop"), name);
            }),
                row.refused)
                << row.domain << ' ' << name;
        }
    }
    EXPECT_EQ(refusedOf([] {
        (void)pathInside(subdomainPath(std::string(4063, 'd').c_str(), "shop"), "conf");
    }),
        "")
        << "the system will refuse it anyway";
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
