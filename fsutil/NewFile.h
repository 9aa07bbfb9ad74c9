#pragma once

#include <string_view>
#include <sys/types.h>

/// Creates a regular file that appears under its name whole, with its final mode and group, or
/// not at all, and that never replaces what already has the name.
///
/// The file is written while it has no name yet. Where the file system has no such files, or they
/// cannot be given a name, it is written under a hidden name beside the final one; that name is
/// gone whatever happens next. If the process is killed, the next attempt to create the file
/// removes it, or removeLeftoverOf() where that attempt finds the file in its place.
///
/// @param directory an open directory (O_PATH suffices), or AT_FDCWD.
/// @param name      a single component.
/// @param mode      permission bits, applied exactly, whatever the umask, but without the set-id
///                  bits that the system takes from a file that changes hands. Bits of the type
///                  are ignored.
/// @param group     given before the mode. The other way round, which leaves the same bits, the
///                  file would be set-id for a moment with the process's group, and under its
///                  hidden name somebody could run it then; and it would stay so if the group
///                  could not be given. Without the group it gets no set-id bit. The owner is the
///                  process's.
///                  Whether mode and group could be set is not checked: the file then appears with
///                  less access than asked for.
/// @return 0, or -1 with `errno` and no file made: EEXIST when the name is taken, else what kept
///         the file from being made or written.
int createWholeFile(
    int directory, const char* name, std::string_view content, mode_t mode, gid_t group);

/// Removes the hidden name that a killed run may have left to a file which has its own already: it
/// shows as a second link. One call more for a file that has none.
void removeLeftoverOf(int directory, const char* name);
