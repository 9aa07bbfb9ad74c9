#pragma once

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

/// How a process ended and what it wrote.
struct Outcome {
    int status = 0; ///< the exit status, or -N when signal N ended it
    std::string out;
    std::string err;
};

/// How to start a program; the defaults are an administrator's.
struct Start {
    std::string directory = "/";
    std::vector<std::string> environment = {}; ///< "NAME=value", added to the test's own
    bool standardErrorIntoFile = false;        ///< a regular file instead of a pipe
    std::function<void()> inChild = {};        ///< runs last before the program is executed
};

/// A program that has been started, and where to read what it writes.
struct Running {
    pid_t process = 0;
    int out = -1;
    int err = -1;
    int errFile = -1; ///< in place of the pipe
};

Running startProgram(
    const std::string& path, const std::vector<std::string>& arguments, const Start& start);

/// Reads to the end of both streams, and closes them.
void takeOutput(const Running& running, Outcome& outcome);

/// The status of an Outcome for one of waitpid().
int outcomeStatus(int waited);

/// Runs a program to its end. When the environment variable TWIGCTL_WITHOUT is set, a program whose
/// file is named "twigctl" runs without the system calls that it lists (see MissingCalls.h). The
/// first argument is also what it sees as its own name.
Outcome runProgram(
    const std::string& path, const std::vector<std::string>& arguments, const Start& start = {});

/// Runs the body in a forked child with captured output; for code that ends the process.
/// A body that returns ends the child with status 0.
Outcome inChild(const std::function<void()>& body);

/// Runs the body in this process and returns what it wrote (status 0).
Outcome outputOf(const std::function<void()>& body);

/// The number of descriptors that this process has open.
size_t openDescriptors();
