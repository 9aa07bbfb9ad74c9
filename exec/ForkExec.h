#pragma once

#include <map>
#include <string>
#include <sys/types.h>

#include "exec/DescriptorStrings.h"
#include "support/Api.h"

/// @file
/// Starting a program with its standard descriptors wired up, at choice as another user and with
/// additions to its environment, and talking to it through pipes until it ends. For processes with
/// one thread.
///
/// No shell parses the arguments: they reach the program as they are and need no escaping. Only the
/// program itself may turn out to be a shell's: an executable text without "#!" in front is handed
/// to /bin/sh as a script, as execvp(3) has it.

/// Makes one descriptor stand in the place of another, as dup2(2), and closes the original.
///
/// - Both the same (also both -1): returned at once; nothing is opened or closed.
/// - source -1: "/dev/null", opened for reading and writing, takes the target's place.
/// - else: dup2(2), then the source is closed, also when dup2(2) failed. The source is the
///   caller's own descriptor and gone afterwards.
///
/// @param source what is to be reached through the target's number; -1 for nothing.
/// @param target the number it is to have; what was open there is closed.
/// @return what dup2(2) returned, that is the target, or -1 with `errno` when it failed; the
///         source when both are the same.
/// @throw zelto::SystemError "dup2Custom failed" when "/dev/null" cannot be opened
///        (zelto::ExSystemError<1>, <2>, <4> or <11> for EPERM, ENOENT, EINTR and EAGAIN).
ZELTO_API int dup2Custom(int source, int target);

/// Starts a program in a child process and returns at once. Rests on fork(2), setuid(2), setenv(3)
/// and execvp(3).
///
/// The parent only forks, after flushing its standard streams. It neither waits for the child nor
/// closes a descriptor: both are left to the caller.
///
/// The child gives the descriptors their places with dup2Custom(), in the order 0, 1, 2, and each
/// is closed where it was. So they have to be three different ones, and none may have the place of
/// one before it: by its turn it is gone or another, and nothing reports that; the place of one
/// that is gone keeps what the parent has there. Then everything from descriptor 3 on is closed,
/// the user is changed, the environment is set in the order of the names, and the program is
/// executed, found by way of PATH as the environment says by then.
///
/// What fails in the child is seen by the parent as its exit status 1, with a text on the child's
/// standard error:
/// - the program cannot be executed: the fatal logger's report "forkExecvPipes: execv() failed:
///   <text of errno>", a newline and the system error, behind the base name of PROGNAME. It goes to
///   the child's standard output as well. The child ends by exit(3), so that handlers of
///   atexit(3) and static destructors of the calling program run in it.
/// - before that: "Unexpected error: <text>" and a newline, where the text is "dup2Custom failed",
///   "forkExecvPipes: setuid() failed" or "forkExecvPipes: setenv() falied", ": " and the text of
///   errno. The child ends by _exit(2). A name that is empty or contains '=' is such an error.
///
/// The child inherits the signal mask and every ignored signal, as execve(2) has it.
///
/// @param in   the program's standard input; -1 for "/dev/null".
/// @param out  the program's standard output; -1 for "/dev/null".
/// @param err  the program's standard error; -1 for "/dev/null".
/// @param path the program; one without a slash is looked up on PATH.
/// @param argv its arguments with its own name first, closed by a null pointer; the caller's.
/// @param uid  the user it runs as, or -1 for no change. Group and supplementary groups always
///             stay those of the parent.
/// @param env  variables to set, which replace inherited ones of the same name.
/// @return the child's process id.
/// @throw zelto::SystemError "forkExecvPipes: fork() failed" (zelto::ExSystemError<11> for EAGAIN).
/// @throw std::invalid_argument when `argv` is null.
ZELTO_API pid_t forkExecvPipes(int in, int out, int err, const std::string& path,
    char* const argv[], uid_t uid, const std::map<std::string, std::string>& env);

/// Runs a program to its end: feeds it its input, collects what it writes, and waits for it. Rests
/// on forkExecvPipes(), pipe2(2), select(2) and waitpid(2).
///
/// The three streams are served together, so that no amount on one of them holds up another, in
/// time linear in what is moved. There is no time-out. The call returns when the program has ended
/// and everybody who inherited its streams has closed them, and only after all of the input has
/// been written to the pipe.
///
/// A program that closes its standard input early, or ends without reading all of it, makes the
/// call throw as soon as the rest is to be written; input that fits into the pipe (64 KiB) can
/// still disappear unread.
///
/// The program must not be reaped by anybody else: with SIGCHLD ignored, or with a handler that
/// waits for every child, the call never returns and keeps a processor busy meanwhile.
///
/// Descriptors: none is left open after a return. After an exception in the middle of a run
/// (select, write, read, no memory) the pipes' ends that were still open remain so until the
/// process ends, and the child is not waited for: closing them would tell the program that its
/// input is complete.
///
/// @param input  what the program reads; empty on return, and after an exception what was not
///               written. Empty from the start, the program sees the end of its input at once.
/// @param output what the program writes to its standard output is appended.
/// @param error  what it writes to its standard error is appended.
/// @param path   the program, as for forkExecvPipes().
/// @param argv   its arguments, as for forkExecvPipes().
/// @param uid    the user it runs as, or -1, as for forkExecvPipes().
/// @param env    variables to set, as for forkExecvPipes().
/// @return the program's exit status, 0 to 255; -1 when a signal ended it or waitpid(2) failed with
///         something else than EINTR or ECHILD. A program that could not be executed has status 1
///         and the report of forkExecvPipes() in both `error` and `output`.
/// @throw zelto::SystemError "forkExecvPipes: fork() failed",
///        "forkExecvGetOutErr: select() failed",
///        "writeToString failed" (EPIPE when the program stopped reading) or
///        "readToString failed", with zelto::ExSystemError<N> for its numbers.
/// @throw std::invalid_argument when `argv` is null.
/// @throw std::bad_alloc when memory runs out.
///
/// When a pipe cannot be made or set up, the calling program itself ends: the fatal logger reports
/// "forkExecvGetOutErr: pipe() failed" or "forkExecvGetOutErr: fcntl(O_NONBLOCK) failed" with the
/// system error, and the exit status is 1.
ZELTO_API int forkExecvGetOutErr(std::string& input, std::string& output, std::string& error,
    const std::string& path, char* const argv[], uid_t uid,
    const std::map<std::string, std::string>& env);

/// As above, for a program without input.
ZELTO_API int forkExecvGetOutErr(std::string& output, std::string& error, const std::string& path,
    char* const argv[], uid_t uid, const std::map<std::string, std::string>& env);

/// As above, without input and with the environment as it is.
ZELTO_API int forkExecvGetOutErr(std::string& output, std::string& error, const std::string& path,
    char* const argv[], uid_t uid);

/// As above, without input, with the environment as it is and as the same user.
ZELTO_API int forkExecvGetOutErr(
    std::string& output, std::string& error, const std::string& path, char* const argv[]);

/// As above, without input, with the environment as it is and as the same user. What the program
/// writes to its standard error is discarded.
ZELTO_API int forkExecvGetOutErr(std::string& output, const std::string& path, char* const argv[]);
