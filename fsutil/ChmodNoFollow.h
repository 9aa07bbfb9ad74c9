#pragma once

#include <sys/types.h>

/// Changes the mode of a directory's entry without following it if it is a symbolic link.
///
/// One system call where the kernel has fchmodat2(2) (Linux 6.6); elsewhere, and where a filter
/// refuses that call, fchmodat(3) reaches the same through /proc.
/// @return 0, or -1 with `errno`; a symbolic link gives EOPNOTSUPP and is left alone.
int chmodNoFollow(int directory, const char* name, mode_t mode);
