#pragma once

#include <dirent.h>
#include <memory>

/// Reads the entries of an open directory through a buffer of fixed size, so that neither memory
/// nor descriptors grow with the directory. Unlike readdir(3) it needs no stream of its own and
/// can go on behind a known entry after the directory was closed and opened again.
class DirectoryReader
{
public:
    DirectoryReader();

    /// The next entry, valid until the next call; null at the end. A failed read counts as the
    /// end of the directory.
    const dirent64* next(int directory);

    /// Where the entry behind the last one returned stands, for lseek(2).
    [[nodiscard]] off64_t position() const noexcept { return position_; }

private:
    std::unique_ptr<char[]> buffer_;
    size_t at_ = 0;
    size_t end_ = 0;
    off64_t position_ = 0;
};
