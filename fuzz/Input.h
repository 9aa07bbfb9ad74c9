#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// The bytes of one input, taken apart line by line: seeds are texts that can be written by hand.
class Input
{
public:
    Input(const uint8_t* data, size_t size) : left_(reinterpret_cast<const char*>(data), size) {}

    [[nodiscard]] bool empty() const { return left_.empty(); }

    /// The next line without its newline; "" when nothing is left.
    std::string line()
    {
        const std::string_view line = left_.substr(0, left_.find('\n'));
        left_.remove_prefix(line.size() < left_.size() ? line.size() + 1 : line.size());
        return std::string(line);
    }

    /// Everything from here on.
    std::string rest()
    {
        const std::string_view rest = left_;
        left_ = {};
        return std::string(rest);
    }

private:
    std::string_view left_;
};

/// The text as a C string holds it: up to its first NUL.
inline std::string upToNul(const std::string& text)
{
    return text.substr(0, text.find('\0'));
}

/// A number at the begin of a text; 0 if there is none. Any digits behind the fourth are another.
inline size_t leadingNumber(std::string_view text)
{
    size_t number = 0;
    for (const char c : text.substr(0, 4)) {
        if (c < '0' || c > '9') {
            break;
        }
        number = number * 10 + static_cast<size_t>(c - '0');
    }
    return number;
}
