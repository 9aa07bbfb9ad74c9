#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "support/ExTaggedIncludable.h"
#include "support/ExVisitor.h"

namespace zelto
{

/// A failure report of one kind, with the place that raised it. The kind is the tag, the address of
/// a function that is never called: catching `Exc<&Tag>` catches this kind of failure alone.
template<void (*Tag)(bool)>
class ZELTO_API Exc : public ExTaggedIncludable
{
public:
    /// @param name       as for ExTraceable.
    /// @param formatText as for ExTraceable.
    /// @param included   the nested report, taken over; null for none.
    /// @param function   the function that raises the report.
    /// @param file       the source file of that.
    /// @param line       the line in that file.
    /// @throw boost::io::bad_format_string for a text that is no format.
    Exc(const std::string& name, const std::string& formatText,
        std::unique_ptr<ExTraceable> included, std::string function, std::string file, int line)
        : ExTaggedIncludable(name, formatText, std::move(included)), function_(std::move(function)),
          file_(std::move(file)), line_(line)
    {
    }
    Exc(const Exc&) = default;
    Exc& operator=(const Exc&) = default;
    ~Exc() override = default;

    /// A copy with all that the report holds, of this very class; the caller owns it.
    /// @throw as the copy constructor of ExTaggedIncludable; nothing is left then.
    [[nodiscard]] Cloneable* clone() const override
    {
        return std::make_unique<Exc>(*this).release();
    }

    /// Calls visitFunction(), visitFile() and visitLine(), then as ExTaggedIncludable::accept().
    void accept(ExVisitor& visitor) const override
    {
        visitor.visitFunction(function_);
        visitor.visitFile(file_);
        visitor.visitLine(line_);
        ExTaggedIncludable::accept(visitor);
    }

    /// The function that raised the report.
    [[nodiscard]] const std::string& function() const noexcept { return function_; }

    /// The source file of that function.
    [[nodiscard]] const std::string& file() const noexcept { return file_; }

    /// The line in that file.
    [[nodiscard]] int line() const noexcept { return line_; }

private:
    std::string function_;
    std::string file_;
    std::int32_t line_;
};

} // namespace zelto
