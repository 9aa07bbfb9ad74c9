#pragma once

#include <boost/filesystem/path.hpp>

#include "fsutil/NewDirectory.h"

namespace zelto
{

/// Makes a directory that an option places, with its missing parents, which get what mkdir(2) gives
/// them under the umask. On the road to it a symbolic link is followed only if it can be trusted
/// (see fsutil/TrustedPath.h).
/// @return the directory, to be finished; none if there is a directory already.
/// @throw boost::filesystem::filesystem_error as of boost::filesystem::create_directories().
NewDirectory makeBaseDirectory(const boost::filesystem::path& whole);

} // namespace zelto
