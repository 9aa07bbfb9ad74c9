#include "tests/disturbed/DisturbedRun.h"

#include <filesystem>
#include <set>
#include <sstream>

namespace
{

std::set<std::string> linesOf(const std::string& text)
{
    std::set<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.insert(line);
    }
    return lines;
}

} // namespace

void DisturbedRun::startOver()
{
    std::filesystem::remove_all("/srv/www");
    GetParam().prepare();
}

Start DisturbedRun::start()
{
    Start start;
    if (!GetParam().without.empty()) {
        start.environment = {"TWIGCTL_WITHOUT=" + GetParam().without};
    }
    return start;
}

Outcome DisturbedRun::runUndisturbed()
{
    return runProgram(program(), GetParam().arguments, start());
}

std::vector<long> DisturbedRun::listCalls()
{
    startOver();
    return callsOfRun(program(), GetParam().arguments, start());
}

TracedOutcome DisturbedRun::runDisturbed(const std::vector<long>& calls, size_t index,
    const std::function<Verdict(const SystemCall&)>& atEntry)
{
    return runTracedAt(program(), GetParam().arguments, start(), calls, index, atEntry);
}

Ending DisturbedRun::reference()
{
    startOver();
    const Outcome withAllCalls = runProgram(program(), GetParam().arguments);
    const std::string expected = tree();
    startOver();
    const Outcome outcome = runUndisturbed();
    const std::string found = tree();
    EXPECT_EQ(outcome.status, GetParam().status) << outcome.err;
    EXPECT_EQ(outcome.err.empty(), GetParam().status == 0) << outcome.err;
    EXPECT_EQ(outcome.err, withAllCalls.err);
    EXPECT_EQ(differences(expected, found), "");
    return {outcome, found};
}

std::string differences(const std::string& expected, const std::string& found)
{
    const std::set<std::string> left = linesOf(expected);
    const std::set<std::string> right = linesOf(found);
    std::string all;
    for (const std::string& line : left) {
        all += right.count(line) == 0 ? "    - " + line + '\n' : "";
    }
    for (const std::string& line : right) {
        all += left.count(line) == 0 ? "    + " + line + '\n' : "";
    }
    return all;
}
