#include "front/SubdomainPath.h"

#include <cstdarg>
#include <cstdio>

#include "conf/ConfVariables.h"
#include "conf/Configuration.h"

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

} // namespace

FixedPath subdomainPath(const char* domain, const char* subdomain)
{
    return formatted("%s/%s/subdomains/%s", variableByIndex(HTTPD_VHOSTS_D), domain, subdomain);
}

FixedPath pathInside(const FixedPath& directory, const char* name)
{
    return formatted("%s/%s", directory.text, name);
}
