#pragma once

/// Makes the nth next `operator new` (counted from 1) throw, until the object goes. The allocator
/// behind it neither counts as a call of malloc() for tests/lib/Faults.h nor touches `errno` when
/// it is made to fail.
class FailingNew
{
public:
    /// What is thrown: std::bad_alloc, or the std::length_error of a container that has reached its
    /// own limit, which no container of a test would.
    enum class Error { memory, length };

    explicit FailingNew(int nth = 1, Error error = Error::memory);
    ~FailingNew();
    FailingNew(const FailingNew&) = delete;
    FailingNew& operator=(const FailingNew&) = delete;
};
