#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include "conf/ProgramName.h"
#include "tests/exec/ForkExecFixture.h"
#include "tests/exec/OpenDescriptors.h"

namespace
{

constexpr size_t beyondAPipe = 307200;

/// Lines that tell where they stand, so that a lost or doubled part shows.
std::string numberedLines(size_t size)
{
    std::string text;
    for (size_t number = 0; text.size() < size; ++number) {
        text += std::to_string(number) + '\n';
    }
    text.resize(size);
    return text;
}

} // namespace

TEST_F(ForkExecvGetOutErr, FeedsTheInputAndCollectsBothStreams)
{
    input_ = "text";
    EXPECT_EQ(shell("cat; echo problem >&2"), 0);
    EXPECT_EQ(output_, "text");
    EXPECT_EQ(error_, "problem\n");
    EXPECT_EQ(input_, "");
}

TEST_F(ForkExecvGetOutErr, AppendsToWhatTheStringsHold)
{
    output_ = "before ";
    error_ = "earlier ";
    EXPECT_EQ(shell("echo a; echo b >&2"), 0);
    EXPECT_EQ(output_, "before a\n");
    EXPECT_EQ(error_, "earlier b\n");
}

TEST_F(ForkExecvGetOutErr, ShowsTheEndOfAnEmptyInputAtOnce)
{
    EXPECT_EQ(run("/bin/cat", Arguments{"cat"}), 0);
    EXPECT_EQ(output_, "");
}

TEST_F(ForkExecvGetOutErr, PassesEveryByteValueBothWays)
{
    for (int byte = 0; byte < 256; ++byte) {
        input_ += static_cast<char>(byte);
    }
    const std::string bytes = input_;
    EXPECT_EQ(run("/bin/cat", Arguments{"cat"}), 0);
    EXPECT_EQ(output_, bytes);
}

TEST_F(ForkExecvGetOutErr, ServesAllThreeStreamsBeyondWhatAPipeHolds)
{
    const std::string text = numberedLines(beyondAPipe);
    input_ = text;
    EXPECT_EQ(shell("tee /dev/stderr"), 0);
    EXPECT_EQ(input_, "");
    EXPECT_EQ(output_, text);
    EXPECT_EQ(error_, text);
}

TEST_F(ForkExecvGetOutErr, CollectsFromAProgramThatWritesALotBeforeItReads)
{
    input_ = std::string(beyondAPipe, 'i');
    EXPECT_EQ(shell("head -c 300000 /dev/zero; head -c 300000 /dev/zero >&2; wc -c"), 0);
    EXPECT_EQ(output_, std::string(300000, '\0') + "307200\n");
    EXPECT_EQ(error_, std::string(300000, '\0'));
}

TEST_F(ForkExecvGetOutErr, FeedsAProgramThatHasClosedItsOutput)
{
    input_ = std::string(beyondAPipe, 'i');
    EXPECT_EQ(shell("exec >&- 2>&-; wc -c >/srv/count"), 0);
    EXPECT_EQ(contentOf("/srv/count"), "307200\n");
    EXPECT_EQ(input_, "");
}

TEST_F(ForkExecvGetOutErr, ReturnsTheExitStatus)
{
    EXPECT_EQ(shell("exit 0"), 0);
    EXPECT_EQ(shell("exit 3"), 3);
    EXPECT_EQ(shell("exit 128"), 128);
    EXPECT_EQ(shell("exit 255"), 255);
}

TEST_F(ForkExecvGetOutErr, ReturnsMinusOneForAProgramEndedByASignal)
{
    EXPECT_EQ(shell("echo so far; kill -KILL $$"), -1);
    EXPECT_EQ(output_, "so far\n");
    EXPECT_EQ(shell("kill -TERM $$"), -1);
}

TEST_F(ForkExecvGetOutErr, ReportsAMissingProgramInBothStrings)
{
    const std::string report =
        "twigctl: forkExecvPipes: execv() failed: No such file or directory\n"
        "\nSystem error 2: No such file or directory\n";
    PROGNAME = "/usr/sbin/twigctl";
    EXPECT_EQ(run("/srv/missing", Arguments{"missing"}), 1);
    PROGNAME = nullptr;
    EXPECT_EQ(error_, report);
    EXPECT_EQ(output_, report);
}

TEST_F(ForkExecvGetOutErr, ReportsAMissingProgramWithoutAPrefixWhenTheCallerHasNoName)
{
    EXPECT_EQ(run("/srv/missing", Arguments{"missing"}), 1);
    EXPECT_EQ(error_, "forkExecvPipes: execv() failed: No such file or directory\n"
                      "\nSystem error 2: No such file or directory\n");
}

TEST_F(ForkExecvGetOutErr, SetsTheUserAndTheVariables)
{
    const Arguments argv{"sh", "-c", "id -u; echo $ZELTO_NEW"};
    const Environment env{{"ZELTO_NEW", "value"}};
    EXPECT_EQ(forkExecvGetOutErr(input_, output_, error_, "/bin/sh", argv, site, env), 0);
    EXPECT_EQ(output_, "1001\nvalue\n");
    EXPECT_EQ(error_, "");
}

TEST_F(ForkExecvGetOutErr, HasAFormWithoutInput)
{
    const Arguments argv{"sh", "-c", "cat; id -u; echo $ZELTO_NEW; echo e >&2; exit 4"};
    const Environment env{{"ZELTO_NEW", "value"}};
    EXPECT_EQ(forkExecvGetOutErr(output_, error_, "/bin/sh", argv, site, env), 4);
    EXPECT_EQ(output_, "1001\nvalue\n");
    EXPECT_EQ(error_, "e\n");
}

TEST_F(ForkExecvGetOutErr, HasAFormWithoutVariables)
{
    setenv("ZELTO_OLD", "inherited", 1);
    const Arguments argv{"sh", "-c", "cat; id -u; echo $ZELTO_OLD; echo e >&2; exit 4"};
    EXPECT_EQ(forkExecvGetOutErr(output_, error_, "/bin/sh", argv, site), 4);
    unsetenv("ZELTO_OLD");
    EXPECT_EQ(output_, "1001\ninherited\n");
    EXPECT_EQ(error_, "e\n");
}

TEST_F(ForkExecvGetOutErr, HasAFormWithoutAUser)
{
    faults::failAlways("setuid", EPERM);
    const Arguments argv{"sh", "-c", "cat; id -u; echo e >&2; exit 4"};
    EXPECT_EQ(forkExecvGetOutErr(output_, error_, "/bin/sh", argv), 4);
    EXPECT_EQ(output_, "0\n");
    EXPECT_EQ(error_, "e\n");
}

TEST_F(ForkExecvGetOutErr, HasAFormThatDiscardsTheStandardError)
{
    const Outcome outcome = outputOf([this] {
        const Arguments argv{"sh", "-c", "cat; id -u; echo e >&2; exit 4"};
        EXPECT_EQ(forkExecvGetOutErr(output_, "/bin/sh", argv), 4);
    });
    EXPECT_EQ(output_, "0\n");
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.out, "");
}

TEST_F(ForkExecvGetOutErr, RunsAgainFromAnExitHandler)
{
    static const Arguments argv{"sh", "-c", "echo ran"};
    const Outcome outcome = inChild([] {
        static_cast<void>(std::atexit([] {
            std::string output;
            std::string error;
            const int status = forkExecvGetOutErr(output, error, "/bin/sh", argv, sameUser);
            (void)!write(STDOUT_FILENO, output.data(), output.size());
            _exit(status + 40);
        }));
        std::string output;
        std::string error;
        forkExecvGetOutErr(output, error, "/bin/sh", argv, sameUser);
    });
    EXPECT_EQ(outcome.out, "ran\n");
    EXPECT_EQ(outcome.status, 40);
}

TEST_F(ForkExecvGetOutErr, LeavesNoDescriptorAndNoChild)
{
    const DescriptorWatch watch;
    input_ = "text";
    EXPECT_EQ(shell("cat"), 0);
    EXPECT_EQ(run("/srv/missing", Arguments{"missing"}), 1);
    EXPECT_EQ(watch.closeAdded(), 0U);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
}

TEST_F(ForkExecvGetOutErr, GivesTheProgramItsThreeEndsAndNoOther)
{
    EXPECT_EQ(run("/bin/ls", Arguments{"ls", "/proc/self/fd"}), 0);
    EXPECT_EQ(output_, "0\n1\n2\n3\n"); // 3 is the one through which the directory is listed
}

TEST_F(ForkExecvGetOutErr, GivesTheProgramEndsThatBlock)
{
    EXPECT_EQ(shell("cd /proc/$$/fdinfo; for n in 0 1 2; do grep flags: $n; done"), 0);
    EXPECT_EQ(output_, "flags:\t00\nflags:\t01\nflags:\t01\n");
}

TEST_F(ForkExecvGetOutErr, ChangesNoSignalOfTheProgram)
{
    const Arguments signals{"grep", "-E", "^(Sig(Blk|Ign|Pnd)|ShdPnd)", "/proc/self/status"};
    const Outcome expected =
        runProgram("/bin/grep", {"grep", "-E", "^(Sig(Blk|Ign|Pnd)|ShdPnd)", "/proc/self/status"});
    input_ = "text";
    EXPECT_EQ(run("/bin/grep", signals), 0);
    EXPECT_EQ(output_, expected.out);
    EXPECT_NE(output_, "");
}

TEST_F(ForkExecvGetOutErr, TakesDescriptorsAboveTheSizeOfAnFdSet)
{
    const Outcome outcome = inChild([] {
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        limit = {2000, std::max<rlim_t>(2000, limit.rlim_max)};
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
        for (int last = 0; last != -1 && last < 1500;) {
            last = dup(STDIN_FILENO);
        }
        std::string input = numberedLines(beyondAPipe);
        const std::string text = input;
        std::string output;
        std::string error;
        const Arguments argv{"sh", "-c", "tee /dev/stderr"};
        EXPECT_EQ(forkExecvGetOutErr(input, output, error, "/bin/sh", argv, sameUser, {}), 0);
        EXPECT_EQ(output, text);
        EXPECT_EQ(error, text);
        closefrom(3);
        _exit(HasFailure() ? 99 : 0);
    });
    EXPECT_EQ(outcome.status, 0) << outcome.out;
}

TEST_F(ForkExecvGetOutErr, WorksForACallerWithoutStandardDescriptors)
{
    for (unsigned closed = 1; closed < 8; ++closed) {
        const Outcome outcome = inChild([closed] {
            for (int fd = 0; fd < 3; ++fd) {
                if ((closed & (1U << fd)) != 0) {
                    close(fd);
                }
            }
            std::string input = "text";
            std::string output;
            std::string error;
            const Arguments argv{"sh", "-c", "cat; echo problem >&2"};
            const int status =
                forkExecvGetOutErr(input, output, error, "/bin/sh", argv, sameUser, {});
            _exit(status == 0 && output == "text" && error == "problem\n" ? 40 : 99);
        });
        EXPECT_EQ(outcome.status, 40) << "closed: " << closed;
    }
}

namespace
{

volatile std::sig_atomic_t alarms = 0;

/// After a few dozen alarms the program may go on, as soon as it waits for that.
void onAlarm(int /*signal*/)
{
    const int error = errno;
    alarms = alarms + 1;
    if (alarms >= 30) {
        close(open("/srv/go", O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    }
    errno = error;
}

} // namespace

TEST_F(ForkExecvGetOutErr, GoesOnAfterEverySignal)
{
    makeFifo("/srv/go");
    const Outcome outcome = inChild([this] {
        struct sigaction action {
        };
        action.sa_handler = onAlarm;
        sigaction(SIGALRM, &action, nullptr);
        const itimerval everyMillisecond{{0, 1000}, {0, 1000}};
        setitimer(ITIMER_REAL, &everyMillisecond, nullptr);
        EXPECT_EQ(shell("timeout 60 cat /srv/go; echo x"), 0);
        EXPECT_EQ(output_, "x\n");
        EXPECT_EQ(error_, "");
        EXPECT_GE(alarms, 30);
        _exit(HasFailure() ? 99 : 40);
    });
    EXPECT_EQ(outcome.status, 40) << outcome.out;
}
