#pragma once

#include <string>

#include "support/Api.h"

/// @file
/// Moving text between strings and descriptors, blocking or not. What was moved before a failure
/// stays moved: the strings say at any time how far it came.

/// Writes a string to a descriptor and takes what was written from the string's front. Rests on
/// write(2); an interrupted call is made again.
///
/// On return the string is empty, or holds the rest that a non-blocking descriptor would not take
/// now (EAGAIN). An empty string writes nothing, not even to a bad descriptor.
///
/// A pipe or socket that nobody reads any more is an error here (EPIPE) and not a signal: no
/// SIGPIPE comes of the call, whatever the program does with that signal, and one that was pending
/// before is pending afterwards. The signal mask is as before on every way out.
///
/// What is left moves to the front of the string once per call. Through a descriptor that takes
/// little at a time this makes a long text slow; forkExecvGetOutErr() has no such limit.
///
/// @param fd   open for writing; stays open and the caller's.
/// @param data what to write; on an exception, what was not written.
/// @throw zelto::SystemError "writeToString failed" for every other error of write(2)
///        (zelto::ExSystemError<1> for EPERM).
ZELTO_API void writeToString(int fd, std::string& data);

/// Appends to a string what can be read from a descriptor. Rests on read(2), 4096 bytes at a time;
/// an interrupted call is made again.
///
/// @param fd  open for reading; stays open and the caller's. A blocking one is read to its end.
/// @param out appended to; on an exception it keeps what was read before.
/// @return true when a non-blocking descriptor has nothing more at the moment (EAGAIN), false at
///         the end of the file.
/// @throw zelto::SystemError "readToString failed" for every other error of read(2)
///        (zelto::ExSystemError<1> for EPERM).
/// @throw std::bad_alloc when the text does not fit in memory; up to 4096 bytes are lost then.
ZELTO_API bool readToString(int fd, std::string& out);
