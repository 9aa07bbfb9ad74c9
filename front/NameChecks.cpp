#include "front/NameChecks.h"

#include <string_view>

#include "conf/FatalLogger.h"
#include "front/CommandLine.h"
#include "fsutil/PathNames.h"

namespace
{

void checkName(const char* name, const char* parameter)
{
    if (leadsOut(name)) {
        refuseParameter(parameter);
    }
}

} // namespace

bool leadsOut(std::string_view name)
{
    return name.find_first_not_of("./") == std::string_view::npos || stepsBack(name) > 0;
}

void refuseParameter(const char* parameter)
{
    fatalLogger(1, 1, "Error: parameter '%s' leads out of its directory", parameter);
}

void checkNames(const CommandLine& line)
{
    switch (line.operation) {
    case Operation::create:
    case Operation::remove:
    case Operation::changeUser:
        checkName(line.subdomainName, "subdomain-name");
        checkName(line.vhostName, "vhost-name");
        break;
    case Operation::rename:
        checkName(line.vhostName, "vhost-name");
        checkName(line.oldName, "old-name");
        checkName(line.newName, "new-name");
        break;
    case Operation::none:
    case Operation::help:
        break;
    }
    if (line.operation == Operation::create && line.clientId &&
        stepsBack(line.clientId.get()) > 0) {
        refuseParameter("cl-id");
    }
}
