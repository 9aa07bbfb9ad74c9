#pragma once

/// @file
/// What programs that link the library may use. Everything else is hidden in a shared build, so
/// that the library can change inside without breaking them.

/// Marks what programs may use. A header that marks something is installed and documented.
#define ZELTO_API __attribute__((visibility("default")))

/// Marks a private member of a class that is marked, when only the library calls it.
#define ZELTO_INTERNAL __attribute__((visibility("hidden")))
