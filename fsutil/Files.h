#pragma once

#include <cstddef>
#include <cstdio>

#include "support/Api.h"

/// @file
/// Small files and streams.
///
/// Unless said otherwise the result is 0, or -1 after a report that does not end the process; the
/// report of a failed call carries that call's error. Symbolic links are followed.

/// Closes a stream, which is gone afterwards in any case.
/// @return what fclose(3) returned; a failure is reported as "Unable to close the file: %s\n".
ZELTO_API int closeStream(FILE* stream);

/// Reads the first line of a file without the whitespace around it.
///
/// A line that is blank gives "". An empty file fills the destination with NULs, result 0, and
/// the stream stays open until the process ends. Bytes behind a NUL in the line are not seen.
/// Reports: "Unable to open file %s: %s\n"; "Unable to read line from file: %s\n" with the path;
/// "The buffer too short\n" for a line that, with its terminator, does not fit. After a report
/// the destination is as it was.
///
/// @param destination where the line goes, with a terminator.
/// @param size        bytes of the destination, all of which are written on success.
/// @param path        the file.
ZELTO_API int readFirstLine(char* destination, size_t size, const char* path);

/// Finds the first path of a null-terminated list that stat(2) can see; every miss before it sets
/// `errno` to 0. Reports nothing.
/// @param found the entry of the list, or null if there is none.
/// @param paths the list.
/// @return 1 if there is one, else 0.
ZELTO_API int firstExistingPath(const char** found, const char* const* paths);

/// Makes an empty file with mode 0644, cut by the umask; what a file that exists holds and is
/// stays as it is. Only a failed open(2) is a failure, "Unable to create file %s: %s": nothing was
/// written that a failed close(2) could lose.
ZELTO_API int createFile(const char* path);

/// As createFile(), but a file that exists is emptied, and the report is
/// "Unable to truncate or create file %s: %s".
ZELTO_API int truncateOrCreateFile(const char* path);
