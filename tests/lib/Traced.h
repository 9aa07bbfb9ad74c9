#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "tests/lib/Process.h"

/// @file
/// Runs of a program that stop at each of its system calls, so that a test can look, change the
/// world, make the call fail, or kill the program at just this place.

/// A call that is about to be made. The program waits for as long as the object is looked at.
struct SystemCall {
    pid_t process = 0;
    size_t index = 0; ///< 1 for the first call of main()
    long number = 0;
    std::array<uint64_t, 6> arguments{};

    /// "openat", or "call 999" for one that has no name here; "openat of a new nameless file" for
    /// an openat() with O_TMPFILE, since file systems know or refuse these by themselves.
    [[nodiscard]] std::string name() const;

    /// The text that an argument points to.
    [[nodiscard]] std::string text(size_t argument) const;

    /// What a descriptor of the program refers to, such as "/srv/www" or "pipe:[4711]"; the current
    /// directory for AT_FDCWD.
    [[nodiscard]] std::string descriptor(int file) const;

    /// For people: the name, what the first two arguments refer to, and the text in them.
    [[nodiscard]] std::string description() const;
};

/// What becomes of a call.
struct Verdict {
    enum class Kind { goOn, fail, kill, killAfter };
    Kind kind = Kind::goOn;
    int error = 0;
    bool isLast = false; ///< the program runs on untraced, and faster

    static Verdict goOn() { return {}; }
    /// The call is not made; the program sees this error.
    static Verdict fail(int error) { return {Kind::fail, error}; }
    /// The same, and no call after this one is of interest.
    static Verdict failLast(int error) { return {Kind::fail, error, true}; }
    /// SIGKILL in place of the call.
    static Verdict kill() { return {Kind::kill}; }
    /// SIGKILL when the call is done, before the program sees its result.
    static Verdict killAfter() { return {Kind::killAfter}; }
};

/// How a traced run ended.
struct TracedOutcome : Outcome {
    size_t calls = 0;  ///< the calls that were asked about
    bool hung = false; ///< it was killed because it did not come to an end
};

/// Runs a program and asks at the entry of each of its system calls, from the first one of main()
/// on, what is to become of it. What the dynamic loader does before is not counted: it would not be
/// the program's to handle. Any program will do whose main() begins with fcntl(0, F_GETFD), as that
/// of twigctl and that of tests/race/worker do. The program is given 20 seconds.
TracedOutcome runTraced(const std::string& path, const std::vector<std::string>& arguments,
    const Start& start, const std::function<Verdict(const SystemCall&)>& atEntry);

/// The numbers of the calls of an undisturbed run, from the first one of main() on.
std::vector<long> callsOfRun(
    const std::string& path, const std::vector<std::string>& arguments, const Start& start);

/// Like runTraced(), but asks at one call only, and is several times as fast.
/// @param calls those of the same run, undisturbed
/// @param index of the call among them, counted from 1
TracedOutcome runTracedAt(const std::string& path, const std::vector<std::string>& arguments,
    const Start& start, const std::vector<long>& calls, size_t index,
    const std::function<Verdict(const SystemCall&)>& atEntry);
