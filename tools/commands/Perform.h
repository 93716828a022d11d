#pragma once

#include "tools/terminal/ToolError.h"

#include <functional>
#include <optional>
#include <string>

// How commands end, and where what they say goes.

namespace orx::tool {

/// Does the work within a session of the library. Every error that ends a program comes back as a ToolError
/// with its exit code and message; none for success.
std::optional<ToolError> FailureOf(std::function<void()> const& work);

/// Prints "orxmtx: message" on standard error. Returns the exit code.
int Fail(ExitCode code, std::string const& message);

/// Does the work, prints how it failed, and returns the exit code.
int Perform(std::function<void()> const& work);

using Print = std::function<void(std::string const&)>;

/// Where what a command says goes when what it makes goes to `outPath`: to standard error beside "-", else to
/// standard output.
Print PrintBeside(std::string const& outPath);

} // namespace orx::tool
