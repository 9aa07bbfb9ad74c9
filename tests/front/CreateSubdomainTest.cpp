#include <cerrno>

#include "conf/ProgramName.h"
#include "front/CreateSubdomain.h"
#include "tests/front/InstallerStub.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

/// Failures that no state of the disk brings about.
class CreateSubdomain : public World
{
protected:
    inline static const std::string shop = "/srv/www/vhosts/example.test/subdomains/shop";

    CreateSubdomain()
    {
        makeDirs("/srv/www/vhosts/.skel/0");
        makeDirs("/srv/www/vhosts/example.test/subdomains");
    }

    static zelto::SkeletonOptions withoutSiteDirectories()
    {
        zelto::SkeletonOptions options;
        options.skip_www_root = 1;
        options.skip_cgi_bin = 1;
        return options;
    }

    /// Creates "shop" while the nth call of a function fails.
    static Outcome created(const char* function, int error, int nth = 1,
        const zelto::SkeletonOptions& options = withoutSiteDirectories())
    {
        return inChild([=] {
            PROGNAME = "twigctl";
            faults::fail(function, error, nth);
            std::exit(createSubdomain("example.test", "shop", "site", "7", options));
        });
    }

    /// Creates "shop" with nothing but "conf" and "error_docs".
    static Outcome createdWithoutAClient()
    {
        return inChild([] {
            std::exit(
                createSubdomain("example.test", "shop", "site", nullptr, withoutSiteDirectories()));
        });
    }

    static void expectReport(const Outcome& end, const std::string& report, int status)
    {
        EXPECT_EQ(end.err, "twigctl: " + report);
        EXPECT_EQ(end.out, "twigctl: " + report);
        EXPECT_EQ(end.status, status);
    }

    faults::Guard guard_;
};

} // namespace

TEST_F(CreateSubdomain, CallsTheTreesInsideTheSubdomainByTheirRelativePaths)
{
    const Outcome end = inChild([] {
        PROGNAME = "twigctl";
        // Once it has gone into the subdomain, "conf" is opened when it is made, then as a tree.
        faults::runBefore("fchdir", 1, [] { faults::fail("openat", EIO, 2); });
        std::exit(createSubdomain("example.test", "shop", "site", "7", withoutSiteDirectories()));
    });
    expectReport(end,
        "Unable to open dir ./conf: Input/output error\n\nSystem error 5: Input/output error\n", 1);
}

TEST_F(CreateSubdomain, CallsTheTreeOfErrorDocsByItsRelativePathToo)
{
    const Outcome end = inChild([] {
        PROGNAME = "twigctl";
        // The third directory to be made is "error_docs", behind the subdomain's and "conf".
        faults::runBefore("mkdirat", 3, [] { faults::fail("openat", EIO, 2); });
        std::exit(createSubdomain("example.test", "shop", "site", "7", withoutSiteDirectories()));
    });
    expectReport(end,
        "Unable to open dir ./error_docs: Input/output error\n"
        "\nSystem error 5: Input/output error\n",
        1);
}

TEST_F(CreateSubdomain, ReportsAnInstallationThatTellsOfAFailure)
{
    const Outcome end = inChild([] {
        PROGNAME = "twigctl";
        const InstallerStub failing(1);
        std::exit(createSubdomain("example.test", "shop", "site", "7", withoutSiteDirectories()));
    });
    expectReport(end, "Unable to setup skeleton on subdomain 'shop.example.test'\n", 255);
    EXPECT_EQ(treeOf(shop), "dir  0755 root:root .\n");
}

TEST_F(CreateSubdomain, ReportsASiteDirectoryWhoseModeCannotBeSet)
{
    zelto::SkeletonOptions options = withoutSiteDirectories();
    options.skip_www_root = 0;
    options.www_root = "/srv/w";
    // Behind the subdomain's own mode and the one that finishes the new directory.
    expectReport(created("fchmodat2", EROFS, 3, options),
        "Unable to create and set permissions for /srv/w"
        "\nSystem error 30: Read-only file system\n",
        255);
    EXPECT_EQ(accessOf("/srv/w"), "0750 site:kvoserv");
    EXPECT_FALSE(exists(shop + "/conf"));
}

TEST_F(CreateSubdomain, SetsAccessAtEveryDepthOfConfAndErrorDocs)
{
    for (const char* top : {"/conf", "/error_docs"}) {
        makeDirs(shop + top + "/a/b");
        makeFile(shop + top + "/a/b/f", "x", {0600, other, users});
    }
    const Outcome end = createdWithoutAClient();
    EXPECT_EQ(end.err, "");
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(treeOf(shop), "dir  0755 root:root .\n"
                            "dir  0750 root:kvoserv conf\n"
                            "dir  0750 root:kvoserv conf/a\n"
                            "dir  0750 root:kvoserv conf/a/b\n"
                            "file 0644 root:kvoserv conf/a/b/f \"x\"\n"
                            "dir  0750 root:kvoserv error_docs\n"
                            "dir  0750 root:kvoserv error_docs/a\n"
                            "dir  0750 root:kvoserv error_docs/a/b\n"
                            "file 0644 root:kvoserv error_docs/a/b/f \"x\"\n");
}

TEST_F(CreateSubdomain, ReportsASubdomainThatCannotBeEntered)
{
    expectReport(created("fchdir", EACCES),
        "ERROR: Unable to change directory to " + shop + "\nSystem error 13: Permission denied\n",
        255);
    EXPECT_FALSE(exists(shop + "/conf"));
}

TEST_F(CreateSubdomain, WithoutAClientInstallsNoSkeletonAndPreparesTheSite)
{
    makeFile("/srv/www/vhosts/.skel/0/conf", "x");
    const Outcome end = createdWithoutAClient();
    EXPECT_EQ(end.err, "");
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(treeOf(shop), "dir  0755 root:root .\n"
                            "dir  0750 root:kvoserv conf\n"
                            "dir  0750 root:kvoserv error_docs\n");
}

TEST_F(CreateSubdomain, SurvivesSiteDirectoriesThatAreNull)
{
    const Outcome end = inChild([] {
        const zelto::SkeletonOptions options;
        std::exit(createSubdomain("example.test", "shop", "site", nullptr, options));
    });
    EXPECT_EQ(end.err, "Cannot create directory : No such file or directory"
                       "\nSystem error 2: No such file or directory\n");
    EXPECT_EQ(end.status, 1);
}
