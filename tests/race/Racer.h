#pragma once

#include <atomic>
#include <cstdint>
#include <sys/types.h>
#include <vector>

#include "tests/race/Ground.h"

namespace race
{

/// A process under the site user's ids that exchanges entries as fast as it can, when it is told
/// to.
class Racer
{
public:
    explicit Racer(const std::vector<Exchange>& exchanges);
    ~Racer();
    Racer(const Racer&) = delete;
    Racer& operator=(const Racer&) = delete;

    /// Returns when the racer is under way.
    void start();

    /// Returns when the racer has stopped.
    void stop();

    /// Every exchange once; returns when they are done.
    void stepOnce();

    /// How many exchanges have happened until now.
    [[nodiscard]] uint64_t exchanges() const { return shared_->exchanges; }

private:
    struct Shared {
        std::atomic<bool> racing = false;
        std::atomic<uint64_t> turns = 0;
        std::atomic<uint64_t> exchanges = 0;
    };

    [[noreturn]] void live(const std::vector<Exchange>& exchanges, int orders, int answers) const;
    void stepAll(const std::vector<Exchange>& exchanges) const;
    void order(char order) const;
    void awaitAnswer() const;

    Shared* shared_;
    pid_t process_ = 0;
    int orders_ = -1;
    int answers_ = -1;
};

} // namespace race
