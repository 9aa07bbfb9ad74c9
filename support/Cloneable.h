#pragma once

#include "support/Api.h"

/// Something that can be copied without knowing its class.
class ZELTO_API Cloneable
{
public:
    virtual ~Cloneable() = default;

    /// A copy of the most derived object, made with `new`; the caller owns it.
    /// @throw std::bad_alloc and what else the copy constructor throws; nothing is left then.
    [[nodiscard]] virtual Cloneable* clone() const = 0;

protected:
    Cloneable() = default;
    Cloneable(const Cloneable&) = default;
    Cloneable& operator=(const Cloneable&) = default;
};
