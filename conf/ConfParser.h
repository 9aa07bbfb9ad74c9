#pragma once

#include <cstddef>
#include <string_view>

#include "conf/ConfStore.h"

/// @file
/// Reading "name value" lines with "#" comments. Names are made of letters, digits and '_' (those
/// of the C locale), the separator is any white space.

/// What one line of a configuration file says.
struct ConfLine {
    enum class Kind {
        Blank,      ///< nothing, or only a comment
        NoSpace,    ///< what stands where the name should be is not followed by a space
        NoValue,    ///< a name alone
        Definition, ///< a name and its value
    };
    Kind kind = Kind::Blank;
    size_t start = 0;       ///< offset of the first character that is not white space
    std::string_view name;  ///< for a definition; a part of the line
    std::string_view value; ///< likewise, never empty
};

/// Takes one line apart; the line includes its newline, if it has one. NUL is a character like
/// any other that is not white space. Reads nothing but the line and changes nothing.
ConfLine parseConfLine(std::string_view line);

/// Reads a whole file into a store and sorts it. A bad line is logged and skipped; every message
/// goes to zelto_log with confLogPriority.
/// @return 0 with `errno` as it was; -1, with `errno` telling why, when the file cannot be opened
///         or read to its end or memory runs out. The store may then hold a part of the file.
int parseConfiguration(const char* path, ConfStore& store);
