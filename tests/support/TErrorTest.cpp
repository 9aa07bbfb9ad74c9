#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

#include "support/TError.h"
#include "support/TSysErr.h"
#include "tests/lib/FailingNew.h"
#include "tests/support/VirtualSlot.h"

using zelto::TError;
using zelto::sys::TSysErr;

static_assert(std::is_convertible_v<TError*, std::exception*>);
static_assert(!std::is_base_of_v<std::runtime_error, TError>);
static_assert(std::is_convertible_v<TSysErr*, TError*>);
static_assert(sizeof(TSysErr) == sizeof(TError));
static_assert(std::has_virtual_destructor_v<TError::Detail>);

namespace
{

class Attached : public TError::Detail
{
public:
    explicit Attached(int* deletions) : deletions_(deletions) {}
    Attached(const Attached&) = delete;
    Attached& operator=(const Attached&) = delete;
    ~Attached() override { ++*deletions_; }

private:
    int* deletions_;
};

TError withAttached(int* deletions)
{
    return TError("text", std::make_unique<Attached>(deletions));
}

template<class Handled, class Error>
std::string caughtAs(const Error& error)
{
    try {
        throw Error(error);
    } catch (const Handled& caught) {
        return caught.what();
    } catch (...) {
        return "not caught";
    }
}

} // namespace

TEST(TError, ItsTextIsTheMessage)
{
    EXPECT_STREQ(TError("it went wrong").what(), "it went wrong");
    EXPECT_STREQ(TError("").what(), "");
}

TEST(TError, ACopyOutlivesItsOriginal)
{
    TError copy("");
    {
        const TError original("a message that is too long for a short string");
        copy = original;
    }
    EXPECT_STREQ(copy.what(), "a message that is too long for a short string");
}

TEST(TError, CountsItselfAlsoWithoutAnAttachedObject)
{
    const TError error("text");
    EXPECT_EQ(error.detail(), nullptr);
    EXPECT_EQ(error.detail().use_count(), 1);
    const TError copy(error); // NOLINT(performance-unnecessary-copy-initialization): it is counted
    EXPECT_EQ(error.detail().use_count(), 2);
    EXPECT_EQ(copy.detail().use_count(), 2);
}

TEST(TError, CopiesShareTheAttachedObject)
{
    int deletions = 0;
    const TError error = withAttached(&deletions);
    EXPECT_EQ(error.detail().use_count(), 1);
    const TError copy(error); // NOLINT(performance-unnecessary-copy-initialization): it is counted
    EXPECT_EQ(copy.detail().get(), error.detail().get());
    EXPECT_EQ(copy.detail().use_count(), 2);
}

TEST(TError, TheLastOfThreeCopiesDeletesTheAttachedObjectOnce)
{
    int deletions = 0;
    auto first = std::make_unique<TError>(withAttached(&deletions));
    auto second = std::make_unique<TError>(*first);
    auto third = std::make_unique<TError>(*second);
    EXPECT_EQ(third->detail().use_count(), 3);
    first.reset();
    third.reset();
    EXPECT_EQ(deletions, 0);
    EXPECT_EQ(second->detail().use_count(), 1);
    second.reset();
    EXPECT_EQ(deletions, 1);
}

TEST(TError, AssignmentLetsGoOfTheFormerObject)
{
    int former = 0;
    int later = 0;
    TError error = withAttached(&former);
    {
        const TError other = withAttached(&later);
        error = other;
        EXPECT_EQ(former, 1);
    }
    EXPECT_EQ(later, 0);
    EXPECT_EQ(error.detail().use_count(), 1);
}

TEST(TError, AssignmentToItselfChangesNothing)
{
    int deletions = 0;
    TError error = withAttached(&deletions);
    const TError& same = error;
    error = same;
    EXPECT_EQ(deletions, 0);
    EXPECT_EQ(error.detail().use_count(), 1);
    EXPECT_STREQ(error.what(), "text");
}

TEST(TError, TheAttachedObjectIsFreedWhenThereIsNoMemoryForTheCount)
{
    int deletions = 0;
    auto attached = std::make_unique<Attached>(&deletions);
    const FailingNew failing;
    EXPECT_THROW({ const TError error("text", std::move(attached)); }, std::bad_alloc);
    EXPECT_EQ(deletions, 1);
}

TEST(TError, IsNotCaughtAsARuntimeError)
{
    EXPECT_EQ(caughtAs<std::runtime_error>(TError("text")), "not caught");
    EXPECT_EQ(caughtAs<std::exception>(TError("text")), "text");
}

TEST(TError, ItsTextComesRightAfterTheDestructorInItsTable)
{
    EXPECT_EQ(virtualSlot(&TError::what), 2);
    EXPECT_EQ(virtualSlot(&TSysErr::what), 2);
}

TEST(TSysErr, CarriesAMessageAndAnObjectLikeItsBase)
{
    int deletions = 0;
    {
        const TSysErr error("text", std::make_unique<Attached>(&deletions));
        EXPECT_STREQ(error.what(), "text");
        EXPECT_NE(error.detail(), nullptr);
    }
    EXPECT_EQ(deletions, 1);
}

TEST(TSysErr, IsCaughtAsTErrorAndNotAsARuntimeError)
{
    EXPECT_EQ(caughtAs<TError>(TSysErr("text")), "text");
    EXPECT_EQ(caughtAs<std::runtime_error>(TSysErr("text")), "not caught");
}
