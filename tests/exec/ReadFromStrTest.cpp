#include "exec/TReadFromStr.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/prctl.h>
#include <unistd.h>
#include <vector>

#include "exec/TReadOut.h"
#include "exec/TUnionPrep.h"
#include "tests/exec/Commands.h"
#include "tests/lib/Faults.h"
#include "tests/lib/Process.h"

using zelto::sys::TExec;
using zelto::sys::TReadFromStr;
using zelto::sys::TReadOut;
using zelto::sys::TUnionPrep;

namespace
{

/// Many times what a pipe holds.
constexpr std::size_t large = 1U << 20U;

class TReadFromStrOf : public ::testing::Test
{
    faults::Guard guard_;
};

int run(const zelto::sys::TEArgs& args, const std::string& text)
{
    TReadFromStr input(text);
    return runCarefully(TExec(args, &input)).second;
}

/// What cat writes when it is fed the text.
std::string throughCat(const std::string& text)
{
    const auto output = std::make_shared<TReadOut>();
    TUnionPrep both(std::make_shared<TReadFromStr>(text), output);
    const pid_t pid = TExec(words({"/bin/cat"}), &both, TExec::fork).run().first;
    std::string arrived = readAll(output->readEnd());
    EXPECT_EQ(statusWordOf(pid), 0);
    return arrived;
}

std::vector<pid_t> childrenOf(pid_t parent)
{
    std::vector<pid_t> children;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::ifstream file(entry.path() / "stat");
        std::string pid;
        std::string name;
        std::string state;
        pid_t above = 0;
        if (file >> pid >> name >> state >> above && above == parent) {
            children.push_back(std::stoi(pid));
        }
    }
    return children;
}

/// Runs a program that reads nothing and returns how the helper ended, which comes to this process
/// when the program is gone.
int statusOfUnreadHelper()
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    if (run(words({"/bin/true"}), std::string(large, 'x')) != 0) {
        return -1;
    }
    return statusWordOfAnyChild();
}

} // namespace

TEST_F(TReadFromStrOf, ATextGivesTheProgramThatText)
{
    EXPECT_EQ(throughCat("text\n"), "text\n");
}

TEST_F(TReadFromStrOf, AnEmptyTextGivesAnEndAtOnce)
{
    EXPECT_EQ(throughCat(""), "");
}

TEST_F(TReadFromStrOf, ALongTextArrivesWhole)
{
    std::string text(large, '\0');
    for (std::size_t i = 0; i < text.size(); ++i) {
        text[i] = static_cast<char>(i * 7 + i / 251);
    }
    EXPECT_TRUE(throughCat(text) == text);
}

TEST_F(TReadFromStrOf, ALongTextArrivesWholeWhenWritingIsInterrupted)
{
    faults::fail("write", EINTR);
    EXPECT_EQ(throughCat(std::string(large, 'x')).size(), large);
}

TEST_F(TReadFromStrOf, ATextCanBeFedAgain)
{
    TReadFromStr input("text");
    const Outcome outcome = outputOf([&] {
        const TExec exec(words({"/bin/cat"}), &input);
        runCarefully(exec);
        runCarefully(exec);
    });
    EXPECT_EQ(outcome.out, "texttext");
}

TEST_F(TReadFromStrOf, NothingShowsInTheParent)
{
    const size_t before = openDescriptors();
    EXPECT_EQ(run(words({"/bin/cat"}), ""), 0);
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_TRUE(hasNoChildren());
}

TEST_F(TReadFromStrOf, TheProgramHasNothingButItsStandardDescriptors)
{
    const Outcome outcome = inChild([] {
        close_range(3, ~0U, 0);
        run(listDescriptors(), "text");
    });
    EXPECT_EQ(outcome.out, "012");
}

TEST_F(TReadFromStrOf, TheHelperIsAChildOfTheProgram)
{
    const auto output = std::make_shared<TReadOut>();
    TUnionPrep both(output, std::make_shared<TReadFromStr>(std::string(large, 'x')));
    const pid_t pid = TExec(words({"/bin/cat"}), &both, TExec::fork).run().first;
    char byte = 0;
    EXPECT_EQ(read(output->readEnd(), &byte, 1), 1); // both are at work, and stuck without a reader
    EXPECT_EQ(childrenOf(pid).size(), 1U);
    EXPECT_EQ(childrenOf(getpid()), std::vector<pid_t>{pid});
    EXPECT_EQ(readAll(output->readEnd()).size(), large - 1);
    EXPECT_EQ(waitpid(-1, nullptr, 0), pid);
    EXPECT_TRUE(hasNoChildren());
}

TEST_F(TReadFromStrOf, TheHelperWritesTheRestAfterASignalHasCutItsWritingShort)
{
    struct sigaction action {
    };
    struct sigaction before {
    };
    action.sa_handler = [](int) {}; // without SA_RESTART
    sigaction(SIGUSR1, &action, &before);
    const auto output = std::make_shared<TReadOut>();
    TUnionPrep both(output, std::make_shared<TReadFromStr>(std::string(large, 'x')));
    const pid_t pid = TExec(words({"/bin/cat"}), &both, TExec::fork).run().first;
    sigaction(SIGUSR1, &before, nullptr);
    char byte = 0;
    EXPECT_EQ(read(output->readEnd(), &byte, 1), 1); // the helper is in its first write, and stuck
    for (const pid_t helper : childrenOf(pid)) {
        EXPECT_EQ(kill(helper, SIGUSR1), 0);
    }
    EXPECT_EQ(readAll(output->readEnd()).size(), large - 1);
    EXPECT_EQ(statusWordOf(pid), 0);
}

TEST_F(TReadFromStrOf, TheHelperIsEndedByTheSignalWhenNobodyReads)
{
    const Outcome outcome = inChild([] {
        (void)std::signal(SIGPIPE, SIG_DFL);
        _exit(statusOfUnreadHelper() == SIGPIPE ? 0 : 1);
    });
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(TReadFromStrOf, TheHelperEndsAlsoWhereTheSignalIsIgnored)
{
    const Outcome outcome = inChild([] {
        (void)std::signal(SIGPIPE, SIG_IGN);
        _exit(statusOfUnreadHelper() == 0 ? 0 : 1);
    });
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(TReadFromStrOf, TheHelperSucceedsWhenAllIsWritten)
{
    const Outcome outcome = inChild([] {
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        run(words({"/bin/cat"}), "");
        _exit(statusWordOfAnyChild() == 0 ? 0 : 1);
    });
    EXPECT_EQ(outcome.status, 0);
}

TEST_F(TReadFromStrOf, TheHelperEndsWithoutTheExitHandlersOfTheCaller)
{
    const Outcome outcome = inChild([] {
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        (void)std::atexit([] { (void)!write(2, "exit\n", 5); });
        run(words({"/bin/cat"}), "text");
        statusWordOfAnyChild();
    });
    EXPECT_EQ(outcome.out, "text");
    EXPECT_EQ(outcome.err, "exit\n");
}

TEST_F(TReadFromStrOf, WhatTheChildHasPendingIsWrittenFirst)
{
    class Printing : public TExec::TPrepare
    {
        void inChild(const TExec& /*exec*/) override { (void)std::printf("pending "); }
    };
    const Outcome outcome = inChild([] {
        TUnionPrep both(std::make_shared<Printing>(), std::make_shared<TReadFromStr>("text"));
        runCarefully(TExec(words({"/bin/cat"}), &both));
    });
    EXPECT_EQ(outcome.out, "pending text");
}

/// A program whose output has lost its reader must learn of it. The helper, stuck because the
/// program does not read on, must not pass for that reader.
TEST_F(TReadFromStrOf, TheHelperHoldsNoOtherPipe)
{
    for (const int error : {0, ENOSYS}) {
        const Outcome outcome = inChild([error] {
            alarm(60);
            (void)std::signal(SIGPIPE, SIG_DFL);
            if (error != 0) {
                faults::failAlways("close_range", error);
            }
            auto output = std::make_shared<TReadOut>();
            const TReadOut* const end = output.get();
            TUnionPrep both(
                std::make_shared<TReadFromStr>(std::string(large, 'x')), std::move(output));
            const pid_t pid = TExec(words({"/bin/cat"}), &both, TExec::fork).run().first;
            close(end->readEnd());
            _exit(statusWordOf(pid) == SIGPIPE ? 0 : 1);
        });
        EXPECT_EQ(outcome.status, 0) << error;
    }
}

TEST_F(TReadFromStrOf, WithoutAPipeTheChildThrows)
{
    faults::fail("pipe2", EMFILE);
    EXPECT_EQ(run(words({"/bin/true"}), "text"), 100 + EMFILE);
}

TEST_F(TReadFromStrOf, WithoutAHelperTheChildThrows)
{
    faults::fail("fork", EAGAIN, 2);
    EXPECT_EQ(run(words({"/bin/true"}), "text"), 100 + EAGAIN);
}

TEST_F(TReadFromStrOf, WorksWithoutAnyStandardDescriptor)
{
    for (int closed = 0; closed < 8; ++closed) {
        const Outcome outcome = inChild([closed] {
            for (int fd = 0; fd < 3; ++fd) {
                if ((closed & (1 << fd)) != 0) {
                    close(fd);
                }
            }
            _exit(throughCat("text") == "text" ? 0 : 1);
        });
        EXPECT_EQ(outcome.status, 0) << closed;
    }
}
