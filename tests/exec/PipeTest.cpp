#include "exec/Pipe.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/TSysCallErr.h"
#include "tests/exec/Commands.h"
#include "tests/lib/Faults.h"
#include "tests/lib/Process.h"

using zelto::sys::Pipe;
using zelto::sys::TSysCallErr;

namespace
{

class PipeEnds : public ::testing::Test
{
    faults::Guard guard_;
};

bool isOpen(int fd)
{
    return fcntl(fd, F_GETFD) != -1;
}

bool closesOnExec(int fd)
{
    return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0;
}

} // namespace

TEST_F(PipeEnds, AreMissingAtFirst)
{
    const Pipe pipe;
    EXPECT_EQ(pipe.readEnd(), -1);
    EXPECT_EQ(pipe.writeEnd(), -1);
}

TEST_F(PipeEnds, AreConnectedAndDoNotSurviveAnExecution)
{
    Pipe pipe;
    pipe.open();
    EXPECT_EQ(write(pipe.writeEnd(), "x", 1), 1);
    char byte = 0;
    EXPECT_EQ(read(pipe.readEnd(), &byte, 1), 1);
    EXPECT_EQ(byte, 'x');
    EXPECT_TRUE(closesOnExec(pipe.readEnd()));
    EXPECT_TRUE(closesOnExec(pipe.writeEnd()));
}

TEST_F(PipeEnds, AreClosedOnce)
{
    Pipe pipe;
    pipe.open();
    const int read = pipe.readEnd();
    const int write = pipe.writeEnd();
    pipe.closeReadEnd();
    pipe.closeWriteEnd();
    EXPECT_EQ(pipe.readEnd(), -1);
    EXPECT_EQ(pipe.writeEnd(), -1);
    const int reused = dup(0);
    const int alsoReused = dup(0);
    EXPECT_EQ(std::minmax(reused, alsoReused), std::minmax(read, write));
    pipe.closeReadEnd();
    pipe.closeWriteEnd();
    EXPECT_TRUE(isOpen(reused));
    EXPECT_TRUE(isOpen(alsoReused));
    close(reused);
    close(alsoReused);
}

TEST_F(PipeEnds, AreClosedWithThePipe)
{
    const size_t before = openDescriptors();
    {
        Pipe pipe;
        pipe.open();
        EXPECT_EQ(openDescriptors(), before + 2);
        pipe.open();
        EXPECT_EQ(openDescriptors(), before + 2);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(PipeEnds, StayAsTheyWereWhenThereCanBeNoNewOnes)
{
    Pipe pipe;
    pipe.open();
    const int read = pipe.readEnd();
    faults::fail("pipe2", EMFILE);
    EXPECT_THROW(pipe.open(), TSysCallErr);
    EXPECT_EQ(pipe.readEnd(), read);
    EXPECT_TRUE(isOpen(read));
}

TEST_F(PipeEnds, AreNeverStandardDescriptors)
{
    const Outcome outcome = inChild([] {
        close_range(0, ~0U, 0);
        Pipe pipe;
        pipe.open();
        const bool above = pipe.readEnd() > 2 && pipe.writeEnd() > 2;
        const bool atExec = closesOnExec(pipe.readEnd()) && closesOnExec(pipe.writeEnd());
        _exit(above && atExec && !isOpen(0) && !isOpen(1) && !isOpen(2) ? 0 : 1);
    });
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(PipeEnds, AreClosedWhenTheyCannotBeMovedAway)
{
    const Outcome outcome = inChild([] {
        close_range(0, ~0U, 0);
        for (const int nth : {1, 2}) {
            Pipe pipe;
            faults::fail("fcntl", EMFILE, nth);
            try {
                pipe.open();
                _exit(1);
            } catch (const TSysCallErr& error) {
                if (error.errorCode() != EMFILE || isOpen(0) || isOpen(1) || isOpen(3)) {
                    _exit(2);
                }
            }
        }
        _exit(0);
    });
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(PipeEnds, BecomeTheStandardInputAndAreOpenNowhereElse)
{
    const Outcome outcome = inChild([] {
        Pipe pipe;
        pipe.open();
        const int readEnd = pipe.readEnd();
        const int writeEnd = pipe.writeEnd();
        const bool written = write(writeEnd, "text", 4) == 4;
        pipe.becomeStandardInput();
        _exit(written && !isOpen(readEnd) && !isOpen(writeEnd) && readAll(0) == "text" ? 0 : 1);
    });
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(PipeEnds, BecomeTheStandardOutputAndAreOpenNowhereElse)
{
    const Outcome outcome = inChild([] {
        (void)std::signal(SIGPIPE, SIG_IGN);
        Pipe pipe;
        pipe.open();
        const int readEnd = pipe.readEnd();
        const int writeEnd = pipe.writeEnd();
        pipe.becomeStandardOutput();
        const bool refused = write(1, "text", 4) == -1 && errno == EPIPE; // nobody reads
        _exit(refused && !isOpen(readEnd) && !isOpen(writeEnd) ? 0 : 1);
    });
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(PipeEnds, ThatAreMissingLeaveTheStandardDescriptorClosed)
{
    const Outcome outcome = inChild([] {
        Pipe pipe;
        pipe.becomeStandardInput();
        pipe.becomeStandardOutput();
        _exit(isOpen(0) || isOpen(1) ? 1 : 0);
    });
    EXPECT_EQ(outcome.status, 0);
}
