#include <cerrno>
#include <unistd.h>

#include "tests/site/SiteRemovalFixture.h"

namespace
{

using SiteRemover = SiteRemoval;

constexpr const char* fileInside = "dir  0755 root:root .\nfile 0644 root:root x \"\"\n";

} // namespace

TEST_F(SiteRemover, HoldsTheDirectoryAndACopyOfTheOptions)
{
    std::string root = "/srv/web";
    std::string cgi = "/srv/cgi";
    const zelto::SiteRemover remover(host, {root.c_str(), 7, 0, 9, cgi.c_str()});
    root[1] = cgi[1] = '?';
    EXPECT_EQ(remover.vhost_directory, host);
    EXPECT_EQ(remover.www_root, "/srv/web");
    EXPECT_TRUE(remover.skip_www_root);
    EXPECT_FALSE(remover.skip_error_docs);
    EXPECT_TRUE(remover.skip_cgi_bin);
    EXPECT_EQ(remover.cgi_bin_path, "/srv/cgi");
    EXPECT_TRUE(zelto::SiteRemover(host, {"", 0, 1, 0, ""}).skip_error_docs);
}

TEST_F(SiteRemover, TakesNullTextsAsEmptyOnes)
{
    const zelto::SiteRemover remover(host, {});
    EXPECT_EQ(remover.www_root, "");
    EXPECT_EQ(remover.cgi_bin_path, "");
}

TEST_F(SiteRemover, HasItsFieldsInTheOrderInWhichTheyAreGiven)
{
    const zelto::SiteRemover remover(host, options_);
    const auto& [directory, root, skipRoot, skipErrorDocs, skipCgi, cgi] = remover;
    EXPECT_EQ(&directory, &remover.vhost_directory);
    EXPECT_EQ(&root, &remover.www_root);
    EXPECT_EQ(&skipRoot, &remover.skip_www_root);
    EXPECT_EQ(&skipErrorDocs, &remover.skip_error_docs);
    EXPECT_EQ(&skipCgi, &remover.skip_cgi_bin);
    EXPECT_EQ(&cgi, &remover.cgi_bin_path);
}

TEST_F(SiteRemover, RemovesEveryKindOfFileByUnlink)
{
    makeFile("/srv/web/file", "x");
    makeLink("/srv/web/link", "/srv/www");
    makeLink("/srv/web/dangling", "nowhere");
    makeFifo("/srv/web/fifo");
    makeSocket("/srv/web/socket");
    makeDevice("/srv/web/device");
    for (const char* name : {"file", "link", "dangling", "fifo", "socket", "device"}) {
        EXPECT_EQ(messagesOf(std::string("httpdocs/") + name), "");
    }
    EXPECT_EQ(treeOf("/srv/web"), emptyDirectory);
    EXPECT_TRUE(exists("/srv/www/vhosts"));
}

TEST_F(SiteRemover, RemovesAnEmptyDirectoryByRmdir)
{
    makeDirs("/srv/web/d/e");
    EXPECT_EQ(messagesOf("httpdocs/d/e"), "");
    EXPECT_EQ(treeOf("/srv/web"), "dir  0755 root:root .\ndir  0755 root:root d\n");
}

TEST_F(SiteRemover, ReportsADirectoryThatIsNotEmpty)
{
    makeDir("/srv/web/d");
    makeFile("/srv/web/d/x", "");
    EXPECT_EQ(messagesOf("httpdocs/d"), "rmdir(\"/srv/web/d\"): Directory not empty\n");
    EXPECT_EQ(treeOf("/srv/web/d"), fileInside);
}

TEST_F(SiteRemover, ReportsAFileThatCannotBeUnlinked)
{
    makeFile("/srv/web/x", "");
    const Mount point("/srv/web/x", "/srv/web/x");
    EXPECT_EQ(messagesOf("httpdocs/x"), "unlink(\"/srv/web/x\"): Device or resource busy\n");
    EXPECT_TRUE(exists("/srv/web/x"));
}

TEST_F(SiteRemover, ReportsAnEntryThatCannotBeLookedAt)
{
    makeFile("/srv/web/a", "");
    EXPECT_EQ(messagesOf("httpdocs/a/b"), "lstat(\"/srv/web/a/b\"): Not a directory\n");
    EXPECT_EQ(messagesOf("httpdocs/a/b/c"), "lstat(\"/srv/web/a/b/c\"): Not a directory\n");
    faults::fail("fstatat", EIO);
    EXPECT_EQ(messagesOf("httpdocs/a"), "lstat(\"/srv/web/a\"): Input/output error\n");
    EXPECT_TRUE(exists("/srv/web/a"));
}

TEST_F(SiteRemover, ReportsABaseThatIsNoDirectory)
{
    makeFile("/srv/file", "");
    options_.www_root = "/srv/file";
    EXPECT_EQ(messagesOf("httpdocs/a"), "lstat(\"/srv/file/a\"): Not a directory\n");
    faults::fail("openat2", EMFILE);
    EXPECT_EQ(messagesOf("cgi-bin/a"), "lstat(\"/srv/cgi/a\"): Too many open files\n");
}

TEST_F(SiteRemover, SaysNothingAboutWhatIsNotThere)
{
    EXPECT_EQ(messagesOf("httpdocs/missing"), "");
    EXPECT_EQ(messagesOf("httpdocs/missing/below"), "");
    EXPECT_EQ(messagesOf("private/missing"), "");
    options_.www_root = "/srv/nowhere";
    EXPECT_EQ(messagesOf("httpdocs/x"), "");
}

TEST_F(SiteRemover, ReportsWhatVanishesOnlyAfterTheLook)
{
    makeFile("/srv/web/x", "");
    faults::runBefore("unlinkat", 1, [] { ASSERT_EQ(unlink("/srv/web/x"), 0); });
    EXPECT_EQ(messagesOf("httpdocs/x"), "unlink(\"/srv/web/x\"): No such file or directory\n");
}

TEST_F(SiteRemover, LooksBeforeItRemovesAndCallsNothingTwice)
{
    makeDir("/srv/web/d");
    faults::clear();
    EXPECT_EQ(messagesOf("httpdocs/d"), "");
    EXPECT_EQ(faults::calls("fstatat"), 1);
    EXPECT_EQ(faults::calls("unlinkat"), 1);
}

TEST_F(SiteRemover, WritesAPathAsItIsIntoItsMessages)
{
    makeDirs("/srv/web/a&b \"%1%\"/x");
    EXPECT_EQ(messagesOf("httpdocs/a&b \"%1%\""),
        "rmdir(\"/srv/web/a&b \"%1%\"\"): Directory not empty\n");
}

TEST_F(SiteRemover, KeepsTheSiteDirectoriesThemselves)
{
    for (const char* name : {"cgi-bin", "private", "httpsdocs", "httpdocs"}) {
        makeDir(host + '/' + name);
        faults::clear();
        EXPECT_EQ(messagesOf(name), "");
        EXPECT_EQ(faults::calls("fstatat"), 0) << name;
        EXPECT_TRUE(exists(host + '/' + name));
    }
    EXPECT_TRUE(exists("/srv/web"));
    EXPECT_TRUE(exists("/srv/cgi"));
}

TEST_F(SiteRemover, KeepsNothingElseOfTheirNames)
{
    for (const char* name : {"httpdocs", "private", "httpsdocs", "cgi-bin"}) {
        makeDir(std::string("/srv/web/") + name);
        EXPECT_EQ(messagesOf(std::string("httpdocs/") + name), "");
    }
    EXPECT_EQ(treeOf("/srv/web"), emptyDirectory);
    makeDir(host + "/conf");
    makeDir(host + "/error_docs");
    makeDir(host + "/private2");
    for (const char* name : {"conf", "error_docs", "private2"}) {
        EXPECT_EQ(messagesOf(name), "");
    }
    EXPECT_EQ(treeOf(host), emptyDirectory);
}

TEST_F(SiteRemover, TakesASiteDirectoryWithASeparatorBehindItAsADirectoryToRemove)
{
    makeDir(host + "/private");
    EXPECT_EQ(messagesOf("httpdocs/"), "rmdir(\"/srv/web/.\"): Invalid argument\n");
    EXPECT_EQ(messagesOf("cgi-bin/."), "rmdir(\"/srv/cgi/.\"): Invalid argument\n");
    EXPECT_EQ(messagesOf("private/."), "rmdir(\"" + host + "/private/.\"): Invalid argument\n");
    EXPECT_TRUE(exists("/srv/web"));
    EXPECT_TRUE(exists("/srv/cgi"));
    EXPECT_TRUE(exists(host + "/private"));
}

TEST_F(SiteRemover, LeavesTheCgiDirectoryAloneWhenItIsToBeSkipped)
{
    makeFile("/srv/cgi/x", "");
    options_.skip_cgi_bin = 1;
    EXPECT_EQ(messagesOf("cgi-bin/x"), "");
    EXPECT_EQ(treeOf("/srv/cgi"), fileInside);
    options_.skip_cgi_bin = 0;
    EXPECT_EQ(messagesOf("cgi-bin/x"), "");
    EXPECT_EQ(treeOf("/srv/cgi"), emptyDirectory);
}

TEST_F(SiteRemover, LeavesErrorDocsAloneWhenTheyAreToBeSkipped)
{
    makeDirs(host + "/error_docs/d");
    options_.skip_error_docs = 1;
    EXPECT_EQ(messagesOf("error_docs/d"), "");
    EXPECT_TRUE(exists(host + "/error_docs/d"));
    options_.skip_error_docs = 0;
    EXPECT_EQ(messagesOf("error_docs/d"), "");
    EXPECT_FALSE(exists(host + "/error_docs/d"));
}

TEST_F(SiteRemover, DoesNotAskWhetherTheDocumentRootIsSkipped)
{
    makeFile("/srv/web/x", "");
    options_.skip_www_root = 1;
    EXPECT_EQ(messagesOf("httpdocs/x"), "");
    EXPECT_EQ(treeOf("/srv/web"), emptyDirectory);
}

TEST_F(SiteRemover, RemovesNothingThroughAnOptionThatIsEmpty)
{
    makeFile("/srv/x", "");
    makeFile("/srv/httpdocs", "");
    ASSERT_EQ(chdir("/srv"), 0);
    options_.www_root = "";
    options_.cgi_bin_path = nullptr;
    for (const char* entry : {"httpdocs/x", "cgi-bin/x", "httpdocs/../x", "httpdocs/x/y"}) {
        EXPECT_EQ(messagesOf(entry), "");
    }
    EXPECT_TRUE(exists("/srv/x"));
    ASSERT_EQ(chdir("/"), 0);
}

TEST_F(SiteRemover, FindsRelativeTreesFromTheWorkingDirectory)
{
    makeFile("/srv/web/x", "");
    makeDirs("/srv/conf");
    ASSERT_EQ(chdir("/srv"), 0);
    options_.www_root = "web";
    EXPECT_EQ(messagesOf("httpdocs/x"), "");
    EXPECT_EQ(errorsOf([&] { zelto::removeEntry(zelto::SiteRemover("", options_), "conf"); }), "");
    ASSERT_EQ(chdir("/"), 0);
    EXPECT_EQ(treeOf("/srv/web"), emptyDirectory);
    EXPECT_FALSE(exists("/srv/conf"));
}

TEST_F(SiteRemover, TakesTheEmptyEntryAsTheVirtualHostItself)
{
    makeDir(host + "/conf");
    EXPECT_EQ(messagesOf(""), "rmdir(\"" + host + "\"): Directory not empty\n");
    ASSERT_EQ(rmdir((host + "/conf").c_str()), 0);
    EXPECT_EQ(messagesOf("/"), "");
    EXPECT_FALSE(exists(host));
}

TEST_F(SiteRemover, KeepsAnAbsoluteEntryBelowTheVirtualHost)
{
    makeDirs("/srv/victim/d");
    makeDirs(host + "/srv/victim/d");
    EXPECT_EQ(messagesOf("/srv/victim/d"), "");
    EXPECT_EQ(messagesOf("//srv/victim"), "");
    EXPECT_EQ(treeOf(host), "dir  0755 root:root .\ndir  0755 root:root srv\n");
    EXPECT_TRUE(exists("/srv/victim/d"));
}

TEST_F(SiteRemover, TakesASeparatorBehindAnEntryAsTheDirectoryItMustBe)
{
    makeDirs(host + "/conf/d");
    makeFile(host + "/conf/file", "");
    makeLink(host + "/conf/link", "d");
    EXPECT_EQ(messagesOf("conf/file/"), "lstat(\"" + host + "/conf/file/\"): Not a directory\n");
    EXPECT_EQ(messagesOf("conf/link/"), "rmdir(\"" + host + "/conf/link/\"): Not a directory\n");
    EXPECT_TRUE(exists(host + "/conf/d"));
    EXPECT_EQ(messagesOf("conf//d//"), "");
    EXPECT_FALSE(exists(host + "/conf/d"));
}

TEST_F(SiteRemover, RefusesAPathThatLeadsAboveItsBase)
{
    makeFile("/srv/x", "");
    makeDirs("/srv/web/app");
    makeFile("/srv/web/app/x", "");
    makeFile("/srv/www/vhosts/x", "");
    for (const char* below : {"..", "../x", "../web", "app/../../x", "missing/../../x", "./../x",
             "./..", "../cgi/x", "app/../../web/app/x", "../"}) {
        EXPECT_EQ(messagesOf(std::string("httpdocs/") + below),
            "lstat(\"/srv/web/" + std::string(below) + (below == std::string("../") ? "." : "") +
                "\"): Operation not permitted\n");
    }
    EXPECT_EQ(messagesOf("../x"), "lstat(\"" + host + "/../x\"): Operation not permitted\n");
    EXPECT_EQ(messagesOf("/../x"), "lstat(\"" + host + "/../x\"): Operation not permitted\n");
    EXPECT_EQ(messagesOf("private/../../x"),
        "lstat(\"" + host + "/private/../../x\"): Operation not permitted\n");
    EXPECT_TRUE(exists("/srv/x"));
    EXPECT_TRUE(exists("/srv/web/app/x"));
    EXPECT_TRUE(exists("/srv/www/vhosts/x"));
}

TEST_F(SiteRemover, GoesBackWithinItsBase)
{
    makeDirs("/srv/web/app/lib");
    makeFile("/srv/web/a", "");
    makeFile("/srv/web/app/b", "");
    makeFile("/srv/web/c..d", "");
    makeDirs(host + "/conf");
    makeFile(host + "/y", "");
    EXPECT_EQ(messagesOf("httpdocs/app/../a"), "");
    EXPECT_EQ(messagesOf("httpdocs/app/lib/.././../app/./b"), "");
    EXPECT_EQ(messagesOf("httpdocs/c..d"), "");
    EXPECT_EQ(messagesOf("conf/../y"), "");
    EXPECT_EQ(treeOf("/srv/web"),
        "dir  0755 root:root .\ndir  0755 root:root app\ndir  0755 root:root app/lib\n");
    EXPECT_EQ(treeOf(host), "dir  0755 root:root .\ndir  0755 root:root conf\n");
}

TEST_F(SiteRemover, GoesBackOnlyFromADirectoryThatIsThere)
{
    makeFile("/srv/web/x", "");
    EXPECT_EQ(messagesOf("httpdocs/missing/../x"), "");
    EXPECT_EQ(messagesOf("httpdocs/x/../x"), "lstat(\"/srv/web/x/../x\"): Not a directory\n");
    EXPECT_TRUE(exists("/srv/web/x"));
}

TEST_F(SiteRemover, NeverRemovesADirectoryByTheNameOfItsParent)
{
    makeDirs("/srv/web/app/d");
    EXPECT_EQ(messagesOf("httpdocs/app/.."), "rmdir(\"/srv/web/app/..\"): Directory not empty\n");
    EXPECT_EQ(
        messagesOf("httpdocs/app/d/.."), "rmdir(\"/srv/web/app/d/..\"): Directory not empty\n");
    EXPECT_TRUE(exists("/srv/web/app/d"));
}

TEST_F(SiteRemover, ReportsAPathThatIsTooLong)
{
    const std::string longName(256, 'n');
    EXPECT_EQ(messagesOf("httpdocs/" + longName),
        "lstat(\"/srv/web/" + longName + "\"): File name too long\n");
    std::string longest;
    while (longest.size() < 4095 - sizeof "/srv/web") {
        longest += "a/";
    }
    longest.resize(4095 - sizeof "/srv/web", 'x');
    longest.back() = 'x';
    EXPECT_EQ(messagesOf("httpdocs/" + longest), "");
    EXPECT_EQ(messagesOf("httpdocs/" + longest + 'x'),
        "lstat(\"/srv/web/" + longest + "x\"): File name too long\n");
}

TEST_F(SiteRemover, RefusesAPathWithANulByte)
{
    makeFile("/srv/web/a", "");
    const std::string text("httpdocs/a\0b", 12);
    EXPECT_EQ(messagesOf(text), std::string("lstat(\"/srv/web/a\0b\"): Invalid argument\n", 40));
    EXPECT_TRUE(exists("/srv/web/a"));
}

TEST_F(SiteRemover, RefusesATreeWithANulByte)
{
    makeFile("/srv/web/a", "");
    makeFile("/srv/cgi/a", "");
    zelto::SiteRemover remover(host, options_);
    remover.www_root.append("\0x", 2);
    remover.cgi_bin_path.append("\0x", 2);
    EXPECT_EQ(errorsOf([&] { zelto::removeEntry(remover, "httpdocs/a"); }),
        std::string("lstat(\"/srv/web\0x/a\"): Invalid argument\n", 40));
    EXPECT_EQ(errorsOf([&] { zelto::removeEntry(remover, "cgi-bin/a"); }),
        std::string("lstat(\"/srv/cgi\0x/a\"): Invalid argument\n", 40));
    EXPECT_TRUE(exists("/srv/web/a"));
    EXPECT_TRUE(exists("/srv/cgi/a"));
}

TEST_F(SiteRemover, RemovesBytesThatAreNoText)
{
    makeFile("/srv/web/\xff\xfe\n", "");
    EXPECT_EQ(messagesOf("httpdocs/\xff\xfe\n"), "");
    EXPECT_EQ(treeOf("/srv/web"), emptyDirectory);
}

TEST_F(SiteRemover, LeavesNoDescriptorOpen)
{
    makeDirs("/srv/web/a/b");
    makeFile("/srv/web/a/b/x", "");
    const size_t before = openDescriptors();
    EXPECT_EQ(messagesOf("httpdocs/a/b/../b/x"), "");
    EXPECT_EQ(messagesOf("httpdocs/a/b/missing/x"), "");
    EXPECT_EQ(openDescriptors(), before);
}
