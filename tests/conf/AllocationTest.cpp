#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "conf/Allocation.h"
#include "conf/FreeDeleter.h"
#include "conf/ProgramName.h"
#include "tests/lib/Faults.h"
#include "tests/lib/Process.h"

namespace
{

using Memory = std::unique_ptr<void, FreeDeleter>;

[[gnu::format(printf, 1, 2)]] char* formattedFromList(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    char* text = allocatingFormatterV(format, arguments);
    va_end(arguments);
    return text;
}

/// A child in which the next call of the function fails; it ends with 0 if the body returns.
Outcome withFailing(const char* function, int error, const std::function<void()>& body)
{
    return inChild([&] {
        PROGNAME = "/usr/sbin/twigctl";
        errno = 0;
        faults::fail(function, error);
        body();
    });
}

void expectFatal(const Outcome& end, const std::string& report)
{
    EXPECT_EQ(end.err, report);
    EXPECT_EQ(end.out, report);
    EXPECT_EQ(end.status, 1);
}

} // namespace

TEST(Allocate, ReturnsMemoryOfTheSize)
{
    const Memory memory(allocate(1000));
    ASSERT_NE(memory, nullptr);
    std::memset(memory.get(), 'x', 1000);
}

TEST(Allocate, EndsTheProcessWhenThereIsNoMemory)
{
    expectFatal(withFailing("malloc", ENOMEM, [] { (void)allocate(4096); }),
        "twigctl: alloc(4096)\nSystem error 12: Cannot allocate memory\n");
}

TEST(Allocate, ShowsASizeThatIsNoIntAsTheIntThatItBecomes)
{
    expectFatal(withFailing("malloc", ENOMEM, [] { (void)allocate(0x1'0000'0007); }),
        "twigctl: alloc(7)\nSystem error 12: Cannot allocate memory\n");
    expectFatal(withFailing("malloc", ENOMEM, [] { (void)allocate(SIZE_MAX); }),
        "twigctl: alloc(-1)\nSystem error 12: Cannot allocate memory\n");
}

TEST(Allocate, DoesNotTakeANullForSize0AsAFailure)
{
    const Outcome end = withFailing("malloc", ENOMEM, [] { (void)allocate(0); });
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.out + end.err, "");
}

TEST(Reallocate, KeepsTheContent)
{
    Memory memory(allocate(4));
    std::memcpy(memory.get(), "abc", 4);
    memory.reset(reallocate(memory.release(), 100000));
    EXPECT_STREQ(static_cast<const char*>(memory.get()), "abc");
}

TEST(Reallocate, AllocatesFromNull)
{
    const Memory memory(reallocate(nullptr, 10));
    ASSERT_NE(memory, nullptr);
    std::memset(memory.get(), 'x', 10);
}

TEST(Reallocate, EndsTheProcessWhenThereIsNoMemory)
{
    expectFatal(withFailing("realloc", ENOMEM,
                    [] {
                        const Memory memory(allocate(1));
                        (void)reallocate(memory.get(), 77);
                    }),
        "twigctl: alloc(77)\nSystem error 12: Cannot allocate memory\n");
}

TEST(Reallocate, FreesForSize0WithoutTakingItAsAFailure)
{
    const Outcome end = inChild([] { EXPECT_EQ(reallocate(allocate(10), 0), nullptr); });
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.out + end.err, "");
}

TEST(AllocatingFormatter, ReturnsTheFormattedText)
{
    const CString text(allocatingFormatter("%s-%d", "a", 7));
    EXPECT_STREQ(text.get(), "a-7");
    const CString empty(allocatingFormatter("%s", ""));
    EXPECT_STREQ(empty.get(), "");
}

TEST(AllocatingFormatter, ReturnsATextOfAnyLengthWhole)
{
    const std::string long100k(100000, 'x');
    const CString text(allocatingFormatter("<%s>", long100k.c_str()));
    EXPECT_EQ(text.get(), '<' + long100k + '>');
}

TEST(AllocatingFormatter, TakesItsArgumentsAsAListToo)
{
    const CString text(formattedFromList("%s-%d", "a", 7));
    EXPECT_STREQ(text.get(), "a-7");
}

TEST(AllocatingFormatter, EndsTheProcessWhenThereIsNoMemory)
{
    const std::string report = "twigctl: Cannot allocate memory: Cannot allocate memory\n"
                               "System error 12: Cannot allocate memory\n";
    expectFatal(
        withFailing("vasprintf", ENOMEM, [] { (void)allocatingFormatter("%d", 1); }), report);
    expectFatal(withFailing("vasprintf", ENOMEM, [] { (void)formattedFromList("%d", 1); }), report);
}

TEST(AllocatingFormatter, NamesTheErrorOfAFormatThatCannotBeApplied)
{
    expectFatal(inChild([] {
        PROGNAME = "twigctl";
        (void)allocatingFormatter("%ls", L"\u20ac");
    }),
        "twigctl: Cannot allocate memory: Invalid or incomplete multibyte or wide character\n"
        "System error 84: Invalid or incomplete multibyte or wide character\n");
}
