#pragma once

#include <sys/types.h>

#include "support/Api.h"

/// @file
/// Owner, group and mode of one existing path. A symbolic link, at its end too, is followed if it
/// belongs to root or to the process's own user; anybody else's is ELOOP.
///
/// Everything here returns 0, or -1 after a report that does not end the process; the report of a
/// failed call carries that call's error. An owner or a group of -1 leaves that id as it is. The
/// mode is set last, because the kernel takes the set-id bits from a file that changes hands.

/// Gives the path this owner and group, then exactly this mode.
///
/// "ERROR: unable to chown %s: %s\n" leaves everything as it was; after
/// "ERROR: unable to chmod %s: %s\n" owner and group are changed and the mode is not.
ZELTO_API int setOwnerAndMode(const char* path, uid_t owner, gid_t group, mode_t mode);

/// As setOwnerAndMode() with the user and the primary group of an account. An account that does
/// not exist is "user %s not found", and nothing is changed.
ZELTO_API int setOwnerAndModeForUser(const char* path, const char* user, mode_t mode);

/// As setOwnerAndMode(), unless the path cannot be seen for whatever reason that stat(2) would
/// give: then nothing happens and the result is 0. A link that may not be followed is reported,
/// whether it leads to something or not. An older `errno` is forgotten.
ZELTO_API int setOwnerAndModeIfPresent(const char* path, uid_t owner, gid_t group, mode_t mode);
