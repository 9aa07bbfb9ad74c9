#pragma once

#include <unistd.h>
#include <utility>

#include "support/Api.h"

/// A file descriptor that is closed when its owner goes; -1 means none. Closing keeps `errno`, so
/// that the error of the call that led here can still be reported.
class ZELTO_API Descriptor
{
public:
    Descriptor() = default;

    /// Takes a descriptor over.
    explicit Descriptor(int fd) noexcept : fd_(fd) {}

    /// Takes over what another one holds, which then holds none.
    Descriptor(Descriptor&& from) noexcept : fd_(from.release()) {}

    /// Closes the descriptor held and takes over what another one holds.
    Descriptor& operator=(Descriptor&& from) noexcept
    {
        if (this != &from) {
            reset(from.release());
        }
        return *this;
    }
    ~Descriptor() { reset(); }

    /// The descriptor, which stays this object's; -1 if there is none.
    [[nodiscard]] int get() const noexcept { return fd_; }

    /// Whether there is one.
    explicit operator bool() const noexcept { return fd_ >= 0; }

    /// Gives the descriptor up without closing it.
    int release() noexcept { return std::exchange(fd_, -1); }

    /// Closes the descriptor held and takes another.
    void reset(int fd = -1) noexcept;

    /// Closes now and says whether that went well: 0, or -1 with `errno` of close(2).
    int close() noexcept { return fd_ >= 0 ? ::close(release()) : 0; }

private:
    int fd_ = -1;
};
