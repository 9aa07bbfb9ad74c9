#pragma once

#include <cerrno>
#include <cstdint>

#include "support/Api.h"
#include "support/TSysErr.h"

namespace zelto::sys
{

/// A system call of the executor failed. The message is the text of strerror(3) alone.
class ZELTO_API TSysCallErr : public TSysErr
{
public:
    /// @param err the error number; without it, what `errno` holds at this moment.
    explicit TSysCallErr(int err = errno);
    TSysCallErr(const TSysCallErr&) = default;
    TSysCallErr& operator=(const TSysCallErr&) = default;
    ~TSysCallErr() override;

    /// The error number of the failed call.
    [[nodiscard]] int errorCode() const noexcept { return err_; }

private:
    std::int32_t err_;
};

} // namespace zelto::sys
