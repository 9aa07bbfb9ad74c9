#include <cerrno>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>

#include "support/SystemError.h"
#include "support/TError.h"
#include "tests/lib/FailingNew.h"
#include "tests/support/VirtualSlot.h"

using zelto::ExSystemError;
using zelto::SystemError;
using zelto::throwSystemError;

static_assert(std::is_base_of_v<std::runtime_error, SystemError>);
static_assert(!std::is_base_of_v<zelto::TError, SystemError>);
static_assert(std::is_base_of_v<SystemError, ExSystemError<1>>);
static_assert(std::is_base_of_v<SystemError, ExSystemError<2>>);
static_assert(std::is_base_of_v<SystemError, ExSystemError<4>>);
static_assert(std::is_base_of_v<SystemError, ExSystemError<10>>);
static_assert(std::is_base_of_v<SystemError, ExSystemError<11>>);
static_assert(sizeof(ExSystemError<2>) == sizeof(SystemError));

namespace
{

/// A message that no string holds without memory of its own.
constexpr char longMessage[] = "a message that is too long for a short string";

/// What throwSystemError() threw.
struct Thrown {
    std::string type;
    int code = 0;
    std::string text;

    bool operator==(const Thrown&) const = default;
};

Thrown thrownFor(const std::string& message, int err)
{
    try {
        throwSystemError(message, err);
    } catch (const SystemError& error) {
        return {typeid(error).name(), error.errorCode(), error.what()};
    }
}

template<class Error>
Thrown a(int code, const std::string& text)
{
    return {typeid(Error).name(), code, text};
}

void PrintTo(const Thrown& thrown, std::ostream* os)
{
    *os << thrown.type << ' ' << thrown.code << " \"" << thrown.text << '"';
}

template<class Handled>
std::string textAsSeenBy(int err)
{
    try {
        throwSystemError("f", err);
    } catch (const Handled& error) {
        return error.what();
    }
}

} // namespace

TEST(SystemError, TheMessageIsFollowedByTheSystemsText)
{
    EXPECT_STREQ(SystemError("x", 13).what(), "x: Permission denied");
    EXPECT_STREQ(SystemError("/etc/kvo", 2).what(), "/etc/kvo: No such file or directory");
}

TEST(SystemError, AnEmptyMessageLeavesTheSystemsTextAlone)
{
    EXPECT_STREQ(SystemError("", 2).what(), "No such file or directory");
}

TEST(SystemError, AMessageThatEndsInASeparatorGetsAnother)
{
    EXPECT_STREQ(SystemError("a: ", 2).what(), "a: : No such file or directory");
}

TEST(SystemError, TheErrorNumber0HasATextToo)
{
    errno = ENOENT;
    EXPECT_STREQ(SystemError("x", 0).what(), "x: Success");
    EXPECT_EQ(SystemError("x", 0).errorCode(), 0);
}

TEST(SystemError, AnUnknownErrorNumberIsShown)
{
    EXPECT_STREQ(SystemError("x", 4711).what(), "x: Unknown error 4711");
    EXPECT_STREQ(SystemError("x", -1).what(), "x: Unknown error -1");
}

TEST(SystemError, KeepsTheErrorNumber)
{
    const SystemError error("x", 17);
    errno = EDOM;
    EXPECT_EQ(error.errorCode(), 17);
}

TEST(SystemError, ItsTextIsComposedOnceAndStaysTheSame)
{
    const SystemError error(longMessage, 13);
    errno = ENOENT;
    const char* const first = error.what();
    EXPECT_STREQ(first, "a message that is too long for a short string: Permission denied");
    errno = EINTR;
    EXPECT_EQ(error.what(), first);
    EXPECT_STREQ(first, "a message that is too long for a short string: Permission denied");
}

TEST(SystemError, TheBareMessageIsTheTextOfTheBaseClass)
{
    const SystemError error("x", 13);
    EXPECT_STREQ(error.what(), "x: Permission denied");
    EXPECT_STREQ(error.std::runtime_error::what(), "x");
}

TEST(SystemError, WithoutMemoryItsTextIsTheBareMessage)
{
    const SystemError error(longMessage, 13);
    for (int nth = 1; nth <= 2; ++nth) {
        const FailingNew failing(nth);
        EXPECT_STREQ(error.what(), longMessage) << "allocation " << nth;
    }
}

TEST(SystemError, WithoutMemoryAndWithoutAMessageItsTextIsEmpty)
{
    const SystemError error("", 2);
    const FailingNew failing;
    EXPECT_STREQ(error.what(), "");
}

TEST(SystemError, ItsTextIsWholeOnceThereIsMemoryAgain)
{
    const SystemError error(longMessage, 13);
    for (int nth = 1; nth <= 2; ++nth) {
        const FailingNew failing(nth);
        (void)error.what();
    }
    EXPECT_STREQ(error.what(), "a message that is too long for a short string: Permission denied");
}

TEST(SystemError, ACopyOutlivesItsOriginal)
{
    SystemError copy("", 0);
    {
        const SystemError original(longMessage, 13);
        (void)original.what();
        copy = original;
    }
    EXPECT_EQ(copy.errorCode(), 13);
    EXPECT_STREQ(copy.what(), "a message that is too long for a short string: Permission denied");
}

TEST(SystemError, TheTextComesRightAfterTheDestructorInItsTable)
{
    EXPECT_EQ(virtualSlot(&SystemError::what), 2);
}

TEST(ThrowSystemError, FiveErrorNumbersHaveAClassOfTheirOwn)
{
    EXPECT_EQ(thrownFor("x", 1), a<ExSystemError<1>>(1, "x: Operation not permitted"));
    EXPECT_EQ(thrownFor("x", 2), a<ExSystemError<2>>(2, "x: No such file or directory"));
    EXPECT_EQ(thrownFor("x", 4), a<ExSystemError<4>>(4, "x: Interrupted system call"));
    EXPECT_EQ(thrownFor("x", 10), a<ExSystemError<10>>(10, "x: No child processes"));
    EXPECT_EQ(thrownFor("x", EWOULDBLOCK),
        a<ExSystemError<11>>(11, "x: Resource temporarily unavailable"));
}

TEST(ThrowSystemError, EveryOtherErrorNumberIsAPlainSystemError)
{
    EXPECT_EQ(thrownFor("x", EACCES), a<SystemError>(13, "x: Permission denied"));
    EXPECT_EQ(thrownFor("x", EEXIST), a<SystemError>(17, "x: File exists"));
    EXPECT_EQ(thrownFor("x", ENOTDIR), a<SystemError>(20, "x: Not a directory"));
    for (int err = -3; err < 200; ++err) {
        const bool ofItsOwn = err == 1 || err == 2 || err == 4 || err == 10 || err == 11;
        if (err != 0 && !ofItsOwn) {
            EXPECT_EQ(thrownFor("", err).type, typeid(SystemError).name()) << err;
            EXPECT_EQ(thrownFor("", err).code, err);
        }
        EXPECT_EQ(zelto::hasExSystemError(err), ofItsOwn) << err;
    }
}

TEST(ThrowSystemError, For0TheErrorNumberIsTheCurrentOne)
{
    errno = 13;
    EXPECT_EQ(thrownFor("x", 0), a<SystemError>(13, "x: Permission denied"));
}

TEST(ThrowSystemError, For0ItIsAPlainSystemErrorWhateverTheCurrentErrorNumber)
{
    for (const int current : {1, 2, 4, 10, 11, 13}) {
        errno = current;
        const Thrown thrown = thrownFor("x", 0);
        EXPECT_EQ(thrown.type, typeid(SystemError).name()) << current;
        EXPECT_EQ(thrown.code, current);
    }
    errno = 2;
    EXPECT_EQ(thrownFor("x", 0), a<SystemError>(2, "x: No such file or directory"));
}

TEST(ThrowSystemError, AGivenErrorNumberCountsWhateverTheCurrentOne)
{
    errno = 2;
    EXPECT_EQ(thrownFor("x", 13), a<SystemError>(13, "x: Permission denied"));
    errno = 13;
    EXPECT_EQ(thrownFor("", 2), a<ExSystemError<2>>(2, "No such file or directory"));
}

TEST(ThrowSystemError, WhatIsThrownCanBeCaughtByEachOfItsClasses)
{
    EXPECT_EQ(textAsSeenBy<ExSystemError<2>>(2), "f: No such file or directory");
    EXPECT_EQ(textAsSeenBy<SystemError>(2), "f: No such file or directory");
    EXPECT_EQ(textAsSeenBy<std::runtime_error>(2), "f: No such file or directory");
    EXPECT_EQ(textAsSeenBy<std::exception>(13), "f: Permission denied");
}

TEST(ThrowSystemError, WithoutMemoryItThrowsBadAlloc)
{
    const std::string message(longMessage);
    for (const int err : {1, 2, 4, 10, 11, 13}) {
        const FailingNew failing;
        EXPECT_THROW(throwSystemError(message, err), std::bad_alloc) << err;
    }
}
