#pragma once

#include <cstdarg>
#include <cstddef>

#include "support/Api.h"

/// @file
/// Allocation for callers that could not go on without it: instead of returning null, each
/// function ends the process with status 1 through fatalLogger(). What they return belongs to the
/// caller, who frees it with free(3).

/// As malloc(3). Its failure is reported as "alloc(<size>)"; a null for size 0 is not one.
ZELTO_API void* allocate(size_t size);

/// As realloc(3), with the report of allocate(). Size 0 frees a block and yields null.
ZELTO_API void* reallocate(void* memory, size_t size);

/// Formats a text of any length into memory of its own. A failure is reported as
/// "Cannot allocate memory: <text of the error>".
[[gnu::format(printf, 1, 2)]] ZELTO_API char* allocatingFormatter(const char* format, ...);

/// As allocatingFormatter(), with the arguments in a list. The list is unspecified afterwards.
[[gnu::format(printf, 1, 0)]] ZELTO_API char* allocatingFormatterV(
    const char* format, va_list arguments);
