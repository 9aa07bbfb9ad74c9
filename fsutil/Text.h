#pragma once

#include <cstddef>

#include "support/Api.h"

/// @file
/// Routines for NUL-terminated text. Character classes are those of the C locale. A size counts
/// the bytes of a buffer, terminator included.

/// 1 for null and for "", else 0.
ZELTO_API int isEmpty(const char* text);

/// Copies a text with every old character replaced by a new one.
/// @param source       the text.
/// @param destination  room for the whole text; null means in place.
/// @param oldCharacter what to replace.
/// @param newCharacter what to write instead.
/// @return the string written.
ZELTO_API char* replaceCharacter(
    char* source, char* destination, char oldCharacter, char newCharacter);

/// Makes every letter small; null is left alone.
/// @return always 0.
ZELTO_API int lowerCaseInPlace(char* text);

/// A lower-cased copy for the caller to free(3). Null gives null, and so does a lack of memory
/// after "System error: %s\n", a report that does not end the process.
ZELTO_API char* lowerCasedCopy(const char* text);

/// Cuts the whitespace off the end in place.
/// @return the first character that is not whitespace. Memory that holds the text is still to be
///         released by the pointer that was passed.
ZELTO_API char* trim(char* text);

/// Writes a text with every occurrence of another replaced, as far as it fits: a piece that does
/// not fit whole (a stretch between two occurrences, a replacement, the rest) ends the output
/// before it.
///
/// With a null or empty search text this is strncpy(3): the destination is padded with NULs, and
/// not terminated by a source of size characters or more. A size of 0, a null source or a null
/// replacement leaves the destination as it is. If memory runs out, "strn_replace(): %s\n" is
/// reported, which does not end the process, and the source is copied as by boundedCopy().
///
/// @param source      the text.
/// @param destination may be the source itself; null gives null.
/// @param search      what to replace.
/// @param replacement what to write instead.
/// @param size        bytes of the destination.
/// @return the destination.
ZELTO_API char* strn_replace(const char* source, char* destination, const char* search,
    const char* replacement, size_t size);

/// Copies at most size - 1 characters and terminates; a size of 0 copies nothing.
/// @return the length of the source: the copy is whole if that is below size.
ZELTO_API size_t boundedCopy(char* destination, const char* source, size_t size);

/// 1 if every character is a decimal digit, as in "", else 0.
ZELTO_API int isAllDigits(const char* text);
