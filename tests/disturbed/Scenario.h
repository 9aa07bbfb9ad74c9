#pragma once

#include <ostream>
#include <string>
#include <vector>

/// @file
/// What is killed and what fails at every call. The short run, which is part of the test suite, has
/// a selection; the full one, with the environment variable TWIGCTL_FULL, has it all.

/// One operation on one site, to be run undisturbed and disturbed.
struct Scenario {
    std::string name;  ///< for the test's name: letters only
    std::string title; ///< for the table
    std::vector<std::string> arguments;
    void (*prepare)() = nullptr; ///< makes the site, below an empty virtual-hosts root
    std::string webRoot = {};    ///< absolute
    std::string cgiBin = {};
    int status = 0;           ///< of an undisturbed run, which says nothing if it is 0
    std::string without = {}; ///< calls that this machine does not have (see lib/MissingCalls.h)
    int error = 0;            ///< what fails fails with this

    friend std::ostream& operator<<(std::ostream& out, const Scenario& scenario)
    {
        return out << scenario.title;
    }
};

/// Whether this is the full run.
bool isFullRun();

/// Every operation on skeletons and sites with every kind of entry.
std::vector<Scenario> scenarios();

/// The same on machines that lack a call.
std::vector<Scenario> scenariosWithFallbacks();

/// Every operation with every error.
std::vector<Scenario> scenariosWithErrors();
