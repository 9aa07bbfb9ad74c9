#pragma once

#include <sys/types.h>

#include "support/Api.h"

/// @file
/// Single directories: making them with an owner and a mode, renaming them, comparing them.
///
/// Unless said otherwise the result is 0, or -1 after a report that does not end the process; the
/// report of a failed call carries that call's error. An owner or a group of -1 leaves that id as
/// it is.
///
/// A symbolic link on the way is followed if it belongs to root or to the process's own user;
/// anybody else's is ELOOP. What is made is held by descriptor before its owner gets it.

/// Makes one directory and gives it this owner and group and exactly this mode, whatever the
/// umask. What already stands there, a file included, is taken over in the same way; a link that
/// may not be followed is "Unable to chown".
///
/// A path that is gone by the time its owner or mode is set (or never was, as behind a dangling
/// link) counts as done. An older `errno` is forgotten; after a success it may be EEXIST or ENOENT.
/// Reports: "ERROR: Unable to mkdir %s: %s\n", "ERROR: Unable to chown %s: %s\n",
/// "ERROR: Unable to chmod %s: %s\n"; what was done before the failure stays.
ZELTO_API int makeDirectory(const char* path, uid_t owner, gid_t group, mode_t mode);

/// Makes a directory and its missing parents, all with this owner and group. The mode goes through
/// mkdir(2): the umask cuts it, and a set-group-id parent adds its bit. Parents get only the
/// permission bits (0777) of it.
///
/// Whatever exists at any level, even a file, is left alone, except for a level that an earlier run
/// made and, killed, did not finish (see NewDirectory.h). A failed chown(2) is reported as "Cannot
/// chown %s: %s" and the work goes on.
///
/// @param path  cut at its slashes while the work lasts, whole again afterwards.
/// @param owner,group of the directories that are made.
/// @param mode  as mkdir(2) has it.
/// @return always 0. What cannot be made ends the process with status 1 and
///         "Cannot create directory %s: %s" naming the level that failed.
ZELTO_API int makeDirectoryPath(char* path, uid_t owner, gid_t group, mode_t mode);

/// As makeDirectoryPath(), working on a copy of the path; without memory for it, see
/// allocatingFormatter().
ZELTO_API int makeDirectoryPathCopy(const char* path, uid_t owner, gid_t group, mode_t mode);

/// Renames a directory without ever replacing anything that stat(2) can see.
///
/// An old path that stat(2) cannot see is nothing to rename: 0, whatever the new one is. That its
/// directory cannot be reached counts as this with ENOENT, ENOTDIR, EACCES and ENAMETOOLONG. Any
/// other failure to reach it is reported, such as ELOOP from a link on the way that may not be
/// followed, or a lack of descriptors or memory; so is, once there is something to rename, every
/// failure to reach the directory of the new path.
///
/// The refusal "Directory rename error: target directory %s already exists.\n" follows no failed
/// call, so it shows the `errno` that was pending before. A failed rename(2), like a directory that
/// was not reached, is "Remaming %s to %s failed: %s\n".
ZELTO_API int renameDirectory(const char* oldPath, const char* newPath);

/// Whether a directory lies below another, by their resolved names. A symbolic link is no
/// directory here unless a slash follows it, and no directory lies below itself or below "/".
///
/// The process visits both directories and comes back. A relative parent is looked up from inside
/// the path, so give absolute names.
/// @return 1 or 0; a directory whose name cannot be told gives 0. Reports nothing.
ZELTO_API int isSubdirectory(const char* path, const char* parent);
