#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include "site/WholeInput.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

/// A pipe to read from.
class WholeInput : public World
{
public:
    WholeInput() { EXPECT_EQ(pipe2(ends_, O_CLOEXEC), 0); }
    ~WholeInput() override
    {
        close(ends_[0]);
        finishWriting();
    }

    void send(const std::string& text) const
    {
        EXPECT_EQ(write(ends_[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    void finishWriting()
    {
        if (ends_[1] >= 0) {
            close(ends_[1]);
        }
        ends_[1] = -1;
    }

    std::string readUpTo(size_t limit) const
    {
        std::string content = "old";
        EXPECT_EQ(zelto::readWholeInput(ends_[0], limit, content), 0);
        return content;
    }

    int ends_[2] = {-1, -1};
    faults::Guard guard_;
};

} // namespace

TEST_F(WholeInput, IsReadToItsEnd)
{
    send("abc");
    finishWriting();
    EXPECT_EQ(readUpTo(SIZE_MAX), "abc");
}

TEST_F(WholeInput, MayBeEmpty)
{
    finishWriting();
    EXPECT_EQ(readUpTo(SIZE_MAX), "");
}

TEST_F(WholeInput, MayComeInPieces)
{
    static WholeInput* self;
    self = this;
    send("abc");
    faults::runBefore("read", 2, [] {
        self->send("def");
        self->finishWriting();
    });
    EXPECT_EQ(readUpTo(SIZE_MAX), "abcdef");
}

TEST_F(WholeInput, MayBeLargerThanOneReading)
{
    std::string expected;
    for (int number = 0; expected.size() < 1'000'000; ++number) {
        expected += std::to_string(number) + ' ';
    }
    makeFile("/srv/file", expected);
    const int file = open("/srv/file", O_RDONLY | O_CLOEXEC);
    std::string content;
    EXPECT_EQ(zelto::readWholeInput(file, SIZE_MAX, content), 0);
    close(file);
    EXPECT_TRUE(content == expected);
}

TEST_F(WholeInput, IsReadUpToTheLimitAndNoFurther)
{
    send("abcdef");
    finishWriting();
    EXPECT_EQ(readUpTo(2), "ab");
    EXPECT_EQ(readUpTo(0), "");
    EXPECT_EQ(readUpTo(4), "cdef");
}

TEST_F(WholeInput, GoesOnAfterASignal)
{
    send("abc");
    finishWriting();
    faults::fail("read", EINTR);
    EXPECT_EQ(readUpTo(SIZE_MAX), "abc");
}

TEST_F(WholeInput, IsWaitedForAlsoWhenItIsSetNotToWait)
{
    ASSERT_EQ(fcntl(ends_[0], F_SETFL, O_NONBLOCK), 0);
    int begin[2] = {-1, -1};
    ASSERT_EQ(pipe2(begin, O_CLOEXEC), 0);
    const pid_t writer = fork();
    if (writer == 0) {
        char ignored = 0;
        (void)(read(begin[0], &ignored, 1) + write(ends_[1], "abc", 3));
        _exit(0);
    }
    finishWriting();
    // The first reading finds nothing, and the writer begins no sooner.
    static int told;
    told = begin[1];
    faults::runBefore("read", 1, [] { EXPECT_EQ(write(told, "x", 1), 1); });
    faults::fail("read", EAGAIN);
    EXPECT_EQ(readUpTo(SIZE_MAX), "abc");
    EXPECT_LE(faults::calls("read"), 4);
    EXPECT_EQ(waitpid(writer, nullptr, 0), writer);
    close(begin[0]);
    close(begin[1]);
}

TEST_F(WholeInput, TellsWhyItCannotBeRead)
{
    std::string content;
    errno = 0;
    EXPECT_EQ(zelto::readWholeInput(-1, SIZE_MAX, content), -1);
    EXPECT_EQ(errno, EBADF);
    send("abc");
    faults::fail("read", EIO, 2);
    EXPECT_EQ(zelto::readWholeInput(ends_[0], SIZE_MAX, content), -1);
    EXPECT_EQ(errno, EIO);
}
