#include <gtest/gtest.h>
#include <iostream>
#include <stdexcept>
#include <unistd.h>

#include "conf/StandardStreams.h"
#include "tests/lib/Process.h"

namespace
{

struct Speechless : std::exception {
    [[nodiscard]] const char* what() const noexcept override { return nullptr; }
};

} // namespace

TEST(StandardError, IsTheStandardLibrarysOwnStream)
{
    EXPECT_EQ(&zelto::standardError(), &std::cerr);
}

TEST(StandardError, WritesAtOnceAndToStandardErrorOnly)
{
    const Outcome outcome = inChild([] {
        zelto::standardError() << "a message\n";
        _exit(0); // nothing is flushed on the way out
    });
    EXPECT_EQ(outcome.err, "a message\n");
    EXPECT_EQ(outcome.out, "");
}

TEST(StandardError, AnExceptionsTextIsWrittenAsItIsAndEndsWithANewline)
{
    const Outcome outcome = inChild([] {
        zelto::reportException(std::runtime_error("50% of %1% \"&\""));
        zelto::reportException(std::runtime_error(""));
    });
    EXPECT_EQ(outcome.err, "50% of %1% \"&\"\n\n");
}

TEST(StandardError, AnExceptionWithoutATextSetsTheFailBitAndSilencesTheStream)
{
    const Outcome outcome = inChild([] {
        zelto::reportException(Speechless());
        const bool failOnly = std::cerr.rdstate() == std::ios_base::failbit;
        zelto::reportException(std::runtime_error("never seen"));
        std::_Exit(failOnly ? 0 : 1);
    });
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(outcome.status, 0);
}
