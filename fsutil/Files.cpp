#include "fsutil/Files.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

#include "conf/FatalLogger.h"
#include "conf/FreeDeleter.h"
#include "conf/ReadStream.h"
#include "fsutil/Descriptor.h"
#include "fsutil/Text.h"

namespace
{

/// Reads up to the first newline; null at the end of the file and on failure.
CString readLine(FILE* stream)
{
    char* line = nullptr;
    size_t size = 0;
    const ssize_t length = getdelim(&line, &size, '\n', stream);
    CString owned(line);
    return length >= 0 ? std::move(owned) : nullptr;
}

} // namespace

int closeStream(FILE* stream)
{
    // NOLINTNEXTLINE(cppcoreguidelines-owning-memory): as with fclose(3), the caller gives it up
    const int result = std::fclose(stream);
    if (result != 0) {
        fatalLogger(0, 1, "Unable to close the file: %s\n", std::strerror(errno));
    }
    return result;
}

int readFirstLine(char* destination, size_t size, const char* path)
{
    ReadStream stream(std::fopen(path, "r"));
    if (!stream) {
        fatalLogger(0, 1, "Unable to open file %s: %s\n", path, std::strerror(errno));
        return -1;
    }
    const CString line = readLine(stream.get());
    if (!line && std::feof(stream.get()) != 0) {
        std::fill_n(destination, size, '\0');
        (void)stream.release(); // stays open, as documented
        return 0;
    }
    if (!line) {
        fatalLogger(0, 1, "Unable to read line from file: %s\n", path);
        return -1;
    }
    stream.reset();

    const char* text = trim(line.get());
    if (std::strlen(text) >= size) {
        fatalLogger(0, 1, "The buffer too short\n");
        return -1;
    }
    std::strncpy(destination, text, size); // pads with NULs
    return 0;
}

int firstExistingPath(const char** found, const char* const* paths)
{
    struct stat status = {};
    for (; *paths != nullptr; ++paths) {
        if (stat(*paths, &status) == 0) {
            *found = *paths;
            return 1;
        }
        errno = 0;
    }
    *found = nullptr;
    return 0;
}

int createFile(const char* path)
{
    const Descriptor file(open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    if (!file) {
        fatalLogger(0, 1, "Unable to create file %s: %s", path, std::strerror(errno));
        return -1;
    }
    return 0;
}

int truncateOrCreateFile(const char* path)
{
    const Descriptor file(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!file) {
        fatalLogger(0, 1, "Unable to truncate or create file %s: %s", path, std::strerror(errno));
        return -1;
    }
    return 0;
}
