#include "support/TError.h"

#include <utility>

namespace zelto
{

TError::Detail::~Detail() = default;

// Made from the bare pointer: from an empty unique_ptr there would be nothing to share or to count.
TError::TError(std::string message, std::unique_ptr<Detail> detail)
    : message_(std::move(message)), detail_(detail.release())
{
}

TError::~TError() = default;

const char* TError::what() const noexcept
{
    return message_.c_str();
}

} // namespace zelto
