#pragma once

#include <gtest/gtest.h>
#include <string>
#include <utility>

#include "conf/ProgramName.h"
#include "tests/lib/Process.h"

/// Runs the body as "twigctl" and returns what it reported; "" means that it was silent. Both
/// streams must hold the same.
template<class Body>
std::string reportsOf(Body body)
{
    const char* name = std::exchange(PROGNAME, "twigctl");
    const Outcome outcome = outputOf(body);
    PROGNAME = name;
    EXPECT_EQ(outcome.out, outcome.err);
    return outcome.err;
}
