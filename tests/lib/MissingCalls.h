#pragma once

#include <string>

/// Makes system calls fail in this process and in every program that it becomes, as on a kernel or
/// in a container that does not have them or does not allow them.
///
/// @param list "NAME:ERROR" with commas between, such as "openat2:ENOSYS,O_TMPFILE:EOPNOTSUPP".
/// The name O_TMPFILE stands for an openat() with this flag; other calls are taken away whole.
/// Ends the process with a message if that is not possible.
void takeAwayCalls(const std::string& list);
