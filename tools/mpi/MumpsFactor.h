#pragma once

#include "solve/mumps/MumpsControls.h"
#include "tools/mpi/LocalRows.h"
#include "tools/mpi/Ranks.h"

#include <petscsf.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orx::mpi {

/// L D L^T of symmetric matrices of one pattern, or L U of others, whose rows the ranks have in equal shares,
/// by MUMPS. All functions are collective. Errors are ToolErrors of all ranks. The options -mat_mumps_icntl_N
/// and -mat_mumps_cntl_N of PETSc set its controls.
class MumpsFactor {
public:
  struct Estimate {
    std::int64_t entries; ///< of the factor
    double operations;
    std::int64_t bytes, bytesOnDisk; ///< memory of the rank that needs most: all in memory, or the factor on
                                     ///< disk
  };

  /// Orders the unknowns. The rows are lent.
  MumpsFactor(Ranks const& ranks, LocalRows const& rows, int order, bool isSymmetric = true);
  MumpsFactor(MumpsFactor const&) = delete;
  MumpsFactor& operator=(MumpsFactor const&) = delete;
  ~MumpsFactor();

  Estimate const& Foreseen() const noexcept { return m_estimate; }
  /// Factorizes rows with the entries of those that were ordered. Returns the number of negative eigenvalues,
  /// or nothing for a pivot of exactly zero. A factor that needs more than `memory` bytes on some rank is
  /// kept on disk, in `folder`.
  std::optional<int> TryFactorize(LocalRows const& rows, std::int64_t memory, std::string const& folder);
  /// Replaces `count` vectors, of which each rank has its rows without gaps, by the solutions.
  void Solve(double* x, int count);

private:
  void Run(mumps::Job job);
  void TakePattern();
  void TakeValues(LocalRows const& rows);
  bool IsTaken(int row, int unknown) const noexcept { return !m_isSymmetric || unknown <= row; }
  void SetFromOptions();
  void SolveGroup(double* x, int count);
  /// MUMPS leaves parts of the solutions where it likes.
  void FindPlacesOfSolution();
  [[noreturn]] void Fail(char const* what) const;

  Ranks const& m_ranks;
  LocalRows const& m_rows;
  int m_firstRow;
  bool m_isSymmetric;
  DMUMPS_STRUC_C m_id{};
  std::vector<int> m_entryRows, m_entryColumns; ///< one-based; of a symmetric matrix the lower triangle
  std::vector<double> m_values;
  std::vector<int> m_ownUnknowns; ///< one-based
  Estimate m_estimate{};
  bool m_arePlacesKnown = false; ///< of the solution, for the present factor
  std::vector<int> m_solutionUnknowns;
  PetscSF m_toOwners = nullptr;
  MPI_Datatype m_group = MPI_DATATYPE_NULL;
};

} // namespace orx::mpi
