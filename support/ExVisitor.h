#pragma once

#include <string>

#include "support/Api.h"

namespace zelto
{

/// Goes through a failure report: derive from it to render or to log one. ExVisitable::accept()
/// says which operations are called, and in which order. What an operation throws ends the visit
/// and reaches the caller of accept().
class ZELTO_API ExVisitor
{
public:
    virtual ~ExVisitor() = default;

    virtual void visitMessage(const std::string& name) = 0;      ///< the failure's name
    virtual void visitTrace(const std::string& text) = 0;        ///< what it tells people
    virtual void visitFunction(const std::string& function) = 0; ///< the function that raised it
    virtual void visitFile(const std::string& file) = 0;         ///< the source file of that
    virtual void visitLine(int line) = 0;                        ///< the line in that file
    virtual void enterIncluded() = 0; ///< comes before the visit of the nested report

protected:
    ExVisitor() = default;
    ExVisitor(const ExVisitor&) = default;
    ExVisitor& operator=(const ExVisitor&) = default;
};

} // namespace zelto
