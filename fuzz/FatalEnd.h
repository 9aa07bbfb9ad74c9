#pragma once

#include <string>

/// What the targets get instead of the end of the process: the programs here are linked with the
/// linker's --wrap for fatalLogger(), and a report with an exit status other than 0 is thrown. The
/// message is what the caller formatted, without the program's name and the system error.
struct FatalEnd {
    int status = 0;
    std::string message;
};
