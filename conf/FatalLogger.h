#pragma once

#include <cstdarg>

#include "support/Api.h"

/// @file
/// The reporting path of the plain functions. Every report is written twice, first to standard
/// error and then to standard output, because the panel collects the one and shows the other.
/// Nothing here fails: without memory a report is shortened rather than lost.

/// Reports a formatted message and, when `errno` is set, the system error it stands for.
///
/// The suffix "\nSystem error <number>: <text>" is added only when message and suffix together
/// have at most 4095 characters; a longer message is printed whole and without it. A caller that
/// wants no suffix sets `errno` to 0 first.
///
/// @param exitStatus 0 returns to the caller with `errno` as it was; any other value ends the
///                   process with `exit(exitStatus)`.
/// @param reserved   never read; callers pass 1.
/// @param format     a printf(3) format.
[[gnu::format(printf, 3, 4)]] ZELTO_API void fatalLogger(
    int exitStatus, int reserved, const char* format, ...);

/// As fatalLogger(), with the arguments in a list. The list is unspecified afterwards.
[[gnu::format(printf, 3, 0)]] ZELTO_API void fatalLoggerV(
    int exitStatus, int reserved, const char* format, va_list arguments);

/// Writes a finished message to standard error and then to standard output, each time behind the
/// base name of PROGNAME (as XPG basename(3) gives it) and ": ", closed by one newline unless the
/// message brings its own, and flushed. A non-zero exit status then ends the process.
ZELTO_API void reportWriter(const char* message, int exitStatus, int reserved);
