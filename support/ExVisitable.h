#pragma once

#include "support/Api.h"

namespace zelto
{

class ExVisitor;

/// A failure report that a visitor can go through.
class ZELTO_API ExVisitable
{
public:
    virtual ~ExVisitable() = default;

    /// Tells the visitor, in a fixed order, everything that the report holds.
    virtual void accept(ExVisitor& visitor) const = 0;

protected:
    ExVisitable() = default;
    ExVisitable(const ExVisitable&) = default;
    ExVisitable& operator=(const ExVisitable&) = default;
};

} // namespace zelto
