#pragma once

#include <span>

#include "support/Api.h"

namespace zelto
{

/// Which of a site's directories an operation is about. Callers may pass any number.
enum ListingMode : unsigned int {
    everySiteDirectory = 0,     ///< what a site is seeded with
    emptiedSiteDirectories = 1, ///< what holds a site user's own files
    siteDirectoriesButWebRoot = 2
};

/// The names of a listing mode's directories, in the order in which they are worked through;
/// none for an unknown mode.
ZELTO_API std::span<const char* const> siteDirectoryNames(unsigned int listingMode);

} // namespace zelto
