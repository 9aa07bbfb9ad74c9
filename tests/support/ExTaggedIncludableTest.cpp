#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "support/ExTaggedIncludable.h"
#include "tests/support/RecordingVisitor.h"
#include "tests/support/VirtualSlot.h"

using zelto::ExTaggedIncludable;
using zelto::ExTraceable;

static_assert(std::is_convertible_v<ExTaggedIncludable*, ExTraceable*>);

namespace
{

using Nested = std::unique_ptr<ExTraceable>;

/// Counts how many of its kind there are and how many were ever made.
class Counted : public ExTraceable
{
public:
    Counted() : ExTraceable("Inner", "inner text") { count(); }
    Counted(const Counted& from) : ExTraceable(from) { count(); }
    Counted& operator=(const Counted&) = delete;
    ~Counted() override { --alive; }

    [[nodiscard]] Cloneable* clone() const override
    {
        return std::make_unique<Counted>(*this).release();
    }

    static void reset() { alive = made = 0; }

    static inline int alive = 0;
    static inline int made = 0;

private:
    static void count()
    {
        ++alive;
        ++made;
    }
};

/// A copy that is no report.
class Decoy : public Cloneable
{
public:
    Decoy() { ++alive; }
    Decoy(const Decoy&) = delete;
    Decoy& operator=(const Decoy&) = delete;
    ~Decoy() override { --alive; }
    [[nodiscard]] Cloneable* clone() const override { return nullptr; }

    static inline int alive = 0;
};

/// Cannot be cloned: makes what the function makes.
class Uncloneable : public ExTraceable
{
public:
    explicit Uncloneable(Cloneable* (*make)()) : ExTraceable("Inner", "inner text"), make_(make) {}
    [[nodiscard]] Cloneable* clone() const override { return make_(); }

private:
    Cloneable* (*make_)();
};

class ExTaggedIncludableTest : public ::testing::Test
{
protected:
    ExTaggedIncludableTest()
    {
        Counted::reset();
        Decoy::alive = 0;
    }
};

ExTaggedIncludable outer(Nested nested)
{
    ExTaggedIncludable report("Outer", "outer %1%", std::move(nested));
    report.trace() % "text";
    return report;
}

Nested cloned(const ExTraceable& report)
{
    std::unique_ptr<Cloneable> copy(report.clone());
    return Nested(&dynamic_cast<ExTraceable&>(*copy.release()));
}

const Visit outerAndInner = {
    "message Outer", "trace outer text", "included", "message Inner", "trace inner text"};

template<class Error>
void expectNoCopyOf(Cloneable* (*makeClone)())
{
    const ExTaggedIncludable report = outer(std::make_unique<Uncloneable>(makeClone));
    EXPECT_THROW((void)cloned(report), Error);
    EXPECT_THROW((void)std::make_unique<ExTaggedIncludable>(report), Error);
    ExTaggedIncludable other("Other", "other text", nullptr);
    EXPECT_THROW(other = report, Error);
    EXPECT_EQ(visitOf(other), (Visit{"message Other", "trace other text"}));
}

} // namespace

using ExTaggedIncludableCopy = ExTaggedIncludableTest;
using ExTaggedIncludableVisit = ExTaggedIncludableTest;

TEST_F(ExTaggedIncludableTest, ItsTextIsItsOwnAlone)
{
    const ExTaggedIncludable report = outer(std::make_unique<Counted>());
    EXPECT_STREQ(report.what(), "outer text");
    EXPECT_STREQ(report.std::runtime_error::what(), "Outer");
}

TEST_F(ExTaggedIncludableTest, TakesTheNestedReportOver)
{
    auto nested = std::make_unique<Counted>();
    const ExTraceable* const address = nested.get();
    {
        const ExTaggedIncludable report("Outer", "outer text", std::move(nested));
        EXPECT_EQ(report.included(), address);
        EXPECT_EQ(Counted::made, 1);
    }
    EXPECT_EQ(Counted::alive, 0);
}

TEST_F(ExTaggedIncludableTest, HasNoNestedReportWhereThereIsNone)
{
    EXPECT_EQ(outer(nullptr).included(), nullptr);
}

TEST_F(ExTaggedIncludableTest, FreesTheNestedReportWhenItsTextIsNoFormat)
{
    EXPECT_THROW({ const ExTaggedIncludable report("Outer", "100%", std::make_unique<Counted>()); },
        boost::io::bad_format_string);
    EXPECT_EQ(Counted::made, 1);
    EXPECT_EQ(Counted::alive, 0);
}

TEST_F(ExTaggedIncludableTest, ThrownAndCopiedItFreesEachNestedReportOnce)
{
    try {
        throw outer(std::make_unique<Counted>());
    } catch (const ExTaggedIncludable& caught) {
        const auto copy = std::make_unique<ExTaggedIncludable>(caught);
        EXPECT_EQ(visitOf(*copy), outerAndInner);
        EXPECT_EQ(Counted::alive, 2);
    }
    EXPECT_EQ(Counted::alive, 0);
}

TEST_F(ExTaggedIncludableTest, InheritsItsTextAndKeepsTheOrderOfTheVirtualFunctions)
{
    EXPECT_EQ(virtualSlot(&ExTaggedIncludable::clone), 2);
    EXPECT_EQ(virtualSlot(&ExTaggedIncludable::what), 3);
    EXPECT_EQ(virtualSlot(&ExTaggedIncludable::accept), 4);
}

TEST_F(ExTaggedIncludableVisit, EndsAfterTheTextWithoutANestedReport)
{
    EXPECT_EQ(visitOf(outer(nullptr)), (Visit{"message Outer", "trace outer text"}));
}

TEST_F(ExTaggedIncludableVisit, GoesOnWithTheNestedReport)
{
    EXPECT_EQ(visitOf(outer(std::make_unique<Counted>())), outerAndInner);
}

TEST_F(ExTaggedIncludableVisit, GoesAllTheWayDown)
{
    auto middle =
        std::make_unique<ExTaggedIncludable>("Middle", "middle text", std::make_unique<Counted>());
    EXPECT_EQ(visitOf(outer(std::move(middle))),
        (Visit{"message Outer", "trace outer text", "included", "message Middle",
            "trace middle text", "included", "message Inner", "trace inner text"}));
}

TEST_F(ExTaggedIncludableCopy, OfAReportWithoutANestedOneHasNoneEither)
{
    const Nested clone = cloned(outer(nullptr));
    EXPECT_EQ(typeid(*clone), typeid(ExTaggedIncludable));
    EXPECT_EQ(dynamic_cast<ExTaggedIncludable&>(*clone).included(), nullptr);
    EXPECT_EQ(visitOf(*clone), (Visit{"message Outer", "trace outer text"}));
}

TEST_F(ExTaggedIncludableCopy, OwnsANestedReportOfItsOwnOfTheSameClass)
{
    Nested clone;
    {
        const ExTaggedIncludable report = outer(std::make_unique<Counted>());
        clone = cloned(report);
        EXPECT_EQ(Counted::alive, 2);
        EXPECT_NE(dynamic_cast<ExTaggedIncludable&>(*clone).included(), report.included());
    }
    EXPECT_EQ(Counted::alive, 1);
    const ExTraceable& nested = *dynamic_cast<ExTaggedIncludable&>(*clone).included();
    EXPECT_EQ(typeid(nested), typeid(Counted));
    EXPECT_EQ(visitOf(*clone), outerAndInner);
    clone.reset();
    EXPECT_EQ(Counted::alive, 0);
}

TEST_F(ExTaggedIncludableCopy, IsDeepAtEveryLevel)
{
    auto middle =
        std::make_unique<ExTaggedIncludable>("Middle", "middle text", std::make_unique<Counted>());
    const Nested clone = cloned(outer(std::move(middle)));
    EXPECT_EQ(Counted::alive, 1);
    EXPECT_EQ(visitOf(*clone),
        (Visit{"message Outer", "trace outer text", "included", "message Middle",
            "trace middle text", "included", "message Inner", "trace inner text"}));
}

TEST_F(ExTaggedIncludableCopy, ByAssignmentReplacesTheNestedReport)
{
    ExTaggedIncludable report("Old", "old", std::make_unique<Counted>());
    {
        const ExTaggedIncludable other = outer(std::make_unique<Counted>());
        report = other;
        EXPECT_EQ(Counted::alive, 2);
    }
    EXPECT_EQ(Counted::alive, 1);
    EXPECT_EQ(visitOf(report), outerAndInner);
}

TEST_F(ExTaggedIncludableCopy, ByAssignmentTakesTheNestedReportAwayToo)
{
    ExTaggedIncludable report("Old", "old", std::make_unique<Counted>());
    report = outer(nullptr);
    EXPECT_EQ(Counted::alive, 0);
    EXPECT_EQ(visitOf(report), (Visit{"message Outer", "trace outer text"}));
}

TEST_F(ExTaggedIncludableCopy, ByAssignmentToItselfChangesNothing)
{
    ExTaggedIncludable report = outer(std::make_unique<Counted>());
    const ExTaggedIncludable& same = report;
    report = same;
    EXPECT_EQ(Counted::alive, 1);
    EXPECT_EQ(visitOf(report), outerAndInner);
}

TEST_F(ExTaggedIncludableCopy, FailsWhereTheNestedReportCannotBeCopied)
{
    expectNoCopyOf<std::bad_alloc>([]() -> Cloneable* { throw std::bad_alloc(); });
    expectNoCopyOf<std::length_error>([]() -> Cloneable* { throw std::length_error("full"); });
}

TEST_F(ExTaggedIncludableCopy, FailsWhereTheNestedReportsCloneIsNoReport)
{
    expectNoCopyOf<std::bad_cast>(
        []() -> Cloneable* { return std::make_unique<Decoy>().release(); });
    EXPECT_EQ(Decoy::alive, 0);
    expectNoCopyOf<std::bad_cast>([]() -> Cloneable* { return nullptr; });
}
