#include "tests/lib/MissingCalls.h"

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

#include "tests/lib/SystemCallNames.h"

namespace
{

[[noreturn]] void refuse(const std::string& what)
{
    (void)std::fprintf(stderr, "cannot take away the system call %s\n", what.c_str());
    _exit(124);
}

unsigned errorNumber(const std::string& name)
{
    for (int error = 1; error < 256; ++error) {
        const char* known = strerrorname_np(error);
        if (known != nullptr && name == known) {
            return static_cast<unsigned>(error);
        }
    }
    refuse("with the unknown error " + name);
}

using Program = std::vector<sock_filter>;

void add(
    Program& program, int code, size_t value, unsigned char ifTrue = 0, unsigned char ifFalse = 0)
{
    program.push_back(
        {static_cast<unsigned short>(code), ifTrue, ifFalse, static_cast<unsigned>(value)});
}

void load(Program& program, size_t offset)
{
    add(program, BPF_LD | BPF_W | BPF_ABS, offset);
}

/// The lower half of an argument holds the flags; both machines are little-endian.
size_t argument(size_t number)
{
    return offsetof(seccomp_data, args) + number * sizeof(__u64);
}

void fail(Program& program, unsigned error)
{
    add(program, BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error);
}

void takeAway(Program& program, const std::string& name, unsigned error)
{
    load(program, offsetof(seccomp_data, nr));
    if (name == "O_TMPFILE") {
        add(program, BPF_JMP | BPF_JEQ | BPF_K, SYS_openat, 0, 4);
        load(program, argument(2));
        add(program, BPF_ALU | BPF_AND | BPF_K, O_TMPFILE);
        add(program, BPF_JMP | BPF_JEQ | BPF_K, O_TMPFILE, 0, 1);
        fail(program, error);
        return;
    }
    const long number = systemCallNumber(name);
    if (number < 0) {
        refuse(name);
    }
    add(program, BPF_JMP | BPF_JEQ | BPF_K, static_cast<size_t>(number), 0, 1);
    fail(program, error);
}

} // namespace

void takeAwayCalls(const std::string& list)
{
    Program program;
    std::istringstream calls(list);
    for (std::string call; std::getline(calls, call, ',');) {
        const size_t colon = call.find(':');
        if (colon == std::string::npos) {
            refuse(call);
        }
        takeAway(program, call.substr(0, colon), errorNumber(call.substr(colon + 1)));
    }
    add(program, BPF_RET | BPF_K, SECCOMP_RET_ALLOW);
    const sock_fprog all{static_cast<unsigned short>(program.size()), program.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &all) != 0) {
        refuse(list);
    }
}
