#pragma once

#include <algorithm>
#include <cstddef>
#include <sys/select.h>
#include <vector>

namespace zelto
{

/// A set of descriptors for select(2) that holds any number. An fd_set ends at FD_SETSIZE, and
/// FD_SET() beyond that ends the process or writes past the set.
class DescriptorSet
{
public:
    /// @param count the set can hold the descriptors 0 to count - 1.
    explicit DescriptorSet(int count) : words_(wordOf(count - 1) + 1) {}

    void clear() noexcept { std::fill(words_.begin(), words_.end(), 0); }
    void add(int fd) noexcept { words_[wordOf(fd)] |= bitOf(fd); }
    [[nodiscard]] bool has(int fd) const noexcept { return (words_[wordOf(fd)] & bitOf(fd)) != 0; }

    /// For select(2), which looks no further than the count that it is given.
    fd_set* get() noexcept { return reinterpret_cast<fd_set*>(words_.data()); }

private:
    using Word = unsigned long; // the kernel's unit, whose bits are counted from the lowest

    static constexpr std::size_t bits = 8 * sizeof(Word);
    static constexpr std::size_t wordOf(int fd) { return static_cast<std::size_t>(fd) / bits; }
    static constexpr Word bitOf(int fd) { return Word{1} << (static_cast<std::size_t>(fd) % bits); }

    std::vector<Word> words_;
};

} // namespace zelto
