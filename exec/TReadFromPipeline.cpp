#include "exec/TReadFromPipeline.h"

#include <stdexcept>
#include <utility>

namespace zelto::sys
{

TReadFromPipeline::TReadFromPipeline(std::shared_ptr<Pipe> pipe) : pipe_(std::move(pipe))
{
    if (pipe_ == nullptr) {
        throw std::invalid_argument("TReadFromPipeline: null pipe");
    }
}

TReadFromPipeline::~TReadFromPipeline() = default;

void TReadFromPipeline::inParent(const TExec& /*exec*/)
{
    pipe_->closeReadEnd();
    pipe_->closeWriteEnd();
}

void TReadFromPipeline::inChild(const TExec& /*exec*/)
{
    pipe_->becomeStandardInput();
}

} // namespace zelto::sys
