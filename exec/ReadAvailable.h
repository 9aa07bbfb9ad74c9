#pragma once

#include <cstddef>
#include <string>

namespace zelto
{

/// Appends to a string what a descriptor gives, until it has nothing more at the moment (true) or
/// has come to its end (false); see readToString().
/// @param atOnce  how much is asked for in one call, at most mostReadAtOnce.
/// @param longText from this length on the string grows in larger steps than it takes on its own,
///                for most of the time would go into moving it. Room that is not used is not
///                touched and so costs no memory.
bool readAvailable(int fd, std::string& out, std::size_t atOnce, std::size_t longText);

/// What a pipe holds.
constexpr std::size_t mostReadAtOnce = 65536;

} // namespace zelto
