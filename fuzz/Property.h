#pragma once

/// Says that something that ought to hold does not, and ends the run of this input. The fuzzers end
/// altogether, which keeps the input (Abort.cpp); the replay throws, so that the test can show it.
[[noreturn]] void propertyBroken(const char* property);

/// @param property what ought to hold, as a sentence.
inline void must(bool holds, const char* property)
{
    if (!holds) {
        propertyBroken(property);
    }
}
