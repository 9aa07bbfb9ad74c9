#pragma once

#include <string_view>

struct CommandLine;

/// Whether a name leads out of the directory that it is meant for: it has a component "..", or it
/// consists of nothing but "." and "/".
[[nodiscard]] bool leadsOut(std::string_view name);

/// Ends the process with status 1 and "Error: parameter '<parameter>' leads out of its directory".
void refuseParameter(const char* parameter);

/// Refuses the first parameter that the chosen operation makes a path of and that would leave the
/// place meant for it: a domain's or a subdomain's name that leads out or, for a creation, a client
/// id with a component "..".
///
/// Names come from customers. All others are taken as they are, with slashes in them too.
void checkNames(const CommandLine& line);
