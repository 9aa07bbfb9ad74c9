#pragma once

#include <cstdlib>
#include <memory>

/// Releases what the C library allocated.
struct FreeDeleter {
    // NOLINTNEXTLINE(cppcoreguidelines-owning-memory): this is what owns it
    void operator()(void* memory) const noexcept { std::free(memory); }
};

/// A NUL-terminated string that the C library allocated, owned.
using CString = std::unique_ptr<char, FreeDeleter>;
