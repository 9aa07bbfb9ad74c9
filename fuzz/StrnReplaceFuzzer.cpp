// The input: a line with the size of the destination and letters for the special cases, the search
// text, the replacement, and the source. Every buffer is exactly as large as it must be, so that
// AddressSanitizer sees a byte too many. The result is compared with what the description of the
// function gives when it is followed step by step.

#include <algorithm>
#include <memory>
#include <optional>
#include <string>

#include "fsutil/Text.h"
#include "fuzz/Input.h"
#include "fuzz/Property.h"

namespace
{

constexpr char unwritten = '\x5a';

/// What to call the function with.
struct Call {
    size_t size = 0;
    bool inPlace = false;
    bool noDestination = false;
    std::optional<std::string> source;
    std::optional<std::string> search;
    std::optional<std::string> replacement;
};

std::optional<std::string> unless(bool null, const std::string& text)
{
    return null ? std::nullopt : std::optional(upToNul(text));
}

Call callOf(Input input)
{
    const std::string settings = input.line();
    const auto has = [&](char letter) { return settings.find(letter) != std::string::npos; };
    Call call;
    call.size = leadingNumber(settings) % 1024;
    call.inPlace = has('i');
    call.noDestination = has('d');
    call.search = unless(has('s'), input.line());
    call.replacement = unless(has('r'), input.line());
    call.source = unless(has('n') && !call.inPlace, input.rest());
    return call;
}

/// The copy ends with the last byte of its memory.
std::unique_ptr<char[]> exactly(const std::optional<std::string>& text, size_t atLeast = 0)
{
    if (!text) {
        return nullptr;
    }
    const size_t size = std::max(text->size() + 1, atLeast);
    auto copy = std::make_unique<char[]>(size);
    std::fill_n(copy.get(), size, unwritten);
    copy[text->copy(copy.get(), text->size())] = '\0';
    return copy;
}

/// The text that the destination holds afterwards, with a running total of its length; a piece
/// that brings the total to the size ends it.
std::string replaced(const Call& call)
{
    const std::string& source = *call.source;
    const std::string& search = *call.search;
    std::string output;
    size_t total = 0;
    size_t begin = 0;
    for (size_t at = 0; at + search.size() <= source.size();) {
        if (source.compare(at, search.size(), search) != 0) {
            ++at;
            continue;
        }
        if ((total += at - begin) >= call.size) {
            return output;
        }
        output += source.substr(begin, at - begin);
        if ((total += call.replacement->size()) >= call.size) {
            return output;
        }
        output += *call.replacement;
        begin = at += search.size();
    }
    const std::string rest = source.substr(begin);
    return total + rest.size() < call.size ? output + rest : output;
}

/// As strncpy(3): cut or padded.
std::string padded(const std::string& source, size_t size)
{
    std::string output = source.substr(0, size);
    output.resize(size, '\0');
    return output;
}

/// The bytes of the destination afterwards, as far as something is said about them.
std::string expected(const Call& call, const std::string& before)
{
    if (!call.source || call.size == 0) {
        return before;
    }
    if (!call.search || call.search->empty()) {
        return padded(*call.source, call.size);
    }
    if (!call.replacement) {
        return before;
    }
    return replaced(call) + '\0';
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const Call call = callOf(Input(data, size));
    const auto search = exactly(call.search);
    const auto replacement = exactly(call.replacement);
    const auto source = exactly(call.source, call.inPlace ? call.size : 0);
    auto buffer = std::make_unique<char[]>(call.size);
    std::fill_n(buffer.get(), call.size, unwritten);

    char* destination = call.inPlace ? source.get() : buffer.get();
    if (call.noDestination) {
        must(strn_replace(source.get(), nullptr, search.get(), replacement.get(), call.size) ==
                 nullptr,
            "no destination gives null");
        return 0;
    }
    const std::string before(destination, call.size);
    must(strn_replace(source.get(), destination, search.get(), replacement.get(), call.size) ==
             destination,
        "the destination is returned");
    const std::string after = expected(call, before);
    must(after.size() <= call.size, "the result fits");
    must(std::string(destination, after.size()) == after, "the result is what is described");
    must(call.inPlace || !call.source || *call.source == source.get(), "the source stays as it is");
    return 0;
}
