#pragma once

#include <gtest/gtest.h>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "exec/Pipe.h"
#include "exec/Pipeline.h"
#include "exec/TReadFromPipeline.h"
#include "exec/TUnionPrep.h"
#include "exec/TWriteToPipeline.h"
#include "tests/exec/Commands.h"
#include "tests/lib/Faults.h"
#include "tests/lib/Process.h"

/// Commands that are connected in a row, and the preparations that this takes.
class Row
{
public:
    Row(std::initializer_list<zelto::sys::TEArgs> commands, unsigned flags = zelto::sys::TExec::all)
    {
        std::shared_ptr<zelto::sys::Pipe> before;
        for (const auto& args : commands) {
            const bool last = &args == commands.end() - 1;
            connect(args, before, last ? nullptr : std::make_shared<zelto::sys::Pipe>(), flags);
        }
    }

    [[nodiscard]] const std::vector<zelto::sys::TExec>& commands() const { return commands_; }

private:
    void connect(const zelto::sys::TEArgs& args, std::shared_ptr<zelto::sys::Pipe>& before,
        const std::shared_ptr<zelto::sys::Pipe>& after, unsigned flags)
    {
        std::shared_ptr<zelto::sys::TExec::TPrepare> reader;
        std::shared_ptr<zelto::sys::TExec::TPrepare> writer;
        if (before != nullptr) {
            reader = std::make_shared<zelto::sys::TReadFromPipeline>(before);
        }
        if (after != nullptr) {
            writer = std::make_shared<zelto::sys::TWriteToPipeline>(after);
        }
        preparations_.push_back(std::make_unique<zelto::sys::TUnionPrep>(reader, writer));
        commands_.emplace_back(args, preparations_.back().get(), flags);
        before = after;
    }

    std::vector<std::unique_ptr<zelto::sys::TUnionPrep>> preparations_;
    std::vector<zelto::sys::TExec> commands_;
};

/// What a checked run came to.
struct Checked {
    std::string failure; ///< the text of what was thrown
    std::string output;
};

/// Runs the commands; a child that comes back ends at once with status 77.
inline Checked runChecked(const std::vector<zelto::sys::TExec>& commands)
{
    const pid_t caller = getpid();
    Checked checked;
    try {
        runPipelineChecked(commands, checked.output);
    } catch (const std::exception& error) {
        checked.failure = error.what();
    } catch (...) {
        checked.failure = "something";
    }
    if (getpid() != caller) {
        _exit(77);
    }
    return checked;
}

inline Checked runChecked(const zelto::sys::TEArgs& args)
{
    return runChecked({zelto::sys::TExec(args)});
}

class PipelineFixture : public ::testing::Test
{
    faults::Guard guard_;
};
