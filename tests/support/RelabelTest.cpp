#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <iostream>
#include <stdexcept>
#include <string>
#include <sys/xattr.h>

#include "conf/ProgramName.h"
#include "support/misc.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

using zelto::relabelVhostPath;

constexpr char enforcing[] = "SELINUX=enforcing\nSELINUXTYPE=targeted\n";

/// Notes what it is called with, a call a line.
constexpr char recorder[] =
    "#!/bin/sh\nprintf '[%s]' \"$0\" \"$@\" >>/srv/calls\necho >>/srv/calls\n";

constexpr char callForSite[] =
    "[/usr/sbin/setfiles][/etc/selinux/targeted/contexts/files/file_contexts]"
    "[/srv/www/vhosts/example.test]\n";

/// A host with its own SELinux configuration and a stand-in for setfiles. What the first
/// relabelling finds out holds for the process, so each of these runs in a child.
class Relabelling : public World
{
protected:
    Relabelling() : sbin_("/usr/sbin") { makeDir("/etc/selinux"); }

    static void configureSelinux(const std::string& text) { makeFile("/etc/selinux/config", text); }

    static void installSetfiles(const std::string& script = recorder, mode_t mode = 0755)
    {
        makeFile("/usr/sbin/setfiles", script, {mode});
    }

    static std::string calls() { return exists("/srv/calls") ? contentOf("/srv/calls") : ""; }

    /// Relabels in a child and returns what that printed.
    static Outcome relabel(const std::string& path = "example.test")
    {
        return inChild([&path] {
            PROGNAME = nullptr;
            relabelVhostPath(path.c_str());
        });
    }

    static void expectSilence(const Outcome& end)
    {
        EXPECT_EQ(end.err, "");
        EXPECT_EQ(end.out, "");
        EXPECT_EQ(end.status, 0);
    }

private:
    PrivateDirectory sbin_;
    faults::Guard guard_;
};

/// The same with the machine's own setfiles, which labels what the kernel lets it.
class RealRelabelling : public World
{
protected:
    RealRelabelling()
    {
        makeDirs("/etc/selinux/targeted/contexts/files");
        makeFile("/etc/selinux/config", enforcing);
        makeFile("/etc/selinux/targeted/contexts/files/file_contexts",
            "/srv/www/vhosts(/.*)?\tsystem_u:object_r:httpd_sys_content_t:s0\n"
            "/srv/www/vhosts/[^/]+/cgi-bin(/.*)?\tsystem_u:object_r:httpd_script_t:s0\n");
        makeDirs("/srv/www/vhosts/example.test/cgi-bin");
        makeFile("/srv/www/vhosts/example.test/index.html", "page");
        makeFile("/srv/www/vhosts/example.test/cgi-bin/run", "script");
        makeDirs("/srv/www/vhosts/other.test");
    }

    static std::string labelOf(const std::string& path)
    {
        const std::string label = runProgram("/usr/bin/getfattr",
            {"getfattr", "--absolute-names", "--only-values", "-n", "security.selinux", path})
                                      .out;
        return label.substr(0, label.find('\0'));
    }

    /// 0, or why the kernel does not let labels be written where the tests have their files.
    static int refusalOfLabels()
    {
        constexpr char label[] = "system_u:object_r:unlabeled_t:s0";
        return lsetxattr("/srv", "security.selinux", label, sizeof label, 0) == 0 ? 0 : errno;
    }
};

} // namespace

TEST_F(Relabelling, RunsSetfilesWithTheContextsAndThePathBelowTheRootOfTheHosts)
{
    installSetfiles();
    configureSelinux(enforcing);
    expectSilence(relabel());
    EXPECT_EQ(calls(), callForSite);
}

TEST_F(Relabelling, RunsSetfilesWhereSelinuxIsPermissive)
{
    installSetfiles();
    configureSelinux("SELINUX=permissive\nSELINUXTYPE=targeted\n");
    expectSilence(relabel());
    EXPECT_EQ(calls(), callForSite);
}

TEST_F(Relabelling, TakesTheRootFromTheConfiguration)
{
    installSetfiles();
    configureSelinux(enforcing);
    configure("HTTPD_VHOSTS_D /home/vhosts\n");
    expectSilence(relabel("a b/c"));
    EXPECT_EQ(calls(), "[/usr/sbin/setfiles]"
                       "[/etc/selinux/targeted/contexts/files/file_contexts]"
                       "[/home/vhosts/a b/c]\n");
}

TEST_F(Relabelling, AppendsThePathAsItIs)
{
    installSetfiles();
    configureSelinux(enforcing);
    expectSilence(relabel("/../-x"));
    EXPECT_EQ(calls(), "[/usr/sbin/setfiles]"
                       "[/etc/selinux/targeted/contexts/files/file_contexts]"
                       "[/srv/www/vhosts//../-x]\n");
}

TEST_F(Relabelling, TakesTheToolOfUsrBinWhenThereIsNoneInUsrSbin)
{
    const std::string shell = contentOf("/usr/bin/dash");
    const PrivateDirectory bin("/usr/bin");
    makeFile("/usr/bin/sh", shell, {0755});
    makeFile("/usr/bin/setfiles", recorder, {0755});
    configureSelinux(enforcing);
    expectSilence(relabel());
    EXPECT_EQ(calls(), "[/usr/bin/setfiles]"
                       "[/etc/selinux/targeted/contexts/files/file_contexts]"
                       "[/srv/www/vhosts/example.test]\n");
}

TEST_F(Relabelling, PrefersTheToolOfUsrSbin)
{
    const std::string shell = contentOf("/usr/bin/dash");
    const PrivateDirectory bin("/usr/bin");
    makeFile("/usr/bin/sh", shell, {0755});
    makeFile("/usr/bin/setfiles", recorder, {0755});
    installSetfiles();
    configureSelinux(enforcing);
    expectSilence(relabel());
    EXPECT_EQ(calls(), callForSite);
}

TEST_F(Relabelling, DoesNothingWithoutTheTool)
{
    configureSelinux(enforcing);
    expectSilence(relabel());
}

TEST_F(Relabelling, DoesNothingWithoutSelinux)
{
    installSetfiles();
    expectSilence(relabel());
    EXPECT_EQ(calls(), "");
}

TEST_F(Relabelling, DoesNothingWhereSelinuxIsDisabled)
{
    installSetfiles();
    configureSelinux("SELINUX=disabled\nSELINUXTYPE=targeted\n");
    expectSilence(relabel());
    EXPECT_EQ(calls(), "");
}

TEST_F(Relabelling, DoesNothingForAModeWithACapitalLetter)
{
    installSetfiles();
    configureSelinux("SELINUX=Enforcing\nSELINUXTYPE=targeted\n");
    expectSilence(relabel());
    EXPECT_EQ(calls(), "");
}

TEST_F(Relabelling, PrintsTheReportOfAFailureAndGoesOn)
{
    installSetfiles("#!/bin/sh\necho 50%; echo refused >&2; exit 2\n");
    configureSelinux(enforcing);
    const Outcome end = inChild([] {
        relabelVhostPath("example.test");
        std::cout << "went on\n";
    });
    EXPECT_EQ(end.err,
        "Execution of /usr/sbin/setfiles /etc/selinux/targeted/contexts/files/file_contexts "
        "/srv/www/vhosts/example.test failed with return code 2.\n"
        "Stdout is\n50%\n"
        "Stderr is\nrefused\n"
        "\n");
    EXPECT_EQ(end.out, "went on\n");
    EXPECT_EQ(end.status, 0);
}

TEST_F(Relabelling, PrintsNothingThatAToolSaysThatSucceeds)
{
    installSetfiles("#!/bin/sh\necho fine; echo warning >&2\n");
    configureSelinux(enforcing);
    expectSilence(relabel());
}

TEST_F(Relabelling, ChoosesAToolThatCannotBeExecutedAndPrintsThat)
{
    installSetfiles(recorder, 0644);
    configureSelinux(enforcing);
    const Outcome end = relabel();
    const std::string reason = "forkExecvPipes: execv() failed: Permission denied\n\n"
                               "System error 13: Permission denied\n";
    EXPECT_EQ(end.err,
        "Execution of /usr/sbin/setfiles /etc/selinux/targeted/contexts/files/file_contexts "
        "/srv/www/vhosts/example.test failed with return code 1.\n"
        "Stdout is\n" +
            reason + "Stderr is\n" + reason + "\n");
    EXPECT_EQ(end.status, 0);
}

TEST_F(Relabelling, PrintsASystemErrorOfTheRunAndGoesOn)
{
    installSetfiles();
    configureSelinux(enforcing);
    const Outcome end = inChild([] {
        faults::fail("fork", EAGAIN);
        relabelVhostPath("example.test");
        std::cout << "went on\n";
    });
    EXPECT_EQ(end.err, "forkExecvPipes: fork() failed: Resource temporarily unavailable\n");
    EXPECT_EQ(end.out, "went on\n");
}

TEST_F(Relabelling, EndsTheProgramThatCannotMakeAPipe)
{
    installSetfiles();
    configureSelinux(enforcing);
    const Outcome end = inChild([] {
        PROGNAME = nullptr;
        faults::fail("pipe2", EMFILE);
        relabelVhostPath("example.test");
        std::cout << "went on\n";
    });
    EXPECT_EQ(end.err, "forkExecvGetOutErr: pipe() failed\nSystem error 24: Too many open files\n");
    EXPECT_EQ(end.status, 1);
}

TEST_F(Relabelling, KeepsToTheContextsItFoundFirst)
{
    installSetfiles();
    configureSelinux(enforcing);
    expectSilence(inChild([] {
        relabelVhostPath("example.test");
        configureSelinux("SELINUX=disabled\n");
        relabelVhostPath("example.test");
    }));
    EXPECT_EQ(calls(), std::string(callForSite) + callForSite);
}

TEST_F(Relabelling, KeepsToWhatItDidNotFindFirst)
{
    configureSelinux(enforcing);
    expectSilence(inChild([] {
        relabelVhostPath("example.test");
        installSetfiles();
        relabelVhostPath("example.test");
    }));
    EXPECT_EQ(calls(), "");
}

TEST_F(Relabelling, LooksForTheToolOnce)
{
    installSetfiles();
    configureSelinux(enforcing);
    const Outcome end = inChild([] {
        relabelVhostPath("example.test");
        const int first = faults::calls("stat");
        relabelVhostPath("example.test");
        std::cout << first << ' ' << faults::calls("stat") << '\n';
    });
    EXPECT_EQ(end.out, "1 1\n");
}

TEST_F(Relabelling, PrintsThatItCouldNotLookAtTheHostAndLooksAgainNextTime)
{
    installSetfiles();
    makeLink("/etc/selinux/config", "config");
    const Outcome end = inChild([] {
        relabelVhostPath("example.test");
        std::cout << "went on\n" << std::flush;
        (void)unlink("/etc/selinux/config");
        configureSelinux(enforcing);
        relabelVhostPath("example.test");
    });
    EXPECT_EQ(end.err, "/etc/selinux/config: open failed: Too many levels of symbolic links\n");
    EXPECT_EQ(end.out, "went on\n");
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(calls(), callForSite);
}

TEST_F(Relabelling, RefusesNull)
{
    EXPECT_THROW(relabelVhostPath(nullptr), std::invalid_argument);
}

TEST_F(RealRelabelling, GivesEveryEntryBelowThePathItsLabel)
{
    if (const int refusal = refusalOfLabels(); refusal != 0) {
        // The tool then fails or does nothing, as the kernel says; that it is called, and how, is
        // seen by its stand-in in the tests above.
        std::cout << "This kernel does not take SELinux labels here (" << std::strerror(refusal)
                  << "): setfiles runs, but no label can be read back.\n";
        const Outcome end = inChild([] { relabelVhostPath("example.test"); });
        EXPECT_EQ(end.status, 0);
        EXPECT_EQ(labelOf("/srv/www/vhosts/example.test/index.html"), "");
        return;
    }
    const Outcome end = inChild([] { relabelVhostPath("example.test"); });
    EXPECT_EQ(end.err, "");
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(labelOf("/srv/www/vhosts/example.test"), "system_u:object_r:httpd_sys_content_t:s0");
    EXPECT_EQ(labelOf("/srv/www/vhosts/example.test/index.html"),
        "system_u:object_r:httpd_sys_content_t:s0");
    EXPECT_EQ(
        labelOf("/srv/www/vhosts/example.test/cgi-bin/run"), "system_u:object_r:httpd_script_t:s0");
    EXPECT_EQ(labelOf("/srv/www/vhosts/other.test"), "");
}

TEST_F(RealRelabelling, PrintsWhatTheToolSaysOfAPathThatDoesNotExist)
{
    const Outcome end = inChild([] { relabelVhostPath("missing.test"); });
    EXPECT_EQ(end.err.find("Execution of /usr/sbin/setfiles "
                           "/etc/selinux/targeted/contexts/files/file_contexts "
                           "/srv/www/vhosts/missing.test failed with return code 255.\n"),
        0U)
        << end.err;
    EXPECT_EQ(end.status, 0);
}
