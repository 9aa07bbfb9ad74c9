#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <printf.h>
#include <string>
#include <unistd.h>

#include "conf/FatalLogger.h"
#include "conf/ProgramName.h"
#include "tests/conf/FlushedWrites.h"
#include "tests/lib/Faults.h"
#include "tests/lib/Process.h"

namespace
{

constexpr char noEntry[] = "\nSystem error 2: No such file or directory";

/// Reports go under the name "twigctl" in these tests, unless one says otherwise.
class FatalLogger : public ::testing::Test
{
protected:
    FatalLogger() { PROGNAME = "twigctl"; }
    ~FatalLogger() override { PROGNAME = nullptr; }

    faults::Guard guard_;
};

using FatalLoggerSuffix = FatalLogger;
using FatalLoggerWithoutMemory = FatalLogger;
using ReportWriter = FatalLogger;

/// What both streams got; the test fails if they differ.
std::string said(const Outcome& outcome)
{
    EXPECT_EQ(outcome.err, outcome.out);
    return outcome.err;
}

std::string reported(const std::string& message, int error)
{
    return said(outputOf([&] {
        errno = error;
        fatalLogger(0, 1, "%s", message.c_str());
    }));
}

std::string writtenUnder(const char* name)
{
    return said(outputOf([name] {
        PROGNAME = name;
        reportWriter("message", 0, 1);
    }));
}

[[gnu::format(printf, 3, 4)]] void throughList(int status, int reserved, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    fatalLoggerV(status, reserved, format, arguments);
    va_end(arguments);
}

} // namespace

TEST_F(ReportWriter, FlushesToStandardErrorFirstAndThenToStandardOutput)
{
    EXPECT_EQ(flushedWritesOf([] { reportWriter("message", 0, 1); }),
        "err[twigctl: message\n]out[twigctl: message\n]");
}

TEST_F(ReportWriter, EndsAMessageWithExactlyOneNewline)
{
    EXPECT_EQ(said(outputOf([] { reportWriter("message", 0, 1); })), "twigctl: message\n");
    EXPECT_EQ(said(outputOf([] { reportWriter("message\n", 0, 1); })), "twigctl: message\n");
    EXPECT_EQ(said(outputOf([] { reportWriter("message\n\n", 0, 1); })), "twigctl: message\n\n");
}

TEST_F(ReportWriter, WritesPrefixAndNewlineForAnEmptyMessage)
{
    EXPECT_EQ(said(outputOf([] { reportWriter("", 0, 1); })), "twigctl: \n");
}

TEST_F(ReportWriter, NeverTakesTheMessageForAFormat)
{
    EXPECT_EQ(said(outputOf([] { reportWriter("a%s%nb", 0, 1); })), "twigctl: a%s%nb\n");
}

TEST_F(ReportWriter, AddsNoSystemError)
{
    EXPECT_EQ(said(outputOf([] {
        errno = ENOENT;
        reportWriter("message", 0, 1);
    })),
        "twigctl: message\n");
}

TEST_F(ReportWriter, ReturnsForStatus0AndExitsWithAnyOther)
{
    const Outcome returned = inChild([] {
        reportWriter("message", 0, 1);
        std::exit(7);
    });
    EXPECT_EQ(returned.status, 7);
    const Outcome ended = inChild([] { reportWriter("message", 3, 1); });
    EXPECT_EQ(ended.status, 3);
    EXPECT_EQ(said(ended), "twigctl: message\n");
}

TEST_F(ReportWriter, PutsTheBaseNameOfTheProgramInFront)
{
    EXPECT_EQ(writtenUnder("twigctl"), "twigctl: message\n");
    EXPECT_EQ(writtenUnder("/usr/bin/twigctl"), "twigctl: message\n");
    EXPECT_EQ(writtenUnder("./twigctl"), "twigctl: message\n");
    EXPECT_EQ(writtenUnder("bin/"), "bin: message\n");
    EXPECT_EQ(writtenUnder("/usr/bin//"), "bin: message\n");
    EXPECT_EQ(writtenUnder("/"), "/: message\n");
    EXPECT_EQ(writtenUnder("//"), "/: message\n");
    EXPECT_EQ(writtenUnder(""), ".: message\n");
}

TEST_F(ReportWriter, PutsNothingInFrontWithoutAProgramName)
{
    EXPECT_EQ(writtenUnder(nullptr), "message\n");
}

TEST_F(ReportWriter, LeavesTheProgramNameAsItIs)
{
    char name[] = "/usr/bin///";
    EXPECT_EQ(writtenUnder(name), "bin: message\n");
    EXPECT_STREQ(name, "/usr/bin///");
    EXPECT_EQ(PROGNAME, name);
}

TEST_F(FatalLogger, FlushesToStandardErrorFirstAndThenToStandardOutput)
{
    EXPECT_EQ(flushedWritesOf([] {
        errno = 0;
        fatalLogger(0, 1, "%s %d", "message", 7);
    }),
        "err[twigctl: message 7\n]out[twigctl: message 7\n]");
}

TEST_F(FatalLogger, AddsANewlineOnlyToAMessageThatHasNone)
{
    EXPECT_EQ(reported("message", 0), "twigctl: message\n");
    EXPECT_EQ(reported("message\n", 0), "twigctl: message\n");
}

TEST_F(FatalLogger, WritesPrefixAndNewlineForAnEmptyMessage)
{
    EXPECT_EQ(reported("", 0), "twigctl: \n");
}

TEST_F(FatalLogger, PutsNothingInFrontWithoutAProgramName)
{
    PROGNAME = nullptr;
    EXPECT_EQ(reported("message", ENOENT), "message\nSystem error 2: No such file or directory\n");
}

TEST_F(FatalLogger, PrintsPercentSignsOfAnArgumentAsTheyAre)
{
    EXPECT_EQ(reported("a%s%nb%", 0), "twigctl: a%s%nb%\n");
}

TEST_F(FatalLogger, ReturnsForStatus0)
{
    EXPECT_EQ(inChild([] {
        fatalLogger(0, 1, "message");
        std::exit(7);
    }).status,
        7);
}

TEST_F(FatalLogger, EndsTheProcessThroughExitForAnyOtherStatus)
{
    const Outcome end = inChild([] {
        (void)std::atexit([] { (void)std::fputs("at exit\n", stdout); });
        errno = ENOENT;
        fatalLogger(1, 1, "message");
    });
    EXPECT_EQ(end.status, 1);
    EXPECT_EQ(end.err, "twigctl: message\nSystem error 2: No such file or directory\n");
    EXPECT_EQ(end.out, end.err + "at exit\n");
    EXPECT_EQ(inChild([] { fatalLogger(42, 1, "message"); }).status, 42);
}

TEST_F(FatalLogger, DoesNotReadItsSecondArgument)
{
    const Outcome end = inChild([] {
        errno = 0;
        fatalLogger(0, 0, "message");
        fatalLogger(0, -1, "message");
    });
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(said(end), "twigctl: message\ntwigctl: message\n");
}

TEST_F(FatalLogger, TakesItsArgumentsAsAListToo)
{
    const Outcome end = inChild([] {
        errno = ENOENT;
        throughList(5, 1, "%s %d", "message", 7);
    });
    EXPECT_EQ(end.status, 5);
    EXPECT_EQ(said(end), "twigctl: message 7\nSystem error 2: No such file or directory\n");
}

TEST_F(FatalLogger, FormatsALongMessageFromAListTwice)
{
    const std::string text(5000, 'x');
    EXPECT_EQ(said(outputOf([&] { throughList(0, 1, "%d%s%d", 7, text.c_str(), 8); })),
        "twigctl: 7" + text + "8\n");
}

TEST_F(FatalLoggerSuffix, NamesThePendingSystemErrorOnALineOfItsOwn)
{
    EXPECT_EQ(reported("message", ENOENT),
        "twigctl: message\nSystem error 2: No such file or directory\n");
}

TEST_F(FatalLoggerSuffix, IsLeftOutWithNoErrorPending)
{
    EXPECT_EQ(reported("message", 0), "twigctl: message\n");
}

TEST_F(FatalLoggerSuffix, StandsBehindABlankLineWhenTheMessageBringsItsNewline)
{
    EXPECT_EQ(reported("message\n", ENOENT),
        "twigctl: message\n\nSystem error 2: No such file or directory\n");
}

TEST_F(FatalLoggerSuffix, IsAddedBehindTheSameErrorInTheMessage)
{
    EXPECT_EQ(said(outputOf([] {
        errno = EACCES;
        fatalLogger(0, 1, "open: %s", std::strerror(errno));
    })),
        "twigctl: open: Permission denied\nSystem error 13: Permission denied\n");
}

TEST_F(FatalLoggerSuffix, NamesAnErrorWithoutATextToo)
{
    EXPECT_EQ(
        reported("message", 9999), "twigctl: message\nSystem error 9999: Unknown error 9999\n");
}

TEST_F(FatalLoggerSuffix, FitsTogetherWithAMessageUpTo4095Characters)
{
    const std::string longest(4095 - std::strlen(noEntry), 'x');
    EXPECT_EQ(longest.size(), 4053U);
    EXPECT_EQ(reported(longest, ENOENT), "twigctl: " + longest + noEntry + '\n');
}

TEST_F(FatalLoggerSuffix, IsDroppedAsAWholeWhenItDoesNotFit)
{
    for (const size_t length : {4054U, 4090U, 4094U, 4095U}) {
        const std::string message(length, 'x');
        EXPECT_EQ(reported(message, ENOENT), "twigctl: " + message + '\n') << length;
    }
}

TEST_F(FatalLoggerSuffix, DoesNotComeBackForAMessageThatNeedsALargerBuffer)
{
    for (const size_t length : {4096U, 4097U, 100000U}) {
        const std::string message(length, 'x');
        EXPECT_EQ(reported(message, ENOENT), "twigctl: " + message + '\n') << length;
    }
}

TEST_F(FatalLoggerSuffix, KeepsTheErrorPendingForTheNextReport)
{
    EXPECT_EQ(said(outputOf([] {
        errno = ENOENT;
        fatalLogger(0, 1, "one");
        fatalLogger(0, 1, "two");
    })),
        "twigctl: one\nSystem error 2: No such file or directory\n"
        "twigctl: two\nSystem error 2: No such file or directory\n");
}

TEST_F(FatalLoggerSuffix, KeepsTheErrorPendingEvenWhenStandardOutputIsFull)
{
    const Outcome end = inChild([] {
        dup2(open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
        errno = ENOENT;
        fatalLogger(0, 1, "one");
        fatalLogger(0, 1, "two");
    });
    EXPECT_EQ(end.err, "twigctl: one\nSystem error 2: No such file or directory\n"
                       "twigctl: two\nSystem error 2: No such file or directory\n");
}

TEST_F(FatalLoggerSuffix, TellsTheErrorThatWasPendingBeforeTheMessageWasFormatted)
{
    // A conversion of our own is the one way to let the formatting itself change errno.
    const auto arguments = [](const printf_info*, size_t, int*, int*) { return 0; };
    const auto spoiling = [](FILE*, const printf_info*, const void* const*) {
        errno = EDOM;
        return 0;
    };
    const Outcome end = inChild([&] {
        ASSERT_EQ(register_printf_specifier('Y', spoiling, arguments), 0);
        const std::string format = "%s%Y";
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        errno = ENOENT;
        fatalLogger(0, 1, format.c_str(), "message");
#pragma GCC diagnostic pop
    });
    // Not standard error: a sanitizer warns there about the unknown conversion.
    EXPECT_EQ(end.out, "twigctl: message\nSystem error 2: No such file or directory\n");
}

TEST_F(FatalLoggerWithoutMemory, WritesAFixedTextWithoutASuffix)
{
    const Outcome end = inChild([] {
        faults::failAlways("malloc", ENOMEM);
        errno = ENOENT;
        fatalLogger(0, 1, "message");
        std::exit(errno == ENOENT ? 0 : 9);
    });
    EXPECT_EQ(said(end), "twigctl: Can't allocate memory for error message\n");
    EXPECT_EQ(end.status, 0);
}

TEST_F(FatalLoggerWithoutMemory, EndsTheProcessAllTheSame)
{
    const Outcome end = inChild([] {
        faults::failAlways("malloc", ENOMEM);
        fatalLogger(1, 1, "message");
    });
    EXPECT_EQ(said(end), "twigctl: Can't allocate memory for error message\n");
    EXPECT_EQ(end.status, 1);
}

TEST_F(FatalLoggerWithoutMemory, CutsALongMessageTo4095Characters)
{
    const Outcome end = outputOf([] {
        faults::fail("malloc", ENOMEM, 2);
        errno = ENOENT;
        fatalLogger(0, 1, "%s", std::string(5000, 'x').c_str());
    });
    EXPECT_EQ(said(end), "twigctl: " + std::string(4095, 'x') + '\n');
}

TEST_F(FatalLogger, FallsBackToTheFormatWhenItCannotBeApplied)
{
    EXPECT_EQ(said(outputOf([] {
        errno = 0;
        fatalLogger(0, 1, "name %ls", L"\u20ac");
    })),
        "twigctl: name %ls\n");
}

TEST_F(FatalLoggerSuffix, IsAddedBehindAFormatThatCannotBeApplied)
{
    EXPECT_EQ(said(outputOf([] {
        errno = ENOENT;
        fatalLogger(0, 1, "name %ls", L"\u20ac");
    })),
        "twigctl: name %ls\nSystem error 2: No such file or directory\n");
}

TEST_F(FatalLogger, PrintsALongFormatThatCannotBeAppliedWhole)
{
    const std::string format = std::string(5000, 'x') + "%ls";
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    EXPECT_EQ(said(outputOf([&] { fatalLogger(0, 1, format.c_str(), L"\u20ac"); })),
        "twigctl: " + format + '\n');
#pragma GCC diagnostic pop
}
