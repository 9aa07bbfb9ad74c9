#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "site/BaseDirectory.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

namespace
{

class BaseDirectory : public World
{
protected:
    static constexpr const char* made = "made";
    static constexpr const char* thereAlready = "there already";

    BaseDirectory() { makeDir("/srv/w"); }

    /// What came of making a base: it is made, there already, or the text of the exception. What is
    /// made is finished with the mode that mkdir(2) would give it.
    static std::string make(const std::string& base)
    {
        const size_t before = openDescriptors();
        std::string result = resultOf([&] {
            NewDirectory directory = zelto::makeBaseDirectory(base);
            if (!directory) {
                return false;
            }
            EXPECT_EQ(directory.giveMode((0777 & ~mask()) | directory.inheritedMode()), 0);
            return true;
        });
        EXPECT_EQ(openDescriptors(), before) << base;
        return result;
    }

    /// The same by boost, whose texts and results are to be had for each base.
    static std::string makeByBoost(const std::string& base)
    {
        return resultOf([&] { return boost::filesystem::create_directories(base); });
    }

    /// A link that the site's user put there.
    static void plantLink(const std::string& path, const std::string& target)
    {
        makeLink(path, target);
        EXPECT_EQ(lchown(path.c_str(), site, users), 0);
    }

    faults::Guard guard_;

private:
    static mode_t mask()
    {
        const mode_t mask = umask(0);
        (void)umask(mask);
        return mask;
    }

    static std::string resultOf(const std::function<bool()>& body)
    {
        try {
            return body() ? made : thereAlready;
        } catch (const boost::filesystem::filesystem_error& error) {
            return error.what();
        }
    }
};

/// Both ways to make a base, each in a world of its own that is the same: the results and the trees
/// that they leave.
class BaseDirectoryLikeBoost : public BaseDirectory
{
protected:
    static void makeScene()
    {
        (void)std::filesystem::remove_all("/srv/w");
        makeDirs("/srv/w/real/below");
        makeFile("/srv/w/file", "");
        makeLink("/srv/w/link", "real");
        makeLink("/srv/w/absolute", "/srv/w/real/below");
        makeLink("/srv/w/dangling", "nowhere");
        makeLink("/srv/w/through", "dangling/x");
        makeLink("/srv/w/loop", "loop");
        makeDir("/srv/w/closed", {0700});
        makeDir("/srv/w/passing", {02755, 0, users});
    }

    using Make = std::string (*)(const std::string& base);

    static std::string outcomeOf(
        Make make, const std::string& base, const std::function<void()>& enter)
    {
        makeScene();
        const Outcome outcome = inChild([&] {
            enter();
            (void)std::fputs(make(base).c_str(), stdout);
        });
        EXPECT_EQ(outcome.err, "");
        return outcome.out + '\n' + treeOf("/srv/w");
    }

    /// Compares both for the names that are missing, found, or in the way, in front of the scene
    /// and from within.
    static void compare(const std::vector<const char*>& names, const std::function<void()>& enter)
    {
        for (const std::string prefix : {"/srv/w/", "/srv/./w//", "", "./"}) {
            for (const char* name : names) {
                const std::string base = prefix + name;
                EXPECT_EQ(outcomeOf(make, base, enter), outcomeOf(makeByBoost, base, enter))
                    << base;
            }
        }
    }

    static void stayRoot() { EXPECT_EQ(chdir("/srv/w"), 0); }
};

} // namespace

TEST_F(BaseDirectoryLikeBoost, MissingNamesAreMade)
{
    compare({"x", "x/y", "x/y/z", "x/", "x//y///", "x/.", "x/./y", "real/x", "real/x/y",
                "passing/x", "passing/x/y"},
        stayRoot);
}

TEST_F(BaseDirectoryLikeBoost, WhatIsThereIsKept)
{
    compare({"real", "real/", "real/.", "real//below", "link", "link/", "link/below", "absolute",
                ".", "./", "../w", "real/..", "link/..", "real/below/../.."},
        stayRoot);
}

TEST_F(BaseDirectoryLikeBoost, LinksOfRootAreFollowed)
{
    compare({"link/x", "link/x/y", "absolute/x", "absolute/x/y", "link/below/x"}, stayRoot);
}

TEST_F(BaseDirectoryLikeBoost, TheWayMayGoBack)
{
    compare({"real/../x", "real/../x/y", "x/../y", "x/y/../../z", "../w/x", "real/below/../x"},
        stayRoot);
}

TEST_F(BaseDirectoryLikeBoost, AWayThatEndsByGoingBackLeadsToADirectoryThatIsThere)
{
    for (const char* base : {"x/..", "x/y/../..", "x/../..", "/srv/w/x/..", "real/x/../"}) {
        const std::string byBoost = outcomeOf(makeByBoost, base, stayRoot);
        // Boost means the directory that it made on the way.
        EXPECT_EQ(outcomeOf(make, base, stayRoot),
            thereAlready + byBoost.substr(std::string(made).size()))
            << base;
    }
}

TEST_F(BaseDirectoryLikeBoost, WhatIsInTheWayIsAnError)
{
    compare({"file", "file/", "file/x", "dangling", "dangling/", "dangling/x", "dangling/x/y",
                "through", "through/x", "loop", "loop/", "loop/x", "loop/x/y"},
        stayRoot);
}

TEST_F(BaseDirectoryLikeBoost, NamesThatAreTooLongAreAnError)
{
    const std::string name(256, 'n');
    const std::string deep = name + "/x";
    const std::string last = "x/" + name;
    compare({name.c_str(), deep.c_str(), last.c_str()}, stayRoot);
}

TEST_F(BaseDirectoryLikeBoost, TwoSlashesInFrontAreOne)
{
    for (const char* base : {"//srv/w/x", "//srv/w/x/y", "//srv/w/real", "///srv/w/x/y"}) {
        EXPECT_EQ(outcomeOf(make, base, stayRoot), outcomeOf(makeByBoost, base, stayRoot)) << base;
    }
}

TEST_F(BaseDirectoryLikeBoost, NoNameIsAnError)
{
    EXPECT_EQ(make(""), "boost::filesystem::create_directories: Invalid argument");
    EXPECT_EQ(makeByBoost(""), "boost::filesystem::create_directories: Invalid argument");
}

TEST_F(BaseDirectoryLikeBoost, APermissionThatIsMissingIsAnError)
{
    compare({"x", "x/", "x/y", "x/y/", "x/y/.", "x/y/z", "real/x", "real/x/y", "closed/x",
                "closed/x/", "closed/x/y", "link/x/y"},
        [] {
            stayRoot();
            EXPECT_EQ(setgid(users), 0);
            EXPECT_EQ(setuid(site), 0);
        });
}

TEST_F(BaseDirectoryLikeBoost, AFileSystemThatIsOnlyReadIsAnError)
{
    // In the child's own mount namespace: the scene can still be made anew.
    compare({"x", "x/", "x/y", "x/y//", "x/y/z", "real", "real/x", "real/x/y", "dangling/x",
                "dangling"},
        [] {
            EXPECT_EQ(unshare(CLONE_NEWNS), 0);
            EXPECT_EQ(mount("/srv/w", "/srv/w", "none", MS_BIND, nullptr), 0);
            EXPECT_EQ(mount("", "/srv/w", "none", MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
            stayRoot();
        });
}

// --- what is made ---

TEST_F(BaseDirectory, ParentsGetWhatTheUmaskLeavesAndTheLastIsUnfinished)
{
    umask(002);
    {
        const NewDirectory last = zelto::makeBaseDirectory("/srv/w/a/b/web");
        EXPECT_TRUE(static_cast<bool>(last));
        EXPECT_EQ(last.inheritedMode(), 0U);
    }
    EXPECT_EQ(treeOf("/srv/w"), "dir  0755 root:root .\n"
                                "dir  0775 root:root a\n"
                                "dir  0775 root:root a/b\n"
                                "dir  1000 root:root a/b/web\n");
}

TEST_F(BaseDirectory, AParentPassesItsGroupOn)
{
    makeDir("/srv/w/passing", {02755, site, users});
    {
        const NewDirectory last = zelto::makeBaseDirectory("/srv/w/passing/a/web");
        EXPECT_EQ(last.inheritedMode(), static_cast<mode_t>(S_ISGID));
    }
    EXPECT_EQ(treeOf("/srv/w/passing"), "dir  2755 site:users .\n"
                                        "dir  2755 root:users a\n"
                                        "dir  3000 root:users a/web\n");
}

TEST_F(BaseDirectory, OneThatIsUnfinishedIsGivenToBeFinished)
{
    makeDir("/srv/w/web", {01000});
    for (const char* base : {"/srv/w/web", "/srv/w/web/", "/srv/w/../w/web", "/srv/w/web/."}) {
        EXPECT_TRUE(static_cast<bool>(zelto::makeBaseDirectory(base))) << base;
        EXPECT_EQ(accessOf("/srv/w/web"), "1000 root:root") << base;
    }
    EXPECT_EQ(make("/srv/w/web"), made);
    EXPECT_EQ(accessOf("/srv/w/web"), "0755 root:root");
    EXPECT_EQ(make("/srv/w/web"), thereAlready);
}

TEST_F(BaseDirectory, SomebodyElsesIsThereAlreadyWhateverItsMode)
{
    makeDir("/srv/w/web", {01000, site, users});
    EXPECT_EQ(make("/srv/w/web"), thereAlready);
    EXPECT_EQ(accessOf("/srv/w/web"), "1000 site:users");
}

TEST_F(BaseDirectory, OnlyTheLastIsUnfinishedAndNotOneOnTheWay)
{
    makeDir("/srv/w/a", {01000});
    EXPECT_EQ(make("/srv/w/a/web"), made);
    EXPECT_EQ(accessOf("/srv/w/a"), "1000 root:root");
}

TEST_F(BaseDirectory, AThousandLevelsCostFewDescriptors)
{
    std::string base = "/srv/w";
    for (int level = 0; level < 1000; ++level) {
        base += "/d";
    }
    const size_t before = openDescriptors();
    static size_t during;
    faults::runBefore("mkdirat", 1000, [] { during = openDescriptors(); });
    EXPECT_EQ(make(base), made);
    EXPECT_LE(during, before + 33);
    EXPECT_TRUE(exists(base));
}

// --- links of somebody else ---

TEST_F(BaseDirectory, IsNotMadeThroughALinkOfSomebodyElse)
{
    makeDirs("/srv/outside/deep");
    plantLink("/srv/w/theirs", "/srv/outside");
    makeLink("/srv/w/ours", "theirs");
    const std::string outside = treeOf("/srv/outside");
    for (const std::string base : {"/srv/w/theirs/x", "/srv/w/theirs/x/y", "/srv/w/theirs/deep/x",
             "/srv/w/ours/x", "/srv/w/theirs/../x", "/srv/w/./theirs//x"}) {
        EXPECT_EQ(make(base),
            "boost::filesystem::create_directory: Too many levels of symbolic links: \"" + base +
                '"');
    }
    EXPECT_EQ(treeOf("/srv/outside"), outside);
    EXPECT_FALSE(exists("/srv/w/x"));
}

TEST_F(BaseDirectory, ALinkOfSomebodyElseInItsPlaceIsInTheWay)
{
    makeDirs("/srv/outside");
    plantLink("/srv/w/web", "/srv/outside");
    makeLink("/srv/w/ours", "web");
    plantLink("/srv/w/dangling", "/srv/nowhere");
    for (const std::string base : {"/srv/w/web", "/srv/w/ours", "/srv/w/dangling"}) {
        EXPECT_EQ(make(base), "boost::filesystem::create_directory: File exists: \"" + base + '"');
    }
    EXPECT_FALSE(exists("/srv/nowhere"));
}

TEST_F(BaseDirectory, AUsersOwnLinksAreFollowedForThatUser)
{
    makeDir("/srv/w/home", {0755, site, users});
    makeDir("/srv/w/home/real", {0755, site, users});
    plantLink("/srv/w/home/link", "real");
    const Outcome outcome = inChild([] {
        if (setgid(users) == 0 && setuid(site) == 0) {
            (void)std::fputs(make("/srv/w/home/link/a/b").c_str(), stdout);
        }
    });
    EXPECT_EQ(outcome.out, made);
    EXPECT_EQ(accessOf("/srv/w/home/real/a/b"), "0755 site:users");
}

// --- what changes meanwhile ---

TEST_F(BaseDirectory, ADirectoryThatAppearsInItsPlaceMeanwhileIsKept)
{
    faults::runBefore("mkdirat", 1, [] { makeDir("/srv/w/web", {0711, site, users}); });
    EXPECT_EQ(make("/srv/w/web"), thereAlready);
    EXPECT_EQ(accessOf("/srv/w/web"), "0711 site:users");
}

TEST_F(BaseDirectory, AParentThatAppearsMeanwhileIsKeptAndGoneThrough)
{
    faults::runBefore("mkdirat", 1, [] { makeDir("/srv/w/a", {0711, site, users}); });
    EXPECT_EQ(make("/srv/w/a/web"), made);
    EXPECT_EQ(treeOf("/srv/w"), "dir  0755 root:root .\n"
                                "dir  0711 site:users a\n"
                                "dir  0755 root:root a/web\n");
}

TEST_F(BaseDirectory, AParentThatIsExchangedForALinkIsNotGoneThrough)
{
    makeDirs("/srv/outside");
    // "srv", "w" and, in vain, "a" have been opened; now that it is made it is opened again.
    faults::runBefore("openat", 4, [] {
        ASSERT_EQ(rename("/srv/w/a", "/srv/w/moved"), 0);
        plantLink("/srv/w/a", "/srv/outside");
    });
    EXPECT_EQ(make("/srv/w/a/web"),
        "boost::filesystem::create_directory: Too many levels of symbolic links: "
        "\"/srv/w/a/web\"");
    EXPECT_EQ(treeOf("/srv/outside"), "dir  0755 root:root .\n");
}

TEST_F(BaseDirectory, TheWayBackIsToWhereItCameFromWhateverHasMovedMeanwhile)
{
    makeDirs("/srv/w/a");
    makeDirs("/srv/elsewhere");
    // "srv", "w" and "a" have been opened.
    faults::runBefore("openat", 4, [] { ASSERT_EQ(rename("/srv/w/a", "/srv/elsewhere/a"), 0); });
    EXPECT_EQ(make("/srv/w/a/../web"), made);
    EXPECT_TRUE(exists("/srv/w/web"));
    EXPECT_FALSE(exists("/srv/elsewhere/web"));
}

TEST_F(BaseDirectory, TheWayBackFromALinkOfRootIsFromWhereItLeads)
{
    makeDirs("/srv/elsewhere/deep");
    makeLink("/srv/w/link", "/srv/elsewhere/deep");
    EXPECT_EQ(make("/srv/w/link/../web"), made);
    EXPECT_EQ(accessOf("/srv/elsewhere/web"), "0755 root:root");
    EXPECT_FALSE(exists("/srv/w/web"));
}

TEST_F(BaseDirectory, WhatIsPutInItsPlaceMeanwhileIsNotTouched)
{
    makeDir("/srv/outside", {0755, site, users});
    static void (*exchange)();
    const auto makeExchanged = [](void (*body)()) {
        (void)std::filesystem::remove_all("/srv/w/web");
        (void)std::filesystem::remove_all("/srv/w/moved");
        exchange = body;
        faults::clear();
        // After it was made, when it is to be held.
        faults::runBefore("mkdirat", 1, [] {
            faults::runBefore("openat", 1, [] {
                ASSERT_EQ(rename("/srv/w/web", "/srv/w/moved"), 0);
                exchange();
            });
        });
        return make("/srv/w/web");
    };
    EXPECT_EQ(makeExchanged([] { makeDir("/srv/w/web", {0711, site, users}); }), thereAlready);
    EXPECT_EQ(accessOf("/srv/w/web"), "0711 site:users");
    EXPECT_NE(makeExchanged([] { plantLink("/srv/w/web", "/srv/outside"); }), made);
    EXPECT_EQ(accessOf("/srv/outside"), "0755 site:users");
    EXPECT_EQ(accessOf("/srv/w/moved"), "1000 root:root");
}

TEST_F(BaseDirectory, AWayThatCannotBeOpenedIsAnError)
{
    faults::failAlways("open", EMFILE);
    EXPECT_EQ(make("/srv/w/web"),
        "boost::filesystem::create_directory: Too many open files: \"/srv/w/web\"");
    faults::clear();
    faults::failAlways("openat", EMFILE);
    EXPECT_EQ(make("/srv/w/web"),
        "boost::filesystem::create_directory: Too many open files: \"/srv/w/web\"");
    EXPECT_FALSE(exists("/srv/w/web"));
}
