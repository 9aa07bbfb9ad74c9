#pragma once

#include "support/Api.h"

/// The name under which the program was started, as its first argument gave it; null means that
/// reports carry no prefix. Set once by the entry point and never freed or written through.
extern "C" ZELTO_API const char* PROGNAME;
