#include <fstream>
#include <map>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/site/SkeletonCopierFixture.h"

namespace
{

/// Expects these calls since faults::clear(), and none of the others that touch files.
void expectCalls(std::map<std::string, int> expected)
{
    for (const char* call : {"stat", "lstat", "fstat", "fstatat", "statx", "mkdir", "mkdirat",
             "chown", "chmod", "fchown", "fchmod", "fchownat", "fchmodat", "fchmodat2", "linkat",
             "unlinkat", "rename", "renameat2", "open", "openat", "openat2", "O_TMPFILE", "close",
             "read", "write", "lseek", "getdents64", "unlink", "rmdir", "fcntl"}) {
        EXPECT_EQ(faults::calls(call), expected[call]) << call;
        expected.erase(call);
    }
    EXPECT_TRUE(expected.empty());
}

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
    zelto::SkeletonCopier copier(host_, skeleton_, kvocln, messages, verbose, options_);
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

TEST_F(SkeletonCopierTest, TheSourceOfAFileThatExistsIsNeitherLookedAtNorOpened)
{
    for (const char* name : {"f", "g", "h"}) {
        makeFile(std::string("/srv/s/") + name, "new");
        makeFile(std::string("/srv/v/") + name, "old");
    }
    for (const bool areFiles : {true, false}) {
        faults::clear();
        EXPECT_EQ(copy({"f", "g", "h"}, verbose, areFiles),
            alreadyExists("/srv/v/f") + alreadyExists("/srv/v/g") + alreadyExists("/srv/v/h"));
        expectCalls({{"fstatat", 3}, {"openat2", 1}, {"close", 1}});
    }
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

TEST_F(SkeletonCopierTest, ADestinationWhosePathIsTooLongAsAWholeIsReported)
{
    makeDirs("/srv/s/httpdocs");
    makeFile("/srv/s/httpdocs/file", "x");
    makeFile("/srv/s/httpdocs/f", "x");
    std::string root = "/srv/w";
    while (root.size() < 4092) {
        root += "/.";
    }
    options_.www_root = root.c_str();
    EXPECT_EQ(copy({"httpdocs/f", "httpdocs/file"}, quiet),
        "corbel:InstallSkeleton(): stat(\"" + root + "/file\") failed: File name too long\n");
    EXPECT_TRUE(exists("/srv/w/f"));
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

TEST_F(SkeletonCopierTest, AFileCostsElevenSystemCallsAndTheDirectoriesAreOpenedOnce)
{
    std::vector<std::string> entries;
    for (char name = 'a'; name <= 'j'; ++name) {
        entries.push_back(std::string("conf/") + name);
        makeFile("/srv/s/" + entries.back(), "@domain_name@");
    }
    makeDir("/srv/v/conf");
    for (const bool areFiles : {true, false}) {
        faults::clear();
        EXPECT_EQ(copy(entries, verbose, areFiles), "");
        // "conf" is opened in both the skeleton and the virtual host.
        expectCalls({{"openat2", 2}, {"openat", 10}, {"fstatat", areFiles ? 10 : 2 * 10},
            {"fstat", 10}, {"read", 10}, {"O_TMPFILE", 10}, {"write", 10}, {"fchmod", 10},
            {"fchown", 10}, {"linkat", 10}, {"close", 2 + 2 * 10}});
        for (const std::string& entry : entries) {
            EXPECT_EQ(contentOf("/srv/v/" + entry), "example.test");
            EXPECT_EQ(unlink(("/srv/v/" + entry).c_str()), 0);
        }
    }
}

TEST_F(SkeletonCopierTest, ADirectoryCostsEightSystemCallsAndOneThatExistsTwo)
{
    faults::clear();
    EXPECT_EQ(copy({"conf"}), "");
    // It and its source are looked at; it is made, held, looked at again, given away, finished and
    // closed.
    expectCalls({{"openat2", 2}, {"fstatat", 2}, {"mkdirat", 1}, {"openat", 1}, {"fstat", 1},
        {"fchownat", 1}, {"fchmodat2", 1}, {"close", 1 + 2}});
    faults::clear();
    EXPECT_EQ(copy({"conf"}), "");
    expectCalls({{"openat2", 2}, {"fstatat", 2}, {"close", 2}});
}

// --- links on the way ---

TEST_F(SkeletonCopierTest, NothingIsReadThroughALinkOfSomebodyElse)
{
    makeDir("/srv/outside");
    makeFile("/srv/outside/secret", "secret");
    makeDirs("/srv/outside/deep");
    makeFile("/srv/s/conf/z", "z");
    plantLink("/srv/s/conf/link", "/srv/outside");
    makeDirs("/srv/v/conf/link");
    for (const bool areFiles : {false, true}) {
        EXPECT_EQ(copy({"conf/link/secret", "conf/link/deep", "conf/z"}, quiet, areFiles),
            installer("/srv/s/conf/link/secret: Too many levels of symbolic links") +
                installer("/srv/s/conf/link/deep: Too many levels of symbolic links"));
        EXPECT_EQ(treeOf("/srv/v/conf"), "dir  0755 root:root .\n"
                                         "dir  0755 root:root link\n"
                                         "file 0644 root:kvocln z \"z\"\n");
        EXPECT_EQ(unlink("/srv/v/conf/z"), 0);
    }
}

TEST_F(SkeletonCopierTest, WhatRootHasLinkedIntoTheSkeletonIsReadThere)
{
    makeDir("/srv/elsewhere");
    makeFile("/srv/elsewhere/file", "x");
    makeLink("/srv/s/conf/link", "/srv/elsewhere");
    makeDirs("/srv/v/conf/link");
    EXPECT_EQ(copy({"conf/link/file"}, quiet), "");
    EXPECT_EQ(contentOf("/srv/v/conf/link/file"), "x");
}

TEST_F(SkeletonCopierTest, ADirectoryOfTheSkeletonOnceOpenedIsTheOneThatIsRead)
{
    makeDir("/srv/outside");
    makeFile("/srv/outside/a", "secret");
    makeFile("/srv/outside/b", "secret");
    makeDirs("/srv/s/conf/sub");
    makeFile("/srv/s/conf/sub/a", "a");
    makeFile("/srv/s/conf/sub/b", "b");
    makeDirs("/srv/v/conf/sub");
    // When the first has been read its owner exchanges the directory.
    faults::runBefore("read", 1, [] {
        ASSERT_EQ(rename("/srv/s/conf/sub", "/srv/s/conf/moved"), 0);
        plantLink("/srv/s/conf/sub", "/srv/outside");
    });
    EXPECT_EQ(copy({"conf/sub/a", "conf/sub/b"}, quiet, true), "");
    EXPECT_EQ(contentOf("/srv/v/conf/sub/a") + contentOf("/srv/v/conf/sub/b"), "ab");
}

TEST_F(SkeletonCopierTest, ASourceWhosePathIsTooLongAsAWholeIsReported)
{
    makeFile("/srv/s/f", "x");
    makeFile("/srv/s/file", "x");
    std::string skeleton = "/srv/s";
    while (skeleton.size() < 4092) {
        skeleton += "/.";
    }
    skeleton_ = skeleton;
    for (const bool areFiles : {false, true}) {
        EXPECT_EQ(copy({"f", "file"}, quiet, areFiles),
            installer(skeleton + "/file: File name too long"));
        EXPECT_EQ(treeOf("/srv/v"), hostWith("file 0644 root:kvocln f \"x\""));
        EXPECT_EQ(unlink("/srv/v/f"), 0);
    }
}

TEST_F(SkeletonCopierTest, NothingIsMadeThroughALinkOfSomebodyElse)
{
    makeDirs("/srv/s/httpdocs/css/deep");
    makeFile("/srv/s/httpdocs/css/style", "x");
    makeFile("/srv/s/httpdocs/index", "x");
    makeDir("/srv/outside");
    makeDirs("/srv/w/web");
    makeLink("/srv/w/web/css", "/srv/outside");
    ASSERT_EQ(lchown("/srv/w/web/css", site, users), 0);
    const std::string loop = "\") failed: Too many levels of symbolic links\n";
    EXPECT_EQ(
        copy({"httpdocs/css", "httpdocs/css/deep", "httpdocs/css/style", "httpdocs/index"}, quiet),
        "corbel:InstallSkeleton(): stat(\"/srv/w/web/css/deep" + loop +
            "corbel:InstallSkeleton(): stat(\"/srv/w/web/css/style" + loop);
    EXPECT_EQ(treeOf("/srv/outside"), "dir  0755 root:root .\n");
    EXPECT_TRUE(exists("/srv/w/web/index"));
}

TEST_F(SkeletonCopierTest, WhatRootHasLinkedElsewhereIsFilledThere)
{
    makeDirs("/srv/s/conf/shared/deep");
    makeFile("/srv/s/conf/shared/deep/file", "x");
    makeDirs("/srv/elsewhere");
    makeDir("/srv/v/conf");
    makeLink("/srv/v/conf/shared", "/srv/elsewhere");
    EXPECT_EQ(copy({"conf/shared", "conf/shared/deep", "conf/shared/deep/file"}, quiet), "");
    EXPECT_TRUE(exists("/srv/elsewhere/deep/file"));
}

TEST_F(SkeletonCopierTest, ADirectoryExchangedForALinkIsNotEntered)
{
    makeDirs("/srv/s/httpdocs/css");
    makeFile("/srv/s/httpdocs/css/a", "x");
    makeDirs("/srv/w/web/css");
    makeDir("/srv/outside");
    // Between the look at the destination and the writing of the file.
    faults::runBefore("O_TMPFILE", 1, [] {
        ASSERT_EQ(rename("/srv/w/web/css", "/srv/w/web/moved"), 0);
        makeLink("/srv/w/web/css", "/srv/outside");
    });
    EXPECT_EQ(copy({"httpdocs/css/a"}, quiet), "");
    EXPECT_EQ(treeOf("/srv/outside"), "dir  0755 root:root .\n");
    EXPECT_TRUE(exists("/srv/w/web/moved/a"));
}

TEST_F(SkeletonCopierTest, ADocumentRootThatIsALinkToNothingStopsEverythingBelowIt)
{
    makeDirs("/srv/s/httpdocs/css");
    makeLink("/srv/w/dangling", "nowhere");
    options_.www_root = "/srv/w/dangling";
    EXPECT_EQ(copy({"httpdocs"}, quiet), "");
    EXPECT_EQ(failureOf("httpdocs/css"),
        "boost::filesystem::create_directories: File exists: \"/srv/w/dangling\"");
}
