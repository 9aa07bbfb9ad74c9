#pragma once

#include <sys/types.h>

/// @file
/// Changes through a descriptor that holds a file of any type (O_PATH), so that the file that is
/// changed is the one that was found, whatever its name means by now. Both return 0, or -1 with
/// `errno`. For the C library's fchown(2) and fchmod(2) the file would have to be open.

/// Changes the owner and the group; -1 leaves an id as it is.
int changeOwnerOfHeld(int file, uid_t owner, gid_t group);

/// Changes the mode. Where the kernel has no fchmodat2(2), and where a filter refuses that call, a
/// directory is opened for it, and other files are reached through /proc.
int changeModeOfHeld(int file, mode_t mode);
