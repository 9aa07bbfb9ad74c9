#pragma once

#include "site/SkeletonOptions.h"

/// Hands the content of a subdomain to another user; groups stay as they are.
///
/// Afterwards the subdomain's directory belongs to root with mode 0755, "conf" and "error_docs"
/// belong to root with all they hold, and every other file and directory below the subdomain and
/// below the document root belongs to the user. An unknown user is reported and stands for root.
/// Every failure inside a tree, and a "conf", an "error_docs" or a document root that is missing,
/// ends the process with status 1.
/// @param options only the document root is read, relative to the current directory and also when
///                it is marked to be skipped; without one its step is passed over.
/// @return 0.
int changeSubdomainUser(const char* domain, const char* subdomain, const char* user,
    const zelto::SkeletonOptions& options);
