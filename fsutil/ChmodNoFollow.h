#pragma once

#include <sys/types.h>

/// fchmodat2(2), which not every C library that we run on wraps.
/// @return 0, or -1 with `errno`: ENOSYS on Linux before 6.6. EPERM is either the truth or a
///         filter's way to say that it does not know the call; another way will tell.
int fchmodAt2(int directory, const char* name, mode_t mode, int flags);

/// Changes the mode of a directory's entry without following it if it is a symbolic link.
///
/// One system call where the kernel has fchmodat2(2); elsewhere, and where a filter refuses that
/// call, fchmodat(3) reaches the same through /proc.
/// @return 0, or -1 with `errno`; a symbolic link gives EOPNOTSUPP and is left alone.
int chmodNoFollow(int directory, const char* name, mode_t mode);
