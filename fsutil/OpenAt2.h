#pragma once

struct open_how;

/// openat2(2), which the C library does not wrap.
/// @return a descriptor, or -1 with `errno`: ENOSYS on Linux before 5.6, and also where a filter of
///         system calls says EPERM to what it does not know.
int openAt2(int directory, const char* path, const open_how& how);
