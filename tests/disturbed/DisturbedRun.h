#pragma once

#include <string>

#include "tests/cli/Site.h"
#include "tests/disturbed/Scenario.h"
#include "tests/lib/Traced.h"

/// How a run ended, and what it left below "/srv/www".
struct Ending {
    Outcome outcome;
    std::string tree;
};

/// Runs of one scenario, each from the same start.
class DisturbedRun : public Site, public ::testing::WithParamInterface<Scenario>
{
protected:
    /// Brings everything below "/srv/www" back to the start.
    static void startOver();

    /// Runs the command as an administrator would.
    static Outcome runUndisturbed();

    /// The system calls of the command from the start, not disturbed.
    static std::vector<long> listCalls();

    /// Runs the command and asks about one of these, counted from 1.
    static TracedOutcome runDisturbed(const std::vector<long>& calls, size_t index,
        const std::function<Verdict(const SystemCall&)>& atEntry);

    /// The command from the start, not disturbed. Expects that it ends as it should, and no other
    /// way than with all system calls.
    static Ending reference();

    static std::string tree() { return treeOf("/srv/www"); }

private:
    static Start start();
};

/// The lines that only one of two trees has, each behind "- " (expected) or "+ " (found).
std::string differences(const std::string& expected, const std::string& found);
