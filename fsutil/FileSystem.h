#pragma once

#include <sys/types.h>

/// What a walk may rely on in the file system that a directory is on.
class FileSystem
{
public:
    FileSystem() = default;

    /// @param directory open; one that cannot be asked is on a file system that is not known.
    explicit FileSystem(int directory);

    [[nodiscard]] dev_t device() const noexcept { return device_; }

    /// Whether the inode number that comes with a directory's entry is the one that stat(2) tells,
    /// for everything but mount points. It is not where a file system puts others together or has
    /// several number spaces, so the ones that are known to keep it are named.
    [[nodiscard]] bool entriesTellInodes() const noexcept { return entriesTellInodes_; }

private:
    dev_t device_ = 0;
    bool entriesTellInodes_ = false;
};
