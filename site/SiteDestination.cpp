#include "site/SiteDestination.h"

#include <string_view>

namespace zelto
{

namespace
{

using boost::filesystem::path;

/// The entry in a tree of its own, whose base stands for the entry's first component.
SiteDestination placedAt(const path& base, const path& entry)
{
    SiteDestination destination{base, {}, base, false};
    for (path::iterator part = ++entry.begin(); part != entry.end(); ++part) {
        destination.below /= *part;
        destination.path /= *part;
    }
    return destination;
}

} // namespace

std::optional<SiteDestination> siteDestination(
    const path& entry, const path& virtualHostDirectory, const SiteOptions& options)
{
    const path::iterator begin = entry.begin();
    const std::string_view first = begin != entry.end() ? begin->native() : std::string_view();
    if (first == "httpdocs") {
        return placedAt(options.www_root, entry);
    }
    if (first == "cgi-bin") {
        if (options.skip_cgi_bin) {
            return std::nullopt;
        }
        return placedAt(options.cgi_bin_path, entry);
    }
    if (first == "error_docs" && options.skip_error_docs) {
        return std::nullopt;
    }
    return SiteDestination{virtualHostDirectory, entry, virtualHostDirectory / entry, true};
}

} // namespace zelto
