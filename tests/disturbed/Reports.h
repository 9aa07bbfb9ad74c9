#pragma once

#include <string>

#include "tests/lib/Process.h"

/// @file
/// What the program may say of a call that failed, and what it must end with when it says so.

/// What is wrong with the reports of a run, "" if nothing is: each must be one of the program's
/// own, the status must be that of what they tell of, and what goes to both standard error and
/// standard output must be the same there.
std::string faultOfReports(const Outcome& outcome);
