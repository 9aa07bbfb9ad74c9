#include "tests/lib/Process.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <iostream>
#include <poll.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/lib/MissingCalls.h"

namespace
{

struct Pipe {
    int read = -1;
    int write = -1;
};

Pipe makePipe()
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("pipe2 failed");
    }
    return {ends[0], ends[1]};
}

int makeFile()
{
    const int file = memfd_create("captured", MFD_CLOEXEC);
    if (file < 0) {
        throw std::runtime_error("memfd_create failed");
    }
    return file;
}

std::string takeFile(int file)
{
    std::string text;
    std::array<char, 65536> chunk{};
    ssize_t count = 0;
    off_t at = 0;
    while ((count = pread(file, chunk.data(), chunk.size(), at)) > 0) {
        text.append(chunk.data(), static_cast<size_t>(count));
        at += count;
    }
    close(file);
    return text;
}

/// Reads both streams until their writers are gone, whichever fills first.
void drain(int out, int err, Outcome& outcome)
{
    std::array<pollfd, 2> ends{{{out, POLLIN, 0}, {err, POLLIN, 0}}};
    std::array<char, 65536> chunk{};
    while (ends[0].fd >= 0 || ends[1].fd >= 0) {
        if (poll(ends.data(), ends.size(), -1) < 0) {
            continue;
        }
        for (auto& end : ends) {
            if (end.fd < 0 || end.revents == 0) {
                continue;
            }
            const ssize_t count = read(end.fd, chunk.data(), chunk.size());
            if (count <= 0) {
                close(end.fd);
                end.fd = -1;
                continue;
            }
            (&end == ends.data() ? outcome.out : outcome.err)
                .append(chunk.data(), static_cast<size_t>(count));
        }
    }
}

int waitFor(pid_t child)
{
    int status = 0;
    if (waitpid(child, &status, 0) != child) {
        throw std::runtime_error("waitpid failed");
    }
    return outcomeStatus(status);
}

void flushAll()
{
    (void)std::fflush(nullptr);
    std::cout.flush();
    std::cerr.flush();
}

/// Only the program itself is to do without: the tests' own helpers need not know how.
void takeAwayWhatIsMissing(const std::string& path)
{
    const char* missing = std::getenv("TWIGCTL_WITHOUT");
    if (missing != nullptr && std::filesystem::path(path).filename() == "twigctl") {
        takeAwayCalls(missing);
    }
}

} // namespace

int outcomeStatus(int waited)
{
    return WIFEXITED(waited) ? WEXITSTATUS(waited) : -WTERMSIG(waited);
}

Running startProgram(
    const std::string& path, const std::vector<std::string>& arguments, const Start& start)
{
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);

    flushAll();
    const Pipe out = makePipe();
    const Pipe err = makePipe();
    const int file = start.standardErrorIntoFile ? makeFile() : -1;
    const pid_t child = fork();
    if (child == 0) {
        dup2(out.write, STDOUT_FILENO);
        dup2(file >= 0 ? file : err.write, STDERR_FILENO);
        if (chdir(start.directory.c_str()) != 0) {
            _exit(126);
        }
        for (const std::string& setting : start.environment) {
            putenv(const_cast<char*>(setting.c_str()));
        }
        if (start.inChild) {
            start.inChild();
        }
        takeAwayWhatIsMissing(path);
        execv(path.c_str(), argv.data());
        _exit(127);
    }
    close(out.write);
    close(err.write);
    return {child, out.read, err.read, file};
}

void takeOutput(const Running& running, Outcome& outcome)
{
    drain(running.out, running.err, outcome);
    if (running.errFile >= 0) {
        outcome.err = takeFile(running.errFile);
    }
}

Outcome runProgram(
    const std::string& path, const std::vector<std::string>& arguments, const Start& start)
{
    const Running running = startProgram(path, arguments, start);
    Outcome outcome;
    takeOutput(running, outcome);
    outcome.status = waitFor(running.process);
    return outcome;
}

Outcome inChild(const std::function<void()>& body)
{
    flushAll();
    const int out = makeFile();
    const int err = makeFile();
    const pid_t child = fork();
    if (child == 0) {
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        body();
        std::exit(0);
    }
    Outcome outcome;
    outcome.status = waitFor(child);
    outcome.out = takeFile(out);
    outcome.err = takeFile(err);
    return outcome;
}

Outcome outputOf(const std::function<void()>& body)
{
    flushAll();
    const std::array<int, 2> kept{
        fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3), fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)};
    const std::array<int, 2> files{makeFile(), makeFile()};
    dup2(files[0], STDOUT_FILENO);
    dup2(files[1], STDERR_FILENO);
    body();
    flushAll();
    dup2(kept[0], STDOUT_FILENO);
    dup2(kept[1], STDERR_FILENO);
    close(kept[0]);
    close(kept[1]);
    return {0, takeFile(files[0]), takeFile(files[1])};
}

size_t openDescriptors()
{
    size_t count = 0;
    for ([[maybe_unused]] const auto& entry :
        std::filesystem::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count - 1; // the iterator's own
}
