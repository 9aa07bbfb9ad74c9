#include <csignal>

#include "conf/Configuration.h"
#include "conf/FatalLogger.h"
#include "conf/ProgramName.h"
#include "conf/TerminateHandler.h"
#include "front/ChangeSubdomainUser.h"
#include "front/CommandLine.h"
#include "front/CreateSubdomain.h"
#include "front/NameChecks.h"
#include "front/RemoveSubdomain.h"
#include "front/RenameSubdomain.h"
#include "front/StandardDescriptors.h"
#include "front/Usage.h"

namespace
{

int runOperation(const CommandLine& line)
{
    switch (line.operation) {
    case Operation::create:
        if (!line.clientId) {
            fatalLogger(1, 1, "Error: parameter 'cl-id' wasn't specified");
        }
        return createSubdomain(
            line.vhostName, line.subdomainName, line.userName, line.clientId.get(), line.site);
    case Operation::remove:
        return removeSubdomain(line.vhostName, line.subdomainName);
    case Operation::changeUser:
        return changeSubdomainUser(line.vhostName, line.subdomainName, line.userName, line.site);
    case Operation::rename:
        return renameSubdomain(line.vhostName, line.oldName, line.newName);
    case Operation::none:
    case Operation::help:
        break;
    }
    printUsage();
}

} // namespace

int main(int argc, char** argv)
{
    openMissingStandardDescriptors();
    // A limit on the size of files is an error of the write that meets it.
    (void)std::signal(SIGXFSZ, SIG_IGN);
    PROGNAME = argv[0];
    installTerminateHandler();

    CommandLine line;
    parseCommandLine(argc, argv, line);
    checkRequiredParameters(line);
    checkNames(line);
    (void)loadConfiguration(); // without the file every setting has its default
    return runOperation(line);
}
