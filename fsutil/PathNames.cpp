#include "fsutil/PathNames.h"

#include <algorithm>

std::string_view takeName(std::string_view& path)
{
    path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
    const std::string_view name = path.substr(0, path.find('/'));
    path.remove_prefix(name.size());
    return name;
}

size_t stepsBack(std::string_view path)
{
    size_t steps = 0;
    while (!path.empty()) {
        steps += takeName(path) == ".." ? 1 : 0;
    }
    return steps;
}
