// The input: a line of settings, a pattern on a line, and the subject. The wrapper must say what
// the C library says, and no place that it tells may lie outside the subject.

#include <algorithm>
#include <regex.h>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz/Input.h"
#include "fuzz/Property.h"
#include "support/Regexp.h"

namespace
{

using zelto::Regexp;
using Result = Regexp::MatchResultData;

constexpr size_t longestPattern = 48;
constexpr size_t longestSubject = 512;

struct Settings {
    int cflags = 0;
    int eflags = 0;
    size_t groups = 0;
};

Settings settingsOf(const std::string& line)
{
    const auto flag = [&](char letter, int value) {
        return line.find(letter) != std::string::npos ? value : 0;
    };
    Settings settings;
    settings.groups = leadingNumber(line) % 16;
    settings.cflags = flag('e', REG_EXTENDED) | flag('n', REG_NEWLINE) | flag('i', REG_ICASE) |
                      flag('s', REG_NOSUB);
    settings.eflags = flag('b', REG_NOTBOL) | flag('l', REG_NOTEOL);
    return settings;
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

/// What a character says about the place where a match stands: a line's or a word's beginning or
/// end.
bool isAssertion(char before, char c)
{
    const std::string escaped = "bB<>`'";
    return c == '^' || c == '$' || (before == '\\' && escaped.find(c) != std::string::npos);
}

/// Keeps away from what the C library is known to answer with minutes, gigabytes or a stack that
/// runs over: repetitions by large numbers, within each other or of assertions, which it writes
/// out, and back references, which it tries in every combination. Patterns are the program's own,
/// so that is no way to hurt it, and what is found there would say nothing about the wrapper.
bool isHarmless(const std::string& pattern)
{
    const auto repetitions = std::count(pattern.begin(), pattern.end(), '{');
    size_t digits = 0;
    char before = '\0';
    for (const char c : pattern) {
        digits = isDigit(c) ? digits + 1 : 0;
        const bool isReference = before == '\\' && isDigit(c);
        if (digits > 2 || isReference || (repetitions > 0 && isAssertion(before, c))) {
            return false;
        }
        before = c;
    }
    return pattern.size() <= longestPattern && repetitions <= 1;
}

/// The C library's own answers.
class Direct
{
public:
    Direct(const std::string& pattern, int cflags)
        : error_(regcomp(&compiled_, pattern.c_str(), cflags))
    {
    }
    ~Direct()
    {
        if (error_ == 0) {
            regfree(&compiled_);
        }
    }
    Direct(const Direct&) = delete;
    Direct& operator=(const Direct&) = delete;

    /// "" for a pattern that compiles.
    [[nodiscard]] std::string error() const
    {
        char text[256] = "";
        if (error_ != 0) {
            (void)regerror(error_, &compiled_, text, sizeof(text));
        }
        return text;
    }

    [[nodiscard]] int match(
        const std::string& subject, std::vector<regmatch_t>& places, int eflags) const
    {
        return regexec(&compiled_, subject.c_str(), places.size(), places.data(), eflags);
    }

private:
    regex_t compiled_{};
    int error_;
};

Result::Group groupOf(const regmatch_t& place)
{
    if (place.rm_so == -1) {
        return {0, 0};
    }
    return {static_cast<uint32_t>(place.rm_so), static_cast<uint32_t>(place.rm_eo - place.rm_so)};
}

void checkGroups(const Result& result, const std::string& subject, size_t groups)
{
    must(result.subject == subject && result.offset == 0, "the whole subject is kept");
    must(result.groups.size() == groups, "there are as many groups as were asked for");
    const size_t reach = upToNul(subject).size();
    for (size_t i = 0; i < groups; ++i) {
        const auto [start, length] = result.group(i);
        must(start <= reach && length <= reach - start, "a group lies inside what was searched");
        must(result.str(i) == subject.substr(start, length), "a group's text is at its place");
    }
    must(result.group(groups) == Result::Group(0, 0) && result.str(groups).empty(),
        "there is nothing behind the last group");
}

void checkMatch(const Regexp& regexp, const Direct& direct, const Settings& settings,
    const std::string& subject)
{
    std::vector<regmatch_t> places(settings.groups, regmatch_t{-1, -1});
    const bool matches = direct.match(subject, places, settings.eflags) != REG_NOMATCH;
    const auto result = regexp.match(subject, settings.groups, settings.eflags);
    must((result != nullptr) == matches, "there is a match if the C library finds one");
    // Without groups to find the C library sometimes takes another decision, as for "$(.)" and
    // "ab".
    std::vector<regmatch_t> none;
    const bool matchesAlone = direct.match(subject, none, settings.eflags) != REG_NOMATCH;
    must(regexp.match(nullptr, subject, settings.groups, settings.eflags) == matchesAlone,
        "and so without a result to fill in");
    must(regexp.match(nullptr, subject, 0, settings.eflags | REG_STARTEND) == matchesAlone,
        "the bounds of a search cannot be given");
    Result reused;
    reused.offset = 9;
    must(regexp.match(&reused, subject, settings.groups, settings.eflags) == matches,
        "and so with a result of the caller's");
    if (!matches) {
        must(reused.offset == 9 && reused.groups.empty(), "without a match nothing is filled in");
        return;
    }
    checkGroups(*result, subject, settings.groups);
    must(reused.groups == result->groups, "both forms find the same groups");
    for (size_t i = 0; i < settings.groups; ++i) {
        must((settings.cflags & REG_NOSUB) != 0 || result->group(i) == groupOf(places[i]),
            "a group is where the C library says");
    }
}

void checkPattern(const Settings& settings, const std::string& pattern, const std::string& subject)
{
    const Direct direct(pattern, settings.cflags);
    try {
        const Regexp regexp(pattern, settings.cflags);
        must(direct.error().empty(), "a pattern that the C library refuses is refused");
        checkMatch(regexp, direct, settings, subject);
    } catch (const std::runtime_error& error) {
        must(!direct.error().empty() && direct.error() == error.what(),
            "a pattern is refused in the words of the C library");
    }
}

/// What is escaped matches itself and nothing else.
void checkEscape(const std::string& text, bool extended)
{
    const std::string escaped = Regexp::escape(text, extended);
    must(text.size() <= escaped.size() && escaped.size() <= 2 * text.size(),
        "escaping adds one character at most for each");
    const Regexp regexp('^' + escaped + '$', extended ? REG_EXTENDED : 0);
    Result result;
    must(regexp.match(&result, text, 1, 0), "what is escaped matches itself");
    must(result.str(0) == text, "as a whole");
    must(!regexp.match(nullptr, text + 'x', 0, 0), "and nothing longer");
    must(!regexp.match(nullptr, 'x' + text, 0, 0), "on either side");
    must(text.empty() || !regexp.match(nullptr, text.substr(1), 0, 0), "and nothing shorter");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input input(data, size);
    const Settings settings = settingsOf(input.line());
    const std::string pattern = input.line();
    const std::string subject = input.rest().substr(0, longestSubject);
    if (isHarmless(pattern)) {
        checkPattern(settings, pattern, subject);
    }
    for (const std::string& text : {pattern, subject}) {
        const std::string short_ = upToNul(text).substr(0, longestPattern);
        checkEscape(short_, false);
        checkEscape(short_, true);
    }
    return 0;
}
