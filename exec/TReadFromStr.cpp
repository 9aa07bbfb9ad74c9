#include "exec/TReadFromStr.h"

#include <cerrno>
#include <string_view>
#include <unistd.h>
#include <utility>

#include "conf/StandardStreams.h"
#include "exec/CloseDescriptors.h"
#include "exec/Pipe.h"
#include "support/TSysCallErr.h"

namespace zelto::sys
{

namespace
{

/// Stops when nobody reads any more, if SIGPIPE has not ended the process then.
void writeToStandardOutput(std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = ::write(STDOUT_FILENO, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            return;
        }
    }
}

/// The helper's whole life. It ends without the exit handlers of the program that it was copied
/// from, and holds no pipe but its own: with the read end of another one open, it would keep the
/// program from noticing that its own output is no longer read.
[[noreturn]] void feed(Pipe& pipe, std::string_view text) noexcept
{
    pipe.becomeStandardOutput();
    closeDescriptorsFrom(STDERR_FILENO + 1);
    writeToStandardOutput(text);
    ::_exit(0);
}

} // namespace

TReadFromStr::TReadFromStr(std::string text) noexcept : text_(std::move(text)) {}

TReadFromStr::~TReadFromStr() = default;

void TReadFromStr::inChild(const TExec& /*exec*/)
{
    Pipe pipe;
    pipe.open();
    flushStandardStreams();
    const pid_t helper = ::fork();
    if (helper == -1) {
        throw TSysCallErr(errno);
    }
    if (helper == 0) {
        feed(pipe, text_);
    }
    pipe.becomeStandardInput();
}

} // namespace zelto::sys
