#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <unistd.h>

#include "exec/Pipe.h"
#include "exec/TReadFromPipeline.h"
#include "exec/TReadOut.h"
#include "exec/TUnionPrep.h"
#include "exec/TWriteToPipeline.h"
#include "tests/exec/Commands.h"
#include "tests/lib/Faults.h"
#include "tests/lib/Process.h"

using zelto::sys::Pipe;
using zelto::sys::TExec;
using zelto::sys::TReadFromPipeline;
using zelto::sys::TReadOut;
using zelto::sys::TSysCallErr;
using zelto::sys::TUnionPrep;
using zelto::sys::TWriteToPipeline;

namespace
{

constexpr unsigned startOnly = TExec::fork | TExec::searchPath;

class PipePreparations : public ::testing::Test
{
    faults::Guard guard_;
};
class PipeEnds : public PipePreparations
{
};
class TReadOutOf : public PipePreparations
{
};
class PipelineEnds : public PipePreparations
{
};

bool isOpen(int fd)
{
    return fcntl(fd, F_GETFD) != -1;
}

bool closesOnExec(int fd)
{
    return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0;
}

int codeOf(pid_t child)
{
    return statusWordOf(child) >> 8;
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

TEST_F(TReadOutOf, GivesTheCallerWhatTheProgramWrites)
{
    TReadOut output;
    const auto [pid, code] = TExec(words({"echo", "text"}), &output, startOnly).run();
    EXPECT_EQ(readAll(output.readEnd()), "text\n");
    EXPECT_EQ(codeOf(pid), 0);
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
        EXPECT_EQ(codeOf(pid), 0);
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
        EXPECT_EQ(codeOf(pid), 0);
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
        EXPECT_EQ(codeOf(pid), 0);
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
            _exit(text == "text\n" && codeOf(pid) == 0 ? 0 : 1);
        });
        EXPECT_EQ(outcome.status, 0) << closed;
    }
}

TEST_F(PipelineEnds, ConnectTwoCommands)
{
    const auto pipe = std::make_shared<Pipe>();
    TWriteToPipeline writer(pipe);
    TReadFromPipeline reader(pipe);
    const Outcome outcome = outputOf([&] {
        const pid_t first = TExec(words({"echo", "text"}), &writer, startOnly).run().first;
        EXPECT_EQ(TExec(words({"tr", "a-z", "A-Z"}), &reader).run().second, 0);
        EXPECT_EQ(codeOf(first), 0);
    });
    EXPECT_EQ(outcome.out, "TEXT\n");
}

TEST_F(PipelineEnds, StayInTheParentUntilTheReaderHasStarted)
{
    const size_t before = openDescriptors();
    const auto pipe = std::make_shared<Pipe>();
    TWriteToPipeline writer(pipe);
    TReadFromPipeline reader(pipe);
    const pid_t first = TExec(words({"true"}), &writer, startOnly).run().first;
    EXPECT_EQ(openDescriptors(), before + 2);
    EXPECT_GE(pipe->readEnd(), 0);
    EXPECT_GE(pipe->writeEnd(), 0);
    const pid_t second = TExec(words({"true"}), &reader, startOnly).run().first;
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(codeOf(first), 0);
    EXPECT_EQ(codeOf(second), 0);
}

TEST_F(PipelineEnds, AreFreedByTheLastOwner)
{
    const size_t before = openDescriptors();
    {
        auto pipe = std::make_shared<Pipe>();
        const auto writer = std::make_unique<TWriteToPipeline>(pipe);
        auto reader = std::make_unique<TReadFromPipeline>(std::move(pipe));
        const pid_t first = TExec(words({"true"}), writer.get(), startOnly).run().first;
        EXPECT_EQ(codeOf(first), 0);
        reader.reset();
        EXPECT_EQ(openDescriptors(), before + 2);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(PipelineEnds, AreNotClosedTwiceByTheReader)
{
    const auto pipe = std::make_shared<Pipe>();
    TReadFromPipeline reader(pipe);
    const TExec exec(words({"true"}));
    pipe->open();
    reader.inParent(exec);
    const int reused = dup(0);
    const int alsoReused = dup(0);
    reader.inParent(exec);
    EXPECT_TRUE(isOpen(reused));
    EXPECT_TRUE(isOpen(alsoReused));
    close(reused);
    close(alsoReused);
}

TEST_F(PipelineEnds, LeaveBothProgramsNothingButTheirStandardDescriptors)
{
    const Outcome outcome = inChild([] {
        close_range(3, ~0U, 0);
        const auto pipe = std::make_shared<Pipe>();
        TWriteToPipeline writer(pipe);
        TReadFromPipeline reader(pipe);
        const pid_t first = TExec(listDescriptors(), &writer, startOnly).run().first;
        TExec(words({"cat"}), &reader).run();
        EXPECT_EQ(codeOf(first), 0);
        const pid_t second = TExec(words({"true"}), &writer, startOnly).run().first;
        TExec(listDescriptors(), &reader).run();
        EXPECT_EQ(codeOf(second), 0);
    });
    EXPECT_EQ(outcome.out, "012012");
}

TEST_F(PipelineEnds, JoinInACommandInTheMiddle)
{
    const auto left = std::make_shared<Pipe>();
    const auto right = std::make_shared<Pipe>();
    TWriteToPipeline first(left);
    TUnionPrep middle(
        std::make_shared<TReadFromPipeline>(left), std::make_shared<TWriteToPipeline>(right));
    TReadFromPipeline last(right);
    const size_t before = openDescriptors();
    const Outcome outcome = outputOf([&] {
        const pid_t one = TExec(words({"echo", "text"}), &first, startOnly).run().first;
        const pid_t two = TExec(words({"tr", "a-z", "A-Z"}), &middle, startOnly).run().first;
        EXPECT_EQ(TExec(words({"tr", "X", "S"}), &last).run().second, 0);
        EXPECT_EQ(codeOf(one), 0);
        EXPECT_EQ(codeOf(two), 0);
    });
    EXPECT_EQ(outcome.out, "TEST\n");
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(PipelineEnds, ThrowInTheParentWhenThereCanBeNoPipe)
{
    TWriteToPipeline writer(std::make_shared<Pipe>());
    faults::fail("pipe2", ENFILE);
    EXPECT_THROW(TExec(words({"true"}), &writer).run(), TSysCallErr);
    EXPECT_EQ(faults::calls("fork"), 0);
}

TEST_F(PipelineEnds, LeaveAReaderWithoutAWriterWithoutInput)
{
    TReadFromPipeline reader(std::make_shared<Pipe>());
    EXPECT_EQ(runCarefully(TExec(hasDescriptor(0), &reader)).second, 1);
}

TEST_F(PipelineEnds, NeedAPipe)
{
    EXPECT_THROW(TWriteToPipeline(nullptr), std::invalid_argument);
    EXPECT_THROW(TReadFromPipeline(nullptr), std::invalid_argument);
}
