#pragma once

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <cstdint>
#include <regex.h>
#include <string>
#include <utility>
#include <vector>

#include "support/Api.h"

namespace zelto
{

/// One compiled regular expression of regcomp(3). Matching changes nothing in it, but is for one
/// thread at a time.
class ZELTO_API Regexp
{
public:
    /// Where a match and its groups lie in the subject. It can be used for one match after another;
    /// groups that take no part in a later match then keep what an earlier one left in them.
    struct ZELTO_API MatchResultData {
        /// The place of a group: its start in the subject and its length, both in bytes.
        using Group = std::pair<std::uint32_t, std::uint32_t>;

        std::string subject;       ///< a copy of the whole text that was matched
        std::uint32_t offset = 0;  ///< where in the subject matching started
        std::vector<Group> groups; ///< as many as were asked for; group 0 is the whole match

        /// The place of a group; (0, 0) for a group that has not taken part in any match yet and
        /// for one behind the last.
        [[nodiscard]] Group group(std::size_t index) const noexcept;

        /// The text of a group; empty where group() is (0, 0), and for a start that is behind the
        /// subject's end or has all its bits set. A length beyond the end means up to the end.
        [[nodiscard]] std::string str(std::size_t index) const;
    };

    /// Compiles a pattern, as regcomp(3).
    ///
    /// @param pattern the expression; it ends at its first NUL.
    /// @param cflags  such as REG_EXTENDED | REG_NEWLINE, with which '^' and '$' stand for the
    ///                bounds of each line.
    /// @throw std::runtime_error if the pattern does not compile, with the text of regerror(3) and
    ///                           nothing else.
    Regexp(const std::string& pattern, int cflags);
    Regexp(const Regexp&) = delete;
    Regexp& operator=(const Regexp&) = delete;
    ~Regexp();

    /// Looks for the first match in a subject, as regexec(3).
    ///
    /// @param out     filled in when there is a match, else left as it is; null if only the answer
    ///                is wanted. It stays the caller's.
    /// @param subject what to search; it is searched up to its first NUL and kept whole.
    /// @param nmatch  how many groups `out` will hold, the whole match as group 0 included.
    /// @param eflags  REG_NOTBOL, REG_NOTEOL or both, else 0. REG_STARTEND has no effect.
    /// @return false if there is no match; true if there is one, and also when regexec(3) fails,
    ///         in which case no group took part.
    /// @throw std::bad_alloc without memory for the groups.
    bool match(
        MatchResultData* out, const std::string& subject, std::size_t nmatch, int eflags) const;

    /// As the other form, with a result of its own.
    ///
    /// @return the result, shared by whoever holds it, or an empty pointer if there is no match.
    [[nodiscard]] boost::shared_ptr<MatchResultData> match(
        const std::string& subject, std::size_t nmatch, int eflags) const;

    /// Makes a pattern that matches a text literally. A backslash is put before each backslash and
    /// each of `.*[]^$`, and for extended expressions before each of `+?{}()|` too; nothing else
    /// changes.
    [[nodiscard]] static std::string escape(const std::string& text, bool extended);

private:
    ZELTO_INTERNAL bool matchFrom(MatchResultData* out, const std::string& subject,
        std::uint32_t offset, std::size_t nmatch, int eflags) const;

    regex_t compiled_{};
};

} // namespace zelto
