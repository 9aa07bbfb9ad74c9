#pragma once

#include <memory>
#include <string>

#include "support/Api.h"
#include "support/ExTraceable.h"

namespace zelto
{

/// A failure report that can hold another one, the failure behind the failure.
class ZELTO_API ExTaggedIncludable : public ExTraceable
{
public:
    /// @param included the nested report, taken over; null for none.
    ExTaggedIncludable(const std::string& name, const std::string& formatText,
        std::unique_ptr<ExTraceable> included);

    /// Copies with a clone of the nested report, so that each owns its own.
    ExTaggedIncludable(const ExTaggedIncludable& from);
    ExTaggedIncludable& operator=(const ExTaggedIncludable& from);
    ~ExTaggedIncludable() override;

    [[nodiscard]] Cloneable* clone() const override;

    /// As ExTraceable::accept(); then, when there is a nested report, enterIncluded() and the visit
    /// of that report.
    void accept(ExVisitor& visitor) const override;

    /// The nested report, which stays this one's; null if there is none.
    [[nodiscard]] const ExTraceable* included() const noexcept { return included_.get(); }

private:
    std::unique_ptr<ExTraceable> included_;
};

} // namespace zelto
