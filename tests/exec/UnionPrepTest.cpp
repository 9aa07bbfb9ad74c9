#include "exec/TUnionPrep.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>

#include "tests/exec/Commands.h"

using zelto::sys::TExec;
using zelto::sys::TUnionPrep;

namespace
{

/// Writes its name and the operation into a log, also when it goes.
class Part : public TExec::TPrepare
{
public:
    Part(std::string name, std::string& log, bool answer = true)
        : name_(std::move(name)), log_(log), answer_(answer)
    {
    }
    Part(const Part&) = delete;
    Part& operator=(const Part&) = delete;
    ~Part() override { log_ += name_ + ".gone "; }

    void beforeFork(const TExec& exec) override { record("beforeFork", exec); }
    bool onForkError(const TExec& exec) override { return record("onForkError", exec); }
    void inParent(const TExec& exec) override { record("inParent", exec); }
    void inChild(const TExec& exec) override { record("inChild", exec); }
    void beforeExec(const TExec& exec) override { record("beforeExec", exec); }
    bool onExecError(const TExec& exec) override { return record("onExecError", exec); }

private:
    bool record(const char* operation, const TExec& exec)
    {
        log_ += name_ + "." + operation + "(" + exec.args()[0] + ") ";
        return answer_;
    }

    std::string name_;
    std::string& log_;
    bool answer_;
};

class TUnionPrepOf : public ::testing::Test
{
protected:
    std::shared_ptr<Part> part(const std::string& name, bool answer = true)
    {
        return std::make_shared<Part>(name, log_, answer);
    }
    std::string taken() { return std::exchange(log_, ""); }

    const TExec exec_{words({"x"})};

private:
    std::string log_;
};

} // namespace

TEST_F(TUnionPrepOf, TwoCallsTheFirstThenTheSecond)
{
    TUnionPrep both(part("a"), part("b"));
    both.beforeFork(exec_);
    EXPECT_EQ(taken(), "a.beforeFork(x) b.beforeFork(x) ");
    both.inParent(exec_);
    EXPECT_EQ(taken(), "a.inParent(x) b.inParent(x) ");
    both.inChild(exec_);
    EXPECT_EQ(taken(), "a.inChild(x) b.inChild(x) ");
    both.beforeExec(exec_);
    EXPECT_EQ(taken(), "a.beforeExec(x) b.beforeExec(x) ");
    both.onForkError(exec_);
    EXPECT_EQ(taken(), "a.onForkError(x) b.onForkError(x) ");
    both.onExecError(exec_);
    EXPECT_EQ(taken(), "a.onExecError(x) b.onExecError(x) ");
}

TEST_F(TUnionPrepOf, TwoAnswersWithTheSecond)
{
    for (const bool first : {true, false}) {
        for (const bool second : {true, false}) {
            TUnionPrep both(part("a", first), part("b", second));
            EXPECT_EQ(both.onForkError(exec_), second);
            EXPECT_EQ(both.onExecError(exec_), second);
        }
    }
}

TEST_F(TUnionPrepOf, OneWithoutASecondAnswersTrueWhateverTheFirstSays)
{
    TUnionPrep one(part("a", false), nullptr);
    EXPECT_TRUE(one.onForkError(exec_));
    EXPECT_TRUE(one.onExecError(exec_));
    EXPECT_EQ(taken(), "a.onForkError(x) a.onExecError(x) ");
}

TEST_F(TUnionPrepOf, OneWithoutAFirstAnswersWithTheSecond)
{
    TUnionPrep one(nullptr, part("b", false));
    EXPECT_FALSE(one.onForkError(exec_));
    EXPECT_FALSE(one.onExecError(exec_));
}

TEST_F(TUnionPrepOf, OneCallsTheOneThatIsThere)
{
    TUnionPrep first(part("a"), nullptr);
    first.beforeFork(exec_);
    first.inParent(exec_);
    first.inChild(exec_);
    first.beforeExec(exec_);
    EXPECT_EQ(taken(), "a.beforeFork(x) a.inParent(x) a.inChild(x) a.beforeExec(x) ");
    TUnionPrep second(nullptr, part("b"));
    second.beforeFork(exec_);
    second.inParent(exec_);
    second.inChild(exec_);
    second.beforeExec(exec_);
    EXPECT_EQ(taken(), "b.beforeFork(x) b.inParent(x) b.inChild(x) b.beforeExec(x) ");
}

TEST_F(TUnionPrepOf, NoneDoesNothing)
{
    TUnionPrep none(nullptr, nullptr);
    none.beforeFork(exec_);
    none.inParent(exec_);
    none.inChild(exec_);
    none.beforeExec(exec_);
    EXPECT_TRUE(none.onForkError(exec_));
    EXPECT_TRUE(none.onExecError(exec_));
}

TEST_F(TUnionPrepOf, TwoReleasesTheSecondBeforeTheFirst)
{
    {
        const TUnionPrep both(part("a"), part("b"));
    }
    EXPECT_EQ(taken(), "b.gone a.gone ");
}

TEST_F(TUnionPrepOf, TwoLeavesASharedPartAlive)
{
    const auto shared = part("a");
    {
        const TUnionPrep both(shared, nullptr);
    }
    EXPECT_EQ(taken(), "");
}

TEST_F(TUnionPrepOf, AVetoOfTheFirstAndAYesOfTheSecondStillThrows)
{
    TUnionPrep both(part("a", false), part("b", true));
    EXPECT_EQ(runCarefully(TExec(words({"/no/such/program"}), &both)).second, 100 + ENOENT);
}

TEST_F(TUnionPrepOf, AVetoOfTheSecondReturns)
{
    TUnionPrep both(part("a", true), part("b", false));
    EXPECT_EQ(runCarefully(TExec(words({"/no/such/program"}), &both)).second, 90);
}

TEST_F(TUnionPrepOf, UnionsCanBeJoinedFurther)
{
    const auto inner = std::make_shared<TUnionPrep>(part("a"), part("b"));
    TUnionPrep outer(inner, part("c"));
    outer.inChild(exec_);
    EXPECT_EQ(taken(), "a.inChild(x) b.inChild(x) c.inChild(x) ");
}
