#include "site/ParentDirectory.h"

#include <fcntl.h>

namespace zelto
{

int ParentDirectory::of(std::string_view path)
{
    const size_t slash = path.rfind('/');
    // The slash stays: it is the whole path of the root directory.
    const std::string_view parent =
        slash == std::string_view::npos ? "." : path.substr(0, slash + 1);
    if (!directory_ || parent != path_) {
        path_ = parent;
        directory_.reset(::open(path_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    }
    return directory_.get();
}

const char* ParentDirectory::nameIn(const std::string& path)
{
    const size_t slash = path.rfind('/');
    return path.c_str() + (slash == std::string::npos ? 0 : slash + 1);
}

} // namespace zelto
