#pragma once

/// Opens "/dev/null" on each of the descriptors 0 to 2 that the process was started without, so
/// that no file opened later can take the place of a standard stream and receive the reports.
/// Keeps `errno`.
void openMissingStandardDescriptors();
