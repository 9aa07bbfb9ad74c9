#include "exec/ShellEscape.h"

#include <cstring>
#include <stdexcept>

// Sixteen bytes a row: the control characters, the printable ones, DEL and the upper half.
const char* shell_escape_chars = "---------*n-----"
                                 "----------------"
                                 "*-***-*****-----"
                                 "-----------**-**"
                                 "----------------"
                                 "-----------**---"
                                 "*---------------"
                                 "------------*-*-"
                                 "----------------"
                                 "----------------"
                                 "----------------"
                                 "----------------"
                                 "----------------"
                                 "----------------"
                                 "----------------"
                                 "----------------";

int isShellSafe(const char* text)
{
    if (text == nullptr) {
        return 1;
    }
    const size_t reach = strnlen(shell_escape_chars, 256);
    for (; *text != '\0'; ++text) {
        const auto byte = static_cast<unsigned char>(*text);
        if (byte >= reach || shell_escape_chars[byte] != '-') {
            return 0;
        }
    }
    return 1;
}

bool checkShellSafe(const std::string& text)
{
    if (isShellSafe(text.c_str()) == 0) {
        throw std::runtime_error("Internal error: bad escape_chars value");
    }
    return true;
}

std::string shellEscape(const std::string& text)
{
    constexpr size_t lowerHalf = 128;
    const size_t reach = strnlen(shell_escape_chars, lowerHalf);
    std::string escaped;
    escaped.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const char kind = byte < reach ? shell_escape_chars[byte] : '-';
        if (kind == '*') {
            escaped += '\\';
            escaped += c;
        } else if (kind == 'n') {
            escaped.append({'\'', c, '\''});
        } else {
            escaped += c;
        }
    }
    return escaped;
}
