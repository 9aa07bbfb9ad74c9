#include "conf/ConfParser.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "conf/FreeDeleter.h"
#include "conf/PluggableLog.h"
#include "conf/ReadStream.h"

namespace
{

bool isSpace(char character)
{
    return std::isspace(static_cast<unsigned char>(character)) != 0;
}

bool isNameCharacter(char character)
{
    return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '_';
}

size_t skipSpaces(std::string_view line, size_t at)
{
    while (at < line.size() && isSpace(line[at])) {
        ++at;
    }
    return at;
}

bool endsAt(std::string_view line, size_t at)
{
    return at == line.size() || line[at] == '#';
}

/// The value without its comment and its trailing white space. The mark remembers only one
/// position, and a second blank forgets it: "x\n" loses its newline, "x \n" keeps both, of three
/// only the last goes. Files in use depend on the values that this yields.
std::string_view valueAt(std::string_view line, size_t start)
{
    const size_t end = std::min(line.find('#', start + 1), line.size());
    size_t mark = 0;
    for (size_t at = start + 1; at < end; ++at) {
        mark = isSpace(line[at]) && mark == 0 ? at : 0;
    }
    return line.substr(start, (mark != 0 ? mark : end) - start);
}

/// @param line ends in NUL; a message shows it up to its first one.
bool takeLine(const char* line, size_t length, ConfStore& store)
{
    const ConfLine parsed = parseConfLine({line, length});
    switch (parsed.kind) {
    case ConfLine::Kind::Blank:
        break;
    case ConfLine::Kind::NoSpace:
        zelto_log(confLogPriority,
            "Invalid variable definition %s\nExpected a space after variable name\n",
            line + parsed.start);
        break;
    case ConfLine::Kind::NoValue:
        zelto_log(confLogPriority, "Invalid variable definition %s\nExpected a value",
            line + parsed.start);
        break;
    case ConfLine::Kind::Definition:
        return store.insert(parsed.name, parsed.value);
    }
    return true;
}

/// getdelim(3) into a buffer with an owner.
ssize_t nextLine(CString& line, size_t& size, FILE* stream)
{
    char* text = line.release();
    const ssize_t length = getdelim(&text, &size, '\n', stream);
    line.reset(text);
    return length;
}

bool readLines(FILE* stream, ConfStore& store)
{
    CString line;
    size_t size = 0;
    ssize_t length = 0;
    while ((length = nextLine(line, size, stream)) != -1) {
        if (!takeLine(line.get(), static_cast<size_t>(length), store)) {
            return false;
        }
    }
    if (std::feof(stream) == 0 || std::ferror(stream) != 0) {
        const int error = errno;
        zelto_log(confLogPriority, "Unable to read configuration file: %s", std::strerror(error));
        errno = error;
        return false;
    }
    store.sort();
    return true;
}

bool readFile(const char* path, ConfStore& store)
{
    const ReadStream stream(std::fopen(path, "rt"));
    if (!stream) {
        const int error = errno;
        zelto_log(confLogPriority, "unable to open configuration file %s: %s\n", path,
            std::strerror(error));
        errno = error;
        return false;
    }
    return readLines(stream.get(), store);
}

} // namespace

ConfLine parseConfLine(std::string_view line)
{
    using enum ConfLine::Kind;
    const size_t start = skipSpaces(line, 0);
    if (endsAt(line, start)) {
        return {Blank, start, {}, {}};
    }
    size_t nameEnd = start;
    while (nameEnd < line.size() && isNameCharacter(line[nameEnd])) {
        ++nameEnd;
    }
    if (nameEnd == line.size() || !isSpace(line[nameEnd])) {
        return {NoSpace, start, {}, {}};
    }
    const size_t value = skipSpaces(line, nameEnd);
    if (endsAt(line, value)) {
        return {NoValue, start, {}, {}};
    }
    return {Definition, start, line.substr(start, nameEnd - start), valueAt(line, value)};
}

int parseConfiguration(const char* path, ConfStore& store)
{
    const int error = errno;
    if (!store.makeRoom() || !readFile(path, store)) {
        return -1;
    }
    errno = error;
    return 0;
}
