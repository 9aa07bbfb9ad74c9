#include <boost/format.hpp>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>

#include "support/ExTraceable.h"
#include "support/SystemError.h"
#include "tests/lib/FailingNew.h"
#include "tests/support/RecordingVisitor.h"
#include "tests/support/VirtualSlot.h"

using zelto::ExTraceable;

static_assert(std::is_abstract_v<Cloneable> && std::has_virtual_destructor_v<Cloneable>);
static_assert(
    std::is_abstract_v<zelto::ExVisitable> && std::has_virtual_destructor_v<zelto::ExVisitable>);
static_assert(
    std::is_abstract_v<zelto::ExVisitor> && std::has_virtual_destructor_v<zelto::ExVisitor>);
static_assert(std::is_convertible_v<ExTraceable*, Cloneable*>);
static_assert(std::is_convertible_v<ExTraceable*, zelto::ExVisitable*>);
static_assert(std::is_convertible_v<ExTraceable*, std::runtime_error*>);
static_assert(!std::is_base_of_v<zelto::SystemError, ExTraceable>);

namespace
{

/// Two texts that no string holds without memory of its own.
constexpr char longName[] = "a name that is too long for a short string";
constexpr char longText[] = "a text that is too long for a short string";

ExTraceable copyFailure()
{
    ExTraceable report("CopyFailed", "%1% not copied to %2%");
    report.trace() % "a" % "b";
    return report;
}

template<class Handled>
std::string textAsSeenBy()
{
    try {
        throw copyFailure();
    } catch (const Handled& report) {
        return report.what();
    }
}

std::unique_ptr<ExTraceable> cloned(const ExTraceable& report)
{
    std::unique_ptr<Cloneable> copy(report.clone());
    return std::unique_ptr<ExTraceable>(&dynamic_cast<ExTraceable&>(*copy.release()));
}

/// Ends the visit with an exception.
class FailingVisitor : public RecordingVisitor
{
public:
    void visitTrace(const std::string&) override { throw std::out_of_range("enough"); }
};

/// How often the body found no memory until it had all that it asked for.
template<class Body>
int failuresOf(Body body)
{
    for (int nth = 1;; ++nth) {
        try {
            const FailingNew failing(nth);
            body();
            return nth - 1;
        } catch (const std::bad_alloc&) {
            continue;
        }
    }
}

std::ptrdiff_t distance(const void* object, const void* part)
{
    return static_cast<const char*>(part) - static_cast<const char*>(object);
}

} // namespace

TEST(ExTraceable, ItsTextIsTheFormattedTraceAndNotTheName)
{
    EXPECT_STREQ(copyFailure().what(), "a not copied to b");
}

TEST(ExTraceable, TheNameIsTheTextOfTheBaseClass)
{
    const ExTraceable report = copyFailure();
    EXPECT_STREQ(report.std::runtime_error::what(), "CopyFailed");
}

TEST(ExTraceable, AFormatWithoutPlaceholdersIsTheText)
{
    EXPECT_STREQ(ExTraceable("n", "plain").what(), "plain");
    EXPECT_STREQ(ExTraceable("n", "").what(), "");
}

TEST(ExTraceable, ArgumentsMayHoldPercentSigns)
{
    ExTraceable report("n", "<%1%>");
    report.trace() % "100% %2% %%";
    EXPECT_STREQ(report.what(), "<100% %2% %%>");
}

TEST(ExTraceable, CanBeAskedAgainAndAgain)
{
    const ExTraceable report = copyFailure();
    for (int i = 0; i < 3; ++i) {
        EXPECT_STREQ(report.what(), "a not copied to b");
    }
}

TEST(ExTraceable, FeedingAfterTheTextWasAskedForStartsAnew)
{
    ExTraceable report = copyFailure();
    EXPECT_STREQ(report.what(), "a not copied to b");
    report.trace() % "c";
    EXPECT_STREQ(report.what(), "CopyFailed");
    report.trace() % "d";
    EXPECT_STREQ(report.what(), "c not copied to d");
}

TEST(ExTraceable, AFormatThatLacksArgumentsAnswersWithTheName)
{
    ExTraceable report("CopyFailed", "%1% not copied to %2%");
    EXPECT_STREQ(report.what(), "CopyFailed");
    report.trace() % "a";
    EXPECT_STREQ(report.what(), "CopyFailed");
}

TEST(ExTraceable, AnsweringWithTheNameLosesNoArgument)
{
    ExTraceable report("CopyFailed", "%1% not copied to %2%");
    report.trace() % "a";
    EXPECT_STREQ(report.what(), "CopyFailed");
    report.trace() % "b";
    EXPECT_STREQ(report.what(), "a not copied to b");
}

TEST(ExTraceable, WithoutMemoryItAnswersWithTheName)
{
    ExTraceable report(longName, "%1%");
    report.trace() % longText;
    {
        const FailingNew failing;
        EXPECT_STREQ(report.what(), longName);
    }
    EXPECT_STREQ(report.what(), longText);
}

TEST(ExTraceable, TheTextOfOneIsNotTouchedByAnother)
{
    const ExTraceable one("n", longText);
    const char* const text = one.what();
    {
        const ExTraceable other("n", "another text that is too long for a short string");
        EXPECT_STREQ(other.what(), "another text that is too long for a short string");
        const auto copy = std::make_unique<ExTraceable>(one);
        EXPECT_NE(copy->what(), text);
    }
    EXPECT_STREQ(text, longText);
}

TEST(ExTraceable, ATextThatIsNoFormatIsRefused)
{
    for (const char* text : {"%", "100%"}) {
        EXPECT_THROW({ const ExTraceable report(longName, text); }, boost::io::bad_format_string);
    }
}

TEST(ExTraceable, AVisitorIsToldTheNameAndThenTheText)
{
    EXPECT_EQ(visitOf(copyFailure()), (Visit{"message CopyFailed", "trace a not copied to b"}));
}

TEST(ExTraceable, AVisitorIsToldTheNameTwiceWhereTheFormatLacksArguments)
{
    const ExTraceable report("CopyFailed", "%1%");
    EXPECT_EQ(visitOf(report), (Visit{"message CopyFailed", "trace CopyFailed"}));
}

TEST(ExTraceable, AVisitorIsToldTheWholeTextWithItsNuls)
{
    ExTraceable report("n", "<%1%>");
    report.trace() % std::string("a\0b", 3);
    EXPECT_EQ(visitOf(report), (Visit{"message n", std::string("trace <a\0b>", 11)}));
    EXPECT_STREQ(report.what(), "<a");
}

TEST(ExTraceable, AVisitDoesNotTouchTheTextGivenOutBefore)
{
    const ExTraceable report("n", longText);
    const char* const text = report.what();
    (void)visitOf(report);
    EXPECT_STREQ(text, longText);
}

TEST(ExTraceable, WhatAVisitorThrowsReachesTheCaller)
{
    FailingVisitor visitor;
    EXPECT_THROW(copyFailure().accept(visitor), std::out_of_range);
    EXPECT_EQ(visitor.told(), Visit{"message CopyFailed"});
}

TEST(ExTraceable, AVisitWithoutMemoryThrowsBadAlloc)
{
    ExTraceable report(longName, "%1%");
    report.trace() % longText;
    EXPECT_GE(failuresOf([&] { (void)visitOf(report); }), 2);
}

TEST(ExTraceable, ACloneTellsTheSameAndOutlivesItsOriginal)
{
    std::unique_ptr<ExTraceable> clone;
    {
        ExTraceable report(longName, "%1%");
        report.trace() % longText;
        clone = cloned(report);
    }
    EXPECT_EQ(typeid(*clone), typeid(ExTraceable));
    EXPECT_STREQ(clone->what(), longText);
    EXPECT_STREQ(clone->std::runtime_error::what(), longName);
}

TEST(ExTraceable, ACloneTakesTheArgumentsFedSoFar)
{
    ExTraceable report("CopyFailed", "%1% not copied to %2%");
    report.trace() % "a";
    const std::unique_ptr<ExTraceable> clone = cloned(report);
    clone->trace() % "c";
    report.trace() % "b";
    EXPECT_STREQ(clone->what(), "a not copied to c");
    EXPECT_STREQ(report.what(), "a not copied to b");
}

TEST(ExTraceable, ACopyIsFedOnItsOwn)
{
    ExTraceable report = copyFailure();
    ExTraceable other("Other", "other");
    other = report;
    EXPECT_STREQ(report.what(), "a not copied to b");
    report.trace() % "c" % "d";
    EXPECT_STREQ(other.what(), "a not copied to b");
    EXPECT_STREQ(report.what(), "c not copied to d");
    EXPECT_STREQ(other.std::runtime_error::what(), "CopyFailed");
}

TEST(ExTraceable, ACloneWithoutMemoryThrowsBadAlloc)
{
    ExTraceable report(longName, "%1%");
    report.trace() % longText;
    EXPECT_GE(failuresOf([&] { (void)cloned(report); }), 2);
    EXPECT_STREQ(report.what(), longText);
}

TEST(ExTraceable, CanBeCaughtByEachOfItsClasses)
{
    EXPECT_EQ(textAsSeenBy<ExTraceable>(), "a not copied to b");
    EXPECT_EQ(textAsSeenBy<std::runtime_error>(), "a not copied to b");
    EXPECT_EQ(textAsSeenBy<std::exception>(), "a not copied to b");
}

TEST(ExTraceable, ItsBasesKeepTheOrderThatCallersWereBuiltWith)
{
    const ExTraceable report = copyFailure();
    const std::ptrdiff_t visitable =
        distance(&report, static_cast<const zelto::ExVisitable*>(&report));
    const std::ptrdiff_t error = distance(&report, static_cast<const std::runtime_error*>(&report));
    EXPECT_EQ(distance(&report, static_cast<const Cloneable*>(&report)), 0);
    EXPECT_GT(visitable, 0);
    EXPECT_GT(error, visitable);
}

TEST(ExTraceable, ItsVirtualFunctionsKeepTheOrderThatCallersWereBuiltWith)
{
    EXPECT_EQ(virtualSlot(&Cloneable::clone), 2);
    EXPECT_EQ(virtualSlot(&zelto::ExVisitable::accept), 2);
    EXPECT_EQ(virtualSlot(&ExTraceable::clone), 2);
    EXPECT_EQ(virtualSlot(&ExTraceable::what), 3);
    EXPECT_EQ(virtualSlot(&ExTraceable::accept), 4);
}

TEST(ExVisitor, ItsVirtualFunctionsKeepTheOrderThatCallersWereBuiltWith)
{
    using zelto::ExVisitor;
    EXPECT_EQ(virtualSlot(&ExVisitor::visitMessage), 2);
    EXPECT_EQ(virtualSlot(&ExVisitor::visitTrace), 3);
    EXPECT_EQ(virtualSlot(&ExVisitor::visitFunction), 4);
    EXPECT_EQ(virtualSlot(&ExVisitor::visitFile), 5);
    EXPECT_EQ(virtualSlot(&ExVisitor::visitLine), 6);
    EXPECT_EQ(virtualSlot(&ExVisitor::enterIncluded), 7);
}
