#pragma once

#include <climits>

/// A path of the plain functions: fixed, always terminated, cut when it does not fit.
struct FixedPath {
    char text[PATH_MAX] = "";
};

/// "<virtual-hosts root>/<domain>/subdomains/<subdomain>"; the root comes from the configuration.
///
/// Should what is left of a path that was cut name something else than a subdomain, the parameter
/// is refused (see NameChecks.h).
/// @param parameter the one that the subdomain's name came with.
FixedPath subdomainPath(
    const char* domain, const char* subdomain, const char* parameter = "subdomain-name");

/// "<directory>/<name>". Should nothing of the name be left of a path that was cut, so that it is
/// the directory itself, the subdomain's name is refused (see NameChecks.h).
FixedPath pathInside(const FixedPath& directory, const char* name);
