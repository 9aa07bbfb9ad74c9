#pragma once

#include <cstddef>

#include "conf/FreeDeleter.h"
#include "site/SkeletonOptions.h"

enum class Operation {
    none = 0,
    create = 1,
    remove = 2,
    changeUser = 3,
    rename = 4,
    help = 5,
};

/// What the command line asks for. Values are kept as given, however long: a name is cut at 4096
/// bytes, and the path that is formed from it is cut again.
struct CommandLine {
    static constexpr size_t nameSize = 4096;
    using Name = char[nameSize + 1]; // always terminated

    Operation operation = Operation::none;

    Name subdomainName = {};
    Name vhostName = {};
    Name userName = {};
    Name oldName = {};
    Name newName = {};
    CString clientId; ///< null until given; an empty one counts as given

    /// Which parameters the chosen operations ask for; kept when help is chosen later.
    bool needsSubdomainName = false;
    bool needsVhostName = false;
    bool needsUserName = false;
    bool needsOldName = false;
    bool needsNewName = false;
    bool needsSiteDirectories = false;

    /// The site options; their texts belong to the two members below.
    zelto::SkeletonOptions site;
    CString wwwRoot;
    CString cgiBinPath;
};

/// Reads the options with getopt_long(3), which also means that long names may be shortened to an
/// unambiguous beginning and that POSIXLY_CORRECT is honoured.
///
/// The first operation on the line wins; help replaces whatever was chosen before it. Ends the
/// process with status 1 through the fatal logger at the first unknown option or missing value
/// ("Unknown option in command string, see log for details", behind the parser's own line) and
/// when words are left over ("Some parameters in command string leave unprocessed. Check
/// parameters please."). Without memory for a value, see allocatingFormatter().
/// @param argv may be reordered.
void parseCommandLine(int argc, char** argv, CommandLine& line);

/// Ends the process with status 1 and "Miss parameter '<name>' or previos parameter empty.\n" for
/// the first parameter that is asked for and is missing or empty.
void checkRequiredParameters(const CommandLine& line);
