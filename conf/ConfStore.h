#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "conf/FreeDeleter.h"

/// The priority of everything that reading the configuration has to say; the default threshold of
/// the console printers keeps it silent.
constexpr int confLogPriority = 12;

/// The first number of pairs that a store refuses to hold.
constexpr size_t confStoreLimit = 0x1fffffff;

/// The capacity that a store of `capacity` pairs, `count` of them in use, needs for one pair more:
/// the same while there is room, else the double, or `count` + 20 where the double gains nothing.
/// @return nothing when that would reach the limit.
std::optional<size_t> nextCapacity(size_t capacity, size_t count, size_t limit = confStoreLimit);

/// The name and value pairs of a configuration file. Each name occurs once.
class ConfStore
{
public:
    /// @param limit the first refused number of pairs.
    explicit ConfStore(size_t limit = confStoreLimit) : limit_(limit) {}

    /// Makes room for one pair more.
    /// @return false, with `errno` ENOMEM, when there is none to be had. That goes to zelto_log
    ///         unless the store is still without any room.
    [[nodiscard]] bool makeRoom();

    /// Adds a pair, or gives a known name another value. Both texts are copied and end at their
    /// first NUL.
    /// @return false, after a message to zelto_log and with `errno` ENOMEM, without memory for
    ///         it. The pairs are then as they were.
    [[nodiscard]] bool insert(std::string_view name, std::string_view value);

    /// Brings the pairs into ascending order of their names, as strcmp(3) has it.
    void sort();

    /// The value of a name, or null. It belongs to the store and stays where it is until the
    /// name gets another value.
    [[nodiscard]] const char* find(const char* name) const;

    [[nodiscard]] size_t capacity() const { return pairs_.capacity(); }
    [[nodiscard]] size_t count() const { return pairs_.size(); }

    /// Whether the pairs are known to be in order; true for an empty store.
    [[nodiscard]] bool sorted() const { return sorted_; }

private:
    struct Pair {
        CString name;
        CString value;
    };
    using Pairs = std::vector<Pair>;

    [[nodiscard]] bool reserve(size_t capacity);
    void take(Pair pair);
    void indexAll();
    [[nodiscard]] Pairs::const_iterator findSorted(const char* name) const;
    [[nodiscard]] Pairs::const_iterator findAnywhere(const char* name) const;

    Pairs pairs_;
    /// Where each name is, while pairs are coming in; without it a file of many names would take
    /// time by their square.
    std::unordered_map<std::string_view, size_t> positions_;
    size_t limit_;
    bool sorted_ = true;
};
