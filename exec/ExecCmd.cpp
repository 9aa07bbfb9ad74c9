#include "exec/ExecCmd.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>

#include "conf/FreeDeleter.h"
#include "exec/ForkExec.h"
#include "exec/ShellEscape.h"

namespace zelto
{

namespace
{

constexpr char failureName[] = "ExecCmd::ExFailed";
constexpr char failureFormat[] = "Execution of %1% failed with return code %2%.\n%3%%4%%5%";

// Where failures say they were raised. Part of the report, so it does not move with the code.
constexpr char raisingFunction[] = "void zelto::ExecCmd::reportError() const";
constexpr char raisingFile[] = "ExecCmd";
constexpr int raisingLine = 49;

/// A C string would end at a NUL character, and the program would get something else than the
/// caller asked for.
const std::string& withoutNul(const std::string& text)
{
    if (text.find('\0') != std::string::npos) {
        throw std::invalid_argument("ExecCmd: a NUL character in a text for a program");
    }
    return text;
}

std::string section(const char* name, const std::string& content)
{
    if (content.empty()) {
        return {};
    }
    return std::string(name) + " is\n" + content + (content.back() == '\n' ? "" : "\n");
}

std::string outputSummary(const std::string& stream, const std::string& output)
{
    return output.empty() ? " \nNo output on " + stream + " were performed by the utility"
                          : " \nThe output on " + stream + " was: \n" + output;
}

} // namespace

ExecCmd::Arguments::~Arguments()
{
    for (char* const text : texts_) {
        const CString owned(text);
    }
}

void ExecCmd::Arguments::add(const std::string& text)
{
    CString copy(strdup(withoutNul(text).c_str()));
    if (!copy) {
        throw std::bad_alloc();
    }
    texts_.push_back(nullptr);
    texts_[texts_.size() - 2] = copy.release();
}

ExecCmd::ExecCmd(const std::string& path) : path_(path)
{
    argv_.add(path);
}

ExecCmd::~ExecCmd() = default;

ExecCmd& ExecCmd::add(const std::string& argument)
{
    argv_.add(argument);
    return *this;
}

ExecCmd& ExecCmd::setEnv(const std::string& name, const std::string& value)
{
    env_.insert_or_assign(withoutNul(name), withoutNul(value));
    return *this;
}

void ExecCmd::runChecked()
{
    execute();
    if (returnCode_ != 0) {
        reportError();
    }
}

int ExecCmd::run()
{
    return execute();
}

int ExecCmd::execute()
{
    started_ = true;
    std::string input = stdinData_;
    returnCode_ = forkExecvGetOutErr(
        input, stdoutData_, stderrData_, path_, argv_.texts().data(), uid_, env_);
    finished_ = true;
    savedErrno_ = errno;
    return returnCode_;
}

std::string ExecCmd::summary() const
{
    return "The return code was " + outputSummary("STDOUT", stdoutData_) +
           outputSummary("STDERR", stderrData_);
}

void ExecCmd::Failed(bool) {}

void ExecCmd::reportError() const
{
    const std::string stderrSection = section("Stderr", stderrData_);
    const std::string stdoutSection = section("Stdout", stdoutData_);
    const std::string stdinSection = section("Stdin", stdinData_);
    ExFailed failure(
        failureName, failureFormat, nullptr, raisingFunction, raisingFile, raisingLine);
    failure.trace() % commandText() % returnCode_ % stdinSection % stdoutSection % stderrSection;
    // NOLINTNEXTLINE(cert-err60-cpp, misc-throw-by-value-catch-by-reference): it is fed first
    throw failure;
}

std::string ExecCmd::commandText() const
{
    std::string text;
    for (const char* const argument : argv_.texts()) {
        if (argument == nullptr) {
            break;
        }
        text += argument == argv_.texts().front() ? "" : " ";
        text += *argument == '\0' ? "''" : shellEscape(argument);
    }
    return text;
}

} // namespace zelto
