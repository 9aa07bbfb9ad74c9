#pragma once

namespace zelto
{

/// Closes every descriptor from this one up to the last that the process may have, which is
/// getdtablesize(3) - 1; those that are not open do not matter. For a child that must not hold open
/// what belongs to others.
void closeDescriptorsFrom(int first) noexcept;

} // namespace zelto
