#include <cerrno>
#include <fcntl.h>
#include <linux/fs.h>
#include <new>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/lib/FailingNew.h"
#include "tests/site/SiteRemovalFixture.h"

namespace
{

class EmptySiteDirectories : public SiteRemoval
{
protected:
    EmptySiteDirectories()
    {
        for (const char* name : {"/httpdocs", "/httpsdocs", "/cgi-bin", "/private", "/conf"}) {
            makeDir(host + name);
            makeFile(host + name + "/file", "");
        }
    }

    /// Lets nobody, not even root, remove a file, or lets it again.
    static void setImmutable(const std::string& path, bool immutable)
    {
        const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        const int flags = immutable ? FS_IMMUTABLE_FL : 0;
        EXPECT_EQ(ioctl(file, FS_IOC_SETFLAGS, &flags), 0);
        close(file);
    }
};

} // namespace

TEST_F(EmptySiteDirectories, RemovesWhatIsInThreeDirectoriesAndKeepsThem)
{
    makeDirs("/srv/web/a/b/c");
    makeFile("/srv/web/a/b/x", "");
    makeFile("/srv/web/.htaccess", "");
    makeDirs("/srv/cgi/lib");
    makeFile("/srv/cgi/lib/y", "");
    makeDirs(host + "/private/deep/deeper");
    EXPECT_EQ(messagesOfEmptying(), "");
    EXPECT_EQ(treeOf("/srv/web"), emptyDirectory);
    EXPECT_EQ(treeOf("/srv/cgi"), emptyDirectory);
    EXPECT_EQ(treeOf(host + "/private"), emptyDirectory);
}

TEST_F(EmptySiteDirectories, TakesTheTwoOtherTreesFromTheOptionsAndNotFromTheVirtualHost)
{
    EXPECT_EQ(messagesOfEmptying(), "");
    for (const char* name : {"/httpdocs", "/httpsdocs", "/cgi-bin", "/conf"}) {
        EXPECT_TRUE(exists(host + name + "/file")) << name;
    }
    EXPECT_FALSE(exists(host + "/private/file"));
}

TEST_F(EmptySiteDirectories, EmptiesTreesThatLieInTheVirtualHost)
{
    const std::string root = host + "/httpdocs";
    const std::string cgi = host + "/cgi-bin/";
    options_.www_root = root.c_str();
    options_.cgi_bin_path = cgi.c_str();
    EXPECT_EQ(messagesOfEmptying(host + "/"), "");
    EXPECT_EQ(treeOf(host + "/httpdocs"), emptyDirectory);
    EXPECT_EQ(treeOf(host + "/cgi-bin"), emptyDirectory);
    EXPECT_EQ(treeOf(host + "/private"), emptyDirectory);
    EXPECT_TRUE(exists(host + "/httpsdocs/file"));
}

TEST_F(EmptySiteDirectories, TakesAPathWithASeparatorBehindItLikeOneWithout)
{
    makeDirs("/srv/web/a/b");
    makeFile("/srv/cgi/x", "");
    options_.www_root = "/srv/web/";
    options_.cgi_bin_path = "/srv/cgi/.";
    EXPECT_EQ(messagesOfEmptying(), "");
    EXPECT_EQ(treeOf("/srv/web"), emptyDirectory);
    EXPECT_EQ(treeOf("/srv/cgi"), emptyDirectory);
}

TEST_F(EmptySiteDirectories, RemovesASiteDirectorysNameThatLiesDeeper)
{
    makeDirs("/srv/web/httpdocs/private");
    makeDirs(host + "/private/private/cgi-bin");
    EXPECT_EQ(messagesOfEmptying(), "");
    EXPECT_EQ(treeOf("/srv/web"), emptyDirectory);
    EXPECT_EQ(treeOf(host + "/private"), emptyDirectory);
}

TEST_F(EmptySiteDirectories, DoesNotAskWhetherTheDocumentRootIsSkipped)
{
    makeFile("/srv/web/x", "");
    options_.skip_www_root = 1;
    options_.skip_error_docs = 1;
    EXPECT_EQ(messagesOfEmptying(), "");
    EXPECT_EQ(treeOf("/srv/web"), emptyDirectory);
}

TEST_F(EmptySiteDirectories, NeitherListsNorEmptiesTheCgiDirectoryWhenItIsSkipped)
{
    makeFile("/srv/cgi/x", "");
    options_.skip_cgi_bin = 1;
    faults::clear();
    EXPECT_EQ(messagesOfEmptying(), "");
    // Looks at the two other trees, and at the file in "private" before it is removed.
    EXPECT_EQ(faults::calls("fstatat"), 2 + 1);
    // A tree is reached and read, and "private" is opened to be emptied.
    EXPECT_EQ(faults::calls("openat2"), 2 * 2 + 1);
    EXPECT_TRUE(exists("/srv/cgi/x"));
}

TEST_F(EmptySiteDirectories, UnlinksSymbolicLinksAndNeverFollowsThem)
{
    makeDirs("/srv/outside/d");
    makeFile("/srv/outside/d/precious", "x");
    makeLink("/srv/web/directory", "/srv/outside");
    makeLink("/srv/web/file", "/srv/outside/d/precious");
    makeLink("/srv/web/above", "..");
    const std::string outside = treeOf("/srv/outside");
    EXPECT_EQ(messagesOfEmptying(), "");
    EXPECT_EQ(treeOf("/srv/web"), emptyDirectory);
    EXPECT_EQ(treeOf("/srv/outside"), outside);
}

TEST_F(EmptySiteDirectories, DoesNotDescendIntoADocumentRootThatIsALink)
{
    makeDirs("/srv/target/d");
    makeLink("/srv/link", "target");
    options_.www_root = "/srv/link";
    EXPECT_EQ(messagesOfEmptying(), "");
    EXPECT_TRUE(exists("/srv/target/d"));
    EXPECT_TRUE(exists("/srv/link"));
}

TEST_F(EmptySiteDirectories, FollowsADocumentRootThatIsALinkWithASeparatorBehindIt)
{
    makeDirs("/srv/target/d");
    makeLink("/srv/link", "target");
    options_.www_root = "/srv/link/";
    EXPECT_EQ(messagesOfEmptying(), "");
    EXPECT_EQ(treeOf("/srv/target"), emptyDirectory);
    EXPECT_TRUE(exists("/srv/link"));
}

TEST_F(EmptySiteDirectories, LeavesAPrivateDirectoryAloneThatIsALink)
{
    ASSERT_EQ(unlink((host + "/private/file").c_str()), 0);
    ASSERT_EQ(rmdir((host + "/private").c_str()), 0);
    makeDirs("/srv/target/d");
    plantLink(host + "/private", "/srv/target");
    EXPECT_EQ(messagesOfEmptying(), "");
    EXPECT_TRUE(exists("/srv/target/d"));
    EXPECT_TRUE(exists(host + "/private"));
}

TEST_F(EmptySiteDirectories, ReportsWhatCannotBeRemovedAndItsDirectoryAndGoesOn)
{
    makeDirs("/srv/web/d");
    makeFile("/srv/web/d/a", "");
    makeFile("/srv/web/d/f", "");
    makeFile("/srv/web/d/z", "");
    makeFile("/srv/web/y", "");
    makeFile("/srv/cgi/x", "");
    setImmutable("/srv/web/d/f", true);
    EXPECT_EQ(messagesOfEmptying(), "unlink(\"/srv/web/d/f\"): Operation not permitted\n"
                                    "rmdir(\"/srv/web/d\"): Directory not empty\n");
    setImmutable("/srv/web/d/f", false);
    EXPECT_EQ(treeOf("/srv/web"), "dir  0755 root:root .\ndir  0755 root:root d\n"
                                  "file 0644 root:root d/f \"\"\n");
    EXPECT_EQ(treeOf("/srv/cgi"), emptyDirectory);
    EXPECT_EQ(treeOf(host + "/private"), emptyDirectory);
}

TEST_F(EmptySiteDirectories, ReportsAMountPointOnce)
{
    makeDirs("/srv/web/d/mounted");
    makeFile("/srv/web/d/mounted/kept", "");
    const Mount point("/srv/web/d/mounted", "/srv/web/d/mounted");
    EXPECT_EQ(messagesOfEmptying(), "rmdir(\"/srv/web/d/mounted\"): Device or resource busy\n"
                                    "rmdir(\"/srv/web/d\"): Directory not empty\n");
    EXPECT_TRUE(exists("/srv/web/d/mounted/kept"));
}

TEST_F(EmptySiteDirectories, GoesThroughTheTreesFromTheLastPathToTheFirst)
{
    makeFile("/srv/web/a-x", "");
    makeFile("/srv/web/a.b", "");
    makeDirs("/srv/web/a/c");
    makeFile("/srv/cgi/x", "");
    faults::failAlways("unlinkat", EIO);
    EXPECT_EQ(messagesOfEmptying(), "unlink(\"" + host +
                                        "/private/file\"): Input/output error\n"
                                        "unlink(\"/srv/web/a.b\"): Input/output error\n"
                                        "unlink(\"/srv/web/a-x\"): Input/output error\n"
                                        "rmdir(\"/srv/web/a/c\"): Input/output error\n"
                                        "rmdir(\"/srv/web/a\"): Input/output error\n"
                                        "unlink(\"/srv/cgi/x\"): Input/output error\n");
}

TEST_F(EmptySiteDirectories, SaysNothingAboutATreeThatIsNotThere)
{
    ASSERT_EQ(rmdir("/srv/web"), 0);
    EXPECT_EQ(messagesOfEmptying(), "");
    EXPECT_EQ(messagesOfEmptying("/srv/www/vhosts/nowhere"), "");
    EXPECT_TRUE(exists("/srv/cgi"));
}

TEST_F(EmptySiteDirectories, ReportsATreeThatCannotBeLookedAt)
{
    makeFile("/srv/file", "");
    options_.www_root = "/srv/file/web";
    EXPECT_EQ(messagesOfEmptying(), "/srv/file/web: Not a directory\n");
    EXPECT_EQ(treeOf(host + "/private"), emptyDirectory);
}

TEST_F(EmptySiteDirectories, KeepsADocumentRootThatIsAFile)
{
    makeFile("/srv/file", "");
    options_.www_root = "/srv/file";
    EXPECT_EQ(messagesOfEmptying(), "");
    EXPECT_TRUE(exists("/srv/file"));
}

TEST_F(EmptySiteDirectories, TakesAnEmptyOptionForATreeThatIsNotThere)
{
    makeDirs("/srv/here/httpdocs");
    makeFile("/srv/here/x", "");
    ASSERT_EQ(chdir("/srv/here"), 0);
    const std::string before = treeOf("/srv/here");
    options_.www_root = "";
    options_.cgi_bin_path = nullptr;
    faults::clear();
    EXPECT_EQ(messagesOfEmptying(), "");
    // A look at "private", and one at the file in it before that is removed.
    EXPECT_EQ(faults::calls("fstatat"), 1 + 1);
    EXPECT_EQ(faults::calls("openat2"), 2 + 1);
    EXPECT_EQ(treeOf("/srv/here"), before);
    EXPECT_EQ(treeOf(host + "/private"), emptyDirectory);
    ASSERT_EQ(chdir("/"), 0);
}

TEST_F(EmptySiteDirectories, PassesOverWhatVanishesMeanwhile)
{
    makeFile("/srv/web/a", "");
    makeDirs("/srv/web/z");
    makeFile("/srv/web/z/x", "");
    // Before the first entry is removed: "private/file" is first, "z" comes behind it.
    faults::runBefore("unlinkat", 1, [] {
        ASSERT_EQ(unlink("/srv/web/z/x"), 0);
        ASSERT_EQ(rmdir("/srv/web/z"), 0);
    });
    EXPECT_EQ(messagesOfEmptying(), "");
    EXPECT_EQ(treeOf("/srv/web"), emptyDirectory);
}

TEST_F(EmptySiteDirectories, RemovesFilesOfEveryKindAndName)
{
    makeFifo("/srv/web/fifo");
    makeSocket("/srv/web/socket");
    makeDevice("/srv/web/device");
    makeFile("/srv/web/ \n\"&%1%\xff", "");
    makeDirs("/srv/web/...");
    makeFile("/srv/web/-rf", "", {0, site, users});
    makeDir("/srv/web/closed", {0, site, users});
    makeFile("/srv/web/closed/x", "");
    EXPECT_EQ(messagesOfEmptying(), "");
    EXPECT_EQ(treeOf("/srv/web"), emptyDirectory);
}

TEST_F(EmptySiteDirectories, OpensADirectoryOnceForAllOfItsFiles)
{
    makeDirs("/srv/web/d");
    for (int number = 0; number < 100; ++number) {
        makeFile("/srv/web/d/" + std::to_string(number), "");
    }
    faults::clear();
    EXPECT_EQ(messagesOfEmptying(), "");
    EXPECT_EQ(faults::calls("unlinkat"), 102);
    // Each of the four directories is reached and read. Then the bases of "private", "d" and, for
    // "d" itself, the document root are opened, and below two of them one directory.
    EXPECT_EQ(faults::calls("openat2"), 2 * 4 + 3);
    EXPECT_EQ(faults::calls("openat"), 0);
    EXPECT_EQ(faults::calls("open"), 0);
    EXPECT_EQ(faults::calls("statx"), 0);
}

TEST_F(EmptySiteDirectories, LeavesNoDescriptorOpen)
{
    makeDirs("/srv/web/a/b");
    makeDirs("/srv/cgi/a/b");
    const size_t before = openDescriptors();
    EXPECT_EQ(messagesOfEmptying(), "");
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(EmptySiteDirectories, EmptiesATreeDownToTheLongestPath)
{
    const std::string name(200, 'n');
    int directory = open("/srv/web", O_DIRECTORY | O_CLOEXEC);
    for (int level = 0; level < 22; ++level) {
        ASSERT_EQ(mkdirat(directory, name.c_str(), 0755), 0);
        const int below = openat(directory, name.c_str(), O_DIRECTORY | O_CLOEXEC);
        close(directory);
        directory = below;
    }
    close(directory);
    // The path of level 20 has 4028 characters; level 21 is too long to be looked at and stays.
    std::string path = "/srv/web";
    std::string expected;
    for (int level = 1; level <= 21; ++level) {
        path += '/' + name;
        const std::string failed = level == 21 ? "lstat(\"" + path + "\"): File name too long\n"
                                               : "rmdir(\"" + path + "\"): Directory not empty\n";
        expected.insert(0, failed);
    }
    const std::string listing = path + ": File name too long\n";
    EXPECT_EQ(
        errorsIntoAFile([&] { zelto::emptySiteDirectories(host, options_); }), listing + expected);
    EXPECT_FALSE(exists(host + "/private/file"));
}

TEST_F(EmptySiteDirectories, WithoutMemoryReportOrThrowAndKeepTheDirectories)
{
    int failures = 0;
    bool done = false;
    while (!done) {
        makeDirs("/srv/web/a/b");
        makeFile("/srv/web/a/b/c", "");
        const int nth = ++failures;
        const Outcome outcome = inChild([&] {
            try {
                const FailingNew failing(nth);
                (void)zelto::emptySiteDirectories(host, options_);
            } catch (const std::bad_alloc&) {
                _exit(3);
            }
            _exit(0);
        });
        EXPECT_TRUE(exists("/srv/web"));
        done = outcome.status == 0 && outcome.err.empty();
        if (!done && outcome.status != 3) {
            EXPECT_NE(outcome.err.find("std::bad_alloc\n"), std::string::npos) << outcome.err;
        }
    }
    EXPECT_GT(failures, 10);
    EXPECT_EQ(treeOf("/srv/web"), emptyDirectory);
}
