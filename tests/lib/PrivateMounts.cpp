#include "tests/lib/PrivateMounts.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>
#include <utility>

namespace
{

void require(bool done, const char* what)
{
    if (!done) {
        (void)std::fprintf(stderr, "The tests need root and private mounts; %s failed: %s\n", what,
            std::strerror(errno));
        std::exit(2);
    }
}

} // namespace

void enterPrivateMountNamespace()
{
    require(unshare(CLONE_NEWNS) == 0, "unshare(CLONE_NEWNS)");
    require(mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0, "mount of / as private");
    // Coverage counts are written beside the objects.
    require(mount(BUILD_PATH, BUILD_PATH, "none", MS_BIND, nullptr) == 0,
        "mount of the build directory");
    require(mount("none", "/", "none", MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0,
        "mount of / as read-only");
}

PrivateDirectory::PrivateDirectory(std::string path, const std::string& options)
    : path_(std::move(path))
{
    const std::string all = options.empty() ? "mode=0755" : "mode=0755," + options;
    require(mount("private", path_.c_str(), "tmpfs", 0, all.c_str()) == 0, "mount of a tmpfs");
}

PrivateDirectory::~PrivateDirectory()
{
    (void)umount2(path_.c_str(), MNT_DETACH);
}
