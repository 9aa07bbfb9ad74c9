#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "tests/race/Subject.h"

namespace race
{

/// What came of the rounds of one subject and one kind.
struct Tally {
    int rounds = 0;
    uint64_t exchanges = 0;          ///< that happened while the subject ran
    int hits = 0;                    ///< rounds after which the sentinel tree was not as before
    std::string firstHit;            ///< the first path that was touched
    std::map<std::string, int> ends; ///< how often by "0", "signal 11" or "hung"
};

/// Whether a run came to an end of its own that the operations know: 0 for success, 1 and 255 for
/// failures.
bool isOrderly(const std::string& end);

/// Lets the subject run once alone, and then again and again while the user exchanges entries.
/// Needs a World.
/// @param rounds   how often; up to fifty times as often for as long as the user, who may only have
/// a
///                 moment, has not exchanged anything yet.
/// @param patience milliseconds after which a run counts as hung and is killed. Ten of those end
///                 the race early.
/// @throws std::runtime_error if the subject cannot be started, or fails alone
Tally race(const Subject& subject, Kind kind, int rounds, int patience);

} // namespace race
