#include "exec/Pipe.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

#include "support/TSysCallErr.h"

namespace zelto::sys
{

namespace
{

/// A process may run with some of its standard descriptors closed, and new ones take their places.
Descriptor aboveStandardDescriptors(Descriptor end)
{
    if (end.get() > STDERR_FILENO) {
        return end;
    }
    Descriptor moved(::fcntl(end.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!moved) {
        throw TSysCallErr(errno);
    }
    return moved;
}

/// Takes over the descriptor, which may not be there.
void replace(int target, Descriptor& replacement)
{
    ::dup2(replacement.get(), target);
    replacement.reset();
}

} // namespace

Pipe::Pipe() noexcept = default;

Pipe::~Pipe() = default;

void Pipe::open()
{
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) == -1) {
        throw TSysCallErr(errno);
    }
    Descriptor read(ends[0]);
    Descriptor write(ends[1]);
    read = aboveStandardDescriptors(std::move(read));
    write = aboveStandardDescriptors(std::move(write));
    read_ = std::move(read);
    write_ = std::move(write);
}

void Pipe::closeReadEnd() noexcept
{
    read_.reset();
}

void Pipe::closeWriteEnd() noexcept
{
    write_.reset();
}

void Pipe::becomeStandardInput() noexcept
{
    ::close(STDIN_FILENO);
    closeWriteEnd();
    replace(STDIN_FILENO, read_);
}

void Pipe::becomeStandardOutput() noexcept
{
    ::close(STDOUT_FILENO);
    closeReadEnd();
    replace(STDOUT_FILENO, write_);
}

} // namespace zelto::sys
