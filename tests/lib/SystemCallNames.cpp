#include "tests/lib/SystemCallNames.h"

#include <iterator>
#include <sys/syscall.h>

namespace
{

struct NamedCall {
    const char* name;
    long number;
};

#define CALL(name)                                                                                 \
    NamedCall                                                                                      \
    {                                                                                              \
#name, SYS_##name                                                                          \
    }

// Not every machine has the calls without a directory descriptor.
const NamedCall namedCalls[] = {
#ifdef SYS_open
    CALL(open), CALL(stat), CALL(lstat), CALL(access), CALL(mkdir), CALL(rmdir), CALL(unlink),
    CALL(link), CALL(symlink), CALL(rename), CALL(chown), CALL(lchown), CALL(chmod), CALL(readlink),
    CALL(getdents), CALL(poll), CALL(select), CALL(pipe), CALL(dup2), CALL(fork),
#endif
#ifdef SYS_arch_prctl
    CALL(arch_prctl),
#endif
#ifdef SYS_getrlimit
    CALL(getrlimit), CALL(setrlimit),
#endif
#ifdef SYS_fchmodat2
    CALL(fchmodat2),
#else
    NamedCall{"fchmodat2", 452},
#endif
    CALL(read), CALL(write), CALL(pread64), CALL(pwrite64), CALL(readv), CALL(writev), CALL(close),
    CALL(close_range), CALL(openat), CALL(openat2), CALL(lseek), CALL(fstat), CALL(newfstatat),
    CALL(statx), CALL(statfs), CALL(fstatfs), CALL(faccessat), CALL(faccessat2), CALL(mkdirat),
    CALL(mknodat), CALL(unlinkat), CALL(linkat), CALL(symlinkat), CALL(renameat), CALL(renameat2),
    CALL(readlinkat), CALL(fchown), CALL(fchownat), CALL(fchmod), CALL(fchmodat), CALL(utimensat),
    CALL(getdents64), CALL(getcwd), CALL(chdir), CALL(fchdir), CALL(truncate), CALL(ftruncate),
    CALL(fallocate), CALL(copy_file_range), CALL(sendfile), CALL(splice), CALL(fsync),
    CALL(fdatasync), CALL(sync), CALL(syncfs), CALL(flock), CALL(fcntl), CALL(ioctl), CALL(dup),
    CALL(dup3), CALL(pipe2), CALL(umask), CALL(setxattr), CALL(getxattr), CALL(fsetxattr),
    CALL(fgetxattr), CALL(brk), CALL(mmap), CALL(munmap), CALL(mremap), CALL(mprotect),
    CALL(madvise), CALL(futex), CALL(getrandom), CALL(prlimit64), CALL(prctl), CALL(rt_sigaction),
    CALL(rt_sigprocmask), CALL(rt_sigreturn), CALL(rt_sigtimedwait), CALL(sigaltstack), CALL(kill),
    CALL(tgkill), CALL(tkill), CALL(getpid), CALL(gettid), CALL(getppid), CALL(getuid),
    CALL(geteuid), CALL(getgid), CALL(getegid), CALL(setuid), CALL(setgid), CALL(setgroups),
    CALL(clock_gettime), CALL(clock_nanosleep), CALL(nanosleep), CALL(socket), CALL(connect),
    CALL(sendto), CALL(recvmsg), CALL(ppoll), CALL(pselect6), CALL(uname), CALL(sysinfo),
    CALL(personality), CALL(execve), CALL(clone), CALL(clone3), CALL(vfork), CALL(wait4),
    CALL(exit), CALL(exit_group), CALL(set_robust_list), CALL(set_tid_address), CALL(rseq),
    CALL(mount), CALL(umount2), CALL(open_tree), CALL(name_to_handle_at)};

#undef CALL

} // namespace

std::string systemCallName(long number)
{
    for (const NamedCall& call : namedCalls) {
        if (call.number == number) {
            return call.name;
        }
    }
    return "call " + std::to_string(number);
}

long systemCallNumber(const std::string& name)
{
    for (const NamedCall& call : namedCalls) {
        if (name == call.name) {
            return call.number;
        }
    }
    return -1;
}
