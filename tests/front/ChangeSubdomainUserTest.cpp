#include <cerrno>

#include "conf/ProgramName.h"
#include "front/ChangeSubdomainUser.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

/// Failures that no state of the disk brings about.
class ChangeSubdomainUser : public World
{
protected:
    inline static const std::string shop = "/srv/www/vhosts/example.test/subdomains/shop";

    ChangeSubdomainUser()
    {
        makeDirs(shop);
        makeFile(shop + "/page", "x", {0644, site, kvocln});
        makeDir(shop + "/conf", {0750, site, kvoserv});
        makeFile(shop + "/conf/site", "x", {0644, site, kvoserv});
        makeDir(shop + "/error_docs", {0750, site, kvoserv});
        makeFile(shop + "/error_docs/404", "x", {0644, site, kvoserv});
        makeDir("/srv/w", {0750, site, kvoserv});
        makeFile("/srv/w/page", "x", {0644, site, kvocln});
    }

    /// Hands "shop" over while the nth call of a function fails.
    static Outcome changed(const char* function, int error, int nth = 1)
    {
        return inChild([=] {
            PROGNAME = "twigctl";
            zelto::SkeletonOptions options;
            options.www_root = "/srv/w";
            faults::fail(function, error, nth);
            std::exit(changeSubdomainUser("example.test", "shop", "other", options));
        });
    }

    /// The failure is reported and nothing else has suffered from it.
    static void expectGoneOn(const Outcome& end, const std::string& report)
    {
        EXPECT_EQ(end.err, "twigctl: " + report);
        EXPECT_EQ(end.out, "twigctl: " + report);
        EXPECT_EQ(end.status, 0);
        EXPECT_EQ(accessOf(shop + "/page"), "0644 other:kvocln");
        EXPECT_EQ(accessOf("/srv/w/page"), "0644 other:kvocln");
        for (const char* name : {"/conf/site", "/error_docs/404"}) {
            EXPECT_EQ(accessOf(shop + name), "0644 root:kvoserv") << name;
        }
        for (const char* name : {"/conf", "/error_docs"}) {
            EXPECT_EQ(accessOf(shop + name), "0750 root:kvoserv") << name;
        }
    }

    faults::Guard guard_;
};

} // namespace

TEST_F(ChangeSubdomainUser, GoesOnWhenRootCannotTakeTheSubdomainBack)
{
    // Behind the three files in it.
    expectGoneOn(changed("fchownat", EROFS, 4), "ERROR: unable to chown " + shop +
                                                    ": Read-only file system\n"
                                                    "\nSystem error 30: Read-only file system\n");
}

TEST_F(ChangeSubdomainUser, GoesOnWhenTheModeOfTheSubdomainCannotBeSet)
{
    expectGoneOn(changed("fchmodat2", EROFS), "ERROR: unable to chmod " + shop +
                                                  ": Read-only file system\n"
                                                  "\nSystem error 30: Read-only file system\n");
}
