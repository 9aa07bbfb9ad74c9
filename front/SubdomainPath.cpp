#include "front/SubdomainPath.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "conf/ConfVariables.h"
#include "conf/Configuration.h"
#include "front/NameChecks.h"
#include "fsutil/PathNames.h"

namespace
{

[[gnu::format(printf, 1, 2)]] FixedPath formatted(const char* format, ...)
{
    FixedPath path;
    va_list arguments;
    va_start(arguments, format);
    if (std::vsnprintf(path.text, sizeof path.text, format, arguments) < 0) {
        path.text[0] = '\0';
    }
    va_end(arguments);
    return path;
}

/// Whether the system takes a path at all: no component is too long.
bool canExist(std::string_view path)
{
    while (!path.empty()) {
        if (takeName(path).size() > NAME_MAX) {
            return false;
        }
    }
    return true;
}

/// What is left of a path that was cut may name more than was meant: the directory of all
/// subdomains, or a whole domain.
/// @param before the length of what stands before the subdomain's name.
void checkRest(std::string_view path, size_t before, const char* parameter)
{
    const bool isNothing = before >= path.size();
    if ((isNothing || leadsOut(path.substr(before))) && canExist(path)) {
        refuseParameter(isNothing ? "vhost-name" : parameter);
    }
}

} // namespace

FixedPath subdomainPath(const char* domain, const char* subdomain, const char* parameter)
{
    const char* root = variableByIndex(HTTPD_VHOSTS_D);
    const FixedPath path = formatted("%s/%s/subdomains/%s", root, domain, subdomain);
    const size_t before = std::strlen(root) + std::strlen(domain) + std::strlen("//subdomains/");
    checkRest(path.text, before, parameter);
    return path;
}

FixedPath pathInside(const FixedPath& directory, const char* name)
{
    const FixedPath path = formatted("%s/%s", directory.text, name);
    const bool nothingOfName = std::strlen(path.text) <= std::strlen(directory.text) + 1;
    if (nothingOfName && canExist(path.text)) {
        refuseParameter("subdomain-name");
    }
    return path;
}
