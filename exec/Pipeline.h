#pragma once

#include <string>
#include <utility>
#include <vector>

#include "exec/TExec.h"
#include "support/Api.h"

/// @file
/// Several commands in a row, each reading what the one before it writes.
///
/// The commands bring their connections along: two neighbours share one Pipe, through a
/// TWriteToPipeline on the first and a TReadFromPipeline on the second; a command in the middle has
/// both, joined by a TUnionPrep. The preparations stay the caller's and outlive the run.

namespace zelto::sys
{

/// Runs the commands one after the other, each as TExec::run() does with the flags it has.
///
/// **Only the last command may have the wait flag.** A command that is waited for while the reader
/// of its output is not yet started waits forever as soon as it has more to say than a pipe holds
/// (64 KiB). Commands without the flag are the caller's to wait for.
///
/// @return the result of the last command; (0, 0) where there are none. In a child whose program
///         could not be executed and whose preparation answered false, (-1, 0) at once: the
///         commands behind it are started by the parent alone.
/// @throw TSysCallErr and everything else that TExec::run() throws, in the process in
///        which it does. The commands behind the one that failed are not started.
ZELTO_API std::pair<int, int> runPipeline(const std::vector<TExec>& commands);

/// Runs the commands, collects what the last of them writes to its standard output, and waits for
/// them.
///
/// Works on copies of the commands that have the fork flag and do not have the wait flag. What the
/// last command's own preparation does to the standard output comes after the collecting and
/// prevails. A failure in a child never reaches the caller's code: a program that cannot be
/// executed, or a preparation that throws there, ends the child with status 1 after the line
/// "Unexpected error: " and its text on that child's standard error, whatever `onExecError`
/// answers.
///
/// The output is read to its end, that is until nobody holds it open any more, and only then the
/// commands are waited for; that one was stopped is taken for its end. How the commands before the
/// last one ended does not matter. They are waited for in their turn, with two exceptions: when the
/// last command was stopped, or when fork(2) failed for any command and its preparation answered
/// false. One of them may then have no reader and never end, so that only those that have ended by
/// that time are waited for, and the others are left to the caller.
///
/// @param commands not changed; their preparations are run as they are.
/// @param output what it held before is replaced by what was collected, also when this throws.
///               Nothing is collected, and no error made of it, where there is no command or where
///               fork(2) failed for the last and its preparation answered false.
/// @throw std::runtime_error "child failed (exit code=N): " and the output when the last command
///        ended with N other than 0; "child failed (status=W): " and the output when a signal ended
///        or stopped it, W being the whole status word of waitpid(2). A stopped child is left to
///        the caller.
/// @throw SystemError or the ExSystemError of its number, "waitpid() failed", when waiting for the
///        last command failed. That a signal interrupted it (it is tried again) and that somebody
///        else had waited before (it counts as success) is no failure.
/// @throw SystemError "read() failed" when the output could not be read.
/// @throw TSysCallErr when fork(2) or pipe(2) failed, and everything that a preparation throws in
///        the parent, from `beforeFork`, `onForkError` or `inParent`.
/// @throw std::bad_alloc when memory runs out in the parent.
///
/// When something other than "child failed" is thrown, the commands behind the one that failed are
/// not started. Of the commands before the one that failed, those that have ended are waited for;
/// all others, the last one included, are left to the caller.
ZELTO_API void runPipelineChecked(const std::vector<TExec>& commands, std::string& output);

} // namespace zelto::sys
