#pragma once

#include "tools/commands/Solve.h"
#include "tools/formats/ResultFile.h"
#include "tools/numerics/StaticProblem.h"

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace orx::tool {

/// The files that a solution goes to, if any, from before it is known: a path that cannot be written to shows
/// before the work.
class SolutionFiles {
public:
  /// The options are lent.
  explicit SolutionFiles(SolveOptions const& options);

  /// Prints the displacements and reactions for which there is no file, and writes the others. `labels` are
  /// those of the rows; empty for 0, 1, 2, ...
  void Write(std::vector<HeldUnknown> const& held, StaticSolution const& solution,
             std::span<int const> labels, std::function<void(std::string const&)> const& print);

private:
  SolveOptions const& m_options;
  std::optional<ResultFile> m_displacements, m_reactions;
};

} // namespace orx::tool
