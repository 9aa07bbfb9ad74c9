#pragma once

#include <string_view>

/// Takes the first name off a path, with the slashes in front of it; empty when only slashes are
/// left.
std::string_view takeName(std::string_view& path);

/// How often ".." is among the names of a path.
size_t stepsBack(std::string_view path);
