#include <fcntl.h>
#include <fstream>
#include <unistd.h>

#include "tests/cli/Site.h"

namespace
{

using CommandLine = Site;

const std::string unknownOption =
    "twigctl: Unknown option in command string, see log for details\n";

const std::string usage =
    "Usage: twigctl [OPTIONS]...\n"
    "\n"
    "  --create --subdomain-name=<subdomain> --vhost-name=<domain_name> --user-name=<user_name> "
    "--cl-id=<client_id> {--www-root=<www_root>|--skip-www-root} "
    "{--cgi-bin-path=<cgi_bin_path>|--skip-cgi-bin} [--skip-error-docs]\n"
    "        create <subdomain> in <domain_name>\n"
    "  --remove --subdomain-name=<subdomain> --vhost-name=<domain_name>\n"
    "        create <subdomain> from <domain_name>\n"
    "  --change-user --user-name=<user_name> --subdomain-name=<subdomain> "
    "--vhost-name=<domain_name>\n"
    "        change user on <subdomain>\n"
    "  --rename --old-name=<old_subdomain> --new-name=<new_subdomain> --vhost-name=<domain_name>\n"
    "        rename <old_subdomain> to <new_subdomain>\n"
    "  -h, --help\n"
    "        display this help and exit\n";

} // namespace

TEST_F(CommandLine, WithoutArgumentsPrintsTheUsageToStandardOutputOnly)
{
    const Outcome end = run({});
    EXPECT_EQ(end.out, usage);
    EXPECT_EQ(end.err, "");
    EXPECT_EQ(end.status, 0);
}

TEST_F(CommandLine, PrintsTheUsageForHelpUnderAnyInvocationName)
{
    for (const char* option : {"-h", "--help", "--h"}) {
        const Outcome end = runAs("/opt/x/other", {option});
        EXPECT_EQ(end.out, usage);
        EXPECT_EQ(end.err, "");
        EXPECT_EQ(end.status, 0);
    }
}

TEST_F(CommandLine, PrintsTheUsageForParametersWithoutAnOperation)
{
    EXPECT_EQ(run({"--vhost-name=example.test"}).out, usage);
    const Outcome swallowed = run({"--vhost-name", "--remove", "--subdomain-name=shop"});
    EXPECT_EQ(swallowed.out, usage);
    EXPECT_EQ(swallowed.status, 0);
}

TEST_F(CommandLine, PrintsTheUsageInsteadOfAnOperationThatHelpReplaced)
{
    makeDir(shop);
    const Outcome end = run(with(removal(), {"-h"}));
    EXPECT_EQ(end.out, usage);
    EXPECT_EQ(end.status, 0);
    EXPECT_TRUE(exists(shop));
}

TEST_F(CommandLine, ChecksTheParametersOfAnOperationThatHelpReplaced)
{
    expectReported(run({"--create", "-h"}),
        {"Miss parameter 'subdomain-name' or previos parameter empty.\n"}, 1);
}

TEST_F(CommandLine, PrintsTheUsageWhenHelpStandsBeforeAnOperation)
{
    const Outcome end = run({"-h", "--create"});
    EXPECT_EQ(end.out, usage);
    EXPECT_EQ(end.status, 0);
}

TEST_F(CommandLine, RunsTheFirstOfTwoOperationsWithoutAskingForWhatTheOtherNeeds)
{
    makeDir(shop);
    expectSilent(
        run({"--remove", "--create", "--vhost-name=example.test", "--subdomain-name=shop"}), 0);
    EXPECT_FALSE(exists(shop));
}

TEST_F(CommandLine, StopsAtTheFirstUnknownOptionBehindTheParsersOwnLine)
{
    const Outcome end = runAs("/opt/x/twigctl", {"--bogus", "--bogus2"});
    EXPECT_EQ(end.err, "/opt/x/twigctl: unrecognized option '--bogus'\n" + unknownOption);
    EXPECT_EQ(end.out, unknownOption);
    EXPECT_EQ(end.status, 1);
}

TEST_F(CommandLine, StopsAtAMissingValue)
{
    const Outcome end = run({"--remove", "--vhost-name"});
    EXPECT_EQ(end.err, "twigctl: option '--vhost-name' requires an argument\n" + unknownOption);
    EXPECT_EQ(end.out, unknownOption);
    EXPECT_EQ(end.status, 1);
}

TEST_F(CommandLine, StopsAtAnAmbiguousBeginning)
{
    for (const char* option : {"--c", "--skip"}) {
        const Outcome end = run({option});
        EXPECT_EQ(
            end.err.rfind(std::string("twigctl: option '") + option + "' is ambiguous", 0), 0U);
        EXPECT_EQ(end.out, unknownOption);
        EXPECT_EQ(end.status, 1);
    }
}

TEST_F(CommandLine, RemovesForTheBeginningThatRemoveAndRenameShare)
{
    makeDir(shop);
    expectSilent(run({"--re", "--vhost-name=example.test", "--subdomain-name=shop"}), 0);
    EXPECT_FALSE(exists(shop));
}

TEST_F(CommandLine, StopsAtAValueForAnOptionThatTakesNone)
{
    const Outcome end = run({"--create=1"});
    EXPECT_EQ(end.err, "twigctl: option '--create' doesn't allow an argument\n" + unknownOption);
    EXPECT_EQ(end.status, 1);
}

TEST_F(CommandLine, KnowsNoShortOptionButHelp)
{
    for (const char* option : {"-C", "-E", "-c"}) {
        const Outcome end = run({option, "x"});
        EXPECT_EQ(end.err,
            std::string("twigctl: invalid option -- '") + option[1] + "'\n" + unknownOption);
        EXPECT_EQ(end.out, unknownOption);
        EXPECT_EQ(end.status, 1);
    }
}

TEST_F(CommandLine, ReadsSingleDashedHelpAsAClusterOfShortOptions)
{
    const Outcome end = run({"-help"});
    EXPECT_EQ(end.err, "twigctl: invalid option -- 'e'\n" + unknownOption);
    EXPECT_EQ(end.out, unknownOption);
    EXPECT_EQ(end.status, 1);
}

TEST_F(CommandLine, RefusesLeftOverWordsBeforeLookingAtParameters)
{
    const std::string message =
        "Some parameters in command string leave unprocessed. Check parameters please.\n";
    expectReported(run({"--remove", "extra"}), {message}, 1);
    expectReported(run({"extra", "--create"}), {message}, 1);
    expectReported(run({"--", "--create"}), {message}, 1);
}

TEST_F(CommandLine, ReadsOptionsBehindAStrayWord)
{
    const Outcome end = run({"extra", "--bogus"});
    EXPECT_EQ(end.out, unknownOption);
    EXPECT_EQ(end.status, 1);
}

TEST_F(CommandLine, StopsReadingAtAStrayWordWherePosixIsAskedFor)
{
    const Outcome end = run({"extra", "--bogus"}, {.environment = {"POSIXLY_CORRECT=1"}});
    expectReported(end,
        {"Some parameters in command string leave unprocessed. Check parameters please.\n"}, 1);
}

TEST_F(CommandLine, CountsNothingBehindADoubleDashAsNothingLeftOver)
{
    expectReported(run({"--remove", "--"}),
        {"Miss parameter 'subdomain-name' or previos parameter empty.\n"}, 1);
}

TEST_F(CommandLine, AsksForTheClientOnlyAfterEverythingElse)
{
    expectReported(
        run({"--create"}), {"Miss parameter 'subdomain-name' or previos parameter empty.\n"}, 1);
}

TEST_F(CommandLine, ShowsTheMissingConfigurationBehindTheMissingClient)
{
    const Arguments creation{"--create", "--subdomain-name=shop", "--vhost-name=example.test",
        "--user-name=site", "--skip-www-root", "--skip-cgi-bin"};
    expectReported(run(creation), {"Error: parameter 'cl-id' wasn't specified" + noSuchFile}, 1);
    configure("# nothing\n");
    expectReported(run(creation), {"Error: parameter 'cl-id' wasn't specified\n"}, 1);
    ASSERT_EQ(unlink("/etc/kvo/kvo.conf"), 0);
    makeDir("/etc/kvo/kvo.conf");
    expectReported(run(creation),
        {"Error: parameter 'cl-id' wasn't specified" + systemError(21, "Is a directory")}, 1);
    EXPECT_FALSE(exists(shop));
}

TEST_F(CommandLine, PutsTheBaseNameOfItsInvocationBeforeReports)
{
    EXPECT_EQ(runAs("/usr/sbin/other", {"extra"}).err.substr(0, 7), "other: ");
    EXPECT_EQ(runAs("a/", {"extra"}).err.substr(0, 3), "a: ");
    EXPECT_EQ(runAs("", {"extra"}).err.substr(0, 3), ".: ");
    EXPECT_EQ(runAs("/", {"extra"}).err.substr(0, 3), "/: ");
}

TEST_F(CommandLine, KeepsReportsOutOfFilesThatItOpens)
{
    makeSkeleton();
    const Start closed{.inChild = [] {
        for (int fd = 0; fd <= 2; ++fd) {
            close(fd);
        }
    }};
    const Outcome end = run(usualCreation(), closed);
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(contentOf(shop + "/conf/site"), "ServerName example.test\n");
    EXPECT_EQ(contentOf(shop + "/httpdocs/index.html"), "<h1>example.test</h1>");
}

TEST_F(CommandLine, OpensStandardDescriptorsThatItWasStartedWithout)
{
    // The shell is traced as well, but opens nothing for reading and writing. The leak checker
    // cannot work while the process is traced.
    const Outcome end = runProgram("/usr/bin/strace",
        {"strace", "-f", "-qq", "-e", "trace=openat", "-o", "/srv/trace", "/bin/sh", "-c",
            R"(exec "$0" "$@" <&- >&- 2>&-)", program(), "--help"},
        {.environment = {"ASAN_OPTIONS=detect_leaks=0"}});
    EXPECT_EQ(end.status, 0);
    std::string opened;
    std::ifstream lines("/srv/trace");
    for (std::string line; std::getline(lines, line);) {
        if (line.find("/dev/null") != std::string::npos) {
            opened += line.substr(line.find("openat")) + '\n';
        }
    }
    EXPECT_EQ(opened, "openat(AT_FDCWD, \"/dev/null\", O_RDWR) = 0\n"
                      "openat(AT_FDCWD, \"/dev/null\", O_RDWR) = 1\n"
                      "openat(AT_FDCWD, \"/dev/null\", O_RDWR) = 2\n");
}

TEST_F(CommandLine, FailsAsUsualWithNobodyToReportTo)
{
    const Start closed{.inChild = [] {
        for (int fd = 0; fd <= 2; ++fd) {
            close(fd);
        }
    }};
    EXPECT_EQ(run({"--create"}, closed).status, 1);
    EXPECT_EQ(run({}, closed).status, 0);
}

TEST_F(CommandLine, KeepsItsStatusWhenReportsCannotBeWritten)
{
    const Start full{.inChild = [] {
        const int device = open("/dev/full", O_WRONLY);
        dup2(device, STDOUT_FILENO);
        dup2(device, STDERR_FILENO);
    }};
    makeDir(shop);
    makeDir(subdomains + "/new");
    EXPECT_EQ(run(renaming("shop", "new"), full).status, 255);
    EXPECT_EQ(run({"--create"}, full).status, 1);
    EXPECT_EQ(run({}, full).status, 0);
}

TEST_F(CommandLine, TakesArgumentsOfAnyBytes)
{
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte) {
        bytes += static_cast<char>(byte);
    }
    makeDirs(root + "/example.test/subdomains");
    expectSilent(run({"--remove", "--vhost-name=example.test", "--subdomain-name=" + bytes}), 0);
    expectSilent(
        run({"--rename", "--vhost-name=" + bytes, "--old-name=" + bytes, "--new-name=x"}), 0);
}

TEST_F(CommandLine, RunsWithManyAndLongArguments)
{
    Arguments many = removal();
    for (int i = 0; i < 1000; ++i) {
        many.push_back("--user-name=" + std::string(1000, 'u'));
    }
    makeDir(shop);
    expectSilent(run(many), 0);
    EXPECT_FALSE(exists(shop));
}
