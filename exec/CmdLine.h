#pragma once

#include <string>

#include "support/Api.h"

namespace zelto
{

/// Something that collects the command line and the environment of a program.
class ZELTO_API CmdLine
{
public:
    virtual ~CmdLine();

    /// Appends an argument.
    /// @return this object, so that calls chain.
    virtual CmdLine& add(const std::string& argument) = 0;

    /// Gives the program's environment a variable; a second value for a name replaces the first.
    /// @return this object, so that calls chain.
    virtual CmdLine& setEnv(const std::string& name, const std::string& value) = 0;

protected:
    CmdLine() = default;
    CmdLine(const CmdLine&) = default;
    CmdLine& operator=(const CmdLine&) = default;
};

} // namespace zelto
