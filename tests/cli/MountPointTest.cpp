#include <sys/mount.h>

#include "fsutil/TreeWalkers.h"
#include "tests/cli/Site.h"

// A removal that came upon a mount point would empty what is mounted there and then fail at the
// mount point itself. It must fail before.

namespace
{

/// Each removal of "shop" is done once by the program and once by the library.
class MountPoint : public Site, public ::testing::WithParamInterface<std::string>
{
protected:
    MountPoint()
    {
        makeDirs(shop + "/httpdocs");
        makeDirs("/srv/backup/deep");
        makeFile("/srv/backup/file", "precious", {0640, other, kvoserv});
        makeFile("/srv/backup/deep/file", "precious");
    }

    static Outcome remove()
    {
        return GetParam() == "TheProgram" ? run(removal())
                                          : inChild([] { removeTree(shop.c_str(), 1); });
    }

    static void mountTmpfs(const std::string& path)
    {
        ASSERT_EQ(mount("private", path.c_str(), "tmpfs", 0, "mode=0755"), 0);
    }

    static void bind(const std::string& what, const std::string& path)
    {
        ASSERT_EQ(mount(what.c_str(), path.c_str(), "none", MS_BIND, nullptr), 0);
    }

    /// The removal ends at the directory, before it has touched anything in it.
    static void expectRefused(const std::string& path, const std::string& reportedAs)
    {
        const std::string before = treeOf(path);
        expectBusy("Unable to remove dir ", reportedAs);
        EXPECT_EQ(treeOf(path), before);
    }

    static void expectBusy(const std::string& step, const std::string& reportedAs)
    {
        const Outcome end = remove();
        const std::string report = (GetParam() == "TheProgram" ? "twigctl: " : "") + step +
                                   reportedAs + ": Device or resource busy\n" +
                                   systemError(16, "Device or resource busy");
        EXPECT_EQ(end.err, report);
        EXPECT_EQ(end.out, report);
        EXPECT_EQ(end.status, 1);
    }
};

INSTANTIATE_TEST_SUITE_P(RemovedBy, MountPoint, ::testing::Values("TheProgram", "TheLibrary"),
    [](const auto& remover) { return remover.param; });

} // namespace

TEST_P(MountPoint, OfAnotherFileSystemIsNotEmptied)
{
    mountTmpfs(shop + "/httpdocs");
    makeFile(shop + "/httpdocs/index.html", "x");
    expectRefused(shop + "/httpdocs", "httpdocs");
}

TEST_P(MountPoint, OfTheSameFileSystemIsNotEmptied)
{
    bind("/srv/backup", shop + "/httpdocs");
    expectRefused(shop + "/httpdocs", "httpdocs");
    EXPECT_EQ(treeOf("/srv/backup"), "dir  0755 root:root .\n"
                                     "dir  0755 root:root deep\n"
                                     "file 0644 root:root deep/file \"precious\"\n"
                                     "file 0640 other:kvoserv file \"precious\"\n");
}

TEST_P(MountPoint, ThatIsEmptyIsRefusedAsWell)
{
    mountTmpfs(shop + "/httpdocs");
    expectRefused(shop + "/httpdocs", "httpdocs");
}

TEST_P(MountPoint, DeeperThanAWalkHoldsDirectoriesOpenIsNotEmptied)
{
    std::string deep = shop + "/httpdocs";
    for (int level = 0; level < 100; ++level) {
        deep += "/d";
    }
    makeDirs(deep + "/busy");
    bind("/srv/backup", deep + "/busy");
    expectRefused(deep + "/busy", "busy");
}

TEST_P(MountPoint, AtTheTopIsNotEmptied)
{
    mountTmpfs(shop);
    makeFile(shop + "/file", "x");
    expectRefused(shop, shop);
}

TEST_P(MountPoint, AtTheTopOfTheSameFileSystemIsNotEmptied)
{
    bind("/srv/backup", shop);
    expectRefused(shop, shop);
}

TEST_P(MountPoint, ThatHoldsTheTreeItselfIsNotEmptied)
{
    bind(subdomains, shop + "/httpdocs");
    expectRefused(subdomains, "httpdocs");
}

TEST_P(MountPoint, OnAMountPointIsNotEmptied)
{
    mountTmpfs(shop + "/httpdocs");
    bind("/srv/backup", shop + "/httpdocs");
    expectRefused(shop + "/httpdocs", "httpdocs");
}

TEST_P(MountPoint, ThatIsAFileIsRefusedByTheStepForEntries)
{
    makeFile(shop + "/httpdocs/busy", "");
    bind("/srv/backup/file", shop + "/httpdocs/busy");
    expectBusy("Unable to unlink directory entry ", "busy");
    EXPECT_EQ(contentOf("/srv/backup/file"), "precious");
}

TEST_P(MountPoint, IsWalkedWhenTheTreeIsOnItAndNotTheOtherWayRound)
{
    mountTmpfs(subdomains);
    makeDirs(shop + "/httpdocs");
    EXPECT_EQ(remove().status, 0);
    EXPECT_EQ(treeOf(subdomains), "dir  0755 root:root .\n");
}
