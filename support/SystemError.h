#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "support/Api.h"

/// @file
/// The one way in which the object layer reports a failed system call.

namespace zelto
{

/// A system call failed; carries its error number.
class ZELTO_API SystemError : public std::runtime_error
{
public:
    /// @param message what was being done, such as "fork() failed"; may be empty. The system's own
    ///                text is added by what() and does not belong into it.
    /// @param err     an error number of errno(3).
    SystemError(const std::string& message, int err);
    SystemError(const SystemError&) = default;
    SystemError& operator=(const SystemError&) = default;
    ~SystemError() override;

    /// The message, ": " and the text of strerror(3), or that text alone behind an empty message.
    /// It is composed by the first call and stays the same from then on; without the memory for
    /// it, the bare message is returned.
    [[nodiscard]] const char* what() const noexcept override;

    /// The error number given at construction.
    [[nodiscard]] int errorCode() const noexcept { return err_; }

private:
    std::int32_t err_;
    mutable std::string whatText_; ///< empty until what() was called
};

/// The error numbers that callers can catch by type: EPERM, ENOENT, EINTR, ECHILD and EAGAIN.
constexpr bool hasExSystemError(int err)
{
    return err == 1 || err == 2 || err == 4 || err == 10 || err == 11;
}

/// A system call failed with the error number N, for callers that catch one kind of failure. The
/// kinds are few on purpose; every other number is a plain SystemError.
template<int N>
class ZELTO_API ExSystemError : public SystemError
{
    static_assert(hasExSystemError(N), "this error number is raised as a plain SystemError");

public:
    using SystemError::SystemError;
    ExSystemError(const ExSystemError&) = default;
    ExSystemError& operator=(const ExSystemError&) = default;
    ~ExSystemError() override;
};

extern template class ExSystemError<1>;
extern template class ExSystemError<2>;
extern template class ExSystemError<4>;
extern template class ExSystemError<10>;
extern template class ExSystemError<11>;

/// Raises the failure of a system call.
///
/// @param message as for SystemError.
/// @param err     the error number; 0 means what `errno` holds now.
/// @throw ExSystemError<N> when `err` itself is one of its numbers.
/// @throw SystemError for every other number, and always when `err` is 0, whatever `errno` holds.
/// @throw std::bad_alloc without the memory for either.
[[noreturn]] ZELTO_API void throwSystemError(const std::string& message, int err);

} // namespace zelto
