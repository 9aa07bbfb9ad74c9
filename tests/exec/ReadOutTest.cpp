#include "exec/TReadOut.h"

#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "tests/exec/Commands.h"
#include "tests/lib/Faults.h"
#include "tests/lib/Process.h"

using zelto::sys::TExec;
using zelto::sys::TReadOut;
using zelto::sys::TSysCallErr;

namespace
{

constexpr unsigned startOnly = TExec::fork | TExec::searchPath;

class TReadOutOf : public ::testing::Test
{
    faults::Guard guard_;
};

bool closesOnExec(int fd)
{
    return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0;
}

} // namespace

TEST_F(TReadOutOf, GivesTheCallerWhatTheProgramWrites)
{
    TReadOut output;
    const auto [pid, code] = TExec(words({"echo", "text"}), &output, startOnly).run();
    EXPECT_EQ(readAll(output.readEnd()), "text\n");
    EXPECT_EQ(statusWordOf(pid), 0);
}

TEST_F(TReadOutOf, HasNoEndBeforeTheFirstRun)
{
    EXPECT_EQ(TReadOut().readEnd(), -1);
}

TEST_F(TReadOutOf, KeepsOnlyTheReadEndInTheParent)
{
    const size_t before = openDescriptors();
    {
        TReadOut output;
        const pid_t pid = TExec(words({"true"}), &output, startOnly).run().first;
        EXPECT_EQ(openDescriptors(), before + 1);
        EXPECT_TRUE(closesOnExec(output.readEnd()));
        EXPECT_EQ(statusWordOf(pid), 0);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(TReadOutOf, CanBeUsedAgain)
{
    const size_t before = openDescriptors();
    TReadOut output;
    for (const char* text : {"one", "two"}) {
        const pid_t pid = TExec(words({"printf", text}), &output, startOnly).run().first;
        EXPECT_EQ(readAll(output.readEnd()), text);
        EXPECT_EQ(statusWordOf(pid), 0);
    }
    EXPECT_EQ(openDescriptors(), before + 1);
}

TEST_F(TReadOutOf, GivesTheProgramNothingButItsStandardDescriptors)
{
    const Outcome outcome = inChild([] {
        close_range(3, ~0U, 0);
        TReadOut output;
        const pid_t pid = TExec(listDescriptors(), &output, startOnly).run().first;
        const std::string text = readAll(output.readEnd());
        EXPECT_EQ(statusWordOf(pid), 0);
        EXPECT_EQ(write(1, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    });
    EXPECT_EQ(outcome.out, "012");
}

TEST_F(TReadOutOf, ThrowsInTheParentWhenThereCanBeNoPipe)
{
    TReadOut output;
    faults::fail("pipe2", EMFILE);
    try {
        TExec(words({"true"}), &output).run();
        FAIL() << "nothing was thrown";
    } catch (const TSysCallErr& error) {
        EXPECT_EQ(error.errorCode(), EMFILE);
        EXPECT_STREQ(error.what(), "Too many open files");
    }
    EXPECT_EQ(faults::calls("fork"), 0);
}

TEST_F(TReadOutOf, WorksWithoutAnyStandardDescriptor)
{
    for (int closed = 0; closed < 8; ++closed) {
        const Outcome outcome = inChild([closed] {
            for (int fd = 0; fd < 3; ++fd) {
                if ((closed & (1 << fd)) != 0) {
                    close(fd);
                }
            }
            TReadOut output;
            const pid_t pid = TExec(words({"echo", "text"}), &output, startOnly).run().first;
            const std::string text = readAll(output.readEnd());
            _exit(text == "text\n" && statusWordOf(pid) == 0 ? 0 : 1);
        });
        EXPECT_EQ(outcome.status, 0) << closed;
    }
}
