#include "fsutil/OpenAt2.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/openat2.h>
#include <unistd.h>

#include "fsutil/Descriptor.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

class OpenAt2 : public World
{
protected:
    /// Opens a path below "/srv" that no link may lie on: the error, or 0.
    static int errorOf(const char* path)
    {
        open_how how = {};
        how.flags = O_RDONLY | O_CLOEXEC;
        how.resolve = RESOLVE_NO_SYMLINKS;
        const Descriptor directory(open("/srv", O_PATH | O_CLOEXEC));
        errno = 0;
        const Descriptor file(openAt2(directory.get(), path, how));
        return file ? 0 : errno;
    }

    faults::Guard guard_;
};

} // namespace

TEST_F(OpenAt2, OpensAsItIsTold)
{
    makeLink("/srv/link", "www");
    EXPECT_EQ(errorOf("www/vhosts"), 0);
    EXPECT_EQ(errorOf("link"), ELOOP);
    EXPECT_EQ(errorOf("link/vhosts"), ELOOP);
    EXPECT_EQ(errorOf("none"), ENOENT);
}

TEST_F(OpenAt2, IsAskedForOnceWhereItIsMissing)
{
    for (const int error : {ENOSYS, EPERM}) {
        const Outcome end = inChild([error] {
            faults::fail("openat2", error);
            EXPECT_EQ(errorOf("www"), ENOSYS);
            EXPECT_EQ(errorOf("www"), ENOSYS);
            EXPECT_EQ(faults::calls("openat2"), 1);
            std::exit(HasFailure() ? 1 : 0);
        });
        EXPECT_EQ(end.status, 0) << end.out;
    }
}

TEST_F(OpenAt2, IsAskedForAgainAfterEveryOtherError)
{
    for (const int error : {EACCES, EMFILE, EINVAL, ELOOP}) {
        faults::fail("openat2", error);
        EXPECT_EQ(errorOf("www"), error);
        EXPECT_EQ(errorOf("www"), 0);
    }
}
