#pragma once

#include <cerrno>
#include <cstdio>
#include <memory>

/// Closes a stream that was only read: a failed close loses nothing, and `errno` goes on telling
/// why the reading ended.
struct ReadStreamCloser {
    void operator()(FILE* stream) const noexcept
    {
        const int error = errno;
        (void)std::fclose(stream); // NOLINT(cppcoreguidelines-owning-memory): it is the owner's
        errno = error;
    }
};

/// A stream open for reading, owned.
using ReadStream = std::unique_ptr<FILE, ReadStreamCloser>;
