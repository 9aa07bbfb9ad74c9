#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <unistd.h>

#include "exec/Pipe.h"
#include "exec/TReadFromPipeline.h"
#include "exec/TUnionPrep.h"
#include "exec/TWriteToPipeline.h"
#include "tests/exec/Commands.h"
#include "tests/lib/Faults.h"
#include "tests/lib/Process.h"

using zelto::sys::Pipe;
using zelto::sys::TExec;
using zelto::sys::TReadFromPipeline;
using zelto::sys::TSysCallErr;
using zelto::sys::TUnionPrep;
using zelto::sys::TWriteToPipeline;

namespace
{

constexpr unsigned startOnly = TExec::fork | TExec::searchPath;

class PipelineEnds : public ::testing::Test
{
    faults::Guard guard_;
};

bool isOpen(int fd)
{
    return fcntl(fd, F_GETFD) != -1;
}

} // namespace

TEST_F(PipelineEnds, ConnectTwoCommands)
{
    const auto pipe = std::make_shared<Pipe>();
    TWriteToPipeline writer(pipe);
    TReadFromPipeline reader(pipe);
    const Outcome outcome = outputOf([&] {
        const pid_t first = TExec(words({"echo", "text"}), &writer, startOnly).run().first;
        EXPECT_EQ(TExec(words({"tr", "a-z", "A-Z"}), &reader).run().second, 0);
        EXPECT_EQ(statusWordOf(first), 0);
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
    EXPECT_EQ(statusWordOf(first), 0);
    EXPECT_EQ(statusWordOf(second), 0);
}

TEST_F(PipelineEnds, AreFreedByTheLastOwner)
{
    const size_t before = openDescriptors();
    {
        auto pipe = std::make_shared<Pipe>();
        const auto writer = std::make_unique<TWriteToPipeline>(pipe);
        auto reader = std::make_unique<TReadFromPipeline>(std::move(pipe));
        const pid_t first = TExec(words({"true"}), writer.get(), startOnly).run().first;
        EXPECT_EQ(statusWordOf(first), 0);
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
        EXPECT_EQ(statusWordOf(first), 0);
        const pid_t second = TExec(words({"true"}), &writer, startOnly).run().first;
        TExec(listDescriptors(), &reader).run();
        EXPECT_EQ(statusWordOf(second), 0);
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
        EXPECT_EQ(statusWordOf(one), 0);
        EXPECT_EQ(statusWordOf(two), 0);
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
