#pragma once

#include <string>
#include <string_view>

#include "fsutil/Descriptor.h"

namespace zelto
{

/// The directory in which files are made, held open from one file to the next: files that come
/// in the order of their paths mostly share it.
class ParentDirectory
{
public:
    /// Opens the directory part of a path, or keeps it if it is the one of the last call; a path
    /// without one means the working directory.
    /// @return a descriptor that stays valid until the next call, or -1 with `errno`.
    int of(std::string_view path);

    /// The last component of a path, what is behind its last slash.
    static const char* nameIn(const std::string& path);

private:
    std::string path_;
    Descriptor directory_;
};

} // namespace zelto
