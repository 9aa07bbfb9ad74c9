#pragma once

#include "support/Api.h"

/// @file
/// The panel's installation-wide settings: "/etc/kvo/kvo.conf" over compile-time defaults.
///
/// Every look-up loads the file when it is not loaded yet, and tries again after a load that
/// failed. The text that a look-up returns belongs to the configuration and lives until exit.
/// A load that fails leaves `errno` telling why; one that succeeds leaves it as it was.

/// Loads the configuration file once.
/// @return 0 when it is loaded, -1 when it could not be (the reason goes to zelto_log).
ZELTO_API int loadConfiguration();

/// The value that the file gives to a name, known or not; null when the file could not be loaded
/// or does not hold the name.
ZELTO_API const char* valueByNameFromFile(const char* name);

/// The value that the file gives to a known setting, or null. The first value found is kept for
/// the life of the process. An index outside the table yields null.
ZELTO_API const char* valueByIndexFromFile(int index);

/// The value of a known setting: the file's, else the compile-time default. Never null; an index
/// outside the table yields the default of the nearest sentinel.
ZELTO_API const char* variableByIndex(int index);

/// The value of a known setting by its name (the upper sentinel is not one of them).
/// @return null, after a report that does not end the process, for an unknown name.
ZELTO_API const char* variableByName(const char* name);
