#include "site/SiteDestination.h"

#include <string_view>

namespace zelto
{

namespace
{

using boost::filesystem::path;

/// The entry below another base, its first component replaced by that base.
path rebased(const path& base, const path& entry)
{
    path result = base;
    for (path::iterator part = ++entry.begin(); part != entry.end(); ++part) {
        result /= *part;
    }
    return result;
}

} // namespace

std::optional<SiteDestination> siteDestination(
    const path& entry, const path& virtualHostDirectory, const SiteOptions& options)
{
    const path::iterator begin = entry.begin();
    const std::string_view first = begin != entry.end() ? begin->native() : std::string_view();
    if (first == "httpdocs") {
        return SiteDestination{rebased(options.www_root, entry), false};
    }
    if (first == "cgi-bin") {
        if (options.skip_cgi_bin) {
            return std::nullopt;
        }
        return SiteDestination{rebased(options.cgi_bin_path, entry), false};
    }
    if (first == "error_docs" && options.skip_error_docs) {
        return std::nullopt;
    }
    return SiteDestination{virtualHostDirectory / entry, true};
}

} // namespace zelto
