#pragma once

#include "tools/mpi/DenseDrawer.h"
#include "tools/mpi/PagedArray.h"
#include "tools/mpi/Ranks.h"

#include <array>
#include <vector>

// Dense matrices as ScaLAPACK has them: dealt out in square blocks to ranks that stand in a rectangle, here
// of 2 x 3 ranks with the numbers 0 to 5:
//
//     0 1 2 0 1
//     3 4 5 3 4
//     0 1 2 0 1

namespace orx::mpi {

/// The rectangle of ranks, as near to a square as their number allows.
class ProcessGrid {
public:
  /// Collective, as the destructor is.
  explicit ProcessGrid(Ranks const& ranks);
  ProcessGrid(ProcessGrid const&) = delete;
  ProcessGrid& operator=(ProcessGrid const&) = delete;
  ~ProcessGrid();

  Ranks const& AllRanks() const noexcept { return m_ranks; }
  int Context() const noexcept { return m_context; }
  int Rows() const noexcept { return m_rows; }
  int Columns() const noexcept { return m_columns; }
  int Row() const noexcept { return m_ranks.Rank() / m_columns; }
  int Column() const noexcept { return m_ranks.Rank() % m_columns; }

private:
  Ranks const& m_ranks;
  int m_rows, m_columns;
  int m_context = -1;
};

/// What this rank has of a matrix: the values at these rows and columns, which ascend, by columns that lie
/// `lead` apart.
struct LocalPart {
  std::vector<int> rows, columns;
  double const* values = nullptr;
  std::int64_t lead = 0;
};

class BlockCyclicMatrix {
public:
  /// A matrix of zeros. Collective: a part that is too long for ScaLAPACK's integers is a ToolError.
  BlockCyclicMatrix(ProcessGrid const& grid, int rows, int columns, int blockLength);

  int Rows() const noexcept { return m_descriptor[2]; }
  int Columns() const noexcept { return m_descriptor[3]; }
  double* Values() noexcept { return m_values.Data(); }
  /// ScaLAPACK's description of the matrix.
  int const* Descriptor() const noexcept { return m_descriptor.data(); }
  LocalPart Part() const;

  /// Calls visit(row, column, value) for each cell of this rank, by columns.
  template<class Visit>
  void ForEachLocal(Visit const& visit) {
    ForEachLocalPair(*this, [&](int row, int column, double& value, double) { visit(row, column, value); });
  }
  /// Calls visit(row, column, value, valueOfOther), the value by reference. REQUIRES two matrices of one
  /// shape and block length.
  template<class Visit>
  void ForEachLocalPair(BlockCyclicMatrix const& other, Visit const& visit) {
    std::int64_t at = 0;
    for (int const column : m_columnPositions)
      for (int const row : m_rowPositions) {
        visit(row, column, m_values[at], other.m_values[at]);
        ++at;
      }
  }

  /// Each rank reads its blocks. Collective.
  void ReadFrom(DenseDrawer const& drawer);

private:
  std::vector<int> LocalPositions(int length, int processes, int process) const;

  ProcessGrid const& m_grid;
  int m_blockLength;
  std::vector<int> m_rowPositions, m_columnPositions;
  std::array<int, 9> m_descriptor;
  PagedArray<double> m_values;
};

/// A block length that gives each rank several blocks of a matrix and ScaLAPACK long enough ones.
int BlockLengthFor(int length, ProcessGrid const& grid);

// Operations of ScaLAPACK, all collective. REQUIRE fitting shapes and one block length.

/// C = A * B, or A^T * B.
void Multiply(BlockCyclicMatrix& a, bool isTransposed, BlockCyclicMatrix& b, BlockCyclicMatrix& c);
/// C = beta * C + alpha * A, or A^T.
void AddTo(BlockCyclicMatrix& c, double beta, BlockCyclicMatrix& a, double alpha, bool isTransposed);
/// Columns of A from `first` on become all columns of C.
void CopyColumns(BlockCyclicMatrix& a, int first, BlockCyclicMatrix& c);
/// Replaces the lower triangle of A by L of A = L L^T. Returns 0, or the order of the first leading part that
/// is not positive definite.
int FactorizeDefinite(BlockCyclicMatrix& a);
/// All eigenvalues nu of A y = nu L L^T y, ascending, and the vectors L^T y, of length 1. A is overwritten.
/// Returns 0, or the code of a solver that does not converge.
int SolveReduced(BlockCyclicMatrix& a, BlockCyclicMatrix& l, std::vector<double>& nu,
                 BlockCyclicMatrix& vectors);
/// X = L^-T X.
void SolveTransposed(BlockCyclicMatrix& l, BlockCyclicMatrix& x);

} // namespace orx::mpi
