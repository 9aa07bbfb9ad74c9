#pragma once

#include <cstddef>
#include <string>

namespace zelto
{

/// Reads an open regular file from its position to its end into memory.
///
/// @param expectedSize what fstat(2) said; a file that meanwhile grew or shrank is read all the
///                     same. A file of that size takes one read(2) and memory only once.
/// @return 0, or -1 with `errno`, the content then unspecified.
/// @throw std::bad_alloc, std::length_error.
int readWholeFile(int file, size_t expectedSize, std::string& content);

} // namespace zelto
