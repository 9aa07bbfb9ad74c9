#pragma once

#include <cerrno>
#include <initializer_list>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include "exec/TExec.h"
#include "support/TSysCallErr.h"

/// @file
/// What tests of the executor share: short ways to write commands, and a careful caller.

inline zelto::sys::TEArgs words(std::initializer_list<const char*> list)
{
    zelto::sys::TEArgs args;
    for (const char* word : list) {
        args.add(word);
    }
    return args;
}

inline zelto::sys::TEArgs shell(const std::string& script)
{
    return words({"/bin/sh", "-c", script.c_str()});
}

/// Prints which of the descriptors 0 to 9 the program has.
inline zelto::sys::TEArgs listDescriptors()
{
    return shell("for fd in 0 1 2 3 4 5 6 7 8 9; do "
                 "if [ -e /proc/self/fd/$fd ]; then printf $fd; fi; done");
}

/// Exits with 0 when the program has the descriptor open, else with 1.
inline zelto::sys::TEArgs hasDescriptor(int fd)
{
    return shell("[ -e /proc/self/fd/" + std::to_string(fd) + " ]");
}

/// Runs a command and keeps the child from going on as a second copy of the test: it ends with 100
/// plus the error number when the run threw there, with 90 when the run answered (-1, 0) there.
inline std::pair<int, int> runCarefully(const zelto::sys::TExec& command)
{
    const pid_t caller = getpid();
    int codeOfChild = 91;
    try {
        const std::pair<int, int> result = command.run();
        if (getpid() == caller) {
            return result;
        }
        codeOfChild = result == std::pair(-1, 0) ? 90 : 91;
    } catch (const zelto::sys::TSysCallErr& error) {
        if (getpid() == caller) {
            throw;
        }
        codeOfChild = 100 + error.errorCode();
    }
    _exit(codeOfChild);
}

/// The status word of a child, -1 for any; -1 when there is none.
inline int statusWordOf(pid_t child)
{
    int status = -1;
    pid_t ended = -1;
    do {
        ended = waitpid(child, &status, 0);
    } while (ended == -1 && errno == EINTR);
    return ended > 0 ? status : -1;
}

inline int statusWordOfAnyChild()
{
    return statusWordOf(-1);
}

inline bool hasNoChildren()
{
    return waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD;
}

inline std::string readAll(int fd)
{
    std::string text;
    char chunk[4096];
    ssize_t count = 0;
    while ((count = read(fd, chunk, sizeof chunk)) > 0) {
        text.append(chunk, static_cast<std::size_t>(count));
    }
    return text;
}
