#include "front/RenameSubdomain.h"

#include "front/SubdomainPath.h"
#include "fsutil/Directories.h"

int renameSubdomain(const char* domain, const char* oldName, const char* newName)
{
    return renameDirectory(
        subdomainPath(domain, oldName).text, subdomainPath(domain, newName).text);
}
