#include <cerrno>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/site/SkeletonCopierFixture.h"

// --- directories that cannot be made ---

TEST_F(SkeletonCopierTest, InsideTheVirtualHostAMissingParentStopsEverything)
{
    makeDirs("/srv/s/conf/a");
    EXPECT_EQ(failureOf("conf/a"),
        "boost::filesystem::create_directory: No such file or directory: \"/srv/v/conf/a\"");
}

TEST_F(SkeletonCopierTest, OutsideMissingParentsAreMadeAndBelongToRoot)
{
    umask(027);
    options_.www_root = "/srv/w/a/b/web";
    ASSERT_EQ(chmod("/srv/s/httpdocs", 0775), 0);
    EXPECT_EQ(copy({"httpdocs"}), "");
    EXPECT_EQ(treeOf("/srv/w"), hostWith("dir  0750 root:root a\n"
                                         "dir  0750 root:root a/b\n"
                                         "dir  0775 root:kvocln a/b/web"));
}

TEST_F(SkeletonCopierTest, OutsideADanglingLinkOnTheWayStopsEverything)
{
    makeLink("/srv/w/d", "nowhere");
    options_.www_root = "/srv/w/d/x";
    EXPECT_EQ(
        failureOf("httpdocs"), "boost::filesystem::create_directories: File exists: \"/srv/w/d\"");
}

TEST_F(SkeletonCopierTest, ADirectoryThatAppearsMeanwhileIsKeptAsItIs)
{
    for (const char* entry : {"conf", "httpdocs"}) {
        faults::clear();
        faults::runBefore("mkdirat", 1, [] {
            (void)mkdir("/srv/v/conf", 0711);
            (void)mkdir("/srv/w/web", 0711);
        });
        EXPECT_EQ(copy({entry}), "");
        EXPECT_EQ(faults::calls("mkdirat"), 1);
        EXPECT_EQ(rmdir(entry == std::string("conf") ? "/srv/w/web" : "/srv/v/conf"), 0);
        EXPECT_EQ(accessOf(entry == std::string("conf") ? "/srv/v/conf" : "/srv/w/web"),
            "0711 root:root");
        (void)rmdir("/srv/v/conf");
    }
}

TEST_F(SkeletonCopierTest, AFileThatAppearsInADirectorysPlaceMeanwhileStopsEverything)
{
    faults::runBefore("mkdirat", 1, [] { makeFile("/srv/v/conf", "theirs"); });
    EXPECT_EQ(
        failureOf("conf"), "boost::filesystem::create_directory: File exists: \"/srv/v/conf\"");
    faults::runBefore("mkdirat", 1, [] { makeFile("/srv/w/web", "theirs"); });
    EXPECT_EQ(
        failureOf("httpdocs"), "boost::filesystem::create_directory: File exists: \"/srv/w/web\"");
    EXPECT_EQ(contentOf("/srv/v/conf") + contentOf("/srv/w/web"), "theirstheirs");
}

TEST_F(SkeletonCopierTest, AFileThatAppearsMeanwhileAndIsGoneAgainIsStillWhatStoppedEverything)
{
    faults::runBefore("mkdirat", 1, [] { makeFile("/srv/v/conf", "theirs"); });
    // Destination and source are looked at, then twice what took the directory's place.
    faults::runBefore("fstatat", 4, [] { ASSERT_EQ(unlink("/srv/v/conf"), 0); });
    EXPECT_EQ(
        failureOf("conf"), "boost::filesystem::create_directory: File exists: \"/srv/v/conf\"");
    EXPECT_FALSE(exists("/srv/v/conf"));
}

TEST_F(SkeletonCopierTest, ADirectorysGroupIsNotChecked)
{
    ASSERT_EQ(chmod("/srv/s/conf", 0700), 0);
    for (const auto& [entry, destination] :
        {std::pair("conf", "/srv/v/conf"), std::pair("httpdocs", "/srv/w/web")}) {
        faults::fail("fchownat", EPERM);
        EXPECT_EQ(copy({entry}), "");
        EXPECT_EQ(accessOf(destination),
            std::string(entry == std::string("conf") ? "0700" : "0755") + " root:root");
    }
}

TEST_F(SkeletonCopierTest, ADirectoryWhoseModeCannotBeSetIsFinishedByTheNextRun)
{
    ASSERT_EQ(chmod("/srv/s/conf", 02750), 0);
    faults::fail("fchmodat2", EIO);
    EXPECT_EQ(copy({"conf"}), "");
    EXPECT_EQ(accessOf("/srv/v/conf"), "1000 root:kvocln");
    EXPECT_EQ(copy({"conf"}), "");
    EXPECT_EQ(accessOf("/srv/v/conf"), "2750 root:kvocln");
}

TEST_F(SkeletonCopierTest, WithoutTheNewestCallADirectorysModeIsSetAllTheSame)
{
    ASSERT_EQ(chmod("/srv/s/conf", 02750), 0);
    makeDir("/srv/s/more", {0711});
    for (const int error : {EPERM, ENOSYS}) { // the latter is remembered
        const Outcome outcome = inChild([&] {
            faults::failAlways("fchmodat2", error);
            (void)std::fputs(copy({"conf", "more"}).c_str(), stdout);
        });
        EXPECT_EQ(outcome.out + outcome.err, "");
        EXPECT_EQ(accessOf("/srv/v/conf"), "2750 root:kvocln");
        EXPECT_EQ(accessOf("/srv/v/more"), "0711 root:kvocln");
        EXPECT_EQ(rmdir("/srv/v/conf") + rmdir("/srv/v/more"), 0);
    }
}

TEST_F(SkeletonCopierTest, WithoutTheNewCallForPathsTheResultIsTheSame)
{
    makeDirs("/srv/s/conf/deep");
    makeFile("/srv/s/conf/deep/f", "f");
    makeDirs("/srv/w/real");
    makeLink("/srv/w/ours", "real");
    plantLink("/srv/w/theirs", "real");
    const auto copyInChild = [this](const char* webRoot) {
        options_.www_root = webRoot;
        const Outcome outcome = inChild([&] {
            faults::failAlways("openat2", ENOSYS); // it is remembered
            (void)std::fputs(
                copy({"conf", "conf/deep", "conf/deep/f", "httpdocs"}, quiet).c_str(), stdout);
        });
        return outcome.out + outcome.err;
    };
    EXPECT_EQ(copyInChild("/srv/w/ours/a/web"), "");
    EXPECT_EQ(contentOf("/srv/v/conf/deep/f"), "f");
    EXPECT_EQ(accessOf("/srv/w/real/a/web"), "0755 root:kvocln");
    EXPECT_EQ(copyInChild("/srv/w/theirs/b/web"),
        installer("stat(\"/srv/w/theirs/b/web\") failed: Too many levels of symbolic links"));
    EXPECT_FALSE(exists("/srv/w/real/b"));
}

TEST_F(SkeletonCopierTest, ADirectoryThatCannotBeHeldStopsEverythingAndTheNextRunFinishesIt)
{
    faults::fail("openat", EMFILE);
    EXPECT_EQ(failureOf("conf"),
        "boost::filesystem::create_directory: Too many open files: \"/srv/v/conf\"");
    EXPECT_EQ(accessOf("/srv/v/conf"), "1000 root:root");
    EXPECT_EQ(copy({"conf"}), "");
    EXPECT_EQ(accessOf("/srv/v/conf"), "0755 root:kvocln");
}

// --- files that cannot be read or written ---

TEST_F(SkeletonCopierTest, AFileThatCannotBeReadIsReportedAndLeavesNothing)
{
    makeFile("/srv/s/a", "content");
    makeFile("/srv/s/b", "next");
    for (const char* call : {"openat", "fstat", "read"}) {
        faults::clear();
        faults::fail(call, EIO);
        EXPECT_EQ(copy({"a", "b"}, quiet), installer("/srv/s/a: Input/output error")) << call;
        EXPECT_EQ(treeOf("/srv/v"), hostWith("file 0644 root:kvocln b \"next\"")) << call;
        EXPECT_EQ(unlink("/srv/v/b"), 0);
    }
}

TEST_F(SkeletonCopierTest, AFileThatFailsHalfwayThroughLeavesNothing)
{
    makeFile("/srv/s/a", std::string(100000, 'a'));
    faults::fail("read", EIO, 2);
    faults::runBefore("read", 1, [] { (void)truncate("/srv/s/a", 50000); });
    EXPECT_EQ(copy({"a"}, quiet), installer("/srv/s/a: Input/output error"));
    EXPECT_EQ(treeOf("/srv/v"), emptyHost);
}

TEST_F(SkeletonCopierTest, AFileThatNoMemoryCanHoldIsReportedAndTheNextIsCopied)
{
    const off_t moreThanAString = std::numeric_limits<off_t>::max();
#ifdef __SANITIZE_ADDRESS__
    const off_t moreThanMemory = moreThanAString; // that allocator ends the process instead
#else
    const off_t moreThanMemory = off_t{1} << 50;
#endif
    makeFile("/srv/s/b", "next");
    for (const off_t size : {moreThanAString, moreThanMemory}) {
        makeFile("/srv/s/a", "");
        ASSERT_EQ(truncate("/srv/s/a", size), 0);
        EXPECT_EQ(copy({"a", "b"}, quiet), installer("/srv/s/a: Cannot allocate memory"));
        EXPECT_EQ(treeOf("/srv/v"), hostWith("file 0644 root:kvocln b \"next\""));
        EXPECT_EQ(unlink("/srv/v/b") + unlink("/srv/s/a"), 0);
    }
}

TEST_F(SkeletonCopierTest, AFileThatAUserMayNotReadIsReported)
{
    makeFile("/srv/s/secret", "x", {0600});
    ASSERT_EQ(chown("/srv/v", site, users), 0);
    for (const bool areFiles : {false, true}) {
        const Outcome outcome = inChild([&] {
            if (setgid(users) == 0 && setuid(site) == 0) {
                (void)std::fputs(copy({"secret"}, quiet, areFiles).c_str(), stdout);
            }
        });
        EXPECT_EQ(outcome.out, installer("/srv/s/secret: Permission denied")) << areFiles;
        EXPECT_FALSE(exists("/srv/v/secret"));
    }
}

TEST_F(SkeletonCopierTest, AFileSwappedForSomethingElseIsNeitherFollowedNorWaitedFor)
{
    makeFile("/srv/s/other", "secret");
    static void (*swap)();
    static constexpr bool seen = false;
    static constexpr bool listed = true;
    const auto copySwapped = [this](bool areFiles, void (*body)()) {
        makeFile("/srv/s/f", "content");
        swap = body;
        faults::clear();
        faults::runBefore("openat", 1, [] {
            (void)unlink("/srv/s/f");
            swap();
        });
        std::string messages = copy({"f"}, verbose, areFiles);
        EXPECT_FALSE(exists("/srv/v/f"));
        (void)remove("/srv/s/f");
        return messages;
    };
    const auto link = [] { makeLink("/srv/s/f", "other"); };
    EXPECT_EQ(copySwapped(seen, link), installer("/srv/s/f: Too many levels of symbolic links"));
    EXPECT_EQ(copySwapped(listed, link), otherKind("/srv/v/f"));
    const auto fifo = [] { makeFifo("/srv/s/f"); };
    EXPECT_EQ(copySwapped(seen, fifo), otherKind("/srv/v/f"));
    EXPECT_EQ(copySwapped(listed, fifo), otherKind("/srv/v/f"));
    const auto socket = [] { makeSocket("/srv/s/f"); };
    EXPECT_EQ(copySwapped(seen, socket), installer("/srv/s/f: No such device or address"));
    EXPECT_EQ(copySwapped(listed, socket), otherKind("/srv/v/f"));
    const auto directory = [] { makeDir("/srv/s/f"); };
    EXPECT_EQ(copySwapped(seen, directory), otherKind("/srv/v/f"));
    EXPECT_EQ(copySwapped(listed, directory), otherKind("/srv/v/f"));
    const auto nothing = [] {};
    EXPECT_EQ(copySwapped(seen, nothing), installer("/srv/s/f: No such file or directory"));
    EXPECT_EQ(copySwapped(listed, nothing), "");
}

TEST_F(SkeletonCopierTest, AFilesMissingDirectoryIsReportedWithTheDestination)
{
    makeFile("/srv/s/conf/x", "");
    EXPECT_EQ(copy({"conf/x"}, quiet), installer("/srv/v/conf/x: No such file or directory"));
    EXPECT_EQ(treeOf("/srv/v"), emptyHost);
}

TEST_F(SkeletonCopierTest, AFileThatAppearsMeanwhileCountsAsExisting)
{
    makeFile("/srv/s/f", "ours");
    for (const bool isVerbose : {verbose, quiet}) {
        faults::clear();
        faults::runBefore("linkat", 1, [] { makeFile("/srv/v/f", "theirs"); });
        EXPECT_EQ(copy({"f"}, isVerbose), isVerbose ? alreadyExists("/srv/v/f") : "");
        EXPECT_EQ(treeOf("/srv/v"), hostWith("file 0644 root:root f \"theirs\""));
        EXPECT_EQ(unlink("/srv/v/f"), 0);
    }
}

TEST_F(SkeletonCopierTest, AFullFileSystemLeavesNoPartOfAFileAndALaterCopyCompletes)
{
    makeFile("/srv/s/a-small", "1");
    makeFile("/srv/s/b-large", std::string(50000, 'b'));
    makeFile("/srv/s/c-small", "3");
    const std::vector<std::string> entries = {"a-small", "b-large", "c-small"};
    const PrivateDirectory full("/srv/v", "size=40k");
    EXPECT_EQ(copy(entries, quiet), installer("/srv/v/b-large: No space left on device"));
    EXPECT_EQ(treeOf("/srv/v"), hostWith("file 0644 root:kvocln a-small \"1\"\n"
                                         "file 0644 root:kvocln c-small \"3\""));

    makeFile("/srv/s/b-large", std::string(20000, 'b'));
    EXPECT_EQ(copy(entries, quiet), "");
    EXPECT_TRUE(contentOf("/srv/v/b-large") == std::string(20000, 'b'));
}

TEST_F(SkeletonCopierTest, WithoutInodesEveryFileIsReported)
{
    makeFile("/srv/s/a", "1");
    makeFile("/srv/s/b", "2");
    makeFile("/srv/s/c", "3");
    const PrivateDirectory full("/srv/v", "nr_inodes=2");
    EXPECT_EQ(copy({"a", "b", "c"}, quiet), installer("/srv/v/b: No space left on device") +
                                                installer("/srv/v/c: No space left on device"));
    EXPECT_EQ(treeOf("/srv/v"), hostWith("file 0644 root:kvocln a \"1\""));
}

TEST_F(SkeletonCopierTest, WithoutNamelessFilesTheResultIsTheSame)
{
    faults::failAlways("O_TMPFILE", EOPNOTSUPP);
    makeFile("/srv/s/conf/a", "at @domain_name@", {06750});
    makeFile("/srv/s/conf/b", "2", {0600});
    makeDir("/srv/v/conf");
    makeFile("/srv/v/conf/b", "old");
    EXPECT_EQ(copy({"conf", "conf/a", "conf/b"}), alreadyExists("/srv/v/conf/b"));
    EXPECT_EQ(treeOf("/srv/v"), hostWith("dir  0755 root:root conf\n"
                                         "file 0750 root:kvocln conf/a \"at example.test\"\n"
                                         "file 0644 root:root conf/b \"old\""));
}
