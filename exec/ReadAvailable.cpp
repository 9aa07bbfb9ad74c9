#include "exec/ReadAvailable.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <unistd.h>

#include "support/SystemError.h"

namespace zelto
{

namespace
{

void makeRoom(std::string& text, std::size_t more)
{
    constexpr std::size_t growth = 4;
    if (text.capacity() - text.size() >= more) {
        return;
    }
    try {
        text.reserve(growth * text.size());
    } catch (const std::exception&) {
        // Less may still be had; appending will tell.
    }
}

} // namespace

bool readAvailable(int fd, std::string& out, std::size_t atOnce, std::size_t longText)
{
    char chunk[mostReadAtOnce];
    for (;;) {
        const ssize_t result = read(fd, chunk, std::min(atOnce, sizeof chunk));
        if (result == 0) {
            return false;
        }
        if (result > 0) {
            const auto count = static_cast<std::size_t>(result);
            if (out.size() >= longText) {
                makeRoom(out, count);
            }
            out.append(chunk, count);
        } else if (errno == EAGAIN) {
            return true;
        } else if (errno != EINTR) {
            throwSystemError("readToString failed", errno);
        }
    }
}

} // namespace zelto
