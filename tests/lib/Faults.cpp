#include "tests/lib/Faults.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

// The linker's --wrap gives these names their meaning.
// NOLINTBEGIN(bugprone-reserved-identifier)

namespace
{

struct Fault {
    const char* function = nullptr;
    int error = 0;
    int due = 0; ///< the call that fails, counted from 1; 0 = none, -1 = all
    int calls = 0;
    int bodyDue = 0;
    void (*body)() = nullptr; ///< to run before that call
};

std::array<Fault, 80> table;
bool typesHidden = false;
bool positionsShared = false;
bool readsShortened = false;

Fault& slot(const char* function)
{
    for (Fault& fault : table) {
        if (fault.function == nullptr) {
            fault.function = function;
        }
        if (std::strcmp(fault.function, function) == 0) {
            return fault;
        }
    }
    std::abort();
}

/// Counts the call; true, with errno set, when it is to fail.
bool failsNow(const char* function)
{
    Fault& fault = slot(function);
    ++fault.calls;
    if (fault.body != nullptr && fault.calls == fault.bodyDue) {
        std::exchange(fault.body, nullptr)();
    }
    if (fault.due == -1 || (fault.due > 0 && fault.calls == fault.due)) {
        errno = fault.error;
        return true;
    }
    return false;
}

} // namespace

namespace faults
{

void fail(const char* function, int error, int nth)
{
    Fault& fault = slot(function);
    fault.error = error;
    fault.due = fault.calls + nth;
}

void failAlways(const char* function, int error)
{
    Fault& fault = slot(function);
    fault.error = error;
    fault.due = -1;
}

void runBefore(const char* function, int nth, void (*body)())
{
    Fault& fault = slot(function);
    fault.bodyDue = fault.calls + nth;
    fault.body = body;
}

int calls(const char* function)
{
    return slot(function).calls;
}

void hideEntryTypes(bool hide)
{
    typesHidden = hide;
}

void shareEntryPositions(bool share)
{
    positionsShared = share;
}

void shortenReads(bool shorten)
{
    readsShortened = shorten;
}

void clear()
{
    table.fill({});
    typesHidden = false;
    positionsShared = false;
    readsShortened = false;
}

} // namespace faults

#define WRAP(result, failure, name, parameters, arguments)                                         \
    extern "C" result __real_##name parameters;                                                    \
    extern "C" result __wrap_##name parameters                                                     \
    {                                                                                              \
        return failsNow(#name) ? (failure) : __real_##name arguments;                              \
    }

WRAP(void*, nullptr, malloc, (size_t size), (size))
WRAP(void*, nullptr, realloc, (void* memory, size_t size), (memory, size))
WRAP(char*, nullptr, strdup, (const char* text), (text))
WRAP(int, -1, vasprintf, (char** out, const char* format, va_list arguments),
    (out, format, arguments))
WRAP(FILE*, nullptr, fopen, (const char* path, const char* mode), (path, mode))
WRAP(int, EOF, fclose, (FILE * stream), (stream))
WRAP(ssize_t, -1, getdelim, (char** line, size_t* size, int delimiter, FILE* stream),
    (line, size, delimiter, stream))
WRAP(int, -1, stat, (const char* path, struct stat* status), (path, status))
WRAP(int, -1, lstat, (const char* path, struct stat* status), (path, status))
WRAP(int, -1, fstat, (int file, struct stat* status), (file, status))
WRAP(int, -1, fstatat, (int directory, const char* name, struct stat* status, int flags),
    (directory, name, status, flags))
WRAP(int, -1, mkdir, (const char* path, mode_t mode), (path, mode))
WRAP(int, -1, mkdirat, (int directory, const char* path, mode_t mode), (directory, path, mode))
WRAP(int, -1, chown, (const char* path, uid_t owner, gid_t group), (path, owner, group))
WRAP(int, -1, chmod, (const char* path, mode_t mode), (path, mode))
WRAP(int, -1, fchown, (int file, uid_t owner, gid_t group), (file, owner, group))
WRAP(int, -1, fchmod, (int file, mode_t mode), (file, mode))
WRAP(int, -1, fchownat, (int directory, const char* name, uid_t owner, gid_t group, int flags),
    (directory, name, owner, group, flags))
WRAP(int, -1, fchmodat, (int directory, const char* name, mode_t mode, int flags),
    (directory, name, mode, flags))
WRAP(int, -1, statx,
    (int directory, const char* name, int flags, unsigned mask, struct statx* status),
    (directory, name, flags, mask, status))
WRAP(int, -1, rename, (const char* from, const char* to), (from, to))
WRAP(int, -1, unlinkat, (int directory, const char* name, int flags), (directory, name, flags))
WRAP(int, -1, linkat,
    (int fromDirectory, const char* from, int toDirectory, const char* to, int flags),
    (fromDirectory, from, toDirectory, to, flags))
WRAP(int, -1, renameat2,
    (int fromDirectory, const char* from, int toDirectory, const char* to, unsigned flags),
    (fromDirectory, from, toDirectory, to, flags))
WRAP(int, -1, chdir, (const char* path), (path))
WRAP(int, -1, fchdir, (int directory), (directory))
WRAP(int, -1, close, (int file), (file))
WRAP(ssize_t, -1, read, (int file, void* buffer, size_t size), (file, buffer, size))
WRAP(ssize_t, -1, write, (int file, const void* buffer, size_t size), (file, buffer, size))
WRAP(off_t, -1, lseek, (int file, off_t offset, int whence), (file, offset, whence))
WRAP(char*, nullptr, getcwd, (char* buffer, size_t size), (buffer, size))
WRAP(int, -1, getentropy, (void* buffer, size_t size), (buffer, size))
WRAP(int, -1, unlink, (const char* path), (path))
WRAP(int, -1, rmdir, (const char* path), (path))
WRAP(int, -1, mkostemp, (char* name, int flags), (name, flags))
WRAP(int, -1, pipe2, (int* ends, int flags), (ends, flags))
WRAP(int, -1, dup2, (int from, int to), (from, to))
WRAP(int, -1, close_range, (unsigned first, unsigned last, int flags), (first, last, flags))
WRAP(pid_t, -1, fork, (), ())
WRAP(pid_t, -1, waitpid, (pid_t child, int* status, int options), (child, status, options))
WRAP(int, -1, setuid, (uid_t user), (user))
WRAP(
    int, -1, setenv, (const char* name, const char* value, int overwrite), (name, value, overwrite))
WRAP(int, -1, select, (int count, fd_set* reads, fd_set* writes, fd_set* others, timeval* limit),
    (count, reads, writes, others, limit))

extern "C" int __real_open(const char* path, int flags, ...);
extern "C" int __real_openat(int directory, const char* path, int flags, ...);
extern "C" int __real_fcntl(int file, int command, ...);
extern "C" long __real_syscall(long number, ...);
extern "C" ssize_t __real_getdents64(int directory, void* buffer, size_t size);

namespace
{

bool takesMode(int flags)
{
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

} // namespace

extern "C" int __wrap_open(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = takesMode(flags) ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return failsNow("open") ? -1 : __real_open(path, flags, mode);
}

/// A nameless file counts as a function of its own, "O_TMPFILE".
extern "C" int __wrap_openat(int directory, const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = takesMode(flags) ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    const bool nameless = (flags & O_TMPFILE) == O_TMPFILE;
    return failsNow(nameless ? "O_TMPFILE" : "openat")
               ? -1
               : __real_openat(directory, path, flags, mode);
}

/// Whatever the argument's type, it travels as one word.
extern "C" int __wrap_fcntl(int file, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    return failsNow("fcntl") ? -1 : __real_fcntl(file, command, argument);
}

/// Only fchmodat2 and openat2 are called by number.
extern "C" long __wrap_syscall(long number, ...)
{
    va_list arguments;
    va_start(arguments, number);
    const long first = va_arg(arguments, long);
    const long second = va_arg(arguments, long);
    const long third = va_arg(arguments, long);
    const long fourth = va_arg(arguments, long);
    va_end(arguments);
    return failsNow(number == SYS_openat2 ? "openat2" : "fchmodat2")
               ? -1
               : __real_syscall(number, first, second, third, fourth);
}

extern "C" ssize_t __wrap_getdents64(int directory, void* buffer, size_t size)
{
    if (failsNow("getdents64")) {
        return -1;
    }
    const off_t position = positionsShared ? __real_lseek(directory, 0, SEEK_CUR) : 0;
    constexpr size_t fewEntries = 128;
    const ssize_t length = __real_getdents64(directory, buffer, readsShortened ? fewEntries : size);
    for (ssize_t at = 0; at < length;) {
        auto* entry = reinterpret_cast<dirent64*>(static_cast<char*>(buffer) + at);
        at += entry->d_reclen;
        if (typesHidden) {
            entry->d_type = DT_UNKNOWN;
        }
        if (positionsShared && at < length) {
            entry->d_off = position;
        }
    }
    return length;
}

// NOLINTEND(bugprone-reserved-identifier)
