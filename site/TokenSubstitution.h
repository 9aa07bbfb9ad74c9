#pragma once

#include <string>
#include <string_view>

namespace zelto
{

/// Replaces every "@domain_name@" by the name, from left to right; what was put in is not searched
/// again, so a name that holds the token does no harm. Any bytes may surround it.
///
/// Content without a token comes back as it is, not copied; otherwise the result is the only other
/// allocation and is exactly as large as needed.
/// @throw std::bad_alloc, std::length_error.
std::string withDomainName(std::string content, std::string_view name);

} // namespace zelto
