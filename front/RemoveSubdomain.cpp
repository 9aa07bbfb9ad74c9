#include "front/RemoveSubdomain.h"

#include <sys/resource.h>

#include "front/SubdomainPath.h"
#include "fsutil/TreeWalkers.h"

namespace
{

/// A walk that may hold more directories open is faster in deep trees.
void raiseDescriptorLimit()
{
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        (void)setrlimit(RLIMIT_NOFILE, &limit);
    }
}

} // namespace

int removeSubdomain(const char* domain, const char* subdomain)
{
    const FixedPath directory = subdomainPath(domain, subdomain);
    raiseDescriptorLimit();
    removeTree(directory.text, 1);
    return 0;
}
