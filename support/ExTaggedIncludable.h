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
    /// @param name       as for ExTraceable.
    /// @param formatText as for ExTraceable.
    /// @param included   the nested report, taken over; null for none.
    /// @throw boost::io::bad_format_string for a text that is no format. The nested report is
    /// freed.
    ExTaggedIncludable(const std::string& name, const std::string& formatText,
        std::unique_ptr<ExTraceable> included);

    /// Copies with a clone of the nested report, so that each owns its own.
    /// @throw std::bad_cast if the nested report clones itself into something else; std::bad_alloc
    ///                      without memory; and what the nested report's clone() throws.
    ExTaggedIncludable(const ExTaggedIncludable& from);

    /// Copies as the constructor does. When the nested report cannot be cloned, nothing changes.
    /// @throw as the copy constructor.
    ExTaggedIncludable& operator=(const ExTaggedIncludable& from);
    ~ExTaggedIncludable() override;

    /// As ExTraceable::clone(), with a clone of the nested report.
    /// @throw as the copy constructor; nothing is left then.
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
