#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <initializer_list>
#include <sys/select.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "conf/FatalLogger.h"
#include "exec/DescriptorSet.h"
#include "exec/ForkExec.h"
#include "exec/FrontWriter.h"
#include "exec/ReadAvailable.h"
#include "fsutil/Descriptor.h"
#include "support/SystemError.h"

namespace
{

using Environment = std::map<std::string, std::string>;

/// What a pipe holds. To offer it more gains nothing, and a memory checker would go through all of
/// a long text each time.
constexpr std::size_t pipeful = 65536;

struct Pipe {
    Descriptor read;
    Descriptor write;
};

/// Close-on-exec, so that ends which an exception leaves open reach no other program. The child's
/// own copies lose the mark when they are put in their places.
Pipe makePipe()
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) == -1) {
        fatalLogger(1, 1, "forkExecvGetOutErr: pipe() failed");
    }
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

void setNonBlocking(const Descriptor& end)
{
    if (fcntl(end.get(), F_SETFL, O_NONBLOCK) == -1) {
        fatalLogger(1, 1, "forkExecvGetOutErr: fcntl(O_NONBLOCK) failed");
    }
}

/// Without a standard input of ours the pipe's end gets its number. The child then has nothing to
/// put in place, and the mark would close it.
void keepIfInPlace(const Descriptor& end)
{
    if (end.get() == STDIN_FILENO) {
        fcntl(end.get(), F_SETFD, 0);
    }
}

/// The parent's ends of the three pipes.
struct Ends {
    Descriptor in;
    Descriptor out;
    Descriptor err;

    [[nodiscard]] int count() const { return 1 + std::max({in.get(), out.get(), err.get()}); }
    [[nodiscard]] bool anyOpen() const { return in || out || err; }

    void leaveOpen() noexcept
    {
        in.release();
        out.release();
        err.release();
    }
};

/// The talk with a running program, until it has closed all of its ends.
class Exchange
{
public:
    Exchange(Ends ends, std::string& input, std::string& output, std::string& error)
        : ends_(std::move(ends)), count_(ends_.count()), readable_(count_), writable_(count_),
          writer_(input), output_(output), error_(error)
    {
    }

    void run()
    {
        try {
            while (ends_.anyOpen()) {
                waitUntilReady();
                feed();
                collect(ends_.out, output_);
                collect(ends_.err, error_);
            }
        } catch (...) {
            // Closed, they would make a part of the input look like all of it to the program.
            ends_.leaveOpen();
            throw;
        }
    }

private:
    /// After a signal all open ends count as ready; the ones that are not say so when asked.
    void waitUntilReady()
    {
        fill(writable_, {ends_.in.get()});
        fill(readable_, {ends_.out.get(), ends_.err.get()});
        const int ready = select(count_, readable_.get(), writable_.get(), nullptr, nullptr);
        if (ready == -1 && errno != EINTR) {
            zelto::throwSystemError("forkExecvGetOutErr: select() failed", errno);
        }
    }

    static void fill(zelto::DescriptorSet& set, std::initializer_list<int> ends)
    {
        set.clear();
        for (const int end : ends) {
            if (end != -1) {
                set.add(end);
            }
        }
    }

    void feed()
    {
        if (ends_.in.get() > 0 && writable_.has(ends_.in.get())) {
            writer_.write(ends_.in.get(), pipeful);
            if (writer_.finished()) {
                ends_.in.reset();
            }
        }
    }

    void collect(Descriptor& end, std::string& text)
    {
        constexpr std::size_t longText = 1U << 20U;
        if (end.get() > 0 && readable_.has(end.get()) &&
            !zelto::readAvailable(end.get(), text, zelto::mostReadAtOnce, longText)) {
            end.reset();
        }
    }

    Ends ends_;
    int count_;
    zelto::DescriptorSet readable_;
    zelto::DescriptorSet writable_;
    zelto::FrontWriter writer_;
    std::string& output_;
    std::string& error_;
};

/// Waits for the program. ECHILD is waited out too: who reaped the child in our place knows how it
/// ended, and no answer of ours could be right.
int exitCodeOf(pid_t child)
{
    int status = 0;
    pid_t waited = 0;
    do {
        waited = waitpid(child, &status, 0);
    } while (waited == -1 && (errno == ECHILD || errno == EINTR));
    if (waited <= 0 || (status & 0x7f) != 0) {
        return -1;
    }
    return (status >> 8) & 0xff;
}

} // namespace

int forkExecvGetOutErr(std::string& input, std::string& output, std::string& error,
    const std::string& path, char* const argv[], uid_t uid, const Environment& env)
{
    Pipe in = makePipe();
    Pipe out = makePipe();
    Pipe err = makePipe();
    setNonBlocking(in.write);
    setNonBlocking(out.read);
    setNonBlocking(err.read);
    keepIfInPlace(in.read);

    Exchange exchange(
        {std::move(in.write), std::move(out.read), std::move(err.read)}, input, output, error);
    const pid_t child =
        forkExecvPipes(in.read.get(), out.write.get(), err.write.get(), path, argv, uid, env);
    in.read.reset();
    out.write.reset();
    err.write.reset();
    exchange.run();
    return exitCodeOf(child);
}

int forkExecvGetOutErr(std::string& output, std::string& error, const std::string& path,
    char* const argv[], uid_t uid, const Environment& env)
{
    std::string input;
    return forkExecvGetOutErr(input, output, error, path, argv, uid, env);
}

int forkExecvGetOutErr(
    std::string& output, std::string& error, const std::string& path, char* const argv[], uid_t uid)
{
    return forkExecvGetOutErr(output, error, path, argv, uid, {});
}

int forkExecvGetOutErr(
    std::string& output, std::string& error, const std::string& path, char* const argv[])
{
    constexpr auto sameUser = static_cast<uid_t>(-1);
    return forkExecvGetOutErr(output, error, path, argv, sameUser);
}

int forkExecvGetOutErr(std::string& output, const std::string& path, char* const argv[])
{
    std::string error;
    return forkExecvGetOutErr(output, error, path, argv);
}
