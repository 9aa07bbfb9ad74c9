#pragma once

#include <optional>
#include <string>
#include <vector>

/// The arguments of one simple command as a shell without brace expansion reads them: split at
/// blanks, with backslashes and single quotes taken away. It knows no more than that: nothing for a
/// text in which anything else would happen, such as an expansion, an operator or a comment.
std::optional<std::vector<std::string>> shellWords(const std::string& text);
