#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <grp.h>
#include <iostream>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "conf/ProgramName.h"
#include "exec/ForkExec.h"
#include "fsutil/Descriptor.h"
#include "support/SystemError.h"
#include "tests/exec/Arguments.h"
#include "tests/exec/OpenDescriptors.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

using Environment = std::map<std::string, std::string>;

constexpr uid_t sameUser = static_cast<uid_t>(-1);

int statusOf(pid_t child)
{
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

struct Pipe {
    Pipe()
    {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        read.reset(ends[0]);
        write.reset(ends[1]);
    }

    /// What was written until the last writer closed; this one closes now.
    std::string all()
    {
        write.reset();
        std::string text;
        EXPECT_FALSE(readToString(read.get(), text));
        return text;
    }

    Descriptor read;
    Descriptor write;
};

class ForkExecvPipes : public World
{
protected:
    /// Runs a program with pipes on its output streams and nothing to read.
    static Outcome run(const std::string& path, char* const argv[], uid_t uid = sameUser,
        const Environment& env = {})
    {
        Pipe out;
        Pipe err;
        const pid_t child =
            forkExecvPipes(-1, out.write.get(), err.write.get(), path, argv, uid, env);
        Outcome outcome;
        outcome.out = out.all();
        outcome.err = err.all();
        outcome.status = statusOf(child);
        return outcome;
    }

    static Outcome shell(
        const std::string& script, uid_t uid = sameUser, const Environment& env = {})
    {
        return run("/bin/sh", Arguments{"sh", "-c", script}, uid, env);
    }

    /// 3 is the one through which the directory is listed.
    static Outcome listDescriptors()
    {
        return run("/bin/ls", Arguments{"ls", "/proc/self/fd"}, sameUser, {{"LC_ALL", "C"}});
    }

    faults::Guard guard_;
};

} // namespace

TEST_F(ForkExecvPipes, RunsTheProgramOnTheGivenDescriptors)
{
    Pipe in;
    Pipe out;
    Pipe err;
    ASSERT_EQ(write(in.write.get(), "text", 4), 4);
    in.write.reset();
    const pid_t child = forkExecvPipes(in.read.get(), out.write.get(), err.write.get(), "/bin/sh",
        Arguments{"sh", "-c", "cat; echo problem >&2; exit 7"}, sameUser, {});
    EXPECT_EQ(out.all(), "text");
    EXPECT_EQ(err.all(), "problem\n");
    EXPECT_EQ(statusOf(child), 7);
}

TEST_F(ForkExecvPipes, ReturnsWithoutWaiting)
{
    Pipe in;
    const pid_t child =
        forkExecvPipes(in.read.get(), -1, -1, "/bin/cat", Arguments{"cat"}, sameUser, {});
    EXPECT_GT(child, 0);
    EXPECT_EQ(waitpid(child, nullptr, WNOHANG), 0);
    in.write.reset();
    EXPECT_EQ(statusOf(child), 0);
}

TEST_F(ForkExecvPipes, ClosesNothingInTheParent)
{
    const Pipe in;
    const Pipe out;
    const Pipe err;
    const auto before = openNumbers();
    const pid_t child = forkExecvPipes(in.read.get(), out.write.get(), err.write.get(), "/bin/true",
        Arguments{"true"}, sameUser, {});
    EXPECT_EQ(openNumbers(), before);
    statusOf(child);
}

TEST_F(ForkExecvPipes, HandsOverTheArguments)
{
    const Arguments argv{"called so", "-c", "printf '[%s]' \"$0\" \"$@\"", "", "a b", "*;\n"};
    EXPECT_EQ(run("/bin/sh", argv).out, "[][a b][*;\n]");
    EXPECT_EQ(run("/bin/sh", Arguments{"called so", "-c", "tr '\\0' ' ' </proc/$$/cmdline"}).out,
        "called so -c tr '\\0' ' ' </proc/$$/cmdline ");
}

TEST_F(ForkExecvPipes, GivesTheNullDeviceForMissingDescriptors)
{
    Pipe report;
    makeFile("/srv/links.sh", "for n in 0 1 2; do readlink /proc/$$/fd/$n; done >/srv/links\n");
    const pid_t child =
        forkExecvPipes(-1, -1, -1, "/bin/sh", Arguments{"sh", "/srv/links.sh"}, sameUser, {});
    EXPECT_EQ(statusOf(child), 0);
    EXPECT_EQ(contentOf("/srv/links"), "/dev/null\n/srv/links\n/dev/null\n");
}

TEST_F(ForkExecvPipes, OpensTheNullDeviceForReadingAndWriting)
{
    EXPECT_EQ(shell("grep flags: /proc/$$/fdinfo/0").out, "flags:\t0100002\n");
}

TEST_F(ForkExecvPipes, KeepsADescriptorThatIsAlreadyInItsPlace)
{
    const Outcome outcome = inChild([] {
        const pid_t child = forkExecvPipes(STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO, "/bin/sh",
            Arguments{"sh", "-c", "echo out; echo err >&2"}, sameUser, {});
        _exit(statusOf(child));
    });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "out\n");
    EXPECT_EQ(outcome.err, "err\n");
}

TEST_F(ForkExecvPipes, LosesADescriptorThatIsGivenTwice)
{
    Pipe both;
    const Outcome outcome = inChild([&both] {
        const pid_t child = forkExecvPipes(-1, both.write.get(), both.write.get(), "/bin/sh",
            Arguments{"sh", "-c", "echo out; echo err >&2"}, sameUser, {});
        _exit(statusOf(child));
    });
    EXPECT_EQ(both.all(), "out\n");
    EXPECT_EQ(outcome.err, "err\n");
}

TEST_F(ForkExecvPipes, RunsOnWhenADescriptorCannotBePutInItsPlace)
{
    const Outcome outcome = inChild([] {
        Pipe out;
        const Pipe err;
        faults::fail("dup2", EMFILE, 2); // that of standard output
        const pid_t child = forkExecvPipes(-1, out.write.get(), err.write.get(), "/bin/sh",
            Arguments{"sh", "-c", "echo out; echo err >&2"}, sameUser, {});
        EXPECT_EQ(out.all(), "");
        _exit(statusOf(child));
    });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "out\n");
    EXPECT_EQ(outcome.err, "");
}

TEST_F(ForkExecvPipes, ClosesEveryOtherDescriptorInTheChild)
{
    const Descriptor low(fcntl(STDERR_FILENO, F_DUPFD, 9));
    const Descriptor high(fcntl(STDERR_FILENO, F_DUPFD, 900));
    EXPECT_EQ(listDescriptors().out, "0\n1\n2\n3\n");
}

TEST_F(ForkExecvPipes, ClosesThemOnAnOlderKernelToo)
{
    const Descriptor low(fcntl(STDERR_FILENO, F_DUPFD, 9));
    const Descriptor high(fcntl(STDERR_FILENO, F_DUPFD, 900));
    faults::failAlways("close_range", ENOSYS);
    EXPECT_EQ(listDescriptors().out, "0\n1\n2\n3\n");
}

TEST_F(ForkExecvPipes, ClosesOnlyBelowTheLimitOfOpenFiles)
{
    for (const bool olderKernel : {false, true}) {
        const Outcome outcome = inChild([olderKernel] {
            closefrom(3);
            EXPECT_EQ(fcntl(STDERR_FILENO, F_DUPFD, 199), 199);
            EXPECT_EQ(fcntl(STDERR_FILENO, F_DUPFD, 200), 200);
            rlimit limit{};
            getrlimit(RLIMIT_NOFILE, &limit);
            limit.rlim_cur = 200;
            EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
            if (olderKernel) {
                faults::failAlways("close_range", ENOSYS);
            }
            const Outcome seen = listDescriptors();
            (void)std::fputs(seen.out.c_str(), stdout);
            (void)std::fflush(stdout);
            _exit(0);
        });
        EXPECT_EQ(outcome.out, "0\n1\n2\n200\n3\n");
    }
}

TEST_F(ForkExecvPipes, KeepsTheUserWhenNoneIsAskedFor)
{
    faults::failAlways("setuid", EPERM);
    EXPECT_EQ(shell("id -u").out, "0\n");
}

TEST_F(ForkExecvPipes, ChangesTheUserAndNothingElse)
{
    const Outcome outcome = inChild([] {
        const std::array<gid_t, 2> groups{0, kvocln};
        EXPECT_EQ(setgroups(groups.size(), groups.data()), 0);
        const Outcome seen = shell("id -u; id -ru; id -g; id -G", site);
        (void)std::fputs((seen.out + seen.err).c_str(), stdout);
        (void)std::fflush(stdout);
        _exit(0);
    });
    EXPECT_EQ(outcome.out, "1001\n1001\n0\n0 2002\n");
}

TEST_F(ForkExecvPipes, RunsAsAUserWhoHasNoAccount)
{
    EXPECT_EQ(shell("id -u", 65534).out, "65534\n");
}

TEST_F(ForkExecvPipes, ReportsARefusedUserFromTheChild)
{
    const Outcome outcome = inChild([] {
        EXPECT_EQ(setuid(site), 0);
        const Outcome seen = shell("echo not run", 0);
        (void)std::fputs((seen.out + seen.err).c_str(), stdout);
        (void)std::fflush(stdout);
        _exit(seen.status);
    });
    EXPECT_EQ(outcome.out,
        "Unexpected error: forkExecvPipes: setuid() failed: Operation not permitted\n");
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(ForkExecvPipes, SetsVariablesOverInheritedOnes)
{
    setenv("ZELTO_OLD", "inherited", 1);
    setenv("ZELTO_KEPT", "kept", 1);
    const Environment env{{"ZELTO_OLD", "new"}, {"ZELTO_NEW", "a=b c"}, {"ZELTO_EMPTY", ""}};
    EXPECT_EQ(shell("env | grep ZELTO_ | sort", sameUser, env).out,
        "ZELTO_EMPTY=\nZELTO_KEPT=kept\nZELTO_NEW=a=b c\nZELTO_OLD=new\n");
    EXPECT_STREQ(getenv("ZELTO_OLD"), "inherited");
    EXPECT_EQ(getenv("ZELTO_NEW"), nullptr);
    unsetenv("ZELTO_OLD");
    unsetenv("ZELTO_KEPT");
}

TEST_F(ForkExecvPipes, SetsVariablesInTheOrderOfTheirNames)
{
    const Environment env{{"ZELTO_C", ""}, {"ZELTO_A", ""}, {"ZELTO_B", ""}};
    EXPECT_EQ(shell("tr '\\0' '\\n' </proc/$$/environ | grep ZELTO_", sameUser, env).out,
        "ZELTO_A=\nZELTO_B=\nZELTO_C=\n");
}

TEST_F(ForkExecvPipes, RefusesNamesThatNoVariableCanHave)
{
    for (const char* name : {"", "A=B"}) {
        const Outcome outcome = shell("echo not run", sameUser, {{name, "value"}});
        EXPECT_EQ(
            outcome.err, "Unexpected error: forkExecvPipes: setenv() falied: Invalid argument\n");
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.status, 1);
    }
}

TEST_F(ForkExecvPipes, SetsTheUserBeforeTheVariables)
{
    faults::fail("setuid", EAGAIN);
    EXPECT_EQ(shell("echo not run", site, {{"", ""}}).err,
        "Unexpected error: forkExecvPipes: setuid() failed: Resource temporarily unavailable\n");
}

TEST_F(ForkExecvPipes, PutsTheDescriptorsInPlaceBeforeItSetsTheUser)
{
    const Outcome outcome = inChild([] {
        const Pipe out;
        const Pipe err;
        faults::fail("open", EMFILE);
        faults::fail("setuid", EAGAIN);
        _exit(statusOf(forkExecvPipes(
            -1, out.write.get(), err.write.get(), "/bin/true", Arguments{"true"}, site, {})));
    });
    // Standard input comes first, so that standard error is still that of the parent.
    EXPECT_EQ(outcome.err, "Unexpected error: dup2Custom failed: Too many open files\n");
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(ForkExecvPipes, EndsAChildThatFailsWithoutGoingBackToTheCaller)
{
    struct Witness {
        ~Witness() { (void)!write(STDOUT_FILENO, "destroyed\n", 10); }
    };
    const Outcome outcome = inChild([] {
        static_cast<void>(std::atexit([] { (void)!write(STDOUT_FILENO, "at exit\n", 8); }));
        const pid_t parent = getpid();
        int status = -1;
        try {
            const Witness witness;
            status = statusOf(forkExecvPipes(STDIN_FILENO, STDOUT_FILENO, -1, "/bin/true",
                Arguments{"true"}, sameUser, {{"", ""}}));
        } catch (...) {
        }
        _exit(getpid() == parent ? status : 99);
    });
    EXPECT_EQ(outcome.out, "destroyed\n"); // once, by the parent
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(ForkExecvPipes, LooksASlashlessNameUpOnThePathThatTheProgramWillHave)
{
    makeDir("/srv/bin");
    makeFile("/srv/bin/zelto-tool", "#!/bin/sh\necho found\n", {0755});
    EXPECT_EQ(
        run("zelto-tool", Arguments{"tool"}, sameUser, {{"PATH", "/srv/bin"}}).out, "found\n");
    EXPECT_EQ(run("zelto-tool", Arguments{"tool"}).status, 1);
}

TEST_F(ForkExecvPipes, DoesNotLookUpANameWithASlash)
{
    makeDir("/srv/bin");
    makeDir("/srv/bin/sub");
    makeFile("/srv/bin/sub/zelto-tool", "#!/bin/sh\necho found\n", {0755});
    EXPECT_EQ(run("sub/zelto-tool", Arguments{"tool"}, sameUser, {{"PATH", "/srv/bin"}}).status, 1);
}

TEST_F(ForkExecvPipes, ReportsAMissingProgramOnBothStreams)
{
    const std::string report =
        "twigctl: forkExecvPipes: execv() failed: No such file or directory\n"
        "\nSystem error 2: No such file or directory\n";
    PROGNAME = "/usr/sbin/twigctl";
    const Outcome outcome = run("/srv/missing", Arguments{"missing"});
    PROGNAME = nullptr;
    EXPECT_EQ(outcome.err, report);
    EXPECT_EQ(outcome.out, report);
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(ForkExecvPipes, ReportsWithoutAPrefixWhenTheProgramHasNoName)
{
    makeFile("/srv/data", "no program");
    const Outcome outcome = run("/srv/data", Arguments{"data"});
    EXPECT_EQ(outcome.err, "forkExecvPipes: execv() failed: Permission denied\n"
                           "\nSystem error 13: Permission denied\n");
    EXPECT_EQ(outcome.out, outcome.err);
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(ForkExecvPipes, WritesPendingTextOfTheParentOnceAndNotInTheChild)
{
    const Outcome outcome = inChild([] {
        std::ios_base::sync_with_stdio(false);
        (void)std::fputs("printed ", stdout);
        std::cout << "streamed ";
        std::cerr << std::nounitbuf << "complained";
        const Outcome seen = run("/srv/missing", Arguments{"missing"});
        EXPECT_EQ(seen.out, "forkExecvPipes: execv() failed: No such file or directory\n"
                            "\nSystem error 2: No such file or directory\n");
        EXPECT_EQ(seen.err, seen.out);
        // Leaves out what an orderly end would still write.
        _exit(HasFailure() ? 99 : seen.status);
    });
    EXPECT_EQ(outcome.out, "streamed printed ");
    EXPECT_EQ(outcome.err, "complained");
    EXPECT_EQ(outcome.status, 1);
}

TEST_F(ForkExecvPipes, RunsExitHandlersInAChildThatCannotExecute)
{
    const Outcome outcome = inChild([] {
        static_cast<void>(std::atexit([] { (void)!write(STDOUT_FILENO, "at exit\n", 8); }));
        const Outcome seen = run("/srv/missing", Arguments{"missing"});
        EXPECT_TRUE(seen.out.ends_with("\nat exit\n")) << seen.out;
        _exit(HasFailure() ? 99 : 0);
    });
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(ForkExecvPipes, ThrowsWhenThereCanBeNoChild)
{
    const DescriptorWatch watch;
    faults::fail("fork", ENOMEM);
    try {
        forkExecvPipes(-1, -1, -1, "/bin/true", Arguments{"true"}, sameUser, {});
        FAIL() << "nothing was thrown";
    } catch (const zelto::SystemError& error) {
        EXPECT_STREQ(error.what(), "forkExecvPipes: fork() failed: Cannot allocate memory");
        EXPECT_EQ(error.errorCode(), ENOMEM);
    }
    EXPECT_EQ(watch.closeAdded(), 0U);
}

TEST_F(ForkExecvPipes, ThrowsTheExhaustedProcessLimitAsSuch)
{
    faults::fail("fork", EAGAIN);
    EXPECT_THROW(forkExecvPipes(-1, -1, -1, "/bin/true", Arguments{"true"}, sameUser, {}),
        zelto::ExSystemError<EAGAIN>);
}

TEST_F(ForkExecvPipes, WantsArguments)
{
    EXPECT_THROW(
        forkExecvPipes(-1, -1, -1, "/bin/true", nullptr, sameUser, {}), std::invalid_argument);
    EXPECT_EQ(faults::calls("fork"), 0);
}
