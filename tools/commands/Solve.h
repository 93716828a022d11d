#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace orx::tool {

struct SolveOptions {
  std::string stiffnessPath;
  std::string loadsPath;
  std::string outPath;       ///< of a type by its extension; empty: the displacements are printed
  std::string heldPath;      ///< empty: nothing is held
  std::string reactionsPath; ///< empty: they are printed
  std::int64_t memory = 0;   ///< bytes for the factorization; 0: the library's choice
  bool explains = false;     ///< prints what the factorization takes, before it begins
};

/// Two inputs from standard input, two results in one file, and reactions without --fix are a ToolError.
void RequireUsableNames(SolveOptions const& options);

/// Prints what `orxmtx solve` prints, by `print`: lines starting with '#' that say what was found and done,
/// then the displacements and reactions for which there is no file. The files are begun before all else: it
/// shows at once when they cannot be.
void PrintSolution(SolveOptions const& options, std::function<void(std::string const&)> const& print);

} // namespace orx::tool
