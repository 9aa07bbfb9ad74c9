#pragma once

#include <memory>

#include "exec/Pipe.h"
#include "exec/TExec.h"
#include "support/Api.h"

namespace zelto::sys
{

/// Connects the program's standard input to the previous command of a pipeline, which has a
/// TWriteToPipeline on the same Pipe and was started before.
class ZELTO_API TReadFromPipeline : public TExec::TPrepare
{
public:
    /// @throw std::invalid_argument for null.
    explicit TReadFromPipeline(std::shared_ptr<Pipe> pipe);
    ~TReadFromPipeline() override;

    /// Leaves the pipe to the two children.
    void inParent(const TExec& exec) override;
    /// Connects the standard input.
    void inChild(const TExec& exec) override;

private:
    std::shared_ptr<Pipe> pipe_;
};

} // namespace zelto::sys
