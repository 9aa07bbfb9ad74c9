#pragma once

/// @file
/// What programs that link the library may use. Everything else is hidden in a shared build, so
/// that the library can change inside without breaking them.

#define ZELTO_API __attribute__((visibility("default")))
