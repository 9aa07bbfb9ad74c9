#include "exec/TExec.h"

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <type_traits>

#include "tests/exec/Commands.h"
#include "tests/exec/Recorder.h"

using zelto::sys::TEArgs;
using zelto::sys::TExec;

TEST(TExec, HasFlagsOfTheseValues)
{
    EXPECT_EQ(TExec::fork, 1U);
    EXPECT_EQ(TExec::wait, 2U);
    EXPECT_EQ(TExec::searchPath, 4U);
    EXPECT_EQ(TExec::all, 7U);
}

TEST(TExec, LeavesPreparationsToSubclasses)
{
    EXPECT_TRUE(std::is_abstract_v<TExec::TPrepare>);
}

TEST(TExec, HasATextForRefusedArguments)
{
    EXPECT_STREQ(TExec::badArguments, "Bad execute arguments");
}

TEST(TExec, HasAllFlagsAndNoPreparationUnlessToldOtherwise)
{
    const TExec exec(words({"a"}));
    EXPECT_EQ(exec.flags(), 7U);
    EXPECT_EQ(exec.prepare(), nullptr);
    EXPECT_EQ(exec.args()[0], "a");
}

TEST(TExec, KeepsWhatItWasGiven)
{
    Recorder recorder;
    const TExec exec(words({"a"}), &recorder, 5);
    EXPECT_EQ(exec.flags(), 5U);
    EXPECT_EQ(exec.prepare(), &recorder);
}

TEST(TExec, IsIndependentOfTheWordsItWasMadeFrom)
{
    TEArgs args = words({"a"});
    const TExec exec(args);
    args.add("b");
    EXPECT_EQ(exec.args().size(), 1U);
}

TEST(TExec, SharesItsPreparationWithItsCopies)
{
    Recorder recorder;
    const TExec exec(words({"a"}), &recorder, 1);
    TExec copy(words({"b"}));
    copy = exec;
    EXPECT_EQ(copy.prepare(), &recorder);
    EXPECT_EQ(copy.flags(), 1U);
    EXPECT_EQ(copy.args()[0], "a");
    EXPECT_TRUE(std::is_copy_constructible_v<TExec>);
}

TEST(TExec, LeavesItsPreparationToTheCaller)
{
    class Counted : public TExec::TPrepare
    {
    public:
        explicit Counted(int& deleted) : deleted_(deleted) {}
        Counted(const Counted&) = delete;
        Counted& operator=(const Counted&) = delete;
        ~Counted() override { ++deleted_; }

    private:
        int& deleted_;
    };
    int deleted = 0;
    std::unique_ptr<TExec::TPrepare> prepare = std::make_unique<Counted>(deleted);
    {
        const TExec exec(words({"/bin/true"}), prepare.get());
        EXPECT_EQ(exec.run().second, 0);
    }
    EXPECT_EQ(deleted, 0);
    prepare.reset();
    EXPECT_EQ(deleted, 1);
}

TEST(TPrepare, CannotBeMadeByItself)
{
    EXPECT_FALSE(std::is_constructible_v<TExec::TPrepare>);
}

TEST(TPrepare, LetsEveryFailureBeThrown)
{
    class Plain : public TExec::TPrepare
    {
    };
    Plain plain;
    const TExec exec(words({"a"}));
    plain.beforeFork(exec);
    plain.inParent(exec);
    plain.inChild(exec);
    plain.beforeExec(exec);
    EXPECT_TRUE(plain.onForkError(exec));
    EXPECT_TRUE(plain.onExecError(exec));
}

#if defined(__x86_64__)
/// Programs built against the library call by position.
TEST(TPrepare, HasItsOperationsInThisOrder)
{
    const auto slotOf = [](auto operation) {
        std::uintptr_t offset = 0; // in the table, plus one
        std::memcpy(&offset, &operation, sizeof offset);
        return (offset - 1) / sizeof(void*);
    };
    EXPECT_EQ(slotOf(&TExec::TPrepare::beforeFork), 2U); // behind the two destructors
    EXPECT_EQ(slotOf(&TExec::TPrepare::onForkError), 3U);
    EXPECT_EQ(slotOf(&TExec::TPrepare::inParent), 4U);
    EXPECT_EQ(slotOf(&TExec::TPrepare::inChild), 5U);
    EXPECT_EQ(slotOf(&TExec::TPrepare::beforeExec), 6U);
    EXPECT_EQ(slotOf(&TExec::TPrepare::onExecError), 7U);
}
#endif
