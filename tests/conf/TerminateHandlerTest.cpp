#include <cerrno>
#include <cstdio>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>

#include "conf/ProgramName.h"
#include "conf/TerminateHandler.h"
#include "tests/lib/Process.h"

namespace
{

/// A thread of its own has no frame above the body that would catch anything, as main() has none.
Outcome endedBy(void (*body)())
{
    return inChild([body] {
        installTerminateHandler();
        std::thread(body).join();
    });
}

struct LastWords {
    const char* text;
    ~LastWords() { (void)std::fputs(text, stdout); }
};

class Tricky : public std::exception
{
public:
    [[nodiscard]] const char* what() const noexcept override { return "100%s%n"; }
};

class Speechless : public std::exception
{
public:
    [[nodiscard]] const char* what() const noexcept override { return nullptr; }
};

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

TEST(TerminateHandler, NamesNothingForAnExceptionWithoutAText)
{
    const Outcome end = endedBy([] { throw Speechless(); });
    EXPECT_EQ(end.err, "Unexpected error\n");
    EXPECT_EQ(end.status, 1);
}

TEST(TerminateHandler, EndsTheProcessEvenWithNoExceptionInFlight)
{
    const Outcome end = endedBy([] { std::terminate(); });
    EXPECT_EQ(end.err, "Unexpected error\n");
    EXPECT_EQ(end.status, 1);
}

TEST(TerminateHandler, AddsNeitherTheProgramsNameNorThePendingSystemError)
{
    const Outcome end = endedBy([] {
        PROGNAME = "twigctl";
        errno = ENOENT;
        throw std::runtime_error("group kvocln not found");
    });
    EXPECT_EQ(end.err, "Unexpected error: group kvocln not found\n");
}

TEST(TerminateHandler, PrintsATextWithPercentSignsAsItIs)
{
    EXPECT_EQ(endedBy([] { throw Tricky(); }).err, "Unexpected error: 100%s%n\n");
}

TEST(TerminateHandler, RunsStaticDestructorsButUnwindsNoLocals)
{
    const Outcome end = endedBy([] {
        static const LastWords stays{"static destroyed\n"};
        const LastWords interrupted{"local destroyed\n"};
        throw std::runtime_error("x");
    });
    EXPECT_EQ(end.out, "static destroyed\n");
    EXPECT_EQ(end.status, 1);
}

TEST(TerminateHandler, LetsTextThatWaitsOnStandardOutputOut)
{
    EXPECT_EQ(endedBy([] {
        (void)std::fputs("half a line", stdout);
        throw 1;
    }).out,
        "half a line");
}

TEST(TerminateHandler, LeavesCaughtExceptionsAlone)
{
    const Outcome end = endedBy([] {
        try {
            throw std::runtime_error("caught");
        } catch (const std::runtime_error&) {
        }
    });
    EXPECT_EQ(end.err, "");
    EXPECT_EQ(end.status, 0);
}
