#include "solve/impl/ShiftedMatrix.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <unordered_map>
#include <utility>

namespace orx {

namespace {

/// Rows of entries, or of the lower triangle of a symmetric matrix: columns ascend within a row, each once.
struct SortedRows {
  std::vector<std::int64_t> pointers;
  std::vector<int> columns;
  std::vector<double> values;
};

/// Calls visit(row, column, value) for each entry of the lower triangle, or with `all` of the whole matrix.
template<class Visit>
void ForEachWanted(CompressedRowsView const& a, bool all, Visit visit) {
  if (all) return ForEachEntry(a, visit);
  for (int i = 0; a.diagonal != nullptr && i < a.rows; ++i)
    visit(i, i, a.diagonal[i]);
  ForEachStored(a, [&](int i, int j, double value) {
    if (j <= i) {
      visit(i, j, value);
    } else if (a.diagonal != nullptr) {
      visit(j, i, value); // the symmetric form stores one of a pair, above or below the diagonal
    }
  });
}

void SortRow(SortedRows& rows, int row) {
  auto const first = static_cast<std::size_t>(rows.pointers[row]);
  auto const end = static_cast<std::size_t>(rows.pointers[row + 1]);
  if (std::is_sorted(rows.columns.begin() + first, rows.columns.begin() + end)) return;
  std::vector<std::pair<int, double>> sorted;
  for (std::size_t k = first; k < end; ++k)
    sorted.emplace_back(rows.columns[k], rows.values[k]);
  std::ranges::sort(sorted, {}, &std::pair<int, double>::first);
  for (std::size_t k = first; k < end; ++k) {
    rows.columns[k] = sorted[k - first].first;
    rows.values[k] = sorted[k - first].second;
  }
}

SortedRows MakeRows(CompressedRowsView const& a, bool all) {
  SortedRows rows;
  rows.pointers.assign(static_cast<std::size_t>(a.rows) + 1, 0);
  ForEachWanted(a, all, [&](int i, int, double) { ++rows.pointers[i + 1]; });
  std::partial_sum(rows.pointers.begin(), rows.pointers.end(), rows.pointers.begin());
  rows.columns.resize(static_cast<std::size_t>(rows.pointers.back()));
  rows.values.resize(rows.columns.size());
  std::vector<std::int64_t> next(rows.pointers.begin(), rows.pointers.end() - 1);
  ForEachWanted(a, all, [&](int i, int j, double value) {
    rows.columns[next[i]] = j;
    rows.values[next[i]++] = value;
  });
  for (int i = 0; i < a.rows; ++i)
    SortRow(rows, i);
  return rows;
}

SortedRows EmptyRows(int count) {
  return {std::vector<std::int64_t>(static_cast<std::size_t>(count) + 1, 0), {}, {}};
}

/// Walks over two or three sorted lists of columns at once.
template<class Visit>
void MergeRow(SortedRows const& k, SortedRows const& m, int row, Visit visit) {
  std::int64_t a = k.pointers[row], b = m.pointers[row];
  std::int64_t const endA = k.pointers[row + 1], endB = m.pointers[row + 1];
  bool isDiagonalDone = false;
  while (a < endA || b < endB || !isDiagonalDone) {
    int const columnA = a < endA ? k.columns[a] : INT32_MAX;
    int const columnB = b < endB ? m.columns[b] : INT32_MAX;
    int const column = std::min({columnA, columnB, isDiagonalDone ? INT32_MAX : row});
    double const valueA = columnA == column ? k.values[a++] : 0.0;
    double const valueB = columnB == column ? m.values[b++] : 0.0;
    isDiagonalDone = isDiagonalDone || column == row;
    visit(column, valueA, valueB);
  }
}

std::uint64_t Hash(std::uint64_t x) noexcept { // the finalizer of splitmix64
  x += 0x9e3779b97f4a7c15;
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9;
  x = (x ^ (x >> 27)) * 0x94d049bb133111eb;
  return x ^ (x >> 31);
}

} // namespace

ShiftedMatrix::ShiftedMatrix(CompressedRowsView const& k, double shift, CompressedRowsView const* m,
                             bool isSymmetric)
    : m_order(k.rows), m_isSymmetric(isSymmetric) {
  SortedRows const rowsK = MakeRows(k, !isSymmetric);
  SortedRows const rowsM = m != nullptr ? MakeRows(*m, !isSymmetric) : EmptyRows(k.rows);
  std::size_t const atMost = rowsK.columns.size() + rowsM.columns.size() + static_cast<std::size_t>(m_order);
  std::size_t const atLeast = std::max(rowsK.columns.size(), rowsM.columns.size());
  for (auto* const indices : {&m_rows, &m_columns})
    indices->reserve(m != nullptr ? atLeast : atMost);
  m_values.reserve(m != nullptr ? atLeast : atMost);
  for (int i = 0; i < m_order; ++i)
    MergeRow(rowsK, rowsM, i, [&](int j, double valueK, double valueM) {
      m_rows.push_back(i + 1);
      m_columns.push_back(j + 1);
      m_values.push_back(valueK - shift * valueM);
    });
}

void ShiftedMatrix::Hold(std::vector<int> const& unknowns) {
  std::vector<double> const largest = LargestInRows();
  std::vector<bool> isHeld(static_cast<std::size_t>(m_order));
  for (int const unknown : unknowns)
    isHeld[static_cast<std::size_t>(unknown)] = true;
  for (std::size_t k = 0; k < m_values.size(); ++k) {
    auto const row = static_cast<std::size_t>(m_rows[k] - 1),
               column = static_cast<std::size_t>(m_columns[k] - 1);
    if (!isHeld[row] && !isHeld[column]) continue;
    m_values[k] = row != column ? 0.0 : largest[row] > 0.0 ? largest[row] : 1.0;
  }
}

bool ShiftedMatrix::HasPatternOf(ShiftedMatrix const& other) const noexcept {
  return m_order == other.m_order && m_isSymmetric == other.m_isSymmetric && m_rows == other.m_rows &&
         m_columns == other.m_columns;
}

bool ShiftedMatrix::HasZeroOnDiagonal() const {
  for (std::size_t k = 0; k < m_values.size(); ++k)
    if (m_rows[k] == m_columns[k] && m_values[k] == 0.0) return true;
  return false;
}

std::int64_t ShiftedMatrix::FindNotFinite() const noexcept {
  for (std::size_t k = 0; k < m_values.size(); ++k)
    if (!std::isfinite(m_values[k])) return static_cast<std::int64_t>(k);
  return -1;
}

void ShiftedMatrix::ComputeResidual(double const* x, double const* b, double* residual,
                                    double* weights) const {
  for (int i = 0; i < m_order; ++i) {
    residual[i] = b[i];
    weights[i] = std::abs(b[i]);
  }
  auto const add = [&](int row, int column, double value) {
    double const product = value * x[column];
    residual[row] -= product;
    weights[row] += std::abs(product);
  };
  for (std::size_t k = 0; k < m_values.size(); ++k) {
    int const i = m_rows[k] - 1, j = m_columns[k] - 1;
    add(i, j, m_values[k]);
    if (m_isSymmetric && i != j) add(j, i, m_values[k]);
  }
}

double ShiftedMatrix::OneNorm() const {
  std::vector<double> sums(static_cast<std::size_t>(m_order), 0.0);
  for (std::size_t k = 0; k < m_values.size(); ++k) {
    int const i = m_rows[k] - 1, j = m_columns[k] - 1;
    sums[j] += std::abs(m_values[k]);
    if (m_isSymmetric && i != j) sums[i] += std::abs(m_values[k]);
  }
  return sums.empty() ? 0.0 : *std::ranges::max_element(sums);
}

std::vector<double> ShiftedMatrix::LargestInRows() const {
  std::vector<double> largest(static_cast<std::size_t>(m_order), 0.0);
  for (std::size_t k = 0; k < m_values.size(); ++k)
    for (int const i : {m_rows[k] - 1, m_isSymmetric ? m_columns[k] - 1 : m_rows[k] - 1})
      largest[i] = std::max(largest[i], std::abs(m_values[k]));
  return largest;
}

namespace {

/// A hash of the pattern of each row, the upper triangle of a symmetric matrix included.
std::vector<std::uint64_t> HashPatterns(ShiftedMatrix const& matrix) {
  std::vector<std::uint64_t> patterns(static_cast<std::size_t>(matrix.Order()), 0);
  for (std::size_t k = 0; k < matrix.Rows().size(); ++k) {
    int const i = matrix.Rows()[k] - 1, j = matrix.Columns()[k] - 1;
    patterns[i] += Hash(static_cast<std::uint64_t>(j));
    if (i != j && matrix.IsSymmetric()) patterns[j] += Hash(static_cast<std::uint64_t>(i));
  }
  return patterns;
}

/// Numbers groups of equal keys in the order of their first members.
std::vector<int> NumberGroups(std::vector<std::uint64_t> const& keys) {
  std::unordered_map<std::uint64_t, int> numbers;
  numbers.reserve(keys.size());
  std::vector<int> groups;
  groups.reserve(keys.size());
  for (std::uint64_t const key : keys)
    groups.push_back(numbers.try_emplace(key, static_cast<int>(numbers.size())).first->second);
  return groups;
}

/// Share of the positions that are entries, among those of all blocks of `size` x `size` that have entries.
double FillOfBlocks(ShiftedMatrix const& matrix, int size) {
  std::vector<int> lastRow(static_cast<std::size_t>(matrix.Order() / size) + 1, -1); // by block column
  std::int64_t positions = 0;
  for (std::size_t k = 0; k < matrix.Rows().size(); ++k) {
    int const row = (matrix.Rows()[k] - 1) / size, column = (matrix.Columns()[k] - 1) / size;
    if (std::exchange(lastRow[column], row) == row) continue;
    bool const isHalf = matrix.IsSymmetric() && row == column;
    positions += isHalf ? size * (size + 1) / 2 : size * size;
  }
  return static_cast<double>(matrix.Entries()) / static_cast<double>(positions);
}

RowGroups MakeGroups(std::vector<int> const& groupOf, int count) {
  RowGroups groups;
  groups.pointers.assign(static_cast<std::size_t>(count) + 1, 0);
  for (int const group : groupOf)
    ++groups.pointers[group + 1];
  groups.pointers[0] = 1;
  std::partial_sum(groups.pointers.begin(), groups.pointers.end(), groups.pointers.begin());
  groups.unknowns.resize(groupOf.size());
  std::vector<int> next(groups.pointers.begin(), groups.pointers.end() - 1);
  for (std::size_t i = 0; i < groupOf.size(); ++i)
    groups.unknowns[next[groupOf[i]]++ - 1] = static_cast<int>(i) + 1;
  return groups;
}

} // namespace

RowGroups FindRowGroups(ShiftedMatrix const& matrix) {
  constexpr double worthwhileShare = 0.7; // of groups among unknowns
  constexpr double leastFill = 0.6;
  std::vector<int> groupOf = NumberGroups(HashPatterns(matrix));
  int const count = 1 + *std::ranges::max_element(groupOf);
  if (count < worthwhileShare * matrix.Order()) return MakeGroups(groupOf, count);
  for (int const size : {6, 3, 2})
    if (matrix.Order() % size == 0 && FillOfBlocks(matrix, size) >= leastFill) {
      for (int i = 0; i < matrix.Order(); ++i)
        groupOf[i] = i / size;
      return MakeGroups(groupOf, matrix.Order() / size);
    }
  return {};
}

} // namespace orx
