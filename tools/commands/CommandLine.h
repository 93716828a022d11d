#pragma once

#include "tools/commands/Check.h"
#include "tools/commands/Compare.h"
#include "tools/commands/Convert.h"
#include "tools/commands/Modes.h"
#include "tools/commands/Solve.h"
#include "tools/commands/Spy.h"

#include <string>

namespace CLI {
class App;
}

// The commands and their options as the command line has them. Each function adds one command whose options
// go into the struct, which lives as long as the parser, and returns it, so that a program can add options
// of its own.

namespace orx::tool {

CLI::App* AddInfo(CLI::App& app, std::string& path);
CLI::App* AddDatabase(CLI::App& app, std::string& path);
CLI::App* AddConvert(CLI::App& app, ConvertOptions& options);
CLI::App* AddSpy(CLI::App& app, SpyOptions& options);
CLI::App* AddCompare(CLI::App& app, CompareOptions& options);
CLI::App* AddModes(CLI::App& app, ModesOptions& options);
CLI::App* AddSolve(CLI::App& app, SolveOptions& options);
CLI::App* AddCheck(CLI::App& app, CheckOptions& options);

/// "": the check of an option that takes a name.
std::string EmptyNameFault(std::string const& name);

/// The parts of the help's end that all programs share.
std::string ExitCodesText();
std::string MatrixFilesText();

/// Fills the options. Returns help or version where the user has asked for that, to be printed instead of any
/// work. Wrong usage is a ToolError.
std::string Parse(CLI::App& app, int argc, char const* const* argv);

} // namespace orx::tool
