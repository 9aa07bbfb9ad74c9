#pragma once

#include <exception>
#include <iosfwd>

namespace zelto
{

/// std::cerr, set up on first use. Library code reaches it through here and never includes
/// <iostream>, which would make every start of the program set up all eight streams: about a third
/// of what a start costs, and most runs have nothing to say.
std::ostream& standardError();

/// Writes the text of an exception that stopped only a part of the work, and a newline. An
/// exception without a text (a null what()) sets the stream's fail bit instead, after which it
/// stays silent.
void reportException(const std::exception& exception);

/// Writes out what the process still holds for its standard output and its standard error. Every
/// fork() comes after this: a child that ends by exit(3) would write its copy of it again.
void flushStandardStreams();

} // namespace zelto
