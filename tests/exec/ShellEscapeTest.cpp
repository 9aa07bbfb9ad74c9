#include "exec/ShellEscape.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/mman.h>

namespace
{

/// What a shell of its own accord takes for something else than text.
constexpr std::string_view wantBackslash = "\t \"#$&'()*;<>?[\\`|~";

char expectedClass(unsigned byte)
{
    if (byte == '\n') {
        return 'n';
    }
    const bool special =
        byte != 0 && wantBackslash.find(static_cast<char>(byte)) != std::string_view::npos;
    return special ? '*' : '-';
}

/// Points the library at another table for the length of a test.
class OwnTable
{
public:
    explicit OwnTable(const char* table) { shell_escape_chars = table; }
    ~OwnTable() { shell_escape_chars = shipped_; }
    OwnTable(const OwnTable&) = delete;
    OwnTable& operator=(const OwnTable&) = delete;

private:
    const char* shipped_ = shell_escape_chars;
};

/// A table without a null byte behind it: right there is memory that must not be read.
class UnendedTable
{
public:
    explicit UnendedTable(char kind) : pages_(mapped())
    {
        mprotect(pages_ + pageSize, pageSize, PROT_NONE);
        std::memset(table(), kind, 256);
    }
    ~UnendedTable() { munmap(pages_, 2 * pageSize); }
    UnendedTable(const UnendedTable&) = delete;
    UnendedTable& operator=(const UnendedTable&) = delete;

    [[nodiscard]] char* table() const { return pages_ + pageSize - 256; }

private:
    static constexpr size_t pageSize = 65536; // a multiple of every page size

    static char* mapped()
    {
        void* const pages =
            mmap(nullptr, 2 * pageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pages == MAP_FAILED) {
            throw std::runtime_error("mmap failed");
        }
        return static_cast<char*>(pages);
    }

    char* pages_;
};

} // namespace

TEST(ShellEscapeChars, ClassesEveryByteValue)
{
    ASSERT_EQ(std::strlen(shell_escape_chars), 256U);
    for (unsigned byte = 0; byte < 256; ++byte) {
        EXPECT_EQ(shell_escape_chars[byte], expectedClass(byte)) << "byte " << byte;
    }
}

TEST(ShellEscapeChars, EscapesNineteenCharactersAndQuotesOne)
{
    const std::string_view table(shell_escape_chars);
    EXPECT_EQ(std::count(table.begin(), table.end(), '*'), 19);
    EXPECT_EQ(std::count(table.begin(), table.end(), 'n'), 1);
    EXPECT_EQ(std::count(table.begin(), table.end(), '-'), 236);
}

TEST(IsShellSafe, HoldsForNullAndForNoCharacters)
{
    EXPECT_EQ(isShellSafe(nullptr), 1);
    EXPECT_EQ(isShellSafe(""), 1);
}

TEST(IsShellSafe, HoldsForEveryByteThatNeedsNoEscapingAndForNoOther)
{
    for (unsigned byte = 1; byte < 256; ++byte) {
        const std::string text(1, static_cast<char>(byte));
        EXPECT_EQ(isShellSafe(text.c_str()), expectedClass(byte) == '-' ? 1 : 0) << "byte " << byte;
    }
}

TEST(IsShellSafe, LooksAtEveryCharacter)
{
    EXPECT_EQ(isShellSafe("/srv/www/vhosts/example.test"), 1);
    EXPECT_EQ(isShellSafe(";abc"), 0);
    EXPECT_EQ(isShellSafe("a;bc"), 0);
    EXPECT_EQ(isShellSafe("abc;"), 0);
    EXPECT_EQ(isShellSafe("abc\n"), 0);
}

TEST(IsShellSafe, AcceptsTheBytesOfTheUpperHalf)
{
    EXPECT_EQ(isShellSafe("\x80\xc3\xa4\xff"), 1);
    EXPECT_EQ(isShellSafe("\x80\xc3 \xa4\xff"), 0);
}

TEST(IsShellSafe, GoesByTheTableThatTheProgramPointsTo)
{
    std::string table(256, '-');
    table['a'] = '*';
    table['b'] = 'n';
    table['c'] = 'x';
    table[0xe4] = '*';
    const OwnTable own(table.c_str());
    EXPECT_EQ(isShellSafe("def; \n"), 1);
    EXPECT_EQ(isShellSafe("a"), 0);
    EXPECT_EQ(isShellSafe("b"), 0);
    EXPECT_EQ(isShellSafe("c"), 0);
    EXPECT_EQ(isShellSafe("\xe4"), 0);
    EXPECT_EQ(isShellSafe("\xe5"), 1);
}

TEST(IsShellSafe, TrustsNoByteThatAShorterTableDoesNotReach)
{
    std::string table(256, '-');
    table['c'] = '\0'; // 'b' is the last byte it reaches, and what follows is not part of it
    const OwnTable own(table.c_str());
    EXPECT_EQ(isShellSafe("ab"), 1);
    EXPECT_EQ(isShellSafe("c"), 0);
    EXPECT_EQ(isShellSafe("\x80"), 0);
    EXPECT_EQ(isShellSafe("\xff"), 0);
    EXPECT_EQ(isShellSafe(""), 1);
}

TEST(IsShellSafe, TrustsNothingWithAnEmptyTable)
{
    const OwnTable own("");
    EXPECT_EQ(isShellSafe("a"), 0);
    EXPECT_EQ(isShellSafe(""), 1);
    EXPECT_EQ(isShellSafe(nullptr), 1);
}

TEST(IsShellSafe, LooksAtControlCharactersAndLettersBeyondAscii)
{
    EXPECT_EQ(isShellSafe("a\tb"), 0);
    EXPECT_EQ(isShellSafe("a\rb"), 1);
    EXPECT_EQ(isShellSafe("é"), 1);
}

TEST(CheckShellSafe, IsTrueForASafeText)
{
    EXPECT_TRUE(checkShellSafe(""));
    EXPECT_TRUE(checkShellSafe("/srv/www/vhosts/example.test"));
}

TEST(CheckShellSafe, ThrowsForAnyOther)
{
    for (const char* text : {";", "a b", "a\n", "'"}) {
        try {
            checkShellSafe(text);
            FAIL() << "nothing was thrown";
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), "Internal error: bad escape_chars value");
        }
    }
}

TEST(CheckShellSafe, LooksNoFurtherThanANullByte)
{
    EXPECT_TRUE(checkShellSafe(std::string("a\0;", 3)));
    EXPECT_THROW(checkShellSafe(std::string(";\0a", 3)), std::runtime_error);
}

TEST(IsShellSafe, ReadsNothingBehindTheTable)
{
    const UnendedTable unended('-');
    const OwnTable own(unended.table());
    EXPECT_EQ(isShellSafe(";\xff"), 1);
}

TEST(CheckShellSafe, GoesByTheTableThatTheProgramPointsTo)
{
    const std::string table(256, 'n');
    const OwnTable own(table.c_str());
    EXPECT_THROW(checkShellSafe("a"), std::runtime_error);
}

TEST(ShellEscape, EscapesEveryByteByItsClass)
{
    for (unsigned byte = 0; byte < 256; ++byte) {
        const std::string text(1, static_cast<char>(byte));
        std::string expected = text;
        if (expectedClass(byte) == '*') {
            expected = "\\" + text;
        } else if (expectedClass(byte) == 'n') {
            expected = "'" + text + "'";
        }
        EXPECT_EQ(shellEscape(text), expected) << "byte " << byte;
    }
}

TEST(ShellEscape, EscapesWhereverItIsNeeded)
{
    EXPECT_EQ(shellEscape(""), "");
    EXPECT_EQ(shellEscape("/srv/www/a-b_c.d/09AZaz"), "/srv/www/a-b_c.d/09AZaz");
    EXPECT_EQ(shellEscape(" a  b "), "\\ a\\ \\ b\\ ");
    EXPECT_EQ(shellEscape("it's"), "it\\'s");
    EXPECT_EQ(shellEscape("a\nb\n\nc"), "a'\n'b'\n''\n'c");
    EXPECT_EQ(shellEscape("a\\b"), "a\\\\b");
    EXPECT_EQ(shellEscape("a\tb"), "a\\\tb");
    EXPECT_EQ(shellEscape("a\rb!c=d{e}f^g]h%i"), "a\rb!c=d{e}f^g]h%i");
}

TEST(ShellEscape, GoesOnBehindANullByte)
{
    EXPECT_EQ(shellEscape(std::string("a\0;\0", 4)), std::string("a\0\\;\0", 5));
}

TEST(ShellEscape, GoesByTheTableThatTheProgramPointsToForTheLowerHalf)
{
    std::string table(256, '-');
    table['a'] = '*';
    table['b'] = 'n';
    table['c'] = 'x';
    table[0x7f] = '*';
    table[0x80] = '*';
    table[0xff] = 'n';
    const OwnTable own(table.c_str());
    EXPECT_EQ(shellEscape("abc; \n"), "\\a'b'c; \n");
    EXPECT_EQ(shellEscape("\x7f\x80\xff"), "\\\x7f\x80\xff");
}

TEST(ShellEscape, ReadsNothingBehindTheTable)
{
    const UnendedTable unended('*');
    const OwnTable own(unended.table());
    EXPECT_EQ(shellEscape("a\xff"), "\\a\xff");
}

TEST(ShellEscape, PassesWhatAShorterTableDoesNotReach)
{
    std::string table(256, '*');
    table['c'] = '\0';
    const OwnTable own(table.c_str());
    EXPECT_EQ(shellEscape("abcd"), "\\a\\bcd");
}
