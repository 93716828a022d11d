#pragma once

#include "tools/mpi/LocalRows.h"

#include <optional>
#include <vector>

namespace orx::mpi {

/// A square matrix some unknowns of which are held: their rows and columns are zero but for the diagonal, so
/// that they are solved by themselves. The pattern stays that of the matrix.
class HeldMatrix {
public:
  /// Copies the matrix, of type MPIAIJ. Collective, as Hold is.
  HeldMatrix(Ranks const& ranks, Mat matrix);

  /// Unknowns of this rank, zero-based in the whole matrix.
  void Hold(std::vector<int> const& unknowns);

  Mat Get() const noexcept { return m_matrix.Get(); }
  LocalRows const& Rows() const noexcept { return *m_rows; }
  /// True for each row of this rank whose unknown is held.
  std::vector<bool> const& IsHeld() const noexcept { return m_isHeld; }
  int FirstRow() const noexcept { return m_firstRow; }
  int Order() const noexcept { return m_order; }
  int Held() const noexcept { return m_held; } ///< of all ranks
  /// The largest magnitude in the matrix, which is what the held unknowns have on their diagonal.
  double Scale() const noexcept { return m_scale; }
  /// Largest magnitude in each row of this rank.
  std::vector<double> LargestInRows() const;

private:
  Ranks const& m_ranks;
  Handle<Mat> m_matrix;
  std::optional<LocalRows> m_rows;
  std::vector<bool> m_isHeld;
  int m_firstRow = 0, m_order = 0, m_held = 0;
  double m_scale = 1.0;
};

} // namespace orx::mpi
