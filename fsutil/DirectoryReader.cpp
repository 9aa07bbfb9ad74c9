#include "fsutil/DirectoryReader.h"

#include <unistd.h>

namespace
{

// What readdir(3) uses: large enough to make the calls rare, small enough to hold one a level.
constexpr size_t bufferSize = 32768;

} // namespace

const dirent64* DirectoryReader::next(int directory)
{
    if (at_ == end_ && !fill(directory)) {
        return nullptr;
    }
    const auto* entry = reinterpret_cast<const dirent64*>(buffer_.get() + at_);
    at_ += entry->d_reclen;
    position_ = entry->d_off;
    return entry;
}

void DirectoryReader::readAhead(int directory)
{
    if (at_ == end_) {
        (void)fill(directory);
    }
}

void DirectoryReader::rest()
{
    if (!ended()) {
        resting_ = true;
        ended_ = likely_ = false;
    }
    at_ = end_ = 0;
    buffer_.reset();
}

int DirectoryReader::goOnBehind(int directory, off64_t position, const std::string& name)
{
    if (startAt(directory, position) != 0) {
        return -1;
    }
    bool inFirstBatch = true;
    while (const dirent64* entry = next(directory)) {
        if (name == entry->d_name) {
            return 0;
        }
        if (entry->d_off != position) {
            break;
        }
        inFirstBatch = inFirstBatch && at_ != end_;
    }
    if (!inFirstBatch) {
        return startAt(directory, position);
    }
    at_ = 0;
    position_ = position;
    return 0;
}

int DirectoryReader::startAt(int directory, off64_t position)
{
    if (lseek(directory, position, SEEK_SET) < 0) {
        return -1;
    }
    at_ = end_ = 0;
    ended_ = likely_ = resting_ = false;
    position_ = position;
    return 0;
}

/// Reads the next entries into the buffer; false at the end.
bool DirectoryReader::fill(int directory)
{
    if (ended_) {
        buffer_.reset();
        return false;
    }
    if (!buffer_) {
        buffer_ = std::make_unique_for_overwrite<char[]>(bufferSize);
    }
    const ssize_t length = getdents64(directory, buffer_.get(), bufferSize);
    at_ = 0;
    end_ = length > 0 ? static_cast<size_t>(length) : 0;
    likely_ = trusted_ == End::likely && end_ > 0 && bufferSize - end_ >= sizeof(dirent64);
    ended_ = end_ == 0 || likely_;
    if (end_ == 0) {
        buffer_.reset();
    }
    return end_ > 0;
}
