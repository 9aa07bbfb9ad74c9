#include "tests/exec/OpenDescriptors.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <unistd.h>

std::set<int> openNumbers()
{
    std::set<int> numbers;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int number = std::stoi(entry.path().filename().string());
        if (behind(number) != "/proc/" + std::to_string(getpid()) + "/fd") { // the iterator's own
            numbers.insert(number);
        }
    }
    return numbers;
}

std::string behind(int fd)
{
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), error).string();
}

std::vector<int> DescriptorWatch::added() const
{
    const std::set<int> now = openNumbers();
    std::vector<int> added;
    std::set_difference(
        now.begin(), now.end(), before_.begin(), before_.end(), std::back_inserter(added));
    return added;
}

size_t DescriptorWatch::closeAdded() const
{
    const std::vector<int> numbers = added();
    for (const int number : numbers) {
        close(number);
    }
    return numbers.size();
}
