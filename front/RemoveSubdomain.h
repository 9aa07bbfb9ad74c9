#pragma once

/// Removes the directory of a subdomain with everything in it. A missing one is success; if the
/// subdomain is a symbolic link, the link goes and its target stays. Every failure ends the
/// process with status 1.
/// @return 0.
int removeSubdomain(const char* domain, const char* subdomain);
