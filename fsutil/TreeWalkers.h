#pragma once

#include <sys/types.h>

#include "support/Api.h"

/// @file
/// Change the owner of, change the mode of, or remove a whole directory tree.
///
/// All walk depth first, contents before the directory that holds them, and never follow a
/// symbolic link. The tree may belong to a user who works against the walk: a directory is entered
/// only through a descriptor that was opened without following, so that an entry exchanged before
/// its turn makes its step fail, or is itself what the step acts on. Depth costs neither stack nor
/// descriptors, and width costs no memory.
///
/// Every failure ends the process through the fatal logger with exit status 1, in the words of the
/// failed step, the entry's bare name (the path as given for the top) and the text of the error;
/// nothing is rolled back, so the tree may be left half changed. The steps are named by
/// "Unable to get file descriptor of current dir", "Unable to open dir", "Unable to change dir",
/// "Unable to check directory entry", "Unable to restore & close current dir" and "Unable to close
/// dir", and by the words that each function adds. Entries that vanish before their turn are
/// passed over. The current directory moves during the walk and is afterwards the one before.

/// Changes the owner of every regular file and directory below a path.
///
/// A link that takes a file's name just before its turn gets the owner in its stead, unless links
/// of that owner are followed (see TrustedPath.h): then it is left alone.
///
/// A symbolic link as the path: nothing is done. A regular file: it is changed, whatever
/// includeTop says. Devices, pipes, sockets and links in the tree are left alone. The kernel clears
/// the set-id bits of files whose owner is set, also to the same one (chown(2)).
/// Adds "Unable to get entry" (the path does not exist), "Unable to chown directory entry" and
/// "Unable to chown dir".
/// @param path        absolute, or relative to the current directory.
/// @param owner,group -1 leaves the id unchanged.
/// @param includeTop  0: a directory named by the path keeps its own owner and group.
ZELTO_API void changeOwnerOfTree(const char* path, uid_t owner, gid_t group, int includeTop);

/// Changes the mode of every regular file and directory below a path; the same shape as
/// changeOwnerOfTree(). Adds "Unable to get entry", "Unable to chmod entry" (the path is a file),
/// "Unable to chmod directory entry" and "Unable to chmod dir".
ZELTO_API void changeModeOfTree(
    const char* path, mode_t fileMode, mode_t directoryMode, int includeTop);

/// First changeOwnerOfTree(), then changeModeOfTree(), so that the modes are as given in the end.
/// @return 0.
ZELTO_API int changeOwnerAndModeOfTree(const char* path, uid_t owner, gid_t group, mode_t fileMode,
    mode_t directoryMode, int includeTop);

/// Removes everything below a path, of whatever type. A path that does not exist is removed
/// already; a symbolic link or a regular file is itself unlinked. A step that finds its entry gone
/// counts as done. Adds "Unable to unlink entry" (the path is a link or a file), "Unable to unlink
/// directory entry" and "Unable to remove dir".
///
/// A mount point is never emptied, a bind mount of the same file system included: the walk ends
/// there with "Unable to remove dir" and EBUSY, which is what rmdir(2) would say to it in the end.
/// Only the path itself may be one, if it is to stay. Where the system does not tell mount points,
/// rmdir(2) is asked; if what it says leaves the question open, as for "." and "..", the walk ends
/// with that before anything is touched.
/// @param path      absolute, or relative to the current directory.
/// @param removeTop 0: the directory named by the path stays, emptied.
ZELTO_API void removeTree(const char* path, int removeTop);
