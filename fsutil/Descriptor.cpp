#include "fsutil/Descriptor.h"

#include <cerrno>

void Descriptor::reset(int fd) noexcept
{
    const int previous = std::exchange(fd_, fd);
    if (previous >= 0) {
        const int error = errno;
        ::close(previous);
        errno = error;
    }
}
