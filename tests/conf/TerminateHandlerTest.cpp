#include <gtest/gtest.h>
#include <stdexcept>

#include "conf/TerminateHandler.h"
#include "tests/lib/Process.h"

namespace
{

Outcome endedBy(void (*body)())
{
    return inChild([body] {
        installTerminateHandler();
        // A noexcept frame makes the exception uncaught without help from the test runner.
        [body]() noexcept { body(); }();
    });
}

} // namespace

TEST(TerminateHandler, PrintsTheTextOfAStandardExceptionToStandardErrorOnlyAndExitsWith1)
{
    const Outcome end = endedBy([] { throw std::runtime_error("group kvocln not found"); });
    EXPECT_EQ(end.err, "Unexpected error: group kvocln not found\n");
    EXPECT_EQ(end.out, "");
    EXPECT_EQ(end.status, 1);
}

TEST(TerminateHandler, NamesNothingForAnExceptionOfAnotherKind)
{
    const Outcome end = endedBy([] { throw 1; });
    EXPECT_EQ(end.err, "Unexpected error\n");
    EXPECT_EQ(end.out, "");
    EXPECT_EQ(end.status, 1);
}

TEST(TerminateHandler, EndsTheProcessEvenWithNoExceptionInFlight)
{
    const Outcome end = endedBy([] { std::terminate(); });
    EXPECT_EQ(end.err, "Unexpected error\n");
    EXPECT_EQ(end.status, 1);
}
