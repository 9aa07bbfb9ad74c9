#include <cstdlib>
#include <unistd.h>

#include "tests/cli/Site.h"

namespace
{

/// Names from customers that would lead out of the place meant for them.
class NameChecks : public Site
{
protected:
    NameChecks() { makeSkeleton(); }

    static Arguments naming(const std::string& operation, const std::string& subdomain,
        const std::string& domain, const Arguments& options = {})
    {
        return with(
            {operation, "--subdomain-name=" + subdomain, "--vhost-name=" + domain}, options);
    }

    static Arguments creating(
        const std::string& subdomain, const std::string& domain, const std::string& client)
    {
        return naming("--create", subdomain, domain,
            {"--user-name=site", "--cl-id=" + client, "--skip-www-root", "--skip-cgi-bin"});
    }

    static Arguments changing(const std::string& subdomain, const std::string& domain)
    {
        return naming("--change-user", subdomain, domain,
            {"--user-name=other", "--skip-www-root", "--skip-cgi-bin"});
    }

    static Arguments renamingIn(
        const std::string& domain, const std::string& from, const std::string& to)
    {
        return {"--rename", "--vhost-name=" + domain, "--old-name=" + from, "--new-name=" + to};
    }

    static std::string below(std::string directory, const std::string& name)
    {
        directory += '/';
        return directory += name;
    }

    /// The run is refused for this parameter, and nothing has changed.
    static void expectRefused(const Arguments& arguments, const std::string& parameter)
    {
        const std::string before = treeOf("/srv");
        expectReported(run(arguments),
            {"Error: parameter '" + parameter + "' leads out of its directory\n"}, 1);
        EXPECT_EQ(treeOf("/srv"), before);
    }

    inline static const Arguments leadingOut{"..", "a/..", "../a", "a/../b", "/..", "../", ".",
        "./", "/", "//", "./.", "...", "../../../../../../etc"};
    inline static const Arguments leadingDown{"a/b", "..x", "a..", "x/./y", ".hidden", "...x"};
};

} // namespace

TEST_F(NameChecks, RefuseANameOfASubdomainThatMayLeadOut)
{
    makeDir(shop);
    for (const std::string& name : leadingOut) {
        expectRefused(creating(name, "example.test", "7"), "subdomain-name");
        expectRefused(naming("--remove", name, "example.test"), "subdomain-name");
        expectRefused(changing(name, "example.test"), "subdomain-name");
        expectRefused(renaming(name, "new"), "old-name");
        expectRefused(renaming("shop", name), "new-name");
    }
}

TEST_F(NameChecks, RefuseANameOfADomainThatMayLeadOut)
{
    makeDir(shop);
    for (const std::string& name : leadingOut) {
        expectRefused(creating("shop", name, "7"), "vhost-name");
        expectRefused(naming("--remove", "shop", name), "vhost-name");
        expectRefused(changing("shop", name), "vhost-name");
        expectRefused(renamingIn(name, "shop", "new"), "vhost-name");
    }
}

TEST_F(NameChecks, TakeEveryNameThatLeadsDown)
{
    for (const std::string& name : leadingDown) {
        const std::string path = below(subdomains, name);
        makeDirs(path.substr(0, path.rfind('/')));
        expectSilent(run(creating(name, "example.test", "7")), 0);
        EXPECT_TRUE(exists(path + "/conf/site")) << name;
        expectSilent(run(changing(name, "example.test")), 0);
        expectSilent(run(renaming(name, "new")), 0);
        EXPECT_TRUE(exists(subdomains + "/new/conf/site")) << name;
        expectSilent(run(renaming("new", name)), 0);
        expectSilent(run(naming("--remove", name, "example.test")), 0);
        EXPECT_FALSE(exists(path)) << name;
    }
}

TEST_F(NameChecks, TakeEveryNameOfADomainThatLeadsDown)
{
    for (const std::string& name : leadingDown) {
        const std::string directory = below(root, name) + "/subdomains";
        makeDirs(directory);
        expectSilent(run(creating("shop", name, "7")), 0);
        expectSilent(run(renamingIn(name, "shop", "new")), 0);
        EXPECT_TRUE(exists(directory + "/new/conf/site"));
        expectSilent(run(naming("--remove", "new", name)), 0);
        EXPECT_EQ(treeOf(directory), "dir  0755 root:root .\n");
    }
}

TEST_F(NameChecks, RefuseAClientThatLeadsUpOnlyForACreation)
{
    for (const char* id : {"..", "../..", "a/..", "../a", "a/../b", "../../../../../etc"}) {
        expectRefused(creating("shop", "example.test", id), "cl-id");
        makeDir(shop);
        expectSilent(run(with(removal(), {std::string("--cl-id=") + id})), 0);
        EXPECT_FALSE(exists(shop));
    }
    for (const char* id : {"", ".", "..x", "x..", "7/8"}) {
        expectSilent(run(creating("shop", "example.test", id)), 0);
        expectSilent(run(removal()), 0);
    }
}

TEST_F(NameChecks, DoNotLookAtNamesThatTheOperationDoesNotUse)
{
    makeDir(shop);
    expectSilent(run(with(removal(), {"--old-name=..", "--new-name=..", "--user-name=.."})), 0);
    EXPECT_FALSE(exists(shop));
    makeDir(shop);
    expectSilent(run(with(renaming("shop", "new"), {"--subdomain-name=..", "--user-name=.."})), 0);
    EXPECT_TRUE(exists(subdomains + "/new"));
    for (const char* operation : {"--help", "-h"}) {
        const Outcome end = run(naming(operation, "..", ".."));
        EXPECT_EQ(end.err, "");
        EXPECT_EQ(end.status, 0);
    }
    EXPECT_EQ(run({"--vhost-name=..", "--subdomain-name=.."}).status, 0) << "no operation";
}

TEST_F(NameChecks, NameTheFirstParameterThatIsRefused)
{
    expectRefused(creating("..", "..", ".."), "subdomain-name");
    expectRefused(creating("shop", "..", ".."), "vhost-name");
    expectRefused(renamingIn("..", "..", ".."), "vhost-name");
    expectRefused(renamingIn("example.test", "..", ".."), "old-name");
}

TEST_F(NameChecks, ComeAfterTheChecksForMissingParameters)
{
    expectReported(run(naming("--remove", "..", "")),
        {"Miss parameter 'vhost-name' or previos parameter empty.\n"}, 1);
    expectReported(run(naming("--create", "..", "..", {"--user-name=site", "--skip-www-root"})),
        {"Miss parameter 'cgi-bin-path' or previos parameter empty.\n"}, 1);
    expectReported(run({"--rename", "--vhost-name=..", "--old-name=.."}),
        {"Miss parameter 'new-name' or previos parameter empty.\n"}, 1);
}

TEST_F(NameChecks, ComeBeforeTheConfigurationAndTheClientAreLookedFor)
{
    // Without a configuration later reports show that it could not be opened.
    const Arguments withoutClient{"--user-name=site", "--skip-www-root", "--skip-cgi-bin"};
    expectRefused(naming("--create", "..", "example.test", withoutClient), "subdomain-name");
    expectReported(run(naming("--create", "shop", "example.test", withoutClient)),
        {"Error: parameter 'cl-id' wasn't specified" + noSuchFile}, 1);
    expectRefused(creating("shop", "example.test", ".."), "cl-id");
}

TEST_F(NameChecks, AreBehindTheParsersOwn)
{
    expectReported(run(with(naming("--remove", "..", ".."), {"extra"})),
        {"Some parameters in command string leave unprocessed. Check parameters please.\n"}, 1);
}

TEST_F(NameChecks, RefuseANameOfWhichTheCutPathLeavesOnlyTwoDots)
{
    // Slashes more or less change nothing about what a name means.
    configure("# nothing\n");
    makeDir(shop);
    const std::string domain = "example.test" + std::string(4065 - 12, '/');
    expectRefused(naming("--remove", "..x", domain), "subdomain-name");
    expectRefused(renamingIn(domain, "..x", "new"), "old-name");
}

TEST_F(NameChecks, NeverLetACutPathNameASubdomainForWhatIsRootsInIt)
{
    configure("# nothing\n");
    makeDirs(shop + "/conf");
    makeFile(shop + "/page", "x", {0644, site, kvocln});
    for (const size_t length : {4062U, 4063U}) {
        const std::string domain = "example.test" + std::string(length - 12, '/');
        expectRefused(changing("shop", domain), "subdomain-name");
        EXPECT_EQ(run(creating("shop", domain, "7")).status, 0);
        EXPECT_EQ(treeOf(shop), "dir  0755 root:root .\n"
                                "dir  0750 root:kvoserv conf\n"
                                "dir  0750 root:kvoserv error_docs\n"
                                "file 0644 site:kvocln page \"x\"\n");
        ASSERT_EQ(rmdir((shop + "/error_docs").c_str()), 0);
    }
    // One character less, and "c" is left of it.
    const Outcome end = run(changing("shop", "example.test" + std::string(4061 - 12, '/')));
    EXPECT_EQ(end.err.substr(0, 28), "twigctl: Unable to get entry");
    EXPECT_EQ(end.status, 1);
}

TEST_F(NameChecks, NeverLetACutPathNameMoreThanASubdomain)
{
    configure("# nothing\n");
    makeFile(shop + "x", "kept");
    const std::string before = treeOf(root);
    for (const size_t length : {4066U, 4067U, 4068U, 4075U, 4079U, 4096U, 5000U}) {
        const std::string domain = "example.test" + std::string(length - 12, '/');
        for (const char* name : {".x", "shop"}) {
            (void)run(naming("--remove", name, domain));
            EXPECT_EQ(treeOf(root), before) << length << ' ' << name;
        }
    }
    expectRefused(
        naming("--remove", ".x", "example.test" + std::string(4066 - 12, '/')), "subdomain-name");
    expectRefused(changing("shop", "example.test" + std::string(5000 - 12, '/')), "vhost-name");
}
