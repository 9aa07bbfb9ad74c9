#include "support/TmpFile.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <ios>
#include <stdexcept>
#include <unistd.h>
#include <utility>

#include "conf/StandardStreams.h"
#include "support/SystemError.h"

namespace zelto
{

namespace
{

using Buffer = __gnu_cxx::stdio_filebuf<char>;

constexpr std::size_t bufferSize = 2048;

/// The system would take a name with a NUL character for another, shorter one.
std::string patternOf(const std::string& prefix)
{
    if (prefix.find('\0') != std::string::npos) {
        throw std::invalid_argument("TmpFile: a NUL character in a path");
    }
    return prefix + "XXXXXX";
}

/// As mkstemp(3), but no program that is started meanwhile inherits the descriptor.
int createdFrom(std::string& pattern)
{
    const int fd = mkostemp(pattern.data(), O_CLOEXEC);
    if (fd == -1) {
        throwSystemError("mkstemp() failed: ", errno);
    }
    return fd;
}

/// A buffer that owns the descriptor. One that cannot open it leaves it alone and does not throw;
/// one that throws has opened and closed it.
Buffer bufferOn(int fd)
{
    Buffer buffer(fd, std::ios_base::out, bufferSize);
    if (!buffer.is_open()) {
        const int error = errno;
        (void)::close(fd);
        throwSystemError("fdopen() failed", error);
    }
    return buffer;
}

Buffer bufferOnNewFile(const std::string& name, int fd)
{
    try {
        return bufferOn(fd);
    } catch (...) {
        (void)::unlink(name.c_str());
        throw;
    }
}

void reportFailedRemoval(int error) noexcept
{
    try {
        standardError() << "TmpFile autoclean failed: " << std::strerror(error) << std::endl;
    } catch (...) { // NOLINT(bugprone-empty-catch): there is nowhere else to say it
    }
}

} // namespace

TmpFileBase::TmpFileBase(const std::string& prefix)
    : name_(patternOf(prefix)), buf_(bufferOnNewFile(name_, createdFrom(name_)))
{
}

TmpFileBase::TmpFileBase(std::string name, int fd)
    : name_(std::move(name)), buf_(bufferOnNewFile(name_, fd))
{
}

TmpFile::TmpFile(const std::string& prefix, bool autoclean)
    : TmpFileBase(prefix), std::ostream(&buffer()), autoclean_(autoclean)
{
}

TmpFile::~TmpFile()
{
    if (autoclean_ && ::unlink(name().c_str()) != 0) {
        reportFailedRemoval(errno);
    }
}

} // namespace zelto
