#include "site/WholeFile.h"

#include <algorithm>
#include <cerrno>
#include <unistd.h>

namespace zelto
{

int readWholeFile(int file, size_t expectedSize, std::string& content)
{
    constexpr size_t leastGrowth = 65536;
    // One byte more than there should be: getting exactly what was expected then means the end,
    // without another call to see it.
    content.resize(expectedSize + 1);
    size_t length = 0;
    while (true) {
        const ssize_t count = read(file, content.data() + length, content.size() - length);
        if (count < 0) {
            if (errno == EINTR) {
                continue;
            }
            return -1;
        }
        length += static_cast<size_t>(count);
        if (count == 0 || length == expectedSize) {
            break;
        }
        if (length == content.size()) {
            content.resize(length + std::max(length, leastGrowth));
        }
    }
    content.resize(length);
    return 0;
}

} // namespace zelto
