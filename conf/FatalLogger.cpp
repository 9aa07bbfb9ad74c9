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
    // One call, so that a report that fits into the stream's buffer is one write(2) and does not
    // mix with the reports of other processes.
    (void)std::fprintf(stream, "%.*s%s%s%s", static_cast<int>(name.size()), name.data(),
        PROGNAME != nullptr ? ": " : "", message, ended ? "" : "\n");
    (void)std::fflush(stream);
}

/// Formats the message as far as it fits and tells the length of the whole. A format that cannot
/// be applied is itself the message: it still tells what happened.
size_t formatInto(char* buffer, size_t size, const char* format, va_list arguments)
{
    const int length = std::vsnprintf(buffer, size, format, arguments);
    if (length >= 0) {
        return static_cast<size_t>(length);
    }
    const std::string_view text(format);
    buffer[text.copy(buffer, size - 1)] = '\0';
    return text.size();
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
    const size_t length = formatInto(buffer.get(), reportSize, format, arguments);
    if (length >= reportSize) {
        CString larger(static_cast<char*>(std::malloc(length + 1)));
        if (larger) {
            (void)formatInto(larger.get(), length + 1, format, again);
            buffer = std::move(larger);
        }
    } else if (error != 0) {
        appendSystemError(buffer.get(), length, error);
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
