#pragma once

#include <string>

namespace orx::tool {

/// What messages and progress call this program: "orxmtx" until another name is set, which a program does
/// before anything else.
std::string const& ProgramName();
void SetProgramName(std::string const& name);

} // namespace orx::tool
