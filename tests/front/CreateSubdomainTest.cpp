#include <cerrno>

#include "conf/ProgramName.h"
#include "front/CreateSubdomain.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

/// Failures that no state of the disk brings about.
class CreateSubdomain : public World
{
protected:
    CreateSubdomain()
    {
        makeDirs("/srv/www/vhosts/.skel/0");
        makeDirs("/srv/www/vhosts/example.test/subdomains");
    }

    /// Creates "shop" without site directories while one call of a function fails.
    static Outcome created(const char* function, int error, int skipErrorDocs = 1)
    {
        return inChild([=] {
            PROGNAME = "twigctl";
            zelto::SkeletonOptions options;
            options.skip_www_root = 1;
            options.skip_cgi_bin = 1;
            options.skip_error_docs = skipErrorDocs;
            faults::fail(function, error);
            std::exit(createSubdomain("example.test", "shop", "site", "7", options));
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
    expectReport(created("openat", EIO),
        "Unable to open dir ./conf: Input/output error\n\nSystem error 5: Input/output error\n", 1);
}

TEST_F(CreateSubdomain, ReportsASubdomainThatCannotBeEntered)
{
    expectReport(created("chdir", EACCES),
        "ERROR: Unable to change directory to /srv/www/vhosts/example.test/subdomains/shop"
        "\nSystem error 13: Permission denied\n",
        255);
    EXPECT_FALSE(exists("/srv/www/vhosts/example.test/subdomains/shop/conf"));
}

TEST_F(CreateSubdomain, WithoutAClientInstallsNoSkeletonAndPreparesTheSite)
{
    makeFile("/srv/www/vhosts/.skel/0/conf", "x");
    const Outcome end = inChild([] {
        zelto::SkeletonOptions options;
        options.skip_www_root = 1;
        options.skip_cgi_bin = 1;
        std::exit(createSubdomain("example.test", "shop", "site", nullptr, options));
    });
    EXPECT_EQ(end.err, "");
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(treeOf("/srv/www/vhosts/example.test/subdomains/shop"),
        "dir  0755 root:root .\n"
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
