#pragma once

/// The class of every byte value in shell text, one character each: '-' passes as it is, '*'
/// wants a backslash before it, 'n' wants single quotes around it. A program may point this at a
/// table of its own; one that is shorter than 256 characters says nothing about the bytes beyond.
extern "C" const char* shell_escape_chars;

/// Whether a text can stand in a shell command unescaped.
/// @return 1 for null, for "" and for a text of nothing but '-' bytes; else 0. A byte that the
///         table does not reach is not safe.
int isShellSafe(const char* text);
