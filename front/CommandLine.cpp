#include "front/CommandLine.h"

#include <cstring>
#include <getopt.h>

#include "conf/Allocation.h"
#include "conf/FatalLogger.h"

namespace
{

/// The places of the options that getopt_long(3) tells apart by their index only.
enum LongOption : int {
    optionSubdomainName,
    optionVhostName,
    optionUserName,
    optionOldName,
    optionNewName,
    optionClientId,
    optionCreate,
    optionRemove,
    optionChangeUser,
    optionRename,
    optionWwwRoot,
    optionSkipWwwRoot,
};

// The order and the returned values decide which shortened names are ambiguous ("--re" is not:
// "remove" and "rename" look the same to the parser, and the first one wins).
constexpr option longOptions[] = {
    {"subdomain-name", required_argument, nullptr, 0},
    {"vhost-name", required_argument, nullptr, 0},
    {"user-name", required_argument, nullptr, 0},
    {"old-name", required_argument, nullptr, 0},
    {"new-name", required_argument, nullptr, 0},
    {"cl-id", required_argument, nullptr, 0},
    {"create", no_argument, nullptr, 0},
    {"remove", no_argument, nullptr, 0},
    {"change-user", no_argument, nullptr, 0},
    {"rename", no_argument, nullptr, 0},
    {"www-root", required_argument, nullptr, 0},
    {"skip-www-root", no_argument, nullptr, 0},
    {"cgi-bin-path", required_argument, nullptr, 'c'},
    {"skip-cgi-bin", no_argument, nullptr, 'C'},
    {"skip-error-docs", no_argument, nullptr, 'E'},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

void storeName(CommandLine::Name& name, const char* value)
{
    std::strncpy(name, value, CommandLine::nameSize);
}

/// Chooses an operation unless one is chosen already; says whether it did.
bool choose(CommandLine& line, Operation operation)
{
    if (line.operation != Operation::none) {
        return false;
    }
    line.operation = operation;
    return true;
}

void chooseContentOperation(CommandLine& line, Operation operation)
{
    if (choose(line, operation)) {
        line.needsSubdomainName = true;
        line.needsVhostName = true;
        line.needsUserName = true;
        line.needsSiteDirectories = true;
    }
}

void chooseRemove(CommandLine& line)
{
    if (choose(line, Operation::remove)) {
        line.needsSubdomainName = true;
        line.needsVhostName = true;
    }
}

void chooseRename(CommandLine& line)
{
    if (choose(line, Operation::rename)) {
        line.needsVhostName = true;
        line.needsOldName = true;
        line.needsNewName = true;
    }
}

void applyLongOption(CommandLine& line, int index, const char* value)
{
    switch (index) {
    case optionSubdomainName:
        return storeName(line.subdomainName, value);
    case optionVhostName:
        return storeName(line.vhostName, value);
    case optionUserName:
        return storeName(line.userName, value);
    case optionOldName:
        return storeName(line.oldName, value);
    case optionNewName:
        return storeName(line.newName, value);
    case optionClientId:
        line.clientId.reset(allocatingFormatter("%s", value));
        return;
    case optionCreate:
        return chooseContentOperation(line, Operation::create);
    case optionRemove:
        return chooseRemove(line);
    case optionChangeUser:
        return chooseContentOperation(line, Operation::changeUser);
    case optionRename:
        return chooseRename(line);
    case optionWwwRoot:
        line.wwwRoot.reset(allocatingFormatter("%s", value));
        return;
    case optionSkipWwwRoot:
        line.site.skip_www_root = 1;
        return;
    default:
        return;
    }
}

void applyOption(CommandLine& line, int option, int index)
{
    switch (option) {
    case 'E':
        line.site.skip_error_docs = 1;
        return;
    case 'C':
        line.site.skip_cgi_bin = 1;
        return;
    case 'c':
        line.cgiBinPath.reset(allocatingFormatter("%s", optarg));
        return;
    case 'h':
        line.operation = Operation::help;
        return;
    case 0:
        return applyLongOption(line, index, optarg);
    case '?':
        return fatalLogger(1, 1, "Unknown option in command string, see log for details");
    default:
        return;
    }
}

void require(bool needed, const char* value, const char* parameter)
{
    if (needed && (value == nullptr || *value == '\0')) {
        fatalLogger(1, 1, "Miss parameter '%s' or previos parameter empty.\n", parameter);
    }
}

} // namespace

void parseCommandLine(int argc, char** argv, CommandLine& line)
{
    optind = 0; // starts the parser anew, should it have been used before
    int index = -1;
    int option = 0;
    while ((option = getopt_long(argc, argv, "h", longOptions, &index)) != -1) {
        applyOption(line, option, index);
    }
    line.site.www_root = line.wwwRoot.get();
    line.site.cgi_bin_path = line.cgiBinPath.get();
    if (optind != argc) {
        fatalLogger(
            1, 1, "Some parameters in command string leave unprocessed. Check parameters please.");
    }
}

void checkRequiredParameters(const CommandLine& line)
{
    require(line.needsSubdomainName, line.subdomainName, "subdomain-name");
    require(line.needsVhostName, line.vhostName, "vhost-name");
    require(line.needsUserName, line.userName, "user-name");
    require(line.needsOldName, line.oldName, "old-name");
    require(line.needsNewName, line.newName, "new-name");
    if (line.site.skip_www_root == 0) {
        require(line.needsSiteDirectories, line.site.www_root, "www-root");
    }
    if (line.site.skip_cgi_bin == 0) {
        require(line.needsSiteDirectories, line.site.cgi_bin_path, "cgi-bin-path");
    }
}
