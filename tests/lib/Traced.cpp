#include "tests/lib/Traced.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/lib/SystemCallNames.h"

#if !defined(__x86_64__) && !defined(__aarch64__)
#error "The registers that hold a system call's number and result are not known here"
#endif

namespace
{

constexpr long noCall = -1;
constexpr time_t patience = 20;

/// The program that the alarm ends; 0 for none.
volatile pid_t watched = 0;
volatile sig_atomic_t tooLate = 0;

void endWatched(int /*signal*/)
{
    tooLate = 1;
    if (watched > 0) {
        ::kill(watched, SIGKILL);
    }
}

/// Ends the program if it takes too long.
class Watch
{
public:
    explicit Watch(pid_t process)
    {
        watched = process;
        tooLate = 0;
        struct sigaction action = {};
        action.sa_handler = endWatched;
        action.sa_flags = SA_RESTART;
        sigaction(SIGALRM, &action, &before_);
        alarm(patience);
    }
    ~Watch()
    {
        alarm(0);
        watched = 0;
        sigaction(SIGALRM, &before_, nullptr);
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

private:
    struct sigaction before_ = {};
};

/// Keeps this process, and what it starts, on one processor: two that take turns at every call are
/// several times as fast there.
class OneProcessor
{
public:
    OneProcessor()
    {
        (void)sched_getaffinity(0, sizeof before_, &before_);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<size_t>(sched_getcpu()), &one);
        (void)sched_setaffinity(0, sizeof one, &one);
    }
    ~OneProcessor() { (void)sched_setaffinity(0, sizeof before_, &before_); }
    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;

private:
    cpu_set_t before_ = {};
};

using Registers = user_regs_struct;

void withRegisters(pid_t process, const std::function<void(Registers&)>& change)
{
    Registers registers{};
    iovec all{&registers, sizeof registers};
    if (ptrace(PTRACE_GETREGSET, process, NT_PRSTATUS, &all) != 0) {
        return; // It has been killed in the meantime.
    }
    change(registers);
    (void)ptrace(PTRACE_SETREGSET, process, NT_PRSTATUS, &all);
}

/// To be used at the entry: the kernel makes no call then.
void dropCall(pid_t process)
{
#ifdef __x86_64__
    withRegisters(process,
        [](Registers& registers) { registers.orig_rax = static_cast<unsigned long long>(noCall); });
#else
    int number = noCall;
    iovec one{&number, sizeof number};
    (void)ptrace(PTRACE_SETREGSET, process, NT_ARM_SYSTEM_CALL, &one);
#endif
}

/// To be used at the exit.
void setResult(pid_t process, long result)
{
    withRegisters(process, [result](Registers& registers) {
#ifdef __x86_64__
        registers.rax = static_cast<unsigned long long>(result);
#else
        registers.regs[0] = static_cast<unsigned long long>(result);
#endif
    });
}

/// The first thing that main() does is to look whether the standard descriptors are open.
bool isFirstOfMain(long number, const std::array<uint64_t, 6>& arguments)
{
    return number == SYS_fcntl && arguments[0] == STDIN_FILENO && arguments[1] == F_GETFD;
}

constexpr long anyCall = -1;

/// The one call to stop at, in place of all; with anyCall, every call that a filter has not refused
/// before, as those that are made to be missing are.
struct Target {
    size_t index = 0;      ///< among all calls; 0 for no target
    long number = 0;       ///< of the call
    size_t occurrence = 0; ///< among those with this number
};

class Tracer
{
public:
    Tracer(pid_t process, Target target, const std::function<Verdict(const SystemCall&)>& atEntry)
        : process_(process), target_(target), atEntry_(atEntry)
    {
        call_.process = process;
    }

    /// Follows the process from its first stop to its end; returns its wait status.
    int follow()
    {
        int status = waitForStop();
        // It has stopped itself, right before it becomes the program.
        if (!WIFSTOPPED(status) ||
            ptrace(PTRACE_SETOPTIONS, process_, 0,
                PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACESECCOMP | PTRACE_O_EXITKILL) != 0) {
            throw std::runtime_error("the program could not be traced");
        }
        int signal = 0;
        for (;;) {
            (void)ptrace(everyCall_ ? PTRACE_SYSCALL : PTRACE_CONT, process_, 0, signal);
            status = waitForStop();
            if (!WIFSTOPPED(status)) {
                return status;
            }
            signal = WSTOPSIG(status);
            if (signal == (SIGTRAP | 0x80) || signal == SIGTRAP) { // a call, or the exec
                atStop();
                signal = 0;
            }
        }
    }

    [[nodiscard]] size_t calls() const { return asked_; }
    [[nodiscard]] bool sawMain() const { return inMain_; }

private:
    int waitForStop() const
    {
        int status = 0;
        while (waitpid(process_, &status, __WALL) != process_) {
            if (errno != EINTR) {
                throw std::runtime_error("waitpid failed");
            }
        }
        return status;
    }

    void atStop()
    {
        __ptrace_syscall_info info{};
        if (ptrace(PTRACE_GET_SYSCALL_INFO, process_, sizeof info, &info) <= 0) {
            return; // It has been killed in the meantime.
        }
        switch (info.op) {
        case PTRACE_SYSCALL_INFO_ENTRY:
            enter(static_cast<long>(info.entry.nr), info.entry.args);
            break;
        case PTRACE_SYSCALL_INFO_SECCOMP:
            enter(static_cast<long>(info.seccomp.nr), info.seccomp.args);
            break;
        case PTRACE_SYSCALL_INFO_EXIT:
            leave();
            break;
        default:
            break;
        }
    }

    template<class Arguments>
    void enter(long number, const Arguments& arguments)
    {
        verdict_ = Verdict::goOn();
        call_.number = number;
        std::copy(std::begin(arguments), std::end(arguments), call_.arguments.begin());
        inMain_ = inMain_ || isFirstOfMain(number, call_.arguments);
        if (!inMain_ || !isAskedFor(number)) {
            return;
        }
        ++asked_;
        call_.index = target_.index != 0 ? target_.index : asked_;
        verdict_ = atEntry_(call_);
        if (verdict_.kind == Verdict::Kind::fail || verdict_.kind == Verdict::Kind::kill) {
            dropCall(process_);
        }
        if (verdict_.kind == Verdict::Kind::kill) {
            ::kill(process_, SIGKILL);
        }
        everyCall_ = true; // at least as far as the exit of this one
    }

    bool isAskedFor(long number)
    {
        return target_.index == 0 || target_.number == anyCall ||
               (number == target_.number && ++met_ == target_.occurrence);
    }

    void leave()
    {
        everyCall_ = target_.index == 0 && !verdict_.isLast;
        if (verdict_.kind == Verdict::Kind::fail) {
            // brk() knows no error numbers: when it fails, the end is lower than asked for.
            setResult(process_, call_.number == SYS_brk ? 0 : -verdict_.error);
        } else if (verdict_.kind == Verdict::Kind::killAfter) {
            ::kill(process_, SIGKILL);
        }
    }

    pid_t process_;
    Target target_;
    const std::function<Verdict(const SystemCall&)>& atEntry_;
    bool everyCall_ = target_.index == 0;
    bool inMain_ = false;
    size_t asked_ = 0;
    size_t met_ = 0; ///< calls with the target's number
    SystemCall call_;
    Verdict verdict_;
};

/// Lets the tracer stop at the calls with this number, and at those that main() begins with.
void stopAtCalls(long number)
{
    const auto wanted = static_cast<unsigned>(number);
    std::array<sock_filter, 6> filter{{
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
        {BPF_JMP | BPF_JA, 0, 0, number == anyCall ? 3U : 0U},
        {BPF_JMP | BPF_JEQ | BPF_K, 2, 0, wanted},
        {BPF_JMP | BPF_JEQ | BPF_K, 1, 0, SYS_fcntl},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_TRACE},
    }};
    const sock_fprog program{filter.size(), filter.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
        _exit(125);
    }
}

} // namespace

std::string SystemCall::name() const
{
    const std::string name = systemCallName(number);
    return name == "openat" && (arguments[2] & O_TMPFILE) == O_TMPFILE
               ? "openat of a new nameless file"
               : name;
}

std::string SystemCall::text(size_t argument) const
{
    const int memory =
        open(("/proc/" + std::to_string(process) + "/mem").c_str(), O_RDONLY | O_CLOEXEC);
    std::array<char, PATH_MAX> buffer{};
    // Ends where nothing is readable any more, which may be close behind the text.
    const ssize_t length =
        pread(memory, buffer.data(), buffer.size(), static_cast<off_t>(arguments.at(argument)));
    close(memory);
    return {buffer.data(), length > 0 ? strnlen(buffer.data(), static_cast<size_t>(length)) : 0};
}

std::string SystemCall::descriptor(int file) const
{
    const std::string entry =
        "/proc/" + std::to_string(process) +
        (file == AT_FDCWD ? std::string("/cwd") : "/fd/" + std::to_string(file));
    std::array<char, PATH_MAX> target{};
    const ssize_t length = readlink(entry.c_str(), target.data(), target.size());
    return {target.data(), length > 0 ? static_cast<size_t>(length) : 0};
}

namespace
{

/// Calls that take a descriptor and a path.
bool isRelative(const std::string& name)
{
    return name.ends_with("at") || name.ends_with("at2") || name == "statx" ||
           name.starts_with("openat");
}

/// Calls that take nothing but a path.
bool takesPath(const std::string& name)
{
    return name == "open" || name.ends_with("mkdir") || name.ends_with("rmdir") ||
           name.ends_with("chown") || name.ends_with("chmod") || name.ends_with("link") ||
           name.ends_with("rename") || name == "stat" || name == "lstat" || name == "chdir";
}

/// Calls that take a descriptor alone.
bool isOnDescriptor(const std::string& name)
{
    return (name[0] == 'f' && name != "futex") || name == "read" || name == "write" ||
           name == "close" || name.starts_with("getdents");
}

} // namespace

std::string SystemCall::description() const
{
    const std::string called = name();
    if (called == "linkat" || called.starts_with("renameat")) {
        return called + " " + descriptor(static_cast<int>(arguments[0])) + " " + text(1) + " -> " +
               descriptor(static_cast<int>(arguments[2])) + " " + text(3);
    }
    if (isRelative(called)) {
        const std::string path = text(1);
        return path.starts_with("/")
                   ? called + " " + path
                   : called + " " + descriptor(static_cast<int>(arguments[0])) + " " + path;
    }
    if (isOnDescriptor(called)) {
        return called + " " + descriptor(static_cast<int>(arguments[0]));
    }
    return takesPath(called) ? called + " " + text(0) : called;
}

namespace
{

TracedOutcome runFollowed(const std::string& path, const std::vector<std::string>& arguments,
    const Start& start, Target target, const std::function<Verdict(const SystemCall&)>& atEntry)
{
    Start traced = start;
    // The leak checker cannot work while the process is traced.
    traced.environment.emplace_back("ASAN_OPTIONS=detect_leaks=0");
    traced.inChild = [&start, target] {
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
            _exit(125);
        }
        (void)raise(SIGSTOP);
        if (start.inChild) {
            start.inChild();
        }
        if (target.index != 0) {
            stopAtCalls(target.number);
        }
    };
    const OneProcessor together;
    const Running running = startProgram(path, arguments, traced);
    // Nobody reads before the end.
    (void)fcntl(running.out, F_SETPIPE_SZ, 1 << 20);
    (void)fcntl(running.err, F_SETPIPE_SZ, 1 << 20);
    const Watch watch(running.process);
    Tracer tracer(running.process, target, atEntry);
    const int status = tracer.follow();
    TracedOutcome outcome;
    takeOutput(running, outcome);
    outcome.status = outcomeStatus(status);
    outcome.calls = tracer.calls();
    outcome.hung = tooLate != 0;
    if (!tracer.sawMain() && !outcome.hung) {
        throw std::runtime_error("the traced program has no recognisable main()");
    }
    return outcome;
}

} // namespace

TracedOutcome runTraced(const std::string& path, const std::vector<std::string>& arguments,
    const Start& start, const std::function<Verdict(const SystemCall&)>& atEntry)
{
    return runFollowed(path, arguments, start, {}, atEntry);
}

std::vector<long> callsOfRun(
    const std::string& path, const std::vector<std::string>& arguments, const Start& start)
{
    std::vector<long> calls;
    (void)runFollowed(path, arguments, start, {1, anyCall, 0}, [&calls](const SystemCall& call) {
        calls.push_back(call.number);
        return Verdict::goOn();
    });
    return calls;
}

TracedOutcome runTracedAt(const std::string& path, const std::vector<std::string>& arguments,
    const Start& start, const std::vector<long>& calls, size_t index,
    const std::function<Verdict(const SystemCall&)>& atEntry)
{
    const auto end = calls.begin() + static_cast<std::ptrdiff_t>(index);
    const long number = calls.at(index - 1);
    const auto occurrence = static_cast<size_t>(std::count(calls.begin(), end, number));
    return runFollowed(path, arguments, start, {index, number, occurrence}, atEntry);
}
