#include "mtx/ORXSrvSparseMatrix.h"

#include <algorithm>
#include <cmath>

using namespace orx;

namespace {

/// A sum of many values as exact as a sum of few: the part that an addition rounds away is kept and added in
/// the end.
class CompensatedSum {
public:
  void Add(double value) noexcept {
    double const sum = m_sum + value;
    m_lost += std::fabs(m_sum) >= std::fabs(value) ? (m_sum - sum) + value : (value - sum) + m_sum;
    m_sum = sum;
  }
  /// Of a sum that is infinite, the rest is not a number.
  double Value() const noexcept { return std::isfinite(m_sum) ? m_sum + m_lost : m_sum; }

private:
  double m_sum = 0.0;
  double m_lost = 0.0;
};

enum class Line : std::uint8_t { Row, Column };

/// The largest sum of magnitudes of a row or column, of which the matrix has `lines`.
double LargestSum(CompressedRowsView const& matrix, Line line, std::int32_t lines) {
  auto const sums = mem_MakeArray<CompensatedSum>(lines);
  std::fill_n(sums.get(), lines, CompensatedSum());
  ForEachEntry(matrix, [&](std::int32_t row, std::int32_t column, double value) {
    sums[line == Line::Row ? row : column].Add(std::fabs(value));
  });
  double largest = 0.0;
  for (std::int32_t i = 0; i < lines; ++i) {
    double const sum = sums[i].Value();
    if (std::isnan(sum)) return sum;
    largest = std::max(largest, sum);
  }
  return largest;
}

} // namespace

double ORXSrvSparseMatrix::FrobeniusNorm() const {
  RequireAssembled("FrobeniusNorm");
  double const largest = std::fabs(LargestEntry().value);
  if (largest == 0.0 || !std::isfinite(largest)) return largest;
  CompensatedSum sum;
  ForEachEntry(View(), [&](std::int32_t, std::int32_t, double value) {
    double const scaled = value / largest;
    sum.Add(scaled * scaled);
  });
  return largest * std::sqrt(sum.Value());
}

double ORXSrvSparseMatrix::InfinityNorm() const {
  RequireAssembled("InfinityNorm");
  return LargestSum(View(), Line::Row, m_rows);
}

double ORXSrvSparseMatrix::OneNorm() const {
  RequireAssembled("OneNorm");
  return LargestSum(View(), Line::Column, std::max(m_columns, IsSymmetricForm() ? m_rows : 0));
}

ORXSrvSparseMatrixEntry ORXSrvSparseMatrix::LargestEntry() const {
  RequireAssembled("LargestEntry");
  ORXSrvSparseMatrixEntry largest{0, 0, 0.0};
  ForEachEntry(View(), [&](std::int32_t row, std::int32_t column, double value) {
    bool const isLarger = !(std::fabs(value) <= std::fabs(largest.value)); // true for not a number
    if (isLarger && !std::isnan(largest.value))
      largest = {static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(column), value};
  });
  return largest;
}

void ORXSrvSparseMatrix::GetDiagonal(double* diagonal) const {
  RequireAssembled("GetDiagonal");
  if (IsSymmetricForm()) {
    std::copy_n(m_stored.diagonal.get(), m_rows, diagonal);
    return;
  }
  std::fill_n(diagonal, m_rows, 0.0);
  ForEachStored(View(), [&](std::int32_t row, std::int32_t column, double value) {
    if (row == column) diagonal[row] = value;
  });
}
