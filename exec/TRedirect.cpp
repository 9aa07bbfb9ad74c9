#include "exec/TRedirect.h"

#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace zelto::sys
{

namespace
{

/// Connects the target to a file just opened, -1 when that failed, and closes the file elsewhere.
void connect(int target, int file)
{
    if (file == target) {
        return; // the target was free, so the file was opened on it
    }
    ::close(target);
    if (file != -1) {
        ::dup2(file, target);
        ::close(file);
    }
}

int openForWriting(const std::string& path, bool append)
{
    constexpr mode_t mode = 0664;
    return ::open(path.c_str(), O_WRONLY | O_CREAT | (append ? O_APPEND : O_TRUNC), mode);
}

} // namespace

TRedirect::TRedirect(int target, int source) noexcept : target_(target), source_(source) {}

TRedirect::~TRedirect() = default;

void TRedirect::inChild(const TExec& /*exec*/)
{
    ::close(target_);
    ::dup2(source_, target_);
}

TRedirectToFile::TRedirectToFile(int target, std::string path, bool append) noexcept
    : target_(target), path_(std::move(path)), append_(append)
{
}

TRedirectToFile::~TRedirectToFile() = default;

void TRedirectToFile::inChild(const TExec& /*exec*/)
{
    connect(target_, openForWriting(path_, append_));
}

TToFile::TToFile(std::string path, bool append) noexcept : path_(std::move(path)), append_(append)
{
}

TToFile::~TToFile() = default;

void TToFile::inChild(const TExec& /*exec*/)
{
    connect(STDOUT_FILENO, openForWriting(path_, append_));
}

TFromFile::TFromFile(std::string path) noexcept : path_(std::move(path)) {}

TFromFile::~TFromFile() = default;

void TFromFile::inChild(const TExec& /*exec*/)
{
    connect(STDIN_FILENO, ::open(path_.c_str(), O_RDONLY));
}

} // namespace zelto::sys
