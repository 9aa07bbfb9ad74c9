#include "front/RenameSubdomain.h"

#include "front/SubdomainPath.h"
#include "fsutil/Directories.h"

int renameSubdomain(const char* domain, const char* oldName, const char* newName)
{
    const FixedPath from = subdomainPath(domain, oldName, "old-name");
    const FixedPath to = subdomainPath(domain, newName, "new-name");
    return renameDirectory(from.text, to.text);
}
