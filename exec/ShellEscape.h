#pragma once

#include <string>

#include "support/Api.h"

/// @file
/// Text for shell command lines. A program that runs another one by forkExecvPipes() or
/// forkExecvGetOutErr() needs none of this: no shell looks at its arguments.

/// The class of every byte value in shell text, one character each: '-' passes as it is, '*'
/// wants a backslash before it, 'n' wants single quotes around it. A program may point this at a
/// table of its own; one that is shorter than 256 characters says nothing about the bytes beyond,
/// and one that is not needs no null byte behind it.
extern "C" ZELTO_API const char* shell_escape_chars;

/// Whether a text can stand in a shell command unescaped.
/// @return 1 for null, for "" and for a text whose every byte has the class '-'; else 0. A byte
///         that the table does not reach is not safe.
ZELTO_API int isShellSafe(const char* text);

/// As isShellSafe(), for callers that want no other answer than yes. Looks at the text up to its
/// first null byte.
/// @return true.
/// @throw std::runtime_error "Internal error: bad escape_chars value" when the text is not safe.
ZELTO_API bool checkShellSafe(const std::string& text);

/// Escapes a text by the table above, so that a shell reads it as one argument of a command.
///
/// The bytes 128 to 255 pass as they are, whatever the table says, and so does a byte that the
/// table does not reach or gives another class. A null byte passes too; no shell can take it.
///
/// With the table as shipped, and in a locale whose encoding is UTF-8 or has one byte for a
/// character, dash and bash give back every text, except:
/// - "" is escaped to "", which is no argument at all;
/// - '{' and '}' pass as they are, and bash (unless started with +B) expands braces that enclose
///   ',' or "..": "a{b,c}" becomes the two arguments "ab" and "ac". dash does not;
/// - as the first word of a command, where no argument stands, a word such as "if", "!", "{" or
///   "a=b" keeps the meaning that it has there, and so does the name of an alias;
/// - at an interactive prompt bash takes '!' and '^' for references to its history.
///
/// In other locales, whose encoding is Shift_JIS, GBK or Big5 for example:
/// - bash takes some of the bytes from 128 on and the backslash behind them for one character, and
///   what the backslash was to protect is free: behind "\x81;echo x" bash runs `echo x`. A text
///   with such bytes must not go to bash there; start it with LC_ALL set to "C".
///
/// @return the escaped text; "" for "".
/// @throw std::bad_alloc without the memory for it.
ZELTO_API std::string shellEscape(const std::string& text);
