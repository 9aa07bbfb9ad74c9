#include "fsutil/Text.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "conf/FatalLogger.h"
#include "conf/FreeDeleter.h"

namespace
{

bool isSpace(char character)
{
    return std::isspace(static_cast<unsigned char>(character)) != 0;
}

/// strncpy(3) that may copy a buffer onto itself.
void paddedCopy(char* destination, const char* source, size_t size)
{
    const size_t length = strnlen(source, size);
    std::memmove(destination, source, length);
    std::memset(destination + length, '\0', size - length);
}

/// Output that takes whole pieces as long as they and the terminator fit, and nothing after the
/// first that did not.
class BoundedOutput
{
public:
    BoundedOutput(char* buffer, size_t size) : buffer_(buffer), size_(size) { *buffer_ = '\0'; }

    void append(const char* piece, size_t length)
    {
        full_ = full_ || length >= size_ - used_;
        if (!full_) {
            std::memcpy(buffer_ + used_, piece, length);
            used_ += length;
            buffer_[used_] = '\0';
        }
    }

private:
    char* buffer_;
    size_t size_;
    size_t used_ = 0;
    bool full_ = false;
};

} // namespace

int isEmpty(const char* text)
{
    return text == nullptr || *text == '\0' ? 1 : 0;
}

char* replaceCharacter(char* source, char* destination, char oldCharacter, char newCharacter)
{
    char* result = destination != nullptr ? destination : source;
    char* out = result;
    for (const char* in = source; *in != '\0'; ++in) {
        *out++ = *in == oldCharacter ? newCharacter : *in;
    }
    *out = '\0';
    return result;
}

int lowerCaseInPlace(char* text)
{
    for (; text != nullptr && *text != '\0'; ++text) {
        *text = static_cast<char>(std::tolower(static_cast<unsigned char>(*text)));
    }
    return 0;
}

char* lowerCasedCopy(const char* text)
{
    if (text == nullptr) {
        return nullptr;
    }
    char* copy = strdup(text);
    if (copy == nullptr) {
        fatalLogger(0, 1, "System error: %s\n", std::strerror(errno));
    }
    (void)lowerCaseInPlace(copy);
    return copy;
}

char* trim(char* text)
{
    char* end = text + std::strlen(text);
    while (end > text && isSpace(end[-1])) {
        --end;
    }
    *end = '\0';
    while (isSpace(*text)) {
        ++text;
    }
    return text;
}

char* strn_replace(
    const char* source, char* destination, const char* search, const char* replacement, size_t size)
{
    if (destination == nullptr || source == nullptr || size == 0) {
        return destination;
    }
    if (isEmpty(search) != 0) {
        paddedCopy(destination, source, size);
        return destination;
    }
    if (replacement == nullptr) {
        return destination;
    }
    const CString scratch(static_cast<char*>(std::malloc(size)));
    if (!scratch) {
        fatalLogger(0, 1, "strn_replace(): %s\n", std::strerror(errno));
        boundedCopy(destination, source, size);
        return destination;
    }

    BoundedOutput output(scratch.get(), size);
    const size_t searchLength = std::strlen(search);
    const size_t replacementLength = std::strlen(replacement);
    while (const char* match = std::strstr(source, search)) {
        output.append(source, static_cast<size_t>(match - source));
        output.append(replacement, replacementLength);
        source = match + searchLength;
    }
    output.append(source, std::strlen(source));
    boundedCopy(destination, scratch.get(), size);
    return destination;
}

size_t boundedCopy(char* destination, const char* source, size_t size)
{
    const size_t length = std::strlen(source);
    if (size > 0) {
        const size_t copied = std::min(length, size - 1);
        std::memmove(destination, source, copied);
        destination[copied] = '\0';
    }
    return length;
}

int isAllDigits(const char* text)
{
    for (; *text != '\0'; ++text) {
        if (std::isdigit(static_cast<unsigned char>(*text)) == 0) {
            return 0;
        }
    }
    return 1;
}
