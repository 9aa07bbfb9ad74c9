#include "exec/TEArgs.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <unistd.h>

namespace zelto::sys
{

namespace
{

/// The words as execv(3) takes them: an array, closed by null, of texts of its own.
class ArgumentVector
{
public:
    explicit ArgumentVector(const std::vector<std::string>& words);

    [[nodiscard]] char* const* get() const { return pointers_.data(); }

private:
    std::vector<std::unique_ptr<char[]>> texts_;
    std::vector<char*> pointers_;
};

std::unique_ptr<char[]> copyOf(const std::string& word)
{
    auto copy = std::make_unique<char[]>(word.size() + 1);
    std::copy(word.begin(), word.end(), copy.get());
    return copy;
}

ArgumentVector::ArgumentVector(const std::vector<std::string>& words)
{
    texts_.reserve(words.size());
    pointers_.reserve(words.size() + 1);
    for (const std::string& word : words) {
        texts_.push_back(copyOf(word));
        pointers_.push_back(texts_.back().get());
    }
    pointers_.push_back(nullptr);
}

/// Returns the error number; on success it does not return.
int executeWords(const std::vector<std::string>& words, bool searchPath)
{
    if (words.empty()) {
        return EFAULT; // the kernel's answer to a null path, which execvp(3) would crash on
    }
    const ArgumentVector arguments(words);
    char* const* const argv = arguments.get();
    (void)(searchPath ? execvp(argv[0], argv) : execv(argv[0], argv));
    return errno;
}

std::string overflowText(std::size_t present, std::size_t additional)
{
    return "The number of arguments has exceeded the defined limits (arguments number = " +
           std::to_string(present) + ", add. arguments number = " + std::to_string(additional) +
           ", max = " + std::to_string(TEArgs::limit) + ")";
}

} // namespace

TEArgs::TEArgs() : words_(std::make_shared<std::vector<std::string>>()) {}

TEArgs::TEArgs(const TEArgs& other) noexcept = default;

TEArgs& TEArgs::operator=(const TEArgs& other) noexcept = default;

TEArgs::~TEArgs() = default;

TEArgs& TEArgs::add(const char* word)
{
    if (word == nullptr) {
        throw std::invalid_argument("TEArgs::add: null word");
    }
    return add(std::string(word));
}

TEArgs& TEArgs::add(const std::string& word)
{
    checkRoom(1);
    makePrivate();
    words_->push_back(word);
    return *this;
}

TEArgs& TEArgs::add(const TEArgs& other)
{
    checkRoom(other.size());
    // Held as a second owner, the words stay as they are even if they are this object's own.
    const auto added = other.words_;
    makePrivate();
    words_->insert(words_->end(), added->begin(), added->end());
    return *this;
}

const std::string& TEArgs::operator[](int index) const
{
    const auto position = static_cast<std::size_t>(index);
    if (index < 0 || position >= words_->size()) {
        throw TOutOfRange(*this, index);
    }
    return (*words_)[position];
}

std::size_t TEArgs::size() const noexcept
{
    return words_->size();
}

int TEArgs::execute(bool searchPath) const
{
    // Set last: whatever the copies' release does to errno, the caller reports the execution's.
    errno = executeWords(*words_, searchPath);
    return -1;
}

/// Comes before any change, so that refused words leave everything as it was, the sharing too.
void TEArgs::checkRoom(std::size_t additional) const
{
    if (size() + additional > limit) {
        throw TOverflow(*this, additional);
    }
}

void TEArgs::makePrivate()
{
    if (words_.use_count() > 1) {
        words_ = std::make_shared<std::vector<std::string>>(*words_);
    }
}

TEArgs::TEArgsError::TEArgsError(const std::string& message, const TEArgs& args)
    : TSysErr(message), args_(args)
{
}

TEArgs::TEArgsError::~TEArgsError() = default;

TEArgs::TOverflow::TOverflow(const TEArgs& args, std::size_t additional)
    : TEArgsError(overflowText(args.size(), additional), args)
{
}

TEArgs::TOverflow::~TOverflow() = default;

TEArgs::TOutOfRange::TOutOfRange(const TEArgs& args, int index)
    : TEArgsError("Wrong index (index = " + std::to_string(index) + ")", args), index_(index)
{
}

TEArgs::TOutOfRange::~TOutOfRange() = default;

} // namespace zelto::sys
