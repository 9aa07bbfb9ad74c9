#include "exec/DescriptorStrings.h"

#include <array>
#include <cerrno>
#include <unistd.h>

#include "exec/FrontWriter.h"
#include "support/SystemError.h"

void writeToString(int fd, std::string& data)
{
    FrontWriter(data).write(fd);
}

bool readToString(int fd, std::string& out)
{
    std::array<char, 4096> chunk;
    for (;;) {
        const ssize_t count = read(fd, chunk.data(), chunk.size());
        if (count == 0) {
            return false;
        }
        if (count > 0) {
            out.append(chunk.data(), static_cast<size_t>(count));
        } else if (errno == EAGAIN) {
            return true;
        } else if (errno != EINTR) {
            zelto::throwSystemError("readToString failed", errno);
        }
    }
}
