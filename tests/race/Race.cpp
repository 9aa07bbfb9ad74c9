#include "tests/race/Race.h"

#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/lib/MissingCalls.h"
#include "tests/race/Racer.h"

namespace race
{

namespace
{

constexpr int mostHangs = 10;
/// While the user has not got its way once.
constexpr int64_t mostRetries = 50;
const char* const hung = "hung";

/// Starts a program that nobody listens to.
pid_t startSilent(const Subject& subject)
{
    std::vector<char*> words;
    for (const std::string& word : subject.arguments) {
        words.push_back(const_cast<char*>(word.c_str()));
    }
    words.push_back(nullptr);
    const pid_t process = fork();
    if (process < 0) {
        throw std::runtime_error("cannot start " + subject.program);
    }
    if (process == 0) {
        if (!subject.without.empty()) {
            takeAwayCalls(subject.without);
        }
        const int silence = open("/dev/null", O_RDWR | O_CLOEXEC);
        for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
            (void)dup2(silence, stream);
        }
        execv(subject.program.c_str(), words.data());
        _exit(127);
    }
    return process;
}

/// "0", "signal 11", or "hung" for one that had to be killed.
std::string endOf(pid_t process, int patience)
{
    const auto handle = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
    pollfd wait = {handle, POLLIN, 0};
    const bool ended = poll(&wait, 1, patience) == 1;
    close(handle);
    if (!ended) {
        kill(process, SIGKILL);
    }
    int status = 0;
    (void)waitpid(process, &status, 0);
    if (!ended) {
        return hung;
    }
    return WIFEXITED(status) ? std::to_string(WEXITSTATUS(status))
                             : "signal " + std::to_string(WTERMSIG(status));
}

/// What fails on its own leaves nothing for a racer to win or to lose.
void requireSuccess(const Subject& subject, const std::string& end)
{
    if (end != "0") {
        throw std::runtime_error(
            subject.name + " fails without anybody racing it: it ended by " + end);
    }
}

} // namespace

bool isOrderly(const std::string& end)
{
    return end == "0" || end == "1" || end == "255";
}

Tally race(const Subject& subject, Kind kind, int rounds, int patience)
{
    Ground ground(kind, Ground::Size::large, subject.place);
    requireSuccess(subject, endOf(startSilent(subject), patience));
    Racer racer(ground.exchanges());
    Tally tally;
    const auto isEnough = [&] {
        return tally.rounds >= rounds * (tally.exchanges > 0 ? 1 : mostRetries);
    };
    for (int hangs = 0; !isEnough() && hangs < mostHangs;) {
        ground.restore();
        racer.start();
        const uint64_t before = racer.exchanges();
        const std::string end = endOf(startSilent(subject), patience);
        tally.exchanges += racer.exchanges() - before;
        racer.stop();
        ++tally.rounds;
        ++tally.ends[end];
        hangs += end == hung ? 1 : 0;
        const std::string touched = ground.touched();
        if (!touched.empty()) {
            tally.firstHit = tally.hits == 0 ? touched : tally.firstHit;
            ++tally.hits;
            ground.layOutSentinel();
        }
    }
    return tally;
}

} // namespace race
