#pragma once

#include <memory>

#include "exec/Pipe.h"
#include "exec/TExec.h"
#include "support/Api.h"

namespace zelto::sys
{

/// Connects the program's standard output to the next command of a pipeline, which has a
/// TReadFromPipeline on the same Pipe. The parent keeps both ends until that one has started.
class ZELTO_API TWriteToPipeline : public TExec::TPrepare
{
public:
    /// @throw std::invalid_argument for null.
    explicit TWriteToPipeline(std::shared_ptr<Pipe> pipe);
    ~TWriteToPipeline() override;

    /// Makes the pipe, closing that of an earlier run.
    /// @throw TSysCallErr when there can be none.
    void beforeFork(const TExec& exec) override;
    /// Connects the standard output.
    void inChild(const TExec& exec) override;

private:
    std::shared_ptr<Pipe> pipe_;
};

} // namespace zelto::sys
