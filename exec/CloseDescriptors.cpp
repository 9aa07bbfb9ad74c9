#include "exec/CloseDescriptors.h"

#include <unistd.h>

namespace zelto
{

void closeDescriptorsFrom(int first) noexcept
{
    const int end = getdtablesize();
    // One call where there is close_range(2): the limit may be in the millions.
    if (end <= first ||
        close_range(static_cast<unsigned>(first), static_cast<unsigned>(end - 1), 0) == 0) {
        return;
    }
    for (int fd = first; fd < end; ++fd) {
        close(fd);
    }
}

} // namespace zelto
