#include "exec/Pipeline.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

#include "exec/TReadOut.h"
#include "exec/TUnionPrep.h"
#include "support/SystemError.h"

namespace zelto::sys
{

namespace
{

/// As waitpid(2), again after every interruption.
pid_t waitFor(pid_t child, int& status, int options)
{
    pid_t result = -1;
    do {
        result = ::waitpid(child, &status, options);
    } while (result == -1 && errno == EINTR);
    return result;
}

/// The commands before the last one. On every way out, those that have ended are waited for.
class EarlierChildren
{
public:
    explicit EarlierChildren(std::size_t most) { children_.reserve(most); }
    EarlierChildren(const EarlierChildren&) = delete;
    EarlierChildren& operator=(const EarlierChildren&) = delete;
    ~EarlierChildren() { wait(WNOHANG); }

    void add(pid_t child);
    void waitForAll() noexcept { wait(complete_ ? WUNTRACED : WNOHANG); }

private:
    void wait(int options) noexcept;

    std::vector<pid_t> children_;
    bool complete_ = true;
};

/// Without the reader of its output, a command may never end: the caller's preparations still hold
/// the pipe open. Nobody waits for it then.
void EarlierChildren::add(pid_t child)
{
    if (child == -1) {
        complete_ = false;
    } else {
        children_.push_back(child);
    }
}

void EarlierChildren::wait(int options) noexcept
{
    for (pid_t& child : children_) {
        int status = 0;
        if (child != 0 && waitFor(child, status, options) != 0) {
            child = 0;
        }
    }
}

void reportFailure(const char* text)
{
    (void)dprintf(STDERR_FILENO, "Unexpected error: %s\n", text);
}

/// To be called while an exception is handled.
void reportCurrentException() noexcept
{
    try {
        throw;
    } catch (const std::exception& error) {
        reportFailure(error.what());
    } catch (...) {
        reportFailure("not a std::exception");
    }
}

/// Runs a command. Only the parent ever comes back from it, with the child's process id or, after a
/// failed fork, with -1. A child that failed ends here, whatever it threw: above are the frames of
/// the caller, who would go on as a second copy of himself.
pid_t start(const TEArgs& args, TExec::TPrepare* prepare, unsigned flags)
{
    const TExec command(args, prepare, (flags | TExec::fork) & ~TExec::wait);
    const pid_t caller = ::getpid();
    try {
        const pid_t child = command.run().first;
        if (::getpid() == caller) {
            return child;
        }
        reportFailure(std::strerror(errno));
    } catch (...) {
        if (::getpid() == caller) {
            throw;
        }
        reportCurrentException();
    }
    ::_exit(1);
}

/// The output is connected first, so that what the command's own preparation does to it prevails.
pid_t startCollected(const TExec& command, const std::shared_ptr<TReadOut>& output)
{
    const std::shared_ptr<TExec::TPrepare> own(
        std::shared_ptr<TExec::TPrepare>(), command.prepare()); // owns nothing
    TUnionPrep both(output, own);
    return start(command.args(), &both, command.flags());
}

void readToEnd(int end, std::string& output)
{
    std::array<char, 16384> chunk{};
    ssize_t count = 0;
    while ((count = ::read(end, chunk.data(), chunk.size())) != 0) {
        if (count > 0) {
            output.append(chunk.data(), static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            throwSystemError("read() failed", errno);
        }
    }
}

/// The status word; that of success when there is nobody left to wait for.
int statusOf(pid_t child)
{
    int status = 0;
    if (waitFor(child, status, WUNTRACED) == -1 && errno != ECHILD) {
        throwSystemError("waitpid() failed", errno);
    }
    return status;
}

void throwUnlessSuccessful(int status, const std::string& output)
{
    const int code = (status >> 8) & 0xff;
    if ((status & 0x7f) != 0) {
        throw std::runtime_error("child failed (status=" + std::to_string(status) + "): " + output);
    }
    if (code != 0) {
        throw std::runtime_error(
            "child failed (exit code=" + std::to_string(code) + "): " + output);
    }
}

} // namespace

std::pair<int, int> runPipeline(const std::vector<TExec>& commands)
{
    const pid_t caller = ::getpid();
    std::pair<int, int> result{0, 0};
    for (const TExec& command : commands) {
        result = command.run();
        if (::getpid() != caller) {
            break; // a child that may not throw; the rest is the parent's to start
        }
    }
    return result;
}

void runPipelineChecked(const std::vector<TExec>& commands, std::string& output)
{
    output.clear();
    if (commands.empty()) {
        return;
    }
    EarlierChildren earlier(commands.size());
    for (std::size_t i = 0; i + 1 < commands.size(); ++i) {
        earlier.add(start(commands[i].args(), commands[i].prepare(), commands[i].flags()));
    }
    const auto collected = std::make_shared<TReadOut>();
    const pid_t last = startCollected(commands.back(), collected);
    if (last == -1) {
        return;
    }
    readToEnd(collected->readEnd(), output);
    const int status = statusOf(last);
    if (!WIFSTOPPED(status)) { // else it may be what an earlier one waits for
        earlier.waitForAll();
    }
    throwUnlessSuccessful(status, output);
}

} // namespace zelto::sys
