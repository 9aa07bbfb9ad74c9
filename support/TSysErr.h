#pragma once

#include "support/Api.h"
#include "support/TError.h"

namespace zelto::sys
{

/// An error of the executor.
class ZELTO_API TSysErr : public TError
{
public:
    using TError::TError;
    TSysErr(const TSysErr&) = default;
    TSysErr& operator=(const TSysErr&) = default;
    ~TSysErr() override;
};

} // namespace zelto::sys
