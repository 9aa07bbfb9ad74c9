#include "support/SystemError.h"

#include <cerrno>
#include <cstring>

namespace zelto
{

SystemError::SystemError(const std::string& message, int err)
    : std::runtime_error(message), err_(err)
{
}

SystemError::~SystemError() = default;

const char* SystemError::what() const noexcept
{
    const char* const message = std::runtime_error::what();
    if (!whatText_.empty()) {
        return whatText_.c_str();
    }
    try {
        std::string text(message);
        if (!text.empty()) {
            text += ": ";
        }
        text += std::strerror(err_);
        // Only a whole text may be kept: the next call would take half of one for all of it.
        whatText_.swap(text);
    } catch (...) {
        return message;
    }
    return whatText_.c_str();
}

template<int N>
ExSystemError<N>::~ExSystemError() = default;

template class ExSystemError<1>;
template class ExSystemError<2>;
template class ExSystemError<4>;
template class ExSystemError<10>;
template class ExSystemError<11>;

void throwSystemError(const std::string& message, int err)
{
    // Read before anything is allocated, which may change it.
    const int error = err != 0 ? err : errno;
    switch (err) {
    case 1:
        throw ExSystemError<1>(message, err);
    case 2:
        throw ExSystemError<2>(message, err);
    case 4:
        throw ExSystemError<4>(message, err);
    case 10:
        throw ExSystemError<10>(message, err);
    case 11:
        throw ExSystemError<11>(message, err);
    default:
        throw SystemError(message, error);
    }
}

} // namespace zelto
