#include "tools/terminal/Program.h"

namespace orx::tool {
namespace {

std::string programName = "orxmtx";

} // namespace

std::string const& ProgramName() { return programName; }

void SetProgramName(std::string const& name) { programName = name; }

} // namespace orx::tool
