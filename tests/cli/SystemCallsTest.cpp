#include <algorithm>
#include <fstream>

#include "tests/cli/Site.h"
#include "tests/lib/LargeTree.h"

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

    /// The calls of a run as strace writes them, memory management apart, which differs with the
    /// way of building.
    static std::vector<std::string> traceOf(Arguments arguments)
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
        std::vector<std::string> calls;
        std::ifstream lines(trace);
        for (std::string line; std::getline(lines, line);) {
            if (line.find(" +++ ") == std::string::npos) {
                calls.push_back(line);
            }
        }
        return calls;
    }

    static long callsOf(const Arguments& arguments)
    {
        return static_cast<long>(traceOf(arguments).size());
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

    /// What an entry costs where a directory holds 100 files.
    static double perEntry(const Arguments& arguments)
    {
        return static_cast<double>(callsFor(30, 100, arguments) - callsFor(10, 100, arguments)) /
               (20 * 101);
    }

    /// Makes "tree" a chain of directories instead.
    static long callsForChain(int levels, const Arguments& arguments)
    {
        makeSite(0, 0);
        makeDeepTree(shop + "/tree/deep", levels, 0, 0);
        return callsOf(arguments);
    }

    static Arguments owning() { return change({"--skip-www-root", "--skip-cgi-bin"}); }

    /// Changes the owner and then the mode of everything in "tree".
    static Arguments owningAndSettingModes()
    {
        return creation({"--www-root=" + shop + "/tree", "--skip-cgi-bin"});
    }
};

/// Creations from a skeleton of many files, the token in each.
class SystemCallsOfCreation : public SystemCalls
{
protected:
    static constexpr int files = 1000;

    SystemCallsOfCreation()
    {
        for (int file = 0; file < files; ++file) {
            const std::string directory = skeleton + "/httpdocs/" + std::to_string(file / 100);
            makeDirs(directory);
            makeFile(directory + "/page" + std::to_string(file), "<h1>@domain_name@</h1>");
        }
    }

    /// How often a file of the skeleton was opened, or a new one under its name.
    static long timesOpened(const std::vector<std::string>& trace)
    {
        return std::count_if(trace.begin(), trace.end(), [](const std::string& call) {
            return call.find(" open") != std::string::npos &&
                   call.find("page") != std::string::npos;
        });
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

TEST_F(SystemCalls, AreAFewPerCentMoreThanTheEntriesOfDirectoriesWithAHundredFiles)
{
    EXPECT_LE(perEntry(removal()), 1.05);
    EXPECT_LE(perEntry(owning()), 1.06);
    EXPECT_LE(perEntry(owningAndSettingModes()), 2 * 1.06);
}

TEST_F(SystemCalls, AreNoMoreThanSevenForALevelOfADeepChainToRemove)
{
    const long shallow = callsForChain(1000, removal());
    EXPECT_LE(callsForChain(4000, removal()) - shallow, 7 * 3000);
}

TEST_F(SystemCallsOfCreation, AreNoMoreThanFourteenForAFileOfTheSkeletonAllInAll)
{
    EXPECT_LE(callsOf(usualCreation()), 14 * files);
}

TEST_F(SystemCallsOfCreation, OpenNoSourceOfAFileThatIsThere)
{
    EXPECT_GE(timesOpened(traceOf(usualCreation())), files);
    EXPECT_EQ(timesOpened(traceOf(usualCreation())), 0);
}
