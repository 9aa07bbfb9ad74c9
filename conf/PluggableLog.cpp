#include "conf/PluggableLog.h"

#include <cstdio>
#include <cstring>
#include <strings.h>
#include <syslog.h>

#include "conf/FreeDeleter.h"

void (*zelto_log)(int, const char*, ...) = consolePrinter;
void (*zelto_logv)(int, const char*, va_list) = consolePrinterV;

namespace
{

constinit LoggerSettings settings;

/// The list can be used again afterwards.
void printTo(FILE* stream, const char* format, va_list arguments)
{
    va_list measured;
    va_list printed;
    va_copy(measured, arguments);
    va_copy(printed, arguments);
    // By the time that printing fails for a format that cannot be applied, half of the message is
    // out; the format's own text tells more.
    if (std::vsnprintf(nullptr, 0, format, measured) < 0) {
        (void)std::fputs(format, stream);
    } else {
        (void)std::vfprintf(stream, format, printed);
    }
    va_end(printed);
    va_end(measured);
    (void)std::fputc('\n', stream);
    (void)std::fflush(stream);
}

/// openlog(3) keeps the pointer it is given, so the text must outlive every later syslog(3) call.
void openSystemLog(int facility, int options, const char* ident)
{
    static constinit char* keptIdent = nullptr;
    CString copy(ident != nullptr ? strdup(ident) : nullptr);
    closelog();
    openlog(copy.get(), options | LOG_PID, facility);
    const CString previous(keptIdent);
    keptIdent = copy.release();
}

} // namespace

const LoggerSettings& loggerSettings()
{
    return settings;
}

void consolePrinter(int priority, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    consolePrinterV(priority, format, arguments);
    va_end(arguments);
}

void consolePrinterV(int priority, const char* format, va_list arguments)
{
    if (priority > settings.verbosity) {
        return;
    }
    printTo(stderr, format, arguments);
    printTo(stdout, format, arguments);
}

void loggerSetup(
    const char* destination, int verbosity, int facility, int options, const char* ident)
{
    settings.facility = facility;
    settings.verbosity = verbosity >= 1 ? verbosity : 0;
    settings.console = verbosity >= 1;
    if (destination == nullptr) {
        openSystemLog(facility, options, ident);
        zelto_log = syslog;
        zelto_logv = vsyslog;
        return;
    }
    constexpr char console[] = "console";
    settings.console =
        settings.console && strncasecmp(destination, console, sizeof console - 1) == 0;
    zelto_log = consolePrinter;
    zelto_logv = consolePrinterV;
}
