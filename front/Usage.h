#pragma once

/// Prints the usage text to standard output and ends the process with status 0.
[[noreturn]] void printUsage();
