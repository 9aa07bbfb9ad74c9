#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <gtest/gtest.h>
#include <regex>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>

#include "conf/PluggableLog.h"
#include "conf/ProgramName.h"
#include "fsutil/Descriptor.h"
#include "tests/conf/FlushedWrites.h"
#include "tests/lib/Faults.h"
#include "tests/lib/Files.h"
#include "tests/lib/PrivateMounts.h"
#include "tests/lib/Process.h"

namespace
{

/// The log as a process finds it, before and after.
class PluggableLog : public ::testing::Test
{
protected:
    ~PluggableLog() override { loggerSetup("console", 6, LOG_MAIL, 0, "test"); }
};

using ConsolePrinter = PluggableLog;
using LoggerSetup = PluggableLog;

/// Both streams' common text; the test fails if they differ.
std::string said(const std::function<void()>& body)
{
    const Outcome outcome = outputOf(body);
    EXPECT_EQ(outcome.err, outcome.out);
    return outcome.err;
}

[[gnu::format(printf, 2, 3)]] void logThroughList(int priority, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    zelto_logv(priority, format, arguments);
    va_end(arguments);
}

/// A listener of our own where the system's log would be.
class SystemLog : public ::testing::Test
{
protected:
    SystemLog() : dev_("/dev"), listener_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        makeDevice("/dev/null");
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, "/dev/log");
        if (bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            ADD_FAILURE() << "bind /dev/log: " << std::strerror(errno);
        }
    }

    /// What a child's log got to hear, a line each with the time left out and the process's number
    /// as "PID": "<22>ident[PID]: text".
    std::string heardFrom(const std::function<void()>& body)
    {
        ended_ = inChild(body);
        static const std::regex variable(
            R"(^(<\d+>)[A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d ([^\[]*\[)\d+\])");
        std::string heard;
        char message[1000];
        ssize_t length = 0;
        while ((length = recv(listener_.get(), message, sizeof message, MSG_DONTWAIT)) >= 0) {
            const std::string line(message, static_cast<size_t>(length));
            heard += std::regex_replace(line, variable, "$1$2PID]") + '\n';
        }
        return heard;
    }

    Outcome ended_;

private:
    PrivateDirectory dev_;
    Descriptor listener_;
};

} // namespace

TEST_F(PluggableLog, PointsAtTheConsolePrintersFromTheStart)
{
    EXPECT_EQ(zelto_log, consolePrinter);
    EXPECT_EQ(zelto_logv, consolePrinterV);
}

TEST_F(PluggableLog, StartsWithThreshold6TheMailFacilityAndTheConsoleOn)
{
    const LoggerSettings initial;
    EXPECT_EQ(initial.verbosity, 6);
    EXPECT_EQ(initial.facility, 0x10);
    EXPECT_TRUE(initial.console);
    EXPECT_EQ(loggerSettings().verbosity, 6);
    EXPECT_EQ(loggerSettings().facility, 0x10);
    EXPECT_TRUE(loggerSettings().console);
}

TEST_F(PluggableLog, PrintsUpToPriority6ByDefault)
{
    EXPECT_EQ(said([] { zelto_log(12, "twelve"); }), "");
    EXPECT_EQ(said([] { zelto_log(7, "seven"); }), "");
    EXPECT_EQ(said([] { zelto_log(6, "six"); }), "six\n");
    EXPECT_EQ(said([] { zelto_log(-1, "below"); }), "below\n");
}

TEST_F(PluggableLog, TakesItsArgumentsAsAListToo)
{
    EXPECT_EQ(said([] { logThroughList(6, "%s %d", "six", 6); }), "six 6\n");
    EXPECT_EQ(said([] { logThroughList(7, "%s %d", "seven", 7); }), "");
}

TEST_F(ConsolePrinter, FlushesToStandardErrorFirstAndThenToStandardOutput)
{
    EXPECT_EQ(flushedWritesOf([] { consolePrinter(6, "%s", "text"); }), "err[text\n]out[text\n]");
}

TEST_F(ConsolePrinter, AddsANewlineEvenBehindANewline)
{
    EXPECT_EQ(said([] { consolePrinter(6, "text\n"); }), "text\n\n");
    EXPECT_EQ(said([] { consolePrinter(6, "%s", ""); }), "\n");
}

TEST_F(ConsolePrinter, PrintsNeitherTheProgramsNameNorThePendingSystemError)
{
    PROGNAME = "twigctl";
    EXPECT_EQ(said([] {
        errno = ENOENT;
        consolePrinter(6, "text");
    }),
        "text\n");
    PROGNAME = nullptr;
}

TEST_F(ConsolePrinter, PrintsTheSameArgumentsOnBothStreams)
{
    EXPECT_EQ(said([] { consolePrinter(0, "%s %d %s %d", "a", 1, "b", 2); }), "a 1 b 2\n");
}

TEST_F(ConsolePrinter, PrintsTheFormatItselfWhenItCannotBeApplied)
{
    EXPECT_EQ(flushedWritesOf([] { consolePrinter(6, "%s name %ls", "half", L"\u20ac"); }),
        "err[%s name %ls\n]out[%s name %ls\n]");
}

TEST_F(ConsolePrinter, PrintsPercentSignsOfAnArgumentAsTheyAre)
{
    EXPECT_EQ(said([] { consolePrinter(6, "%s", "a%s%nb"); }), "a%s%nb\n");
}

TEST_F(LoggerSetup, TakesAVerbosityOf1OrMoreAsTheThresholdAndTurnsTheConsoleOn)
{
    loggerSetup("console", 12, LOG_MAIL, 0, "test");
    EXPECT_EQ(said([] { zelto_log(12, "twelve"); }), "twelve\n");
    EXPECT_EQ(said([] { zelto_log(13, "thirteen"); }), "");
    loggerSetup("console", 1, LOG_MAIL, 0, "test");
    EXPECT_EQ(said([] { zelto_log(1, "one"); }), "one\n");
    EXPECT_EQ(said([] { zelto_log(2, "two"); }), "");
    EXPECT_TRUE(loggerSettings().console);
}

TEST_F(LoggerSetup, TakesAVerbosityOf0OrLessAsThreshold0AndTurnsTheConsoleOff)
{
    for (const int verbosity : {0, -1, -100}) {
        loggerSetup("console", verbosity, LOG_MAIL, 0, "test");
        EXPECT_EQ(loggerSettings().verbosity, 0);
        EXPECT_FALSE(loggerSettings().console);
        EXPECT_EQ(said([] { zelto_log(0, "zero"); }), "zero\n");
        EXPECT_EQ(said([] { zelto_log(1, "one"); }), "");
    }
}

TEST_F(LoggerSetup, RecordsTheFacility)
{
    loggerSetup("console", 6, LOG_LOCAL3, 0, "test");
    EXPECT_EQ(loggerSettings().facility, LOG_LOCAL3);
}

TEST_F(LoggerSetup, KnowsTheConsoleByItsFirstSevenCharactersInAnyCase)
{
    for (const char* destination : {"console", "CONSOLE:x", "Console2"}) {
        loggerSetup(destination, 6, LOG_MAIL, 0, "test");
        EXPECT_TRUE(loggerSettings().console) << destination;
    }
    for (const char* destination : {"file", "", "consol", "a console"}) {
        loggerSetup(destination, 6, LOG_MAIL, 0, "test");
        EXPECT_FALSE(loggerSettings().console) << destination;
    }
}

TEST_F(LoggerSetup, PrintsToTheConsoleForAnyDestinationThatIsGiven)
{
    for (const char* destination : {"console", "file", ""}) {
        zelto_log = nullptr;
        zelto_logv = nullptr;
        loggerSetup(destination, 6, LOG_MAIL, 0, "test");
        EXPECT_EQ(zelto_log, consolePrinter);
        EXPECT_EQ(zelto_logv, consolePrinterV);
        EXPECT_EQ(said([] { zelto_log(6, "text"); }), "text\n") << destination;
    }
}

TEST_F(LoggerSetup, PointsAtTheSystemLogWithoutADestination)
{
    loggerSetup(nullptr, 6, LOG_MAIL, 0, "test");
    EXPECT_EQ(zelto_log, syslog);
    EXPECT_EQ(zelto_logv, vsyslog);
    EXPECT_TRUE(loggerSettings().console);
    loggerSetup(nullptr, 0, LOG_MAIL, 0, "test");
    EXPECT_FALSE(loggerSettings().console);
}

TEST_F(SystemLog, HearsIdentNumberOfTheProcessAndFacility)
{
    EXPECT_EQ(heardFrom([] {
        loggerSetup(nullptr, 6, LOG_MAIL, 0, "panel");
        zelto_log(LOG_ERR, "%s %d", "text", 1);
    }),
        "<19>panel[PID]: text 1\n");
    EXPECT_EQ(heardFrom([] {
        loggerSetup(nullptr, 6, LOG_LOCAL3, 0, "panel");
        zelto_log(LOG_DEBUG, "text");
    }),
        "<159>panel[PID]: text\n");
}

TEST_F(SystemLog, HearsListsOfArgumentsToo)
{
    EXPECT_EQ(heardFrom([] {
        loggerSetup(nullptr, 6, LOG_MAIL, 0, "panel");
        logThroughList(LOG_INFO, "%s %d", "text", 1);
    }),
        "<22>panel[PID]: text 1\n");
}

TEST_F(SystemLog, HearsMessagesAboveTheThresholdAndTheConsoleNone)
{
    EXPECT_EQ(heardFrom([] {
        loggerSetup(nullptr, 0, LOG_MAIL, 0, "panel");
        zelto_log(LOG_DEBUG, "text");
    }),
        "<23>panel[PID]: text\n");
    EXPECT_EQ(ended_.out, "");
    EXPECT_EQ(ended_.err, "");
}

TEST_F(SystemLog, IsOpenedWithTheOptionsGiven)
{
    EXPECT_EQ(heardFrom([] {
        loggerSetup(nullptr, 6, LOG_MAIL, LOG_PERROR, "panel");
        zelto_log(LOG_INFO, "text");
    }),
        "<22>panel[PID]: text\n");
    EXPECT_EQ(std::regex_replace(ended_.err, std::regex("\\d+"), "PID"), "panel[PID]: text\n");
    EXPECT_EQ(ended_.out, "");
}

TEST_F(SystemLog, KeepsACopyOfTheIdent)
{
    EXPECT_EQ(heardFrom([] {
        char ident[] = "panel";
        loggerSetup(nullptr, 6, LOG_MAIL, 0, ident);
        std::strcpy(ident, "XXXXX");
        zelto_log(LOG_INFO, "text");
    }),
        "<22>panel[PID]: text\n");
}

TEST_F(SystemLog, IsClosedAndOpenedAgainByTheNextSetup)
{
    EXPECT_EQ(heardFrom([] {
        loggerSetup(nullptr, 6, LOG_MAIL, 0, "first");
        zelto_log(LOG_INFO, "one");
        const size_t before = openDescriptors();
        loggerSetup(nullptr, 6, LOG_DAEMON, 0, "second");
        (void)std::printf("%zd", static_cast<ssize_t>(openDescriptors() - before));
        zelto_log(LOG_INFO, "two");
    }),
        "<22>first[PID]: one\n<30>second[PID]: two\n");
    EXPECT_EQ(ended_.out, "-1");
}

TEST_F(SystemLog, UsesTheNameOfTheProgramWithoutAnIdent)
{
    EXPECT_EQ(heardFrom([] {
        loggerSetup(nullptr, 6, LOG_MAIL, 0, "first");
        loggerSetup(nullptr, 6, LOG_MAIL, 0, nullptr);
        zelto_log(LOG_INFO, "text");
    }),
        "<22>conf_test[PID]: text\n");
}

TEST_F(SystemLog, UsesTheNameOfTheProgramWithoutMemoryForTheIdent)
{
    EXPECT_EQ(heardFrom([] {
        faults::fail("strdup", ENOMEM);
        loggerSetup(nullptr, 6, LOG_MAIL, 0, "panel");
        zelto_log(LOG_INFO, "text");
    }),
        "<22>conf_test[PID]: text\n");
}

TEST_F(SystemLog, HearsNothingOnceTheConsoleIsChosenAgain)
{
    EXPECT_EQ(heardFrom([] {
        loggerSetup(nullptr, 6, LOG_MAIL, 0, "panel");
        loggerSetup("console", 6, LOG_MAIL, 0, "panel");
        zelto_log(LOG_INFO, "text");
    }),
        "");
    EXPECT_EQ(ended_.out, "text\n");
    EXPECT_EQ(ended_.err, "text\n");
}
