#pragma once

#include <cstddef>
#include <string>

namespace zelto
{

/// Writes a string piece by piece. What was written is taken from the string's front when the
/// writer goes, on whatever way: once, where doing so after every piece would make the time grow
/// with the square of the length.
class FrontWriter
{
public:
    explicit FrontWriter(std::string& text) noexcept : text_(text) {}
    ~FrontWriter() { text_.erase(0, done_); }
    FrontWriter(const FrontWriter&) = delete;
    FrontWriter& operator=(const FrontWriter&) = delete;

    /// Writes until nothing is left or the descriptor takes no more for now. Errors and signals are
    /// those of writeToString().
    /// @param atOnce how much one write(2) is offered at most.
    void write(int fd, std::size_t atOnce = std::string::npos);

    [[nodiscard]] bool finished() const noexcept { return done_ >= text_.size(); }

private:
    std::string& text_;
    std::size_t done_ = 0;
};

} // namespace zelto
