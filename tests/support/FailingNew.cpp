// The allocator that fails on demand, for this test program too.
#include "tests/conf/FailingNew.cpp" // NOLINT(bugprone-suspicious-include)
