// The input is a configuration file. What is read and what is logged is compared with what a slow
// reader, written from the description of the format, makes of it.

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

#include "conf/ConfParser.h"
#include "conf/ConfStore.h"
#include "conf/PluggableLog.h"
#include "fuzz/Input.h"
#include "fuzz/Property.h"

namespace
{

using Pairs = std::map<std::string, std::string>;

constexpr const char* spaces = " \t\n\v\f\r";
constexpr const char* nameCharacters =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_";

std::string logged;

[[gnu::format(printf, 2, 3)]] void record(int priority, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    char* text = nullptr;
    must(vasprintf(&text, format, arguments) >= 0, "a message can be formatted");
    va_end(arguments);
    logged += std::to_string(priority) + '|' + text + '|';
    free(text); // NOLINT(cppcoreguidelines-owning-memory)
}

/// Points the log here for its lifetime.
class Recording
{
public:
    Recording() : previous_(zelto_log)
    {
        logged.clear();
        zelto_log = record;
    }
    ~Recording() { zelto_log = previous_; }
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

private:
    void (*previous_)(int, const char*, ...);
};

/// The slow reader.
struct Expected {
    Pairs pairs;
    std::string log;

    void takeLine(const std::string& line)
    {
        const size_t start = line.find_first_not_of(spaces);
        if (start == std::string::npos || line[start] == '#') {
            return;
        }
        const std::string shown = upToNul(line.substr(start));
        const size_t nameEnd = line.find_first_not_of(nameCharacters, start);
        if (nameEnd == std::string::npos || !isSpace(line[nameEnd])) {
            log += "12|Invalid variable definition " + shown +
                   "\nExpected a space after variable name\n|";
            return;
        }
        const size_t value = line.find_first_not_of(spaces, nameEnd);
        if (value == std::string::npos || line[value] == '#') {
            log += "12|Invalid variable definition " + shown + "\nExpected a value|";
            return;
        }
        pairs[line.substr(start, nameEnd - start)] =
            upToNul(withoutEnd(line.substr(value, line.find('#', value + 1) - value)));
    }

    static bool isSpace(char c)
    {
        return std::string_view(spaces).find(c) != std::string_view::npos;
    }

    /// Of an odd number of blanks at the end the last goes, of an even number none.
    static std::string withoutEnd(std::string value)
    {
        const size_t blanks = value.size() - 1 - value.find_last_not_of(spaces);
        value.resize(value.size() - blanks % 2);
        return value;
    }
};

Expected read(const std::string& text)
{
    Expected expected;
    for (size_t at = 0; at < text.size();) {
        const size_t newline = text.find('\n', at);
        const size_t next = newline == std::string::npos ? text.size() : newline + 1;
        expected.takeLine(text.substr(at, next - at));
        at = next;
    }
    return expected;
}

/// Puts the content into a file in memory, always the same one.
/// @return its path.
const char* inMemory(const std::string& content)
{
    static const int file = memfd_create("conf", MFD_CLOEXEC);
    static const std::string path = "/proc/self/fd/" + std::to_string(file);
    const ssize_t written = pwrite(file, content.data(), content.size(), 0);
    must(ftruncate(file, written) == 0 && written == static_cast<ssize_t>(content.size()),
        "a file in memory can be written");
    return path.c_str();
}

void checkPairs(const ConfStore& store, const Pairs& pairs)
{
    must(store.count() == pairs.size(), "every name is there once");
    must(store.count() <= store.capacity(), "the pairs fit into the store");
    for (const auto& [name, value] : pairs) {
        const char* found = store.find(name.c_str());
        must(found != nullptr && found == value, "a name has the last value that it was given");
        must(store.find((name + '.').c_str()) == nullptr, "a longer name is not there");
    }
    must(store.find("") == nullptr, "no name is empty");
}

void checkFile(const std::string& text)
{
    const Expected expected = read(text);
    const char* const path = inMemory(text);
    const Recording recording;
    ConfStore store;
    errno = EXDEV;
    must(parseConfiguration(path, store) == 0, "a file that can be read is read");
    must(errno == EXDEV, "errno stays as it was");
    must(store.sorted(), "the store is sorted after reading");
    must(logged == expected.log, "each bad line is logged, and nothing else");
    checkPairs(store, expected.pairs);
}

/// The store by itself, unsorted and with little room: what does not fit changes nothing.
void checkStore(const std::string& text, size_t limit)
{
    const Recording recording;
    ConfStore store(limit);
    Pairs pairs;
    Input lines(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    while (!lines.empty()) {
        const std::string line = lines.line();
        const ConfLine parsed = parseConfLine(line);
        if (parsed.kind != ConfLine::Kind::Definition) {
            continue;
        }
        must(!parsed.name.empty() && !parsed.value.empty(), "a definition has both parts");
        const bool room = store.count() < store.capacity();
        errno = 0;
        if (store.insert(parsed.name, parsed.value)) {
            pairs[std::string(parsed.name)] = upToNul(std::string(parsed.value));
        } else {
            must(errno == ENOMEM && !room, "a pair is refused only for want of room");
        }
        must(store.capacity() < limit, "the limit is not reached");
    }
    checkPairs(store, pairs);
    store.sort();
    must(store.sorted(), "a store that was sorted is sorted");
    checkPairs(store, pairs);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    checkFile(text);
    checkStore(text, 21 + size % 64);
    return 0;
}
