#pragma once

#include <cstddef>
#include <string>

namespace zelto
{

/// Reads from an open file, a pipe or a terminal to its end into memory, and waits where there is
/// nothing to read yet, also if the file is set not to wait.
///
/// @param limit how much is read at most, in bytes: getting that much may mean that there is more.
/// @return 0, or -1 with `errno`, the content then unspecified.
/// @throw std::bad_alloc.
int readWholeInput(int file, size_t limit, std::string& content);

} // namespace zelto
