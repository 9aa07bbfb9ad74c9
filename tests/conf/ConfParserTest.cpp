#include <cctype>
#include <cerrno>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "conf/ConfParser.h"
#include "conf/PluggableLog.h"
#include "tests/conf/RecordedLog.h"
#include "tests/lib/FailingNew.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

using Kind = ConfLine::Kind;

/// Parses out of memory that ends where the line ends, so that a sanitizer sees a step too far.
ConfLine parsed(std::string_view line)
{
    static std::vector<char> exact;
    exact = std::vector<char>(line.begin(), line.end());
    return parseConfLine({exact.data(), exact.size()});
}

/// "name=value" of a definition, else its kind.
std::string meaningOf(std::string_view line)
{
    const ConfLine meaning = parsed(line);
    switch (meaning.kind) {
    case Kind::Blank:
        return "blank";
    case Kind::NoSpace:
        return "no space";
    case Kind::NoValue:
        return "no value";
    case Kind::Definition:
        break;
    }
    return std::string(meaning.name) + '=' + std::string(meaning.value);
}

class ConfFile : public World
{
protected:
    ConfFile() { errno = EDOM; }

    static int parse(const std::string& text, ConfStore& store)
    {
        configure(text);
        errno = EDOM;
        return parseConfiguration("/etc/kvo/kvo.conf", store);
    }

    int parse(const std::string& text) { return parse(text, store_); }

    std::string valueOf(const char* name)
    {
        const char* value = store_.find(name);
        return value != nullptr ? value : "(none)";
    }

    faults::Guard guard_;
    RecordedLog log_;
    ConfStore store_;
};

using ConfFileFailure = ConfFile;
using BadConfFile = ConfFile;

constexpr char spaceMessage[] = "\nExpected a space after variable name\n|\n";
constexpr char valueMessage[] = "\nExpected a value|\n";

} // namespace

TEST(ConfLine, IsBlankWithNothingButWhiteSpaceOrAComment)
{
    for (const char* line : {"", "\n", "  \t \n", "#", "# A b\n", " \t# A b\n", "\r\n", "\v\f"}) {
        EXPECT_EQ(meaningOf(line), "blank") << line;
    }
}

TEST(ConfLine, GivesANameAValue)
{
    EXPECT_EQ(meaningOf("HTTPD_VHOSTS_D /home/vhosts\n"), "HTTPD_VHOSTS_D=/home/vhosts");
    EXPECT_EQ(meaningOf("A b"), "A=b");
}

TEST(ConfLine, MayStartWithWhiteSpaceAndSeparateWithAnyAmountOfIt)
{
    EXPECT_EQ(meaningOf(" \t A /x\n"), "A=/x");
    EXPECT_EQ(meaningOf("A\t/x\n"), "A=/x");
    EXPECT_EQ(meaningOf("A \t\v\f\r  /x\n"), "A=/x");
}

TEST(ConfLine, TellsWhereItsFirstCharacterIs)
{
    EXPECT_EQ(parsed("A=/x").start, 0U);
    EXPECT_EQ(parsed(" \t A=/x").start, 3U);
    EXPECT_EQ(parsed("  A\n").start, 2U);
}

TEST(ConfLine, TakesLettersDigitsAndUnderscoresForAName)
{
    EXPECT_EQ(meaningOf("azAZ09_ x"), "azAZ09_=x");
    EXPECT_EQ(meaningOf("_ x"), "_=x");
    EXPECT_EQ(meaningOf("0 x"), "0=x");
}

TEST(ConfLine, WantsASpaceAfterTheName)
{
    for (const char* line : {"HTTPD_VHOSTS_D=/x\n", "A.B x", "=x", "-A x", "A# x", "A\"x\" y"}) {
        EXPECT_EQ(meaningOf(line), "no space") << line;
    }
}

TEST(ConfLine, TakesNoOtherByteForAName)
{
    for (int byte = 1; byte < 256; ++byte) {
        const auto character = static_cast<char>(byte);
        const bool ascii = byte < 128;
        if (character == '#' || (ascii && std::isspace(byte) != 0)) {
            continue;
        }
        const bool ofNames = ascii && (std::isalnum(byte) != 0 || character == '_');
        EXPECT_EQ(meaningOf(std::string(1, character) + " x"),
            ofNames ? std::string(1, character) + "=x" : "no space")
            << byte;
    }
}

TEST(ConfLine, MissesTheSpaceAfterANameThatEndsTheFile)
{
    EXPECT_EQ(meaningOf("A"), "no space");
    EXPECT_EQ(meaningOf(" HTTPD_VHOSTS_D"), "no space");
}

TEST(ConfLine, WantsAValueAfterTheSpace)
{
    for (const char* line : {"A\n", "A   \n", "A ", "A #x\n", "A # c\n", "A\t#", "A\n#"}) {
        EXPECT_EQ(meaningOf(line), "no value") << line;
    }
}

TEST(ConfLine, EndsTheValueAtACommentFromItsSecondCharacterOn)
{
    EXPECT_EQ(meaningOf("A /x#n\n"), "A=/x");
    EXPECT_EQ(meaningOf("A /x # n # m\n"), "A=/x");
    EXPECT_EQ(meaningOf("A a#b#c\n"), "A=a");
    EXPECT_EQ(meaningOf("A a#"), "A=a");
}

TEST(ConfLine, KeepsWhiteSpaceInsideTheValue)
{
    EXPECT_EQ(meaningOf("A a  b\n"), "A=a  b");
    EXPECT_EQ(meaningOf("A a b \tc\n"), "A=a b \tc");
}

TEST(ConfLine, CutsTrailingWhiteSpaceWithAMarkThatASecondBlankForgets)
{
    EXPECT_EQ(meaningOf("A /x\n"), "A=/x");
    EXPECT_EQ(meaningOf("A /x \n"), "A=/x \n");
    EXPECT_EQ(meaningOf("A /x  \n"), "A=/x  ");
    EXPECT_EQ(meaningOf("A /x   \n"), "A=/x   \n");
    EXPECT_EQ(meaningOf("A /x\r\n"), "A=/x\r\n");
    EXPECT_EQ(meaningOf("A /x"), "A=/x");
    EXPECT_EQ(meaningOf("A /x "), "A=/x");
    EXPECT_EQ(meaningOf("A /x  "), "A=/x  ");
    EXPECT_EQ(meaningOf("A /x # n\n"), "A=/x");
    EXPECT_EQ(meaningOf("A /x  # n\n"), "A=/x  ");
    EXPECT_EQ(meaningOf("A /x   # n\n"), "A=/x  ");
    EXPECT_EQ(meaningOf("A x\n"), "A=x");
}

TEST(ConfLine, TakesNulForACharacterThatIsNoWhiteSpace)
{
    using namespace std::string_view_literals;
    EXPECT_EQ(meaningOf("\0"sv), "no space");
    EXPECT_EQ(meaningOf("A\0x\n"sv), "no space");
    EXPECT_EQ(meaningOf("A a\0b\n"sv), "A=a\0b"sv);
    EXPECT_EQ(meaningOf("A a\0 \n"sv), "A=a\0 \n"sv);
    EXPECT_EQ(meaningOf("A \0\n"sv), "A=\0"sv);
}

TEST(ConfLine, StaysInsideItsBoundsWhateverItHolds)
{
    // Every line of up to seven characters, each standing for its class.
    constexpr std::string_view classes("A_ \n#\0=", 7);
    size_t definitions = 0;
    for (size_t length = 0; length <= 6; ++length) {
        size_t lines = 1;
        for (size_t i = 0; i < length; ++i) {
            lines *= classes.size();
        }
        for (size_t number = 0; number < lines; ++number) {
            std::string line;
            for (size_t rest = number; line.size() < length; rest /= classes.size()) {
                line += classes[rest % classes.size()];
            }
            const ConfLine meaning = parsed(line);
            ASSERT_LE(meaning.start, line.size());
            if (meaning.kind == Kind::Definition) {
                ++definitions;
                // The value is the rest of the line up to a comment, without one trailing blank
                // if their number is odd.
                const size_t at =
                    line.find_first_not_of(" \n", meaning.start + meaning.name.size());
                const size_t end = std::min(line.find('#', at + 1), line.size());
                const size_t last = line.find_last_not_of(" \n", end - 1);
                const size_t kept = (end - 1 - last) % 2 == 0 ? end : end - 1;
                ASSERT_EQ(meaning.value, line.substr(at, kept - at)) << line;
                ASSERT_EQ(meaning.name, line.substr(meaning.start, meaning.name.size()));
                ASSERT_EQ(meaning.name.find_first_not_of("A_"), std::string::npos);
            }
        }
    }
    EXPECT_GT(definitions, 1000U);
}

TEST_F(ConfFile, FillsAStoreAndSortsIt)
{
    EXPECT_EQ(parse("B 2\n# note\n\nC 3\n  A 1\n"), 0);
    EXPECT_EQ(store_.count(), 3U);
    EXPECT_TRUE(store_.sorted());
    EXPECT_EQ(valueOf("A"), "1");
    EXPECT_EQ(valueOf("B"), "2");
    EXPECT_EQ(valueOf("C"), "3");
    EXPECT_EQ(log_.take(), "");
}

TEST_F(ConfFile, MakesRoomForTheFirstPairsEvenWhenItIsEmpty)
{
    EXPECT_EQ(parse(""), 0);
    EXPECT_EQ(store_.capacity(), 20U);
    EXPECT_EQ(store_.count(), 0U);
    EXPECT_TRUE(store_.sorted());
}

TEST_F(ConfFile, NeedsNoNewlineAtItsEnd)
{
    EXPECT_EQ(parse("A 1\nB 2"), 0);
    EXPECT_EQ(valueOf("B"), "2");
}

TEST_F(ConfFile, LetsTheLastDefinitionOfANameWin)
{
    EXPECT_EQ(parse("A first\nB 2\nA second\nA third\n"), 0);
    EXPECT_EQ(valueOf("A"), "third");
    EXPECT_EQ(store_.count(), 2U);
}

TEST_F(ConfFile, LetsTheLastDefinitionWinAcrossGrowth)
{
    std::string text = "NAME first\n";
    for (int number = 0; number < 41; ++number) {
        text += "N" + std::to_string(number) + " x\n";
    }
    EXPECT_EQ(parse(text + "NAME last\nN20 last\n"), 0);
    EXPECT_EQ(valueOf("NAME"), "last");
    EXPECT_EQ(valueOf("N20"), "last");
    EXPECT_EQ(valueOf("N40"), "x");
    EXPECT_EQ(store_.count(), 42U);
}

TEST_F(ConfFile, LogsALineWithoutASpaceAsItStandsFromTheNameOnAndGoesOn)
{
    EXPECT_EQ(parse("  A=/x # c\nB 2\n"), 0);
    EXPECT_EQ(log_.take(), std::string("12|Invalid variable definition A=/x # c\n") + spaceMessage);
    EXPECT_EQ(valueOf("A"), "(none)");
    EXPECT_EQ(valueOf("B"), "2");
}

TEST_F(ConfFile, LogsALineWithoutAValueAsItStandsFromTheNameOnAndGoesOn)
{
    EXPECT_EQ(parse("  A # c\nA\nA   \nB 2\n"), 0);
    EXPECT_EQ(log_.take(), std::string("12|Invalid variable definition A # c\n") + valueMessage +
                               "12|Invalid variable definition A\n" + valueMessage +
                               "12|Invalid variable definition A   \n" + valueMessage);
    EXPECT_EQ(valueOf("A"), "(none)");
    EXPECT_EQ(valueOf("B"), "2");
}

TEST_F(ConfFile, MissesTheSpaceAfterANameAtItsVeryEnd)
{
    EXPECT_EQ(parse("B 2\nA"), 0);
    EXPECT_EQ(log_.take(), std::string("12|Invalid variable definition A") + spaceMessage);
}

TEST_F(ConfFile, KeepsTheOldValueOfANameThatABadLineNames)
{
    EXPECT_EQ(parse("A 1\nA=2\nA\n"), 0);
    EXPECT_EQ(valueOf("A"), "1");
}

TEST_F(ConfFile, LeavesTheErrorAsItWas)
{
    EXPECT_EQ(parse("A 1\nB=2\nC\n"), 0);
    EXPECT_EQ(errno, EDOM);
    errno = 0;
    EXPECT_EQ(parseConfiguration("/etc/kvo/kvo.conf", store_), 0);
    EXPECT_EQ(errno, 0);
}

TEST_F(ConfFile, IsClosedAgain)
{
    const size_t before = openDescriptors();
    EXPECT_EQ(parse("A 1\n"), 0);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(ConfFile, ShowsItsMistakesOnAConsoleOfPriority12)
{
    const Outcome outcome = outputOf([] {
        loggerSetup("console", 12, 0x10, 0, "test");
        ConfStore store;
        EXPECT_EQ(parse("A=/x\nA\n", store), 0);
        loggerSetup("console", 6, 0x10, 0, "test");
    });
    EXPECT_EQ(outcome.err, "Invalid variable definition A=/x\n\n"
                           "Expected a space after variable name\n\n"
                           "Invalid variable definition A\n\nExpected a value\n");
    EXPECT_EQ(outcome.out, outcome.err);
}

TEST_F(ConfFileFailure, LogsAMissingFileWithItsError)
{
    errno = 0;
    EXPECT_EQ(parseConfiguration("/etc/kvo/kvo.conf", store_), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(log_.take(), "12|unable to open configuration file /etc/kvo/kvo.conf: "
                           "No such file or directory\n|\n");
}

TEST_F(ConfFileFailure, LogsAFileThatMayNotBeOpened)
{
    configure("A 1\n");
    faults::fail("fopen", EACCES);
    EXPECT_EQ(parseConfiguration("/etc/kvo/kvo.conf", store_), -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(log_.take(), "12|unable to open configuration file /etc/kvo/kvo.conf: "
                           "Permission denied\n|\n");
}

TEST_F(ConfFileFailure, LogsADanglingLinkAndALoop)
{
    makeLink("/etc/kvo/dangling", "nowhere");
    EXPECT_EQ(parseConfiguration("/etc/kvo/dangling", store_), -1);
    EXPECT_EQ(errno, ENOENT);
    makeLink("/etc/kvo/loop", "loop");
    EXPECT_EQ(parseConfiguration("/etc/kvo/loop", store_), -1);
    EXPECT_EQ(errno, ELOOP);
    EXPECT_EQ(log_.take(), "12|unable to open configuration file /etc/kvo/dangling: "
                           "No such file or directory\n|\n"
                           "12|unable to open configuration file /etc/kvo/loop: "
                           "Too many levels of symbolic links\n|\n");
}

TEST_F(ConfFileFailure, LogsADirectoryWhenItIsRead)
{
    makeDir("/etc/kvo/kvo.conf");
    const size_t before = openDescriptors();
    errno = 0;
    EXPECT_EQ(parseConfiguration("/etc/kvo/kvo.conf", store_), -1);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(log_.take(), "12|Unable to read configuration file: Is a directory|\n");
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(ConfFileFailure, LogsAnErrorInTheMiddleOfTheFile)
{
    for (const int error : {EIO, ENOMEM}) {
        const size_t before = openDescriptors();
        faults::fail("getdelim", error, 2);
        EXPECT_EQ(parse("A 1\nB 2\n"), -1);
        EXPECT_EQ(errno, error);
        EXPECT_EQ(log_.take(),
            std::string("12|Unable to read configuration file: ") +
                (error == EIO ? "Input/output error|\n" : "Cannot allocate memory|\n"));
        EXPECT_EQ(openDescriptors(), before);
    }
}

TEST_F(ConfFileFailure, EndsTheReadingWithTheFirstPairThatCannotBeKept)
{
    const size_t before = openDescriptors();
    faults::fail("malloc", ENOMEM, 3);
    EXPECT_EQ(parse("A 1\nB 2\nC 3\nD=4\n"), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(log_.take(), "12|Unable to form configuration: Cannot allocate memory|\n");
    EXPECT_EQ(store_.count(), 1U);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(ConfFileFailure, LogsAStoreThatCannotGrow)
{
    ConfStore small(40);
    std::string text;
    for (int number = 0; number < 21; ++number) {
        text += "N" + std::to_string(number) + " x\n";
    }
    EXPECT_EQ(parse(text, small), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(log_.take(), "12|Unable to read configuration: Cannot allocate memory|\n");
}

TEST_F(ConfFileFailure, IsSilentWithoutMemoryForTheFirstPairsAndComesBeforeTheOpening)
{
    {
        const FailingNew failing;
        EXPECT_EQ(parseConfiguration("/etc/kvo/kvo.conf", store_), -1);
    }
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(log_.take(), "");
}

TEST_F(BadConfFile, MayHoldNulBytes)
{
    using namespace std::string_literals;
    EXPECT_EQ(parse("A a\0b\nB=\0 hidden\nC \0\nD 4\n"s), 0);
    EXPECT_EQ(valueOf("A"), "a");
    EXPECT_EQ(valueOf("C"), "");
    EXPECT_EQ(valueOf("D"), "4");
    EXPECT_EQ(log_.take(), std::string("12|Invalid variable definition B=") + spaceMessage);
}

TEST_F(BadConfFile, MayHoldOneLineOfAMegabyte)
{
    const std::string megabyte(1'000'000, 'x');
    EXPECT_EQ(parse("A " + megabyte), 0);
    EXPECT_EQ(valueOf("A"), megabyte);
    EXPECT_EQ(log_.take(), "");
    EXPECT_EQ(parse(megabyte + "=1\nB 2\n"), 0);
    EXPECT_EQ(valueOf("B"), "2");
    EXPECT_EQ(log_.take(), "12|Invalid variable definition " + megabyte + "=1\n" + spaceMessage);
}

TEST_F(BadConfFile, MayHoldAMegabyteOfWhiteSpaceOrOfBlankLines)
{
    EXPECT_EQ(parse("A" + std::string(1'000'000, ' ') + "1\n" + std::string(1'000'000, '\n') +
                    "B 2" + std::string(1'000'000, ' ')),
        0);
    EXPECT_EQ(valueOf("A"), "1");
    EXPECT_EQ(valueOf("B"), "2" + std::string(1'000'000, ' '));
}

TEST_F(BadConfFile, MayBeBinary)
{
    std::string binary;
    unsigned state = 1;
    while (binary.size() < 200'000) {
        state = state * 1103515245U + 12345U;
        binary += static_cast<char>(state >> 16U);
    }
    EXPECT_EQ(parse(binary + "\nLAST value\n"), 0);
    EXPECT_EQ(valueOf("LAST"), "value");
    EXPECT_NE(log_.take().find("Expected a space after variable name"), std::string::npos);
}

TEST_F(BadConfFile, MayHoldHundredsOfThousandsOfNames)
{
    std::string text;
    for (int number = 0; number < 200'000; ++number) {
        text += "N" + std::to_string(number) + ' ' + std::to_string(number * 3) + '\n';
    }
    EXPECT_EQ(parse(text + "N7 last\n"), 0);
    EXPECT_EQ(store_.count(), 200'000U);
    EXPECT_EQ(store_.capacity(), 327'680U);
    EXPECT_EQ(valueOf("N7"), "last");
    for (int number = 1; number < 200'000; number += 999) {
        EXPECT_EQ(valueOf(("N" + std::to_string(number)).c_str()), std::to_string(number * 3));
    }
}
