#pragma once

#include <stdexcept>
#include <string>

namespace orx::tool {

/// How the program ends; `orxmtx --help` lists the same numbers.
enum class ExitCode : int {
  Success = 0,
  UnusableInput = 1, ///< a file is missing, malformed, not symmetric, not square, not finite
  WrongUsage = 2,    ///< the command line
  Failure = 3        ///< no convergence, no definite combination, out of memory, output not written
};

/// Ends the program with a message on stderr. The message says what is wrong, where, what was expected and
/// what was found; the program's name is put before it.
class ToolError : public std::runtime_error {
public:
  ToolError(ExitCode code, std::string const& message) : std::runtime_error(message), m_code(code) {}
  ExitCode Code() const noexcept { return m_code; }

private:
  ExitCode m_code;
};

} // namespace orx::tool
