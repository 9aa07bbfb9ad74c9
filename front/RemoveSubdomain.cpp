#include "front/RemoveSubdomain.h"

#include "front/SubdomainPath.h"
#include "fsutil/TreeWalkers.h"

int removeSubdomain(const char* domain, const char* subdomain)
{
    removeTree(subdomainPath(domain, subdomain).text, 1);
    return 0;
}
