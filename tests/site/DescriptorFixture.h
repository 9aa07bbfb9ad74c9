#pragma once

#include <exception>
#include <fcntl.h>
#include <sys/mman.h>
#include <typeinfo>
#include <unistd.h>

#include "site/InstanceDescriptor.h"
#include "tests/site/SiteRemovalFixture.h"

/// Runs the body with another standard input.
template<class Body>
void withStandardInput(int file, Body body)
{
    const int kept = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
    dup2(file, STDIN_FILENO);
    body();
    dup2(kept, STDIN_FILENO);
    close(kept);
}

/// Runs the body with this text as standard input.
template<class Body>
void withInput(const std::string& text, Body body)
{
    const int file = memfd_create("input", MFD_CLOEXEC);
    for (size_t written = 0; written < text.size();) {
        const ssize_t count = write(file, text.data() + written, text.size() - written);
        ASSERT_GT(count, 0);
        written += static_cast<size_t>(count);
    }
    ASSERT_EQ(lseek(file, 0, SEEK_SET), 0);
    withStandardInput(file, body);
    close(file);
}

/// "1 index.php|0 counter.cgi|": the kinds and paths that were read, or what was thrown. What the
/// parser itself writes to standard error is dropped.
inline std::string readFromStandardInput()
{
    std::string read;
    (void)outputOf([&] {
        try {
            for (const zelto::TreeEntry& entry : zelto::readDescriptor()) {
                read += std::to_string(entry.kind) + ' ' + entry.path.native() + '|';
            }
        } catch (const std::exception& exception) {
            EXPECT_TRUE(typeid(exception) == typeid(std::runtime_error));
            read = exception.what();
        }
    });
    return read;
}

inline std::string readFrom(const std::string& text)
{
    std::string read;
    withInput(text, [&] { read = readFromStandardInput(); });
    return read;
}

/// The same for a section "htdocs" with this content.
inline std::string readFiles(const std::string& content)
{
    return readFrom(
        "<INSTANCE-DATA><SECTION PREFIX=\"htdocs\">" + content + "</SECTION></INSTANCE-DATA>");
}
