#pragma once

#include <string>
#include <vector>

#include "support/ExVisitable.h"
#include "support/ExVisitor.h"

/// Writes down what it is told, one entry per call.
class RecordingVisitor : public zelto::ExVisitor
{
public:
    void visitMessage(const std::string& name) override { add("message", name); }
    void visitTrace(const std::string& text) override { add("trace", text); }
    void visitFunction(const std::string& function) override { add("function", function); }
    void visitFile(const std::string& file) override { add("file", file); }
    void visitLine(int line) override { add("line", std::to_string(line)); }
    void enterIncluded() override { told_.emplace_back("included"); }

    [[nodiscard]] const std::vector<std::string>& told() const { return told_; }

private:
    void add(const std::string& what, const std::string& text)
    {
        told_.push_back(what + ' ' + text);
    }

    std::vector<std::string> told_;
};

using Visit = std::vector<std::string>;

/// What a visitor is told by the report.
inline Visit visitOf(const zelto::ExVisitable& report)
{
    RecordingVisitor visitor;
    report.accept(visitor);
    return visitor.told();
}
