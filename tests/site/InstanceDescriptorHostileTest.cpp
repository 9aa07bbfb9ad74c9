#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sys/resource.h>
#include <sys/stat.h>
#include <utility>

#include "site/DescriptorParser.h"
#include "tests/site/DescriptorFixture.h"

// Descriptors that somebody wrote to break the reader.

// The parser's process-wide settings; its headers are none of a library user's business.
extern "C" {
int xmlSubstituteEntitiesDefault(int substitute);
int* __xmlLoadExtDtdDefaultValue();
int* __xmlDoValidityCheckingDefaultValue();
int xmlMemSetup(void (*release)(void*), void* (*take)(size_t), void* (*change)(void*, size_t),
    char* (*copy)(const char*));
}

namespace
{

std::string manyLetters(size_t count)
{
    return std::string(count, 'n');
}

constexpr const char* parseError = "XML parse error";
constexpr const char* wrongRoot = "Wrong root node name";

std::string lengthOf(const std::string& text)
{
    return std::to_string(text.size()) + " bytes";
}

/// What is read, or only how much if it is long, in a child that may use a few seconds and one and
/// a half gigabytes: more is an attack that worked. The document is made there, too, so that this
/// process stays small. Memory is limited where nothing else reserves it by the terabyte.
template<class Maker>
std::string readWithinLimits(Maker makeDocument)
{
    return inChild([&] {
        const rlimit seconds = {20, 20};
        (void)setrlimit(RLIMIT_CPU, &seconds);
#ifndef __SANITIZE_ADDRESS__
        const rlimit bytes = {1'500'000'000, 1'500'000'000};
        (void)setrlimit(RLIMIT_AS, &bytes);
#endif
        const std::string read = readFrom(makeDocument());
        (void)std::fputs(read.size() < 100 ? read.c_str() : lengthOf(read).c_str(), stdout);
    }).out;
}

/// By the parser, whose rules for entities differ between its versions, or by the reader.
bool isRefused(const std::string& read)
{
    return read == parseError || read == wrongRoot;
}

std::string times(int count, const std::string& text)
{
    std::string all;
    for (; count > 0; --count) {
        all += text;
    }
    return all;
}

std::string inRoot(const std::string& content)
{
    return "<INSTANCE-DATA>" + content + "</INSTANCE-DATA>";
}

std::string inFile(const std::string& content)
{
    return inRoot("<SECTION PREFIX='htdocs'><FILE>" + content + "</FILE></SECTION>");
}

/// Entities e0 to e<levels>, each of which stands for ten of the one before.
std::string laughs(int levels, const std::string& innermost)
{
    std::string declarations = "<!ENTITY e0 '" + innermost + "'>";
    for (int level = 1; level <= levels; ++level) {
        declarations += "<!ENTITY e" + std::to_string(level) + " '" +
                        times(10, "&e" + std::to_string(level - 1) + ';') + "'>";
    }
    return "<!DOCTYPE INSTANCE-DATA [" + declarations + "]>";
}

/// A FIFO that nobody writes to: whoever opens it waits for ever.
class InstanceDescriptorOutside : public World
{
protected:
    InstanceDescriptorOutside() { makeFifo("/srv/outside"); }

    /// What is read, in a child that is ended after some time of waiting.
    static std::string read(
        const std::string& document, void (*prepare)() = [] {})
    {
        return inChild([&] {
            alarm(20);
            prepare();
            (void)std::fputs(readFrom(document).c_str(), stdout);
        }).out;
    }
};

} // namespace

TEST(InstanceDescriptorHostile, CannotMakeEntitiesGrow)
{
    for (const char* innermost : {"lol", ""}) {
        const auto in = [&](int levels, const std::string& content) {
            return readWithinLimits([&] { return laughs(levels, innermost) + content; });
        };
        EXPECT_PRED1(isRefused, in(9, inFile("&e9;")));
        EXPECT_PRED1(isRefused, in(3, inFile("&e3;")));
        EXPECT_PRED1(isRefused, in(9, inRoot("<SECTION PREFIX='&e9;'/>")));
    }
    EXPECT_EQ(readWithinLimits([] {
        return "<!DOCTYPE x [<!ENTITY a '" + times(100'000, "a") + "'>]>" +
               inFile(times(100'000, "&a;"));
    }),
        wrongRoot);
}

TEST(InstanceDescriptorHostile, CannotDeclareEntitiesAtAll)
{
    EXPECT_EQ(readFrom("<!DOCTYPE INSTANCE-DATA [<!ENTITY a 'b'>]>" + inFile("&a;")), wrongRoot);
    EXPECT_EQ(readFrom("<!DOCTYPE x [<!ENTITY a '&a;'>]>" + inFile("&a;")), parseError);
}

TEST(InstanceDescriptorHostile, CannotChainEntitiesWithoutEnd)
{
    EXPECT_EQ(readWithinLimits([] {
        std::string chain = "<!DOCTYPE x [<!ENTITY e0 'x'>";
        std::string references = "&e0;";
        for (int number = 1; number < 20'000; ++number) {
            const std::string name = 'e' + std::to_string(number);
            chain += "<!ENTITY " + name + " '&e" + std::to_string(number - 1) + ";'>";
            references += '&' + name + ';';
        }
        return chain + "]>" + inFile(references);
    }),
        wrongRoot);
}

TEST(InstanceDescriptorHostile, CannotNestWithoutEnd)
{
    EXPECT_EQ(
        readWithinLimits([] { return inFile(times(100'000, "<a>") + times(100'000, "</a>")); }),
        parseError);
    EXPECT_EQ(readWithinLimits([] { return times(100'000, "<INSTANCE-DATA>"); }), parseError);
    EXPECT_EQ(readFrom(inFile("a" + times(200, "<a>") + times(200, "</a>"))), "1 a|");
}

TEST(InstanceDescriptorHostile, IsReadInAHundredMegabytes)
{
    EXPECT_EQ(readWithinLimits([] {
        const std::string comment = "<!--" + std::string(999'993, 'c') + "-->";
        std::string document = inRoot(
            times(99, comment) + "<SECTION PREFIX='cgi-bin'><FILE>a</FILE></SECTION>" + comment);
        EXPECT_GE(document.size(), 100'000'000U);
        return document;
    }),
        "0 a|");
}

TEST(InstanceDescriptorHostile, MayListManyFiles)
{
    EXPECT_EQ(readWithinLimits([] {
        return inRoot(
            "<SECTION PREFIX='htdocs'>" + times(200'000, "<FILE>a</FILE>") + "</SECTION>");
    }),
        "800000 bytes");
}

TEST(InstanceDescriptorHostile, MayHoldALongText)
{
    EXPECT_EQ(readWithinLimits([] { return inFile(manyLetters(9'000'000)); }), "9000003 bytes");
    EXPECT_EQ(readWithinLimits(
                  [] { return inRoot("<SECTION PREFIX='" + manyLetters(11'000'000) + "'/>"); }),
        parseError);
}

TEST(InstanceDescriptorHostile, MayComeInPiecesButNotInMillions)
{
    EXPECT_EQ(readFrom(inFile(times(10'000, "a<b/>"))), "1 " + times(10'000, "a") + '|');
    for (const char* piece : {"a<b/>", "a<?b?>", "<![CDATA[a]]><b/>"}) {
        EXPECT_EQ(readWithinLimits([&] { return inFile(times(100'000, piece)); }), parseError);
    }
}

TEST(InstanceDescriptorHostile, CannotSpreadItsPiecesOverManyFiles)
{
    const auto withFiles = [](int count) {
        return readWithinLimits([&] {
            const std::string file = "<FILE>" + times(20'000, "a<b/>") + "</FILE>";
            return inRoot(times(count, "<SECTION PREFIX='htdocs'>" + file + "</SECTION>"));
        });
    };
    EXPECT_EQ(withFiles(1), "20003 bytes");
    EXPECT_EQ(withFiles(10), parseError);
}

TEST(InstanceDescriptorHostile, MustBeText)
{
    EXPECT_EQ(readFrom(inFile("\xff")), parseError);
    EXPECT_EQ(readFrom(inFile("\xc3")), parseError);
    EXPECT_EQ(readFrom(inFile("\xc0\xaf")), parseError);
    EXPECT_EQ(readFrom(inFile(std::string("a\0b", 3))), parseError);
    EXPECT_EQ(readFrom(inFile("&#0;")), parseError);
    EXPECT_EQ(readFrom(inFile("\x01")), parseError);
    EXPECT_EQ(readFrom("\x7f"
                       "ELF"),
        parseError);
    EXPECT_EQ(readFrom("<?xml version='1.0' encoding='x-none'?>" + inFile("a")), parseError);
    EXPECT_EQ(readFrom("\xff\xfe<"), parseError);
}

TEST(InstanceDescriptorHostile, EndsForTheParserWithANulByteBehindIt)
{
    EXPECT_EQ(readFrom(std::string("<INSTANCE-DATA/>\0<x>", 20)), "");
}

TEST(InstanceDescriptorHostile, IsNoDocumentBeyondTheParsersSize)
{
    const std::string document = inFile("a");
    // The parser counts in int, for which the larger size is that of the document in front.
    for (const size_t size : {size_t{INT_MAX} + 1, (size_t{UINT_MAX} + 1) + document.size()}) {
        void* text =
            mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        ASSERT_NE(text, MAP_FAILED);
        ASSERT_EQ(mprotect(text, document.size(), PROT_READ | PROT_WRITE), 0);
        std::memcpy(text, document.data(), document.size());
        try {
            zelto::parseDescriptor({static_cast<const char*>(text), size});
            ADD_FAILURE() << "nothing was thrown";
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), parseError);
        }
        munmap(text, size);
    }
}

TEST_F(InstanceDescriptorOutside, IsNotReadAsADocumentType)
{
    EXPECT_EQ(read("<!DOCTYPE INSTANCE-DATA SYSTEM '/srv/outside'>" + inFile("a")), wrongRoot);
    EXPECT_EQ(
        read("<!DOCTYPE INSTANCE-DATA SYSTEM 'file:///srv/outside'>" + inFile("a")), wrongRoot);
    EXPECT_EQ(
        read("<!DOCTYPE INSTANCE-DATA PUBLIC 'x' '/srv/outside'>" + inFile("&b;")), wrongRoot);
}

TEST_F(InstanceDescriptorOutside, IsNotReadAsAnEntity)
{
    EXPECT_EQ(read("<!DOCTYPE x [<!ENTITY b SYSTEM '/srv/outside'>]>" + inFile("&b;")), wrongRoot);
    EXPECT_EQ(
        read("<!DOCTYPE x [<!ENTITY % b SYSTEM '/srv/outside'> %b;]>" + inFile("a")), wrongRoot);
    EXPECT_EQ(read("<!DOCTYPE x [<!ENTITY b SYSTEM '/srv/outside'>]>"
                   "<INSTANCE-DATA><SECTION PREFIX='&b;'/></INSTANCE-DATA>"),
        parseError);
}

TEST_F(InstanceDescriptorOutside, IsNotReadAsACatalogOrStyleSheetOrInclusion)
{
    EXPECT_EQ(read("<?oasis-xml-catalog catalog='file:///srv/outside'?>" + inFile("a")), wrongRoot);
    EXPECT_EQ(read("<?xml-stylesheet href='/srv/outside'?>" + inFile("a")), wrongRoot);
    EXPECT_EQ(read(inFile("a<xi:include xmlns:xi='http://www.w3.org/2001/XInclude' "
                          "href='/srv/outside' parse='text'/>")),
        "1 a|");
}

TEST_F(InstanceDescriptorOutside, IsNotReadEvenIfTheProgramTellsTheParserToLoad)
{
    const auto loadEverything = [] {
        xmlSubstituteEntitiesDefault(1);
        *__xmlLoadExtDtdDefaultValue() = 1;
        *__xmlDoValidityCheckingDefaultValue() = 1;
    };
    EXPECT_EQ(read("<!DOCTYPE INSTANCE-DATA SYSTEM '/srv/outside'>" + inFile("a"), loadEverything),
        wrongRoot);
    EXPECT_EQ(
        read("<!DOCTYPE x [<!ENTITY b SYSTEM '/srv/outside'>]>" + inFile("&b;"), loadEverything),
        wrongRoot);
    EXPECT_EQ(read("<!DOCTYPE x [<!ENTITY % b SYSTEM '/srv/outside'> %b;]>" + inFile("a"),
                  loadEverything),
        wrongRoot);
}

TEST_F(InstanceDescriptorOutside, LeavesTheProgramsOwnSettingsAsTheyWere)
{
    xmlSubstituteEntitiesDefault(1);
    *__xmlLoadExtDtdDefaultValue() = 6;
    *__xmlDoValidityCheckingDefaultValue() = 1;
    EXPECT_EQ(readFrom("<INSTANCE-DATA/>"), "");
    EXPECT_EQ(readFrom("<INSTANCE-DATA>"), parseError);
    EXPECT_EQ(xmlSubstituteEntitiesDefault(0), 1);
    EXPECT_EQ(std::exchange(*__xmlLoadExtDtdDefaultValue(), 0), 6);
    EXPECT_EQ(std::exchange(*__xmlDoValidityCheckingDefaultValue(), 0), 1);
}

namespace
{

int allocationsLeft = 0; ///< until one fails; below 0: none does

bool failsNow()
{
    return allocationsLeft >= 0 && allocationsLeft-- == 0;
}

void* takeMemory(size_t size)
{
    return failsNow() ? nullptr : std::malloc(size);
}

void* changeMemory(void* memory, size_t size)
{
    // NOLINTNEXTLINE(cppcoreguidelines-owning-memory): the library's own, in its own words
    return failsNow() ? nullptr : std::realloc(memory, size);
}

char* copyText(const char* text)
{
    return failsNow() ? nullptr : strdup(text);
}

} // namespace

TEST(InstanceDescriptorHostile, IsNeverReadInPartForLackOfMemory)
{
    const std::string text = inFile("aaaa</FILE><FILE>b<x/>c");
    ASSERT_EQ(readFrom(text), "1 aaaa|1 bc|"); // the parser's own tables are there from now on
    ASSERT_EQ(xmlMemSetup(std::free, takeMemory, changeMemory, copyText), 0);
    int lacks = 0;
    for (bool failed = true; failed; ++lacks) {
        allocationsLeft = lacks;
        std::string read;
        (void)outputOf([&] {
            try {
                for (const zelto::TreeEntry& entry : zelto::parseDescriptor(text)) {
                    read += entry.path.native() + '|';
                }
            } catch (const std::bad_alloc&) {
                read = "no memory";
            } catch (const std::runtime_error& error) {
                read = error.what();
            }
        });
        failed = std::exchange(allocationsLeft, -1) < 0;
        // The parser may find itself at a loss first, which refuses the document as well.
        EXPECT_TRUE(read == (failed ? "no memory" : "aaaa|bc|") || (failed && read == parseError))
            << lacks << ": " << read;
    }
    EXPECT_GT(lacks, 10);
}
