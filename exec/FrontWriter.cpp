#include "exec/FrontWriter.h"

#include <algorithm>
#include <cerrno>
#include <unistd.h>

#include "exec/SigpipeBlock.h"
#include "support/SystemError.h"

void FrontWriter::write(int fd)
{
    const SigpipeBlock block;
    while (!finished()) {
        const std::size_t rest = text_.size() - done_;
        const ssize_t written = ::write(fd, text_.data() + done_, rest);
        if (written >= 0) {
            done_ += std::min(static_cast<std::size_t>(written), rest);
        } else if (errno == EAGAIN) {
            return;
        } else if (errno != EINTR) {
            const int error = errno;
            if (error == EPIPE) {
                block.discardOwn();
            }
            zelto::throwSystemError("writeToString failed", error);
        }
    }
}
