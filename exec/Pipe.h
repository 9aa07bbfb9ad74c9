#pragma once

#include "fsutil/Descriptor.h"
#include "support/Api.h"

namespace zelto::sys
{

/// The two ends of a pipe(7), each closed when it was handed on or when the object goes.
///
/// Neither end survives an execution, so that no program holds a pipe open that is not its own, and
/// neither is one of the descriptors 0 to 2, even where those are free, so that the redirections
/// below never close what they redirect to. Two preparations share one object by std::shared_ptr.
class ZELTO_API Pipe
{
public:
    /// No ends yet.
    Pipe() noexcept;
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    ~Pipe();

    /// Makes a new pipe, as pipe2(2), and closes the ends of the previous one.
    /// @throw TSysCallErr when there can be none; the previous ends are as they were.
    void open();

    /// The descriptor to read from, which stays the pipe's; -1 when it is closed.
    [[nodiscard]] int readEnd() const noexcept { return read_.get(); }
    /// The descriptor to write to, which stays the pipe's; -1 when it is closed.
    [[nodiscard]] int writeEnd() const noexcept { return write_.get(); }

    /// Closes one end; a closed one stays closed.
    void closeReadEnd() noexcept;
    /// Closes one end; a closed one stays closed.
    void closeWriteEnd() noexcept;

    /// Makes the read end this process's standard input and closes both ends here. Nothing is
    /// checked: without a read end the standard input is closed.
    void becomeStandardInput() noexcept;

    /// Makes the write end this process's standard output and closes both ends here. Nothing is
    /// checked: without a write end the standard output is closed.
    void becomeStandardOutput() noexcept;

private:
    Descriptor read_;
    Descriptor write_;
};

} // namespace zelto::sys
