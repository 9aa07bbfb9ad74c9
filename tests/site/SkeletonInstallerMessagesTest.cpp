#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

#include "conf/TerminateHandler.h"
#include "tests/site/SkeletonInstallerFixture.h"

using zelto::installForNameUnderRoot;

TEST_F(SkeletonInstaller, WhatExistsIsMentionedOnlyWhileStandardErrorIsARegularFile)
{
    makeSkeletonFile("conf/f", "new");
    makeLink(skeleton_ + "/conf/l", "f");
    makeDir(subdomain + "/conf");
    makeFile(subdomain + "/conf/f", "old");
    EXPECT_EQ(messages(), "");
    EXPECT_FALSE(writesToATerminal([&] { (void)install(); }));
    EXPECT_EQ(
        allMessages(), alreadyExists(subdomain + "/conf/f") +
                           installer(subdomain + "/conf/l not a file or directory, skipping"));
    EXPECT_EQ(
        treeOf(subdomain + "/conf"), "dir  0755 root:root .\nfile 0644 root:root f \"old\"\n");
}

TEST_F(SkeletonInstaller, AStandardErrorThatCannotBeExaminedCountsAsNoFile)
{
    makeSkeletonFile("conf/f", "new");
    makeDir(subdomain + "/conf");
    makeFile(subdomain + "/conf/f", "old");
    faults::clear();
    faults::fail("fstat", EBADF);
    EXPECT_EQ(allMessages(), "");
}

TEST_F(SkeletonInstaller, AClosedStandardErrorReceivesNothingInItsPlace)
{
    makeSkeletonFile("conf/f", "new");
    makeSkeletonFile("conf/g", "new");
    makeDir(subdomain + "/conf");
    makeFile(subdomain + "/conf/f", "old");
    const Outcome outcome = inChild([&] {
        close(STDERR_FILENO);
        std::_Exit(install() == 0 && contentOf(subdomain + "/conf/f") == "old" ? 0 : 1);
    });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(contentOf(subdomain + "/conf/g"), "new");
}

TEST_F(SkeletonInstaller, AMissingSiteDirectoryIsMentionedOnlyIfItsDestinationExists)
{
    EXPECT_EQ(allMessages(), "");
    makeDir(subdomain + "/anon_ftp");
    EXPECT_EQ(allMessages(), alreadyExists(subdomain + "/anon_ftp"));
    EXPECT_EQ(messages(), "");
}

TEST_F(SkeletonInstaller, EntriesAreCopiedInTheOrderOfTheirComponents)
{
    makeSkeletonFile("httpdocs/a-x");
    makeSkeletonFile("httpdocs/a.b");
    makeSkeletonFile("httpdocs/a/c");
    makeSkeletonFile("conf/z");
    makeSkeletonFile("anon_ftp/z");
    EXPECT_EQ(messages(), "");
    EXPECT_EQ(allMessages(), alreadyExists(subdomain + "/anon_ftp/z") +
                                 alreadyExists(subdomain + "/conf/z") +
                                 alreadyExists("/srv/web/a/c") + alreadyExists("/srv/web/a-x") +
                                 alreadyExists("/srv/web/a.b"));
}

TEST_F(SkeletonInstaller, AListingErrorIsReportedBeforeAMissingGroupStopsTheRest)
{
    removeGroup("kvocln");
    makeSkeletonFile("conf/f");
    makeFile(root + "/.skel/8", "");
    std::string text;
    const std::string errors = errorsOf([&] {
        text = thrownBy([&] { (void)installForNameUnderRoot("new.test", "8", options_); });
    });
    EXPECT_EQ(
        errors.substr(0, errors.find('\n') + 1), root + "/.skel/8/httpdocs: Not a directory\n");
    EXPECT_EQ(errors.find("corbel"), std::string::npos);
    EXPECT_EQ(text, "group kvocln not found");
    EXPECT_EQ(treeOf(root + "/new.test"), emptyDirectory);
}

TEST_F(SkeletonInstaller, AMissingGroupEndsAProcessThatDoesNotCatch)
{
    removeGroup("kvocln");
    makeSkeletonFile("conf/f");
    const Outcome outcome = inChild([&] {
        installTerminateHandler();
        [&]() noexcept { (void)install(); }();
    });
    EXPECT_EQ(outcome.err, "Unexpected error: group kvocln not found\n");
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(treeOf(subdomain), emptyDirectory);
}

TEST_F(SkeletonInstaller, AnUnreadableSkeletonDirectoryIsReportedAndTheOthersAreSeeded)
{
    makeSkeletonFile("conf/before/f");
    makeSkeletonFile("conf/closed/f");
    makeSkeletonFile("conf/open/f");
    makeSkeletonFile("error_docs/404");
    ASSERT_EQ(chmod((skeleton_ + "/conf/closed").c_str(), 0), 0);
    ASSERT_EQ(chown(subdomain.c_str(), site, users), 0);
    options_.skip_cgi_bin = 1;
    const Outcome outcome = inChild([&] {
        if (setgid(users) == 0 && setuid(site) == 0) {
            std::_Exit(static_cast<int>(install()));
        }
    });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(
        outcome.err, "boost::filesystem::directory_iterator::construct: Permission denied: \"" +
                         skeleton_ + "/conf/closed\"\n");
    EXPECT_EQ(treeOf(subdomain), "dir  0755 site:users .\n"
                                 "dir  0755 site:users conf\n"
                                 "dir  0755 site:users conf/before\n"
                                 "file 0644 site:users conf/before/f \"\"\n"
                                 "dir  0000 site:users conf/closed\n"
                                 "dir  0755 site:users conf/open\n"
                                 "file 0644 site:users conf/open/f \"\"\n"
                                 "dir  0755 site:users error_docs\n"
                                 "file 0644 site:users error_docs/404 \"\"\n");
}
