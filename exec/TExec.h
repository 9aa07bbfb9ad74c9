#pragma once

#include <utility>

#include "exec/TEArgs.h"
#include "support/Api.h"

namespace zelto::sys
{

/// A command and how it is to be run: in a child or in this very process, waited for or not, with
/// or without a look at PATH, and with a preparation that rewires descriptors on the way.
///
/// An object can be copied and run as often as wanted. It does not own its preparation: whoever
/// makes that keeps it alive for as long as any copy may still be run. A run's standard streams,
/// environment, directory and user are the caller's, apart from what the preparation does.
class ZELTO_API TExec
{
public:
    class TPrepare;

    /// Run the program in a child; without this flag the calling process executes it and is gone.
    static constexpr unsigned fork = 1;
    /// Wait for the child and report its exit code.
    static constexpr unsigned wait = 2;
    /// Look the program up on PATH, as execvp(3) does.
    static constexpr unsigned searchPath = 4;
    /// What is usually wanted.
    static constexpr unsigned all = 7;

    /// A text for arguments that a caller refuses. The library never uses it.
    static constexpr const char* badArguments = "Bad execute arguments";

    /// @param args    the program and its arguments, shared until either side is changed.
    /// @param prepare stays the caller's, who deletes it after the last run; null for none.
    /// @param flags   the constants above, joined by "|".
    explicit TExec(const TEArgs& args, TPrepare* prepare = nullptr, unsigned flags = all) noexcept;

    /// Runs the program once.
    ///
    /// **In the child, what fails is thrown as well.** A program that cannot be executed, like a
    /// preparation that throws, makes the child unwind into its copy of the caller's code. A caller
    /// that forks catches TSysCallErr, tells by getpid(2) that it is the child, and ends it with
    /// _exit(2); otherwise the child goes on as a second copy of the caller. There is no exit code
    /// that stands for "could not be executed".
    ///
    /// Steps: `beforeFork`; everything that waits for the process's standard output and error is
    /// written out; fork(2). In the parent `inParent`, then waitpid(2). In the child `inChild`,
    /// `beforeExec`, then execvp(3) or execv(3). What a preparation throws passes through.
    ///
    /// Without the fork flag there are only `beforeExec` and the execution. What waits for a
    /// stream of the standard library is then not written and is lost with the process: flush
    /// before.
    ///
    /// @return the process id of the child and
    ///         - its exit code, 0 to 255, after waiting for it, or -1 when a signal ended it;
    ///         - 0 without the wait flag: the child is the caller's to wait for.
    ///
    ///         (-1, 0), with `errno` of the failed call, when fork(2) or the execution failed and
    ///         the preparation answered false. After a failed execution this result is returned in
    ///         the process that was to be replaced: the child, if there is one.
    /// @throw TSysCallErr with the number and the text of `errno` when fork(2) failed; when
    ///        waitpid(2) failed, also when a signal interrupted it (EINTR) or somebody else had
    ///        waited before (ECHILD), in which case nothing is known of the child; and, in the
    ///        process that was to be replaced, when the program could not be executed.
    /// @throw std::bad_alloc, in the process that was to be replaced, without the memory for copies
    ///        of the words.
    std::pair<int, int> run() const;

    /// The program and its arguments.
    [[nodiscard]] const TEArgs& args() const noexcept { return args_; }
    /// The flags as given.
    [[nodiscard]] unsigned flags() const noexcept { return flags_; }
    /// The preparation as given, null if there is none.
    [[nodiscard]] TPrepare* prepare() const noexcept { return prepare_; }

private:
    [[nodiscard]] ZELTO_INTERNAL std::pair<int, int> forkFailed(int error) const;
    [[nodiscard]] ZELTO_INTERNAL std::pair<int, int> finishInParent(int child) const;
    [[nodiscard]] ZELTO_INTERNAL std::pair<int, int> executeHere() const;

    TEArgs args_;
    unsigned flags_;
    TPrepare* prepare_;
};

/// What happens around the fork and the execution of a run. The base does nothing and lets every
/// failure be thrown; a subclass overrides what it needs.
///
/// Every operation is given the command that is being run.
class ZELTO_API TExec::TPrepare
{
public:
    virtual ~TPrepare() = 0;

    /// In the parent, before fork(2).
    virtual void beforeFork(const TExec& exec);

    /// In the parent, when fork(2) failed.
    /// @return true to have that thrown, false to have TExec::run() return (-1, 0).
    virtual bool onForkError(const TExec& exec);

    /// In the parent, when the child is there.
    virtual void inParent(const TExec& exec);

    /// In the child, before anything else.
    virtual void inChild(const TExec& exec);

    /// In the process that is about to be replaced: the child, or the caller when there is none.
    virtual void beforeExec(const TExec& exec);

    /// In the process that was to be replaced, when it could not be.
    /// @return true to have that thrown, false to have TExec::run() return (-1, 0).
    virtual bool onExecError(const TExec& exec);

protected:
    TPrepare() = default;
    TPrepare(const TPrepare&) = default;
    TPrepare& operator=(const TPrepare&) = default;
};

} // namespace zelto::sys
