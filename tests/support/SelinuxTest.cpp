#include <cerrno>
#include <gtest/gtest.h>
#include <string>

#include "support/SystemError.h"
#include "support/misc.h"
#include "tests/lib/World.h"

namespace
{

constexpr char targeted[] = "/etc/selinux/targeted/contexts/files/file_contexts";

/// A host with an SELinux configuration.
class SelinuxFileContexts : public World
{
protected:
    SelinuxFileContexts() { makeDir("/etc/selinux"); }

    static std::string with(const std::string& configuration)
    {
        makeFile("/etc/selinux/config", configuration);
        return zelto::selinuxFileContexts();
    }
};

} // namespace

TEST_F(SelinuxFileContexts, AreThoseOfTheTypeWhereSelinuxIsEnforcing)
{
    EXPECT_EQ(with("SELINUX=enforcing\nSELINUXTYPE=targeted\n"), targeted);
}

TEST_F(SelinuxFileContexts, AreThoseOfTheTypeWhereSelinuxIsPermissive)
{
    EXPECT_EQ(with("SELINUX=permissive\nSELINUXTYPE=strict\n"),
        "/etc/selinux/strict/contexts/files/file_contexts");
}

TEST_F(SelinuxFileContexts, AreFoundAmongCommentsInAnyOrder)
{
    EXPECT_EQ(with("# SELINUX= takes one of:\n#     enforcing\n\nSELINUXTYPE=targeted\n"
                   "# the mode\nSELINUX=enforcing\n# end"),
        targeted);
}

TEST_F(SelinuxFileContexts, AreFoundInALastLineWithoutANewline)
{
    EXPECT_EQ(with("SELINUXTYPE=targeted\nSELINUX=enforcing"), targeted);
}

TEST_F(SelinuxFileContexts, DoNotExistWhereSelinuxIsDisabled)
{
    EXPECT_EQ(with("SELINUX=disabled\nSELINUXTYPE=targeted\n"), "");
}

TEST_F(SelinuxFileContexts, DoNotExistForAModeThatOnlyBeginsLikeOneInUse)
{
    EXPECT_EQ(with("SELINUX=enforcingly\nSELINUXTYPE=targeted\n"), "");
}

TEST_F(SelinuxFileContexts, DoNotExistForAModeWithACapitalLetter)
{
    EXPECT_EQ(with("SELINUX=Enforcing\nSELINUXTYPE=targeted\n"), "");
}

TEST_F(SelinuxFileContexts, DoNotExistWithoutAMode)
{
    EXPECT_EQ(with("SELINUXTYPE=targeted\n"), "");
}

TEST_F(SelinuxFileContexts, DoNotExistWithoutAType)
{
    EXPECT_EQ(with("SELINUX=enforcing\n"), "");
}

TEST_F(SelinuxFileContexts, DoNotExistForAnEmptyConfiguration)
{
    EXPECT_EQ(with(""), "");
}

TEST_F(SelinuxFileContexts, GoByTheFirstOfSeveralLines)
{
    EXPECT_EQ(with("SELINUX=disabled\nSELINUX=enforcing\nSELINUXTYPE=targeted\n"), "");
    EXPECT_EQ(with("SELINUX=enforcing\nSELINUX=disabled\n"
                   "SELINUXTYPE=targeted\nSELINUXTYPE=strict\n"),
        targeted);
}

TEST_F(SelinuxFileContexts, PassOverALineThatIsNotAllSmallLetters)
{
    EXPECT_EQ(with("SELINUX=Disabled\nSELINUX=enforcing\nSELINUXTYPE=mls2\nSELINUXTYPE=targeted\n"),
        targeted);
}

TEST_F(SelinuxFileContexts, PassOverALineWithoutAValue)
{
    EXPECT_EQ(with("SELINUX=\nSELINUX=enforcing\nSELINUXTYPE=\nSELINUXTYPE=targeted\n"), targeted);
}

TEST_F(SelinuxFileContexts, DoNotExistForATypeWithDigitsOrDashes)
{
    EXPECT_EQ(with("SELINUX=enforcing\nSELINUXTYPE=mls2\n"), "");
    EXPECT_EQ(with("SELINUX=enforcing\nSELINUXTYPE=refpolicy-targeted\n"), "");
    EXPECT_EQ(with("SELINUX=enforcing\nSELINUXTYPE=\n"), "");
}

TEST_F(SelinuxFileContexts, DoNotExistForLinesWithTrailingBlanks)
{
    EXPECT_EQ(with("SELINUX=enforcing \nSELINUXTYPE=targeted\n"), "");
    EXPECT_EQ(with("SELINUX=enforcing\nSELINUXTYPE=targeted\t\n"), "");
}

TEST_F(SelinuxFileContexts, DoNotExistForLinesWithCarriageReturns)
{
    EXPECT_EQ(with("SELINUX=enforcing\r\nSELINUXTYPE=targeted\r\n"), "");
}

TEST_F(SelinuxFileContexts, DoNotExistForLinesThatBeginWithSomethingElse)
{
    EXPECT_EQ(with(" SELINUX=enforcing\nSELINUXTYPE=targeted\n"), "");
    EXPECT_EQ(with("SELINUX=enforcing\n#SELINUXTYPE=targeted\n"), "");
}

TEST_F(SelinuxFileContexts, NeedNotExistAsAFile)
{
    EXPECT_EQ(with("SELINUX=enforcing\nSELINUXTYPE=nowhere\n"),
        "/etc/selinux/nowhere/contexts/files/file_contexts");
}

TEST_F(SelinuxFileContexts, DoNotExistWithoutAConfiguration)
{
    EXPECT_EQ(zelto::selinuxFileContexts(), "");
}

TEST_F(SelinuxFileContexts, DoNotExistForAConfigurationThatIsADirectory)
{
    makeDir("/etc/selinux/config");
    EXPECT_EQ(zelto::selinuxFileContexts(), "");
}

TEST_F(SelinuxFileContexts, AreNotKnownWhenTheConfigurationCannotBeOpened)
{
    makeLink("/etc/selinux/config", "config");
    try {
        (void)zelto::selinuxFileContexts();
        FAIL() << "nothing was thrown";
    } catch (const zelto::SystemError& error) {
        EXPECT_EQ(error.errorCode(), ELOOP);
        EXPECT_STREQ(
            error.what(), "/etc/selinux/config: open failed: Too many levels of symbolic links");
    }
}

TEST_F(SelinuxFileContexts, AreReadAnewByEachCall)
{
    EXPECT_EQ(with("SELINUX=enforcing\nSELINUXTYPE=targeted\n"), targeted);
    EXPECT_EQ(with("SELINUX=disabled\nSELINUXTYPE=targeted\n"), "");
}
