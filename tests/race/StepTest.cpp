#include <sys/syscall.h>

#include "tests/lib/MissingCalls.h"
#include "tests/lib/Traced.h"
#include "tests/race/EveryRace.h"
#include "tests/race/Race.h"
#include "tests/race/Racer.h"

// The races without chance: the program is stopped before each of its system calls on the site in
// turn, and the user makes the exchange just there.

namespace
{

/// Calls that work on what is open already, or on no file: an exchange before one of them is the
/// same as one before the next call.
bool looksNothingUp(long number)
{
    switch (number) {
    case SYS_close:
    case SYS_fchdir:
    case SYS_fchmod:
    case SYS_fchown:
    case SYS_fstat:
    case SYS_lseek:
    case SYS_read:
    case SYS_write:
        return true;
    default:
        return false;
    }
}

class Step : public World, public ::testing::WithParamInterface<OneRace>
{
protected:
    Step()
        : ground_(GetParam().kind, race::Ground::Size::small, GetParam().subject.place),
          racer_(ground_.exchanges())
    {
    }

    static void takeAwayWhatIsMissing()
    {
        if (!GetParam().subject.without.empty()) {
            takeAwayCalls(GetParam().subject.without);
        }
    }

    /// Whether a call depends on what stands under the names of the site.
    static bool isOnSite(const SystemCall& call)
    {
        return !looksNothingUp(call.number) && call.description().find("/srv") != std::string::npos;
    }

    /// A run with the exchange before the nth call on the site, undone before the next one if asked
    /// to be. Says whether there was an nth call.
    bool exchangeBefore(int nth, bool andBack)
    {
        ground_.restore();
        std::string at;
        int calls = 0;
        const TracedOutcome end =
            runTraced(GetParam().subject.program, GetParam().subject.arguments,
                {.inChild = takeAwayWhatIsMissing}, [&](const SystemCall& call) {
                    Verdict verdict = Verdict::goOn();
                    if (!isOnSite(call) || ++calls < nth) {
                        return verdict;
                    }
                    at = calls == nth ? call.description() : at;
                    verdict.isLast = !andBack || calls > nth;
                    racer_.stepOnce();
                    return verdict;
                });
        EXPECT_EQ(ground_.touched(), "") << "after an exchange before call " << nth << ", " << at;
        EXPECT_FALSE(end.hung) << at;
        EXPECT_TRUE(race::isOrderly(std::to_string(end.status))) << end.status << ": " << at;
        return calls >= nth;
    }

    /// As many runs as there are calls.
    void exchangeBeforeEach(bool andBack)
    {
        int calls = 0;
        while (exchangeBefore(calls + 1, andBack) && !HasFailure()) {
            ++calls;
        }
        EXPECT_GT(calls, 0);
        EXPECT_GT(racer_.exchanges(), 0U);
    }

    race::Ground ground_;
    race::Racer racer_;
};

INSTANTIATE_TEST_SUITE_P(Each, Step, ::testing::ValuesIn(everyRace()), nameOfRace);
/// The roads are opened by many more calls there, so that only one kind of exchange in the tree and
/// one on the way are made.
class StepOnAnOlderKernel : public Step
{
public:
    static std::vector<OneRace> some()
    {
        std::vector<OneRace> all = everyRaceOnAnOlderKernel();
        std::erase_if(all, [](const OneRace& one) {
            const bool onTheWay = one.kind == race::Kind::middle || one.subject.kinds.size() == 1;
            return one.kind != race::Kind::directoryForLink && !onTheWay;
        });
        return all;
    }
};

INSTANTIATE_TEST_SUITE_P(
    Each, StepOnAnOlderKernel, ::testing::ValuesIn(StepOnAnOlderKernel::some()), nameOfRace);

} // namespace

TEST_P(Step, TouchesNothingOutsideOfTheSiteWhateverIsExchangedBeforeACall)
{
    exchangeBeforeEach(false);
}

TEST_P(Step, TouchesNothingOutsideOfTheSiteWhateverIsExchangedForACall)
{
    exchangeBeforeEach(true);
}

TEST_P(StepOnAnOlderKernel, TouchesNothingOutsideOfTheSiteWhateverIsExchangedBeforeACall)
{
    exchangeBeforeEach(false);
}
