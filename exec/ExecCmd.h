#pragma once

#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

#include "exec/CmdLine.h"
#include "support/Api.h"
#include "support/Exc.h"

namespace zelto
{

/// Runs a utility: fill it, run it, read what came of it.
///
/// It rests on forkExecvGetOutErr(): no shell parses the arguments, the program is looked up on
/// PATH when its path holds no slash, and what it writes is kept, up to the memory there is. A
/// program that cannot be executed counts as one that ended with 1 and has the reason in both of
/// its outputs. Every run appends to the outputs of the runs before it.
///
/// Texts that end up as C strings (the path, arguments, variables) must not hold a NUL character:
/// std::invalid_argument is thrown for one, and nothing is changed.
class ZELTO_API ExecCmd : public CmdLine
{
public:
    /// The tag of the failures that runChecked() throws; it does nothing.
    static void Failed(bool);

    /// What runChecked() throws.
    using ExFailed = Exc<&ExecCmd::Failed>;

    /// @param path the program, which is also what it sees as its own name.
    /// @throw std::invalid_argument for a NUL character in the path.
    /// @throw std::bad_alloc without the memory for it.
    explicit ExecCmd(const std::string& path);
    ExecCmd(const ExecCmd&) = delete;
    ExecCmd& operator=(const ExecCmd&) = delete;
    ~ExecCmd() override;

    /// Appends a copy of an argument.
    /// @throw std::invalid_argument for a NUL character in it.
    /// @throw std::bad_alloc without the memory for it.
    ExecCmd& add(const std::string& argument) override;

    /// Sets a variable of the program's environment, over one that it would inherit. A name that
    /// setenv(3) refuses (empty, or with a '=') makes the run fail with 1.
    /// @throw std::invalid_argument for a NUL character in either.
    /// @throw std::bad_alloc without the memory for it.
    ExecCmd& setEnv(const std::string& name, const std::string& value) override;

    /// Runs the program and insists on success.
    /// @throw ExFailed unless it returned 0, whatever it wrote. The exception's name is
    ///        "ExecCmd::ExFailed". Its text is "Execution of <command> failed with return code
    ///        <code>.\n" and, for each of Stdin, Stdout and Stderr that is not empty,
    ///        "<name> is\n" and what went in or came out, ended by a newline. The command is
    ///        written as a shell would take it.
    /// @throw zelto::SystemError as execute().
    /// @throw std::bad_alloc as execute(), or without the memory for the report.
    virtual void runChecked();

    /// Runs the program.
    /// @return what execute() returns.
    /// @throw zelto::SystemError as execute().
    /// @throw std::bad_alloc as execute().
    virtual int run();

    /// Runs the program; the other two come down to this. When no pipe can be made, the process
    /// itself ends, with status 1. As for forkExecvGetOutErr(), the program must not be reaped by
    /// anybody else: with SIGCHLD ignored, a run never returns and keeps a processor busy. After an
    /// exception in the middle of a run, what the program wrote until then is in the outputs, ends
    /// of its pipes may be left open and it is not waited for.
    /// @return the exit status; -1 if a signal ended the program or waiting for it failed.
    /// @throw zelto::SystemError as forkExecvGetOutErr(), among them "writeToString failed" (EPIPE)
    ///        from a program that does not read all of its input.
    /// @throw std::bad_alloc when memory runs out.
    virtual int execute();

    /// Sets the text for the program's standard input, "" by default. Each run feeds it anew.
    void setStdinData(const std::string& text) { stdinData_ = text; }

    /// The text for the program's standard input.
    [[nodiscard]] const std::string& stdinData() const noexcept { return stdinData_; }

    /// The user to run as, -1 (the default) for the caller's. The groups stay the caller's.
    void setUid(uid_t uid) noexcept { uid_ = uid; }

    /// What the program wrote to its standard output, in all runs so far.
    [[nodiscard]] const std::string& stdoutData() const noexcept { return stdoutData_; }

    /// What the program wrote to its standard error, in all runs so far.
    [[nodiscard]] const std::string& stderrData() const noexcept { return stderrData_; }

    /// What the last run returned; 0 before the first.
    [[nodiscard]] int returnCode() const noexcept { return returnCode_; }

    /// `errno` as it was when the last run returned; 0 before the first. It tells why a run
    /// returned -1 without a signal, and means nothing otherwise.
    [[nodiscard]] int savedErrno() const noexcept { return savedErrno_; }

    /// Whether a run was begun.
    [[nodiscard]] bool started() const noexcept { return started_; }

    /// Whether a run has returned; one that ended by an exception has not.
    [[nodiscard]] bool finished() const noexcept { return finished_; }

    /// The outputs of all runs so far: "The return code was " (no number follows), then
    /// " \nThe output on STDOUT was: \n" and the output, or
    /// " \nNo output on STDOUT were performed by the utility"; the same for STDERR.
    [[nodiscard]] std::string summary() const;

private:
    /// Copies of arguments that the C library can take: always ended by a null pointer.
    class ZELTO_INTERNAL Arguments
    {
    public:
        Arguments() : texts_(1, nullptr) {}
        Arguments(const Arguments&) = delete;
        Arguments& operator=(const Arguments&) = delete;
        ~Arguments();

        void add(const std::string& text);
        [[nodiscard]] const std::vector<char*>& texts() const noexcept { return texts_; }

    private:
        std::vector<char*> texts_;
    };

    [[noreturn]] ZELTO_INTERNAL void reportError() const;
    [[nodiscard]] ZELTO_INTERNAL std::string commandText() const;

    Arguments argv_;
    std::string path_;
    std::string stdinData_;
    std::map<std::string, std::string> env_;
    std::string stdoutData_;
    std::string stderrData_;
    bool started_ = false;
    bool finished_ = false;
    int savedErrno_ = 0;
    int returnCode_ = 0;
    uid_t uid_ = static_cast<uid_t>(-1);
};

} // namespace zelto
