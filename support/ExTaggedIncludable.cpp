#include "support/ExTaggedIncludable.h"

#include <typeinfo>
#include <utility>

#include "support/ExVisitor.h"

namespace zelto
{

namespace
{

std::unique_ptr<ExTraceable> cloneOf(const std::unique_ptr<ExTraceable>& report)
{
    if (!report) {
        return nullptr;
    }
    std::unique_ptr<Cloneable> copy(report->clone());
    auto* const traceable = dynamic_cast<ExTraceable*>(copy.get());
    if (traceable == nullptr) {
        throw std::bad_cast();
    }
    (void)copy.release();
    return std::unique_ptr<ExTraceable>(traceable);
}

} // namespace

ExTaggedIncludable::ExTaggedIncludable(
    const std::string& name, const std::string& formatText, std::unique_ptr<ExTraceable> included)
    : ExTraceable(name, formatText), included_(std::move(included))
{
}

ExTaggedIncludable::ExTaggedIncludable(const ExTaggedIncludable& from)
    : ExTraceable(from), included_(cloneOf(from.included_))
{
}

ExTaggedIncludable& ExTaggedIncludable::operator=(const ExTaggedIncludable& from)
{
    std::unique_ptr<ExTraceable> included = cloneOf(from.included_);
    ExTraceable::operator=(from);
    included_ = std::move(included);
    return *this;
}

ExTaggedIncludable::~ExTaggedIncludable() = default;

Cloneable* ExTaggedIncludable::clone() const
{
    return std::make_unique<ExTaggedIncludable>(*this).release();
}

void ExTaggedIncludable::accept(ExVisitor& visitor) const
{
    ExTraceable::accept(visitor);
    if (included_) {
        visitor.enterIncluded();
        included_->accept(visitor);
    }
}

} // namespace zelto
