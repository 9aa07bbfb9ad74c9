#pragma once

/// @file
/// Failing calls on demand. The test programs are linked so that the library's calls of the
/// functions listed in tests/CMakeLists.txt pass through here first; nothing else is touched, and
/// with nothing armed every call goes straight on.

namespace faults
{

/// Lets the nth next call of the function (counted from 1) fail with this error number.
/// "malloc" and its kin return null then. At most one fault per function is armed.
void fail(const char* function, int error, int nth = 1);

/// Lets every call of the function fail until clear().
void failAlways(const char* function, int error);

/// Runs the body once, right before the nth next call of the function goes on: what somebody else
/// might do at just this moment. The call itself does not fail.
void runBefore(const char* function, int nth, void (*body)());

/// How often the function was called since the last clear().
int calls(const char* function);

/// Makes getdents64() leave the type of every entry unknown, as some file systems do.
void hideEntryTypes(bool hide);

/// Lets all entries that one getdents64() returns share their place in the directory, but for the
/// last, as file systems with coarse places do.
void shareEntryPositions(bool share);

/// Lets getdents64() return only a few entries at a time, however large the buffer.
void shortenReads(bool shorten);

/// Disarms everything and forgets the counts.
void clear();

/// Clears on entry and on exit of a test.
struct Guard {
    Guard() { clear(); }
    ~Guard() { clear(); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
};

} // namespace faults
