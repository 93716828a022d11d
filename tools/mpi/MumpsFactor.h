#pragma once

#include "tools/mpi/Petsc.h"
#include "tools/mpi/Ranks.h"

#include <cstdint>
#include <optional>
#include <string>

namespace orx::mpi {

/// L D L^T of symmetric matrices, or L U of others, of one pattern, whose rows the ranks have, by MUMPS. All
/// functions are collective. Errors are ToolErrors of all ranks.
class MumpsFactor {
public:
  struct Estimate {
    std::int64_t entries; ///< of the factor
    double operations;
    std::int64_t bytes,
        bytesOnDisk; ///< memory of the rank that needs most: all in memory, or the factor on disk
  };

  /// Orders the unknowns. The options -mat_mumps_... of PETSc hold.
  MumpsFactor(Ranks const& ranks, Mat matrix, bool isSymmetric = true);

  Estimate const& Foreseen() const noexcept { return m_estimate; }
  /// Returns the number of negative eigenvalues, or nothing for a pivot of exactly zero. A factor that needs
  /// more than `memory` bytes on some rank is kept on disk, in `folder`.
  std::optional<int> TryFactorize(Mat matrix, std::int64_t memory, std::string const& folder);
  /// Replaces `count` vectors, of which each rank has its rows without gaps, by the solutions.
  void Solve(double* x, int count);

private:
  std::int64_t Infog(int number) const;
  void Control(int number, int value);
  bool IsGiven(int control) const;
  void Analyse(Mat matrix);
  void FactorizeNow(Mat matrix);

  Ranks const& m_ranks;
  bool m_isSymmetric;
  Handle<Mat> m_factor;
  int m_ownRows = 0;
  int m_order = 0;
  Estimate m_estimate{};
};

} // namespace orx::mpi
