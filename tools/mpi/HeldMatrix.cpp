#include "tools/mpi/HeldMatrix.h"

#include <algorithm>
#include <cmath>

namespace orx::mpi {

namespace {

/// Gives the pattern an entry on each diagonal, where unknowns can be held.
void CompleteDiagonal(Mat matrix, Ranks const& ranks) {
  PetscBool isMissing = PETSC_FALSE;
  PetscInt first = 0, end = 0, order = 0, row = 0;
  Check(MatGetOwnershipRange(matrix, &first, &end));
  Check(MatGetSize(matrix, &order, nullptr));
  if (first < end) Check(MatMissingDiagonal(matrix, &isMissing, &row));
  if (ranks.AreAll(isMissing == PETSC_FALSE)) return;
  Handle<Mat> diagonal;
  Check(MatCreateAIJ(ranks.Communicator(), end - first, end - first, order, order, 1, nullptr, 0, nullptr,
                     diagonal.Receive()));
  for (row = first; row < end; ++row)
    Check(MatSetValue(diagonal.Get(), row, row, 0.0, INSERT_VALUES));
  Check(MatAssemblyBegin(diagonal.Get(), MAT_FINAL_ASSEMBLY));
  Check(MatAssemblyEnd(diagonal.Get(), MAT_FINAL_ASSEMBLY));
  Check(MatAXPY(matrix, 1.0, diagonal.Get(), DIFFERENT_NONZERO_PATTERN));
}

} // namespace

HeldMatrix::HeldMatrix(Ranks const& ranks, Mat matrix) : m_ranks(ranks) {
  Check(MatDuplicate(matrix, MAT_COPY_VALUES, m_matrix.Receive()));
  CompleteDiagonal(m_matrix.Get(), ranks);
  Check(MatSetOption(m_matrix.Get(), MAT_KEEP_NONZERO_PATTERN, PETSC_TRUE));
  Check(MatGetOwnershipRange(matrix, &m_firstRow, nullptr));
  Check(MatGetSize(matrix, &m_order, nullptr));
  m_rows.emplace(m_matrix.Get());
  m_isHeld.resize(static_cast<std::size_t>(m_rows->Count()), false);
  std::vector<double> const largest = LargestInRows();
  double const scale = ranks.Largest(largest.empty() ? 0.0 : std::ranges::max(largest));
  if (scale > 0.0) m_scale = scale;
}

void HeldMatrix::Hold(std::vector<int> const& unknowns) {
  Check(MatZeroRowsColumns(m_matrix.Get(), static_cast<PetscInt>(unknowns.size()), unknowns.data(), m_scale,
                           nullptr, nullptr));
  for (int const unknown : unknowns)
    m_isHeld[static_cast<std::size_t>(unknown - m_firstRow)] = true;
  m_held = static_cast<int>(m_ranks.Sum(std::ranges::count(m_isHeld, true)));
}

std::vector<double> HeldMatrix::LargestInRows() const {
  std::vector<double> largest(static_cast<std::size_t>(m_rows->Count()), 0.0);
  m_rows->ForEachEntry([&](int row, int, double value) {
    double& ofRow = largest[static_cast<std::size_t>(row)];
    ofRow = std::max(ofRow, std::fabs(value));
  });
  return largest;
}

} // namespace orx::mpi
