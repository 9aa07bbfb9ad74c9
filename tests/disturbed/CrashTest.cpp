#include <csignal>
#include <iostream>

#include "tests/disturbed/DisturbedRun.h"

namespace
{

/// A run is killed at one of its system calls, and the command is run again: what then stands below
/// the web server's directory, and what the second run says, must be as if nothing had happened.
class Crash : public DisturbedRun
{
protected:
    /// Kills at the given call, either in place of it or after it.
    void killAndRunAgain(
        const std::vector<long>& calls, size_t call, const Verdict& verdict, const Ending& expected)
    {
        startOver();
        std::string place;
        const TracedOutcome killed = runDisturbed(calls, call, [&](const SystemCall& at) {
            place = at.description();
            return verdict;
        });
        ASSERT_NE(place, "") << "the run did not come to call " << call;
        EXPECT_FALSE(killed.hung) << place;
        ++points_;
        const Outcome again = runUndisturbed();
        const std::string found = tree();
        const bool same = found == expected.tree && again.status == expected.outcome.status &&
                          again.err == expected.outcome.err && again.out == expected.outcome.out;
        differences_ += same ? 0 : 1;
        EXPECT_TRUE(same) << (verdict.kind == Verdict::Kind::kill ? "killed in place of call "
                                                                  : "killed after call ")
                          << call << ": " << place << "\n    the second run: status "
                          << again.status << ' ' << again.err << "\n    - expected, + found:\n"
                          << differences(expected.tree, found);
    }

    void killEverywhere()
    {
        const Ending expected = reference();
        const std::vector<long> calls = listCalls();
        for (size_t call = 1; call <= calls.size(); ++call) {
            killAndRunAgain(calls, call, Verdict::kill(), expected);
            // What follows a call is what precedes the next one: only the full run tries both.
            if (isFullRun()) {
                killAndRunAgain(calls, call, Verdict::killAfter(), expected);
            }
        }
        EXPECT_GT(points_, 10);
        std::cout << "| " << GetParam().title << " | " << points_ << " | " << differences_
                  << " |\n";
    }

private:
    int points_ = 0;
    int differences_ = 0;
};

/// The same on a machine that lacks a call.
class CrashWithout : public Crash
{
};

std::string nameOf(const ::testing::TestParamInfo<Scenario>& scenario)
{
    return scenario.param.name;
}

} // namespace

TEST_P(Crash, AtAnyCallLeavesNothingThatASecondRunDoesNotMend)
{
    killEverywhere();
}

TEST_P(CrashWithout, AtAnyCallLeavesNothingThatASecondRunDoesNotMend)
{
    killEverywhere();
}

INSTANTIATE_TEST_SUITE_P(Operation, Crash, ::testing::ValuesIn(scenarios()), nameOf);
INSTANTIATE_TEST_SUITE_P(
    Operation, CrashWithout, ::testing::ValuesIn(scenariosWithFallbacks()), nameOf);
