#include "fuzz/FatalEnd.h"

#include <array>
#include <cstdarg>
#include <cstdio>

#include "conf/FatalLogger.h"

// The mangled name of fatalLogger(); see the link options.
extern "C" [[gnu::format(printf, 3, 4)]] void __wrap__Z11fatalLoggeriiPKcz(
    int exitStatus, int reserved, const char* format, ...);

void __wrap__Z11fatalLoggeriiPKcz(int exitStatus, int reserved, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    std::array<char, 4096> message{};
    if (exitStatus == 0) {
        fatalLoggerV(exitStatus, reserved, format, arguments);
    } else {
        (void)std::vsnprintf(message.data(), message.size(), format, arguments);
    }
    va_end(arguments);
    if (exitStatus != 0) {
        throw FatalEnd{exitStatus, message.data()};
    }
}
