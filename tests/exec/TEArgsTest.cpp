#include "exec/TEArgs.h"

#include <cerrno>
#include <climits>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <stdexcept>
#include <unistd.h>
#include <utility>

#include "tests/exec/Commands.h"
#include "tests/lib/FailingNew.h"
#include "tests/lib/Process.h"

using zelto::sys::TEArgs;

namespace
{

/// As many words as wanted: "0", "1", "2" and so on.
TEArgs numbers(int count)
{
    TEArgs args;
    for (int i = 0; i < count; ++i) {
        args.add(std::to_string(i));
    }
    return args;
}

std::string joined(const TEArgs& args)
{
    std::string text;
    for (std::size_t i = 0; i < args.size(); ++i) {
        text += args[static_cast<int>(i)] + ";";
    }
    return text;
}

/// The text of the error, which must be of exactly this class's kind.
template<class Error, class Body>
std::string textOf(Body body)
{
    try {
        body();
    } catch (const Error& error) {
        return error.what();
    }
    return "nothing thrown";
}

} // namespace

TEST(TEArgs, StartsWithoutWords)
{
    EXPECT_EQ(TEArgs().size(), 0U);
}

TEST(TEArgs, KeepsTheWordsInTheOrderOfAdding)
{
    TEArgs args;
    args.add("/bin/echo").add(std::string("")).add("a b");
    EXPECT_EQ(joined(args), "/bin/echo;;a b;");
}

TEST(TEArgs, ReturnsItselfFromEveryAdd)
{
    TEArgs args;
    EXPECT_EQ(&args.add("a"), &args);
    EXPECT_EQ(&args.add(std::string("a")), &args);
    EXPECT_EQ(&args.add(TEArgs()), &args);
}

TEST(TEArgs, RefusesANullWord)
{
    TEArgs args;
    const char* const none = nullptr;
    EXPECT_THROW(args.add(none), std::invalid_argument);
    EXPECT_EQ(args.size(), 0U);
}

TEST(TEArgs, AppendsTheWordsOfAnother)
{
    TEArgs args = words({"a", "b"});
    args.add(words({"c", "d"}));
    EXPECT_EQ(joined(args), "a;b;c;d;");
}

TEST(TEArgs, AppendsItsOwnWords)
{
    TEArgs args = words({"a", "b", "c"});
    args.add(args);
    EXPECT_EQ(joined(args), "a;b;c;a;b;c;");
}

TEST(TEArgs, AppendsItsOwnWordsWhileTheyAreShared)
{
    TEArgs args = words({"a", "b"});
    const TEArgs copy = args;
    args.add(args);
    EXPECT_EQ(joined(args), "a;b;a;b;");
    EXPECT_EQ(joined(copy), "a;b;");
}

TEST(TEArgs, AppendsACopyThatSharesItsWords)
{
    TEArgs args = words({"a", "b"});
    const TEArgs copy = args;
    args.add(copy);
    EXPECT_EQ(joined(args), "a;b;a;b;");
}

TEST(TEArgs, AppendsOneOfItsOwnWords)
{
    TEArgs args;
    args.add("a word too long to be kept inside of the string object");
    args.add(args[0]);
    EXPECT_EQ(args[0], args[1]);
    EXPECT_EQ(args[1], "a word too long to be kept inside of the string object");
}

TEST(TEArgs, HoldsAHundredWords)
{
    TEArgs args = numbers(99);
    args.add("last");
    EXPECT_EQ(args.size(), 100U);
    EXPECT_EQ(args[99], "last");
}

TEST(TEArgs, RefusesTheHundredAndFirstWord)
{
    TEArgs args = numbers(100);
    const char* const text = "The number of arguments has exceeded the defined limits "
                             "(arguments number = 100, add. arguments number = 1, max = 100)";
    EXPECT_EQ(textOf<TEArgs::TOverflow>([&] { args.add("x"); }), text);
    EXPECT_EQ(textOf<TEArgs::TOverflow>([&] { args.add(std::string("x")); }), text);
    EXPECT_EQ(args.size(), 100U);
}

TEST(TEArgs, RefusesTheWordsOfAnotherThatDoNotAllFit)
{
    TEArgs args = numbers(98);
    const TEArgs three = words({"a", "b", "c"});
    EXPECT_EQ(textOf<TEArgs::TOverflow>([&] { args.add(three); }),
        "The number of arguments has exceeded the defined limits "
        "(arguments number = 98, add. arguments number = 3, max = 100)");
    EXPECT_EQ(args.size(), 98U);
    EXPECT_EQ(joined(three), "a;b;c;");
}

TEST(TEArgs, RefusesItsOwnWordsWhenTheyDoNotFitTwice)
{
    TEArgs args = numbers(51);
    EXPECT_THROW(args.add(args), TEArgs::TOverflow);
    EXPECT_EQ(args.size(), 51U);
}

TEST(TEArgs, TakesTheWordsOfAnotherThatFitExactly)
{
    TEArgs args = numbers(97);
    args.add(words({"a", "b", "c"}));
    EXPECT_EQ(args.size(), 100U);
    EXPECT_EQ(args[99], "c");
}

TEST(TEArgs, TakesNoWordsEvenWhenFull)
{
    TEArgs args = numbers(100);
    args.add(TEArgs());
    EXPECT_EQ(args.size(), 100U);
}

TEST(TEArgs, ShareTheirWordsAfterCopying)
{
    const TEArgs args = words({"a", "b"});
    const auto copy = std::make_unique<TEArgs>(args);
    TEArgs assigned = words({"x"});
    assigned = args;
    EXPECT_EQ(&(*copy)[0], &args[0]);
    EXPECT_EQ(&assigned[0], &args[0]);
}

TEST(TEArgs, AreIndependentOnceOneIsChanged)
{
    TEArgs args = words({"a"});
    TEArgs copy = args;
    copy.add("b");
    args.add(words({"c", "d"}));
    EXPECT_EQ(joined(args), "a;c;d;");
    EXPECT_EQ(joined(copy), "a;b;");
}

TEST(TEArgs, KeepTheirWordsInPlaceWhileNobodySharesThem)
{
    TEArgs args = words({"a", "b", "c"}); // there is room for a fourth
    const std::string* const place = &args[0];
    args.add("d");
    EXPECT_EQ(&args[0], place);
}

TEST(TEArgs, KeepTheirWordsInPlaceOnceTheOtherOwnerIsGone)
{
    TEArgs args = words({"a", "b", "c"});
    auto copy = std::make_unique<TEArgs>(args);
    copy.reset();
    const std::string* const place = &args[0];
    args.add("d");
    EXPECT_EQ(&args[0], place);
}

TEST(TEArgs, StaySharedWhenAWordIsRefused)
{
    TEArgs args = numbers(100);
    const TEArgs copy = args;
    EXPECT_THROW(args.add("x"), TEArgs::TOverflow);
    EXPECT_THROW(args.add(std::string("x")), TEArgs::TOverflow);
    EXPECT_THROW(args.add(words({"x", "y"})), TEArgs::TOverflow);
    EXPECT_EQ(&args[0], &copy[0]);
}

TEST(TEArgs, SurviveAssignmentToThemselves)
{
    TEArgs args = words({"a", "b"});
    const TEArgs& same = args;
    args = same;
    EXPECT_EQ(joined(args), "a;b;");
}

TEST(TEArgs, AreAsGoodAsBeforeAfterBeingMovedFrom)
{
    TEArgs args = words({"a"});
    TEArgs taken = std::move(args); // NOLINT(performance-move-const-arg)
    args.add("b");                  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(joined(args), "a;b;");
    EXPECT_EQ(joined(taken), "a;");
}

TEST(TEArgs, NameTheIndexThatIsOutOfRange)
{
    const TEArgs args = words({"a", "b"});
    EXPECT_EQ(textOf<TEArgs::TOutOfRange>([&] { (void)args[2]; }), "Wrong index (index = 2)");
    EXPECT_EQ(textOf<TEArgs::TOutOfRange>([&] { (void)args[-1]; }), "Wrong index (index = -1)");
    EXPECT_EQ(textOf<TEArgs::TOutOfRange>([&] { (void)args[INT_MIN]; }),
        "Wrong index (index = -2147483648)");
    EXPECT_EQ(textOf<TEArgs::TOutOfRange>([] { (void)TEArgs()[0]; }), "Wrong index (index = 0)");
}

TEST(TEArgs, CarryTheIndexThatIsOutOfRange)
{
    const TEArgs args = words({"a", "b"});
    try {
        (void)args[7];
        FAIL() << "nothing was thrown";
    } catch (const TEArgs::TOutOfRange& error) {
        EXPECT_EQ(error.index(), 7);
        EXPECT_EQ(error.errorCode(), 0);
        EXPECT_EQ(joined(error.args()), "a;b;");
    }
}

TEST(TEArgs, RaiseErrorsOfTheExecutorsFamily)
{
    TEArgs args = numbers(100);
    EXPECT_THROW(args.add("x"), TEArgs::TEArgsError);
    EXPECT_THROW(args.add("x"), zelto::sys::TSysErr);
    EXPECT_THROW((void)args[100], TEArgs::TEArgsError);
    EXPECT_THROW((void)args[100], zelto::TError);
}

TEST(TEArgsError, KeepsTheWordsAsTheyWereWhateverBecomesOfTheOriginal)
{
    auto args = std::make_unique<TEArgs>(numbers(99));
    try {
        args->add(words({"a", "b"}));
        FAIL() << "nothing was thrown";
    } catch (const TEArgs::TOverflow& error) {
        EXPECT_EQ(&error.args()[0], &(*args)[0]);
        args->add("new");
        EXPECT_EQ(args->size(), 100U);
        EXPECT_EQ(error.args().size(), 99U);
        args.reset();
        EXPECT_EQ(error.args()[98], "98");
        EXPECT_EQ(error.errorCode(), 0);
    }
}

TEST(TEArgsError, CanBeCopied)
{
    std::unique_ptr<TEArgs::TOutOfRange> copy;
    try {
        (void)words({"a"})[5];
    } catch (const TEArgs::TOutOfRange& error) {
        copy = std::make_unique<TEArgs::TOutOfRange>(error);
    }
    ASSERT_NE(copy, nullptr);
    EXPECT_STREQ(copy->what(), "Wrong index (index = 5)");
    EXPECT_EQ(copy->index(), 5);
    EXPECT_EQ(joined(copy->args()), "a;");
}

TEST(TEArgsExecute, HandsEveryWordOverAsItIs)
{
    const Outcome outcome = inChild([] {
        words({"/bin/sh", "-c", R"(printf '<%s>' "$0" "$@")", "", "a b", "$x\n'"}).execute(false);
        _exit(99);
    });
    EXPECT_EQ(outcome.out, "<><a b><$x\n'>");
    EXPECT_EQ(outcome.status, 0);
}

TEST(TEArgsExecute, EndsAWordAtItsFirstNul)
{
    const Outcome outcome = inChild([] {
        words({"/bin/echo"}).add(std::string("ab\0cd", 5)).execute(false);
        _exit(99);
    });
    EXPECT_EQ(outcome.out, "ab\n");
}

TEST(TEArgsExecute, LooksTheProgramUpOnPathWhenAsked)
{
    const Outcome outcome = inChild([] {
        words({"echo", "found"}).execute(true);
        _exit(99);
    });
    EXPECT_EQ(outcome.out, "found\n");
}

TEST(TEArgsExecute, DoesNotLookTheProgramUpOtherwise)
{
    const Outcome outcome = inChild([] { // which "echo" would replace
        errno = 0;
        _exit(words({"echo", "found"}).execute(false) == -1 && errno == ENOENT ? 7 : 1);
    });
    EXPECT_EQ(outcome.status, 7);
    EXPECT_EQ(outcome.out, "");
}

TEST(TEArgsExecute, ReportsWhyAProgramCannotBeExecuted)
{
    errno = 0;
    EXPECT_EQ(words({"/"}).execute(true), -1);
    EXPECT_EQ(errno, EACCES);
}

TEST(TEArgsExecute, FailsWithoutWords)
{
    errno = 0;
    EXPECT_EQ(TEArgs().execute(false), -1);
    EXPECT_EQ(errno, EFAULT);
    errno = 0;
    EXPECT_EQ(TEArgs().execute(true), -1);
    EXPECT_EQ(errno, EFAULT);
}

TEST(TEArgsExecute, ThrowsWithoutTheMemoryForItsCopies)
{
    const TEArgs args = words({"/no/such/program", "a", "b"});
    for (int nth = 1; nth <= 5; ++nth) {
        const FailingNew failing(nth);
        EXPECT_THROW(args.execute(false), std::bad_alloc) << nth;
    }
}
