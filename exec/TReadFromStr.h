#pragma once

#include <string>

#include "exec/TExec.h"
#include "support/Api.h"

namespace zelto::sys
{

/// Feeds a text to the program's standard input.
///
/// A helper process does the writing while the program reads, so the text may be longer than a pipe
/// holds. The helper is a child of the executed program, which knows nothing of it: the caller
/// neither sees it nor waits for it. It ends when the text is written or when nobody reads on.
class ZELTO_API TReadFromStr : public TExec::TPrepare
{
public:
    /// @param text what the program reads before the end of its input; may be empty.
    explicit TReadFromStr(std::string text) noexcept;
    ~TReadFromStr() override;

    /// Starts the helper and connects the standard input.
    /// @throw TSysCallErr, in the child, when pipe(2) or fork(2) failed.
    void inChild(const TExec& exec) override;

private:
    std::string text_;
};

} // namespace zelto::sys
