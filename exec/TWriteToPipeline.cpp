#include "exec/TWriteToPipeline.h"

#include <stdexcept>
#include <utility>

namespace zelto::sys
{

TWriteToPipeline::TWriteToPipeline(std::shared_ptr<Pipe> pipe) : pipe_(std::move(pipe))
{
    if (pipe_ == nullptr) {
        throw std::invalid_argument("TWriteToPipeline: null pipe");
    }
}

TWriteToPipeline::~TWriteToPipeline() = default;

void TWriteToPipeline::beforeFork(const TExec& /*exec*/)
{
    pipe_->open();
}

void TWriteToPipeline::inChild(const TExec& /*exec*/)
{
    pipe_->becomeStandardOutput();
}

} // namespace zelto::sys
