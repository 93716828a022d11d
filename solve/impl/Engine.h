#pragma once

#include "solve/impl/ShiftedMatrix.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orx {

/// What the engine may use, see ORXSrvSparseFactor.
struct EngineLimits {
  std::int64_t bytes;
  std::string folder; ///< for factors on disk
};

struct EngineEstimate {
  std::int64_t entries, bytes, bytesOnDisk;
  double operations;
};

struct EngineFacts {
  std::int64_t entries, bytes;
  bool isOnDisk;
  int negative, delayed;
  std::vector<int> nullUnknowns; ///< of the pivots set aside, zero-based, ascending
};

/// The direct solver for one pattern. The only place that knows MUMPS. Errors are ORXSrvSolveError and
/// mem_OutOfMemory.
class Engine {
public:
  /// Orders the unknowns of `matrix`, which is lent for the call.
  explicit Engine(ShiftedMatrix const& matrix);
  Engine(Engine const&) = delete;
  Engine& operator=(Engine const&) = delete;
  ~Engine();

  EngineEstimate const& Estimate() const noexcept;
  /// Factorizes `matrix`, which has the pattern of the analysed one and is lent for the call. Sets pivots
  /// aside that are exactly zero, or smaller than `zeroPivot` times the largest entry, scaled, unless that is
  /// zero.
  EngineFacts Factorize(ShiftedMatrix const& matrix, EngineLimits const& limits, double zeroPivot = 0.0);
  /// Does the same, but with a `zeroPivot` of zero returns nothing for a matrix with a pivot of exactly zero.
  std::optional<EngineFacts> TryFactorize(ShiftedMatrix const& matrix, EngineLimits const& limits,
                                          double zeroPivot = 0.0);
  /// Replaces `count` right-hand sides by the solutions, `group` of them at a time. Components of null
  /// unknowns are zero. Solves with the transposed matrix when asked to.
  void Solve(double* x, int count, int group, bool transposed = false);

private:
  struct State;
  std::unique_ptr<State> m_state;
};

} // namespace orx
