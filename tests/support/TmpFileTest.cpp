#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <iostream>
#include <memory>
#include <new>
#include <ostream>
#include <string>
#include <sys/stat.h>
#include <type_traits>
#include <typeinfo>
#include <unistd.h>
#include <utility>

#include "support/SystemError.h"
#include "support/TmpFile.h"
#include "tests/lib/FailingNew.h"
#include "tests/lib/Faults.h"
#include "tests/lib/StandardErrorCapture.h"
#include "tests/lib/World.h"

using zelto::TmpFile;
using zelto::TmpFileBase;

static_assert(std::is_base_of_v<TmpFileBase, TmpFile>);
static_assert(!std::is_convertible_v<TmpFile*, TmpFileBase*>);
static_assert(std::is_convertible_v<TmpFile*, std::ostream*>);
static_assert(!std::is_polymorphic_v<TmpFileBase>);
static_assert(!std::is_copy_constructible_v<TmpFile> && !std::is_move_constructible_v<TmpFile>);
static_assert(!std::is_copy_assignable_v<TmpFile> && !std::is_move_assignable_v<TmpFile>);
static_assert(
    !std::is_copy_constructible_v<TmpFileBase> && !std::is_copy_assignable_v<TmpFileBase>);
static_assert(!std::is_convertible_v<std::string, TmpFile>);

namespace
{

constexpr char noFile[] = "TmpFile autoclean failed: No such file or directory\n";

/// What a stream of another kind on the same base does.
class OwnFile : private TmpFileBase, public std::ostream
{
public:
    OwnFile(std::string name, int fd) : TmpFileBase(std::move(name), fd), std::ostream(&buffer()) {}
    using TmpFileBase::name;
};

class TmpFileTest : public World
{
protected:
    TmpFileTest() : descriptors_(openDescriptors()) {}
    ~TmpFileTest() override { EXPECT_EQ(openDescriptors(), descriptors_); }

    faults::Guard guard_;

private:
    size_t descriptors_;
};

/// What creating a file throws: its class, its error number and its text.
std::string failureOf(const std::string& prefix)
{
    try {
        const TmpFile file(prefix);
    } catch (const zelto::ExSystemError<2>& error) {
        return std::string("ExSystemError<2> ") + error.what();
    } catch (const zelto::SystemError& error) {
        return std::to_string(error.errorCode()) + ' ' + error.what();
    }
    return "(created)";
}

std::string failureOfTakingOver(const std::string& name, int fd)
{
    try {
        const OwnFile file(name, fd);
    } catch (const zelto::SystemError& error) {
        return std::to_string(error.errorCode()) + ' ' + error.what();
    }
    return "(taken)";
}

int created(const std::string& path, int flags)
{
    makeFile(path, "");
    const int fd = open(path.c_str(), flags | O_CLOEXEC);
    EXPECT_NE(fd, -1);
    return fd;
}

off_t sizeOf(const std::string& path)
{
    struct stat status {
    };
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_size;
}

constexpr char emptyWorld[] = "dir  0755 root:root .\n"
                              "dir  0755 root:root www\n"
                              "dir  0755 root:root www/vhosts\n";

} // namespace

using TmpFileName = TmpFileTest;
using TmpFileAutoclean = TmpFileTest;
using TmpFileFailure = TmpFileTest;
using TmpFileBaseTest = TmpFileTest;

TEST_F(TmpFileName, IsThePrefixAndSixCharacters)
{
    const TmpFile file("/srv/abc");
    EXPECT_EQ(file.name().substr(0, 8), "/srv/abc");
    EXPECT_EQ(file.name().size(), 14U);
    EXPECT_NE(file.name(), "/srv/abcXXXXXX");
    EXPECT_TRUE(exists(file.name()));
}

TEST_F(TmpFileName, DiffersForEachFile)
{
    const TmpFile one("/srv/abc");
    const TmpFile another("/srv/abc");
    EXPECT_NE(one.name(), another.name());
}

TEST_F(TmpFileName, KeepsAPrefixThatLooksLikeAPattern)
{
    const TmpFile file("/srv/XXXXXX");
    EXPECT_EQ(file.name().substr(0, 11), "/srv/XXXXXX");
    EXPECT_EQ(file.name().size(), 17U);
}

TEST_F(TmpFileName, MayBeRelativeToTheCurrentDirectory)
{
    const Outcome end = inChild([] {
        {
            EXPECT_EQ(chdir("/srv/www"), 0);
            const TmpFile file("abc");
            EXPECT_EQ(file.name().substr(0, 3), "abc");
            EXPECT_TRUE(exists("/srv/www/" + file.name()));
            const TmpFile bare("");
            EXPECT_EQ(bare.name().size(), 6U);
            EXPECT_TRUE(exists("/srv/www/" + bare.name()));
        }
        _exit(::testing::Test::HasFailure() ? 1 : 0);
    });
    EXPECT_EQ(end.status, 0) << end.out;
}

TEST_F(TmpFileTest, IsEmptyAndItsOwnersAlone)
{
    for (const mode_t mask : {022, 0, 077}) {
        const mode_t kept = umask(mask);
        const TmpFile file("/srv/abc");
        umask(kept);
        EXPECT_EQ(accessOf(file.name()), "0600 root:root");
        EXPECT_EQ(contentOf(file.name()), "");
    }
}

TEST_F(TmpFileTest, HoldsWhatWasWrittenOnceTheObjectIsGone)
{
    std::string name;
    {
        TmpFile file("/srv/abc");
        file << "a line\n" << 42;
        EXPECT_TRUE(file.good());
        name = file.name();
    }
    EXPECT_EQ(contentOf(name), "a line\n42");
}

TEST_F(TmpFileTest, KeepsUpTo2046BytesToItself)
{
    TmpFile file("/srv/abc");
    for (int i = 0; i < 2046; ++i) {
        file.put('x');
    }
    EXPECT_EQ(sizeOf(file.name()), 0);
    file << "xx";
    EXPECT_GE(sizeOf(file.name()), 2047);
}

TEST_F(TmpFileTest, WritesLargeTextsWhole)
{
    std::string text;
    for (int i = 0; i < 20000; ++i) {
        text += std::to_string(i) + '\n';
    }
    std::string name;
    {
        TmpFile file("/srv/abc");
        file << text.substr(0, 3000) << std::flush << text.substr(3000, 5000);
        for (const char c : text.substr(8000)) {
            file.put(c);
        }
        name = file.name();
    }
    EXPECT_EQ(contentOf(name), text);
}

TEST_F(TmpFileTest, CanBeRenamedIntoPlace)
{
    {
        TmpFile file("/srv/abc");
        file << "new" << std::flush;
        ASSERT_EQ(rename(file.name().c_str(), "/srv/file"), 0);
        file << " and more";
    }
    EXPECT_EQ(contentOf("/srv/file"), "new and more");
}

TEST_F(TmpFileTest, CanBeDestroyedAsAStream)
{
    std::unique_ptr<std::ostream> stream = std::make_unique<TmpFile>("/srv/abc", true);
    *stream << "text";
    stream.reset();
    EXPECT_EQ(treeOf("/srv"), emptyWorld);
}

TEST_F(TmpFileTest, ShowsFailuresToWriteInItsState)
{
    const PrivateDirectory small("/srv/www", "size=64k");
    TmpFile file("/srv/www/abc");
    file << std::string(1000000, 'x');
    EXPECT_TRUE(file.bad());
}

TEST_F(TmpFileAutoclean, IsOffUnlessAskedFor)
{
    {
        const TmpFile file("/srv/abc");
    }
    EXPECT_EQ(faults::calls("unlink"), 0);
    EXPECT_NE(treeOf("/srv"), emptyWorld);
}

TEST_F(TmpFileAutoclean, RemovesTheFileTogetherWithTheObject)
{
    EXPECT_EQ(errorsOf([] {
        TmpFile file("/srv/abc", true);
        file << "pending";
        EXPECT_TRUE(exists(file.name()));
    }),
        "");
    EXPECT_EQ(treeOf("/srv"), emptyWorld);
}

TEST_F(TmpFileAutoclean, CanBeSwitchedOn)
{
    {
        TmpFile file("/srv/abc");
        file.setAutoclean(true);
    }
    EXPECT_EQ(treeOf("/srv"), emptyWorld);
}

TEST_F(TmpFileAutoclean, CanBeSwitchedOff)
{
    std::string name;
    {
        TmpFile file("/srv/abc", true);
        file.setAutoclean(false);
        file << "text";
        name = file.name();
    }
    EXPECT_EQ(contentOf(name), "text");
}

TEST_F(TmpFileAutoclean, RemovesTheFileBeforeTheLastOfItIsWritten)
{
    {
        TmpFile file("/srv/abc", true);
        file << "pending";
        ASSERT_EQ(link(file.name().c_str(), "/srv/other"), 0);
        faults::runBefore("unlink", 1, [] { EXPECT_EQ(sizeOf("/srv/other"), 0); });
    }
    EXPECT_EQ(faults::calls("unlink"), 1);
    EXPECT_EQ(contentOf("/srv/other"), "pending");
}

TEST_F(TmpFileAutoclean, ReportsThatTheFileIsGoneAlready)
{
    EXPECT_EQ(errorsOf([] {
        const TmpFile file("/srv/abc", true);
        ASSERT_EQ(remove(file.name().c_str()), 0);
    }),
        noFile);
}

TEST_F(TmpFileAutoclean, ReportsEveryFailureAndStillWritesAndCloses)
{
    EXPECT_EQ(errorsOf([] {
        TmpFile file("/srv/abc", true);
        file << "pending";
        ASSERT_EQ(link(file.name().c_str(), "/srv/other"), 0);
        faults::fail("unlink", EPERM);
    }),
        "TmpFile autoclean failed: Operation not permitted\n");
    EXPECT_EQ(contentOf("/srv/other"), "pending");
}

TEST_F(TmpFileAutoclean, ReportsOnStandardErrorAlone)
{
    const Outcome end = inChild([] {
        {
            const TmpFile file("/srv/abc", true);
            faults::fail("unlink", ENOENT);
        }
        _exit(3);
    });
    EXPECT_EQ(end.err, noFile);
    EXPECT_EQ(end.out, "");
    EXPECT_EQ(end.status, 3);
}

TEST_F(TmpFileAutoclean, ThrowsNothingWhenTheReportFails)
{
    const Outcome end = inChild([] {
        std::cerr.exceptions(std::ios_base::badbit | std::ios_base::failbit);
        {
            const TmpFile file("/srv/abc", true);
            close(STDERR_FILENO);
            faults::fail("unlink", ENOENT);
        }
        _exit(std::cerr.bad() ? 3 : 4);
    });
    EXPECT_EQ(end.status, 3);
}

TEST_F(TmpFileFailure, InAMissingDirectoryHasItsOwnClassAndTwoSeparators)
{
    EXPECT_EQ(failureOf("/srv/missing/abc"),
        "ExSystemError<2> mkstemp() failed: : No such file or directory");
}

TEST_F(TmpFileFailure, CarriesTheErrorOfTheCall)
{
    faults::fail("mkostemp", EACCES);
    EXPECT_EQ(failureOf("/srv/abc"), "13 mkstemp() failed: : Permission denied");
    faults::fail("mkostemp", EINTR);
    EXPECT_THROW(TmpFile("/srv/abc"), zelto::ExSystemError<4>);
    EXPECT_EQ(failureOf("/srv/www/vhosts/" + std::string(300, 'x')),
        "36 mkstemp() failed: : File name too long");
}

TEST_F(TmpFileFailure, RemovesNothing)
{
    faults::fail("mkostemp", EEXIST);
    EXPECT_EQ(failureOf("/srv/abc"), "17 mkstemp() failed: : File exists");
    EXPECT_EQ(faults::calls("unlink"), 0);
}

TEST_F(TmpFileFailure, ForAPrefixWithANulCreatesNothing)
{
    for (const std::string& prefix :
        {std::string("/srv/a\0b", 8), std::string("/srv/XXXXXX\0b", 13)}) {
        EXPECT_THROW(TmpFile file(prefix), std::invalid_argument);
    }
    EXPECT_EQ(treeOf("/srv"), emptyWorld);
}

TEST_F(TmpFileFailure, WithoutMemoryLeavesNothing)
{
    const std::string prefix = "/srv/www/vhosts/abc";
    const size_t descriptors = openDescriptors();
    int failures = 0;
    for (bool done = false; !done;) {
        try {
            const FailingNew failing(failures + 1);
            const TmpFile file(prefix, true);
            done = true;
        } catch (const std::bad_alloc&) {
            ++failures;
        }
        EXPECT_EQ(treeOf("/srv"), emptyWorld) << failures;
        EXPECT_EQ(openDescriptors(), descriptors) << failures;
    }
    EXPECT_GE(failures, 2); // the name and the buffer
}

TEST_F(TmpFileBaseTest, TakesOverAFileOfTheCallers)
{
    {
        OwnFile file("/srv/own", created("/srv/own", O_WRONLY));
        file << "text";
        EXPECT_EQ(file.name(), "/srv/own");
        EXPECT_EQ(sizeOf("/srv/own"), 0);
    }
    EXPECT_EQ(contentOf("/srv/own"), "text");
}

TEST_F(TmpFileBaseTest, RemovesAndClosesAFileThatItCannotWrite)
{
    EXPECT_EQ(failureOfTakingOver("/srv/own", created("/srv/own", O_RDONLY)),
        "22 fdopen() failed: Invalid argument");
    EXPECT_EQ(treeOf("/srv"), emptyWorld);
}

TEST_F(TmpFileBaseTest, ReportsADescriptorThatIsNone)
{
    EXPECT_EQ(failureOfTakingOver("/srv/own", -1), "9 fdopen() failed: Bad file descriptor");
}

TEST_F(TmpFileBaseTest, RemovesAndClosesTheFileWithoutMemory)
{
    const int fd = created("/srv/own", O_WRONLY);
    std::string name = "/srv/own";
    {
        const FailingNew failing;
        EXPECT_THROW(OwnFile(std::move(name), fd), std::bad_alloc);
    }
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_EQ(faults::calls("close"), 0); // the buffer has closed it
    EXPECT_EQ(treeOf("/srv"), emptyWorld);
}
