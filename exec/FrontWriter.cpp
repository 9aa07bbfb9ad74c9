#include "exec/FrontWriter.h"

#include <algorithm>
#include <cerrno>
#include <unistd.h>

#include "exec/SigpipeBlock.h"
#include "support/SystemError.h"

namespace zelto
{

void FrontWriter::write(int fd, std::size_t atOnce)
{
    const SigpipeBlock block;
    while (!finished()) {
        const std::size_t offered = std::min(text_.size() - done_, atOnce);
        const ssize_t written = ::write(fd, text_.data() + done_, offered);
        if (written >= 0) {
            done_ += std::min(static_cast<std::size_t>(written), offered);
        } else if (errno == EAGAIN) {
            return;
        } else if (errno != EINTR) {
            if (errno == EPIPE) {
                block.discardOwn();
            }
            throwSystemError("writeToString failed", errno);
        }
    }
}

} // namespace zelto
