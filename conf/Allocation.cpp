#include "conf/Allocation.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "conf/FatalLogger.h"

namespace
{

void* checked(void* memory, size_t size)
{
    if (memory == nullptr && size != 0) {
        fatalLogger(1, 1, "alloc(%d)", static_cast<int>(size));
    }
    return memory;
}

} // namespace

// NOLINTBEGIN(cppcoreguidelines-owning-memory): the caller becomes the owner, as with malloc(3)

void* allocate(size_t size)
{
    return checked(std::malloc(size), size);
}

void* reallocate(void* memory, size_t size)
{
    return checked(std::realloc(memory, size), size);
}

// NOLINTEND(cppcoreguidelines-owning-memory)

char* allocatingFormatter(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    char* text = allocatingFormatterV(format, arguments);
    va_end(arguments);
    return text;
}

char* allocatingFormatterV(const char* format, va_list arguments)
{
    char* text = nullptr;
    if (vasprintf(&text, format, arguments) < 0) {
        fatalLogger(1, 1, "Cannot allocate memory: %s", std::strerror(errno));
    }
    return text;
}
