#include <cstring>
#include <iostream>
#include <map>

#include "tests/disturbed/DisturbedRun.h"
#include "tests/disturbed/PassedOver.h"
#include "tests/disturbed/Reports.h"

namespace
{

/// One system call of a run fails. The program must end, tell of it or do without, and a second run
/// without the fault must bring about what an undisturbed one does.
class Faults : public DisturbedRun
{
protected:
    struct Failed {
        std::string place;
        bool tried = false; ///< false for a call that has no errors
        Allowance allowance;
        TracedOutcome outcome;
        std::string before;      ///< the differences after the disturbed run
        bool endedAgain = false; ///< the second run, as it should
        std::string again;       ///< how the second run ended
        std::string after;       ///< the differences after it
    };

    static Failed failAndRunAgain(
        const std::vector<long>& calls, size_t number, const Ending& expected)
    {
        startOver();
        Failed failed;
        failed.outcome = runDisturbed(calls, number, [&](const SystemCall& call) {
            failed.place = call.description();
            failed.tried = canFail(call);
            failed.allowance = allowanceFor(GetParam(), call);
            return failed.tried ? Verdict::failLast(GetParam().error) : Verdict::kill();
        });
        if (!failed.tried) {
            return failed;
        }
        failed.before = differences(expected.tree, tree());
        const Outcome again = runUndisturbed();
        failed.endedAgain =
            again.status == expected.outcome.status && again.err == expected.outcome.err;
        failed.again = "status " + std::to_string(again.status) + ' ' + again.err + '\n';
        failed.after = differences(expected.tree, tree());
        return failed;
    }

    static bool isMended(const Failed& failed)
    {
        return failed.after.empty() || covers(failed.allowance.lasting, GetParam(), failed.after) ||
               covers(allowanceAfter(GetParam(), failed.outcome.err), GetParam(), failed.after);
    }

    /// One of the table's columns, or what is wrong.
    static std::string judge(const Failed& failed, const Ending& expected)
    {
        const TracedOutcome& end = failed.outcome;
        if (end.hung) {
            return "hangs";
        }
        if (end.status < 0) {
            return "dies of a signal";
        }
        if (!failed.endedAgain) {
            return "makes a second run end otherwise";
        }
        if (!isMended(failed)) {
            return "is not mended by a second run";
        }
        if (failed.before.empty() && end.status == expected.outcome.status &&
            end.err == expected.outcome.err) {
            return "no effect";
        }
        if (!end.err.empty()) {
            const std::string fault = failed.allowance.cutReports ? "" : faultOfReports(end);
            return fault.empty() ? "told, " + std::to_string(end.status) : fault;
        }
        if (failed.allowance.silence) {
            return "passed over";
        }
        return end.status == 0 ? "another result without a word" : "fails without a word";
    }

    void failEverywhere()
    {
        const Ending expected = reference();
        const std::vector<long> calls = listCalls();
        EXPECT_GT(calls.size(), 10U);
        for (size_t number = 1; number <= calls.size(); ++number) {
            const Failed failed = failAndRunAgain(calls, number, expected);
            ASSERT_NE(failed.place, "") << "the run did not come to call " << number;
            if (failed.tried) {
                count(failed, number, judge(failed, expected));
            }
        }
        std::cout << "| " << GetParam().title << " | " << strerrorname_np(GetParam().error);
        for (const char* column :
            {"all", "no effect", "told, 0", "told, 255", "told, 1", "passed over", "wrong"}) {
            std::cout << " | " << counts_[column];
        }
        std::cout << " |\n";
    }

private:
    void count(const Failed& failed, size_t number, const std::string& outcome)
    {
        const bool right = outcome == "no effect" || outcome == "passed over" ||
                           outcome == "told, 0" || outcome == "told, 255" || outcome == "told, 1";
        ++counts_["all"];
        ++counts_[right ? outcome : "wrong"];
        EXPECT_TRUE(right) << strerrorname_np(GetParam().error) << " of call " << number << ": "
                           << failed.place << "\n    " << outcome << ", status "
                           << failed.outcome.status << ", " << failed.outcome.err
                           << "\n  - expected, + found:\n"
                           << failed.before << "  second run: " << failed.again << failed.after;
    }

    std::map<std::string, int> counts_;
};

std::string nameOf(const ::testing::TestParamInfo<Scenario>& scenario)
{
    return scenario.param.name;
}

} // namespace

TEST_P(Faults, AtAnyCallAreToldOrHaveNoEffectAndAreMendedByASecondRun)
{
    failEverywhere();
}

INSTANTIATE_TEST_SUITE_P(Operation, Faults, ::testing::ValuesIn(scenariosWithErrors()), nameOf);
