#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <random>
#include <regex.h>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "support/Regexp.h"
#include "tests/lib/FailingNew.h"

using zelto::Regexp;
using Result = Regexp::MatchResultData;
using Group = Result::Group;

static_assert(!std::is_copy_constructible_v<Regexp> && !std::is_copy_assignable_v<Regexp>);
static_assert(!std::is_move_constructible_v<Regexp> && !std::is_move_assignable_v<Regexp>);
static_assert(std::is_same_v<decltype(Result::offset), std::uint32_t>);
static_assert(std::is_same_v<Group, std::pair<std::uint32_t, std::uint32_t>>);
static_assert(std::is_same_v<decltype(std::declval<const Regexp&>().match("", 0, 0)),
    boost::shared_ptr<Result>>);

namespace
{

constexpr int lineFlags = REG_EXTENDED | REG_NEWLINE;

/// A flag that regexec() does not know: it fails with REG_BADPAT.
constexpr int unknownFlag = 0x40000000;

std::string compileError(const std::string& pattern, int cflags)
{
    try {
        const Regexp regexp(pattern, cflags);
        return "(compiled)";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(typeid(error), typeid(std::runtime_error));
        return error.what();
    }
}

/// Group 1 of a match, or "(no match)".
std::string firstGroup(const std::string& pattern, const std::string& subject)
{
    const auto result = Regexp(pattern, lineFlags).match(subject, 2, 0);
    return result ? result->str(1) : "(no match)";
}

/// Whether the escaped text, as a whole pattern, matches all of the text.
bool matchesItself(const std::string& text, bool extended)
{
    const Regexp regexp('^' + Regexp::escape(text, extended) + '$', extended ? REG_EXTENDED : 0);
    const auto result = regexp.match(text, 1, 0);
    return result && result->str(0) == text;
}

Result resultOf(const std::string& subject, const std::vector<Group>& groups)
{
    Result result;
    result.subject = subject;
    result.groups = groups;
    return result;
}

/// A result as an earlier match may have left it.
Result usedResult()
{
    Result result = resultOf("earlier subject", {{1, 2}, {3, 4}, {5, 6}});
    result.offset = 7;
    return result;
}

void expectUntouched(const Result& result)
{
    EXPECT_EQ(result.subject, "earlier subject");
    EXPECT_EQ(result.offset, 7U);
    EXPECT_EQ(result.groups, (std::vector<Group>{{1, 2}, {3, 4}, {5, 6}}));
}

} // namespace

TEST(Regexp, APatternThatDoesNotCompileIsReportedWithTheSystemsTextAlone)
{
    EXPECT_EQ(compileError("(", REG_EXTENDED), "Unmatched ( or \\(");
    EXPECT_EQ(compileError("[a", 0), "Unmatched [, [^, [:, [., or [=");
    EXPECT_EQ(compileError("a{2,1}", REG_EXTENDED), "Invalid content of \\{\\}");
}

TEST(Regexp, TheFlagsDecideHowThePatternIsRead)
{
    EXPECT_EQ(compileError("(", 0), "(compiled)");
    EXPECT_TRUE(Regexp("a+", 0).match(nullptr, "a+", 0, 0));
    EXPECT_FALSE(Regexp("a+", 0).match(nullptr, "aa", 0, 0));
    EXPECT_TRUE(Regexp("^A$", REG_ICASE).match(nullptr, "a", 0, 0));
}

TEST(Regexp, APatternEndsAtItsFirstNul)
{
    EXPECT_EQ(compileError(std::string("a\0(", 3), REG_EXTENDED), "(compiled)");
}

TEST(RegexpMatch, SaysWhetherThereIsOne)
{
    const Regexp regexp("b+", REG_EXTENDED);
    EXPECT_TRUE(regexp.match(nullptr, "abbc", 0, 0));
    EXPECT_FALSE(regexp.match(nullptr, "ac", 0, 0));
}

TEST(RegexpMatch, NeedsNoResultWhateverTheNumberOfGroups)
{
    const Regexp regexp("(b)(c)", REG_EXTENDED);
    EXPECT_TRUE(regexp.match(nullptr, "abc", 2, 0));
    EXPECT_TRUE(regexp.match(nullptr, "abc", SIZE_MAX, 0));
    EXPECT_FALSE(regexp.match(nullptr, "ab", 2, 0));
}

TEST(RegexpMatch, FillsInTheResult)
{
    Result result;
    EXPECT_TRUE(Regexp("b(c)", REG_EXTENDED).match(&result, "abcd", 2, 0));
    EXPECT_EQ(result.subject, "abcd");
    EXPECT_EQ(result.offset, 0U);
    EXPECT_EQ(result.groups, (std::vector<Group>{{1, 2}, {2, 1}}));
}

TEST(RegexpMatch, GivesPlacesAndTextsOfTheGroups)
{
    const auto result = Regexp("^SELINUX=([a-z]+)$", lineFlags).match("SELINUX=enforcing", 2, 0);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->group(0), Group(0, 17));
    EXPECT_EQ(result->group(1), Group(8, 9));
    EXPECT_EQ(result->str(0), "SELINUX=enforcing");
    EXPECT_EQ(result->str(1), "enforcing");
}

TEST(RegexpMatch, FindsALineInTheMiddleAndGivesItsPlaceInTheWholeText)
{
    const Regexp regexp("^envID:[[:space:]]*([[:digit:]]+)$", lineFlags);
    const auto result = regexp.match("Name:\tsh\nenvID:\t101\nVmPeak:\t5 kB\n", 2, 0);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->group(0), Group(9, 10));
    EXPECT_EQ(result->group(1), Group(16, 3));
    EXPECT_EQ(result->str(1), "101");
}

TEST(RegexpMatch, SeesLinesOnlyWithTheFlagForThem)
{
    const std::string text = "#\nSELINUX=enforcing\n";
    EXPECT_TRUE(Regexp("^SELINUX=", lineFlags).match(nullptr, text, 0, 0));
    EXPECT_FALSE(Regexp("^SELINUX=", REG_EXTENDED).match(nullptr, text, 0, 0));
}

TEST(RegexpMatch, TakesTheFirstLineThatMatches)
{
    EXPECT_EQ(
        firstGroup("^SELINUX=([a-z]+)$", "SELINUX=Off\nSELINUX=disabled\nSELINUX=enforcing\n"),
        "disabled");
    EXPECT_EQ(firstGroup("^SELINUX=([a-z]+)$", "SELINUX=enforcing\r\n"), "(no match)");
}

TEST(RegexpMatch, KeepsTheResultLongerThanTheExpressionAndTheSubject)
{
    boost::shared_ptr<Result> result;
    {
        const std::string subject = "a subject that is too long for a short string";
        result = Regexp("s[a-z]+t", REG_EXTENDED).match(subject, 1, 0);
    }
    ASSERT_TRUE(result);
    EXPECT_EQ(result->subject, "a subject that is too long for a short string");
    EXPECT_EQ(result->str(0), "subject");
    EXPECT_EQ(result.use_count(), 1);
}

TEST(RegexpMatch, MakesAResultOfItsOwnForEachCall)
{
    const Regexp regexp("a", 0);
    const auto one = regexp.match("a", 1, 0);
    const auto other = regexp.match("ba", 1, 0);
    EXPECT_NE(one, other);
    EXPECT_EQ(one->group(0), Group(0, 1));
    EXPECT_EQ(other->group(0), Group(1, 1));
}

TEST(RegexpMatch, GivesAnEmptyPointerWhenThereIsNone)
{
    EXPECT_FALSE(Regexp("b", 0).match("a", 2, 0));
    EXPECT_FALSE(Regexp("b", 0).match("", 0, 0));
}

TEST(RegexpMatch, ForNoGroupsStillKeepsTheSubject)
{
    const auto result = Regexp("a", 0).match("ab", 0, 0);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->subject, "ab");
    EXPECT_TRUE(result->groups.empty());
}

TEST(RegexpMatch, GivesAGroupThatTookNoPartAnEmptyText)
{
    const auto result = Regexp("x(y)?(z)", REG_EXTENDED).match("xz", 3, 0);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->group(1), Group(0, 0));
    EXPECT_EQ(result->str(1), "");
    EXPECT_EQ(result->group(2), Group(1, 1));
}

TEST(RegexpMatch, AsksForMoreGroupsThanThereAreAndGetsEmptyOnes)
{
    const auto result = Regexp("a", 0).match("xa", 3, 0);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->groups, (std::vector<Group>{{1, 1}, {0, 0}, {0, 0}}));
}

TEST(RegexpMatch, LeavesAUsedResultAloneWhenThereIsNone)
{
    Result result = usedResult();
    EXPECT_FALSE(Regexp("b", 0).match(&result, "a", 2, 0));
    expectUntouched(result);
}

TEST(RegexpMatch, ReplacesSubjectAndOffsetOfAUsedResult)
{
    Result result = usedResult();
    EXPECT_TRUE(Regexp("a", 0).match(&result, "xxa", 1, 0));
    EXPECT_EQ(result.subject, "xxa");
    EXPECT_EQ(result.offset, 0U);
}

TEST(RegexpMatch, KeepsTheFormerPlaceOfAGroupThatTakesNoPart)
{
    Result result = usedResult();
    EXPECT_TRUE(Regexp("x(y)?(z)", REG_EXTENDED).match(&result, "xz", 3, 0));
    EXPECT_EQ(result.groups, (std::vector<Group>{{0, 2}, {3, 4}, {1, 1}}));
    EXPECT_EQ(result.str(1), ""); // a start behind the new subject
}

TEST(RegexpMatch, DropsTheSurplusGroupsOfAUsedResult)
{
    Result result = usedResult();
    EXPECT_TRUE(Regexp("a", 0).match(&result, "a", 1, 0));
    EXPECT_EQ(result.groups, (std::vector<Group>{{0, 1}}));
}

TEST(RegexpMatch, AddsEmptyGroupsToAUsedResult)
{
    Result result = usedResult();
    EXPECT_TRUE(Regexp("a", 0).match(&result, "a", 5, 0));
    EXPECT_EQ(result.groups, (std::vector<Group>{{0, 1}, {3, 4}, {5, 6}, {0, 0}, {0, 0}}));
}

TEST(RegexpMatch, CanTakeItsSubjectFromTheResult)
{
    Result result = usedResult();
    EXPECT_TRUE(Regexp("s[a-z]+t", REG_EXTENDED).match(&result, result.subject, 1, 0));
    EXPECT_EQ(result.str(0), "subject");
}

TEST(RegexpMatch, EndsAtTheFirstNulOfTheSubjectAndKeepsAllOfIt)
{
    const std::string subject("ab\0cd", 5);
    EXPECT_FALSE(Regexp("c", 0).match(subject, 1, 0));
    const auto result = Regexp("b$", 0).match(subject, 1, 0);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->subject, subject);
    EXPECT_EQ(result->group(0), Group(1, 1));
}

TEST(RegexpMatch, CountsAFailureAsAMatchWithoutGroups)
{
    const auto result = Regexp("b", 0).match("a", 2, unknownFlag);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->subject, "a");
    EXPECT_EQ(result->groups, (std::vector<Group>{{0, 0}, {0, 0}}));
    EXPECT_TRUE(Regexp("b", 0).match(nullptr, "a", 2, unknownFlag));
}

TEST(RegexpMatch, KeepsTheFormerGroupsWhenAFailureCountsAsAMatch)
{
    Result result = usedResult();
    EXPECT_TRUE(Regexp("b", 0).match(&result, "a", 2, unknownFlag));
    EXPECT_EQ(result.groups, (std::vector<Group>{{1, 2}, {3, 4}}));
    EXPECT_EQ(result.subject, "a");
}

TEST(RegexpMatch, HasNoGroupsWhereTheExpressionWasCompiledWithoutThem)
{
    const auto result = Regexp("(b)", REG_EXTENDED | REG_NOSUB).match("ab", 2, 0);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->groups, (std::vector<Group>{{0, 0}, {0, 0}}));
}

TEST(RegexpMatch, PassesTheFlagsOn)
{
    EXPECT_FALSE(Regexp("^a", 0).match(nullptr, "a", 0, REG_NOTBOL));
    EXPECT_FALSE(Regexp("a$", 0).match(nullptr, "a", 0, REG_NOTEOL));
}

TEST(RegexpMatch, StartsAtTheBeginningWhateverTheFlags)
{
    const auto result = Regexp("a", 0).match("ba", 1, REG_STARTEND);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->group(0), Group(1, 1));
    EXPECT_TRUE(Regexp("a", 0).match(nullptr, "ba", 0, REG_STARTEND));
    EXPECT_FALSE(Regexp("c", 0).match(nullptr, "ba", 0, REG_STARTEND));
}

TEST(RegexpMatch, ThrowsBadAllocForMoreGroupsThanMemoryHolds)
{
    const Regexp regexp("a", 0);
    Result result = usedResult();
    EXPECT_THROW(regexp.match(&result, "a", SIZE_MAX, 0), std::bad_alloc);
    EXPECT_THROW(regexp.match(&result, "a", SIZE_MAX / sizeof(regmatch_t), 0), std::bad_alloc);
    expectUntouched(result);
    EXPECT_THROW((void)regexp.match("a", SIZE_MAX, 0), std::bad_alloc);
}

TEST(RegexpMatch, ThrowsBadAllocWhereverMemoryRunsOut)
{
    const Regexp regexp("s[a-z]+t", REG_EXTENDED);
    const std::string subject = "a subject that is too long for a short string";
    int failures = 0;
    for (bool done = false; !done;) {
        try {
            const FailingNew failing(failures + 1);
            EXPECT_EQ(regexp.match(subject, 2, 0)->str(0), "subject");
            done = true;
        } catch (const std::bad_alloc&) {
            ++failures;
        }
    }
    EXPECT_EQ(failures, 4); // the result, the places, the groups, the subject
}

TEST(RegexpResult, HasNoPlaceAndNoTextForAGroupBehindTheLast)
{
    const Result result = resultOf("abc", {{1, 1}});
    EXPECT_EQ(result.group(0), Group(1, 1));
    EXPECT_EQ(result.group(1), Group(0, 0));
    EXPECT_EQ(result.group(SIZE_MAX), Group(0, 0));
    EXPECT_EQ(result.str(1), "");
    EXPECT_EQ(Result().str(0), "");
}

TEST(RegexpResult, HasNoTextForAStartThatIsNone)
{
    EXPECT_EQ(resultOf("abc", {{UINT32_MAX, 1}}).str(0), "");
    EXPECT_EQ(resultOf("abc", {{UINT32_MAX, UINT32_MAX}}).str(0), "");
}

TEST(RegexpResult, HasNoTextBehindTheSubject)
{
    EXPECT_EQ(resultOf("abc", {{4, 1}}).str(0), "");
    EXPECT_EQ(resultOf("abc", {{3, 1}}).str(0), "");
    EXPECT_EQ(resultOf("abc", {{2, 9}}).str(0), "c");
}

TEST(RegexpEscape, PutsABackslashBeforeTheSevenOfTheBasicSet)
{
    EXPECT_EQ(Regexp::escape("\\.*[]^$", false), "\\\\\\.\\*\\[\\]\\^\\$");
    EXPECT_EQ(Regexp::escape("a.b", false), "a\\.b");
}

TEST(RegexpEscape, LeavesTheExtendedSetAloneForBasicExpressions)
{
    EXPECT_EQ(Regexp::escape("+?{}()|", false), "+?{}()|");
    EXPECT_EQ(Regexp::escape("(x)+", false), "(x)+");
    EXPECT_EQ(Regexp::escape("a|b", false), "a|b");
}

TEST(RegexpEscape, PutsABackslashBeforeBothSetsForExtendedExpressions)
{
    EXPECT_EQ(Regexp::escape("+?{}()|", true), "\\+\\?\\{\\}\\(\\)\\|");
    EXPECT_EQ(Regexp::escape("\\.*[]^$", true), "\\\\\\.\\*\\[\\]\\^\\$");
    EXPECT_EQ(Regexp::escape("(x)+", true), "\\(x\\)\\+");
}

TEST(RegexpEscape, ChangesNothingElse)
{
    const std::string plain("/-_ \t\n\"'#&,:;<=>@`~!%aZ09\0\x7f\x80\xff", 29);
    EXPECT_EQ(Regexp::escape(plain, true), plain);
    EXPECT_EQ(Regexp::escape(plain, false), plain);
    EXPECT_EQ(Regexp::escape("", true), "");
    EXPECT_EQ(Regexp::escape("", false), "");
}

TEST(RegexpEscape, MakesAPatternOfEveryByteThatMatchesIt)
{
    for (int byte = 1; byte <= 255; ++byte) {
        const std::string text(1, static_cast<char>(byte));
        EXPECT_TRUE(matchesItself(text, false)) << byte;
        EXPECT_TRUE(matchesItself(text, true)) << byte;
        EXPECT_TRUE(matchesItself(text + text, true)) << byte;
    }
}

TEST(RegexpEscape, MakesAPatternOfAnyTextThatMatchesIt)
{
    std::mt19937 random(1);
    for (int i = 0; i < 2000; ++i) {
        std::string text(1 + random() % 20, ' ');
        for (char& c : text) {
            c = static_cast<char>(' ' + random() % 95);
        }
        EXPECT_TRUE(matchesItself(text, false)) << text;
        EXPECT_TRUE(matchesItself(text, true)) << text;
    }
}
