#include <array>
#include <gtest/gtest.h>
#include <iomanip>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>

#include "support/misc.h"

namespace
{

constexpr std::array<unsigned char, 17> bytes{
    1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17};

std::string dumped(int length)
{
    std::ostringstream os;
    zelto::dumpDefines(os, "K", bytes.data(), length);
    EXPECT_TRUE(os.good());
    return os.str();
}

/// Keeps what had been written each time it was flushed.
class FlushedText : public std::stringbuf
{
public:
    std::string flushed;

protected:
    int sync() override
    {
        flushed += '[' + str() + ']';
        return 0;
    }
};

} // namespace

TEST(DumpDefines, WritesLengthAndBytes)
{
    const std::array<unsigned char, 3> data{1, 2, 255};
    std::ostringstream os;
    zelto::dumpDefines(os, "K", data.data(), 3);
    EXPECT_EQ(os.str(), "#define K_LEN 3\n#define K_DATA 0x01, 0x02, 0xff\n");
}

TEST(DumpDefines, WritesEveryByteValueAsTwoSmallDigits)
{
    const std::array<char, 5> data{'\0', '\x0f', '\x7f', '\x80', '\xab'};
    std::ostringstream os;
    zelto::dumpDefines(os, "A", data.data(), 5);
    EXPECT_EQ(os.str(), "#define A_LEN 5\n#define A_DATA 0x00, 0x0f, 0x7f, 0x80, 0xab\n");
}

TEST(DumpDefines, WritesOnlyTheLengthWhenThereAreNoBytes)
{
    EXPECT_EQ(dumped(0), "#define K_LEN 0\n");
}

TEST(DumpDefines, WritesOnlyTheLengthWhenItIsNegative)
{
    EXPECT_EQ(dumped(-1), "#define K_LEN -1\n");
}

TEST(DumpDefines, WritesASingleByteWithoutAComma)
{
    EXPECT_EQ(dumped(1), "#define K_LEN 1\n#define K_DATA 0x01\n");
}

TEST(DumpDefines, FillsARowWithEightBytes)
{
    EXPECT_EQ(dumped(8), "#define K_LEN 8\n"
                         "#define K_DATA 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08\n");
}

TEST(DumpDefines, LeavesASingleLastByteOutsideOfTheDefinition)
{
    EXPECT_EQ(dumped(9), "#define K_LEN 9\n"
                         "#define K_DATA 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, \n"
                         "\t\t\t0x09\n");
}

TEST(DumpDefines, JoinsRowsWhenTwoBytesOrMoreAreToCome)
{
    EXPECT_EQ(dumped(10), "#define K_LEN 10\n"
                          "#define K_DATA 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, \\\n"
                          "\t\t\t0x09, 0x0a\n");
}

TEST(DumpDefines, EndsTwoFullRowsWithoutABackslash)
{
    EXPECT_EQ(dumped(16), "#define K_LEN 16\n"
                          "#define K_DATA 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, \\\n"
                          "\t\t\t0x09, 0x0a, 0x0b, 0x0c, 0x0d, 0x0e, 0x0f, 0x10\n");
}

TEST(DumpDefines, LeavesASingleLastByteOutsideAlsoBehindSeveralRows)
{
    EXPECT_EQ(dumped(17), "#define K_LEN 17\n"
                          "#define K_DATA 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, \\\n"
                          "\t\t\t0x09, 0x0a, 0x0b, 0x0c, 0x0d, 0x0e, 0x0f, 0x10, \n"
                          "\t\t\t0x11\n");
}

TEST(DumpDefines, NeitherUsesNorChangesTheFormatOfTheStream)
{
    std::ostringstream os;
    os << std::hex << std::showbase << std::uppercase << std::setfill('*') << std::setw(40);
    const auto flags = os.flags();
    zelto::dumpDefines(os, "K", bytes.data(), 10);
    EXPECT_EQ(os.str(), "#define K_LEN 10\n"
                        "#define K_DATA 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, \\\n"
                        "\t\t\t0x09, 0x0a\n");
    EXPECT_EQ(os.flags(), flags);
    EXPECT_EQ(os.fill(), '*');
}

TEST(DumpDefines, FlushesTheStreamBehindTheFirstLineOnly)
{
    FlushedText text;
    std::ostream os(&text);
    zelto::dumpDefines(os, "K", bytes.data(), 10);
    EXPECT_EQ(text.flushed, "[#define K_LEN 10\n]");
}

TEST(DumpDefines, SetsTheBadBitForANullNameAndWritesNothingMore)
{
    std::ostringstream os;
    zelto::dumpDefines(os, nullptr, bytes.data(), 3);
    EXPECT_TRUE(os.bad());
    EXPECT_EQ(os.str(), "#define ");
}

TEST(DumpDefines, SetsTheBadBitForANullNameWithoutBytesToo)
{
    std::ostringstream os;
    zelto::dumpDefines(os, nullptr, nullptr, 0);
    EXPECT_TRUE(os.bad());
    EXPECT_EQ(os.str(), "#define ");
}

TEST(DumpDefines, SetsTheBadBitWithTheExceptionThatTheStreamWants)
{
    std::ostringstream os;
    os.exceptions(std::ios_base::badbit);
    EXPECT_THROW(zelto::dumpDefines(os, nullptr, bytes.data(), 3), std::ios_base::failure);
    EXPECT_EQ(os.str(), "#define ");
}

TEST(DumpDefines, TakesAnEmptyName)
{
    std::ostringstream os;
    zelto::dumpDefines(os, "", bytes.data(), 1);
    EXPECT_EQ(os.str(), "#define _LEN 1\n#define _DATA 0x01\n");
}

TEST(DumpDefines, RefusesNullForBytesAndWritesNothing)
{
    std::ostringstream os;
    EXPECT_THROW(zelto::dumpDefines(os, "K", nullptr, 1), std::invalid_argument);
    EXPECT_EQ(os.str(), "");
}

TEST(DumpDefines, LeavesAFailureInTheStateOfTheStream)
{
    std::ostringstream os;
    os.setstate(std::ios_base::failbit);
    zelto::dumpDefines(os, "K", bytes.data(), 3);
    EXPECT_TRUE(os.fail());
    EXPECT_EQ(os.str(), "");
}
