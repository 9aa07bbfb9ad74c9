#pragma once

#include <set>
#include <string>
#include <vector>

/// The numbers of the descriptors that this process has open.
std::set<int> openNumbers();

/// What stands behind a descriptor, as "/dev/null" or "pipe:[1234]"; "" when it is closed.
std::string behind(int fd);

/// Remembers what is open when it is made.
class DescriptorWatch
{
public:
    DescriptorWatch() : before_(openNumbers()) {}

    /// Those that have been opened since, in ascending order.
    [[nodiscard]] std::vector<int> added() const;

    /// Closes them, and says how many they were.
    [[nodiscard]] size_t closeAdded() const;

private:
    std::set<int> before_;
};
