#include "fuzz/ShellWords.h"

#include <gtest/gtest.h>

#include "exec/ShellEscape.h"
#include "tests/fuzz/Targets.h"
#include "tests/lib/Process.h"

// The small shell that the target for shell escaping trusts, beside the real one.

namespace
{

using Words = std::vector<std::string>;

/// The lines of which the small shell makes words, and those words, each closed by a null byte.
struct Lines {
    std::string script =
        "show() { for word; do printf '%s\\0' \"$word\"; done; printf '\\n\\0'; }\n";
    std::string expected;
    size_t count = 0;

    void add(const std::string& line)
    {
        if (const auto words = shellWords(line)) {
            script += "show " + line + '\n';
            for (const std::string& word : *words) {
                expected += word + '\0';
            }
            expected += std::string("\n\0", 2);
            ++count;
        }
    }
};

std::string withoutNul(std::string text)
{
    std::erase(text, '\0');
    return text;
}

/// The seeds, and short texts made of them.
Words texts()
{
    const std::vector<Seed> seeds = seedsOf("ShellEscape");
    Words texts = mutationsOf(seeds, 600);
    for (const Seed& seed : seeds) {
        texts.push_back(seed.content);
    }
    for (std::string& text : texts) {
        text = withoutNul(text).substr(0, 80);
    }
    return texts;
}

void expectSameAsShell(const Lines& lines)
{
    const Outcome shell = runProgram("/bin/sh", {"sh", "-c", lines.script});
    EXPECT_EQ(shell.err, "");
    EXPECT_EQ(shell.status, 0);
    EXPECT_TRUE(shell.out == lines.expected);
}

} // namespace

TEST(ShellWords, AreThoseOfAShellForEscapedTexts)
{
    const Words all = texts();
    Lines lines;
    for (const std::string& text : all) {
        lines.add(shellEscape(text));
    }
    EXPECT_EQ(lines.count, all.size());
    expectSameAsShell(lines);
}

TEST(ShellWords, AreThoseOfAShellForAnyTextThatIsUnderstood)
{
    Lines lines;
    for (const std::string& text : texts()) {
        lines.add(text);
    }
    for (const char* text : {"", " \t ", "''", "a''b ''", "'a b'c\\ d", "\\\na", "a\\\nb", "'\\'",
             "a#b", "''#", "a~", "! = {a,b} % ^ : @", "\\#\\~\\''\n'"}) {
        lines.add(text);
    }
    EXPECT_GT(lines.count, 100U);
    expectSameAsShell(lines);
}

TEST(ShellWords, AreNotMadeOfWhatAShellWouldDoMoreWith)
{
    for (const char* text : {"a|b", "a&", "a;b", "<a", ">a", "(a)", "$a", "`a`", "\"a\"", "*", "a?",
             "[a]", "#a", "a #b", "~", "a\nb", "'a", "a\\"}) {
        EXPECT_FALSE(shellWords(text)) << text;
    }
}
