#pragma once

#include <memory>

#include "exec/TExec.h"
#include "support/Api.h"

namespace zelto::sys
{

/// Two preparations for one command. Each operation is the first's, then the second's; either may
/// be absent. Whether a failure is thrown is for the second alone to say.
class ZELTO_API TUnionPrep : public TExec::TPrepare
{
public:
    /// @param first  null for none.
    /// @param second null for none; released before the first.
    TUnionPrep(std::shared_ptr<TPrepare> first, std::shared_ptr<TPrepare> second) noexcept;
    ~TUnionPrep() override;

    /// Both, in order.
    void beforeFork(const TExec& exec) override;
    /// Asks both, in order.
    /// @return the answer of the second, true if there is none. The first's is not heeded.
    bool onForkError(const TExec& exec) override;
    /// Both, in order.
    void inParent(const TExec& exec) override;
    /// Both, in order.
    void inChild(const TExec& exec) override;
    /// Both, in order.
    void beforeExec(const TExec& exec) override;
    /// Asks both, in order.
    /// @return the answer of the second, true if there is none. The first's is not heeded.
    bool onExecError(const TExec& exec) override;

private:
    ZELTO_INTERNAL void onBoth(void (TPrepare::*operation)(const TExec&), const TExec& exec);
    ZELTO_INTERNAL bool answerOfSecond(
        bool (TPrepare::*operation)(const TExec&), const TExec& exec);

    std::shared_ptr<TPrepare> first_;
    std::shared_ptr<TPrepare> second_; ///< declared last, so released first
};

} // namespace zelto::sys
