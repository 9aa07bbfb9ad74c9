#include "exec/ShellEscape.h"

#include <cstring>

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
    const size_t reach = std::strlen(shell_escape_chars);
    for (; *text != '\0'; ++text) {
        const auto byte = static_cast<unsigned char>(*text);
        if (byte >= reach || shell_escape_chars[byte] != '-') {
            return 0;
        }
    }
    return 1;
}
