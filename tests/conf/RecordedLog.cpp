#include "tests/conf/RecordedLog.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <utility>

#include "conf/FreeDeleter.h"
#include "conf/PluggableLog.h"

namespace
{

std::string& recorded()
{
    static std::string text;
    return text;
}

[[gnu::format(printf, 2, 3)]] void record(int priority, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    char* message = nullptr;
    const int length = vasprintf(&message, format, arguments);
    va_end(arguments);
    const CString owned(message);
    recorded() += std::to_string(priority) + '|' + (length >= 0 ? message : "?") + "|\n";
    errno = EDOM;
}

} // namespace

RecordedLog::RecordedLog() : previous_(zelto_log)
{
    recorded().clear();
    zelto_log = record;
}

RecordedLog::~RecordedLog()
{
    zelto_log = previous_;
}

std::string RecordedLog::take()
{
    return std::exchange(recorded(), "");
}
