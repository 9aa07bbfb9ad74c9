#pragma once

#include <boost/format.hpp>
#include <stdexcept>
#include <string>

#include "support/Api.h"
#include "support/Cloneable.h"
#include "support/ExVisitable.h"

namespace zelto
{

/// A failure report: a name for programs and a text for people.
///
/// The text is a boost::format. Whoever raises the report feeds it all its arguments, in order,
/// before throwing; what() formats it, after which feeding starts anew.
class ZELTO_API ExTraceable : public Cloneable, public ExVisitable, public std::runtime_error
{
public:
    /// @param name       what visitors are told as the message; what() does not show it.
    /// @param formatText the format of the text, with placeholders such as "%1%". It must not hold
    ///                   values: those are fed as arguments, where a '%' does no harm.
    /// @throw boost::io::bad_format_string for a text that is no format.
    ExTraceable(const std::string& name, const std::string& formatText);
    ExTraceable(const ExTraceable&) = default;
    ExTraceable& operator=(const ExTraceable&) = default;
    ~ExTraceable() override;

    /// A copy with the name, the format and the arguments fed so far; the caller owns it.
    /// @throw std::bad_alloc; nothing is left then.
    [[nodiscard]] Cloneable* clone() const override;

    /// The formatted text, composed anew by each call. The pointer is good until the next call or
    /// the end of the exception. A format that still lacks arguments, or no memory to fill it,
    /// yields the name instead.
    [[nodiscard]] const char* what() const noexcept override;

    /// Calls visitMessage() with the name and visitTrace() with the text of what(), which a NUL in
    /// it does not cut short here.
    /// @throw std::bad_alloc without memory for either, and what the visitor throws.
    void accept(ExVisitor& visitor) const override;

    /// The format to feed.
    [[nodiscard]] boost::format& trace() noexcept { return trace_; }

private:
    [[nodiscard]] ZELTO_INTERNAL std::string traceText() const;

    boost::format trace_;
    mutable std::string whatText_; ///< what the last what() returned
};

} // namespace zelto
