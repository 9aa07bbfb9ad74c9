#include "exec/ForkExec.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

#include "conf/FatalLogger.h"
#include "conf/StandardStreams.h"
#include "exec/CloseDescriptors.h"
#include "support/SystemError.h"

int dup2Custom(int source, int target)
{
    if (source == target) {
        return source;
    }
    if (source == -1) {
        source = open("/dev/null", O_RDWR);
        if (source == -1) {
            zelto::throwSystemError("dup2Custom failed", errno);
        }
        if (source == target) { // the target was closed, and its number the next free one
            return source;
        }
    }
    const int result = dup2(source, target);
    close(source);
    return result;
}

namespace
{

constexpr uid_t sameUser = static_cast<uid_t>(-1);

void setEnvironment(const std::map<std::string, std::string>& env)
{
    for (const auto& [name, value] : env) {
        if (setenv(name.c_str(), value.c_str(), 1) == -1) {
            zelto::throwSystemError("forkExecvPipes: setenv() falied", errno);
        }
    }
}

void prepareChild(
    int in, int out, int err, uid_t uid, const std::map<std::string, std::string>& env)
{
    dup2Custom(in, STDIN_FILENO);
    dup2Custom(out, STDOUT_FILENO);
    dup2Custom(err, STDERR_FILENO);
    zelto::closeDescriptorsFrom(STDERR_FILENO + 1);
    if (uid != sameUser && setuid(uid) == -1) {
        zelto::throwSystemError("forkExecvPipes: setuid() failed", errno);
    }
    setEnvironment(env);
}

[[noreturn]] void execute(const std::string& path, char* const argv[])
{
    execvp(path.c_str(), argv);
    fatalLogger(1, 1, "forkExecvPipes: execv() failed: %s\n", std::strerror(errno));
    _exit(1);
}

/// Everything that the child does. An exception ends here: above are the frames of the caller, who
/// would go on as a second copy of himself.
template<class Body>
[[noreturn]] void runAsChild(Body body) noexcept
{
    try {
        body();
    } catch (const std::exception& exception) {
        (void)dprintf(STDERR_FILENO, "Unexpected error: %s\n", exception.what());
    }
    _exit(1);
}

} // namespace

pid_t forkExecvPipes(int in, int out, int err, const std::string& path, char* const argv[],
    uid_t uid, const std::map<std::string, std::string>& env)
{
    if (argv == nullptr) {
        throw std::invalid_argument("forkExecvPipes: no arguments");
    }
    zelto::flushStandardStreams();
    const pid_t child = fork();
    if (child == -1) {
        zelto::throwSystemError("forkExecvPipes: fork() failed", errno);
    }
    if (child == 0) {
        runAsChild([&] {
            prepareChild(in, out, err, uid, env);
            execute(path, argv);
        });
    }
    return child;
}
