#pragma once

#include <boost/filesystem/path.hpp>
#include <functional>
#include <vector>

#include "site/MountPoints.h"

namespace zelto
{

using EntryList = std::vector<boost::filesystem::path>;

/// Appends `relative` and everything below it, as paths relative to `base`, parents first and
/// otherwise in the order in which the directories give their entries. Symbolic links are listed
/// and not followed.
///
/// The path asked for is listed before it is looked at, hence also when nothing is there. What
/// cannot be looked at is reported on standard error as "<path>: <reason>"; a directory that
/// cannot be read, with the text of the exception. Either ends the walk of that directory only.
/// However deep the tree, one descriptor is used at a time, and a second one while a directory is
/// opened. A symbolic link on the way to a directory is followed only if it can be trusted (see
/// fsutil/TrustedPath.h), so that exchanging directories while they are listed leads nowhere else.
void listTree(const boost::filesystem::path& base, const boost::filesystem::path& relative,
    EntryList& entries);

/// The same, telling each path as it comes.
/// @param visit gets the path and whether its directory said that it is a regular file, which saves
///              looking at it again.
/// @param mountPoints leftAlone is for listing what is to be removed: a directory below `relative`
///              that something is mounted on is told, and nothing that is in it.
void visitTree(const boost::filesystem::path& base, const boost::filesystem::path& relative,
    const std::function<void(const boost::filesystem::path& relative, bool isFile)>& visit,
    MountPoints mountPoints = MountPoints::entered);

/// Whether a listed path comes before another: component by component, each compared as bytes, a
/// path before everything beneath it. This is the order of boost's `a < b`, without the
/// allocations for each component; both must be as listTree() makes them, that is relative, with
/// no empty component and no trailing separator.
bool comesBefore(const boost::filesystem::path& a, const boost::filesystem::path& b) noexcept;

} // namespace zelto
