#include <array>
#include <cerrno>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>
#include <stdexcept>
#include <string>
#include <unistd.h>

#include "support/SystemError.h"
#include "support/misc.h"
#include "tests/lib/FailingNew.h"
#include "tests/lib/World.h"

namespace
{

using ReadFile = World;
using zelto::readFile;

constexpr char againVariable[] = "ZELTO_TEST_RUN_AGAIN";

/// Whether this is the run of a test that the test itself has started.
bool isRunAgain()
{
    return std::getenv(againVariable) != nullptr;
}

/// Runs the current test again, in a process of its own behind a program that starts it.
Outcome runAgain(std::vector<std::string> words, Start start = {})
{
    std::array<char, 4096> self{};
    EXPECT_GT(readlink("/proc/self/exe", self.data(), self.size() - 1), 0);
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    words.emplace_back(self.data());
    words.push_back(std::string("--gtest_filter=") + test->test_suite_name() + '.' + test->name());
    start.environment.push_back(std::string(againVariable) + "=1");
    return runProgram(words[0], words, start);
}

} // namespace

TEST_F(ReadFile, GivesTheWholeContent)
{
    makeFile("/srv/file", "one\ntwo\n\n");
    EXPECT_EQ(readFile("/srv/file"), "one\ntwo\n\n");
}

TEST_F(ReadFile, GivesAnEmptyTextForAnEmptyFile)
{
    makeFile("/srv/file", "");
    EXPECT_EQ(readFile("/srv/file"), "");
}

TEST_F(ReadFile, TakesEveryByteAsItIs)
{
    std::string bytes("\0\r\n\x1a\xff\r\n", 7);
    bytes += bytes;
    makeFile("/srv/file", bytes);
    EXPECT_EQ(readFile("/srv/file"), bytes);
}

TEST_F(ReadFile, ReadsMoreThanAnyBufferHolds)
{
    std::string large;
    for (int i = 0; i < 500'000; ++i) {
        large += std::to_string(i) + '\n';
    }
    makeFile("/srv/large", large);
    EXPECT_TRUE(readFile("/srv/large") == large);
}

TEST_F(ReadFile, ReadsFilesThatDoNotTellTheirSize)
{
    EXPECT_EQ(readFile("/proc/self/status").find("Name:\t"), 0U);
}

TEST_F(ReadFile, FollowsLinks)
{
    makeFile("/srv/file", "content");
    makeLink("/srv/link", "file");
    EXPECT_EQ(readFile("/srv/link"), "content");
}

TEST_F(ReadFile, SaysThatAFileDoesNotExist)
{
    try {
        (void)readFile("/srv/none");
        FAIL() << "nothing was thrown";
    } catch (const zelto::ExSystemError<2>& error) {
        EXPECT_STREQ(error.what(), "/srv/none: open failed: No such file or directory");
    }
}

TEST_F(ReadFile, SaysWhyAFileCannotBeOpened)
{
    makeLink("/srv/loop", "loop");
    errno = ENOENT;
    try {
        (void)readFile("/srv/loop");
        FAIL() << "nothing was thrown";
    } catch (const zelto::SystemError& error) {
        EXPECT_EQ(error.errorCode(), ELOOP);
        EXPECT_STREQ(error.what(), "/srv/loop: open failed: Too many levels of symbolic links");
    }
}

TEST_F(ReadFile, GivesAnEmptyTextForADirectory)
{
    EXPECT_EQ(readFile("/srv"), "");
}

TEST_F(ReadFile, RefusesAPathThatTheSystemWouldCut)
{
    makeFile("/srv/file", "content");
    EXPECT_THROW((void)readFile(std::string("/srv/file\0.txt", 14)), std::invalid_argument);
}

TEST_F(ReadFile, LeavesNoDescriptorOpen)
{
    makeFile("/srv/file", "content");
    const size_t before = openDescriptors();
    (void)readFile("/srv/file");
    (void)readFile("/srv");
    EXPECT_THROW((void)readFile("/srv/none"), zelto::SystemError);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(ReadFile, KeepsWhatItReadBeforeAReadError)
{
    const std::string whole(100'000, 'x');
    makeFile("/srv/unreadable", whole);
    if (isRunAgain()) {
        const std::string read = readFile("/srv/unreadable");
        EXPECT_GT(read.size(), 0U);
        EXPECT_LT(read.size(), whole.size());
        EXPECT_EQ(read, whole.substr(0, read.size()));
        return;
    }
    const Outcome end = runAgain({"/usr/bin/strace", "-o", "/dev/null", "-P", "/srv/unreadable",
                                     "-e", "inject=read:error=EIO:when=2"},
        {.environment = {"ASAN_OPTIONS=detect_leaks=0"}});
    EXPECT_EQ(end.status, 0) << end.out << end.err;
}

TEST_F(ReadFile, ThrowsRatherThanCutAFileForWhichThereIsNoMemory)
{
    const std::string whole(100'000, 'x');
    makeFile("/srv/file", whole);
    int failures = 0;
    std::string read;
    while (read.empty()) {
        const FailingNew failing(failures + 1);
        try {
            read = readFile("/srv/file");
        } catch (const std::bad_alloc&) {
            ++failures;
        }
    }
    EXPECT_GT(failures, 3);
    EXPECT_TRUE(read == whole);
}
