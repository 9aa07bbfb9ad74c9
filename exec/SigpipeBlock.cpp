#include "exec/SigpipeBlock.h"

#include <cerrno>
#include <ctime>

namespace zelto
{

namespace
{

sigset_t sigpipeAlone() noexcept
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    return signals;
}

bool sigpipeIsPending() noexcept
{
    sigset_t pending;
    sigemptyset(&pending);
    return sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
}

} // namespace

SigpipeBlock::SigpipeBlock() noexcept
{
    const sigset_t signals = sigpipeAlone();
    pthread_sigmask(SIG_BLOCK, &signals, &maskBefore_);
    pendingBefore_ = sigpipeIsPending();
}

SigpipeBlock::~SigpipeBlock()
{
    pthread_sigmask(SIG_SETMASK, &maskBefore_, nullptr);
}

void SigpipeBlock::discardOwn() const noexcept
{
    const int error = errno;
    const sigset_t signals = sigpipeAlone();
    const timespec now{};
    while (sigtimedwait(&signals, nullptr, &now) == -1 && errno == EINTR) {
    }
    // A signal sent to the process waits apart from the thread's own and is still there. One sent
    // to the thread has become one with ours and was taken with it.
    if (pendingBefore_ && !sigpipeIsPending()) {
        (void)std::raise(SIGPIPE);
    }
    errno = error;
}

} // namespace zelto
