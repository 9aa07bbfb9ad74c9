#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "conf/ProgramName.h"
#include "front/CommandLine.h"
#include "tests/lib/Faults.h"
#include "tests/lib/Process.h"
#include "tests/lib/World.h"

namespace
{

/// Keeps the arguments alive beside what was read from them.
class Parsed
{
public:
    explicit Parsed(std::vector<std::string> arguments) : arguments_(std::move(arguments))
    {
        arguments_.insert(arguments_.begin(), "twigctl");
        for (std::string& argument : arguments_) {
            argv_.push_back(argument.data());
        }
        argv_.push_back(nullptr);
        parseCommandLine(static_cast<int>(arguments_.size()), argv_.data(), line);
    }

    CommandLine line;

private:
    std::vector<std::string> arguments_;
    std::vector<char*> argv_;
};

Operation operationOf(const std::vector<std::string>& arguments)
{
    return Parsed(arguments).line.operation;
}

/// How the checks end for a line; status 0 and no output if they pass.
Outcome checked(const std::vector<std::string>& arguments)
{
    return inChild([&arguments] {
        PROGNAME = "twigctl";
        const Parsed parsed(arguments);
        checkRequiredParameters(parsed.line);
    });
}

void expectMissing(const std::vector<std::string>& arguments, const std::string& parameter)
{
    const Outcome end = checked(arguments);
    const std::string message =
        "twigctl: Miss parameter '" + parameter + "' or previos parameter empty.\n";
    EXPECT_EQ(end.err, message);
    EXPECT_EQ(end.out, message);
    EXPECT_EQ(end.status, 1);
}

void expectComplete(const std::vector<std::string>& arguments)
{
    const Outcome end = checked(arguments);
    EXPECT_EQ(end.err, "");
    EXPECT_EQ(end.out, "");
    EXPECT_EQ(end.status, 0);
}

std::string flags(const CommandLine& line)
{
    std::string text;
    text += line.needsSubdomainName ? "subdomain " : "";
    text += line.needsVhostName ? "vhost " : "";
    text += line.needsUserName ? "user " : "";
    text += line.needsOldName ? "old " : "";
    text += line.needsNewName ? "new " : "";
    text += line.needsSiteDirectories ? "directories " : "";
    return text;
}

} // namespace

TEST(CommandLine, StartsWithNothingChosenGivenOrNeeded)
{
    const Parsed parsed({});
    EXPECT_EQ(parsed.line.operation, Operation::none);
    EXPECT_EQ(flags(parsed.line), "");
    EXPECT_STREQ(parsed.line.subdomainName, "");
    EXPECT_EQ(parsed.line.clientId, nullptr);
    EXPECT_EQ(parsed.line.site.www_root, nullptr);
    EXPECT_EQ(parsed.line.site.cgi_bin_path, nullptr);
    EXPECT_EQ(parsed.line.site.skip_www_root, 0);
    EXPECT_EQ(parsed.line.site.skip_cgi_bin, 0);
    EXPECT_EQ(parsed.line.site.skip_error_docs, 0);
}

TEST(CommandLine, StoresEveryValueAndSkipFlagInItsPlace)
{
    const Parsed parsed({"--subdomain-name=shop", "--vhost-name", "example.test",
        "--user-name=site", "--old-name=a", "--new-name=b", "--cl-id=7", "--www-root=/w",
        "--cgi-bin-path=/c", "--skip-www-root", "--skip-cgi-bin", "--skip-error-docs"});
    EXPECT_STREQ(parsed.line.subdomainName, "shop");
    EXPECT_STREQ(parsed.line.vhostName, "example.test");
    EXPECT_STREQ(parsed.line.userName, "site");
    EXPECT_STREQ(parsed.line.oldName, "a");
    EXPECT_STREQ(parsed.line.newName, "b");
    EXPECT_STREQ(parsed.line.clientId.get(), "7");
    EXPECT_STREQ(parsed.line.site.www_root, "/w");
    EXPECT_STREQ(parsed.line.site.cgi_bin_path, "/c");
    EXPECT_EQ(parsed.line.site.skip_www_root, 1);
    EXPECT_EQ(parsed.line.site.skip_cgi_bin, 1);
    EXPECT_EQ(parsed.line.site.skip_error_docs, 1);
}

TEST(CommandLine, ChoosesEachOperationWithTheParametersItNeeds)
{
    const struct {
        const char* option;
        Operation operation;
        const char* needs;
    } rows[] = {
        {"--create", Operation::create, "subdomain vhost user directories "},
        {"--remove", Operation::remove, "subdomain vhost "},
        {"--change-user", Operation::changeUser, "subdomain vhost user directories "},
        {"--rename", Operation::rename, "vhost old new "},
        {"--help", Operation::help, ""},
        {"-h", Operation::help, ""},
    };
    for (const auto& row : rows) {
        const Parsed parsed({row.option});
        EXPECT_EQ(parsed.line.operation, row.operation) << row.option;
        EXPECT_EQ(flags(parsed.line), row.needs) << row.option;
    }
}

TEST(CommandLine, LetsTheFirstOperationWinAndIgnoresLaterOnesWithTheirNeeds)
{
    const std::vector<std::string> operations{"--create", "--remove", "--change-user", "--rename"};
    for (const std::string& first : operations) {
        const Parsed alone({first});
        for (const std::string& second : operations) {
            const Parsed both({first, second});
            EXPECT_EQ(both.line.operation, alone.line.operation) << first << ' ' << second;
            EXPECT_EQ(flags(both.line), flags(alone.line)) << first << ' ' << second;
        }
    }
}

TEST(CommandLine, LetsHelpReplaceAnOperationAndKeepsItsNeeds)
{
    const Parsed parsed({"--remove", "-h"});
    EXPECT_EQ(parsed.line.operation, Operation::help);
    EXPECT_EQ(flags(parsed.line), "subdomain vhost ");
}

TEST(CommandLine, IgnoresAnOperationBehindHelpWithItsNeeds)
{
    const Parsed parsed({"--help", "--create"});
    EXPECT_EQ(parsed.line.operation, Operation::help);
    EXPECT_EQ(flags(parsed.line), "");
}

TEST(CommandLine, AcceptsUnambiguousBeginningsOfLongNames)
{
    EXPECT_EQ(operationOf({"--cr"}), Operation::create);
    EXPECT_EQ(operationOf({"--ch"}), Operation::changeUser);
    EXPECT_EQ(operationOf({"--he"}), Operation::help);
    EXPECT_EQ(operationOf({"--ren"}), Operation::rename);
    EXPECT_STREQ(Parsed({"--cl=7"}).line.clientId.get(), "7");
    EXPECT_STREQ(Parsed({"--cg=x"}).line.site.cgi_bin_path, "x");
    EXPECT_STREQ(Parsed({"--w=x"}).line.site.www_root, "x");
    EXPECT_STREQ(Parsed({"--su=x"}).line.subdomainName, "x");
    EXPECT_EQ(Parsed({"--skip-c"}).line.site.skip_cgi_bin, 1);
}

TEST(CommandLine, TakesTheFirstOfRemoveAndRenameForTheirCommonBeginning)
{
    EXPECT_EQ(operationOf({"--r"}), Operation::remove);
    EXPECT_EQ(operationOf({"--re"}), Operation::remove);
}

TEST(CommandLine, ReplacesARepeatedNameWholly)
{
    EXPECT_STREQ(Parsed({"--vhost-name=longer", "--vhost-name=x"}).line.vhostName, "x");
    EXPECT_STREQ(Parsed({"--www-root=/a", "--www-root=/b"}).line.site.www_root, "/b");
    EXPECT_STREQ(Parsed({"--cgi-bin-path=/a", "--cgi-bin-path=/b"}).line.site.cgi_bin_path, "/b");
    EXPECT_STREQ(Parsed({"--cl-id=1", "--cl-id=2"}).line.clientId.get(), "2");
}

TEST(CommandLine, CutsANameAtItsLimitAndKeepsItTerminated)
{
    const std::string limit(4096, 'a');
    EXPECT_EQ(Parsed({"--vhost-name=" + limit}).line.vhostName, limit);
    EXPECT_EQ(Parsed({"--vhost-name=" + limit + "bc"}).line.vhostName, limit);
    EXPECT_EQ(Parsed({"--user-name=" + limit + "bc"}).line.userName, limit);
    EXPECT_EQ(Parsed({"--old-name=" + limit + "bc"}).line.oldName, limit);
    EXPECT_EQ(Parsed({"--new-name=" + limit + "bc"}).line.newName, limit);
    EXPECT_EQ(Parsed({"--subdomain-name=" + limit + "bc"}).line.subdomainName, limit);
}

TEST(CommandLine, KeepsSiteDirectoriesOfAnyLengthWhole)
{
    const std::string path(100000, 'a');
    EXPECT_EQ(Parsed({"--www-root=" + path}).line.site.www_root, path);
    EXPECT_EQ(Parsed({"--cgi-bin-path=" + path}).line.site.cgi_bin_path, path);
    EXPECT_EQ(Parsed({"--cl-id=" + path}).line.clientId.get(), path);
}

TEST(CommandLine, EndsTheProcessWithoutMemoryForAValue)
{
    for (const char* value : {"--cl-id=7", "--www-root=/w", "--cgi-bin-path=/c"}) {
        const Outcome end = inChild([value] {
            PROGNAME = "twigctl";
            faults::fail("vasprintf", ENOMEM);
            const Parsed parsed({value});
        });
        EXPECT_EQ(end.err, "twigctl: Cannot allocate memory: Cannot allocate memory"
                           "\nSystem error 12: Cannot allocate memory\n")
            << value;
        EXPECT_EQ(end.out, end.err) << value;
        EXPECT_EQ(end.status, 1) << value;
    }
}

TEST(CommandLine, LetsARequiredValueSwallowTheNextOption)
{
    const Parsed parsed({"--vhost-name", "--remove", "--subdomain-name=shop"});
    EXPECT_STREQ(parsed.line.vhostName, "--remove");
    EXPECT_EQ(parsed.line.operation, Operation::none);
}

TEST(CommandLine, TellsGivenAndEmptyFromNotGivenOnlyForTheClient)
{
    EXPECT_STREQ(Parsed({"--cl-id="}).line.clientId.get(), "");
}

TEST(RequiredParameters, AreMissedInAFixedOrder)
{
    expectMissing({"--create"}, "subdomain-name");
    expectMissing({"--create", "--subdomain-name=s"}, "vhost-name");
    expectMissing({"--create", "--subdomain-name=s", "--vhost-name=v"}, "user-name");
    expectMissing(
        {"--create", "--subdomain-name=s", "--vhost-name=v", "--user-name=u"}, "www-root");
    expectMissing(
        {"--create", "--subdomain-name=s", "--vhost-name=v", "--user-name=u", "--www-root=/w"},
        "cgi-bin-path");
    expectComplete({"--create", "--subdomain-name=s", "--vhost-name=v", "--user-name=u",
        "--www-root=/w", "--cgi-bin-path=/c"});
}

TEST(RequiredParameters, CountAnEmptyValueAsMissing)
{
    expectMissing({"--create", "--vhost-name="}, "subdomain-name");
    expectMissing({"--remove", "--subdomain-name=s", "--vhost-name="}, "vhost-name");
    expectMissing(
        {"--create", "--subdomain-name=s", "--vhost-name=v", "--user-name=u", "--www-root="},
        "www-root");
}

TEST(RequiredParameters, LeaveOutASiteDirectoryThatIsSkipped)
{
    const std::vector<std::string> names{
        "--create", "--subdomain-name=s", "--vhost-name=v", "--user-name=u"};
    auto with = [&names](std::vector<std::string> more) {
        more.insert(more.begin(), names.begin(), names.end());
        return more;
    };
    expectMissing(with({"--skip-www-root"}), "cgi-bin-path");
    expectMissing(with({"--skip-cgi-bin"}), "www-root");
    expectComplete(with({"--skip-www-root", "--skip-cgi-bin"}));
    expectComplete(with({"--skip-www-root", "--www-root=", "--skip-cgi-bin"}));
}

TEST(RequiredParameters, OfAChangeOfUserAreThoseOfACreation)
{
    expectMissing({"--change-user"}, "subdomain-name");
    expectMissing({"--change-user", "--subdomain-name=s", "--vhost-name=v"}, "user-name");
    expectMissing(
        {"--change-user", "--subdomain-name=s", "--vhost-name=v", "--user-name=u"}, "www-root");
    expectComplete({"--change-user", "--subdomain-name=s", "--vhost-name=v", "--user-name=u",
        "--skip-www-root", "--skip-cgi-bin"});
}

TEST(RequiredParameters, OfARenameDoNotIncludeASubdomain)
{
    expectMissing({"--rename"}, "vhost-name");
    expectMissing({"--rename", "--vhost-name=v"}, "old-name");
    expectMissing({"--rename", "--vhost-name=v", "--old-name=a"}, "new-name");
    expectComplete({"--rename", "--vhost-name=v", "--old-name=a", "--new-name=b"});
}

TEST(RequiredParameters, OfARemovalAreTheTwoNames)
{
    expectMissing({"--remove"}, "subdomain-name");
    expectMissing({"--remove", "--subdomain-name=s"}, "vhost-name");
    expectComplete({"--remove", "--subdomain-name=s", "--vhost-name=v"});
}

TEST(RequiredParameters, OfAnOperationThatHelpReplacedAreStillChecked)
{
    expectMissing({"--create", "-h"}, "subdomain-name");
    expectComplete({"-h", "--create"});
}

TEST(RequiredParameters, AreNoneWithoutAnOperation)
{
    expectComplete({});
    expectComplete({"--vhost-name="});
}
