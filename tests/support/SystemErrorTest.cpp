#include <cerrno>
#include <gtest/gtest.h>

#include "support/SystemError.h"

TEST(SystemError, TheMessageIsFollowedByTheSystemsText)
{
    EXPECT_STREQ(zelto::SystemError("x", 13).what(), "x: Permission denied");
}
