#include "support/misc.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <fcntl.h>
#include <fstream>
#include <ostream>
#include <regex.h>
#include <span>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "conf/ConfVariables.h"
#include "conf/Configuration.h"
#include "conf/StandardStreams.h"
#include "exec/ExecCmd.h"
#include "exec/Pipeline.h"
#include "exec/TEArgs.h"
#include "exec/TExec.h"
#include "support/Regexp.h"
#include "support/SystemError.h"
#include "support/TmpFile.h"

namespace zelto
{

namespace
{

const char* required(const char* text, const char* function)
{
    if (text == nullptr) {
        throw std::invalid_argument(std::string(function) + ": null where a text is required");
    }
    return text;
}

/// The system would take a path with a NUL character for another, shorter one.
const std::string& withoutNul(const std::string& path, const char* function)
{
    if (path.find('\0') != std::string::npos) {
        throw std::invalid_argument(std::string(function) + ": a NUL character in a path");
    }
    return path;
}

// ---- SELinux and containers

constexpr char selinuxConfiguration[] = "/etc/selinux/config";
constexpr std::array setfilesPaths{"/usr/sbin/setfiles", "/usr/bin/setfiles"};

/// What the group of a pattern stands for in the first line that matches; "" if none does. Groups
/// that could match nothing are not told apart from that.
std::string firstMatch(const char* pattern, const std::string& text)
{
    const Regexp regexp(pattern, REG_EXTENDED | REG_NEWLINE);
    const auto match = regexp.match(text, 2, 0);
    return match ? match->str(1) : std::string();
}

std::string findSetfiles()
{
    for (const char* const path : setfilesPaths) {
        struct stat status = {};
        if (stat(path, &status) == 0) {
            return path;
        }
    }
    return {};
}

/// Empty texts where the host has no SELinux or no tool.
struct RelabelCache {
    std::string setfilesPath;
    std::string fileContexts;
    bool probed = false;
};

const RelabelCache& relabelCache()
{
    static RelabelCache cache;
    if (!cache.probed) {
        cache.fileContexts = selinuxFileContexts();
        cache.setfilesPath = findSetfiles();
        cache.probed = true;
    }
    return cache;
}

// ---- Definitions

constexpr size_t bytesPerRow = 8;

void writeText(std::ostream& os, const std::string& text)
{
    os.write(text.data(), static_cast<std::streamsize>(text.size()));
}

void writeDefine(std::ostream& os, const char* name, const std::string& rest)
{
    writeText(os, "#define ");
    if (name == nullptr) {
        os.setstate(std::ios_base::badbit);
        return;
    }
    writeText(os, name + rest);
}

/// One row, and what joins it to the bytes that are still to come.
std::string rowOf(std::span<const unsigned char> bytes, size_t left)
{
    constexpr char digits[] = "0123456789abcdef";
    std::string row;
    for (const unsigned char byte : bytes) {
        row += {'0', 'x', digits[byte >> 4U], digits[byte & 15U], ',', ' '};
    }
    if (left == 0) {
        row.resize(row.size() - 2);
    }
    // A single byte left over is not joined: readers of these files expect just that.
    return row + (left >= 2 ? "\\\n" : "\n");
}

// ---- Backups

/// A descriptor open for writing on a file of a new name.
struct NewFile {
    std::string name;
    int fd;
};

/// A descriptor above 0, or -1 with `errno` set. With standard input closed, the file would get
/// its number and be taken for it by whatever runs next.
int openNew(const std::string& path)
{
    constexpr mode_t mode = 0620;
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (fd != 0) {
        return fd;
    }
    close(fd);
    errno = EBADF;
    return -1;
}

NewFile createBackup(const std::string& path)
{
    const std::string first = path + ".saved_by_kvo";
    std::string candidate = first;
    for (unsigned long counter = 1;; ++counter) {
        const int fd = openNew(candidate);
        if (fd > 0) {
            return {std::move(candidate), fd};
        }
        if (const int error = errno; error != EEXIST) {
            throwSystemError("Cannot write " + candidate, error);
        }
        candidate = first + '.' + std::to_string(counter);
    }
}

/// A stream into a new backup of a file. Nothing ever removes the backup.
class SystemConfBackup : private TmpFileBase, public std::ostream
{
public:
    explicit SystemConfBackup(const std::string& path) : SystemConfBackup(createBackup(path)) {}

    /// Writes a text and closes; the backup is complete if this returns.
    void keep(const std::string& content)
    {
        errno = 0;
        writeText(*this, content);
        const bool closed = buffer().close() != nullptr;
        if (!closed || !good()) {
            throwSystemError("Cannot write " + name(), errno);
        }
    }

private:
    explicit SystemConfBackup(NewFile file)
        : TmpFileBase(std::move(file.name), file.fd), std::ostream(&buffer())
    {
    }
};

} // namespace

std::string readFile(const std::string& path)
{
    const std::ifstream file(withoutNul(path, "readFile"));
    if (!file) {
        const int error = errno;
        throwSystemError(path + ": open failed", error);
    }
    std::ostringstream content;
    // Without exceptions, running out of memory would pass for the end of the file.
    content.exceptions(std::ios_base::badbit | std::ios_base::failbit);
    try {
        content << file.rdbuf();
    } catch (const std::ios_base::failure&) { // NOLINT(bugprone-empty-catch): nothing more to read
    }
    return std::move(content).str();
}

std::string selinuxFileContexts()
{
    std::string configuration;
    try {
        configuration = readFile(selinuxConfiguration);
    } catch (const ExSystemError<ENOENT>&) {
        return {};
    }
    const std::string type = firstMatch("^SELINUXTYPE=([a-z]+)$", configuration);
    const std::string mode = firstMatch("^SELINUX=([a-z]+)$", configuration);
    if (type.empty() || (mode != "enforcing" && mode != "permissive")) {
        return {};
    }
    return "/etc/selinux/" + type + "/contexts/files/file_contexts";
}

void relabelVhostPath(const char* relativePath)
{
    required(relativePath, "relabelVhostPath");
    const std::string target = std::string(variableByIndex(HTTPD_VHOSTS_D)) + '/' + relativePath;
    try {
        const RelabelCache& cache = relabelCache();
        if (!cache.setfilesPath.empty() && !cache.fileContexts.empty()) {
            ExecCmd setfiles(cache.setfilesPath);
            setfiles.add(cache.fileContexts).add(target).runChecked();
        }
    } catch (const std::exception& exception) {
        reportException(exception);
    }
}

std::string fileType(const std::string& path)
{
    sys::TEArgs arguments;
    arguments.add("file").add("-bL").add(withoutNul(path, "fileType"));
    std::string output;
    sys::runPipelineChecked({sys::TExec(arguments)}, output);
    return output;
}

std::string containerId()
{
    return firstMatch("^envID:[[:space:]]*([[:digit:]]+)$", readFile("/proc/self/status"));
}

void dumpDefines(std::ostream& os, const char* name, const void* data, int length)
{
    if (length > 0 && data == nullptr) {
        throw std::invalid_argument("dumpDefines: null where bytes are required");
    }
    writeDefine(os, name, "_LEN " + std::to_string(length));
    os << std::endl;
    if (length <= 0) {
        return;
    }
    std::span left(static_cast<const unsigned char*>(data), static_cast<size_t>(length));
    writeDefine(os, name, "_DATA ");
    while (!left.empty()) {
        const size_t count = std::min(left.size(), bytesPerRow);
        const std::span row = left.first(count);
        left = left.subspan(count);
        writeText(os, rowOf(row, left.size()) + (left.empty() ? "" : "\t\t\t"));
    }
}

void backupConfigFile(const char* path)
{
    std::string content;
    try {
        content = readFile(required(path, "backupConfigFile"));
    } catch (const ExSystemError<ENOENT>&) {
        return;
    }
    if (content.find(generatedFileBanner) == std::string::npos) {
        SystemConfBackup(path).keep(content);
    }
}

} // namespace zelto
