#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <ostream>
#include <sys/stat.h>
#include <unistd.h>

#include "site/TreeListing.h"
#include "tests/site/DescriptorFixture.h"

namespace
{

/// The kinds of mounts, and the calls that tell them: openat2(2), and statx(2) where that is
/// missing.
struct Case {
    const char* name;
    bool bind;        ///< of the same file system, which no device number gives away
    int openat2Error; ///< 0 = it is there
    int statxError;   ///< the same

    friend std::ostream& operator<<(std::ostream& out, const Case& shown)
    {
        return out << shown.name;
    }
};

/// "d" of the document root holds a file and the mount point "m", and there is a file in that.
class MountPointsInSites : public SiteRemoval, public ::testing::WithParamInterface<Case>
{
protected:
    static constexpr const char* place = "/srv/web/d/m";

    MountPointsInSites()
    {
        makeDirs("/srv/elsewhere");
        makeFile("/srv/web/file", "");
        mountAt(place);
        makeFile("/srv/web/d/file", "");
    }

    void mountAt(const std::string& path)
    {
        mount_.reset();
        makeDirs(path);
        if (GetParam().bind) {
            mount_.emplace("/srv/elsewhere", path);
        } else {
            mount_.emplace(path);
        }
        makeDirs(path + "/d");
        makeFile(path + "/d/kept", "kept");
        makeFile(path + "/kept", "kept");
        mounted_ = treeOf(path);
    }

    /// What is reported while the body runs on such a system.
    template<class Body>
    static std::string messagesWhile(Body body)
    {
        const Outcome end = inChild([&] {
            if (GetParam().openat2Error != 0) {
                faults::failAlways("openat2", GetParam().openat2Error);
            }
            if (GetParam().statxError != 0) {
                faults::failAlways("statx", GetParam().statxError);
            }
            body();
        });
        EXPECT_EQ(end.status, 0);
        return end.err;
    }

    std::string messagesOfEmptyingAll() const
    {
        return messagesWhile([this] { (void)zelto::emptySiteDirectories(host, options_); });
    }

    std::string messagesOfOne(const char* entry) const
    {
        return messagesWhile(
            [&] { zelto::removeEntry(zelto::SiteRemover(host, options_), entry); });
    }

    std::string messagesOfInstance(const char* files, const char* subdirectory) const
    {
        std::string messages;
        withInput("<INSTANCE-DATA>" + std::string(files) + "</INSTANCE-DATA>", [&] {
            messages = messagesWhile(
                [&] { zelto::removeApplicationInstance(host, options_, subdirectory); });
        });
        return messages;
    }

    static std::string busy(const std::string& call, const std::string& path)
    {
        return call + "(\"" + path + "\"): Device or resource busy\n";
    }

    void expectUntouched(const std::string& path = place) const
    {
        EXPECT_EQ(treeOf(path), mounted_);
    }

    std::string mounted_;
    std::optional<Mount> mount_;
};

INSTANTIATE_TEST_SUITE_P(Each, MountPointsInSites,
    ::testing::Values(Case{"OtherFileSystem", false, 0, 0}, Case{"SameFileSystem", true, 0, 0},
        Case{"OtherFileSystemOnAnOlderKernel", false, ENOSYS, ENOSYS},
        Case{"SameFileSystemOnAnOlderKernel", true, ENOSYS, ENOSYS},
        Case{"SameFileSystemBehindAFilter", true, EPERM, EPERM},
        Case{"SameFileSystemWithoutOpenat2", true, ENOSYS, 0}),
    [](const auto& parameter) { return std::string(parameter.param.name); });

} // namespace

TEST_P(MountPointsInSites, StayWithWhatIsMountedWhileTheRestIsRemoved)
{
    makeDirs("/srv/web/d/e/f");
    makeDirs("/srv/cgi/d");
    EXPECT_EQ(messagesOfEmptyingAll(),
        busy("rmdir", place) + "rmdir(\"/srv/web/d\"): Directory not empty\n");
    expectUntouched();
    EXPECT_FALSE(exists("/srv/web/d/e"));
    EXPECT_FALSE(exists("/srv/web/d/file"));
    EXPECT_FALSE(exists("/srv/web/file"));
    EXPECT_EQ(treeOf("/srv/cgi"), emptyDirectory);
}

TEST_P(MountPointsInSites, StayInEachOfTheSiteDirectories)
{
    for (const std::string& path : {std::string("/srv/cgi/m"), host + "/private/m"}) {
        mountAt(path);
        EXPECT_EQ(messagesOfEmptyingAll(), busy("rmdir", path));
        expectUntouched(path);
    }
}

TEST_P(MountPointsInSites, AreEmptiedWhenTheyAreTheSiteDirectories)
{
    for (const std::string& path :
        {std::string("/srv/web"), std::string("/srv/cgi"), host + "/private"}) {
        mount_.reset();
        mountAt(path);
        EXPECT_EQ(messagesOfEmptyingAll(), "");
        EXPECT_EQ(treeOf(path), emptyDirectory);
    }
}

TEST_P(MountPointsInSites, StayInASiteDirectoryThatIsOneItself)
{
    mountAt("/srv/web");
    makeDirs("/srv/source");
    makeFile("/srv/source/kept", "kept");
    const Mount inner("/srv/source", "/srv/web/d");
    EXPECT_EQ(messagesOfEmptyingAll(), busy("rmdir", "/srv/web/d"));
    EXPECT_TRUE(exists("/srv/source/kept"));
    EXPECT_FALSE(exists("/srv/web/kept"));
}

TEST_P(MountPointsInSites, KeepAnEntryInThemThatIsNamed)
{
    EXPECT_EQ(messagesOfOne("httpdocs/d/m/kept"), busy("lstat", "/srv/web/d/m/kept"));
    EXPECT_EQ(messagesOfOne("httpdocs/d/m/d/kept"), busy("lstat", "/srv/web/d/m/d/kept"));
    EXPECT_EQ(messagesOfOne("httpdocs/d/m"), busy("rmdir", place));
    expectUntouched();
    EXPECT_EQ(messagesOfOne("httpdocs/d/m/../file"), "");
    EXPECT_FALSE(exists("/srv/web/d/file"));
}

TEST_P(MountPointsInSites, KeepAnEntryThatALinkOfRootLeadsTo)
{
    makeLink("/srv/web/link", "d/m");
    EXPECT_EQ(messagesOfOne("httpdocs/link/kept"), busy("lstat", "/srv/web/link/kept"));
    EXPECT_EQ(messagesOfOne("httpdocs/link/d/kept"), busy("lstat", "/srv/web/link/d/kept"));
    expectUntouched();
}

TEST_P(MountPointsInSites, OfTheVirtualHostKeepTheirEntriesUnlessTheyAreKeptThemselves)
{
    mountAt(host + "/conf");
    EXPECT_EQ(messagesOfOne("conf/kept"), busy("lstat", host + "/conf/kept"));
    EXPECT_EQ(messagesWhile([this] {
        zelto::removeOfKind({2, "kept"}, "conf", zelto::SiteRemover(host, options_));
    }),
        busy("lstat", host + "/conf/kept"));
    expectUntouched(host + "/conf");
    mountAt(host + "/private");
    EXPECT_EQ(messagesOfOne("private/kept"), "");
    EXPECT_EQ(messagesOfOne("/private//d/kept"), "");
    EXPECT_EQ(treeOf(host + "/private"), "dir  0755 root:root .\ndir  0755 root:root d\n");
}

TEST_P(MountPointsInSites, ThatADescriptorNamesAreNotEmptied)
{
    EXPECT_EQ(messagesOfInstance("<SECTION PREFIX='htdocs'><FILE>d/m</FILE><FILE>d/m/kept</FILE>"
                                 "<FILE>file</FILE></SECTION>",
                  "."),
        busy("lstat", "/srv/web/d/m/kept") + busy("rmdir", place));
    expectUntouched();
    EXPECT_FALSE(exists("/srv/web/file"));
}

TEST_P(MountPointsInSites, ThatAnInstanceIsInAreNotEmptied)
{
    EXPECT_EQ(messagesOfInstance("<SECTION PREFIX='htdocs'><FILE>kept</FILE></SECTION>", "d/m"),
        busy("lstat", "/srv/web/d/m/kept") + busy("rmdir", place));
    expectUntouched();
}

TEST_P(MountPointsInSites, AreNotEmptiedThroughTheNamesOfADirectoryThatWasListed)
{
    makeDirs("/srv/web/p/m/d");
    makeFile("/srv/web/p/m/d/kept", "the user's");
    const std::string messages = messagesWhile([this] {
        // The first one removed is "p/m/d/kept", whose directory is held by then.
        faults::runBefore("unlinkat", 1, [] {
            ASSERT_EQ(std::rename("/srv/web/p", "/srv/web/was p"), 0);
            ASSERT_EQ(std::rename("/srv/web/d", "/srv/web/p"), 0);
        });
        (void)zelto::emptySiteDirectories(host, options_);
    });
    EXPECT_EQ(messages, busy("lstat", "/srv/web/p/m/d") + busy("rmdir", "/srv/web/p/m") +
                            "rmdir(\"/srv/web/p\"): Directory not empty\n");
    EXPECT_FALSE(exists("/srv/web/was p/m/d/kept"));
    expectUntouched("/srv/web/p/m");
    ASSERT_EQ(std::rename("/srv/web/p", "/srv/web/d"), 0);
}

TEST_P(MountPointsInSites, AreListedLikeAnythingElseByThoseWhoRemoveNothing)
{
    std::vector<boost::filesystem::path> entries;
    zelto::listTree("/srv/web/d", entries);
    std::sort(entries.begin(), entries.end());
    const std::vector<boost::filesystem::path> whole = {
        "", "file", "m", "m/d", "m/d/kept", "m/kept"};
    EXPECT_EQ(entries, whole);
    entries.clear();
    zelto::listTree("/srv/web", "d/m/d", entries);
    EXPECT_EQ(entries.size(), 2U);
}
