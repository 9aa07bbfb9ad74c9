#pragma once

#include <string>

#include "tests/disturbed/Scenario.h"
#include "tests/lib/Traced.h"

/// What the program may do about a call that failed, beside telling of it and doing without.
struct Allowance {
    /// What the same command need not bring about later.
    enum class Lasting {
        nothing,
        accessOfFiles, ///< owner, group and mode of files: those that exist are left as they are
        /// The group of a directory in "anon_ftp": once it has its mode it exists like any other.
        /// Without, it would be closed for good where a file system knows no owners.
        groupInAnonFtp,
        /// Owner, group and mode of the levels above the web root and the CGI directory: whichever
        /// step comes first makes them, the others leave them as they are.
        levelsAbove
    };

    bool silence = false; ///< another result, without a word
    Lasting lasting = Lasting::nothing;
    bool cutReports = false; ///< what is said may lack a part
};

/// Whether the kernel can let this call fail at all.
bool canFail(const SystemCall& call);

/// What is allowed when this call fails. To be asked at its entry.
Allowance allowanceFor(const Scenario& scenario, const SystemCall& call);

/// What is allowed to last after these reports.
Allowance::Lasting allowanceAfter(const Scenario& scenario, const std::string& reports);

/// Whether these differences (see DisturbedRun.h) are nothing but what is allowed to last.
bool covers(Allowance::Lasting lasting, const Scenario& scenario, const std::string& differences);
