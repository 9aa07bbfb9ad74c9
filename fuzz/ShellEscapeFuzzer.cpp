// The input is a text to escape. A small shell reads the result back: the same text, in one word.
// The replay lets the small shell and a real one read the same lines.

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "exec/ShellEscape.h"
#include "fuzz/Input.h"
#include "fuzz/Property.h"
#include "fuzz/ShellWords.h"

namespace
{

using Words = std::vector<std::string>;

bool passesCheck(const std::string& text)
{
    try {
        return checkShellSafe(text);
    } catch (const std::runtime_error& error) {
        must(error.what() == std::string("Internal error: bad escape_chars value"),
            "a text that is not safe is refused with the message for it");
        return false;
    }
}

void checkRoundTrip(const std::string& text)
{
    const std::string escaped = shellEscape(text);
    must(shellWords(escaped) == (text.empty() ? Words() : Words{text}),
        "a shell reads an escaped text back as one word");
    const std::string twice = shellEscape(escaped);
    must(shellWords(twice) == (text.empty() ? Words() : Words{escaped}),
        "and what was escaped twice as what was escaped once");
}

void checkSeveral(const Words& texts)
{
    std::string line;
    Words expected;
    for (const std::string& text : texts) {
        line += shellEscape(text) + ' ';
        if (!text.empty()) {
            expected.push_back(text);
        }
    }
    must(shellWords(line) == expected, "escaped texts stay apart in a command line");
}

void checkSafety(const std::string& text)
{
    const bool safe = isShellSafe(text.c_str()) == 1;
    must(safe || isShellSafe(text.c_str()) == 0, "safe is 1, everything else 0");
    must(safe == (shellEscape(text) == text), "a text is safe if escaping leaves it as it is");
    must(passesCheck(text) == safe, "both forms of the check say the same");
}

/// The class that a table gives to a byte: 0 beyond its end.
char classOf(const std::string& table, unsigned char byte)
{
    return byte < table.size() ? table[byte] : '\0';
}

std::string escapedBy(const std::string& table, const std::string& text)
{
    std::string escaped;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const char kind = byte < 128 ? classOf(table, byte) : '\0';
        escaped += kind == '*'   ? std::string("\\") + c
                   : kind == 'n' ? std::string("'") + c + '\''
                                 : std::string(1, c);
    }
    return escaped;
}

/// With a table of a program's own, which ends with the last byte of its memory: one of 256
/// characters needs no NUL, a shorter one does.
void checkOwnTable(const std::string& text)
{
    constexpr size_t whole = 256;
    std::string table = upToNul(text).substr(0, whole);
    if (text.size() % 2 == 0) {
        while (table.size() < whole) {
            table += "-*n?"[(table.size() * 7 + text.size()) % 4];
        }
    }
    const auto memory = std::make_unique<char[]>(std::min(table.size() + 1, whole));
    std::copy_n(table.c_str(), std::min(table.size() + 1, whole), memory.get());

    const char* const shipped = std::exchange(shell_escape_chars, memory.get());
    const std::string escaped = shellEscape(text);
    const bool safe = isShellSafe(text.c_str()) != 0;
    shell_escape_chars = shipped;

    must(escaped == escapedBy(table, text), "a table of one's own is followed, as far as it goes");
    const std::string seen = upToNul(text);
    must(safe == std::all_of(seen.begin(), seen.end(),
                     [&](char c) { return classOf(table, static_cast<unsigned char>(c)) == '-'; }),
        "only what the table lets pass is safe");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string raw(reinterpret_cast<const char*>(data), size);
    checkOwnTable(raw);
    std::string text = raw;
    std::erase(text, '\0'); // no shell can take it
    checkRoundTrip(text);
    checkSafety(text);
    checkSeveral({text, text.substr(0, text.size() / 2), text.substr(text.size() / 2), text});
    return 0;
}
