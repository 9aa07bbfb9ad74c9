#include <fstream>

#include "tests/cli/Site.h"

namespace
{

/// Counts the system calls of whole runs; what an entry costs is the difference between two sites
/// that differ in nothing but the number of such entries.
class SystemCalls : public Site
{
protected:
    SystemCalls() { makeDirs(skeleton); }

    static void makeSite(int directories, int filesEach)
    {
        makeDirs(shop + "/conf");
        makeDirs(shop + "/error_docs");
        makeDirs(shop + "/tree");
        for (int i = 0; i < directories; ++i) {
            const std::string directory = shop + "/tree/" + std::to_string(i);
            makeDir(directory);
            for (int file = 0; file < filesEach; ++file) {
                makeFile(directory + "/file" + std::to_string(file), "");
            }
        }
    }

    /// The calls of a run, memory management apart, which differs with the way of building.
    static long callsOf(Arguments arguments)
    {
        const std::string trace = "/srv/trace";
        arguments.insert(
            arguments.begin(), {"strace", "-f", "-e", "trace=!brk,mmap,munmap,mprotect,madvise",
                                   "-o", trace, program()});
        // The leak checker cannot work while the process is traced.
        const Outcome end = runProgram(
            "/usr/bin/strace", arguments, {.environment = {"ASAN_OPTIONS=detect_leaks=0"}});
        EXPECT_EQ(end.err, "");
        EXPECT_EQ(end.status, 0);
        long calls = 0;
        std::ifstream lines(trace);
        for (std::string line; std::getline(lines, line);) {
            calls += line.find(" +++ ") == std::string::npos ? 1 : 0;
        }
        return calls;
    }

    static long callsFor(int directories, int filesEach, const Arguments& arguments)
    {
        makeSite(directories, filesEach);
        const long calls = callsOf(arguments);
        EXPECT_EQ(runProgram("/bin/rm", {"rm", "-rf", shop}).status, 0);
        return calls;
    }

    static long perFile(const Arguments& arguments)
    {
        const long more = callsFor(20, 120, arguments) - callsFor(20, 20, arguments);
        EXPECT_EQ(more % 2000, 0);
        return more / 2000;
    }

    static long perDirectory(const Arguments& arguments)
    {
        return (callsFor(110, 0, arguments) - callsFor(10, 0, arguments) + 99) / 100;
    }

    static Arguments owning() { return change({"--skip-www-root", "--skip-cgi-bin"}); }

    /// Changes the owner and then the mode of everything in "tree".
    static Arguments owningAndSettingModes()
    {
        return creation({"--www-root=" + shop + "/tree", "--skip-cgi-bin"});
    }
};

} // namespace

TEST_F(SystemCalls, AreOneForARegularFileToRemove)
{
    EXPECT_EQ(perFile(removal()), 1);
}

TEST_F(SystemCalls, AreOneForTheOwnerOfARegularFile)
{
    EXPECT_EQ(perFile(owning()), 1);
}

TEST_F(SystemCalls, AreOneMoreForTheModeOfARegularFile)
{
    EXPECT_EQ(perFile(owningAndSettingModes()), 2);
}

TEST_F(SystemCalls, AreNoMoreThanTenForADirectory)
{
    EXPECT_LE(perDirectory(removal()), 10);
    EXPECT_LE(perDirectory(owning()), 10);
    EXPECT_LE(perDirectory(owningAndSettingModes()), 20);
}
