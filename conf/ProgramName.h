#pragma once

/// The name under which the program was started, as its first argument gave it; null means that
/// reports carry no prefix. Set once by the entry point and never freed or written through.
extern "C" const char* PROGNAME;
