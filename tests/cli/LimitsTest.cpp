#include <csignal>
#include <fcntl.h>
#include <functional>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/cli/Site.h"

namespace
{

/// Every operation, started in an odd state of a process.
class Limits : public Site
{
protected:
    struct Operation {
        std::string name;
        Arguments arguments;
        std::function<void()> prepare;
    };

    static void makeSite()
    {
        makeDirs(shop + "/httpdocs/img");
        makeDirs(shop + "/cgi-bin");
        makeDirs(shop + "/conf");
        makeDirs(shop + "/error_docs");
        makeFile(shop + "/httpdocs/index.html", "mine", {0600, site, users});
        makeFile(shop + "/conf/site", "mine", {0640});
        makeLink(shop + "/httpdocs/astray", "/srv/www");
    }

    /// A creation whose web root lies several directories deep that are not there.
    static Arguments deepCreation()
    {
        return creation({"--www-root=" + shop + "/one/two/three/httpdocs",
            "--cgi-bin-path=" + shop + "/one/cgi-bin"});
    }

    /// The last two tell of a failure.
    static std::vector<Operation> operations()
    {
        return {
            {"create", usualCreation(), makeSkeleton},
            {"create again", usualCreation(),
                [] {
                    makeSkeleton();
                    makeSite();
                }},
            {"remove", removal(), makeSite},
            {"change-user", change({"--www-root=" + shop + "/httpdocs", "--skip-cgi-bin"}),
                makeSite},
            {"rename", renaming("shop", "store"), makeSite},
            {"rename onto another", renaming("shop", "store"),
                [] {
                    makeSite();
                    makeDir(subdomains + "/store");
                }},
            {"change-user without conf", change({"--skip-www-root", "--skip-cgi-bin"}),
                [] { makeDir(shop); }},
        };
    }

    /// These, and the one that makes directories whose modes the umask cuts.
    static std::vector<Operation> everyOperation()
    {
        std::vector<Operation> all = operations();
        all.push_back({"create with a deep web root", deepCreation(), makeSkeleton});
        return all;
    }

    static void startOver(const Operation& operation)
    {
        ASSERT_EQ(runProgram("/bin/rm", {"rm", "-rf", root + "/.skel", subdomains}).status, 0);
        makeDirs(subdomains);
        operation.prepare();
    }

    /// Expects the result and the reports of a run that starts as usual.
    static void expectAsUsual(const std::function<void()>& change, bool sameOut = true,
        bool sameErr = true, const std::vector<Operation>& all = everyOperation())
    {
        for (const Operation& operation : all) {
            SCOPED_TRACE(operation.name);
            startOver(operation);
            const Outcome usual = run(operation.arguments);
            const std::string expected = treeOf(root);
            startOver(operation);
            const Outcome end = run(operation.arguments, {.inChild = change});
            EXPECT_EQ(end.status, usual.status);
            EXPECT_EQ(end.out, sameOut ? usual.out : "");
            EXPECT_EQ(end.err, sameErr ? usual.err : "");
            EXPECT_EQ(treeOf(root), expected);
        }
    }

    static void limit(__rlimit_resource_t resource, rlim_t value)
    {
        const rlimit narrow{value, value};
        if (setrlimit(resource, &narrow) != 0) {
            _exit(126);
        }
    }

    /// Few descriptors and little stack.
    static void beNarrow()
    {
        limit(RLIMIT_NOFILE, 64);
        limit(RLIMIT_STACK, 262144);
    }
};

/// A chain of directories with names of 200 bytes, a file in each.
class LongNames : public Limits
{
protected:
    static constexpr int levels = 10000;

    LongNames()
    {
        makeDirs(shop + "/conf");
        makeDirs(shop + "/error_docs");
        makeDir(tree);
        int here = begin();
        for (int level = 0; level < levels; ++level) {
            EXPECT_EQ(mkdirat(here, name.c_str(), 0700), 0);
            here = next(here);
            close(openat(here, "file", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        }
        close(here);
    }

    /// The levels that belong to the user and have the mode, with the file in them.
    static int levelsWith(uid_t owner, mode_t directoryMode, mode_t fileMode)
    {
        int count = 0;
        for (int here = begin(); here >= 0; here = next(here)) {
            struct stat directory = {};
            struct stat file = {};
            count += fstat(here, &directory) == 0 && fstatat(here, "file", &file, 0) == 0 &&
                             has(directory, owner, directoryMode) && has(file, owner, fileMode)
                         ? 1
                         : 0;
        }
        return count;
    }

    inline static const std::string tree = shop + "/tree";

private:
    inline static const std::string name = std::string(200, 'n');

    static bool has(const struct stat& status, uid_t owner, mode_t mode)
    {
        return status.st_uid == owner && (status.st_mode & 07777U) == mode;
    }

    static int begin() { return open(tree.c_str(), O_PATH | O_CLOEXEC); }

    static int next(int here)
    {
        const int below = openat(here, name.c_str(), O_PATH | O_CLOEXEC);
        close(here);
        return below;
    }
};

} // namespace

TEST_F(Limits, DoNotMatterWhereStandardDescriptorsAreClosed)
{
    for (unsigned closed = 1; closed < 8; ++closed) {
        SCOPED_TRACE(closed);
        expectAsUsual(
            [closed] {
                for (int fd = 0; fd <= 2; ++fd) {
                    if ((closed >> static_cast<unsigned>(fd) & 1U) != 0) {
                        close(fd);
                    }
                }
            },
            (closed & 2U) == 0, (closed & 4U) == 0);
    }
}

TEST_F(Limits, DoNotMatterWhereSignalsAreIgnored)
{
    expectAsUsual([] {
        (void)std::signal(SIGCHLD, SIG_IGN);
        (void)std::signal(SIGPIPE, SIG_IGN);
    });
}

TEST_F(Limits, DoNotMatterWhereAllSignalsAreBlocked)
{
    expectAsUsual([] {
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_SETMASK, &all, nullptr);
    });
}

TEST_F(Limits, DoNotMatterWhereNothingOrEverythingIsMasked)
{
    for (const mode_t mask : {0U, 0777U}) {
        expectAsUsual([mask] { umask(mask); }, true, true, operations());
    }
}

#ifndef __SANITIZE_ADDRESS__ // which cannot do without /proc itself
TEST_F(Limits, DoNotMatterWithoutProc)
{
    expectAsUsual([] {
        if (unshare(CLONE_NEWNS) != 0 ||
            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", "/proc", "tmpfs", 0, nullptr) != 0) {
            _exit(126);
        }
    });
}
#endif

TEST_F(Limits, DoNotMatterWithFewDescriptorsAndLittleStack)
{
    expectAsUsual(beNarrow);
}

TEST_F(Limits, OfTheSizeOfFilesAreToldForEachFileThatIsNotWritten)
{
    makeSkeleton();
    const Outcome end = run(usualCreation(), {.inChild = [] { limit(RLIMIT_FSIZE, 0); }});
    std::string expected;
    for (const char* file : {"cgi-bin/run", "conf/site", "error_docs/404", "httpdocs/img/logo",
             "httpdocs/index.html"}) {
        expected += "corbel:InstallSkeleton(): " + shop + '/' + file + ": File too large\n";
    }
    EXPECT_EQ(end.err, expected);
    EXPECT_EQ(end.out, "");
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(treeOf(shop), "dir  0755 root:root .\n"
                            "dir  0755 root:kvocln anon_ftp\n"
                            "dir  0750 site:kvoserv cgi-bin\n"
                            "dir  0750 root:kvoserv conf\n"
                            "dir  0750 root:kvoserv error_docs\n"
                            "dir  0750 site:kvoserv httpdocs\n"
                            "dir  0755 site:kvocln httpdocs/img\n");
    expectSilent(run(usualCreation()), 0);
    EXPECT_EQ(contentOf(shop + "/conf/site"), "ServerName example.test\n");
}

TEST_F(Limits, LeaveEveryLevelOfADeepWebRootWithItsAccess)
{
    makeDirs(skeleton);
    for (const auto& [mask, cut] : {std::pair{0022U, "0750"}, {0U, "0750"}, {0777U, "0000"}}) {
        SCOPED_TRACE(cut);
        const auto beOdd = [mask = mask] {
            umask(mask);
            limit(RLIMIT_FSIZE, 0);
            beNarrow();
        };
        expectSilent(run(deepCreation(), {.inChild = beOdd}), 0);
        for (const char* made : {"/one", "/one/two", "/one/two/three"}) {
            EXPECT_EQ(accessOf(shop + made), std::string(cut) + " site:kvoserv") << made;
        }
        for (const char* named : {"/one/cgi-bin", "/one/two/three/httpdocs"}) {
            EXPECT_EQ(accessOf(shop + named), "0750 site:kvoserv") << named;
        }
        ASSERT_EQ(runProgram("/bin/rm", {"rm", "-rf", shop}).status, 0);
    }
}

TEST_F(Limits, OfTheSizeOfFilesDoNotMatterWhereNoneIsWritten)
{
    const auto noFiles = [] { limit(RLIMIT_FSIZE, 0); };
    makeSite();
    expectSilent(run(renaming("shop", "store"), {.inChild = noFiles}), 0);
    ASSERT_EQ(rename((subdomains + "/store").c_str(), shop.c_str()), 0);
    expectSilent(run(change({"--skip-www-root", "--skip-cgi-bin"}), {.inChild = noFiles}), 0);
    EXPECT_EQ(accessOf(shop + "/httpdocs/index.html"), "0600 other:users");
    expectSilent(run(removal(), {.inChild = noFiles}), 0);
    EXPECT_FALSE(exists(shop));
}

TEST_F(Limits, OfTheSizeOfFilesLeaveTheStatusOfReportsThatGoIntoOne)
{
    makeSite();
    makeDir(subdomains + "/store");
    const Outcome end = run(renaming("shop", "store"),
        {.standardErrorIntoFile = true, .inChild = [] { limit(RLIMIT_FSIZE, 0); }});
    EXPECT_EQ(end.err, "");
    EXPECT_EQ(end.out, "twigctl: Directory rename error: target directory " + subdomains +
                           "/store already exists.\n" + noSuchFile);
    EXPECT_EQ(end.status, 255);
}

TEST_F(LongNames, AreRemovedAtTenThousandLevels)
{
    expectSilent(run(removal(), {.inChild = beNarrow}), 0);
    EXPECT_FALSE(exists(shop));
}

TEST_F(LongNames, ChangeTheirOwnerAtTenThousandLevels)
{
    expectSilent(run(change({"--skip-www-root", "--skip-cgi-bin"}), {.inChild = beNarrow}), 0);
    EXPECT_EQ(levelsWith(other, 0700, 0600), levels);
}

TEST_F(LongNames, ChangeTheirOwnerAndModeAtTenThousandLevels)
{
    makeDirs(skeleton);
    const Arguments handingOver = creation({"--www-root=" + tree, "--skip-cgi-bin"});
    expectSilent(run(handingOver, {.inChild = beNarrow}), 0);
    EXPECT_EQ(levelsWith(site, 0755, 0755), levels);
}
