#pragma once

#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <vector>

#include "tests/race/Subject.h"

/// One operation and what is exchanged under it, as the parameter of a test.
struct OneRace {
    race::Subject subject;
    race::Kind kind = race::Kind::directoryForLink;
};

inline void PrintTo(const OneRace& one, std::ostream* stream)
{
    *stream << one.subject.name << ' ' << race::nameOf(one.kind);
}

inline std::vector<OneRace> everyRace()
{
    std::vector<OneRace> all;
    for (const race::Subject& subject : race::ownSubjects()) {
        for (const race::Kind kind : subject.kinds) {
            all.push_back({subject, kind});
        }
    }
    return all;
}

/// The same without all the system calls that an older kernel lacks.
inline std::vector<OneRace> everyRaceOnAnOlderKernel()
{
    std::vector<OneRace> all = everyRace();
    for (OneRace& one : all) {
        one.subject.without = NEWER_CALLS;
    }
    return all;
}

inline std::string nameOfRace(const ::testing::TestParamInfo<OneRace>& info)
{
    std::string name;
    for (const char c : info.param.subject.name) {
        name += c == '-' ? "" : std::string(1, c == ' ' ? '_' : c);
    }
    return name + "_" + race::nameOf(info.param.kind);
}
