#pragma once

#include <cstdint>
#include <string>

namespace orx::tool {

struct CheckOptions {
  std::string stiffnessPath;
  std::string massPath;        ///< empty: there is none
  std::string coordinatesPath; ///< empty: it is not told what is rigid, nor what the mass is
  std::int64_t memory = 0;     ///< bytes for the factorization; 0: the library's choice
};

struct CheckResult {
  bool isSound; ///< nothing that counts as wrong was found
  std::string text;
};

/// What `orxmtx check` prints: facts about the matrices of a model, then what is wrong with them, a line for
/// each finding. Wrong are
///
///   - values that are not finite, an unsymmetric matrix,
///   - unknowns without stiffness, negative diagonal entries,
///   - negative eigenvalues of K, beyond one for each unknown with stiffness and a zero on the diagonal, as
///     Lagrange multipliers have,
///   - more than six motions without stiffness; with coordinates, any that is no rigid motion of the whole,
///   - a mass matrix without mass.
///
/// A free body, a model in several parts and massless unknowns are facts. Values that are not finite, and an
/// unsymmetric matrix, leave out what cannot be told then.
CheckResult CheckModel(CheckOptions const& options);

} // namespace orx::tool
