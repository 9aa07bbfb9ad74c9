#include "tests/disturbed/Reports.h"

#include <regex>
#include <sstream>
#include <vector>

namespace
{

/// A report by its whole text, and the status of a run that has made it.
struct Report {
    std::regex text;
    int status;
};

const std::string logger = "twigctl: ";

Report logged(const std::string& text, int status)
{
    return {std::regex(logger + text), status};
}

/// A step was passed over, and the operation went on.
constexpr int wentOn = 0;
constexpr int failed = 255;
/// Nothing was done after it.
constexpr int fatal = 1;

const std::vector<Report>& knownReports()
{
    static const std::vector<Report> reports = {
        // Copying
        {std::regex(R"(corbel:InstallSkeleton\(\): stat\(".+"\) failed: .+)"), wentOn},
        {std::regex(R"(corbel:InstallSkeleton\(\): /.+: .+)"), wentOn},
        {std::regex(
             R"(boost::filesystem::directory_iterator::(construct|operator\+\+): .+: "/.+")"),
            wentOn},
        {std::regex(R"(/srv/www/vhosts/\.skel/.+: .+)"), wentOn},
        {std::regex(R"(Unexpected error: boost::filesystem::[a-z_]+: .+: "/.+")"), fatal},
        {std::regex(R"(Unexpected error: group kvocln not found)"), fatal},
        // Accounts
        logged(R"(Unable to getpwnam for user (site|other))", wentOn),
        logged(R"(getgrnam\(kvo(cln|serv)\): .+)", wentOn),
        // Making directories and giving them away
        logged(R"(Cannot chown .+: .+)", wentOn),
        logged(R"(ERROR: unable to ch(own|mod) .+: .+)", wentOn),
        logged(R"(ERROR: Unable to (mkdir|chown|chmod) .+: .+)", failed),
        logged(R"(ERROR: Unable to change directory to .+)", failed),
        logged(R"(Unable to create directory '/.+')", failed),
        logged(
            R"(Unable to create directory '(conf|error_docs)' of subdomain .+ for Standard Hosting .+)",
            failed),
        logged(R"(Unable to create and set permissions for .+)", failed),
        logged(R"(Remaming .+ to .+ failed: .+)", failed),
        logged(R"(Cannot create directory .+: .+)", fatal),
        // Walking through a tree
        logged(R"(Unable to (chown|chmod|open|close|remove|change) dir .+: .+)", fatal),
        logged(R"(Unable to (chown|chmod|unlink|stat) directory entry .+: .+)", fatal),
        logged(R"(Unable to get file descriptor of current dir: .+)", fatal),
        logged(R"(Unable to restore & close current dir: .+)", fatal),
    };
    return reports;
}

bool isSystemError(const std::string& line)
{
    static const std::regex text(R"(System error \d+: .+)");
    return std::regex_match(line, text);
}

const Report* find(const std::string& line)
{
    for (const Report& report : knownReports()) {
        if (std::regex_match(line, report.text)) {
            return &report;
        }
    }
    return nullptr;
}

} // namespace

std::string faultOfReports(const Outcome& outcome)
{
    int status = wentOn;
    std::string onBoth;
    bool isLogged = false;
    std::istringstream lines(outcome.err);
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || isSystemError(line)) {
            onBoth += isLogged ? line + '\n' : "";
            continue;
        }
        const Report* report = find(line);
        if (report == nullptr) {
            return "says what it never says: " + line;
        }
        if (status == fatal) {
            return "goes on after a fatal error: " + line;
        }
        if (report->status != wentOn) {
            status = report->status;
        }
        isLogged = line.starts_with(logger);
        onBoth += isLogged ? line + '\n' : "";
    }
    if (outcome.status != status) {
        return "ends with status " + std::to_string(outcome.status) + " instead of " +
               std::to_string(status);
    }
    return outcome.out == onBoth ? "" : "says something else on standard output: " + outcome.out;
}
