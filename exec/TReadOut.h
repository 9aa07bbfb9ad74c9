#pragma once

#include "exec/Pipe.h"
#include "exec/TExec.h"
#include "support/Api.h"

namespace zelto::sys
{

/// Connects the program's standard output to a pipe that the caller reads.
///
/// Run the command without the wait flag, read until the end, and wait then: a program that is
/// waited for first never ends once it has written more than a pipe holds (64 KiB).
class ZELTO_API TReadOut : public TExec::TPrepare
{
public:
    TReadOut();
    ~TReadOut() override;

    /// Makes the pipe, closing that of an earlier run.
    /// @throw TSysCallErr when there can be none.
    void beforeFork(const TExec& exec) override;
    /// Leaves the write end to the child, so that the read end comes to an end.
    void inParent(const TExec& exec) override;
    /// Connects the standard output.
    void inChild(const TExec& exec) override;

    /// Where the output is read, -1 before the first run. It stays this object's, which closes it
    /// with the next run and when it goes.
    [[nodiscard]] int readEnd() const noexcept { return pipe_.readEnd(); }

private:
    Pipe pipe_;
};

} // namespace zelto::sys
