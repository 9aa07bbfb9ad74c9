#pragma once

#include <map>
#include <string>

#include "exec/ForkExec.h"
#include "tests/exec/Arguments.h"
#include "tests/lib/Faults.h"
#include "tests/lib/World.h"

/// A program is run, and what came of it is kept.
class ForkExecvGetOutErr : public World
{
protected:
    using Environment = std::map<std::string, std::string>;

    static constexpr uid_t sameUser = static_cast<uid_t>(-1);

    int run(const std::string& path, const Arguments& argv)
    {
        return forkExecvGetOutErr(input_, output_, error_, path, argv, sameUser, {});
    }

    int shell(const std::string& script) { return run("/bin/sh", Arguments{"sh", "-c", script}); }

    std::string input_;
    std::string output_;
    std::string error_;
    faults::Guard guard_;
};
