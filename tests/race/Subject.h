#pragma once

#include <string>
#include <vector>

#include "tests/race/Ground.h"

namespace race
{

/// What root does while the user exchanges entries.
struct Subject {
    std::string name;
    std::string program;
    std::vector<std::string> arguments; ///< the first one is the program's own name
    std::vector<Kind> kinds;            ///< those that stand in its way
    Place place = Place::inTheSubdomain;
    std::string without = {}; ///< system calls that it has to do without (see MissingCalls.h)
};

/// The operations of twigctl, and the library's own, each by the program that calls nothing else;
/// all of them without the system calls that the environment variable TWIGCTL_WITHOUT lists.
std::vector<Subject> ownSubjects();

/// What an administrator would use instead.
std::vector<Subject> peerSubjects();

} // namespace race
