#include <cerrno>
#include <sys/stat.h>

#include "tests/site/DescriptorFixture.h"

namespace
{

/// The application in "app" of both trees, with neighbours that are none of its business.
class RemoveApplicationInstance : public SiteRemoval
{
protected:
    RemoveApplicationInstance()
    {
        for (const char* tree : {"/srv/web", "/srv/cgi"}) {
            for (const char* place : {"", "/app"}) {
                makeDirs(tree + std::string(place) + "/d");
                makeFile(tree + std::string(place) + "/d/x", "");
                makeFile(tree + std::string(place) + "/f", "");
            }
        }
    }

    /// What is reported while the instance is removed that these sections describe.
    std::string messagesOfRemoving(const std::string& sections, const std::string& subdirectory)
    {
        std::string messages;
        withInput("<INSTANCE-DATA>" + sections + "</INSTANCE-DATA>", [&] {
            messages = errorsIntoAFile(
                [&] { zelto::removeApplicationInstance(host, options_, subdirectory); });
        });
        return messages;
    }

    /// A section of files, each ended by a '|'.
    static std::string section(const std::string& prefix, const std::string& files)
    {
        std::string text = "<SECTION PREFIX='" + prefix + "'>";
        for (size_t begin = 0; begin < files.size(); begin = files.find('|', begin) + 1) {
            const size_t end = files.find('|', begin);
            text += "<FILE>" + files.substr(begin, end - begin) + "</FILE>";
        }
        return text + "</SECTION>";
    }

    static std::string untouched()
    {
        return "dir  0755 root:root .\ndir  0755 root:root app\ndir  0755 root:root app/d\n"
               "file 0644 root:root app/d/x \"\"\nfile 0644 root:root app/f \"\"\n"
               "dir  0755 root:root d\nfile 0644 root:root d/x \"\"\nfile 0644 root:root f \"\"\n";
    }

    static std::string withoutInstance()
    {
        return "dir  0755 root:root .\ndir  0755 root:root d\nfile 0644 root:root d/x \"\"\n"
               "file 0644 root:root f \"\"\n";
    }
};

} // namespace

TEST_F(RemoveApplicationInstance, RemovesTheFilesAndTheSubdirectoryOfTheDocumentRoot)
{
    EXPECT_EQ(messagesOfRemoving(section("htdocs", "d|d/x|f|"), "app"), "");
    EXPECT_EQ(treeOf("/srv/web"), withoutInstance());
    EXPECT_EQ(treeOf("/srv/cgi"), untouched());
}

TEST_F(RemoveApplicationInstance, KeepsTheSubdirectoryOfTheCgiDirectory)
{
    EXPECT_EQ(
        messagesOfRemoving(section("cgi-bin", "d|f|d/x|") + section("htdocs", "f|d/x|d|"), "app"),
        "");
    EXPECT_EQ(treeOf("/srv/web"), withoutInstance());
    EXPECT_EQ(treeOf("/srv/cgi/app"), emptyDirectory);
    EXPECT_TRUE(exists("/srv/cgi/f"));
}

TEST_F(RemoveApplicationInstance, RemovesTheSubdirectoryOfTheCgiDirectoryIfItIsListed)
{
    EXPECT_EQ(
        messagesOfRemoving(
            section("cgi-bin", "<![CDATA[]]>|d/x|f|d|") + section("htdocs", "d|d/x|f|"), "app"),
        "");
    EXPECT_EQ(treeOf("/srv/cgi"), withoutInstance());
}

TEST_F(RemoveApplicationInstance, RemovesNothingButTheSubdirectoryWithoutSections)
{
    EXPECT_EQ(messagesOfRemoving("", "app"), "rmdir(\"/srv/web/app\"): Directory not empty\n");
    EXPECT_EQ(treeOf("/srv/web"), untouched());
    makeDir("/srv/web/empty");
    EXPECT_EQ(messagesOfRemoving("", "empty"), "");
    EXPECT_EQ(treeOf("/srv/web"), untouched());
    EXPECT_EQ(messagesOfRemoving("", "."), "");
    EXPECT_EQ(messagesOfRemoving("", "/"), "");
    EXPECT_EQ(treeOf("/srv/web"), untouched());
}

TEST_F(RemoveApplicationInstance, RemovesFilesAtTheTopAndKeepsTheTrees)
{
    for (const char* top : {".", "/"}) {
        makeDirs("/srv/web/d");
        makeFile("/srv/web/n", "");
        makeFile("/srv/cgi/n", "");
        const std::string files = "n|app/d/x|app/d|app/f|app|d/x|d|f|";
        EXPECT_EQ(
            messagesOfRemoving(section("htdocs", files) + section("cgi-bin", files), top), "");
        EXPECT_EQ(treeOf("/srv/web"), emptyDirectory);
        EXPECT_EQ(treeOf("/srv/cgi"), emptyDirectory);
    }
}

TEST_F(RemoveApplicationInstance, GoesFromTheLastPathToTheFirstTheDocumentRootFirst)
{
    makeFile("/srv/web/app/d-x", "");
    makeFile("/srv/web/app/d.x", "");
    faults::failAlways("unlinkat", EIO);
    EXPECT_EQ(messagesOfRemoving(section("cgi-bin", "d|d/x|") +
                                     section("htdocs", "d-x|d|d.x|d/x|") + section("cgi-bin", "f|"),
                  "app"),
        "unlink(\"/srv/web/app/d.x\"): Input/output error\n"
        "unlink(\"/srv/web/app/d-x\"): Input/output error\n"
        "unlink(\"/srv/web/app/d/x\"): Input/output error\n"
        "rmdir(\"/srv/web/app/d\"): Input/output error\n"
        "rmdir(\"/srv/web/app\"): Input/output error\n"
        "unlink(\"/srv/cgi/app/f\"): Input/output error\n"
        "unlink(\"/srv/cgi/app/d/x\"): Input/output error\n"
        "rmdir(\"/srv/cgi/app/d\"): Input/output error\n");
}

TEST_F(RemoveApplicationInstance, ReportsADirectoryThatHoldsWhatIsNotListedAndGoesOn)
{
    EXPECT_EQ(messagesOfRemoving(section("htdocs", "d|f|missing|"), "."),
        "rmdir(\"/srv/web/d\"): Directory not empty\n");
    EXPECT_FALSE(exists("/srv/web/f"));
    EXPECT_TRUE(exists("/srv/web/d/x"));
}

TEST_F(RemoveApplicationInstance, RemovesWhatIsListedTwiceOnce)
{
    EXPECT_EQ(messagesOfRemoving(section("htdocs", "d/x|d//x|./d/x|d/x|"), "."), "");
    EXPECT_FALSE(exists("/srv/web/d/x"));
}

TEST_F(RemoveApplicationInstance, RemovesNothingIfTheDescriptorIsBad)
{
    for (const char* bad : {"<SECTION/>", "<SECTION PREFIX='x'/>", "<"}) {
        withInput("<INSTANCE-DATA>" + section("htdocs", "f|") + bad + "</INSTANCE-DATA>", [&] {
            (void)outputOf([&] {
                EXPECT_THROW(
                    zelto::removeApplicationInstance(host, options_, "app"), std::runtime_error);
            });
        });
    }
    EXPECT_EQ(treeOf("/srv/web"), untouched());
}

TEST_F(RemoveApplicationInstance, LeavesTheCgiDirectoryAloneWhenItIsToBeSkipped)
{
    options_.skip_cgi_bin = 1;
    options_.skip_www_root = 1;
    EXPECT_EQ(messagesOfRemoving(section("cgi-bin", "f|../f|") + section("htdocs", "f|"), "app"),
        "rmdir(\"/srv/web/app\"): Directory not empty\n");
    EXPECT_EQ(treeOf("/srv/cgi"), untouched());
    EXPECT_FALSE(exists("/srv/web/app/f"));
}

TEST_F(RemoveApplicationInstance, TakesASubdirectoryWithSeparators)
{
    EXPECT_EQ(messagesOfRemoving(section("htdocs", "f|d/x|d|"), "app/"),
        "rmdir(\"/srv/web/app/.\"): Invalid argument\n");
    EXPECT_EQ(treeOf("/srv/web/app"), emptyDirectory);
    makeDirs("/srv/web/a/b");
    EXPECT_EQ(messagesOfRemoving("", "a/b"), "");
    EXPECT_EQ(treeOf("/srv/web/a"), emptyDirectory);
    EXPECT_EQ(messagesOfRemoving("", "/a"), "");
    EXPECT_FALSE(exists("/srv/web/a"));
}

TEST_F(RemoveApplicationInstance, KeepsAbsolutePathsInTheTree)
{
    makeFile("/srv/f", "");
    EXPECT_EQ(messagesOfRemoving(section("htdocs", "/srv/f|/f|//d/x|"), "/"), "");
    EXPECT_TRUE(exists("/srv/f"));
    EXPECT_FALSE(exists("/srv/web/f"));
    EXPECT_FALSE(exists("/srv/web/d/x"));
}

TEST_F(RemoveApplicationInstance, ReportsPathsThatLeaveTheTreeAndRemovesTheRest)
{
    makeFile("/srv/f", "");
    EXPECT_EQ(
        messagesOfRemoving(
            section("htdocs", "../../f|../f|d/x|d|f|") + section("cgi-bin", "../../web/f|"), "app"),
        "lstat(\"/srv/web/app/../../f\"): Operation not permitted\n"
        "lstat(\"/srv/cgi/app/../../web/f\"): Operation not permitted\n");
    EXPECT_TRUE(exists("/srv/f"));
    EXPECT_FALSE(exists("/srv/web/f"));
    EXPECT_FALSE(exists("/srv/web/app"));
    EXPECT_EQ(messagesOfRemoving(section("htdocs", "f|"), "../../srv"),
        "lstat(\"/srv/web/../../srv/f\"): Operation not permitted\n"
        "lstat(\"/srv/web/../../srv\"): Operation not permitted\n");
}

TEST_F(RemoveApplicationInstance, DoesNotRemoveTheTreesByTheirParentsName)
{
    const std::string trees = "../web|..|../../srv/web|.|d/../..|";
    EXPECT_EQ(messagesOfRemoving(section("htdocs", trees), "."),
        "lstat(\"/srv/web/d/../..\"): Operation not permitted\n"
        "lstat(\"/srv/web/../web\"): Operation not permitted\n"
        "lstat(\"/srv/web/../../srv/web\"): Operation not permitted\n"
        "lstat(\"/srv/web/..\"): Operation not permitted\n"
        "rmdir(\"/srv/web/.\"): Invalid argument\n");
    EXPECT_EQ(treeOf("/srv/web"), untouched());
}

TEST_F(RemoveApplicationInstance, RemovesALinkAndNotItsTarget)
{
    makeDirs("/srv/outside/d");
    makeFile("/srv/outside/f", "");
    plantLink("/srv/web/app/link", "/srv/outside");
    EXPECT_EQ(messagesOfRemoving(section("htdocs", "f|d/x|d|link|link/f|"), "app"),
        "lstat(\"/srv/web/app/link/f\"): Too many levels of symbolic links\n");
    EXPECT_TRUE(exists("/srv/outside/f"));
    EXPECT_EQ(treeOf("/srv/web"), withoutInstance());
}

TEST_F(RemoveApplicationInstance, DoesNotFollowASubdirectoryThatTheUserMadeALink)
{
    makeDirs("/srv/outside");
    makeFile("/srv/outside/f", "");
    plantLink("/srv/web/link", "/srv/outside");
    EXPECT_EQ(messagesOfRemoving(section("htdocs", "f|"), "link"),
        "lstat(\"/srv/web/link/f\"): Too many levels of symbolic links\n");
    EXPECT_TRUE(exists("/srv/outside/f"));
    EXPECT_FALSE(exists("/srv/web/link"));
}

TEST_F(RemoveApplicationInstance, ReportsAPathThatIsTooLong)
{
    const std::string name(1'000'000, 'n');
    EXPECT_EQ(messagesOfRemoving(section("htdocs", name + "|f|"), "."),
        "lstat(\"/srv/web/" + name + "\"): File name too long\n");
    EXPECT_FALSE(exists("/srv/web/f"));
}

TEST_F(RemoveApplicationInstance, RemovesNothingThroughAnOptionThatIsEmpty)
{
    options_.www_root = "";
    EXPECT_EQ(
        messagesOfRemoving(section("htdocs", "srv/web/f|../f|") + section("cgi-bin", "f|"), "."),
        "");
    EXPECT_EQ(treeOf("/srv/web"), untouched());
    EXPECT_FALSE(exists("/srv/cgi/f"));
}

TEST_F(RemoveApplicationInstance, OpensADirectoryOnceForAllOfItsFiles)
{
    std::string files;
    for (int number = 0; number < 100; ++number) {
        makeFile("/srv/web/app/d/" + std::to_string(number), "");
        files += "d/" + std::to_string(number) + '|';
    }
    faults::clear();
    EXPECT_EQ(messagesOfRemoving(section("htdocs", files), "app"),
        "rmdir(\"/srv/web/app\"): Directory not empty\n");
    // "app/d", and the document root for "app".
    EXPECT_EQ(faults::calls("openat2"), 2);
    EXPECT_EQ(faults::calls("openat"), 0);
    EXPECT_EQ(faults::calls("open"), 0);
}

TEST_F(RemoveApplicationInstance, TakesAnEmptySubdirectoryForTheTopOfTheTrees)
{
    makeFile("/srv/web/a", "");
    EXPECT_EQ(messagesOfRemoving("<SECTION PREFIX='htdocs'><FILE>a</FILE></SECTION>", ""), "");
    EXPECT_FALSE(exists("/srv/web/a"));
    EXPECT_TRUE(exists("/srv/web"));
}

TEST_F(RemoveApplicationInstance, LeavesNoDescriptorOpen)
{
    const size_t before = openDescriptors();
    EXPECT_EQ(messagesOfRemoving(section("htdocs", "f|d/../d/x|d|missing/x|"), "app"), "");
    EXPECT_EQ(openDescriptors(), before);
}
