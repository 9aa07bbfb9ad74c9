#include "site/SiteDirectories.h"

#include <string_view>

namespace zelto
{

namespace
{

constexpr const char* seeded[] = {"httpdocs", "conf", "cgi-bin", "anon_ftp", "error_docs"};
constexpr const char* emptied[] = {"httpdocs", "cgi-bin", "private"};

static_assert(std::string_view(seeded[0]) == "httpdocs", "the web root can be cut off the front");

} // namespace

std::span<const char* const> siteDirectoryNames(unsigned int listingMode)
{
    switch (listingMode) {
    case everySiteDirectory:
        return seeded;
    case emptiedSiteDirectories:
        return emptied;
    case siteDirectoriesButWebRoot:
        return std::span(seeded).subspan<1>();
    default:
        return {};
    }
}

} // namespace zelto
