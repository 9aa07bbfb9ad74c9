#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>

#include "fuzz/Property.h"
#include "tests/fuzz/Targets.h"

// The fuzz targets without the fuzzer: with their seeds, and with what a few small changes make of
// them. An input that scripts/fuzz has found something with belongs among the seeds.

namespace
{

/// The names of fuzz/<name>Fuzzer.cpp.
std::vector<std::string> targetsInTree()
{
    const std::string ending = "Fuzzer.cpp";
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(PROJECT_PATH "/fuzz")) {
        const std::string name = entry.path().filename().native();
        if (name.ends_with(ending)) {
            names.push_back(name.substr(0, name.size() - ending.size()));
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

class Replay : public ::testing::TestWithParam<Target>
{
};

std::string nameOf(const ::testing::TestParamInfo<Target>& target)
{
    return target.param.name;
}

} // namespace

TEST_P(Replay, EverythingHoldsForEverySeed)
{
    const std::vector<Seed> seeds = seedsOf(GetParam().name);
    EXPECT_GE(seeds.size(), 8U) << "fuzz/seeds/" << GetParam().name;
    for (const Seed& seed : seeds) {
        EXPECT_EQ(replay(GetParam().run, seed.content), "") << seed.name;
    }
}

TEST_P(Replay, EverythingHoldsForChangedSeeds)
{
    const std::vector<Seed> seeds = seedsOf(GetParam().name);
    ASSERT_FALSE(seeds.empty()) << "fuzz/seeds/" << GetParam().name;
    for (const std::string& input : mutationsOf(seeds, 3000)) {
        ASSERT_EQ(replay(GetParam().run, input), "");
    }
}

INSTANTIATE_TEST_SUITE_P(Targets, Replay, ::testing::ValuesIn(allTargets()), nameOf);

TEST(ReplayTargets, AreAllThereAre)
{
    std::vector<std::string> names;
    for (const Target& target : allTargets()) {
        names.emplace_back(target.name);
    }
    EXPECT_EQ(names, targetsInTree());
}

TEST(ReplayTargets, TellWhatDoesNotHoldAndForWhichInput)
{
    const auto run = [](const uint8_t* data, size_t size) {
        must(size == 3 && data[0] != 'a', "no input begins with a");
        return 0;
    };
    EXPECT_EQ(replay(run, "b\n\\"), "");
    EXPECT_EQ(
        replay(run, "a\n\\"), "This does not hold: no input begins with a\nThe input: a\\x0a\\x5c");
}

TEST(ReplayMutations, AreManyAndTheSameEveryTime)
{
    const std::vector<Seed> seeds = {{"one", "a line\n"}, {"two", ""}};
    std::vector<std::string> inputs = mutationsOf(seeds, 1000);
    EXPECT_EQ(inputs, mutationsOf(seeds, 1000));
    std::sort(inputs.begin(), inputs.end());
    const auto different = std::unique(inputs.begin(), inputs.end()) - inputs.begin();
    EXPECT_GT(different, 500);
}
