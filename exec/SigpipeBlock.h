#pragma once

#include <csignal>

namespace zelto
{

/// Keeps SIGPIPE from this thread for as long as the object lives: writing without a reader is then
/// an error of the call alone. Only the mask is used, and it is put back; to ignore the signal
/// would reach into the whole process and into the programs that it starts.
class SigpipeBlock
{
public:
    SigpipeBlock() noexcept;
    ~SigpipeBlock();
    SigpipeBlock(const SigpipeBlock&) = delete;
    SigpipeBlock& operator=(const SigpipeBlock&) = delete;

    /// Takes back the signal of a write that has just failed with EPIPE, and no other: one that was
    /// pending before stays so. Keeps `errno`.
    void discardOwn() const noexcept;

private:
    sigset_t maskBefore_{};
    bool pendingBefore_ = false;
};

} // namespace zelto
