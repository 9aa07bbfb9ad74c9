#pragma once

#include <cstdarg>

#include "support/Api.h"

/// @file
/// The log that a program can point elsewhere: two exported function pointers that print to the
/// console up to a verbosity threshold, or hand everything to syslog(3).

extern "C" {

/// Logs a printf(3) format at a priority; syslog's priorities count, smaller is more urgent.
[[gnu::format(printf, 2, 3)]] extern ZELTO_API void (*zelto_log)(
    int priority, const char* format, ...);

/// As zelto_log, with the arguments in a list.
[[gnu::format(printf, 2, 0)]] extern ZELTO_API void (*zelto_logv)(
    int priority, const char* format, va_list arguments);
}

/// What loggerSetup() recorded, process-wide.
struct LoggerSettings {
    int verbosity = 6;   ///< the threshold of the console printers
    int facility = 0x10; ///< of syslog(3); LOG_MAIL
    bool console = true; ///< recorded for programs that ask; the printers do not consult it
};

/// The settings in force.
ZELTO_API const LoggerSettings& loggerSettings();

/// Prints the formatted text, unless the priority is above the threshold, to standard error and
/// then to standard output, each time followed by a newline (also behind one in the text) and a
/// flush. No program name stands before it. A format that cannot be applied is itself the text.
[[gnu::format(printf, 2, 3)]] ZELTO_API void consolePrinter(int priority, const char* format, ...);

/// As consolePrinter(), with the arguments in a list. The list is unspecified afterwards.
[[gnu::format(printf, 2, 0)]] ZELTO_API void consolePrinterV(
    int priority, const char* format, va_list arguments);

/// Points zelto_log and zelto_logv at the console or at syslog.
///
/// @param destination null for syslog; any other text means the console printers, and one that
///                    begins with "console" in any case also keeps the console flag.
/// @param verbosity   1 or more becomes the threshold and sets the console flag; with less,
///                    both are 0.
/// @param facility    recorded, and passed to openlog(3).
/// @param options     passed to openlog(3) with LOG_PID added.
/// @param ident       copied; null leaves the choice to openlog(3).
ZELTO_API void loggerSetup(
    const char* destination, int verbosity, int facility, int options, const char* ident);
