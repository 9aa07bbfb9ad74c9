#pragma once

#include <string>

/// The name of a system call of this machine, such as "openat"; "call 999" for one that is not
/// in the table.
std::string systemCallName(long number);

/// The number of a call that systemCallName() knows, or -1.
long systemCallNumber(const std::string& name);
