#include "fsutil/Files.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>

#include "tests/fsutil/Reports.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

FILE* opened(const char* path, const char* mode)
{
    return fopen(path, mode); // NOLINT(cppcoreguidelines-owning-memory): closing it is the test
}

class Files : public World
{
protected:
    faults::Guard guard_;
};

/// What readFirstLine() made of a file: its result, its report and the whole destination.
struct Line {
    int result = 0;
    std::string report;
    std::string destination;

    bool operator==(const Line&) const = default;
};

void PrintTo(const Line& line, std::ostream* out)
{
    *out << line.result << " '" << line.report << "' '" << line.destination << "'";
}

/// The destination starts as dots, so that untouched bytes show.
Line firstLine(const std::string& path, size_t size, int pendingError = 0)
{
    Line line;
    line.destination.assign(size, '.');
    line.report = reportsOf([&] {
        errno = pendingError;
        line.result = readFirstLine(line.destination.data(), size, path.c_str());
    });
    return line;
}

Line firstLineOf(std::string_view content, size_t size, int pendingError = 0)
{
    makeFile("/srv/line", content);
    return firstLine("/srv/line", size, pendingError);
}

/// A text as readFirstLine() leaves it in a destination: padded with NULs.
Line success(std::string text, size_t size)
{
    text.resize(size, '\0');
    return {0, "", text};
}

Line tooShort(size_t size)
{
    return {-1, "twigctl: The buffer too short\n", std::string(size, '.')};
}

} // namespace

using CloseStream = Files;
using ReadFirstLine = Files;
using FirstExistingPath = Files;
using CreateFile = Files;
using TruncateOrCreateFile = Files;

TEST_F(CloseStream, ReturnsZeroAndClosesTheDescriptor)
{
    makeFile("/srv/file", "");
    const size_t before = openDescriptors();
    int result = -1;
    EXPECT_EQ(reportsOf([&] { result = closeStream(opened("/srv/file", "r")); }), "");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(CloseStream, ReportsTextThatCouldNotBeWrittenAndReturnsWhatFcloseDid)
{
    const PrivateDirectory full("/srv", "size=4k");
    makeFile("/srv/filler", std::string(4096, 'x'));
    int result = 0;
    EXPECT_EQ(reportsOf([&] {
        FILE* stream = opened("/srv/file", "w");
        EXPECT_NE(fputs("text", stream), EOF);
        result = closeStream(stream);
    }),
        "twigctl: Unable to close the file: No space left on device\n"
        "\nSystem error 28: No space left on device\n");
    EXPECT_EQ(result, EOF);
}

TEST_F(ReadFirstLine, GivesTheLineWithoutItsNewlinePaddedWithNuls)
{
    EXPECT_EQ(firstLineOf("abc\ndef\n", 8), success("abc", 8));
    EXPECT_EQ(firstLineOf("abc", 8), success("abc", 8));
}

TEST_F(ReadFirstLine, TrimsBlanksOnBothSidesAndKeepsThoseWithin)
{
    EXPECT_EQ(firstLineOf(" \t\v\f\rab  c\r\f\v\t \n", 16), success("ab  c", 16));
}

TEST_F(ReadFirstLine, TakesOnlyTheSixBlanksOfTheCLocaleAway)
{
    EXPECT_EQ(firstLineOf("\xa0\x85\x01z\xff\xa0\n", 16), success("\xa0\x85\x01z\xff\xa0", 16));
}

TEST_F(ReadFirstLine, FitsWhenThereIsRoomForTheTerminator)
{
    EXPECT_EQ(firstLineOf("  abc  \n", 4), success("abc", 4));
    EXPECT_EQ(firstLineOf("  abc  \n", 3), tooShort(3));
    EXPECT_EQ(firstLineOf("", 0), success("", 0));
    EXPECT_EQ(firstLineOf("\n", 0), tooShort(0));
}

TEST_F(ReadFirstLine, ReadsLinesOfAnyLength)
{
    const std::string text(100'000, 'x');
    EXPECT_EQ(firstLineOf(text + "\nrest", 100'001), success(text, 100'001));
    EXPECT_EQ(firstLineOf(text + "\nrest", 100'000), tooShort(100'000));
}

TEST_F(ReadFirstLine, GivesAnEmptyTextForABlankLine)
{
    EXPECT_EQ(firstLineOf("  \nabc\n", 4), success("", 4));
    EXPECT_EQ(firstLineOf("   ", 4), success("", 4));
    EXPECT_EQ(firstLineOf("\n", 1), success("", 1));
}

TEST_F(ReadFirstLine, EndsAtANulByte)
{
    EXPECT_EQ(firstLineOf(std::string_view(" ab \0cd\n", 8), 8), success("ab", 8));
}

TEST_F(ReadFirstLine, FillsTheDestinationWithNulsForAnEmptyFileAndLeavesItsStreamOpen)
{
    const size_t before = openDescriptors();
    EXPECT_EQ(firstLineOf("", 16), success("", 16));
    EXPECT_EQ(openDescriptors(), before + 1);
}

TEST_F(ReadFirstLine, ReportsAFileThatCannotBeOpened)
{
    EXPECT_EQ(firstLine("/srv/none", 4),
        (Line{-1,
            "twigctl: Unable to open file /srv/none: No such file or directory\n"
            "\nSystem error 2: No such file or directory\n",
            "...."}));
}

TEST_F(ReadFirstLine, ReportsADirectoryByPathAndSystemError)
{
    EXPECT_EQ(firstLine("/srv", 4),
        (Line{-1,
            "twigctl: Unable to read line from file: /srv\n\nSystem error 21: Is a directory\n",
            "...."}));
}

TEST_F(ReadFirstLine, ReportsALineThatThereIsNoMemoryFor)
{
    makeFile("/srv/line", "abc\n");
    faults::fail("getdelim", ENOMEM);
    EXPECT_EQ(firstLine("/srv/line", 4), (Line{-1,
                                             "twigctl: Unable to read line from file: /srv/line\n"
                                             "\nSystem error 12: Cannot allocate memory\n",
                                             "...."}));
}

TEST_F(ReadFirstLine, ShowsAnOlderErrorBehindTheShortBuffer)
{
    EXPECT_EQ(firstLineOf("abc\n", 3, EPERM),
        (Line{-1, "twigctl: The buffer too short\n\nSystem error 1: Operation not permitted\n",
            "..."}));
}

TEST_F(ReadFirstLine, DoesNotMindAFailingClose)
{
    makeFile("/srv/line", "abc\n");
    faults::failAlways("fclose", EIO);
    EXPECT_EQ(firstLine("/srv/line", 4), success("abc", 4));
    EXPECT_EQ(firstLine("/srv/line", 3), tooShort(3));
    EXPECT_EQ(faults::calls("fclose"), 2);
}

TEST_F(ReadFirstLine, LeavesNoDescriptorOpenOtherwise)
{
    const size_t before = openDescriptors();
    firstLineOf("abc\n", 4);
    firstLineOf("abc\n", 3);
    firstLine("/srv/none", 4);
    firstLine("/srv", 4);
    EXPECT_EQ(openDescriptors(), before);
}

namespace
{

struct Found {
    const char* path = "untouched";
    int result = -1;
    int error = 0; ///< errno afterwards
};

template<size_t count>
Found firstOf(const std::array<const char*, count>& paths)
{
    Found found;
    EXPECT_EQ(reportsOf([&] {
        errno = EPERM;
        found.result = firstExistingPath(&found.path, paths.data());
        found.error = errno;
    }),
        "");
    return found;
}

} // namespace

TEST_F(FirstExistingPath, GivesTheListsOwnEntryOfTheFirstThatExists)
{
    makeFile("/srv/b", "");
    makeDir("/srv/c");
    const std::array<const char*, 4> paths{"/srv/a", "/srv/b", "/srv/c", nullptr};
    const Found found = firstOf(paths);
    EXPECT_EQ(found.path, paths[1]);
    EXPECT_EQ(found.result, 1);
}

TEST_F(FirstExistingPath, ForgetsTheErrorOfEveryMiss)
{
    const std::array<const char*, 3> paths{"/srv/a", "/srv", nullptr};
    EXPECT_EQ(firstOf(paths).error, 0);
}

TEST_F(FirstExistingPath, KeepsAnOlderErrorWhenTheFirstPathExists)
{
    const std::array<const char*, 2> paths{"/srv", nullptr};
    EXPECT_EQ(firstOf(paths).error, EPERM);
}

TEST_F(FirstExistingPath, GivesNullAndZeroWhenThereIsNone)
{
    makeLink("/srv/dangling", "none");
    makeLink("/srv/loop", "loop");
    makeFile("/srv/file", "");
    const std::array<const char*, 6> paths{
        "/srv/a", "/srv/dangling", "/srv/loop", "/srv/file/x", "", nullptr};
    const Found found = firstOf(paths);
    EXPECT_EQ(found.path, nullptr);
    EXPECT_EQ(found.result, 0);
    EXPECT_EQ(found.error, 0);
}

TEST_F(FirstExistingPath, GivesNullForAnEmptyList)
{
    const std::array<const char*, 1> paths{nullptr};
    const Found found = firstOf(paths);
    EXPECT_EQ(found.path, nullptr);
    EXPECT_EQ(found.result, 0);
    EXPECT_EQ(found.error, EPERM);
}

TEST_F(FirstExistingPath, CountsAPathThatCannotBeExaminedAsMissing)
{
    makeFile("/srv/b", "");
    const std::array<const char*, 3> paths{"/srv", "/srv/b", nullptr};
    faults::fail("stat", EACCES);
    EXPECT_STREQ(firstOf(paths).path, "/srv/b");
}

TEST_F(CreateFile, MakesAnEmptyFileWithMode0644)
{
    umask(0);
    EXPECT_EQ(reportsOf([] { EXPECT_EQ(createFile("/srv/new"), 0); }), "");
    EXPECT_EQ(treeOf("/srv/new"), "file 0644 root:root . \"\"\n");
}

TEST_F(CreateFile, LetsTheUmaskCutTheMode)
{
    umask(077);
    EXPECT_EQ(createFile("/srv/new"), 0);
    EXPECT_EQ(accessOf("/srv/new"), "0600 root:root");
}

TEST_F(CreateFile, KeepsContentOwnerAndModeOfAnExistingFile)
{
    makeFile("/srv/old", "text", {0600, site, users});
    EXPECT_EQ(createFile("/srv/old"), 0);
    EXPECT_EQ(treeOf("/srv/old"), "file 0600 site:users . \"text\"\n");
}

TEST_F(CreateFile, FollowsLinksAlsoToWhatIsNotThereYet)
{
    makeFile("/srv/old", "text");
    makeLink("/srv/link", "old");
    makeLink("/srv/dangling", "new");
    EXPECT_EQ(createFile("/srv/link"), 0);
    EXPECT_EQ(createFile("/srv/dangling"), 0);
    EXPECT_EQ(contentOf("/srv/old"), "text");
    EXPECT_EQ(accessOf("/srv/new"), "0644 root:root");
}

TEST_F(CreateFile, ReportsWithoutALineEndOfItsOwn)
{
    int result = 0;
    EXPECT_EQ(reportsOf([&] { result = createFile("/srv/no/file"); }),
        "twigctl: Unable to create file /srv/no/file: No such file or directory"
        "\nSystem error 2: No such file or directory\n");
    EXPECT_EQ(result, -1);
}

TEST_F(CreateFile, RefusesADirectory)
{
    int result = 0;
    EXPECT_EQ(reportsOf([&] { result = createFile("/srv"); }),
        "twigctl: Unable to create file /srv: Is a directory"
        "\nSystem error 21: Is a directory\n");
    EXPECT_EQ(result, -1);
}

TEST_F(CreateFile, ClosesTheFileAndDoesNotMindAFailureOfThat)
{
    const size_t before = openDescriptors();
    EXPECT_EQ(createFile("/srv/new"), 0);
    EXPECT_EQ(openDescriptors(), before);

    int result = -1;
    int error = 0;
    EXPECT_EQ(reportsOf([&] {
        faults::fail("close", EIO);
        errno = 0;
        result = createFile("/srv/new");
        error = errno;
        faults::clear();
    }),
        "");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(error, 0);
}

TEST_F(TruncateOrCreateFile, EmptiesAnExistingFileAndKeepsItsOwnerAndMode)
{
    makeFile("/srv/old", "text", {0600, site, users});
    EXPECT_EQ(reportsOf([] { EXPECT_EQ(truncateOrCreateFile("/srv/old"), 0); }), "");
    EXPECT_EQ(treeOf("/srv/old"), "file 0600 site:users . \"\"\n");
}

TEST_F(TruncateOrCreateFile, MakesAnEmptyFileWithMode0644)
{
    umask(0);
    EXPECT_EQ(truncateOrCreateFile("/srv/new"), 0);
    EXPECT_EQ(treeOf("/srv/new"), "file 0644 root:root . \"\"\n");
}

TEST_F(TruncateOrCreateFile, LetsTheUmaskCutTheMode)
{
    umask(027);
    EXPECT_EQ(truncateOrCreateFile("/srv/new"), 0);
    EXPECT_EQ(accessOf("/srv/new"), "0640 root:root");
}

TEST_F(TruncateOrCreateFile, FollowsLinksAlsoToWhatIsNotThereYet)
{
    makeFile("/srv/old", "text");
    makeLink("/srv/link", "old");
    makeLink("/srv/dangling", "new");
    EXPECT_EQ(truncateOrCreateFile("/srv/link"), 0);
    EXPECT_EQ(truncateOrCreateFile("/srv/dangling"), 0);
    EXPECT_EQ(contentOf("/srv/old"), "");
    EXPECT_EQ(accessOf("/srv/new"), "0644 root:root");
}

TEST_F(TruncateOrCreateFile, ReportsWithoutALineEndOfItsOwn)
{
    int result = 0;
    EXPECT_EQ(reportsOf([&] { result = truncateOrCreateFile("/srv"); }),
        "twigctl: Unable to truncate or create file /srv: Is a directory"
        "\nSystem error 21: Is a directory\n");
    EXPECT_EQ(result, -1);
}

TEST_F(TruncateOrCreateFile, ClosesTheFileAndDoesNotMindAFailureOfThat)
{
    const size_t before = openDescriptors();
    EXPECT_EQ(truncateOrCreateFile("/srv/new"), 0);
    EXPECT_EQ(openDescriptors(), before);

    int result = -1;
    int error = 0;
    EXPECT_EQ(reportsOf([&] {
        faults::fail("close", EIO);
        errno = 0;
        result = truncateOrCreateFile("/srv/new");
        error = errno;
        faults::clear();
    }),
        "");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(error, 0);
}
