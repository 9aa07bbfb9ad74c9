#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "support/Exc.h"
#include "tests/lib/FailingNew.h"
#include "tests/support/RecordingVisitor.h"
#include "tests/support/VirtualSlot.h"

using zelto::Exc;
using zelto::ExTaggedIncludable;
using zelto::ExTraceable;

/// The kinds of failure; never called.
struct Kinds {
    static void readFailed(bool) {}
    static void writeFailed(bool) {}
};

using ReadFailure = Exc<&Kinds::readFailed>;
using WriteFailure = Exc<&Kinds::writeFailed>;

static_assert(std::is_convertible_v<ReadFailure*, ExTaggedIncludable*>);
static_assert(!std::is_base_of_v<WriteFailure, ReadFailure>);

namespace
{

ReadFailure readFailure(std::unique_ptr<ExTraceable> included = nullptr)
{
    ReadFailure report("ReadFailed", "%1% bytes of %2% were read", std::move(included),
        "void reader::read(int)", "reader.cpp", 49);
    report.trace() % 3 % "/etc/kvo/kvo.conf";
    return report;
}

std::unique_ptr<ExTraceable> writeFailure()
{
    return std::make_unique<WriteFailure>(
        "WriteFailed", "disk full", nullptr, "void writer::write(int)", "writer.cpp", 7);
}

const Visit readVisit = {"function void reader::read(int)", "file reader.cpp", "line 49",
    "message ReadFailed", "trace 3 bytes of /etc/kvo/kvo.conf were read"};

const Visit nestedVisit = {"function void reader::read(int)", "file reader.cpp", "line 49",
    "message ReadFailed", "trace 3 bytes of /etc/kvo/kvo.conf were read", "included",
    "function void writer::write(int)", "file writer.cpp", "line 7", "message WriteFailed",
    "trace disk full"};

/// What a caller sees that singles out one kind.
template<class Report>
std::string caughtAs(const Report& report)
{
    try {
        throw Report(report);
    } catch (const WriteFailure&) {
        return "write failure";
    } catch (const ReadFailure&) {
        return "read failure";
    } catch (const std::exception&) {
        return "something else";
    }
}

template<class Handled>
std::string textAsSeenBy()
{
    try {
        throw readFailure();
    } catch (const Handled& report) {
        return report.what();
    }
}

std::unique_ptr<ExTraceable> cloned(const ExTraceable& report)
{
    std::unique_ptr<Cloneable> copy(report.clone());
    return std::unique_ptr<ExTraceable>(&dynamic_cast<ExTraceable&>(*copy.release()));
}

} // namespace

TEST(Exc, KnowsThePlaceThatRaisedIt)
{
    const ReadFailure report = readFailure();
    EXPECT_EQ(report.function(), "void reader::read(int)");
    EXPECT_EQ(report.file(), "reader.cpp");
    EXPECT_EQ(report.line(), 49);
}

TEST(Exc, ItsTextIsTheFormattedTraceAndItsNameTheTextOfTheBaseClass)
{
    const ReadFailure report = readFailure();
    EXPECT_STREQ(report.what(), "3 bytes of /etc/kvo/kvo.conf were read");
    EXPECT_STREQ(report.std::runtime_error::what(), "ReadFailed");
}

TEST(Exc, AVisitorIsToldThePlaceAheadOfNameAndText)
{
    EXPECT_EQ(visitOf(readFailure()), readVisit);
}

TEST(Exc, AVisitorIsToldTheNestedReportLast)
{
    EXPECT_EQ(visitOf(readFailure(writeFailure())), nestedVisit);
}

TEST(Exc, CanBeCaughtByItsTagAlone)
{
    EXPECT_EQ(caughtAs(readFailure()), "read failure");
    EXPECT_EQ(caughtAs(dynamic_cast<const WriteFailure&>(*writeFailure())), "write failure");
    EXPECT_EQ(caughtAs(ExTaggedIncludable("n", "t", nullptr)), "something else");
}

TEST(Exc, CanBeCaughtByEachOfItsClasses)
{
    EXPECT_EQ(textAsSeenBy<ExTaggedIncludable>(), "3 bytes of /etc/kvo/kvo.conf were read");
    EXPECT_EQ(textAsSeenBy<ExTraceable>(), "3 bytes of /etc/kvo/kvo.conf were read");
    EXPECT_EQ(textAsSeenBy<std::runtime_error>(), "3 bytes of /etc/kvo/kvo.conf were read");
}

TEST(Exc, ACloneHasTheSameClassAndTellsTheSame)
{
    std::unique_ptr<ExTraceable> clone;
    {
        const ReadFailure report = readFailure(writeFailure());
        clone = cloned(report);
        EXPECT_NE(dynamic_cast<ReadFailure&>(*clone).included(), report.included());
    }
    EXPECT_EQ(typeid(*clone), typeid(ReadFailure));
    const ExTraceable& nested = *dynamic_cast<ReadFailure&>(*clone).included();
    EXPECT_EQ(typeid(nested), typeid(WriteFailure));
    EXPECT_EQ(visitOf(*clone), nestedVisit);
}

TEST(Exc, AnotherReportIsCopiedByAssignment)
{
    ReadFailure report("n", "t", writeFailure(), "f", "s", 1);
    report = readFailure();
    EXPECT_EQ(visitOf(report), readVisit);
    EXPECT_EQ(report.line(), 49);
}

TEST(Exc, ACloneWithoutMemoryThrowsBadAllocWhereverThatHappens)
{
    const ReadFailure report = readFailure(writeFailure());
    int failures = 0;
    for (bool done = false; !done;) {
        try {
            const FailingNew failing(failures + 1);
            (void)cloned(report);
            done = true;
        } catch (const std::bad_alloc&) {
            ++failures;
        }
    }
    EXPECT_GE(failures, 5); // two reports, their texts, and the place
    EXPECT_EQ(visitOf(report), nestedVisit);
}

TEST(Exc, KeepsTheOrderOfTheVirtualFunctions)
{
    EXPECT_EQ(virtualSlot(&ReadFailure::clone), 2);
    EXPECT_EQ(virtualSlot(&ReadFailure::what), 3);
    EXPECT_EQ(virtualSlot(&ReadFailure::accept), 4);
}
