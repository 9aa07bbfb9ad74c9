// The test program of conf/ has these operators; this one has them too.
#include "tests/conf/FailingNew.cpp" // NOLINT(bugprone-suspicious-include)
