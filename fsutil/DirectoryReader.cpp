#include "fsutil/DirectoryReader.h"

namespace
{

// What readdir(3) uses: large enough to make the calls rare, small enough to hold one a level.
constexpr size_t bufferSize = 32768;

} // namespace

DirectoryReader::DirectoryReader() : buffer_(std::make_unique_for_overwrite<char[]>(bufferSize)) {}

const dirent64* DirectoryReader::next(int directory)
{
    if (at_ == end_) {
        const ssize_t length = getdents64(directory, buffer_.get(), bufferSize);
        at_ = 0;
        end_ = length > 0 ? static_cast<size_t>(length) : 0;
        if (end_ == 0) {
            return nullptr;
        }
    }
    const auto* entry = reinterpret_cast<const dirent64*>(buffer_.get() + at_);
    at_ += entry->d_reclen;
    position_ = entry->d_off;
    return entry;
}
