#include "site/BaseDirectory.h"

#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

#include "fsutil/PathNames.h"
#include "fsutil/TrustedPath.h"

namespace zelto
{

namespace
{

using boost::filesystem::path;

[[noreturn]] void fail(const char* call, const path& failed, int error)
{
    throw boost::filesystem::filesystem_error(std::string("boost::filesystem::") + call, failed,
        boost::system::error_code(error, boost::system::system_category()));
}

[[noreturn]] void failToMakeParent(const path& base, int error)
{
    fail("create_directories", base.parent_path(), error);
}

/// Also where a parent is there and cannot be gone through: it shows when the whole is tried.
[[noreturn]] void failToMake(const path& base, int error)
{
    fail("create_directory", base, error);
}

/// Goes on to a parent, which is made if it is missing.
void takeParent(TrustedWay& way, const std::string& name, const path& base)
{
    if (way.take(name)) {
        return;
    }
    if (errno == ENOENT && name != "..") {
        const int error = mkdirat(way.here(), name.c_str(), 0777) != 0 ? errno : 0;
        if (way.take(name)) {
            return;
        }
        if (error != 0) {
            // With EEXIST this is a link to nothing, which exists and is still no directory.
            failToMakeParent(base, error);
        }
    }
    failToMake(base, errno);
}

NewDirectory makeLast(TrustedWay& way, const std::string& name, const path& base)
{
    NewDirectory made(way.here(), name.c_str(), sameOwner);
    if (!made) {
        const int error = errno;
        if (error != EEXIST || !way.take(name)) {
            failToMake(base, error);
        }
    }
    return made;
}

/// The names on the way, without those that lead nowhere.
std::vector<std::string> namesOf(std::string_view text)
{
    std::vector<std::string> names;
    while (!text.empty()) {
        const std::string_view name = takeName(text);
        if (!name.empty() && name != ".") {
            names.emplace_back(name);
        }
    }
    return names;
}

/// The path as errors call it: without slashes and "." at its end.
path withoutEnd(path base)
{
    while (base.has_parent_path() && base.filename().native() == ".") {
        base = base.parent_path();
    }
    return base;
}

} // namespace

NewDirectory makeBaseDirectory(const path& whole)
{
    TrustedWay way(whole.native());
    const std::vector<std::string> names = namesOf(way.rest());
    if (names.empty()) {
        (void)boost::filesystem::create_directories(whole); // says so of the empty path
        return {};
    }
    const path base = withoutEnd(whole);
    if (!way.isOpen()) {
        failToMake(base, errno);
    }
    for (size_t i = 0; i < names.size(); ++i) {
        if (i + 1 == names.size() && names[i] != "..") {
            return makeLast(way, names[i], base);
        }
        takeParent(way, names[i], base);
    }
    return {}; // its end goes back
}

} // namespace zelto
