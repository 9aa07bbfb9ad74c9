#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "support/Api.h"
#include "support/TSysErr.h"

/// @file
/// The words of a command that is to be executed.

namespace zelto::sys
{

/// The path of a program and its arguments, as execv(3) wants them: element 0 is the path, or the
/// name that is looked up on PATH.
///
/// Copies are cheap: they share the words until one of them is changed, which then gets words of
/// its own. Moving is copying, so that an object that was moved from is as good as before. Sharing
/// is not meant for several threads.
class ZELTO_API TEArgs
{
public:
    class TEArgsError;
    class TOverflow;
    class TOutOfRange;

    /// The most words that there can be, the path included.
    static constexpr std::size_t limit = 100;

    /// No words at all; to execute that fails.
    /// @throw std::bad_alloc without the memory for it.
    TEArgs();
    /// Shares the words of another.
    TEArgs(const TEArgs& other) noexcept;
    /// Gives the own words up and shares those of another.
    TEArgs& operator=(const TEArgs& other) noexcept;
    ~TEArgs();

    /// Appends a word, which is copied up to its first NUL.
    /// @return the object itself, so that calls can be chained.
    /// @throw std::invalid_argument for null.
    /// @throw TOverflow when there are 100 words already; nothing has changed then.
    /// @throw std::bad_alloc without the memory for it.
    TEArgs& add(const char* word);

    /// Appends a word. It is kept whole, but what is executed ends at its first NUL.
    /// @return the object itself, so that calls can be chained.
    /// @throw TOverflow when there are 100 words already; nothing has changed then.
    /// @throw std::bad_alloc without the memory for it.
    TEArgs& add(const std::string& word);

    /// Appends all words of another, which may be this object itself, in their order.
    /// @return the object itself, so that calls can be chained.
    /// @throw TOverflow when both together have more than 100 words; nothing has changed then.
    /// @throw std::bad_alloc without the memory for it.
    TEArgs& add(const TEArgs& other);

    /// One word, counted from 0. It stays where it is until this object is changed or gone.
    /// @throw TOutOfRange when the index is below 0 or not below size().
    const std::string& operator[](int index) const;

    /// How many words there are, the path included.
    [[nodiscard]] std::size_t size() const noexcept;

    /// Replaces the program that this process runs, as execvp(3) when the path is to be looked up
    /// on PATH and as execv(3) when not. On success this does not return.
    /// @return -1 with `errno` of that call; EFAULT where there are no words. Nothing that was
    ///         allocated for the call is left.
    /// @throw std::bad_alloc without the memory for copies of the words.
    int execute(bool searchPath) const;

private:
    ZELTO_INTERNAL void checkRoom(std::size_t additional) const;
    ZELTO_INTERNAL void makePrivate();

    std::shared_ptr<std::vector<std::string>> words_; ///< never null
};

/// Words were refused. The root of the errors of TEArgs.
class ZELTO_API TEArgs::TEArgsError : public TSysErr
{
public:
    /// @param message the whole text of what().
    /// @param args    the words that were asked for more than they can do; the error shares them,
    ///                so it shows them as they were whatever becomes of the original.
    TEArgsError(const std::string& message, const TEArgs& args);
    TEArgsError(const TEArgsError&) = default;
    TEArgsError& operator=(const TEArgsError&) = default;
    ~TEArgsError() override;

    /// Always 0: no system call has failed.
    [[nodiscard]] int errorCode() const noexcept { return err_; }

    /// The words as they were, without what was refused.
    [[nodiscard]] const TEArgs& args() const noexcept { return args_; }

private:
    int err_ = 0;
    TEArgs args_;
};

/// There would be more than 100 words. The text is "The number of arguments has exceeded the
/// defined limits (arguments number = S, add. arguments number = A, max = 100)" with the number of
/// words there are and the number that was to be added.
class ZELTO_API TEArgs::TOverflow : public TEArgs::TEArgsError
{
public:
    /// @param args       the words there are.
    /// @param additional how many were to be added.
    TOverflow(const TEArgs& args, std::size_t additional);
    TOverflow(const TOverflow&) = default;
    TOverflow& operator=(const TOverflow&) = default;
    ~TOverflow() override;
};

/// There is no such word. The text is "Wrong index (index = I)".
class ZELTO_API TEArgs::TOutOfRange : public TEArgs::TEArgsError
{
public:
    /// @param args  the words there are.
    /// @param index the one that was asked for.
    TOutOfRange(const TEArgs& args, int index);
    TOutOfRange(const TOutOfRange&) = default;
    TOutOfRange& operator=(const TOutOfRange&) = default;
    ~TOutOfRange() override;

    /// The index that was asked for.
    [[nodiscard]] int index() const noexcept { return index_; }

private:
    int index_;
};

} // namespace zelto::sys
