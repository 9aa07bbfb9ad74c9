#include <algorithm>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "exec/ForkExec.h"
#include "exec/ShellEscape.h"
#include "tests/exec/Arguments.h"
#include "tests/lib/World.h"

namespace
{

using Words = std::vector<std::string>;

/// Lets real shells read escaped words back.
class ShellEscapeRoundTrip : public World
{
protected:
    /// What the shell makes of the words, each closed by a null byte, one printf for each word.
    static std::string readBack(const Arguments& shell, const Words& words)
    {
        std::string script;
        for (const std::string& word : words) {
            script += "printf '%s\\0' " + shellEscape(word) + '\n';
        }
        makeFile("/srv/script", script);
        std::string output;
        std::string error;
        const std::map<std::string, std::string> env{{"LC_ALL", "C.UTF-8"}};
        EXPECT_EQ(forkExecvGetOutErr(output, error, "env", shell, static_cast<uid_t>(-1), env), 0);
        EXPECT_EQ(error, "");
        return output;
    }

    /// Compares word by word, so that a failure shows the one that it is about.
    static void expectBack(const Arguments& shell, const Words& words)
    {
        const std::string output = readBack(shell, words);
        std::string_view rest = output;
        for (const std::string& word : words) {
            const std::string_view back = rest.substr(0, rest.find('\0'));
            ASSERT_EQ(back, word);
            rest.remove_prefix(std::min(back.size() + 1, rest.size()));
        }
        EXPECT_EQ(rest, "");
    }

    const Arguments dash_{"env", "dash", "/srv/script"};
    const Arguments bash_{"env", "bash", "/srv/script"};
    const Arguments bashWithoutBraces_{"env", "bash", "+B", "/srv/script"};
};

/// Every byte but null: alone, repeated, and in each place of a word.
Words everyByte()
{
    Words words;
    for (int value = 1; value < 256; ++value) {
        const std::string byte(1, static_cast<char>(value));
        words.insert(words.end(),
            {byte, std::string(3, byte[0]), byte + "ab", "a" + byte + "b", "ab" + byte});
    }
    return words;
}

/// A hundred thousand words, always the same; every second one mostly of what shells care about.
Words randomWords()
{
    constexpr std::string_view special =
        "\t\n\r !\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~aZ09\x7f\x81\xa0";
    std::mt19937 random(20240229);
    Words words(100000);
    for (std::string& word : words) {
        const bool fromSpecial = random() % 2 == 0;
        for (size_t left = 1 + random() % 24; left > 0; --left) {
            word += fromSpecial ? special[random() % special.size()]
                                : static_cast<char>(1 + random() % 255);
        }
    }
    return words;
}

/// The ones that bash reads as alternatives or sequences.
bool hasBraces(const std::string& word)
{
    const size_t open = word.find('{');
    const size_t close = word.rfind('}');
    if (open == std::string::npos || close == std::string::npos || close < open) {
        return false;
    }
    const std::string inside = word.substr(open, close - open);
    return inside.find(',') != std::string::npos || inside.find("..") != std::string::npos;
}

} // namespace

TEST_F(ShellEscapeRoundTrip, GivesBackEveryByteInDash)
{
    expectBack(dash_, everyByte());
}

TEST_F(ShellEscapeRoundTrip, GivesBackEveryByteInBash)
{
    expectBack(bash_, everyByte());
}

TEST_F(ShellEscapeRoundTrip, GivesBackRandomWordsInDash)
{
    expectBack(dash_, randomWords());
}

TEST_F(ShellEscapeRoundTrip, GivesBackRandomWordsInBashWithoutBraceExpansion)
{
    expectBack(bashWithoutBraces_, randomWords());
}

TEST_F(ShellEscapeRoundTrip, GivesBackRandomWordsInBashButForThoseWithBraces)
{
    Words words = randomWords();
    words.erase(std::remove_if(words.begin(), words.end(), hasBraces), words.end());
    EXPECT_GT(words.size(), 95000U);
    expectBack(bash_, words);
}

TEST_F(ShellEscapeRoundTrip, LetsBashExpandBraces)
{
    using namespace std::string_literals;
    EXPECT_EQ(readBack(bash_, {"a{b,c}"}), "ab\0ac\0"s);
    EXPECT_EQ(readBack(bash_, {"{1..3}"}), "1\0"s
                                           "2\0"s
                                           "3\0"s);
    EXPECT_EQ(readBack(dash_, {"a{b,c}", "{1..3}"}), "a{b,c}\0{1..3}\0"s);
    expectBack(bash_, {"{", "}", "{}", "{a}", "}{", "{a", "a}", "{a b}", "{'a'}"});
}

TEST_F(ShellEscapeRoundTrip, LosesAnEmptyWord)
{
    makeFile("/srv/script", "set -- " + shellEscape("") + "\necho $#\n");
    std::string output;
    EXPECT_EQ(forkExecvGetOutErr(output, "/bin/sh", Arguments{"sh", "/srv/script"}), 0);
    EXPECT_EQ(output, "0\n");
}

TEST_F(ShellEscapeRoundTrip, LeavesAFirstWordTheMeaningItHasThere)
{
    makeFile("/srv/script", shellEscape("!") + " false\n" + shellEscape("A=b") + "\necho $A\n");
    std::string output;
    EXPECT_EQ(forkExecvGetOutErr(output, "/bin/sh", Arguments{"sh", "-e", "/srv/script"}), 0);
    EXPECT_EQ(output, "b\n");
}
