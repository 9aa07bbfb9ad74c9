#include "site/WholeInput.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <unistd.h>

namespace zelto
{

namespace
{

constexpr size_t leastGrowth = 65536;

/// Whether reading is worth another try.
bool canGoOn(int file, int error)
{
    if (error == EAGAIN) {
        pollfd awaited = {file, POLLIN, 0};
        return poll(&awaited, 1, -1) >= 0 || errno == EINTR;
    }
    return error == EINTR;
}

} // namespace

int readWholeInput(int file, size_t limit, std::string& content)
{
    content.clear();
    size_t length = 0;
    ssize_t count = -1;
    while (length < limit && count != 0) {
        if (length == content.size()) {
            content.resize(std::min(limit, length + std::max(length, leastGrowth)));
        }
        count = read(file, content.data() + length, content.size() - length);
        if (count > 0) {
            length += static_cast<size_t>(count);
        } else if (count < 0 && !canGoOn(file, errno)) {
            return -1;
        }
    }
    content.resize(length);
    return 0;
}

} // namespace zelto
