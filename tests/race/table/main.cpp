/// @file
/// Runs every race and prints a table: race-table ROUNDS [--peers] [NAME...]

#include <cstdio>
#include <cstdlib>
#include <cstring>
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
    bool clean = tally.hits == 0;
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
    if (tally.hits > 0) {
        (void)std::fprintf(stderr, "%s, %s: the first to be touched was %s\n", subject.name.c_str(),
            race::nameOf(kind), tally.firstHit.c_str());
    }
    (void)std::fflush(stdout);
}

bool isChosen(const std::string& name, const std::vector<std::string>& chosen)
{
    bool is = chosen.empty();
    for (const std::string& one : chosen) {
        is = is || one == name;
    }
    return is;
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
    enterPrivateMountNamespace();
    (void)std::printf(
        "| operation | what is exchanged | rounds | exchanges meanwhile | hits | ends |\n"
        "|---|---|---|---|---|---|\n");
    bool clean = true;
    bool any = false;
    for (const race::Subject& subject : peers ? race::peerSubjects() : race::ownSubjects()) {
        if (!isChosen(subject.name, chosen)) {
            continue;
        }
        for (const race::Kind kind : subject.kinds) {
            const Host host;
            any = true;
            const race::Tally tally = race::race(subject, kind, rounds, peers ? 1000 : 20000);
            show(subject, kind, tally);
            clean = clean && isClean(tally);
        }
    }
    if (!any) {
        (void)std::fprintf(stderr, "There is no operation of such a name.\n");
        return 2;
    }
    return clean || peers ? 0 : 1;
}
