#include "exec/ShellEscape.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <string_view>

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
