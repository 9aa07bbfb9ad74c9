#include "support/ExTraceable.h"

#include <memory>

#include "support/ExVisitor.h"

namespace zelto
{

ExTraceable::ExTraceable(const std::string& name, const std::string& formatText)
    : std::runtime_error(name), // NOLINT(bugprone-throw-keyword-missing): it is a base
      trace_(formatText)
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
        whatText_ = traceText();
        return whatText_.c_str();
    } catch (...) {
        return std::runtime_error::what();
    }
}

void ExTraceable::accept(ExVisitor& visitor) const
{
    visitor.visitMessage(std::runtime_error::what());
    visitor.visitTrace(traceText());
}

std::string ExTraceable::traceText() const
{
    try {
        return trace_.str();
    } catch (const boost::io::format_error&) {
        return std::runtime_error::what();
    }
}

} // namespace zelto
