#pragma once

#include <climits>
#include <cstddef>
#include <string_view>
#include <vector>

#include "site/SiteRemover.h"

namespace zelto
{

/// How many bytes the parser takes.
constexpr size_t largestDescriptor = INT_MAX;

/// The entries of an application instance's descriptor, in the order of the document.
///
/// Nothing outside the text is read, whatever it names or the program told libxml2 to load, and
/// libxml2's own limits hold. Its messages go to standard error.
/// @throw std::runtime_error, std::bad_alloc as readDescriptor().
std::vector<TreeEntry> parseDescriptor(std::string_view text);

} // namespace zelto
