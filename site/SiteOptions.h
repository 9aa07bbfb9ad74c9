#pragma once

#include <string>

#include "site/SkeletonOptions.h"

namespace zelto
{

/// A copy of SkeletonOptions that owns its texts; a null text has become the empty one.
struct SiteOptions {
    SiteOptions() = default;
    explicit SiteOptions(const SkeletonOptions& options)
        : www_root(options.www_root != nullptr ? options.www_root : ""),
          skip_www_root(options.skip_www_root != 0), skip_error_docs(options.skip_error_docs != 0),
          skip_cgi_bin(options.skip_cgi_bin != 0),
          cgi_bin_path(options.cgi_bin_path != nullptr ? options.cgi_bin_path : "")
    {
    }

    std::string www_root;
    bool skip_www_root = false;
    bool skip_error_docs = false;
    bool skip_cgi_bin = false;
    std::string cgi_bin_path;
};

} // namespace zelto
