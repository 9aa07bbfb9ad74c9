#pragma once

#include <boost/filesystem/path.hpp>
#include <string>
#include <vector>

#include "site/SiteRemover.h"
#include "site/SkeletonOptions.h"
#include "support/Api.h"

/// @file
/// The descriptor of an application instance, which lists the files that the application put into a
/// virtual host:
///
///     <INSTANCE-DATA>
///       <SECTION PREFIX="htdocs"><FILE>index.php</FILE><FILE>images</FILE></SECTION>
///       <SECTION PREFIX="cgi-bin"><FILE>counter.cgi</FILE></SECTION>
///     </INSTANCE-DATA>
///
/// The root element is the first thing of the document, apart from the XML declaration: no comment,
/// processing instruction or document type stands in front of it. A section's PREFIX tells which
/// tree its files lie in, "htdocs" the document root, "cgi-bin" the CGI directory. The text of a
/// FILE is a path below the instance's subdirectory in that tree, taken to the last blank and in
/// UTF-8, whatever the document is written in; comments and elements inside count as not there. A
/// FILE without any text is passed over, as are all other elements.
///
/// Documents may come from anybody. Nothing that they name is loaded, and libxml2's limits on
/// depth, entities and the length of a text hold. What libxml2 finds wrong it tells on standard
/// error on its own.

namespace zelto
{

/// Reads descriptor 0, which is standard input, to its end, and the descriptor in it. What the
/// program already read into the buffers of `stdin` or `std::cin` is not seen.
/// @return the entries in the order of the document: for each FILE the kind, 1 in a section
///         "htdocs", 0 in a section "cgi-bin", and the text as the path.
/// @throw std::runtime_error
///        "XML parse error": standard input cannot be read, is empty, holds more than INT_MAX
///        bytes, is not well-formed, goes beyond libxml2's limits, or breaks the texts into so
///        many pieces that only an attack explains them;
///        "Wrong root node name": the first node is not an element INSTANCE-DATA;
///        "Attribute name is required for section": a SECTION has no PREFIX;
///        "Bad sttribute name value": a PREFIX is neither "htdocs" nor "cgi-bin".
/// @throw std::bad_alloc when memory runs out, in libxml2 as well.
ZELTO_API std::vector<TreeEntry> readDescriptor();

/// Reads a descriptor from standard input and removes the files that it lists, as removeOfKind()
/// does: first those in the document root, then those in the CGI directory, and what lies in a
/// directory before the directory. The instance's subdirectory in the document root goes last of
/// that tree; the one in the CGI directory goes only if the descriptor lists it.
///
/// The whole descriptor is read before the first file is removed. Files that cannot be removed are
/// reported on standard error, one line each, and the rest is removed (see SiteRemover.h).
/// @param directory    the virtual host's directory.
/// @param options      where the two trees are, and whether the CGI directory is left alone.
/// @param subdirectory where in both trees the instance was installed; ".", "/" or "" if at their
///                     top, which itself is not removed then.
/// @throw std::runtime_error as readDescriptor(), with nothing removed.
/// @throw std::bad_alloc     possibly with a part removed.
ZELTO_API void removeApplicationInstance(const boost::filesystem::path& directory,
    const SkeletonOptions& options, const std::string& subdirectory);

} // namespace zelto
