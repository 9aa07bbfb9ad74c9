#include <cerrno>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "support/TSysCallErr.h"
#include "tests/support/VirtualSlot.h"

using zelto::TError;
using zelto::sys::TSysCallErr;
using zelto::sys::TSysErr;

static_assert(std::is_convertible_v<TSysCallErr*, TSysErr*>);
static_assert(!std::is_base_of_v<std::runtime_error, TSysCallErr>);

namespace
{

template<class Handled>
std::string caughtAs()
{
    errno = EMFILE;
    try {
        throw TSysCallErr();
    } catch (const Handled& error) {
        return error.what();
    } catch (...) {
        return "not caught";
    }
}

} // namespace

TEST(TSysCallErr, IsBuiltFromTheCurrentErrorNumber)
{
    errno = ECHILD;
    const TSysCallErr error;
    EXPECT_EQ(error.errorCode(), 10);
    EXPECT_STREQ(error.what(), "No child processes");
}

TEST(TSysCallErr, CanBeToldTheErrorNumber)
{
    errno = ECHILD;
    const TSysCallErr error(EINTR);
    EXPECT_EQ(error.errorCode(), 4);
    EXPECT_STREQ(error.what(), "Interrupted system call");
}

TEST(TSysCallErr, StaysTheSameWhenTheErrorNumberChanges)
{
    errno = EMFILE;
    const TSysCallErr error;
    errno = ENOENT;
    EXPECT_EQ(error.errorCode(), 24);
    EXPECT_STREQ(error.what(), "Too many open files");
}

TEST(TSysCallErr, HasNoAttachedObjectButACountOfOne)
{
    const TSysCallErr error(ENOENT);
    EXPECT_EQ(error.detail(), nullptr);
    EXPECT_EQ(error.detail().use_count(), 1);
}

TEST(TSysCallErr, ACopyTellsTheSame)
{
    TSysCallErr copy(EINTR);
    copy = TSysCallErr(ENOENT);
    EXPECT_EQ(copy.errorCode(), 2);
    EXPECT_STREQ(copy.what(), "No such file or directory");
}

TEST(TSysCallErr, IsCaughtAsTErrorAndNotAsARuntimeError)
{
    EXPECT_EQ(caughtAs<TSysCallErr>(), "Too many open files");
    EXPECT_EQ(caughtAs<TSysErr>(), "Too many open files");
    EXPECT_EQ(caughtAs<TError>(), "Too many open files");
    EXPECT_EQ(caughtAs<std::exception>(), "Too many open files");
    EXPECT_EQ(caughtAs<std::runtime_error>(), "not caught");
}

TEST(TSysCallErr, ItsTextComesRightAfterTheDestructorInItsTable)
{
    EXPECT_EQ(virtualSlot(&TSysCallErr::what), 2);
}
