#include "tests/lib/FailingNew.h"

#include <cstdlib>
#include <new>
#include <stdexcept>

// NOLINTBEGIN(cppcoreguidelines-owning-memory, bugprone-reserved-identifier)

extern "C" void* __real_malloc(size_t size);

namespace
{

constinit int due = 0; ///< the call that fails, counted down; 0 = none
constinit FailingNew::Error thrown = FailingNew::Error::memory;

void* take(size_t size)
{
    const bool fails = due > 0 && --due == 0;
    return fails ? nullptr : __real_malloc(size != 0 ? size : 1);
}

void* takeOrThrow(size_t size)
{
    void* memory = take(size);
    if (memory == nullptr && thrown == FailingNew::Error::length) {
        throw std::length_error("too long");
    }
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

} // namespace

FailingNew::FailingNew(int nth, Error error)
{
    due = nth;
    thrown = error;
}

FailingNew::~FailingNew()
{
    due = 0;
}

// All forms at once: a sanitizer takes it amiss when memory of one allocator ends in another.
void* operator new(size_t size)
{
    return takeOrThrow(size);
}

void* operator new[](size_t size)
{
    return takeOrThrow(size);
}

void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    return take(size);
}

void* operator new[](size_t size, const std::nothrow_t&) noexcept
{
    return take(size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, size_t) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, const std::nothrow_t&) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, const std::nothrow_t&) noexcept
{
    std::free(memory);
}

// NOLINTEND(cppcoreguidelines-owning-memory, bugprone-reserved-identifier)
