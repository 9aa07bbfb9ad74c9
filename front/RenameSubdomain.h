#pragma once

/// Renames the directory of a subdomain within its domain. A subdomain that is not there is
/// success and says nothing; a new name that is taken is reported and refused.
/// @return 0, or -1 after a report.
int renameSubdomain(const char* domain, const char* oldName, const char* newName);
