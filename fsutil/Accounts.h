#pragma once

#include <sys/types.h>

#include "support/Api.h"

/// @file
/// Users and groups of the system's database.
///
/// The look-ups that return an id give 0 for what does not exist, after a report that does not end
/// the process; callers pass that 0 on. The database leaves `errno` at 0 on a miss, so these
/// reports end in "Success" and carry no system error unless the database itself failed.

/// The name of a user, or the uid in decimal if it has none.
/// @return at most 4095 characters in a buffer that belongs to the process; the next call
///         overwrites it. Reports nothing.
ZELTO_API const char* nameOfUid(uid_t uid);

/// The uid of a user; unknown: 0 and "Unable to find uid for user %s: %s".
ZELTO_API uid_t uidOfUser(const char* name);

/// What an account holds. Each result may be null if it is not wanted.
///
/// @param name the account.
/// @param uid  its uid.
/// @param gid  its primary group.
/// @param home the home directory, for the caller to free(3).
/// @return 0, or -1 with nothing filled in after "Unable to getpwnam for user %s": the account is
///         unknown, or (the report then says so) memory ran out.
ZELTO_API int accountOfUser(const char* name, uid_t* uid, gid_t* gid, char** home);

/// The uid of a user for selector 0, the primary group for any other; unknown: 0 and
/// accountOfUser()'s report.
ZELTO_API id_t uidOrGidOfUser(const char* name, int selector);

/// The gid itself if such a group exists; else 0 and "getgrgid(%d): %s". An older `errno` is
/// forgotten.
ZELTO_API gid_t checkGid(gid_t gid);

/// The gid of a group; unknown: 0 and "getgrnam(%s): %s". An older `errno` is forgotten.
ZELTO_API gid_t gidOfGroup(const char* name);

/// Reads a group given by number or by name: all digits (also none at all, which is group 0) go
/// through checkGid(), anything else through gidOfGroup(). A number beyond an int wraps around.
ZELTO_API gid_t groupIdFromText(const char* text);
