#include <algorithm>
#include <ctime>

#include "tests/exec/ForkExecFixture.h"

namespace
{

constexpr size_t mebibyte = size_t{1} << 20U;

/// Blocks that begin with the place where they stand.
std::string numberedBlocks(size_t size)
{
    std::string text(size, '.');
    for (size_t at = 0; at < size; at += 4096) {
        const std::string number = std::to_string(at);
        text.replace(at, number.size(), number);
    }
    return text;
}

/// Processor time that this process itself has used so far, in microseconds.
long processorTime()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return time.tv_sec * 1000000 + time.tv_nsec / 1000;
}

/// Moves a text through all three pipes at once.
class ForkExecvGetOutErrLarge : public ForkExecvGetOutErr
{
protected:
    /// Returns the processor time it took.
    static long move(const std::string& text)
    {
        std::string input = text;
        std::string output;
        std::string error;
        output.reserve(text.size());
        error.reserve(text.size());
        const Arguments argv{"sh", "-c", "exec tee /dev/stderr"};
        const long before = processorTime();
        EXPECT_EQ(forkExecvGetOutErr(input, output, error, "/bin/sh", argv, sameUser, {}), 0);
        const long after = processorTime();
        EXPECT_EQ(input, "");
        // Not EXPECT_EQ, which would print them.
        EXPECT_TRUE(output == text);
        EXPECT_TRUE(error == text);
        return after - before;
    }
};

} // namespace

TEST_F(ForkExecvGetOutErrLarge, MovesSixtyFourMebibytesEachWay)
{
    move(numberedBlocks(64 * mebibyte));
}

TEST_F(ForkExecvGetOutErrLarge, TakesTimeInProportionToTheSize)
{
    // Four times as much takes four times as long, and sixteen times when what is left moves to the
    // front each time. The best of a few runs, as others use the machine too.
    const std::string small = numberedBlocks(8 * mebibyte);
    const std::string large = numberedBlocks(32 * mebibyte);
    long least = 1000000000;
    long leastOfLarge = least;
    for (int run = 0; run < 3; ++run) {
        least = std::min(least, move(small));
        leastOfLarge = std::min(leastOfLarge, move(large));
    }
    RecordProperty("microseconds_8_MiB", std::to_string(least));
    RecordProperty("microseconds_32_MiB", std::to_string(leastOfLarge));
    EXPECT_LT(leastOfLarge, 8 * least);
}
