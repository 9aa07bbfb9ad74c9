#pragma once

/// Makes the nth next `operator new` (counted from 1) throw std::bad_alloc, until the object goes.
/// The allocator behind it neither counts as a call of malloc() for tests/lib/Faults.h nor touches
/// `errno` when it is made to fail.
class FailingNew
{
public:
    explicit FailingNew(int nth = 1);
    ~FailingNew();
    FailingNew(const FailingNew&) = delete;
    FailingNew& operator=(const FailingNew&) = delete;
};
