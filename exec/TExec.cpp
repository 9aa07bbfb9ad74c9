#include "exec/TExec.h"

#include <cerrno>
#include <sys/wait.h>
#include <unistd.h>

#include "conf/StandardStreams.h"
#include "support/TSysCallErr.h"

namespace zelto::sys
{

namespace
{

constexpr std::pair<int, int> nothingRun{-1, 0};

/// The exit code, or -1 for an end by a signal.
int exitCode(int status)
{
    return (status & 0x7f) != 0 ? -1 : (status >> 8) & 0xff;
}

} // namespace

TExec::TExec(const TEArgs& args, TPrepare* prepare, unsigned flags) noexcept
    : args_(args), flags_(flags), prepare_(prepare)
{
}

std::pair<int, int> TExec::run() const
{
    if ((flags_ & fork) == 0) {
        return executeHere();
    }
    if (prepare_ != nullptr) {
        prepare_->beforeFork(*this);
    }
    flushStandardStreams();
    const pid_t child = ::fork();
    if (child == -1) {
        return forkFailed(errno);
    }
    if (child != 0) {
        return finishInParent(child);
    }
    if (prepare_ != nullptr) {
        prepare_->inChild(*this);
    }
    return executeHere();
}

/// A hook may well change errno; it is put back for callers that are only told (-1, 0).
std::pair<int, int> TExec::forkFailed(int error) const
{
    if (prepare_ == nullptr || prepare_->onForkError(*this)) {
        throw TSysCallErr(error);
    }
    errno = error;
    return nothingRun;
}

std::pair<int, int> TExec::finishInParent(int child) const
{
    if (prepare_ != nullptr) {
        prepare_->inParent(*this);
    }
    if ((flags_ & wait) == 0) {
        return {child, 0};
    }
    int status = 0;
    if (::waitpid(child, &status, 0) == -1) {
        throw TSysCallErr(errno);
    }
    return {child, exitCode(status)};
}

/// In the child, or in the caller when there is none; returns or throws only when that failed.
std::pair<int, int> TExec::executeHere() const
{
    if (prepare_ != nullptr) {
        prepare_->beforeExec(*this);
    }
    (void)args_.execute((flags_ & searchPath) != 0);
    const int error = errno;
    if (prepare_ == nullptr || prepare_->onExecError(*this)) {
        throw TSysCallErr(error);
    }
    errno = error;
    return nothingRun;
}

TExec::TPrepare::~TPrepare() = default;

void TExec::TPrepare::beforeFork(const TExec& /*exec*/) {}

bool TExec::TPrepare::onForkError(const TExec& /*exec*/)
{
    return true;
}

void TExec::TPrepare::inParent(const TExec& /*exec*/) {}

void TExec::TPrepare::inChild(const TExec& /*exec*/) {}

void TExec::TPrepare::beforeExec(const TExec& /*exec*/) {}

bool TExec::TPrepare::onExecError(const TExec& /*exec*/)
{
    return true;
}

} // namespace zelto::sys
