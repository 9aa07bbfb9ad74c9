#include "conf/FatalLogger.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "conf/FreeDeleter.h"
#include "conf/ProgramName.h"

const char* PROGNAME = nullptr;

namespace
{

constexpr size_t reportSize = 4096;

/// basename(3) of the XPG kind without its habit of writing into the argument.
std::string_view baseName(std::string_view path)
{
    if (path.empty()) {
        return ".";
    }
    const size_t last = path.find_last_not_of('/');
    if (last == std::string_view::npos) {
        return "/";
    }
    path = path.substr(0, last + 1);
    const size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

void writeTo(FILE* stream, const char* message)
{
    const std::string_view name = PROGNAME != nullptr ? baseName(PROGNAME) : std::string_view();
    const size_t length = std::strlen(message);
    const bool ended = length > 0 && message[length - 1] == '\n';
    // One call, so that reports of processes that share the stream do not mix within a line.
    (void)std::fprintf(stream, "%.*s%s%s%s", static_cast<int>(name.size()), name.data(),
        PROGNAME != nullptr ? ": " : "", message, ended ? "" : "\n");
    (void)std::fflush(stream);
}

/// Adds the system error behind the message if there is room for all of it.
void appendSystemError(char* buffer, size_t length, int error)
{
    const size_t room = reportSize - length;
    const int added =
        std::snprintf(buffer + length, room, "\nSystem error %d: %s", error, std::strerror(error));
    if (added < 0 || static_cast<size_t>(added) >= room) {
        buffer[length] = '\0';
    }
}

} // namespace

void fatalLogger(int exitStatus, int reserved, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    fatalLoggerV(exitStatus, reserved, format, arguments);
    va_end(arguments);
}

void fatalLoggerV(int exitStatus, int reserved, const char* format, va_list arguments)
{
    const int error = errno;
    CString buffer(static_cast<char*>(std::malloc(reportSize)));
    if (!buffer) {
        reportWriter("Can't allocate memory for error message", exitStatus, reserved);
        errno = error;
        return;
    }

    va_list again;
    va_copy(again, arguments);
    const int needed = std::vsnprintf(buffer.get(), reportSize, format, arguments);
    if (needed < 0) {
        // Only a format that cannot be applied gets here; its own text still tells what happened.
        (void)std::snprintf(buffer.get(), reportSize, "%s", format);
    } else if (static_cast<size_t>(needed) >= reportSize) {
        const size_t size = static_cast<size_t>(needed) + 1;
        CString larger(static_cast<char*>(std::malloc(size)));
        if (larger && std::vsnprintf(larger.get(), size, format, again) >= 0) {
            buffer = std::move(larger);
        }
    } else if (error != 0) {
        appendSystemError(buffer.get(), static_cast<size_t>(needed), error);
    }
    va_end(again);

    reportWriter(buffer.get(), exitStatus, reserved);
    errno = error;
}

void reportWriter(const char* message, int exitStatus, int /*reserved*/)
{
    writeTo(stderr, message);
    writeTo(stdout, message);
    if (exitStatus != 0) {
        std::exit(exitStatus);
    }
}
