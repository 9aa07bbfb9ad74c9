// forkExecvGetOutErr() and what one would write in its place, each timed from inside:
//
//   exchange true ours|theirs TIMES      the median time of running /bin/true
//   exchange copy ours|theirs MEGABYTES  the time of moving so much through a program
//   exchange tee                         that program for "ours": copies its standard input to its
//                                        standard output and to its standard error; for "theirs"
//                                        it is cat(1), which has two pipes instead of three
//
// Prints milliseconds, one number. This is not a Google Benchmark: that runs one function for a
// while and then the other, and here the two have to take turns, each time in a fresh process, so
// that neither what disturbs the machine nor what the other left in the heap falls on one side.

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "exec/ForkExec.h"
#include "fsutil/Descriptor.h"

namespace
{

constexpr size_t pipeful = 65536;

[[noreturn]] void fail(const char* what)
{
    std::perror(what);
    std::exit(1);
}

struct Pipe {
    Descriptor read;
    Descriptor write;
};

Pipe makePipe()
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        fail("pipe2");
    }
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

/// What the children of both sides are started with.
struct Program {
    explicit Program(const char* path, char* argument = nullptr)
        : path_(path), argv_{path_.data(), argument, nullptr}
    {
    }

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] char* const* argv() const { return argv_.data(); }

private:
    std::string path_;
    std::array<char*, 3> argv_;
};

pid_t spawn(const Program& program, const std::vector<int>& descriptors)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (size_t i = 0; i < descriptors.size(); ++i) {
        posix_spawn_file_actions_adddup2(&actions, descriptors[i], static_cast<int>(i));
    }
    pid_t child = 0;
    errno = posix_spawn(&child, program.path().c_str(), &actions, nullptr, program.argv(), environ);
    if (errno != 0) {
        fail("posix_spawn");
    }
    posix_spawn_file_actions_destroy(&actions);
    return child;
}

void waitFor(pid_t child)
{
    int status = 0;
    if (waitpid(child, &status, 0) != child || status != 0) {
        fail("the program did not end well");
    }
}

void readAll(int from, std::string& text)
{
    char buffer[4096];
    for (ssize_t count = 0; (count = read(from, buffer, sizeof buffer)) > 0;) {
        text.append(buffer, static_cast<size_t>(count));
    }
}

/// /bin/true by posix_spawn(3): three pipes, both outputs read to their ends.
void trueByHand()
{
    Pipe in = makePipe();
    Pipe out = makePipe();
    Pipe err = makePipe();
    const pid_t child =
        spawn(Program("/bin/true"), {in.read.get(), out.write.get(), err.write.get()});
    in.read.reset();
    in.write.reset();
    out.write.reset();
    err.write.reset();
    std::string text;
    readAll(out.read.get(), text);
    readAll(err.read.get(), text);
    waitFor(child);
}

void trueByLibrary()
{
    const Program program("/bin/true");
    std::string output;
    std::string error;
    if (forkExecvGetOutErr(output, error, program.path(), program.argv()) != 0) {
        fail("forkExecvGetOutErr");
    }
}

/// Both ends served by poll(2); what comes is kept, as it is by the library.
void copyByHand(const std::string& input, std::string& output)
{
    Pipe in = makePipe();
    Pipe out = makePipe();
    const pid_t child = spawn(Program("/bin/cat"), {in.read.get(), out.write.get()});
    in.read.reset();
    out.write.reset();
    if (fcntl(in.write.get(), F_SETFL, O_NONBLOCK) != 0) {
        fail("fcntl");
    }
    std::vector<char> buffer(pipeful);
    for (size_t done = 0;;) {
        std::array<pollfd, 2> ends{
            pollfd{out.read.get(), POLLIN, 0}, pollfd{in.write.get(), POLLOUT, 0}};
        if (poll(ends.data(), ends.size(), -1) < 0) {
            fail("poll");
        }
        if (ends[1].revents != 0) {
            const size_t offered = std::min(pipeful, input.size() - done);
            const ssize_t count = write(in.write.get(), input.data() + done, offered);
            done += count > 0 ? static_cast<size_t>(count) : 0;
            if (done == input.size()) {
                in.write.reset();
            }
        }
        if (ends[0].revents != 0) {
            const ssize_t count = read(out.read.get(), buffer.data(), buffer.size());
            if (count <= 0) {
                break;
            }
            output.append(buffer.data(), static_cast<size_t>(count));
        }
    }
    waitFor(child);
}

void copyByLibrary(std::string& input, std::string& output, std::string& error, const char* self)
{
    std::string tee = "tee";
    const Program program(self, tee.data());
    constexpr auto sameUser = static_cast<uid_t>(-1);
    if (forkExecvGetOutErr(input, output, error, program.path(), program.argv(), sameUser, {}) !=
        0) {
        fail("forkExecvGetOutErr");
    }
}

template<class Work>
double millisecondsOf(Work work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
    return time.count();
}

double medianOf(void (*work)(), size_t times)
{
    std::vector<double> all;
    while (all.size() < std::max<size_t>(times, 1)) {
        all.push_back(millisecondsOf(work));
    }
    std::sort(all.begin(), all.end());
    return all[all.size() / 2];
}

double timeOfCopying(bool ours, size_t size, const char* self)
{
    const std::string text(size, 'x');
    std::string input = text;
    std::string output;
    std::string error;
    const double time = millisecondsOf([&] {
        if (ours) {
            copyByLibrary(input, output, error, self);
        } else {
            copyByHand(input, output);
        }
    });
    if (output != text || (ours && error != text)) {
        fail("what came back is not what was sent");
    }
    return time;
}

int tee()
{
    std::vector<char> buffer(pipeful);
    for (ssize_t count = 0; (count = read(STDIN_FILENO, buffer.data(), pipeful)) > 0;) {
        for (const int end : {STDOUT_FILENO, STDERR_FILENO}) {
            if (write(end, buffer.data(), static_cast<size_t>(count)) != count) {
                return 1;
            }
        }
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::strcmp(argv[1], "tee") == 0) {
        return tee();
    }
    if (argc != 4) {
        (void)std::fputs("usage: exchange true|copy ours|theirs NUMBER\n", stderr);
        return 2;
    }
    const bool ours = std::strcmp(argv[2], "ours") == 0;
    const size_t number = std::strtoul(argv[3], nullptr, 10);
    const double time = std::strcmp(argv[1], "true") == 0
                            ? medianOf(ours ? trueByLibrary : trueByHand, number)
                            : timeOfCopying(ours, number << 20, argv[0]);
    std::printf("%.3f\n", time);
    return 0;
}
