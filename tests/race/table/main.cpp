/// @file
/// Runs every race and prints a table: race_table ROUNDS [--peers] [NAME...]

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "tests/lib/World.h"
#include "tests/race/Race.h"

namespace
{

/// A world that is no test's.
class Host : public World
{
    void TestBody() override {}
};

bool isClean(const race::Tally& tally)
{
    bool clean = tally.hits == 0 && tally.exchanges > 0;
    for (const auto& [end, count] : tally.ends) {
        clean = clean && race::isOrderly(end);
    }
    return clean;
}

std::string textOf(const std::map<std::string, int>& ends)
{
    std::string text;
    for (const auto& [end, count] : ends) {
        text += (text.empty() ? "" : ", ") + end + ": " + std::to_string(count);
    }
    return text;
}

void show(const race::Subject& subject, race::Kind kind, const race::Tally& tally)
{
    (void)std::printf("| %s | %s | %d | %llu | %d | %s |\n", subject.name.c_str(),
        race::nameOf(kind), tally.rounds, static_cast<unsigned long long>(tally.exchanges),
        tally.hits, textOf(tally.ends).c_str());
    if (tally.exchanges == 0) {
        (void)std::fprintf(stderr, "%s, %s: nothing was exchanged while it ran\n",
            subject.name.c_str(), race::nameOf(kind));
    }
    if (tally.hits > 0) {
        (void)std::fprintf(stderr, "%s, %s: the first to be touched was %s\n", subject.name.c_str(),
            race::nameOf(kind), tally.firstHit.c_str());
    }
    (void)std::fflush(stdout);
}

bool contains(const std::vector<std::string>& names, const std::string& name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

/// Whether there is a subject of each of these names.
bool areKnown(const std::vector<std::string>& chosen, const std::vector<race::Subject>& subjects)
{
    bool are = true;
    for (const std::string& name : chosen) {
        const auto isOfThatName = [&](const race::Subject& one) { return one.name == name; };
        if (std::none_of(subjects.begin(), subjects.end(), isOfThatName)) {
            (void)std::fprintf(stderr, "There is no operation %s.\n", name.c_str());
            are = false;
        }
    }
    return are;
}

/// What came of all the rows.
struct Sum {
    bool clean = true;
    int hits = 0;
};

Sum raceAll(const std::vector<race::Subject>& subjects, int rounds, int patience)
{
    Sum sum;
    for (const race::Subject& subject : subjects) {
        for (const race::Kind kind : subject.kinds) {
            const Host host;
            const race::Tally tally = race::race(subject, kind, rounds, patience);
            show(subject, kind, tally);
            sum.clean = sum.clean && isClean(tally);
            sum.hits += tally.hits;
        }
    }
    return sum;
}

/// Those chosen, or all.
std::vector<race::Subject> choose(
    std::vector<race::Subject> subjects, const std::vector<std::string>& chosen)
{
    if (!chosen.empty()) {
        std::erase_if(subjects,
            [&](const race::Subject& subject) { return !contains(chosen, subject.name); });
    }
    return subjects;
}

/// Our own must not lose, and the peers must: otherwise the racer is too slow to show anything.
bool isAsItShouldBe(const Sum& sum, bool peers)
{
    if (peers && sum.hits == 0) {
        (void)std::fprintf(stderr, "The racer has not won once, so it proves nothing.\n");
    }
    return peers ? sum.hits > 0 : sum.clean;
}

} // namespace

int main(int argc, char** argv)
{
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 0;
    if (rounds < 1) {
        return 2;
    }
    const bool peers = argc > 2 && std::strcmp(argv[2], "--peers") == 0;
    const std::vector<std::string> chosen(argv + (peers ? 3 : 2), argv + argc);
    const std::vector<race::Subject> all = peers ? race::peerSubjects() : race::ownSubjects();
    if (!areKnown(chosen, all)) {
        return 2;
    }
    enterPrivateMountNamespace();
    (void)std::printf(
        "| operation | what is exchanged | rounds | exchanges meanwhile | hits | ends |\n"
        "|---|---|---|---|---|---|\n");
    (void)std::fflush(stdout);
    try {
        const Sum sum = raceAll(choose(all, chosen), rounds, peers ? 1000 : 20000);
        return isAsItShouldBe(sum, peers) ? 0 : 1;
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
