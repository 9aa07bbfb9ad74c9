#include "fsutil/Text.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "conf/FreeDeleter.h"
#include "tests/fsutil/Reports.h"
#include "tests/lib/Faults.h"

TEST(IsEmpty, HoldsForNullAndForNoCharacters)
{
    EXPECT_EQ(isEmpty(nullptr), 1);
    EXPECT_EQ(isEmpty(""), 1);
    EXPECT_EQ(isEmpty(" "), 0);
    EXPECT_EQ(isEmpty("\xff"), 0);
}

TEST(ReplaceCharacter, CopiesWithEveryOldCharacterReplacedAndLeavesTheSourceAlone)
{
    char source[] = "/a//b/";
    char destination[] = "...........";
    EXPECT_EQ(replaceCharacter(source, destination, '/', '-'), destination);
    EXPECT_STREQ(destination, "-a--b-");
    EXPECT_EQ(std::string(destination + 7, 4), "....");
    EXPECT_STREQ(source, "/a//b/");
}

TEST(ReplaceCharacter, WorksInPlaceWithoutADestination)
{
    char text[] = "a.b.c";
    EXPECT_EQ(replaceCharacter(text, nullptr, '.', '_'), text);
    EXPECT_STREQ(text, "a_b_c");
}

TEST(ReplaceCharacter, CopiesATextThatDoesNotHoldTheCharacter)
{
    char source[] = "abc";
    char destination[] = "......";
    replaceCharacter(source, destination, 'x', 'y');
    EXPECT_STREQ(destination, "abc");
    char empty[] = "";
    replaceCharacter(empty, destination, 'x', 'y');
    EXPECT_STREQ(destination, "");
}

TEST(ReplaceCharacter, NeverReplacesTheTerminator)
{
    char source[] = "abc";
    char destination[] = "......";
    replaceCharacter(source, destination, '\0', 'x');
    EXPECT_STREQ(destination, "abc");
    replaceCharacter(source, nullptr, '\0', 'x');
    EXPECT_STREQ(source, "abc");
}

TEST(LowerCaseInPlace, LowersTheLettersOfTheCLocaleOnly)
{
    char text[] = "AZaz09@[`{\xc4\xd6\xff";
    EXPECT_EQ(lowerCaseInPlace(text), 0);
    EXPECT_STREQ(text, "azaz09@[`{\xc4\xd6\xff");
}

TEST(LowerCaseInPlace, AcceptsNull)
{
    EXPECT_EQ(lowerCaseInPlace(nullptr), 0);
}

TEST(LowerCasedCopy, LeavesTheOriginalAlone)
{
    const char original[] = "Example.TEST";
    const CString copy(lowerCasedCopy(original));
    EXPECT_STREQ(copy.get(), "example.test");
    EXPECT_STREQ(original, "Example.TEST");
}

TEST(LowerCasedCopy, GivesNullForNull)
{
    EXPECT_EQ(reportsOf([] { EXPECT_EQ(lowerCasedCopy(nullptr), nullptr); }), "");
}

TEST(LowerCasedCopy, ReportsALackOfMemoryAndGivesNull)
{
    const faults::Guard guard;
    EXPECT_EQ(reportsOf([] {
        faults::fail("strdup", ENOMEM);
        EXPECT_EQ(lowerCasedCopy("A"), nullptr);
    }),
        "twigctl: System error: Cannot allocate memory\n"
        "\nSystem error 12: Cannot allocate memory\n");
}

TEST(Trim, CutsTheEndInPlaceAndPointsToTheFirstCharacter)
{
    char text[] = " \t\v\f\r\na b\n\r\f\v\t ";
    EXPECT_EQ(trim(text), text + 6);
    EXPECT_STREQ(text + 6, "a b");
}

TEST(Trim, KeepsATextWithoutBlanksAtItsEnds)
{
    char text[] = "a b";
    EXPECT_EQ(trim(text), text);
    EXPECT_STREQ(text, "a b");
}

TEST(Trim, MakesNothingOfBlanksAndStopsAtTheBegin)
{
    char guarded[] = "x  \n";
    EXPECT_EQ(trim(guarded + 1), guarded + 1);
    EXPECT_STREQ(guarded, "x");
    char blankBefore[] = {' ', '\0'};
    EXPECT_STREQ(trim(blankBefore + 1), "");
    EXPECT_EQ(blankBefore[0], ' ');
}

TEST(Trim, KeepsBytesThatAreBlankInOtherLocalesOnly)
{
    char text[] = "\xa0\x85-\x85\xa0";
    EXPECT_EQ(trim(text), text);
    EXPECT_STREQ(text, "\xa0\x85-\x85\xa0");
}

TEST(BoundedCopy, CopiesWhatFitsAndReturnsTheLengthOfTheSource)
{
    char destination[] = "........";
    EXPECT_EQ(boundedCopy(destination, "abcde", 4), 5U);
    EXPECT_EQ(std::string(destination, 8), std::string("abc\0....", 8));
    EXPECT_EQ(boundedCopy(destination, "xy", 3), 2U);
    EXPECT_EQ(std::string(destination, 8), std::string("xy\0\0....", 8));
}

TEST(BoundedCopy, LeavesTheBytesBehindTheTerminatorAlone)
{
    char destination[] = "........";
    EXPECT_EQ(boundedCopy(destination, "ab", 8), 2U);
    EXPECT_EQ(std::string(destination, 8), std::string("ab\0.....", 8));
}

TEST(BoundedCopy, OnlyTerminatesWithRoomForOneCharacter)
{
    char destination[] = "..";
    EXPECT_EQ(boundedCopy(destination, "abc", 1), 3U);
    EXPECT_EQ(std::string(destination, 2), std::string("\0.", 2));
}

TEST(BoundedCopy, WritesNothingForASizeOfZero)
{
    char destination[] = "..";
    EXPECT_EQ(boundedCopy(destination, "abc", 0), 3U);
    EXPECT_STREQ(destination, "..");
    EXPECT_EQ(boundedCopy(nullptr, "abc", 0), 3U);
}

TEST(IsAllDigits, HoldsForDecimalDigitsAndForNoCharacters)
{
    EXPECT_EQ(isAllDigits("0123456789"), 1);
    EXPECT_EQ(isAllDigits(""), 1);
    for (const char* text : {"-1", "+1", " 1", "1 ", "0x1", "1a", "\xb2", "1\xff"}) {
        EXPECT_EQ(isAllDigits(text), 0) << text;
    }
}

namespace
{

/// The replaced text in a destination of exactly this size.
std::string replaced(const char* source, const char* search, const char* replacement, size_t size)
{
    std::vector<char> destination(size, '.');
    EXPECT_EQ(
        strn_replace(source, destination.data(), search, replacement, size), destination.data());
    return destination.data();
}

/// The same by building all pieces first and then taking as many as fit.
std::string replacedNaively(const std::string& source, const std::string& search,
    const std::string& replacement, size_t size)
{
    std::vector<std::string> pieces;
    size_t from = 0;
    for (size_t at = 0; (at = source.find(search, from)) != std::string::npos;) {
        pieces.push_back(source.substr(from, at - from));
        pieces.push_back(replacement);
        from = at + search.size();
    }
    pieces.push_back(source.substr(from));

    std::string result;
    for (const std::string& piece : pieces) {
        if (result.size() + piece.size() + 1 > size) {
            break;
        }
        result += piece;
    }
    return result;
}

std::string randomText(std::mt19937& random, size_t longest)
{
    std::string text(random() % (longest + 1), 'a');
    for (char& character : text) {
        character = "ab"[random() % 2];
    }
    return text;
}

} // namespace

TEST(StrnReplace, ReplacesEveryOccurrence)
{
    EXPECT_EQ(replaced("aXbXc", "X", "--", 100), "a--b--c");
    EXPECT_EQ(replaced("XX", "X", "", 100), "");
    EXPECT_EQ(replaced("XaX", "X", "Y", 100), "YaY");
    EXPECT_EQ(replaced("", "X", "Y", 100), "");
}

TEST(StrnReplace, SearchesOnBehindWhatItReplaced)
{
    EXPECT_EQ(replaced("aaaaa", "aa", "a", 100), "aaa");
    EXPECT_EQ(replaced("ab", "a", "aa", 100), "aab");
}

TEST(StrnReplace, DropsThePieceThatDoesNotFitAndAllBehindIt)
{
    EXPECT_EQ(replaced("aXbXc", "X", "--", 8), "a--b--c");
    EXPECT_EQ(replaced("aXbXc", "X", "--", 7), "a--b--");
    EXPECT_EQ(replaced("aXbXc", "X", "--", 6), "a--b");
    EXPECT_EQ(replaced("aXbXc", "X", "--", 5), "a--b");
    EXPECT_EQ(replaced("aXbXc", "X", "--", 4), "a--");
    EXPECT_EQ(replaced("aXbXc", "X", "--", 3), "a");
    EXPECT_EQ(replaced("aXbXc", "X", "--", 2), "a");
    EXPECT_EQ(replaced("aXbXc", "X", "--", 1), "");
}

TEST(StrnReplace, GivesNothingForATextWithoutOccurrencesThatDoesNotFitWhole)
{
    EXPECT_EQ(replaced("hello world", "X", "--", 12), "hello world");
    EXPECT_EQ(replaced("hello world", "X", "--", 11), "");
}

TEST(StrnReplace, AgreesWithANaiveReplacementAndWritesNothingBeyondTheSize)
{
    std::mt19937 random(1); // NOLINT(cert-msc51-cpp): the same texts every time
    for (int round = 0; round < 20'000; ++round) {
        const std::string source = randomText(random, 12);
        const std::string search = "a" + randomText(random, 2);
        const std::string replacement = randomText(random, 4);
        const size_t size = 1 + random() % 24;
        std::string destination(size + 8, '.');
        strn_replace(source.c_str(), destination.data(), search.c_str(), replacement.c_str(), size);
        ASSERT_EQ(destination.c_str(), replacedNaively(source, search, replacement, size))
            << source << ' ' << search << ' ' << replacement << ' ' << size;
        ASSERT_EQ(destination.substr(size), "........");
    }
}

TEST(StrnReplace, MayWriteOverItsSource)
{
    char text[16] = "aXbXc";
    EXPECT_EQ(strn_replace(text, text, "X", "--", sizeof text), text);
    EXPECT_STREQ(text, "a--b--c");
    strn_replace(text, text, "", "--", sizeof text);
    EXPECT_STREQ(text, "a--b--c");
}

TEST(StrnReplace, GivesNullForANullDestination)
{
    EXPECT_EQ(strn_replace("aXb", nullptr, "X", "-", 8), nullptr);
}

TEST(StrnReplace, CopiesAndPadsWithoutASearchText)
{
    for (const char* search : {static_cast<const char*>(nullptr), ""}) {
        char destination[] = "........";
        EXPECT_EQ(strn_replace("ab", destination, search, "-", 6), destination);
        EXPECT_EQ(std::string(destination, 8), std::string("ab\0\0\0\0..", 8));
        strn_replace("cd", destination, search, nullptr, 6);
        EXPECT_STREQ(destination, "cd");
    }
}

TEST(StrnReplace, DoesNotTerminateACopyThatFillsTheDestination)
{
    for (const char* search : {static_cast<const char*>(nullptr), ""}) {
        char destination[] = "........";
        strn_replace("abcdef", destination, search, "-", 6);
        EXPECT_STREQ(destination, "abcdef..");
        strn_replace("ABCDEFGH", destination, search, "-", 3);
        EXPECT_STREQ(destination, "ABCdef..");
    }
}

TEST(StrnReplace, LeavesTheDestinationAloneWithNothingToWorkWith)
{
    const faults::Guard guard;
    char destination[] = "....";
    EXPECT_EQ(reportsOf([&] {
        faults::failAlways("malloc", ENOMEM);
        EXPECT_EQ(strn_replace("aXb", destination, "X", "-", 0), destination);
        EXPECT_EQ(strn_replace("aXb", destination, "", "-", 0), destination);
        EXPECT_EQ(strn_replace(nullptr, destination, "X", "-", 4), destination);
        EXPECT_EQ(strn_replace(nullptr, destination, "", "-", 4), destination);
        EXPECT_EQ(strn_replace("aXb", destination, "X", nullptr, 4), destination);
        faults::clear();
    }),
        "");
    EXPECT_STREQ(destination, "....");
}

TEST(StrnReplace, ReportsALackOfMemoryAndCopiesWhatFitsOfTheSource)
{
    const faults::Guard guard;
    char destination[] = "........";
    EXPECT_EQ(reportsOf([&] {
        faults::fail("malloc", ENOMEM);
        EXPECT_EQ(strn_replace("aXbXc", destination, "X", "--", 4), destination);
    }),
        "twigctl: strn_replace(): Cannot allocate memory\n"
        "\nSystem error 12: Cannot allocate memory\n");
    EXPECT_EQ(std::string(destination, 8), std::string("aXb\0....", 8));
}
