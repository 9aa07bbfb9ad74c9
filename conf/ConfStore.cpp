#include "conf/ConfStore.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>

#include "conf/PluggableLog.h"

namespace
{

constexpr size_t growthStep = 20;

CString duplicate(std::string_view text)
{
    CString copy(static_cast<char*>(std::malloc(text.size() + 1)));
    if (copy) {
        copy.get()[text.copy(copy.get(), text.size())] = '\0';
    }
    return copy;
}

/// Runs what fills a container; false when there is no room, in memory or in the container itself.
template<class Body>
bool findsRoom(Body body)
{
    try {
        body();
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    } catch (const std::length_error&) {
        return false;
    }
}

/// @param task what cannot be done to the configuration.
bool outOfMemory(const char* task)
{
    zelto_log(confLogPriority, "Unable to %s configuration: %s", task, std::strerror(ENOMEM));
    errno = ENOMEM;
    return false;
}

} // namespace

std::optional<size_t> nextCapacity(size_t capacity, size_t count, size_t limit)
{
    if (count < capacity) {
        return capacity;
    }
    // Both ways to grow start from at least the count, so nothing below can overflow.
    if (count >= limit) {
        return std::nullopt;
    }
    const size_t doubled = capacity * 2;
    const size_t wanted = doubled > count ? doubled : count + growthStep;
    return wanted < limit ? std::optional(wanted) : std::nullopt;
}

bool ConfStore::makeRoom()
{
    const std::optional<size_t> wanted = nextCapacity(capacity(), count(), limit_);
    if (wanted && reserve(*wanted)) {
        return true;
    }
    if (capacity() == 0) {
        errno = ENOMEM;
        return false;
    }
    return outOfMemory("read");
}

bool ConfStore::reserve(size_t capacity)
{
    return findsRoom([&] { pairs_.reserve(capacity); });
}

bool ConfStore::insert(std::string_view name, std::string_view value)
{
    if (!makeRoom()) {
        return false;
    }
    Pair pair{duplicate(name), duplicate(value)};
    if (pair.name && pair.value && findsRoom([&] { take(std::move(pair)); })) {
        return true;
    }
    return outOfMemory("form");
}

/// Needs room for one pair more. When it throws, the pairs are as they were.
void ConfStore::take(Pair pair)
{
    if (positions_.size() != pairs_.size()) {
        indexAll();
    }
    const auto [known, isNew] = positions_.try_emplace(pair.name.get(), pairs_.size());
    if (!isNew) {
        pairs_[known->second].value = std::move(pair.value);
        return;
    }
    pairs_.push_back(std::move(pair));
    sorted_ = false;
}

void ConfStore::indexAll()
{
    positions_.clear();
    for (const Pair& pair : pairs_) {
        positions_.emplace(pair.name.get(), positions_.size());
    }
}

void ConfStore::sort()
{
    if (!sorted_) {
        std::sort(pairs_.begin(), pairs_.end(), [](const Pair& left, const Pair& right) {
            return std::strcmp(left.name.get(), right.name.get()) < 0;
        });
    }
    positions_.clear();
    sorted_ = true;
}

const char* ConfStore::find(const char* name) const
{
    const auto found = sorted_ ? findSorted(name) : findAnywhere(name);
    return found != pairs_.end() ? found->value.get() : nullptr;
}

ConfStore::Pairs::const_iterator ConfStore::findSorted(const char* name) const
{
    const auto at = std::lower_bound(
        pairs_.begin(), pairs_.end(), name, [](const Pair& pair, const char* wanted) {
            return std::strcmp(pair.name.get(), wanted) < 0;
        });
    return at != pairs_.end() && std::strcmp(at->name.get(), name) == 0 ? at : pairs_.end();
}

ConfStore::Pairs::const_iterator ConfStore::findAnywhere(const char* name) const
{
    return std::find_if(pairs_.begin(), pairs_.end(),
        [name](const Pair& pair) { return std::strcmp(pair.name.get(), name) == 0; });
}
