#include <cerrno>
#include <fcntl.h>

#include "fsutil/Descriptor.h"
#include "site/WholeFile.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

class WholeFile : public World
{
protected:
    /// What is read from the file, or the error's name behind "failed: ".
    std::string read(size_t expectedSize)
    {
        const Descriptor file(open("/srv/file", O_RDONLY | O_CLOEXEC));
        std::string content = "something older";
        if (zelto::readWholeFile(file.get(), expectedSize, content) != 0) {
            return std::string("failed: ") + strerrorname_np(errno);
        }
        return content;
    }

    faults::Guard guard_;
};

} // namespace

TEST_F(WholeFile, AFileOfTheExpectedSizeTakesOneCall)
{
    makeFile("/srv/file", std::string_view("one\0two\r\n", 9));
    faults::clear();
    EXPECT_EQ(read(9), std::string("one\0two\r\n", 9));
    EXPECT_EQ(faults::calls("read"), 1);
}

TEST_F(WholeFile, AnEmptyFileGivesEmptyContent)
{
    makeFile("/srv/file", "");
    EXPECT_EQ(read(0), "");
}

TEST_F(WholeFile, AFileThatGrewIsReadToItsEnd)
{
    std::string content;
    for (int i = 0; i < 100000; ++i) {
        content += std::to_string(i);
    }
    makeFile("/srv/file", content);
    for (const size_t expected : {size_t{0}, size_t{1}, size_t{65536}, content.size() - 1}) {
        EXPECT_TRUE(read(expected) == content) << expected;
    }
}

TEST_F(WholeFile, AFileThatShrankIsReadToItsEnd)
{
    makeFile("/srv/file", "short");
    EXPECT_EQ(read(6), "short");
    EXPECT_EQ(read(100000), "short");
}

TEST_F(WholeFile, AnInterruptedCallIsRepeated)
{
    makeFile("/srv/file", "content");
    faults::fail("read", EINTR);
    EXPECT_EQ(read(7), "content");
}

TEST_F(WholeFile, AnErrorAtTheFirstOrALaterCallIsPassedOn)
{
    makeFile("/srv/file", "content");
    faults::fail("read", EIO);
    EXPECT_EQ(read(7), "failed: EIO");
    faults::fail("read", EIO, 2);
    EXPECT_EQ(read(100), "failed: EIO");
}
