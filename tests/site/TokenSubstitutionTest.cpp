#include <gtest/gtest.h>
#include <random>

#include "site/TokenSubstitution.h"

using zelto::withDomainName;

namespace
{

/// The same by the shortest road: cut, put in, go on behind.
std::string naively(const std::string& content, const std::string& name)
{
    const size_t at = content.find("@domain_name@");
    return at == std::string::npos
               ? content
               : content.substr(0, at) + name + naively(content.substr(at + 13), name);
}

} // namespace

TEST(TokenSubstitution, EveryTokenIsReplaced)
{
    EXPECT_EQ(withDomainName("@domain_name@", "example.test"), "example.test");
    EXPECT_EQ(withDomainName("a @domain_name@ b @domain_name@ c", "example.test"),
        "a example.test b example.test c");
    EXPECT_EQ(withDomainName("@domain_name@@domain_name@", "x"), "xx");
}

TEST(TokenSubstitution, TheSearchGoesOnBehindTheReplacedToken)
{
    EXPECT_EQ(withDomainName("@domain_name@domain_name@", "x"), "xdomain_name@");
    EXPECT_EQ(withDomainName("@@domain_name@@", "x"), "@x@");
    EXPECT_EQ(withDomainName("@domain_@domain_name@name@", "x"), "@domain_xname@");
}

TEST(TokenSubstitution, ANameThatHoldsTheTokenIsNotExpandedAgain)
{
    EXPECT_EQ(withDomainName("<@domain_name@>", "a@domain_name@b"), "<a@domain_name@b>");
    EXPECT_EQ(withDomainName("@domain_name@name@", "@domain_"), "@domain_name@");
}

TEST(TokenSubstitution, AnEmptyNameTakesTheTokenOut)
{
    EXPECT_EQ(withDomainName("a@domain_name@b", ""), "ab");
    EXPECT_EQ(withDomainName("@domain_name@", ""), "");
}

TEST(TokenSubstitution, PartsOfATokenAndOtherSpellingsStay)
{
    for (const std::string text : {"@domain_name", "domain_name@", "@Domain_Name@", "@domain-name@",
             "@domain_name @", "@", ""}) {
        EXPECT_EQ(withDomainName(text, "x"), text);
    }
}

TEST(TokenSubstitution, AnyOtherBytesArePreserved)
{
    using namespace std::string_literals;
    EXPECT_EQ(withDomainName("\0a\r\n@domain_name@\0\xff\r\n\0"s, "x"), "\0a\r\nx\0\xff\r\n\0"s);
    EXPECT_EQ(withDomainName("@domain\0_name@"s, "x"), "@domain\0_name@"s);
    EXPECT_EQ(withDomainName("\r\n\0"s, "x"), "\r\n\0"s);
}

TEST(TokenSubstitution, ContentWithoutATokenComesBackUncopied)
{
    std::string content(1000, 'a');
    const void* const where = content.data();
    const std::string result = withDomainName(std::move(content), "x");
    EXPECT_TRUE(result.data() == where);
}

TEST(TokenSubstitution, TheResultIsAllocatedOnceAndExactly)
{
    std::string content;
    for (int i = 0; i < 1000; ++i) {
        content += "line @domain_name@\n";
    }
    const std::string result = withDomainName(content, "a-rather-long-name.example.test");
    EXPECT_EQ(result.size(), content.size() + 1000UL * (31 - 13));
    EXPECT_EQ(result.capacity(), result.size());
}

TEST(TokenSubstitution, RandomTextsGiveWhatTheNaiveWayGives)
{
    std::mt19937 random(1);
    constexpr std::string_view pieces[] = {"@", "@domain_name@", "domain_name@", "@domain_name",
        "@domain_", "name@", "x", "\n", std::string_view("\0", 1)};
    const auto text = [&random, &pieces](unsigned longest) {
        std::string result;
        for (auto count = random() % longest; count > 0; --count) {
            result += pieces[random() % std::size(pieces)];
        }
        return result;
    };
    for (int i = 0; i < 20000; ++i) {
        const std::string content = text(12);
        const std::string name = text(4);
        ASSERT_EQ(withDomainName(content, name), naively(content, name)) << content;
    }
}
