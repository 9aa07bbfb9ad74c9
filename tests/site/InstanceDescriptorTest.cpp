#include <sys/wait.h>

#include "tests/site/DescriptorFixture.h"

namespace
{

constexpr const char* parseError = "XML parse error";
constexpr const char* wrongRoot = "Wrong root node name";
constexpr const char* noPrefix = "Attribute name is required for section";
constexpr const char* badPrefix = "Bad sttribute name value";

std::string readSection(const std::string& section)
{
    return readFrom("<INSTANCE-DATA>" + section + "</INSTANCE-DATA>");
}

} // namespace

TEST(InstanceDescriptor, GivesItsFilesInTheOrderOfTheDocument)
{
    EXPECT_EQ(readFrom("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                       "<INSTANCE-DATA>\n"
                       "  <SECTION PREFIX=\"htdocs\">\n"
                       "    <FILE>index.php</FILE>\n"
                       "    <FILE>images/logo.png</FILE>\n"
                       "    <FILE>images</FILE>\n"
                       "  </SECTION>\n"
                       "  <SECTION PREFIX=\"cgi-bin\"><FILE>counter.cgi</FILE></SECTION>\n"
                       "  <SECTION PREFIX=\"htdocs\"><FILE>a</FILE></SECTION>\n"
                       "</INSTANCE-DATA>\n"),
        "1 index.php|1 images/logo.png|1 images|0 counter.cgi|1 a|");
}

TEST(InstanceDescriptor, MayHoldNothing)
{
    EXPECT_EQ(readFrom("<INSTANCE-DATA/>"), "");
    EXPECT_EQ(readFrom("<INSTANCE-DATA></INSTANCE-DATA>\n"), "");
    EXPECT_EQ(readSection("<SECTION PREFIX=\"htdocs\"/>"), "");
}

TEST(InstanceDescriptor, MustBeWellFormed)
{
    EXPECT_EQ(readFrom(""), parseError);
    EXPECT_EQ(readFrom("\n"), parseError);
    EXPECT_EQ(readFrom("text"), parseError);
    EXPECT_EQ(readFrom("<INSTANCE-DATA>"), parseError);
    EXPECT_EQ(readFrom("<INSTANCE-DATA/><INSTANCE-DATA/>"), parseError);
    EXPECT_EQ(readFrom("<INSTANCE-DATA/>trailing"), parseError);
    EXPECT_EQ(readFiles("<FILE>a</FILE><FILE>&undeclared;</FILE>"), parseError);
    EXPECT_EQ(readFiles("<FILE>a&b</FILE>"), parseError);
    EXPECT_EQ(readFiles("<FILE>a"), parseError);
}

TEST(InstanceDescriptor, NeedsItsRootElement)
{
    EXPECT_EQ(readFrom("<OTHER/>"), wrongRoot);
    EXPECT_EQ(readFrom("<instance-data/>"), wrongRoot);
    EXPECT_EQ(readFrom("<INSTANCE-DATAX/>"), wrongRoot);
    EXPECT_EQ(readFrom("<x><INSTANCE-DATA/></x>"), wrongRoot);
}

TEST(InstanceDescriptor, BeginsWithItsRootElement)
{
    EXPECT_EQ(readFrom("<!--c--><INSTANCE-DATA/>"), wrongRoot);
    EXPECT_EQ(readFrom("<?pi x?><INSTANCE-DATA/>"), wrongRoot);
    EXPECT_EQ(readFrom("<!DOCTYPE x><INSTANCE-DATA/>"), wrongRoot);
    EXPECT_EQ(readFrom("<?xml version=\"1.0\"?><!--c--><INSTANCE-DATA/>"), wrongRoot);
}

TEST(InstanceDescriptor, IsNotTakenInByAnotherNodeOfTheRootsName)
{
    EXPECT_EQ(readFrom("<!DOCTYPE INSTANCE-DATA><INSTANCE-DATA/>"), wrongRoot);
    EXPECT_EQ(readFrom("<!DOCTYPE INSTANCE-DATA []><INSTANCE-DATA/>"), wrongRoot);
    EXPECT_EQ(readFrom("<?INSTANCE-DATA x?><INSTANCE-DATA/>"), wrongRoot);
}

TEST(InstanceDescriptor, MayFollowWhatIsNoNode)
{
    EXPECT_EQ(readFrom("<?xml version=\"1.0\"?><INSTANCE-DATA/>"), "");
    EXPECT_EQ(readFrom("<?xml version=\"1.0\"?>\n \n<INSTANCE-DATA/>"), "");
    EXPECT_EQ(readFrom(" \n\t<INSTANCE-DATA/>"), "");
    EXPECT_EQ(readFrom("\xef\xbb\xbf<INSTANCE-DATA/>"), "");
    EXPECT_EQ(readFrom("<INSTANCE-DATA/><!--c--><?pi x?>\n"), "");
}

TEST(InstanceDescriptor, NeedsThePrefixOfEverySection)
{
    EXPECT_EQ(readSection("<SECTION/>"), noPrefix);
    EXPECT_EQ(readSection("<SECTION prefix=\"htdocs\"/>"), noPrefix);
    EXPECT_EQ(readSection("<SECTION NAME=\"htdocs\"><FILE>a</FILE></SECTION>"), noPrefix);
    EXPECT_EQ(readSection("<SECTION PREFIX=\"htdocs\"/><SECTION/>"), noPrefix);
}

TEST(InstanceDescriptor, KnowsTwoPrefixes)
{
    EXPECT_EQ(readSection("<SECTION PREFIX=\"htdocs\"><FILE>a</FILE></SECTION>"), "1 a|");
    EXPECT_EQ(readSection("<SECTION PREFIX=\"cgi-bin\"><FILE>a</FILE></SECTION>"), "0 a|");
    for (const char* prefix :
        {"", "httpdocs", "Htdocs", "htdocs ", " htdocs", "htdocsx", "cgi", "cgi-bin/", "private"}) {
        EXPECT_EQ(readSection("<SECTION PREFIX=\"" + std::string(prefix) + "\"/>"), badPrefix)
            << prefix;
    }
}

TEST(InstanceDescriptor, ReadsAPrefixAsXmlReadsIt)
{
    EXPECT_EQ(readSection("<SECTION PREFIX='ht&#100;ocs'><FILE>a</FILE></SECTION>"), "1 a|");
    EXPECT_EQ(
        readSection("<SECTION x:PREFIX='cgi-bin' xmlns:x='u'><FILE>a</FILE></SECTION>"), "0 a|");
}

TEST(InstanceDescriptor, IgnoresEverythingElseInTheRoot)
{
    EXPECT_EQ(readSection("text<FILE>no</FILE><OTHER PREFIX='htdocs'><FILE>no</FILE></OTHER>"
                          "<!--SECTION--><![CDATA[<SECTION/>]]><section/>"),
        "");
    EXPECT_EQ(readSection("<OTHER><SECTION PREFIX='htdocs'><FILE>no</FILE></SECTION></OTHER>"), "");
}

TEST(InstanceDescriptor, IsNotTakenInByAProcessingInstructionOfASectionsName)
{
    EXPECT_EQ(readSection("<?SECTION x?>"), "");
    EXPECT_EQ(readSection("<?SECTION PREFIX='htdocs'?>"), "");
}

TEST(InstanceDescriptor, IgnoresEverythingElseInASection)
{
    EXPECT_EQ(readFiles("text<file>no</file><OTHER><FILE>no</FILE></OTHER><!--FILE--><?FILE no?>"
                        "<SECTION/><FILE>a</FILE>"),
        "1 a|");
}

TEST(InstanceDescriptor, TakesATextAsItIs)
{
    EXPECT_EQ(readFiles("<FILE> a </FILE>"), "1  a |");
    EXPECT_EQ(readFiles("<FILE>\n</FILE>"), "1 \n|");
    EXPECT_EQ(readFiles("<FILE>/etc/passwd</FILE>"), "1 /etc/passwd|");
    EXPECT_EQ(readFiles("<FILE>../x</FILE><FILE>a//b/</FILE>"), "1 ../x|1 a//b/|");
    EXPECT_EQ(readFiles("<FILE>\xc3\xa9</FILE>"), "1 \xc3\xa9|");
}

TEST(InstanceDescriptor, SubstitutesReferences)
{
    EXPECT_EQ(readFiles("<FILE>&#65;&#x42;&amp;&lt;&gt;&quot;&apos;&#xe9;</FILE>"),
        "1 AB&<>\"'\xc3\xa9|");
    EXPECT_EQ(readFiles("<FILE>&#38;amp;</FILE>"), "1 &amp;|");
}

TEST(InstanceDescriptor, TakesQuotedTextLikeAnyOther)
{
    EXPECT_EQ(readFiles("<FILE><![CDATA[a&b<c>]]></FILE>"), "1 a&b<c>|");
    EXPECT_EQ(readFiles("<FILE>a<![CDATA[b]]>c<![CDATA[d]]></FILE>"), "1 abcd|");
}

TEST(InstanceDescriptor, LeavesOutWhatIsInsideAFileAndNoText)
{
    EXPECT_EQ(readFiles("<FILE>a<b>c</b>d</FILE>"), "1 ad|");
    EXPECT_EQ(readFiles("<FILE>a<!--b-->c<?d e?>f</FILE>"), "1 acf|");
}

TEST(InstanceDescriptor, PassesOverAFileWithoutText)
{
    EXPECT_EQ(readFiles("<FILE/><FILE></FILE><FILE><!--c--></FILE><FILE><b>x</b></FILE>"), "");
}

TEST(InstanceDescriptor, TakesAnEmptyQuotedTextAsTheEmptyPath)
{
    EXPECT_EQ(readFiles("<FILE><![CDATA[]]></FILE>"), "1 |");
}

TEST(InstanceDescriptor, GivesPathsInUtf8WhateverTheDocumentIsWrittenIn)
{
    EXPECT_EQ(readFrom("<?xml version='1.0' encoding='ISO-8859-1'?><INSTANCE-DATA>"
                       "<SECTION PREFIX='htdocs'><FILE>\xe9</FILE></SECTION></INSTANCE-DATA>"),
        "1 \xc3\xa9|");
    std::string wide = "\xff\xfe";
    for (const char character :
        std::string("<INSTANCE-DATA><SECTION PREFIX='htdocs'><FILE>a\xe9</FILE></SECTION>"
                    "</INSTANCE-DATA>")) {
        wide += character;
        wide += '\0';
    }
    EXPECT_EQ(readFrom(wide), "1 a\xc3\xa9|");
}

TEST(InstanceDescriptor, LooksAtNamesWithoutTheirNamespaces)
{
    EXPECT_EQ(readFrom("<x:INSTANCE-DATA xmlns:x='u'><x:SECTION PREFIX='htdocs'><x:FILE>a</x:FILE>"
                       "</x:SECTION></x:INSTANCE-DATA>"),
        "1 a|");
}

TEST(InstanceDescriptor, IsReadFromAPipeToItsEnd)
{
    const std::string document = "<INSTANCE-DATA><SECTION PREFIX='htdocs'><FILE>" +
                                 std::string(200'000, 'n') + "</FILE></SECTION></INSTANCE-DATA>";
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const pid_t writer = fork();
    if (writer == 0) {
        for (size_t at = 0; at < document.size();) {
            const ssize_t count = write(ends[1], document.data() + at, document.size() - at);
            at += count > 0 ? static_cast<size_t>(count) : document.size();
        }
        _exit(0);
    }
    close(ends[1]);
    std::string read;
    withStandardInput(ends[0], [&] { read = readFromStandardInput(); });
    close(ends[0]);
    EXPECT_EQ(waitpid(writer, nullptr, 0), writer);
    EXPECT_EQ(read, "1 " + std::string(200'000, 'n') + '|');
}

TEST(InstanceDescriptor, ThatCannotBeReadIsNoDocument)
{
    const int directory = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    withStandardInput(directory, [] { EXPECT_EQ(readFromStandardInput(), parseError); });
    close(directory);
    const Outcome outcome = inChild([] {
        close(STDIN_FILENO);
        (void)std::fputs(readFromStandardInput().c_str(), stdout);
    });
    EXPECT_EQ(outcome.out, parseError);
}

TEST(InstanceDescriptor, WhoseReadingFailsInTheMiddleIsNoDocument)
{
    const faults::Guard guard;
    withInput("<INSTANCE-DATA/>", [] {
        faults::fail("read", EIO, 2);
        EXPECT_EQ(readFromStandardInput(), parseError);
    });
}

TEST(InstanceDescriptor, TellsOnStandardErrorWhereItIsNotWellFormed)
{
    withInput("<INSTANCE-DATA>", [] {
        const Outcome outcome = outputOf([] { EXPECT_ANY_THROW(zelto::readDescriptor()); });
        EXPECT_NE(outcome.err.find("line 1: parser error"), std::string::npos) << outcome.err;
        EXPECT_EQ(outcome.out, "");
    });
}

TEST(InstanceDescriptor, LeavesNoDescriptorOpen)
{
    const size_t before = openDescriptors();
    EXPECT_EQ(readFiles("<FILE>a</FILE>"), "1 a|");
    EXPECT_EQ(readFrom("<x/>"), wrongRoot);
    EXPECT_EQ(openDescriptors(), before);
}
