#include "support/Regexp.h"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace zelto
{

namespace
{

using Result = Regexp::MatchResultData;

std::string errorText(int error, const regex_t& expression)
{
    const std::size_t size = regerror(error, &expression, nullptr, 0);
    std::string text(size - 1, '\0'); // the size counts the NUL
    (void)regerror(error, &expression, text.data(), size);
    return text;
}

/// Places that stay "took no part" where regexec() does not set them: it leaves them alone when it
/// fails and for REG_NOSUB. An array rather than a vector, whose answer to too large a number is
/// not std::bad_alloc.
std::unique_ptr<regmatch_t[]> unsetPlaces(std::size_t count)
{
    auto places = std::make_unique_for_overwrite<regmatch_t[]>(count);
    std::fill_n(places.get(), count, regmatch_t{-1, -1});
    return places;
}

void store(Result& result, const std::string& subject, std::uint32_t offset,
    const regmatch_t* places, std::size_t count)
{
    result.groups.resize(count);
    result.subject = subject;
    result.offset = offset;
    for (std::size_t i = 0; i < count; ++i) {
        const regmatch_t& place = places[i];
        if (place.rm_so != -1) {
            result.groups[i] = {static_cast<std::uint32_t>(place.rm_so) + offset,
                static_cast<std::uint32_t>(place.rm_eo - place.rm_so)};
        }
    }
}

} // namespace

Result::Group Result::group(std::size_t index) const noexcept
{
    return index < groups.size() ? groups[index] : Group{0, 0};
}

std::string Result::str(std::size_t index) const
{
    const auto [start, length] = group(index);
    return start <= subject.size() ? subject.substr(start, length) : std::string();
}

Regexp::Regexp(const std::string& pattern, int cflags)
{
    const int error = regcomp(&compiled_, pattern.c_str(), cflags);
    if (error != 0) {
        throw std::runtime_error(errorText(error, compiled_));
    }
}

Regexp::~Regexp()
{
    regfree(&compiled_);
}

bool Regexp::match(Result* out, const std::string& subject, std::size_t nmatch, int eflags) const
{
    return matchFrom(out, subject, 0, nmatch, eflags);
}

boost::shared_ptr<Result> Regexp::match(
    const std::string& subject, std::size_t nmatch, int eflags) const
{
    auto result = boost::make_shared<Result>();
    if (!match(result.get(), subject, nmatch, eflags)) {
        result.reset();
    }
    return result;
}

bool Regexp::matchFrom(Result* out, const std::string& subject, std::uint32_t offset,
    std::size_t nmatch, int eflags) const
{
    const std::size_t count = out != nullptr ? nmatch : 0;
    const auto places = count != 0 ? unsetPlaces(count) : nullptr;
    // REG_STARTEND would take the bounds of the search from the array.
    const int flags = eflags & ~REG_STARTEND;
    if (regexec(&compiled_, subject.c_str() + offset, count, places.get(), flags) == REG_NOMATCH) {
        return false;
    }
    if (out != nullptr) {
        store(*out, subject, offset, places.get(), count);
    }
    return true;
}

std::string Regexp::escape(const std::string& text, bool extended)
{
    constexpr std::string_view basic = "\\.*[]^$";
    constexpr std::string_view further = "+?{}()|";
    std::string pattern;
    pattern.reserve(text.size());
    for (const char c : text) {
        const bool special = basic.find(c) != std::string_view::npos ||
                             (extended && further.find(c) != std::string_view::npos);
        if (special) {
            pattern += '\\';
        }
        pattern += c;
    }
    return pattern;
}

} // namespace zelto
