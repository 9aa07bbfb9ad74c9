#pragma once

#include <ext/stdio_filebuf.h>
#include <ostream>
#include <string>

#include "support/Api.h"

namespace zelto
{

/// A file that was just created under a name of its own, and the buffer that writes it: what an
/// output stream onto a new file is built upon. Such a class names it as its first base, so that
/// the buffer is there before the stream and is flushed and closed after it.
class ZELTO_API TmpFileBase
{
public:
    TmpFileBase(const TmpFileBase&) = delete;
    TmpFileBase& operator=(const TmpFileBase&) = delete;

    /// The path of the file.
    [[nodiscard]] const std::string& name() const noexcept { return name_; }

protected:
    /// The buffer, which owns the descriptor.
    using Buffer = __gnu_cxx::stdio_filebuf<char>;

    /// Creates a file, as mkstemp(3): for its owner alone (mode 0600) and never one that was there.
    ///
    /// @param prefix the path that six more characters complete.
    /// @throw SystemError "mkstemp() failed: " and the system's text, as throwSystemError() does.
    /// @throw std::invalid_argument for a NUL character in the prefix.
    /// @throw SystemError, std::bad_alloc as the other constructor.
    explicit TmpFileBase(const std::string& prefix);

    /// Takes over a file that the caller created.
    ///
    /// @param name the path of the file.
    /// @param fd   its descriptor, open for writing; it belongs to this object from here on, also
    ///             when the constructor throws.
    /// @throw SystemError "fdopen() failed" and the system's text, as throwSystemError() does, if
    ///                    no buffer can be opened on the descriptor.
    /// @throw std::bad_alloc without memory for the buffer. After either, the file is removed and
    ///                       the descriptor closed.
    TmpFileBase(std::string name, int fd);

    /// Writes out what the buffer still holds and closes the descriptor. The file stays.
    ~TmpFileBase() = default;

    /// What the stream writes into, 2048 bytes large.
    [[nodiscard]] Buffer& buffer() noexcept { return buf_; }

private:
    std::string name_;
    Buffer buf_;
};

/// An output stream onto a new file with a name of its own, which can be renamed into place when
/// it is complete. Failures to write show in the state of the stream: flush it and look at its
/// state before the renaming, because what is left for the destructor to write fails in silence.
/// The descriptor is closed when a program is executed.
class ZELTO_API TmpFile : private TmpFileBase, public std::ostream
{
public:
    /// Creates the file, as mkstemp(3): for its owner alone (mode 0600) and never one that was
    /// there.
    ///
    /// @param prefix    the path that six more characters complete: "/tmp/abc" makes
    ///                  "/tmp/abcXXXXXX" with another end each time.
    /// @param autoclean whether the file is removed together with the object.
    /// @throw SystemError "mkstemp() failed: ", another ": " and the system's text, as
    ///                    throwSystemError() does: an ExSystemError<2> where there is no such
    ///                    directory. Nothing is left behind.
    /// @throw std::invalid_argument for a NUL character in the prefix.
    /// @throw SystemError "fdopen() failed" and the system's text if the descriptor cannot be
    ///                    written through a buffer. Nothing is left behind.
    /// @throw std::bad_alloc without memory for the buffer. Nothing is left behind.
    explicit TmpFile(const std::string& prefix, bool autoclean = false);
    TmpFile(const TmpFile&) = delete;
    TmpFile& operator=(const TmpFile&) = delete;

    /// Removes the file if that was asked for, then writes out what the buffer still holds and
    /// closes the descriptor. A removal that fails makes one line on std::cerr, "TmpFile autoclean
    /// failed: " and the system's text, and nothing else.
    ~TmpFile() override;

    /// The path of the file.
    using TmpFileBase::name;

    /// Whether the file is removed together with the object.
    void setAutoclean(bool autoclean) noexcept { autoclean_ = autoclean; }

private:
    bool autoclean_;
};

} // namespace zelto
