#pragma once

#include "support/Api.h"

namespace zelto
{

/// Which site directories to prepare, and where the two that may lie anywhere are.
/// The texts are borrowed; a null text counts as the empty one.
struct ZELTO_API SkeletonOptions {
    const char* www_root = nullptr;     ///< the document root
    int skip_www_root = 0;              ///< non-zero: leave the document root alone
    int skip_error_docs = 0;            ///< non-zero: leave "error_docs" alone
    int skip_cgi_bin = 0;               ///< non-zero: leave the CGI directory alone
    const char* cgi_bin_path = nullptr; ///< the CGI directory
};

} // namespace zelto
