#pragma once

#include <climits>

/// A path of the plain functions: fixed, always terminated, cut when it does not fit.
struct FixedPath {
    char text[PATH_MAX] = "";
};

/// "<virtual-hosts root>/<domain>/subdomains/<subdomain>"; the root comes from the configuration.
FixedPath subdomainPath(const char* domain, const char* subdomain);

/// "<directory>/<name>".
FixedPath pathInside(const FixedPath& directory, const char* name);
