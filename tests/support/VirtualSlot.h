#pragma once

#include <cstddef>
#include <cstring>

#ifndef __x86_64__
#error "other processors keep the place of a virtual function elsewhere"
#endif

/// The place of a virtual function among those of its class, counted from 0; the destructor takes
/// two. As the Itanium C++ ABI has it on x86-64: a pointer to a virtual member function holds its
/// distance in the table plus one.
template<class Function>
std::ptrdiff_t virtualSlot(Function function)
{
    std::ptrdiff_t distance = 0;
    static_assert(sizeof function >= sizeof distance);
    std::memcpy(&distance, &function, sizeof distance);
    return (distance - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}
