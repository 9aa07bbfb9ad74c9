#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "conf/ConfVariables.h"
#include "conf/Configuration.h"
#include "conf/FatalLogger.h"
#include "conf/PluggableLog.h"
#include "conf/ProgramName.h"
#include "tests/lib/FailingNew.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

/// The configuration is loaded once in a process, so each of these runs in a child.
class Configuration : public World
{
protected:
    /// What the body printed with show(); the test fails if anything else came out.
    static std::string shownBy(const std::function<void()>& body)
    {
        const Outcome outcome = inChild([&body] {
            errno = 0;
            body();
        });
        EXPECT_EQ(outcome.err, "");
        EXPECT_EQ(outcome.status, 0);
        return outcome.out;
    }

    static void show(const char* text)
    {
        (void)std::printf("%s\n", text != nullptr ? text : "(null)");
    }

    static void showError() { (void)std::printf("errno %d\n", errno); }
};

using VariableByIndex = Configuration;
using VariableByName = Configuration;
using ValueFromFile = Configuration;

constexpr char file[] = "/etc/kvo/kvo.conf";

} // namespace

TEST_F(VariableByIndex, IsTheCompileTimeDefaultWithoutAFile)
{
    EXPECT_EQ(shownBy([] { show(variableByIndex(27)); }), "/srv/www/vhosts\n");
    EXPECT_EQ(shownBy([] {
        for (int index = 0; index < confVariableCount; ++index) {
            if (std::string(variableByIndex(index)) != confVariableDefault(index)) {
                show(confVariableName(index));
            }
        }
    }),
        "");
}

TEST_F(VariableByIndex, IsTheValueOfTheFile)
{
    configure("HTTPD_VHOSTS_D /home/vhosts\n");
    EXPECT_EQ(shownBy([] {
        show(variableByIndex(HTTPD_VHOSTS_D));
        show(variableByIndex(PRODUCT_ROOT_D));
    }),
        "/home/vhosts\n/usr/local/kvo\n");
}

TEST_F(VariableByIndex, ReadsEverySettingUnderItsName)
{
    std::string text;
    std::string expected;
    for (int index = 0; index < confVariableCount; ++index) {
        text +=
            std::string(confVariableName(index)) + " of-the-file-" + std::to_string(index) + '\n';
        expected += "of-the-file-" + std::to_string(index) + '\n';
    }
    configure(text);
    EXPECT_EQ(shownBy([] {
        for (int index = 0; index < confVariableCount; ++index) {
            show(variableByIndex(index));
        }
    }),
        expected);
}

TEST_F(VariableByIndex, FollowsTheFilesRules)
{
    const auto root = [](const std::string& line) {
        makeFile(file, line);
        return shownBy([] { show(variableByIndex(27)); });
    };
    EXPECT_EQ(root("HTTPD_VHOSTS_D /x # note\n"), "/x\n");
    EXPECT_EQ(root("HTTPD_VHOSTS_D /x \n"), "/x \n\n");
    EXPECT_EQ(root("HTTPD_VHOSTS_D /x\nHTTPD_VHOSTS_D /y\n"), "/y\n");
    EXPECT_EQ(root("HTTPD_VHOSTS_D=/x\n"), "/srv/www/vhosts\n");
    EXPECT_EQ(root("HTTPD_VHOSTS_D\n"), "/srv/www/vhosts\n");
    EXPECT_EQ(root("HTTPD_VHOSTS_D  # /x\n"), "/srv/www/vhosts\n");
}

TEST_F(VariableByIndex, IsTheDefaultOfTheNearestSentinelOutsideTheTable)
{
    configure("_MIN_POSSIBLE_KVO_CONF_VAR_NAME lowest\n_MAX_POSSIBLE_KVO_CONF_VAR_NAME highest\n");
    EXPECT_EQ(shownBy([] {
        for (const int index : {INT_MIN, -1, 0, 31, 32, INT_MAX}) {
            show(variableByIndex(index));
        }
    }),
        "_MIN_POSSIBLE_KVO_CONF_VAR_VALUE\n_MIN_POSSIBLE_KVO_CONF_VAR_VALUE\nlowest\n"
        "highest\n_MAX_POSSIBLE_KVO_CONF_VAR_VALUE\n_MAX_POSSIBLE_KVO_CONF_VAR_VALUE\n");
}

TEST_F(VariableByIndex, KeepsAValueOnceFoundWhateverBecomesOfTheFile)
{
    configure("HTTPD_VHOSTS_D /first\nDUMP_D /dumps\n");
    EXPECT_EQ(shownBy([] {
        const char* const first = variableByIndex(27);
        show(first);
        configure("HTTPD_VHOSTS_D /second\n");
        show(variableByIndex(27));
        unlink(file);
        show(variableByIndex(27));
        show(variableByIndex(27) == first ? "the same text" : "another text");
        show(variableByIndex(DUMP_D)); // not looked up before
        show(loadConfiguration() == 0 ? "loaded" : "not loaded");
    }),
        "/first\n/first\n/first\nthe same text\n/dumps\nloaded\n");
}

TEST_F(VariableByIndex, SeesAFileThatComesAfterAFailedLoad)
{
    EXPECT_EQ(shownBy([] {
        show(variableByIndex(27));
        makeDir(file);
        show(variableByIndex(27));
        rmdir(file);
        configure("HTTPD_VHOSTS_D /late\n");
        show(variableByIndex(27));
    }),
        "/srv/www/vhosts\n/srv/www/vhosts\n/late\n");
}

TEST_F(ValueFromFile, IsFoundByIndex)
{
    configure("HTTPD_VHOSTS_D /x\n_MAX_POSSIBLE_KVO_CONF_VAR_NAME highest\n");
    EXPECT_EQ(shownBy([] {
        show(valueByIndexFromFile(27));
        show(valueByIndexFromFile(27));
        show(valueByIndexFromFile(28));
        show(valueByIndexFromFile(31));
    }),
        "/x\n/x\n(null)\nhighest\n");
}

TEST_F(ValueFromFile, IsNullForAnIndexOutsideTheTable)
{
    configure("_MIN_POSSIBLE_KVO_CONF_VAR_NAME lowest\n_MAX_POSSIBLE_KVO_CONF_VAR_NAME highest\n");
    EXPECT_EQ(shownBy([] {
        for (const int index : {INT_MIN, -1, 32, INT_MAX}) {
            show(valueByIndexFromFile(index));
        }
    }),
        "(null)\n(null)\n(null)\n(null)\n");
}

TEST_F(ValueFromFile, IsFoundByAnyNameThatTheFileHolds)
{
    configure("FOO x\nHTTPD_VHOSTS_D /x\n");
    EXPECT_EQ(shownBy([] {
        show(valueByNameFromFile("FOO"));
        show(valueByNameFromFile("HTTPD_VHOSTS_D"));
        show(valueByNameFromFile("PRODUCT_ROOT_D"));
        show(valueByNameFromFile("BAR"));
    }),
        "x\n/x\n(null)\n(null)\n");
}

TEST_F(ValueFromFile, IsNullWhenTheFileCannotBeLoaded)
{
    EXPECT_EQ(shownBy([] {
        show(valueByNameFromFile("HTTPD_VHOSTS_D"));
        show(valueByIndexFromFile(27));
    }),
        "(null)\n(null)\n");
}

TEST_F(VariableByName, IsTheFilesValueElseTheDefault)
{
    configure("HTTPD_VHOSTS_D /x\n");
    EXPECT_EQ(shownBy([] {
        show(variableByName("HTTPD_VHOSTS_D"));
        show(variableByName("PRODUCT_ROOT_D"));
        show(variableByName("NAMED_ZONES_CONF"));
    }),
        "/x\n/usr/local/kvo\n/etc/named.conf.include.zelto-zones\n");
}

TEST_F(VariableByName, IsTheDefaultWithoutAFile)
{
    EXPECT_EQ(shownBy([] { show(variableByName("HTTPD_VHOSTS_D")); }), "/srv/www/vhosts\n");
}

TEST_F(VariableByName, KnowsTheLowerSentinel)
{
    EXPECT_EQ(shownBy([] { show(variableByName("_MIN_POSSIBLE_KVO_CONF_VAR_NAME")); }),
        "_MIN_POSSIBLE_KVO_CONF_VAR_VALUE\n");
}

TEST_F(VariableByName, ReportsTheUpperSentinelAndUnknownNamesAndReturnsNull)
{
    configure("FOO x\n");
    for (const std::string name :
        {"_MAX_POSSIBLE_KVO_CONF_VAR_NAME", "FOO", "", "httpd_vhosts_d"}) {
        const Outcome outcome = inChild([&name] {
            PROGNAME = "/usr/sbin/twigctl";
            errno = 0;
            std::exit(variableByName(name.c_str()) == nullptr ? 7 : 8);
        });
        EXPECT_EQ(outcome.status, 7);
        EXPECT_EQ(outcome.err, "twigctl: variable '" + name +
                                   "' isn't found neither in /etc/kvo/kvo.conf nor in "
                                   "compile-time defaults\n");
        EXPECT_EQ(outcome.out, outcome.err);
    }
}

TEST_F(Configuration, IsLoadedOnce)
{
    configure("FOO x\n");
    EXPECT_EQ(shownBy([] {
        show(loadConfiguration() == 0 ? "loaded" : "not loaded");
        configure("FOO y\nBAR y\n");
        show(loadConfiguration() == 0 ? "loaded" : "not loaded");
        show(valueByNameFromFile("FOO"));
        show(valueByNameFromFile("BAR"));
    }),
        "loaded\nloaded\nx\n(null)\n");
}

TEST_F(Configuration, ThatFailedToLoadIsTriedAgainByTheNextLoad)
{
    EXPECT_EQ(shownBy([] {
        show(loadConfiguration() == -1 ? "not loaded" : "loaded");
        show(loadConfiguration() == -1 ? "not loaded" : "loaded");
        configure("FOO x\n");
        show(loadConfiguration() == -1 ? "not loaded" : "loaded");
    }),
        "not loaded\nnot loaded\nloaded\n");
}

TEST_F(Configuration, LeavesTheErrorOfAMissingFilePending)
{
    EXPECT_EQ(shownBy([] {
        (void)loadConfiguration();
        showError();
        errno = 0;
        (void)variableByIndex(27);
        showError();
    }),
        "errno 2\nerrno 2\n");
}

TEST_F(Configuration, LeavesTheErrorOfADirectoryPending)
{
    makeDir(file);
    EXPECT_EQ(shownBy([] {
        show(loadConfiguration() == -1 ? "not loaded" : "loaded");
        showError();
        show(variableByIndex(27));
    }),
        "not loaded\nerrno 21\n/srv/www/vhosts\n");
}

TEST_F(Configuration, LeavesThePendingErrorAloneWhenItLoads)
{
    configure("FOO x\nBAD=1\nWORSE\n");
    EXPECT_EQ(shownBy([] {
        (void)loadConfiguration();
        showError();
        (void)variableByIndex(27);
        showError();
        errno = EDOM;
        (void)loadConfiguration();
        showError();
    }),
        "errno 0\nerrno 0\nerrno 33\n");
    EXPECT_EQ(shownBy([] {
        errno = EDOM;
        (void)loadConfiguration();
        showError();
    }),
        "errno 33\n");
}

TEST_F(Configuration, ShowsTheErrorOfItsFailedLoadInTheNextReport)
{
    const auto reportAfterLoad = [] {
        const Outcome outcome = inChild([] {
            errno = 0;
            (void)loadConfiguration();
            fatalLogger(1, 1, "Error: parameter 'cl-id' wasn't specified");
        });
        EXPECT_EQ(outcome.out, outcome.err);
        return outcome.err;
    };
    const std::string message = "Error: parameter 'cl-id' wasn't specified\n";
    EXPECT_EQ(reportAfterLoad(), message + "System error 2: No such file or directory\n");
    configure("FOO x\n");
    EXPECT_EQ(reportAfterLoad(), message);
    unlink(file);
    makeDir(file);
    EXPECT_EQ(reportAfterLoad(), message + "System error 21: Is a directory\n");
}

TEST_F(Configuration, SaysNothingOfItsTroublesByDefault)
{
    EXPECT_EQ(shownBy([] { (void)loadConfiguration(); }), "");
    configure("BAD=1\nWORSE\n");
    EXPECT_EQ(shownBy([] { (void)loadConfiguration(); }), "");
}

TEST_F(Configuration, LogsItsTroublesAtEveryAttempt)
{
    const Outcome outcome = inChild([] {
        loggerSetup("console", 12, 0x10, 0, "test");
        (void)loadConfiguration();
        (void)variableByIndex(27);
    });
    const std::string message =
        "unable to open configuration file /etc/kvo/kvo.conf: No such file or directory\n\n";
    EXPECT_EQ(outcome.err, message + message);
    EXPECT_EQ(outcome.out, outcome.err);
}

TEST_F(Configuration, ReportsThatThereIsNoMemoryForItAndLoadsLater)
{
    configure("HTTPD_VHOSTS_D /x\n");
    const Outcome outcome = inChild([] {
        PROGNAME = "twigctl";
        errno = 0;
        int result = 0;
        {
            const FailingNew failing;
            result = loadConfiguration();
        }
        const bool told = result == -1 && errno == ENOMEM;
        std::exit(told && loadConfiguration() == 0 ? 7 : 8);
    });
    EXPECT_EQ(outcome.status, 7);
    EXPECT_EQ(outcome.err,
        "twigctl: Not enough memory to allocate Zelto runtime configuration structure\n\n"
        "System error 12: Cannot allocate memory\n");
    EXPECT_EQ(outcome.out, outcome.err);
}

TEST_F(Configuration, KeepsNothingOfALoadThatFailedOnTheWay)
{
    configure("HTTPD_VHOSTS_D /x\nDUMP_D /dumps\n");
    EXPECT_EQ(shownBy([] {
        faults::fail("getdelim", EIO, 2);
        show(valueByIndexFromFile(27));
        showError();
        faults::clear();
        configure("DUMP_D /other\n");
        show(valueByIndexFromFile(27));
        show(valueByIndexFromFile(DUMP_D));
    }),
        "(null)\nerrno 5\n(null)\n/other\n");
}

TEST_F(Configuration, StandsUntilTheLastExitHandler)
{
    configure("HTTPD_VHOSTS_D /x\n");
    EXPECT_EQ(shownBy([] {
        (void)std::atexit([] { show(variableByIndex(27)); });
        (void)loadConfiguration();
    }),
        "/x\n");
}
