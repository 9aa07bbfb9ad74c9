#pragma once

#include <unistd.h>
#include <utility>

/// A file descriptor that is closed when its owner goes; -1 means none. Closing keeps `errno`, so
/// that the error of the call that led here can still be reported.
class Descriptor
{
public:
    Descriptor() = default;
    explicit Descriptor(int fd) noexcept : fd_(fd) {}
    Descriptor(Descriptor&& from) noexcept : fd_(from.release()) {}
    Descriptor& operator=(Descriptor&& from) noexcept
    {
        if (this != &from) {
            reset(from.release());
        }
        return *this;
    }
    ~Descriptor() { reset(); }

    [[nodiscard]] int get() const noexcept { return fd_; }
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
