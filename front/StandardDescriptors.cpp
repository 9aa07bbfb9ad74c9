#include "front/StandardDescriptors.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

void openMissingStandardDescriptors()
{
    const int error = errno;
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) == -1) {
            // The lowest free descriptor is this one: all below it are open by now.
            (void)open("/dev/null", O_RDWR);
        }
    }
    errno = error;
}
