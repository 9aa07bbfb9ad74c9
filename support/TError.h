#pragma once

#include <exception>
#include <memory>
#include <string>

#include "support/Api.h"

namespace zelto
{

/// The root of the executor's errors: a message and, if the raiser wants, an object that travels
/// with it. It is not a std::runtime_error, so that handlers for those let it pass.
class ZELTO_API TError : public std::exception
{
public:
    /// The base of objects that can travel with an error.
    class ZELTO_API Detail
    {
    public:
        virtual ~Detail();

    protected:
        Detail() = default;
        Detail(const Detail&) = default;
        Detail& operator=(const Detail&) = default;
    };

    /// @param message what went wrong.
    /// @param detail  an object to travel along, taken over; null for none. All copies of the error
    ///                share it, and the last of them deletes it. The count of sharers is not meant
    ///                for several threads.
    /// @throw std::bad_alloc; the object is deleted then.
    explicit TError(std::string message, std::unique_ptr<Detail> detail = nullptr);
    TError(const TError&) = default;
    TError& operator=(const TError&) = default;
    ~TError() override;

    /// The message.
    [[nodiscard]] const char* what() const noexcept override;

    /// The travelling object, null if there is none; use_count() tells how many errors share it
    /// and counts also where there is no object.
    [[nodiscard]] const std::shared_ptr<Detail>& detail() const noexcept { return detail_; }

private:
    std::string message_;
    std::shared_ptr<Detail> detail_;
};

} // namespace zelto
