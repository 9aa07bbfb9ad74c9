#include "exec/DescriptorStrings.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "fsutil/Descriptor.h"
#include "support/SystemError.h"
#include "tests/lib/Faults.h"

namespace
{

constexpr size_t pipeCapacity = 65536;

/// Text in which no two places look alike.
std::string longText(size_t size)
{
    std::string text;
    for (size_t number = 0; text.size() < size; ++number) {
        text += std::to_string(number) + ' ';
    }
    text.resize(size);
    return text;
}

/// An empty pipe whose two ends do not block.
class DescriptorStrings : public ::testing::Test
{
protected:
    DescriptorStrings()
    {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_NONBLOCK | O_CLOEXEC), 0);
        read_ = Descriptor(ends[0]);
        write_ = Descriptor(ends[1]);
        faults::clear();
    }

    void put(const std::string& text) const
    {
        ASSERT_EQ(write(write_.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    [[nodiscard]] std::string take() const
    {
        std::string text(2 * pipeCapacity, '\0');
        const ssize_t count = read(read_.get(), text.data(), text.size());
        text.resize(count > 0 ? static_cast<size_t>(count) : 0);
        return text;
    }

    Descriptor read_;
    Descriptor write_;
    faults::Guard guard_;
};

using WriteToString = DescriptorStrings;
using ReadToString = DescriptorStrings;

} // namespace

TEST_F(WriteToString, WritesTheStringAndEmptiesIt)
{
    std::string text("one\0two\xff", 8);
    writeToString(write_.get(), text);
    EXPECT_EQ(text, "");
    EXPECT_EQ(take(), std::string("one\0two\xff", 8));
}

TEST_F(WriteToString, WritesNothingForAnEmptyString)
{
    std::string text;
    writeToString(-1, text);
    EXPECT_EQ(faults::calls("write"), 0);
}

TEST_F(WriteToString, LeavesWhatTheDescriptorDoesNotTakeForNow)
{
    const std::string whole = longText(3 * pipeCapacity + 5);
    std::string text = whole;
    writeToString(write_.get(), text);
    EXPECT_EQ(text, whole.substr(pipeCapacity));
    EXPECT_EQ(take(), whole.substr(0, pipeCapacity));
}

TEST_F(WriteToString, GoesOnWithTheRestWhenCalledAgain)
{
    const std::string whole = longText(2 * pipeCapacity + 5);
    std::string text = whole;
    std::string taken;
    for (int call = 0; call < 3; ++call) {
        writeToString(write_.get(), text);
        taken += take();
    }
    EXPECT_EQ(text, "");
    EXPECT_EQ(taken, whole);
}

TEST_F(WriteToString, LeavesTheWholeStringWhenNothingIsTaken)
{
    put(std::string(pipeCapacity, 'x'));
    std::string text = "rest";
    writeToString(write_.get(), text);
    EXPECT_EQ(text, "rest");
}

TEST_F(WriteToString, TriesAgainAfterASignal)
{
    faults::fail("write", EINTR);
    std::string text = "text";
    writeToString(write_.get(), text);
    EXPECT_EQ(text, "");
    EXPECT_EQ(take(), "text");
    EXPECT_EQ(faults::calls("write"), 2);
}

TEST_F(WriteToString, WritesOnAfterASignalBetweenTwoParts)
{
    const std::string whole = longText(pipeCapacity + 5);
    std::string text = whole;
    faults::fail("write", EINTR, 2);
    faults::runBefore("write", 3, [] { faults::fail("write", EAGAIN, 0); });
    writeToString(write_.get(), text);
    EXPECT_EQ(text, whole.substr(pipeCapacity));
    EXPECT_EQ(faults::calls("write"), 3);
}

TEST_F(WriteToString, ThrowsAFailureWithItsNumber)
{
    faults::fail("write", ENOSPC);
    std::string text = "text";
    try {
        writeToString(write_.get(), text);
        FAIL() << "nothing was thrown";
    } catch (const zelto::SystemError& error) {
        EXPECT_STREQ(error.what(), "writeToString failed: No space left on device");
        EXPECT_EQ(error.errorCode(), ENOSPC);
    }
    EXPECT_EQ(text, "text");
}

TEST_F(WriteToString, ThrowsANumberThatHasAClassAsThatClass)
{
    faults::fail("write", EPERM);
    std::string text = "text";
    EXPECT_THROW(writeToString(write_.get(), text), zelto::ExSystemError<EPERM>);
}

TEST_F(WriteToString, KeepsExactlyTheUnwrittenRestAfterAFailure)
{
    const std::string whole = longText(pipeCapacity + 5);
    std::string text = whole;
    faults::fail("write", EIO, 2);
    EXPECT_THROW(writeToString(write_.get(), text), zelto::SystemError);
    EXPECT_EQ(text, whole.substr(pipeCapacity));
}

TEST_F(WriteToString, LeavesTheDescriptorOpen)
{
    std::string text = "text";
    writeToString(write_.get(), text);
    EXPECT_NE(fcntl(write_.get(), F_GETFD), -1);
}

TEST_F(ReadToString, AppendsWhatIsThereAndSaysThatMoreMayCome)
{
    put("new\n");
    std::string text = "old\n";
    EXPECT_TRUE(readToString(read_.get(), text));
    EXPECT_EQ(text, "old\nnew\n");
}

TEST_F(ReadToString, AppendsNothingWhenNothingIsThereYet)
{
    std::string text = "old";
    EXPECT_TRUE(readToString(read_.get(), text));
    EXPECT_EQ(text, "old");
}

TEST_F(ReadToString, SaysWhenTheEndIsReached)
{
    put("last");
    write_.reset();
    std::string text = "at ";
    EXPECT_FALSE(readToString(read_.get(), text));
    EXPECT_EQ(text, "at last");
}

TEST_F(ReadToString, ReadsEveryByteValue)
{
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) {
        bytes += static_cast<char>(byte);
    }
    put(bytes);
    std::string text;
    EXPECT_TRUE(readToString(read_.get(), text));
    EXPECT_EQ(text, bytes);
}

TEST_F(ReadToString, ReadsFourKibibytesAtATime)
{
    const std::string whole = longText(2 * 4096 + 1);
    put(whole);
    write_.reset();
    std::string text;
    faults::clear();
    EXPECT_FALSE(readToString(read_.get(), text));
    EXPECT_EQ(text, whole);
    EXPECT_EQ(faults::calls("read"), 4);
}

TEST_F(ReadToString, TriesAgainAfterASignal)
{
    put("text");
    faults::fail("read", EINTR);
    std::string text;
    EXPECT_TRUE(readToString(read_.get(), text));
    EXPECT_EQ(text, "text");
    EXPECT_EQ(faults::calls("read"), 3);
}

TEST_F(ReadToString, ThrowsAFailureWithItsNumber)
{
    std::string text = "old";
    try {
        readToString(-1, text);
        FAIL() << "nothing was thrown";
    } catch (const zelto::SystemError& error) {
        EXPECT_STREQ(error.what(), "readToString failed: Bad file descriptor");
        EXPECT_EQ(error.errorCode(), EBADF);
    }
    EXPECT_EQ(text, "old");
}

TEST_F(ReadToString, ThrowsANumberThatHasAClassAsThatClass)
{
    faults::fail("read", EPERM);
    std::string text;
    EXPECT_THROW(readToString(read_.get(), text), zelto::ExSystemError<EPERM>);
}

TEST_F(ReadToString, KeepsWhatItReadBeforeAFailure)
{
    put(longText(4096) + "lost");
    faults::fail("read", EIO, 2);
    std::string text = "old ";
    EXPECT_THROW(readToString(read_.get(), text), zelto::SystemError);
    EXPECT_EQ(text, "old " + longText(4096));
}

TEST_F(ReadToString, ReadsABlockingDescriptorToItsEnd)
{
    const Descriptor file(memfd_create("text", MFD_CLOEXEC));
    const std::string whole = longText(10000);
    ASSERT_EQ(pwrite(file.get(), whole.data(), whole.size(), 0), 10000);
    std::string text;
    EXPECT_FALSE(readToString(file.get(), text));
    EXPECT_EQ(text, whole);
    EXPECT_NE(fcntl(file.get(), F_GETFD), -1);
}
