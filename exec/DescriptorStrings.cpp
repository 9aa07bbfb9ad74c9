#include "exec/DescriptorStrings.h"

#include <cerrno>
#include <unistd.h>

#include "exec/FrontWriter.h"
#include "support/SystemError.h"

void writeToString(int fd, std::string& data)
{
    zelto::FrontWriter(data).write(fd);
}

bool readToString(int fd, std::string& out)
{
    char chunk[4096];
    for (;;) {
        const ssize_t count = read(fd, chunk, sizeof chunk);
        if (count == 0) {
            return false;
        }
        if (count > 0) {
            out.append(chunk, static_cast<size_t>(count));
        } else if (errno == EAGAIN) {
            return true;
        } else if (errno != EINTR) {
            zelto::throwSystemError("readToString failed", errno);
        }
    }
}
