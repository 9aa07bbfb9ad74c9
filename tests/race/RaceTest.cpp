#include <cstdlib>

#include "tests/race/EveryRace.h"
#include "tests/race/Race.h"

// A short form of scripts/race.

namespace
{

int rounds()
{
    const char* wanted = std::getenv("RACE_ROUNDS");
#ifdef __SANITIZE_ADDRESS__
    constexpr int usual = 50;
#else
    constexpr int usual = 200;
#endif
    return wanted != nullptr ? std::atoi(wanted) : usual;
}

class Race : public World, public ::testing::WithParamInterface<OneRace>
{
};

class RacingUser : public World
{
};

class RaceOnAnOlderKernel : public Race
{
};

void expectClean(const race::Tally& tally)
{
    EXPECT_EQ(tally.hits, 0) << "first: " << tally.firstHit;
    EXPECT_GT(tally.exchanges, 0U);
    for (const auto& [end, count] : tally.ends) {
        EXPECT_TRUE(race::isOrderly(end)) << count << " runs ended by " << end;
    }
}

INSTANTIATE_TEST_SUITE_P(Each, Race, ::testing::ValuesIn(everyRace()), nameOfRace);
INSTANTIATE_TEST_SUITE_P(
    Each, RaceOnAnOlderKernel, ::testing::ValuesIn(everyRaceOnAnOlderKernel()), nameOfRace);

} // namespace

TEST_P(Race, TouchesNothingOutsideOfTheSiteAndComesToAnEnd)
{
    expectClean(race::race(GetParam().subject, GetParam().kind, rounds(), 20000));
}

TEST_P(RaceOnAnOlderKernel, TouchesNothingOutsideOfTheSiteAndComesToAnEnd)
{
    expectClean(race::race(GetParam().subject, GetParam().kind, (rounds() + 19) / 20, 20000));
}

TEST_F(RacingUser, WinsAgainstWhoeverFollowsNames)
{
    const race::Subject careless = race::peerSubjects().at(2);
    ASSERT_EQ(careless.name, "find -exec chmod");
    for (const race::Kind kind : {race::Kind::directoryForLink, race::Kind::fileForLink}) {
        EXPECT_GT(race::race(careless, kind, 100, 20000).hits, 0) << race::nameOf(kind);
    }
}
