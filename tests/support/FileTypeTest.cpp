#include <cstdio>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

#include "support/misc.h"
#include "tests/lib/World.h"

namespace
{

using zelto::fileType;

class FileType : public World
{
protected:
    /// Asks in a child in which PATH leads only to a stand-in for the utility.
    static Outcome withUtility(const std::string& script, const std::string& path)
    {
        makeDirs("/srv/bin");
        makeFile("/srv/bin/file", "#!/bin/sh\n" + script, {0755});
        return askedIn("/srv/bin", path);
    }

    static Outcome askedIn(const char* searchPath, const std::string& path)
    {
        return inChild([&] {
            (void)setenv("PATH", searchPath, 1);
            try {
                (void)std::fputs(fileType(path).c_str(), stdout);
            } catch (const std::runtime_error& error) {
                std::printf("thrown: %s", error.what());
            }
        });
    }
};

} // namespace

TEST_F(FileType, IsWhatTheUtilitySaysWithItsNewline)
{
    makeFile("/srv/text", "some words\n");
    EXPECT_EQ(fileType("/srv/text"), "ASCII text\n");
}

TEST_F(FileType, TellsEmptyFilesAndDirectories)
{
    makeFile("/srv/empty", "");
    EXPECT_EQ(fileType("/srv/empty"), "empty\n");
    EXPECT_EQ(fileType("/srv/www"), "directory\n");
}

TEST_F(FileType, IsThatOfTheFileBehindALink)
{
    makeFile("/srv/text", "some words\n");
    makeLink("/srv/link", "text");
    EXPECT_EQ(fileType("/srv/link"), "ASCII text\n");
}

TEST_F(FileType, IsTheUtilitysMessageForAPathThatDoesNotExist)
{
    EXPECT_EQ(fileType("/srv/none"), "cannot open `/srv/none' (No such file or directory)\n");
}

TEST_F(FileType, IsAskedAnewByEachCall)
{
    makeFile("/srv/file", "some words\n");
    EXPECT_EQ(fileType("/srv/file"), "ASCII text\n");
    makeFile("/srv/file", "");
    EXPECT_EQ(fileType("/srv/file"), "empty\n");
}

TEST_F(FileType, RunsTheUtilityOfThePathWithExactlyThreeWords)
{
    const Outcome end = withUtility("printf '[%s]' \"$@\"", "/srv/a b");
    EXPECT_EQ(end.out, "[-bL][/srv/a b]");
}

TEST_F(FileType, CollectsOnlyTheStandardOutput)
{
    const Outcome end = withUtility("echo out; echo err >&2", "/srv/x");
    EXPECT_EQ(end.out, "out\n");
    EXPECT_EQ(end.err, "err\n");
}

TEST_F(FileType, CollectsMoreThanAPipeHolds)
{
    makeFile("/srv/large", std::string(200'000, 'x'));
    const Outcome end = withUtility("read -r text </srv/large; printf %s \"$text\"", "/srv/x");
    EXPECT_TRUE(end.out == std::string(200'000, 'x'));
}

TEST_F(FileType, IsAnErrorWithTheOutputWhenTheUtilityFails)
{
    const Outcome end = withUtility("echo half; exit 3", "/srv/x");
    EXPECT_EQ(end.out, "thrown: child failed (exit code=3): half\n");
}

TEST_F(FileType, IsAnErrorWhenASignalEndsTheUtility)
{
    const Outcome end = withUtility("printf half; kill -9 $$", "/srv/x");
    EXPECT_EQ(end.out, "thrown: child failed (status=9): half");
}

TEST_F(FileType, IsAnErrorWithoutTheUtility)
{
    const Outcome end = askedIn("/srv/none", "/srv/x");
    EXPECT_EQ(end.out, "thrown: child failed (exit code=1): ");
    EXPECT_EQ(end.err, "Unexpected error: No such file or directory\n");
    EXPECT_EQ(end.status, 0);
}

TEST_F(FileType, LeavesNoDescriptorOpen)
{
    const size_t before = openDescriptors();
    (void)fileType("/srv");
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(FileType, RefusesAPathThatTheSystemWouldCut)
{
    EXPECT_THROW((void)fileType(std::string("/srv\0.txt", 9)), std::invalid_argument);
}
