#pragma once

#include "support/Api.h"

/// Makes unexpectedErrorHandler() the process's terminate handler. Called once, at start-up.
ZELTO_API void installTerminateHandler();

/// The last word of a process in which nobody caught an exception: prints
/// "Unexpected error: <what()>\n" for a `std::exception` that has a text and "Unexpected error\n"
/// for anything else to standard error, then ends the process with `exit(1)`. What the interrupted
/// operation already did on disk stays.
[[noreturn]] ZELTO_API void unexpectedErrorHandler();
