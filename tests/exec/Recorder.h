#pragma once

#include <cerrno>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "exec/TExec.h"

/// Writes which operation was called, on which command: in the parent to standard output, in the
/// child to standard error, so that neither waits for the other.
class Recorder : public zelto::sys::TExec::TPrepare
{
public:
    Recorder() = default;
    explicit Recorder(bool throws) : throws_(throws) {}

    void beforeFork(const zelto::sys::TExec& exec) override { record("beforeFork", exec); }
    bool onForkError(const zelto::sys::TExec& exec) override
    {
        record("onForkError", exec);
        errno = EDOM;
        return throws_;
    }
    void inParent(const zelto::sys::TExec& exec) override { record("inParent", exec); }
    void inChild(const zelto::sys::TExec& exec) override { record("inChild", exec); }
    void beforeExec(const zelto::sys::TExec& exec) override { record("beforeExec", exec); }
    bool onExecError(const zelto::sys::TExec& exec) override
    {
        record("onExecError", exec);
        errno = EDOM;
        return throws_;
    }

private:
    void record(const char* operation, const zelto::sys::TExec& exec) const
    {
        const std::string line = std::string(operation) + " " + exec.args()[0] + "\n";
        const int fd = getpid() == maker_ ? STDOUT_FILENO : STDERR_FILENO;
        EXPECT_EQ(write(fd, line.data(), line.size()), static_cast<ssize_t>(line.size()));
    }

    bool throws_ = true;
    pid_t maker_ = getpid();
};
