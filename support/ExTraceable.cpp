#include "support/ExTraceable.h"

#include <memory>

#include "support/ExVisitor.h"

namespace zelto
{

ExTraceable::ExTraceable(const std::string& name, const std::string& formatText)
    : std::runtime_error(name), trace_(formatText)
{
}

ExTraceable::~ExTraceable() = default;

Cloneable* ExTraceable::clone() const
{
    return std::make_unique<ExTraceable>(*this).release();
}

const char* ExTraceable::what() const noexcept
{
    try {
        whatText_ = trace_.str();
        return whatText_.c_str();
    } catch (...) {
        return std::runtime_error::what();
    }
}

void ExTraceable::accept(ExVisitor& visitor) const
{
    visitor.visitMessage(std::runtime_error::what());
    visitor.visitTrace(ExTraceable::what());
}

} // namespace zelto
