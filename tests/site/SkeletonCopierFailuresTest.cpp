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
    const std::pair<const char*, const char*> table[] = {
        {"conf", "mkdirat"},   // below the virtual host
        {"httpdocs", "lstat"}, // the document root itself, looked at first
    };
    for (const auto& [entry, call] : table) {
        faults::clear();
        faults::runBefore(call, call == std::string("lstat") ? 2 : 1, [] {
            (void)mkdir("/srv/v/conf", 0711);
            (void)mkdir("/srv/w/web", 0711);
        });
        EXPECT_EQ(copy({entry}), "");
    }
    EXPECT_EQ(accessOf("/srv/v/conf"), "0711 root:root");
    EXPECT_EQ(accessOf("/srv/w/web"), "0711 root:root");
}

TEST_F(SkeletonCopierTest, ADirectorysModeAndGroupAreNotChecked)
{
    ASSERT_EQ(chmod("/srv/s/conf", 0700), 0);
    faults::fail("openat", EMFILE);
    EXPECT_EQ(copy({"conf"}), "");
    EXPECT_EQ(accessOf("/srv/v/conf"), "0755 root:root");
    faults::fail("fchmod", EPERM);
    EXPECT_EQ(copy({"httpdocs"}), "");
    EXPECT_EQ(accessOf("/srv/w/web"), "0755 root:kvocln");
    faults::fail("fchown", EPERM);
    ASSERT_EQ(chmod("/srv/s/cgi-bin", 0700), 0);
    EXPECT_EQ(copy({"cgi-bin"}), "");
    EXPECT_EQ(accessOf("/srv/w/cgi"), "0700 root:root");
}

// --- files that cannot be read or written ---

TEST_F(SkeletonCopierTest, AFileThatCannotBeReadIsReportedAndLeavesNothing)
{
    makeFile("/srv/s/a", "content");
    makeFile("/srv/s/b", "next");
    for (const char* call : {"open", "fstat", "read"}) {
        faults::clear();
        // The directory of the destination is opened first.
        faults::fail(call, EIO, call == std::string("open") ? 2 : 1);
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
    const Outcome outcome = inChild([this] {
        if (setgid(users) == 0 && setuid(site) == 0) {
            (void)std::fputs(copy({"secret"}, quiet).c_str(), stdout);
        }
    });
    EXPECT_EQ(outcome.out, installer("/srv/s/secret: Permission denied"));
    EXPECT_FALSE(exists("/srv/v/secret"));
}

TEST_F(SkeletonCopierTest, AFileSwappedForSomethingElseIsNeitherFollowedNorWaitedFor)
{
    makeFile("/srv/s/other", "secret");
    const auto copySwapped = [this](void (*swap)()) {
        makeFile("/srv/s/f", "content");
        faults::clear();
        faults::runBefore("open", 2, swap);
        std::string messages = copy({"f"}, verbose);
        EXPECT_FALSE(exists("/srv/v/f"));
        (void)remove("/srv/s/f");
        return messages;
    };
    EXPECT_EQ(copySwapped([] {
        (void)unlink("/srv/s/f");
        makeLink("/srv/s/f", "other");
    }),
        installer("/srv/s/f: Too many levels of symbolic links"));
    EXPECT_EQ(copySwapped([] {
        (void)unlink("/srv/s/f");
        makeFifo("/srv/s/f");
    }),
        otherKind("/srv/v/f"));
    EXPECT_EQ(copySwapped([] {
        (void)unlink("/srv/s/f");
        makeDir("/srv/s/f");
    }),
        otherKind("/srv/v/f"));
    EXPECT_EQ(copySwapped([] { (void)unlink("/srv/s/f"); }),
        installer("/srv/s/f: No such file or directory"));
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
