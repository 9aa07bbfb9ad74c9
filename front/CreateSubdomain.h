#pragma once

#include "site/SkeletonOptions.h"

/// Makes the directory of a subdomain, fills it from the client's skeleton and gives the document
/// root, the CGI directory, "conf" and "error_docs" their owners, groups and modes. A subdomain
/// that exists is completed and put in order; nothing in it is overwritten.
///
/// An unknown user or group is reported and stands for id 0. A step that fails is reported and
/// ends the operation; nothing is undone. Failures inside trees and while making missing parents
/// end the process with status 1; what the skeleton installer throws is not caught. The process
/// stays in the subdomain's directory, which is what relative site directories are relative to
/// (for all but the skeleton, which is installed before).
/// @return 0, or -1 after a report.
int createSubdomain(const char* domain, const char* subdomain, const char* user,
    const char* clientId, const zelto::SkeletonOptions& options);
