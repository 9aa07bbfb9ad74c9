#include "exec/TUnionPrep.h"

#include <utility>

namespace zelto::sys
{

TUnionPrep::TUnionPrep(std::shared_ptr<TPrepare> first, std::shared_ptr<TPrepare> second) noexcept
    : first_(std::move(first)), second_(std::move(second))
{
}

TUnionPrep::~TUnionPrep() = default;

void TUnionPrep::beforeFork(const TExec& exec)
{
    onBoth(&TPrepare::beforeFork, exec);
}

bool TUnionPrep::onForkError(const TExec& exec)
{
    return answerOfSecond(&TPrepare::onForkError, exec);
}

void TUnionPrep::inParent(const TExec& exec)
{
    onBoth(&TPrepare::inParent, exec);
}

void TUnionPrep::inChild(const TExec& exec)
{
    onBoth(&TPrepare::inChild, exec);
}

void TUnionPrep::beforeExec(const TExec& exec)
{
    onBoth(&TPrepare::beforeExec, exec);
}

bool TUnionPrep::onExecError(const TExec& exec)
{
    return answerOfSecond(&TPrepare::onExecError, exec);
}

void TUnionPrep::onBoth(void (TPrepare::*operation)(const TExec&), const TExec& exec)
{
    for (TPrepare* prepare : {first_.get(), second_.get()}) {
        if (prepare != nullptr) {
            (prepare->*operation)(exec);
        }
    }
}

bool TUnionPrep::answerOfSecond(bool (TPrepare::*operation)(const TExec&), const TExec& exec)
{
    if (first_ != nullptr) {
        (void)(first_.get()->*operation)(exec);
    }
    return second_ == nullptr || (second_.get()->*operation)(exec);
}

} // namespace zelto::sys
