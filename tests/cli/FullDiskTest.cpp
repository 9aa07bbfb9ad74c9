#include <sstream>
#include <sys/mount.h>

#include "tests/cli/Site.h"

namespace
{

/// A creation where the disk is full before it is through.
class FullDisk : public Site
{
protected:
    static constexpr int files = 60;

    /// Files of three pages, in two directories.
    FullDisk()
    {
        makeDirs(skeleton + "/httpdocs/img");
        makeDirs(skeleton + "/conf");
        for (int i = 0; i < files; ++i) {
            for (std::string path : {skeleton + "/httpdocs/img/", skeleton + "/conf/"}) {
                path += std::to_string(i);
                makeFile(path, content(i));
            }
        }
    }

    static std::string content(int number) { return page(number, "@domain_name@"); }
    static std::string filled(int number) { return page(number, "example.test"); }

    /// What the same command makes where there is room.
    static std::string wholeSite()
    {
        expectSilent(run(usualCreation()), 0);
        std::string whole = treeOf(shop);
        EXPECT_EQ(runProgram("/bin/rm", {"rm", "-rf", shop}).status, 0);
        makeDir(shop);
        return whole;
    }

    static void makeRoom()
    {
        ASSERT_EQ(mount("none", shop.c_str(), nullptr, MS_REMOUNT, "size=16m,nr_inodes=1000"), 0);
    }

    /// Expects every file either whole or told as not written, and nothing but files of the site.
    /// Returns how many are missing.
    static int expectWholeOrTold(const Outcome& end)
    {
        int missing = 0;
        for (const std::string directory : {"/httpdocs/img/", "/conf/"}) {
            for (int i = 0; i < files; ++i) {
                const std::string path = shop + directory + std::to_string(i);
                const std::string report =
                    "corbel:InstallSkeleton(): " + path + ": No space left on device\n";
                const bool isTold = end.err.find(report) != std::string::npos;
                EXPECT_NE(exists(path), isTold) << path;
                if (exists(path)) {
                    EXPECT_EQ(contentOf(path), filled(i)) << path;
                }
                missing += isTold ? 1 : 0;
            }
        }
        std::istringstream lines(treeOf(shop));
        for (std::string line; std::getline(lines, line);) {
            EXPECT_EQ(line.find(".new"), std::string::npos) << line;
        }
        return missing;
    }

private:
    static std::string page(int number, const std::string& domain)
    {
        std::string text = std::to_string(number) + " of " + domain;
        text.append(9000, '.');
        return text;
    }
};

} // namespace

TEST_F(FullDisk, LeavesNoHalfFileAndIsToldForEachThatIsMissing)
{
    const std::string whole = wholeSite();
    const PrivateDirectory small(shop, "size=640k");
    const Outcome end = run(usualCreation());
    EXPECT_EQ(end.out, "");
    EXPECT_EQ(end.status, 0);
    const int missing = expectWholeOrTold(end);
    EXPECT_GT(missing, 0);
    EXPECT_LT(missing, 2 * files);

    makeRoom();
    expectSilent(run(usualCreation()), 0);
    EXPECT_EQ(treeOf(shop), whole);
}

TEST_F(FullDisk, WithoutInodesLeavesNoHalfFileAndIsToldForEachThatIsMissing)
{
    const std::string whole = wholeSite();
    const PrivateDirectory small(shop, "nr_inodes=70");
    const Outcome end = run(usualCreation());
    const int missing = expectWholeOrTold(end);
    EXPECT_GT(missing, 0);
    EXPECT_LT(missing, 2 * files);

    makeRoom();
    expectSilent(run(usualCreation()), 0);
    EXPECT_EQ(treeOf(shop), whole);
}

TEST_F(FullDisk, CompletesTheSiteWhereverTheInodesEnd)
{
    const std::string whole = wholeSite();
    for (int inodes = 1; inodes <= 12; ++inodes) {
        const PrivateDirectory small(shop, "nr_inodes=" + std::to_string(inodes));
        const Outcome end = run(usualCreation());
        EXPECT_NE(end.err, "") << inodes;
        makeRoom();
        expectSilent(run(usualCreation()), 0);
        EXPECT_EQ(treeOf(shop), whole) << inodes;
    }
}
