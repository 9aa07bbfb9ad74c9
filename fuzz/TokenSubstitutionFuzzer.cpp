// The first line of the input is the name of the domain, the rest the content. The result is
// compared with what going through the content character by character gives.

#include <algorithm>
#include <string>

#include "fuzz/Input.h"
#include "fuzz/Property.h"
#include "site/TokenSubstitution.h"

namespace
{

std::string naively(const std::string& content, const std::string& name)
{
    const std::string token = "@domain_name@";
    std::string result;
    for (size_t at = 0; at < content.size();) {
        if (content.compare(at, token.size(), token) == 0) {
            result += name;
            at += token.size();
        } else {
            result += content[at++];
        }
    }
    return result;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Input input(data, size);
    const std::string name = input.line();
    const std::string content = input.rest();

    std::string given = content;
    const bool hasToken = content.find("@domain_name@") != std::string::npos;
    const void* const where = given.data();
    const bool onHeap = given.size() > std::string().capacity();
    const std::string result = zelto::withDomainName(std::move(given), name);

    must(result == naively(content, name), "each token is replaced, from left to right");
    must(hasToken || !onHeap || result.data() == where, "content without a token is not copied");
    // A short string that leaves its own storage gets room for twice of that at least.
    must(!hasToken || result.capacity() <= std::max(result.size(), 2 * std::string().capacity()),
        "the result takes no more memory than it needs");
    must(zelto::withDomainName(content, "@domain_name@") == content,
        "the token in place of the token changes nothing");
    return 0;
}
