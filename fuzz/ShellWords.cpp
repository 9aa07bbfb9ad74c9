#include "fuzz/ShellWords.h"

#include <string_view>

namespace
{

/// What means something to a shell when nothing protects it, apart from blanks, backslashes and
/// single quotes.
bool isSpecial(char c, bool beginsWord)
{
    constexpr std::string_view everywhere = "|&;<>()$`\"*?[\n";
    constexpr std::string_view atTheBegin = "#~";
    return everywhere.find(c) != std::string_view::npos ||
           (beginsWord && atTheBegin.find(c) != std::string_view::npos);
}

/// Reads one text.
class Reader
{
public:
    explicit Reader(std::string_view text) : left_(text) {}

    bool read()
    {
        while (!left_.empty()) {
            if (!step(take())) {
                return false;
            }
        }
        endWord();
        return true;
    }

    std::vector<std::string> words;

private:
    char take()
    {
        const char first = left_[0];
        left_.remove_prefix(1);
        return first;
    }

    bool step(char c)
    {
        if (c == ' ' || c == '\t') {
            endWord();
            return true;
        }
        if (c == '\'') {
            return takeQuoted();
        }
        if (c == '\\') {
            return takeProtected();
        }
        if (isSpecial(c, !word_)) {
            return false;
        }
        add(c);
        return true;
    }

    bool takeProtected()
    {
        if (left_.empty()) {
            return false;
        }
        // Behind a backslash a newline is not there at all.
        if (const char c = take(); c != '\n') {
            add(c);
        }
        return true;
    }

    bool takeQuoted()
    {
        const size_t end = left_.find('\'');
        if (end == std::string_view::npos) {
            return false;
        }
        word().append(left_.substr(0, end));
        left_.remove_prefix(end + 1);
        return true;
    }

    void add(char c) { word() += c; }

    std::string& word() { return word_ ? *word_ : word_.emplace(); }

    void endWord()
    {
        if (word_) {
            words.push_back(*word_);
            word_.reset();
        }
    }

    std::string_view left_;
    std::optional<std::string> word_; ///< the one that has begun
};

} // namespace

std::optional<std::vector<std::string>> shellWords(const std::string& text)
{
    Reader reader(text);
    if (!reader.read()) {
        return std::nullopt;
    }
    return reader.words;
}
