#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

/// A fuzz target of fuzz/, its entry point under a name of its own.
struct Target {
    const char* name; ///< as in fuzz/<name>Fuzzer.cpp
    int (*run)(const uint8_t* data, size_t size);
};

/// For the test runner.
inline void PrintTo(const Target& target, std::ostream* stream)
{
    *stream << target.name;
}

const std::vector<Target>& allTargets();

/// The seeds in fuzz/seeds/<target>/, in the order of their names.
struct Seed {
    std::string name;
    std::string content;
};
std::vector<Seed> seedsOf(const std::string& target);

/// Runs one input, which ends with the last byte of its memory.
/// @return "" if everything holds; else what does not, and the input, readable.
std::string replay(int (*run)(const uint8_t* data, size_t size), const std::string& input);

/// Inputs that were made of seeds by a few small changes, the same ones in every run.
std::vector<std::string> mutationsOf(const std::vector<Seed>& seeds, size_t count);
