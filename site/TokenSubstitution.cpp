#include "site/TokenSubstitution.h"

namespace zelto
{

namespace
{

constexpr std::string_view token = "@domain_name@";

size_t countTokens(std::string_view content)
{
    size_t count = 0;
    for (size_t at = 0; (at = content.find(token, at)) != std::string_view::npos;
         at += token.size()) {
        ++count;
    }
    return count;
}

} // namespace

std::string withDomainName(std::string content, std::string_view name)
{
    const size_t count = countTokens(content);
    if (count == 0) {
        return content;
    }
    std::string result;
    result.reserve(content.size() - count * token.size() + count * name.size());
    const std::string_view text = content;
    size_t from = 0;
    for (size_t at = 0; (at = text.find(token, from)) != std::string_view::npos;
         from = at + token.size()) {
        result.append(text, from, at - from).append(name);
    }
    result.append(text, from);
    return result;
}

} // namespace zelto
