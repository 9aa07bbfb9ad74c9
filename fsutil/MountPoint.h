#pragma once

#include <optional>

/// Whether something is mounted on an open directory, a bind mount of the same file system
/// included. Nothing: the system does not tell.
std::optional<bool> isMountPoint(int directory);
