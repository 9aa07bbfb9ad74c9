#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <random>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "site/TreeListing.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

int entriesUntilFailure = -1;
bool typesHidden = false;

} // namespace

/// Stands before the C library's in the listing's calls, and fails or hides types when told to.
extern "C" dirent* readdir(DIR* directory)
{
    static const auto next = reinterpret_cast<dirent* (*)(DIR*)>(dlsym(RTLD_NEXT, "readdir"));
    if (entriesUntilFailure >= 0 && entriesUntilFailure-- == 0) {
        errno = EIO;
        return nullptr;
    }
    dirent* entry = next(directory);
    if (entry != nullptr && typesHidden) {
        entry->d_type = DT_UNKNOWN;
    }
    return entry;
}

namespace
{

using boost::filesystem::path;

class TreeListing : public World
{
protected:
    ~TreeListing() override
    {
        entriesUntilFailure = -1;
        typesHidden = false;
    }

    static std::string list(const path& base, const path& relative, bool sorted = true)
    {
        zelto::EntryList entries;
        zelto::listTree(base, relative, entries);
        if (sorted) {
            std::sort(entries.begin(), entries.end(), zelto::comesBefore);
        }
        std::string lines;
        for (const path& entry : entries) {
            lines += entry.string() + '\n';
        }
        return lines;
    }

    /// A link that the site's user put there.
    static void plantLink(const char* path, const char* target)
    {
        makeLink(path, target);
        EXPECT_EQ(lchown(path, site, users), 0);
    }

    faults::Guard guard_;
};

/// "/srv/s/conf" holds "sub" with one file, and "/srv/elsewhere" what nobody is to read.
class TreeListingRace : public TreeListing
{
protected:
    TreeListingRace()
    {
        makeDirs("/srv/s/conf/sub");
        makeFile("/srv/s/conf/sub/file", "");
        makeDirs("/srv/elsewhere");
        makeFile("/srv/elsewhere/secret", "");
    }

    static void moveAway() { ASSERT_EQ(rename("/srv/s/conf/sub", "/srv/s/conf/moved"), 0); }

    /// Lists while the body runs before the nth call, and returns list and errors.
    static std::string listWhile(const char* call, int nth, void (*body)())
    {
        std::string listed;
        faults::runBefore(call, nth, body);
        const Outcome outcome = outputOf([&] { listed = list("/srv/s", "conf"); });
        return listed + outcome.err;
    }

    // Each directory is looked at and then opened to be read, either by its path: "openat2" to
    // reach its parent, "fstatat", and "openat2" to read it. "sub" is the second.
    static constexpr int lookAtSub = 3;
    static constexpr int readSub = 4;
};

/// Relative paths of one to four components with bytes on both sides of '/' in value.
path randomPath(std::mt19937& random)
{
    constexpr char bytes[] = {'\x01', '\n', ' ', '-', '.', '0', 'a', 'b', '\x7f', '\x80', '\xff'};
    std::string text;
    for (auto components = random() % 4 + 1; components > 0; --components) {
        text += text.empty() ? "" : "/";
        for (auto length = random() % 3 + 1; length > 0; --length) {
            text += bytes[random() % std::size(bytes)];
        }
    }
    return text;
}

bool hasDotComponent(const path& examined)
{
    return std::any_of(examined.begin(), examined.end(),
        [](const path& part) { return part == "." || part == ".."; });
}

} // namespace

TEST_F(TreeListing, EveryKindOfEntryIsListedBehindItsDirectory)
{
    makeDirs("/srv/s/conf/sub/empty");
    makeFile("/srv/s/conf/a", "");
    makeFile("/srv/s/conf/sub/b", "");
    makeFifo("/srv/s/conf/fifo");
    makeDevice("/srv/s/conf/device");
    makeSocket("/srv/s/conf/socket");
    makeLink("/srv/s/conf/link", "a");
    makeFile("/srv/s/elsewhere", "");
    const Outcome outcome = outputOf([] {
        EXPECT_EQ(list("/srv/s", "conf"), "conf\n"
                                          "conf/a\n"
                                          "conf/device\n"
                                          "conf/fifo\n"
                                          "conf/link\n"
                                          "conf/socket\n"
                                          "conf/sub\n"
                                          "conf/sub/b\n"
                                          "conf/sub/empty\n");
    });
    EXPECT_EQ(outcome.out + outcome.err, "");
}

TEST_F(TreeListing, ADirectoryIsWalkedToItsEndBeforeTheNext)
{
    for (const std::string name : {"a", "b", "c"}) {
        makeDirs("/srv/s/conf/" + name);
        makeFile("/srv/s/conf/" + name + "/1", "");
        makeFile("/srv/s/conf/" + name + "/2", "");
    }
    zelto::EntryList entries;
    zelto::listTree("/srv/s", "conf", entries);
    ASSERT_EQ(entries.size(), 10U);
    EXPECT_EQ(entries[0], "conf");
    for (const size_t at : {1U, 4U, 7U}) {
        EXPECT_EQ(entries[at].parent_path(), "conf");
        EXPECT_EQ(entries[at + 1].parent_path(), entries[at]);
        EXPECT_EQ(entries[at + 2].parent_path(), entries[at]);
    }
}

TEST_F(TreeListing, WhatIsAskedForIsListedEvenWhenNothingIsThere)
{
    makeDir("/srv/s");
    const Outcome outcome = outputOf([] { EXPECT_EQ(list("/srv/s", "anon_ftp"), "anon_ftp\n"); });
    EXPECT_EQ(outcome.err, "");
}

TEST_F(TreeListing, AFileIsListedAlone)
{
    makeDir("/srv/s");
    makeFile("/srv/s/conf", "");
    EXPECT_EQ(list("/srv/s", "conf"), "conf\n");
}

TEST_F(TreeListing, LinksToDirectoriesAreListedAndNotFollowed)
{
    makeDirs("/srv/s/conf");
    makeDirs("/srv/s/real");
    makeFile("/srv/s/real/file", "");
    makeLink("/srv/s/conf/l", "../real");
    makeLink("/srv/s/top", "real");
    EXPECT_EQ(list("/srv/s", "conf"), "conf\nconf/l\n");
    EXPECT_EQ(list("/srv/s", "top"), "top\n");
}

TEST_F(TreeListing, WithAnEmptyRelativePathEntriesAreRelativeToTheBase)
{
    makeDirs("/srv/s/conf");
    makeFile("/srv/s/conf/a", "");
    EXPECT_EQ(list("/srv/s", ""), "\nconf\nconf/a\n");
}

TEST_F(TreeListing, ListingsAreAppended)
{
    makeDir("/srv/s");
    zelto::EntryList entries = {"earlier"};
    zelto::listTree("/srv/s", "conf", entries);
    EXPECT_EQ(entries, (zelto::EntryList{"earlier", "conf"}));
}

TEST_F(TreeListing, NamesOfAnyBytesAreListedAsTheyAre)
{
    makeDirs("/srv/s/conf");
    std::string expected = "conf\n";
    for (const std::string name : {"-rf", "a\nb", "a b", "\xc3\xa4", "\xff\xfe"}) {
        makeFile("/srv/s/conf/" + name, "");
        expected += "conf/" + name + '\n';
    }
    EXPECT_EQ(list("/srv/s", "conf"), expected);
}

TEST_F(TreeListing, AnErrorOtherThanAbsenceIsReportedWithTheWholePath)
{
    makeFile("/srv/s", "");
    const Outcome outcome = outputOf([] { EXPECT_EQ(list("/srv/s", "conf"), "conf\n"); });
    EXPECT_EQ(outcome.err, "/srv/s/conf: Not a directory\n");
    EXPECT_EQ(outcome.out, "");
}

TEST_F(TreeListing, AnErrorAtOneEntryDoesNotStopTheOthers)
{
    makeDirs("/srv/s/conf/sub");
    makeFile("/srv/s/conf/sub/a&b %1%", "");
    const Outcome outcome = outputOf([] {
        typesHidden = true;
        faults::fail("fstatat", EIO, 3);
        EXPECT_EQ(list("/srv/s", "conf"), "conf\nconf/sub\nconf/sub/a&b %1%\n");
    });
    EXPECT_EQ(outcome.err, "/srv/s/conf/sub/a&b %1%: Input/output error\n");
}

TEST_F(TreeListing, ADirectoryThatCannotBeLookedAtDoesNotStopTheOthers)
{
    makeDirs("/srv/s/conf/sub/below");
    makeFile("/srv/s/conf/x", "");
    const Outcome outcome = outputOf([] {
        faults::fail("fstatat", EIO, 2);
        EXPECT_EQ(list("/srv/s", "conf"), "conf\nconf/sub\nconf/x\n");
    });
    EXPECT_EQ(outcome.err, "/srv/s/conf/sub: Input/output error\n");
}

TEST_F(TreeListing, AnUnreadableDirectoryIsReportedAndItsSiblingsAreStillListed)
{
    // One sibling was made before it and one after, so that one of them is listed behind it.
    makeDirs("/srv/s/conf/a/deep");
    makeDirs("/srv/s/conf/closed");
    makeFile("/srv/s/conf/closed/inside", "");
    ASSERT_EQ(chmod("/srv/s/conf/closed", 0), 0);
    makeDirs("/srv/s/conf/open");
    makeFile("/srv/s/conf/open/file", "");
    const Outcome outcome = inChild([] {
        if (setgid(users) == 0 && setuid(site) == 0) {
            (void)std::fputs(list("/srv/s", "conf").c_str(), stdout);
        }
    });
    EXPECT_EQ(outcome.out, "conf\nconf/a\nconf/a/deep\nconf/closed\nconf/open\nconf/open/file\n");
    EXPECT_EQ(outcome.err, "boost::filesystem::directory_iterator::construct: Permission denied: "
                           "\"/srv/s/conf/closed\"\n");
}

TEST_F(TreeListing, ADirectoryWhoseReadingFailsMidwayKeepsWhatWasReadAndEndsOnlyItsOwnWalk)
{
    makeDirs("/srv/s/conf/sub");
    makeFile("/srv/s/conf/sub/a", "");
    makeFile("/srv/s/conf/sub/b", "");
    makeFile("/srv/s/conf/z", "");
    const Outcome outcome = outputOf([] {
        // "conf" gives ".", "..", its two entries and its end; then "sub" fails behind ".", ".."
        // and one entry.
        entriesUntilFailure = 8;
        const std::string listed = list("/srv/s", "conf");
        EXPECT_TRUE(listed == "conf\nconf/sub\nconf/sub/a\nconf/z\n" ||
                    listed == "conf\nconf/sub\nconf/sub/b\nconf/z\n")
            << listed;
    });
    EXPECT_EQ(outcome.err, "boost::filesystem::directory_iterator::operator++: Input/output error: "
                           "\"/srv/s/conf/sub\"\n");
}

TEST_F(TreeListing, DepthCostsNoDescriptors)
{
    std::string deep = "/srv/s";
    std::string expected;
    for (int level = 0; level < 1000; ++level) {
        deep += "/d";
        expected += (deep.c_str() + sizeof "/srv/s") + std::string("\n");
    }
    makeDirs(deep);
    const size_t before = openDescriptors();
    const Outcome outcome = outputOf([&] {
        const int lowestFree = dup(STDIN_FILENO);
        close(lowestFree);
        rlimit kept = {};
        (void)getrlimit(RLIMIT_NOFILE, &kept);
        const rlimit oneMore = {static_cast<rlim_t>(lowestFree) + 1, kept.rlim_max};
        (void)setrlimit(RLIMIT_NOFILE, &oneMore);
        const std::string listed = list("/srv/s", "d");
        (void)setrlimit(RLIMIT_NOFILE, &kept);
        EXPECT_TRUE(listed == expected);
    });
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(TreeListing, ATreeDeeperThanAPathCanReachIsListedAsFarAsItIs)
{
    const std::string name(200, 'n');
    makeDir("/srv/s");
    int directory = open("/srv/s", O_DIRECTORY | O_CLOEXEC);
    for (int level = 0; level < 30; ++level) {
        ASSERT_EQ(mkdirat(directory, name.c_str(), 0755), 0);
        const int below = openat(directory, name.c_str(), O_DIRECTORY | O_CLOEXEC);
        close(directory);
        directory = below;
    }
    close(directory);
    const Outcome outcome = outputOf([&] {
        zelto::EntryList entries;
        zelto::listTree("/srv/s", name, entries);
        // 20 levels of 201 characters behind the base stay below 4096, and one more is listed
        // before it is looked at.
        ASSERT_EQ(entries.size(), 21U);
        EXPECT_EQ(entries.back().size(), 21 * 201 - 1U);
    });
    std::string path = "/srv/s";
    for (int level = 0; level < 21; ++level) {
        path += '/' + name;
    }
    EXPECT_EQ(outcome.err, path + ": File name too long\n");
}

// --- what a directory says of its entries ---

TEST_F(TreeListing, EntriesThatAreNoDirectoriesAreNotLookedAt)
{
    makeDirs("/srv/s/conf/a/b");
    for (const std::string directory : {"/srv/s/conf/", "/srv/s/conf/a/", "/srv/s/conf/a/b/"}) {
        for (char name = '0'; name <= '9'; ++name) {
            makeFile(directory + name, "");
        }
        makeFifo(directory + "fifo");
        makeLink(directory + "link", ".");
    }
    faults::clear();
    EXPECT_NE(list("/srv/s", "conf").find("conf/a/b/9\n"), std::string::npos);
    // Three directories: each is looked at in its parent, and read.
    EXPECT_EQ(faults::calls("fstatat"), 3);
    EXPECT_EQ(faults::calls("openat2"), 2 * 3);
    for (const char* call : {"lstat", "stat", "fstat", "statx", "open", "openat"}) {
        EXPECT_EQ(faults::calls(call), 0) << call;
    }
}

TEST_F(TreeListing, WhereDirectoriesSayNothingEveryEntryIsLookedAt)
{
    makeDirs("/srv/s/conf/a/b");
    makeFile("/srv/s/conf/f", "");
    makeLink("/srv/s/conf/l", "a");
    const std::string listed = list("/srv/s", "conf");
    faults::clear();
    typesHidden = true;
    EXPECT_EQ(list("/srv/s", "conf"), listed);
    EXPECT_EQ(faults::calls("fstatat"), 5);
}

TEST_F(TreeListing, OnBehalfOfAUserEveryEntryIsLookedAtToSeeWhatMayNotBeSearched)
{
    makeDirs("/srv/s/conf/closed");
    makeFile("/srv/s/conf/closed/f", "");
    ASSERT_EQ(chmod("/srv/s/conf/closed", 0744), 0); // it can be read, and not be searched
    const Outcome outcome = inChild([] {
        if (setgid(users) == 0 && setuid(site) == 0) {
            (void)std::fputs(list("/srv/s", "conf").c_str(), stdout);
        }
    });
    EXPECT_EQ(outcome.out, "conf\nconf/closed\nconf/closed/f\n");
    EXPECT_EQ(outcome.err, "/srv/s/conf/closed/f: Permission denied\n");
}

TEST_F(TreeListing, AVisitorIsToldWhichEntriesTheirDirectoryCallsRegularFiles)
{
    makeDirs("/srv/s/conf/d");
    makeFile("/srv/s/conf/d/f", "");
    makeFifo("/srv/s/conf/fifo");
    makeDevice("/srv/s/conf/device");
    makeSocket("/srv/s/conf/socket");
    makeLink("/srv/s/conf/link", "d/f");
    makeFile("/srv/s/top", "");
    const auto visit = [](const char* relative) {
        std::vector<std::string> files;
        zelto::visitTree("/srv/s", relative, [&](const path& visited, bool isFile) {
            files.push_back((isFile ? "file " : "") + visited.string());
        });
        std::sort(files.begin(), files.end());
        return files;
    };
    const std::vector<std::string> others = {
        "conf", "conf/d", "conf/device", "conf/fifo", "conf/link", "conf/socket"};
    std::vector<std::string> expected = others;
    expected.emplace_back("file conf/d/f");
    EXPECT_EQ(visit("conf"), expected);
    // No directory has said anything of the one that is asked for.
    EXPECT_EQ(visit("top"), std::vector<std::string>{"top"});
    typesHidden = true;
    expected = others;
    expected.insert(expected.begin() + 2, "conf/d/f");
    EXPECT_EQ(visit("conf"), expected);
}

// --- links on the way, and what changes meanwhile ---

TEST_F(TreeListing, ALinkOfSomebodyElseOnTheWayIsNotFollowed)
{
    makeDirs("/srv/real/s/conf");
    makeFile("/srv/real/s/conf/file", "");
    makeDir("/srv/middle");
    plantLink("/srv/middle/link", "/srv/real");
    plantLink("/srv/last", "/srv/real/s");
    const Outcome outcome = outputOf([] {
        EXPECT_EQ(list("/srv/middle/link/s", "conf"), "conf\n");
        EXPECT_EQ(list("/srv/last", "conf"), "conf\n");
        EXPECT_EQ(list("/srv/real/s", "conf"), "conf\nconf/file\n");
    });
    EXPECT_EQ(outcome.err, "/srv/middle/link/s/conf: Too many levels of symbolic links\n"
                           "/srv/last/conf: Too many levels of symbolic links\n");
}

TEST_F(TreeListing, ALinkOfRootOnTheWayIsFollowed)
{
    makeDirs("/srv/real/s/conf/sub");
    makeFile("/srv/real/s/conf/sub/file", "");
    makeDir("/srv/middle");
    makeLink("/srv/middle/link", "../real");
    makeLink("/srv/last", "/srv/real/s");
    const Outcome outcome = outputOf([] {
        for (const char* base : {"/srv/middle/link/s", "/srv/last"}) {
            EXPECT_EQ(list(base, "conf"), "conf\nconf/sub\nconf/sub/file\n") << base;
        }
    });
    EXPECT_EQ(outcome.err, "");
}

TEST_F(TreeListingRace, ADirectoryExchangedForALinkBetweenLookAndReadIsNotRead)
{
    EXPECT_EQ(listWhile("openat2", readSub,
                  [] {
                      moveAway();
                      plantLink("/srv/s/conf/sub", "/srv/elsewhere");
                  }),
        "conf\nconf/sub\n"
        "boost::filesystem::directory_iterator::construct: Too many levels of symbolic links: "
        "\"/srv/s/conf/sub\"\n");
}

TEST_F(TreeListingRace, ADirectoryOnTheWayExchangedForALinkIsNotEntered)
{
    const auto exchange = [] {
        ASSERT_EQ(rename("/srv/s/conf", "/srv/s/moved"), 0);
        makeDirs("/srv/elsewhere/sub");
        plantLink("/srv/s/conf", "/srv/elsewhere");
    };
    EXPECT_EQ(listWhile("openat2", lookAtSub, exchange),
        "conf\nconf/sub\n/srv/s/conf/sub: Too many levels of symbolic links\n");
}

TEST_F(TreeListingRace, ADirectoryExchangedForALinkOfRootIsReadThere)
{
    EXPECT_EQ(listWhile("openat2", readSub,
                  [] {
                      moveAway();
                      makeLink("/srv/s/conf/sub", "/srv/elsewhere");
                  }),
        "conf\nconf/sub\nconf/sub/secret\n");
}

TEST_F(TreeListingRace, ADirectoryExchangedForAPipeIsNotWaitedFor)
{
    EXPECT_EQ(listWhile("openat2", readSub,
                  [] {
                      moveAway();
                      makeFifo("/srv/s/conf/sub");
                  }),
        "conf\nconf/sub\n"
        "boost::filesystem::directory_iterator::construct: Not a directory: "
        "\"/srv/s/conf/sub\"\n");
}

TEST_F(TreeListingRace, ADirectoryThatIsGoneBeforeItIsLookedAtIsListedAndNotMentioned)
{
    EXPECT_EQ(listWhile("openat2", lookAtSub, moveAway), "conf\nconf/sub\n");
}

TEST_F(TreeListing, PathsAreOrderedByComponentsAndNotByText)
{
    zelto::EntryList entries = {"a-x", "a.b", "a/c", "b", "a", "a/c/d", "A", ""};
    std::sort(entries.begin(), entries.end(), zelto::comesBefore);
    EXPECT_EQ(entries, (zelto::EntryList{"", "A", "a", "a/c", "a/c/d", "a-x", "a.b", "b"}));
}

TEST_F(TreeListing, NoPathComesBeforeItself)
{
    EXPECT_FALSE(zelto::comesBefore("a/b", "a/b"));
    EXPECT_FALSE(zelto::comesBefore("", ""));
}

TEST_F(TreeListing, TheOrderIsThatOfTheLibrarysPaths)
{
    std::mt19937 random(1);
    int compared = 0;
    while (compared < 100000) {
        const path a = randomPath(random);
        const path b = random() % 2 == 0 ? randomPath(random) : a / randomPath(random);
        if (hasDotComponent(a) || hasDotComponent(b)) {
            continue;
        }
        ASSERT_EQ(zelto::comesBefore(a, b), a < b) << a << ' ' << b;
        ASSERT_EQ(zelto::comesBefore(b, a), b < a) << a << ' ' << b;
        ++compared;
    }
}
