#pragma once

#include <string>

#include "exec/TExec.h"
#include "support/Api.h"

/// @file
/// Preparations that connect a program's descriptors to other descriptors and to files.
///
/// They act in the child and check nothing: where a file cannot be opened or a descriptor is not
/// open, the program runs with the target descriptor closed. Files to be written are created with
/// mode 0664, less the umask, and emptied unless they are to be appended to.

namespace zelto::sys
{

/// Connects a descriptor of the program to what another one refers to, as dup2(2).
class ZELTO_API TRedirect : public TExec::TPrepare
{
public:
    /// @param target is closed and opened anew. The same as the source, it ends up closed.
    /// @param source stays open in the program as well.
    TRedirect(int target, int source) noexcept;
    ~TRedirect() override;

    /// Connects them.
    void inChild(const TExec& exec) override;

private:
    int target_;
    int source_;
};

/// Has a descriptor of the program write into a file.
class ZELTO_API TRedirectToFile : public TExec::TPrepare
{
public:
    /// @param target the descriptor, such as 2.
    /// @param path   opened in the child, so relative to the directory that the child is in.
    /// @param append whether to write behind what the file holds instead of emptying it.
    TRedirectToFile(int target, std::string path, bool append = false) noexcept;
    ~TRedirectToFile() override;

    /// Opens the file.
    void inChild(const TExec& exec) override;

private:
    int target_;
    std::string path_;
    bool append_;
};

/// Has the program's standard output written into a file.
class ZELTO_API TToFile : public TExec::TPrepare
{
public:
    /// @param path   opened in the child, so relative to the directory that the child is in.
    /// @param append whether to write behind what the file holds instead of emptying it.
    explicit TToFile(std::string path, bool append = false) noexcept;
    ~TToFile() override;

    /// Opens the file.
    void inChild(const TExec& exec) override;

private:
    std::string path_;
    bool append_;
};

/// Has the program's standard input read from a file.
class ZELTO_API TFromFile : public TExec::TPrepare
{
public:
    /// @param path opened in the child, so relative to the directory that the child is in.
    explicit TFromFile(std::string path) noexcept;
    ~TFromFile() override;

    /// Opens the file.
    void inChild(const TExec& exec) override;

private:
    std::string path_;
};

} // namespace zelto::sys
