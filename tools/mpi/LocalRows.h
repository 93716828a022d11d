#pragma once

#include "solve/search/ModeMeasures.h"
#include "tools/mpi/Petsc.h"
#include "tools/mpi/Ranks.h"

#include <petscsf.h>

#include <vector>

namespace orx::mpi {

/// The rows that this rank has of a matrix of type MPIAIJ, and the components of vectors that they need.
/// Columns are counted from 0: first the unknowns of this rank, then those of others that the rows name.
class LocalRows {
public:
  /// The matrix keeps its pattern as long as this object lives; its values may change.
  explicit LocalRows(Mat matrix);
  LocalRows(LocalRows const&) = delete;
  LocalRows& operator=(LocalRows const&) = delete;
  ~LocalRows();

  int Count() const noexcept { return m_inside.rows; }
  /// The unknown of a column, zero-based in the whole matrix.
  int UnknownOf(int column) const {
    return column < Count() ? m_first + column : m_others[static_cast<std::size_t>(column - Count())];
  }

  /// Of the unknowns on the ranks; the matrix's.
  PetscLayout Layout() const noexcept { return m_layout; }

  /// Vectors by components, a component for each column: those of this rank from `count` vectors x without
  /// gaps, the others from their ranks. Collective, as all functions that need components of others.
  std::vector<VectorGroup> Gather(double const* x, int count) const;
  /// The same of one vector.
  std::vector<double> Gather(double const* x) const;
  /// y = A x for `count` vectors without gaps.
  void Multiply(double const* x, int count, double* y) const;

  /// Calls visit(row, column, value) for each entry, rows ascending.
  template<class Visit>
  void ForEachEntry(Visit visit) const {
    for (int row = 0; row < Count(); ++row) {
      VisitRow(m_inside, row, 0, visit);
      VisitRow(m_outside, row, Count(), visit);
    }
  }

private:
  /// Compressed rows, lent by the matrix.
  struct Block {
    Mat matrix = nullptr;
    PetscInt rows = 0;
    PetscInt const* pointers = nullptr;
    PetscInt const* columns = nullptr;
    PetscScalar const* values = nullptr;

    explicit Block(Mat sequential);
    Block(Block const&) = delete;
    Block& operator=(Block const&) = delete;
    ~Block();
  };
  struct Parts {
    Mat inside = nullptr, outside = nullptr;
    PetscInt const* others = nullptr;

    explicit Parts(Mat matrix);
  };
  LocalRows(Mat matrix, Parts const& parts);

  template<class Visit>
  static void VisitRow(Block const& block, int row, int firstColumn, Visit visit) {
    for (PetscInt k = block.pointers[row]; k < block.pointers[row + 1]; ++k)
      visit(row, firstColumn + block.columns[k], block.values[k]);
  }

  void MultiplyOne(double const* x, double* y) const;
  void MultiplyGroup(double const* x, int count, double* y) const;

  int m_first = 0; ///< row of the whole matrix
  std::vector<PetscInt> m_others;
  Block m_inside, m_outside;
  PetscLayout m_layout = nullptr;
  PetscSF m_exchange = nullptr;
  MPI_Datatype m_group = MPI_DATATYPE_NULL;
};

} // namespace orx::mpi
