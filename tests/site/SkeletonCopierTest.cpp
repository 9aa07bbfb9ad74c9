#include <boost/filesystem/exception.hpp>
#include <cerrno>
#include <fstream>
#include <limits>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include "site/SkeletonCopier.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

using zelto::SkeletonCopier;
using zelto::SkeletonOptions;
using zelto::VirtualHostPath;

namespace
{

constexpr bool quiet = false;
constexpr bool verbose = true;

/// "/srv/s" is the skeleton, "/srv/v" the virtual host "example.test", "/srv/w" holds the document
/// root "web" and the CGI directory "cgi", none of which exists yet.
class SkeletonCopierTest : public World
{
protected:
    SkeletonCopierTest()
    {
        makeDir("/srv/s");
        makeDir("/srv/v");
        makeDir("/srv/w");
        for (const char* name : {"conf", "httpdocs", "cgi-bin"}) {
            makeDir(std::string("/srv/s/") + name);
        }
        host_.directory = "/srv/v";
        host_.name = "example.test";
        faults::clear();
    }

    /// Copies the entries and returns the messages.
    std::string copy(const std::vector<std::string>& entries, bool isVerbose = verbose) const
    {
        std::ostringstream messages;
        const size_t before = openDescriptors();
        {
            SkeletonCopier copier(host_, skeleton_, kvocln, messages, isVerbose, options_);
            for (const std::string& entry : entries) {
                copier.copy(entry);
            }
        }
        EXPECT_EQ(openDescriptors(), before);
        return messages.str();
    }

    /// Copies one entry and returns the text of the exception that ends it.
    std::string failureOf(const std::string& entry) const
    {
        try {
            return "no exception, but " + copy({entry});
        } catch (const boost::filesystem::filesystem_error& error) {
            return error.what();
        }
    }

    static std::string installer(const std::string& text)
    {
        return "corbel:InstallSkeleton(): " + text + '\n';
    }

    static std::string alreadyExists(const std::string& destination)
    {
        return installer(destination + " already exists, not restoring");
    }

    static std::string otherKind(const std::string& destination)
    {
        return installer(destination + " not a file or directory, skipping");
    }

    static constexpr const char* emptyHost = "dir  0755 root:root .\n";
    static std::string hostWith(const std::string& lines) { return emptyHost + lines + '\n'; }

    VirtualHostPath host_;
    boost::filesystem::path skeleton_ = "/srv/s";
    SkeletonOptions options_ = {"/srv/w/web", 0, 0, 0, "/srv/w/cgi"};
    faults::Guard guard_;
};

} // namespace

// --- what is copied ---

TEST_F(SkeletonCopierTest, AFileIsCopiedWithItsModeAndTheNameFilledIn)
{
    makeFile("/srv/s/index", "at @domain_name@ and @domain_name@\r\n", {0640, other, users});
    EXPECT_EQ(copy({"index"}), "");
    EXPECT_EQ(treeOf("/srv/v"),
        hostWith("file 0640 root:kvocln index \"at example.test and example.test\\x0d\\n\""));
}

TEST_F(SkeletonCopierTest, ANameThatHoldsTheTokenIsNotExpandedAgain)
{
    host_.name = "a@domain_name@b";
    makeFile("/srv/s/f", "@domain_name@domain_name@");
    EXPECT_EQ(copy({"f"}), "");
    EXPECT_EQ(contentOf("/srv/v/f"), "a@domain_name@bdomain_name@");
}

TEST_F(SkeletonCopierTest, BytesThatAreNoTextAndEmptyFilesAreCopiedAsTheyAre)
{
    const std::string bytes("\0\xff\r\n\0@domain_name@\0", 19);
    makeFile("/srv/s/bytes", bytes);
    makeFile("/srv/s/empty", "");
    EXPECT_EQ(copy({"bytes", "empty"}), "");
    EXPECT_EQ(contentOf("/srv/v/bytes"), std::string("\0\xff\r\n\0example.test\0", 18));
    EXPECT_EQ(contentOf("/srv/v/empty"), "");
}

TEST_F(SkeletonCopierTest, CopiedFilesKeepPermissionBitsExceptThoseThatAChangeOfGroupTakes)
{
    const std::pair<mode_t, const char*> table[] = {{0644, "0644"}, {0600, "0600"}, {0777, "0777"},
        {0000, "0000"}, {0444, "0444"}, {06755, "0755"}, {04711, "0711"}, {02755, "0755"},
        {02644, "2644"}, {01644, "1644"}, {07777, "1777"}};
    umask(077);
    for (const auto& [mode, shown] : table) {
        makeFile("/srv/s/f", "x", {mode, other, users});
        EXPECT_EQ(copy({"f"}), "");
        EXPECT_EQ(accessOf("/srv/v/f"), shown + std::string(" root:kvocln"));
        EXPECT_EQ(unlink("/srv/v/f") + unlink("/srv/s/f"), 0);
    }
}

TEST_F(SkeletonCopierTest, CopiedDirectoriesKeepAllPermissionBits)
{
    const std::pair<mode_t, const char*> table[] = {{0755, "0755"}, {0700, "0700"}, {0777, "0777"},
        {0000, "0000"}, {02750, "2750"}, {06755, "6755"}, {01777, "1777"}};
    umask(077);
    for (const auto& [mode, shown] : table) {
        makeDir("/srv/s/d", {mode, other, users});
        EXPECT_EQ(copy({"d"}), "");
        EXPECT_EQ(accessOf("/srv/v/d"), shown + std::string(" root:kvocln"));
        EXPECT_EQ(rmdir("/srv/v/d") + rmdir("/srv/s/d"), 0);
    }
}

TEST_F(SkeletonCopierTest, NamesOfAnyBytesAreCopiedAsTheyAre)
{
    std::vector<std::string> entries;
    for (const std::string name :
        {"-rf", "a b", "a\nb", "\xc3\xa4\xc3\xb6", "\xff\xfe", "%1%", "&"}) {
        makeFile("/srv/s/conf/" + name, "of @domain_name@");
        entries.push_back("conf/" + name);
    }
    makeDir("/srv/v/conf");
    EXPECT_EQ(copy(entries), "");
    for (const std::string& entry : entries) {
        EXPECT_EQ(contentOf("/srv/v/" + entry), "of example.test") << entry;
    }
}

TEST_F(SkeletonCopierTest, ATreeIsCopiedInTheOrderOfItsPaths)
{
    makeDirs("/srv/s/conf/a/b");
    makeFile("/srv/s/conf/a/1", "1");
    makeFile("/srv/s/conf/a/b/2", "2");
    makeFile("/srv/s/conf/a/c", "3");
    EXPECT_EQ(
        copy({"conf", "conf/a", "conf/a/1", "conf/a/b", "conf/a/b/2", "conf/a/c"}, verbose), "");
    EXPECT_EQ(treeOf("/srv/v"), hostWith("dir  0755 root:kvocln conf\n"
                                         "dir  0755 root:kvocln conf/a\n"
                                         "file 0644 root:kvocln conf/a/1 \"1\"\n"
                                         "dir  0755 root:kvocln conf/a/b\n"
                                         "file 0644 root:kvocln conf/a/b/2 \"2\"\n"
                                         "file 0644 root:kvocln conf/a/c \"3\""));
}

// --- where to ---

TEST_F(SkeletonCopierTest, TheWebRootAndTheCgiDirectoryGoWhereTheOptionsSay)
{
    makeFile("/srv/s/httpdocs/index.html", "1");
    makeFile("/srv/s/cgi-bin/x.cgi", "2", {0755});
    EXPECT_EQ(copy({"cgi-bin", "cgi-bin/x.cgi", "httpdocs", "httpdocs/index.html"}), "");
    EXPECT_EQ(treeOf("/srv/w"), hostWith("dir  0755 root:kvocln cgi\n"
                                         "file 0755 root:kvocln cgi/x.cgi \"2\"\n"
                                         "dir  0755 root:kvocln web\n"
                                         "file 0644 root:kvocln web/index.html \"1\""));
    EXPECT_EQ(treeOf("/srv/v"), emptyHost);
}

TEST_F(SkeletonCopierTest, ASkeletonsWebRootThatIsAFileIsCopiedToTheDocumentRootItself)
{
    ASSERT_EQ(rmdir("/srv/s/httpdocs"), 0);
    makeFile("/srv/s/httpdocs", "closed: @domain_name@");
    EXPECT_EQ(copy({"httpdocs"}), "");
    EXPECT_EQ(treeOf("/srv/w"), hostWith("file 0644 root:kvocln web \"closed: example.test\""));
}

TEST_F(SkeletonCopierTest, ASlashAtTheEndOfTheDocumentRootDoesNoHarm)
{
    options_.www_root = "/srv/w/web/";
    makeFile("/srv/s/httpdocs/x", "1");
    makeFile("/srv/s/httpdocs/y", "2");
    makeDir("/srv/w/web");
    makeFile("/srv/w/web/x", "old");
    EXPECT_EQ(copy({"httpdocs", "httpdocs/x", "httpdocs/y"}), alreadyExists("/srv/w/web/x"));
    EXPECT_EQ(contentOf("/srv/w/web/y"), "2");
}

TEST_F(SkeletonCopierTest, ADocumentRootWithASlashAtItsEndIsCreatedAsAnyOther)
{
    options_.www_root = "/srv/w/a/b/";
    ASSERT_EQ(chmod("/srv/s/httpdocs", 0750), 0);
    EXPECT_EQ(copy({"httpdocs"}), "");
    EXPECT_EQ(treeOf("/srv/w"), hostWith("dir  0755 root:root a\n"
                                         "dir  0750 root:kvocln a/b"));
}

TEST_F(SkeletonCopierTest, AFileCannotTakeTheNameOfADocumentRootThatEndsWithASlash)
{
    options_.www_root = "/srv/w/web/";
    ASSERT_EQ(rmdir("/srv/s/httpdocs"), 0);
    makeFile("/srv/s/httpdocs", "x");
    EXPECT_EQ(copy({"httpdocs"}, quiet), installer("/srv/w/web/: No such file or directory"));
    EXPECT_EQ(treeOf("/srv/w"), emptyHost);
}

TEST_F(SkeletonCopierTest, RelativeAndEmptyRootsStartAtTheWorkingDirectory)
{
    ASSERT_EQ(chdir("/srv/w"), 0);
    makeFile("/srv/s/httpdocs/x", "1");
    makeFile("/srv/s/cgi-bin/y", "2");
    options_ = {};
    options_.www_root = "docs";
    EXPECT_EQ(copy({"httpdocs", "httpdocs/x", "cgi-bin/y"}), "");
    EXPECT_EQ(treeOf("/srv/w"), hostWith("dir  0755 root:kvocln docs\n"
                                         "file 0644 root:kvocln docs/x \"1\"\n"
                                         "file 0644 root:kvocln y \"2\""));
}

TEST_F(SkeletonCopierTest, ADocumentRootWithoutAnyNameCannotBeCreated)
{
    options_ = {};
    EXPECT_EQ(failureOf("httpdocs"), "boost::filesystem::create_directories: Invalid argument");
    EXPECT_EQ(failureOf("cgi-bin"), "boost::filesystem::create_directories: Invalid argument");
}

TEST_F(SkeletonCopierTest, TheOptionsTextsAreCopied)
{
    std::string webRoot = "/srv/w/web";
    options_.www_root = webRoot.c_str();
    std::ostringstream messages;
    SkeletonCopier copier(host_, skeleton_, kvocln, messages, verbose, options_);
    webRoot = "/srv/w/xxx";
    copier.copy("httpdocs");
    EXPECT_EQ(treeOf("/srv/w"), hostWith("dir  0755 root:kvocln web"));
}

// --- what is left out ---

TEST_F(SkeletonCopierTest, TheSecureWebRootIsNeverInstalledAndNeverMentioned)
{
    makeDir("/srv/s/httpsdocs");
    makeFile("/srv/s/httpsdocs/x", "");
    makeDir("/srv/v/httpsdocs");
    makeFile("/srv/v/httpsdocs/x", "old");
    EXPECT_EQ(copy({"httpsdocs", "httpsdocs/x", "httpsdocs/missing"}), "");
    EXPECT_EQ(contentOf("/srv/v/httpsdocs/x"), "old");
    skeleton_ = "/srv/s/httpsdocs";
    EXPECT_EQ(copy({"httpsdocs/x"}), "");
}

TEST_F(SkeletonCopierTest, SkippedDirectoriesAreNotMentioned)
{
    options_.skip_cgi_bin = 1;
    options_.skip_error_docs = 2;
    makeDir("/srv/s/error_docs");
    makeFile("/srv/s/error_docs/404", "");
    makeFile("/srv/s/cgi-bin/x", "");
    makeDir("/srv/w/cgi");
    EXPECT_EQ(copy({"cgi-bin", "cgi-bin/x", "error_docs", "error_docs/404"}), "");
    EXPECT_EQ(treeOf("/srv/v"), emptyHost);
    EXPECT_EQ(treeOf("/srv/w"), hostWith("dir  0755 root:root cgi"));
}

TEST_F(SkeletonCopierTest, SkippingTheWebRootIsTheListingsBusiness)
{
    options_.skip_www_root = 1;
    EXPECT_EQ(copy({"httpdocs"}), "");
    EXPECT_EQ(treeOf("/srv/w"), hostWith("dir  0755 root:kvocln web"));
}

TEST_F(SkeletonCopierTest, WhatIsNeitherFileNorDirectoryIsMentionedByItsDestinationIfVerbose)
{
    makeLink("/srv/s/link", "conf");
    makeLink("/srv/s/dangling", "nowhere");
    makeLink("/srv/s/loop", "loop");
    makeFifo("/srv/s/fifo");
    makeSocket("/srv/s/socket");
    makeDevice("/srv/s/device");
    for (const std::string name : {"link", "dangling", "loop", "fifo", "socket", "device"}) {
        EXPECT_EQ(copy({name}, verbose), otherKind("/srv/v/" + name));
        EXPECT_EQ(copy({name}, quiet), "");
    }
    EXPECT_EQ(treeOf("/srv/v"), emptyHost);
}

TEST_F(SkeletonCopierTest, AMissingEntryIsSilent)
{
    EXPECT_EQ(copy({"anon_ftp", "conf/missing"}, verbose), "");
    EXPECT_EQ(treeOf("/srv/v"), emptyHost);
}

TEST_F(SkeletonCopierTest, AnEntryThatCannotBeLookedAtIsReportedWithItsPath)
{
    makeFile("/srv/s/file", "");
    EXPECT_EQ(copy({"file/x"}, quiet), installer("/srv/s/file/x: Not a directory"));
    makeLink("/srv/s/loop", "loop");
    EXPECT_EQ(
        copy({"loop/x"}, quiet), installer("/srv/s/loop/x: Too many levels of symbolic links"));
    EXPECT_EQ(treeOf("/srv/v"), emptyHost);
}

// --- what exists already ---

TEST_F(SkeletonCopierTest, OnlyADirectoryOverADirectoryIsNotMentioned)
{
    makeFile("/srv/s/file", "new", {0600});
    makeDir("/srv/s/directory", {0700});
    makeLink("/srv/s/link", "directory");
    makeDir("/srv/v/real", {0711, site, users});
    const auto makeDestination = [](const std::string& kind, const std::string& path) {
        if (kind == "file") {
            makeFile(path, "old", {0666, site, users});
        } else if (kind == "directory") {
            makeDir(path, {0711, site, users});
        } else if (kind == "link") {
            makeLink(path, "real");
        } else if (kind == "dangling") {
            makeLink(path, "nowhere");
        } else {
            makeFifo(path, {0666, site, users});
        }
    };
    for (const std::string source : {"file", "directory", "link", "missing"}) {
        for (const std::string kind : {"file", "directory", "link", "dangling", "fifo"}) {
            const std::string destination = "/srv/v/" + source;
            makeDestination(kind, destination);
            const std::string before = treeOf("/srv/v");
            const bool silent = source == "directory" && kind == "directory";
            EXPECT_EQ(copy({source}, verbose), silent ? "" : alreadyExists(destination))
                << source << " over " << kind;
            EXPECT_EQ(copy({source}, quiet), "") << source << " over " << kind;
            EXPECT_EQ(treeOf("/srv/v"), before) << source << " over " << kind;
            EXPECT_EQ(remove(destination.c_str()), 0);
        }
    }
}

TEST_F(SkeletonCopierTest, TheSourceOfAFileThatExistsIsNotOpened)
{
    makeFile("/srv/s/f", "new");
    makeFile("/srv/v/f", "old");
    faults::clear();
    EXPECT_EQ(copy({"f"}), alreadyExists("/srv/v/f"));
    EXPECT_EQ(faults::calls("open"), 0);
    EXPECT_EQ(faults::calls("read"), 0);
}

TEST_F(SkeletonCopierTest, ADestinationThatCannotBeLookedAtIsReportedAlsoWhenQuiet)
{
    makeFile("/srv/s/conf/x", "");
    makeFile("/srv/v/conf", "");
    for (const bool isVerbose : {quiet, verbose}) {
        EXPECT_EQ(copy({"conf/x"}, isVerbose),
            installer("stat(\"/srv/v/conf/x\") failed: Not a directory"));
    }
    makeLink("/srv/v/loop", "loop");
    EXPECT_EQ(copy({"loop/a&b"}, quiet),
        installer("stat(\"/srv/v/loop/a&b\") failed: Too many levels of symbolic links"));
}

TEST_F(SkeletonCopierTest, ADestinationWhosePathIsTooLongIsReported)
{
    const std::string root = "/srv/w/" + std::string(256, 'n');
    options_.www_root = root.c_str();
    EXPECT_EQ(
        copy({"httpdocs"}, quiet), installer("stat(\"" + root + "\") failed: File name too long"));
}

TEST_F(SkeletonCopierTest, AnEntryThatFailsDoesNotStopTheNext)
{
    makeFile("/srv/s/conf/x", "");
    makeFile("/srv/s/z", "z");
    makeFile("/srv/v/conf", "");
    EXPECT_EQ(
        copy({"conf/x", "z"}, quiet), installer("stat(\"/srv/v/conf/x\") failed: Not a directory"));
    EXPECT_EQ(contentOf("/srv/v/z"), "z");
}

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
    for (const std::string entry : {"conf", "httpdocs"}) {
        faults::clear();
        // The source is looked at second, just before the directory is made.
        faults::runBefore("lstat", 2, [] {
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
    faults::fail("open", EMFILE);
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
        faults::runBefore("open", 1, swap);
        const std::string messages = copy({"f"}, verbose);
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

// --- cost ---

TEST_F(SkeletonCopierTest, AHundredMegabytesAreHeldAtMostTwice)
{
    // Both hold the token at both ends, one in vain.
    const auto makeLarge = [](const char* path, const char* token) {
        std::ofstream file(path, std::ios::binary);
        file << token;
        const std::string megabyte(1 << 20, 'x');
        for (int i = 0; i < 100; ++i) {
            file << megabyte;
        }
        file << token;
    };
    makeLarge("/srv/s/without", "@domain-name@");
    makeLarge("/srv/s/with", "@domain_name@");
    const auto peakOf = [this](const std::string& entry) {
        const Outcome outcome = inChild([&] {
            std::ofstream("/proc/self/clear_refs") << 5; // from here on
            const auto peak = [] {
                std::ifstream status("/proc/self/status");
                std::string word;
                while (status >> word && word != "VmHWM:") {
                }
                long kilobytes = 0;
                status >> kilobytes;
                return kilobytes / 1024;
            };
            const long before = peak();
            EXPECT_EQ(copy({entry}), "");
            (void)std::printf("%ld", peak() - before);
        });
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.err, "");
        return std::stol(outcome.out);
    };
    const long once = peakOf("without");
    EXPECT_TRUE(once >= 100 && once <= 140) << once;
    const long twice = peakOf("with");
    EXPECT_TRUE(twice >= 200 && twice <= 240) << twice;
}

TEST_F(SkeletonCopierTest, AFileCostsTwelveSystemCallsAndItsDirectoryIsOpenedOnce)
{
    std::vector<std::string> entries;
    for (char name = 'a'; name <= 'j'; ++name) {
        entries.push_back(std::string("conf/") + name);
        makeFile("/srv/s/" + entries.back(), "@domain_name@");
    }
    makeDir("/srv/v/conf");
    faults::clear();
    EXPECT_EQ(copy(entries), "");
    EXPECT_EQ(faults::calls("lstat"), 2 * 10);
    EXPECT_EQ(faults::calls("open"), 10 + 1);
    for (const char* call : {"fstat", "read", "O_TMPFILE", "write", "fchmod", "fchown", "linkat"}) {
        EXPECT_EQ(faults::calls(call), 10) << call;
    }
    EXPECT_EQ(faults::calls("close"), 2 * 10 + 1);
}
