#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>

#include "tests/lib/PrivateMounts.h"

namespace
{

bool onlyLists(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--gtest_list_tests", 18) == 0) {
            return true;
        }
    }
    return false;
}

} // namespace

int main(int argc, char** argv)
{
    const bool listing = onlyLists(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    if (!listing) {
        enterPrivateMountNamespace();
    }
    return RUN_ALL_TESTS();
}
