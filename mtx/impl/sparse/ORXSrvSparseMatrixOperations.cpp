#include "mtx/ORXSrvSparseMatrix.h"

#include "mtx/impl/exchange/RowAppender.h"
#include "mtx/impl/exchange/TripletCompressor.h"
#include "mtx/impl/matrix/ORXSrvMtxErrors.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

using namespace orx;

namespace {

constexpr auto& sourceFile = orx::sparseMatrixSource;

/// Allocates a list that is returned to the caller.
mem_Array<unsigned> AllocateList(std::int32_t length) { return mem_MakeArray<unsigned>(length); }

// Difference

struct Row {
  std::uint32_t const* columns = nullptr;
  double const* values = nullptr;
  std::int32_t length = 0;

  Row() = default;
  /// Row i; beyond the last row it is empty.
  Row(CompressedRowsView const& matrix, std::int32_t i) {
    if (i >= matrix.rows) return;
    columns = matrix.ColumnsOf(i);
    values = matrix.values + matrix.rowPointers[i];
    length = matrix.Length(i);
  }
  bool IsAscending() const {
    bool ascending = true;
    for (std::int32_t k = 1; k < length; ++k)
      ascending &= columns[k - 1] < columns[k];
    return ascending;
  }
  bool HasColumnsOf(Row const& other) const {
    return length == other.length && std::equal(columns, columns + length, other.columns);
  }
};

/// Dimensions that grow to hold entries.
struct Dimensions {
  std::int32_t rows, columns;

  void Hold(std::uint32_t row, std::uint32_t column) {
    rows = std::max(rows, static_cast<std::int32_t>(row) + 1);
    columns = std::max(columns, static_cast<std::int32_t>(column) + 1);
  }
};

/// Appends the row a - b; the rows may have different columns. REQUIRES: ascending columns.
void AppendMerged(Row const& a, Row const& b, CompressedRows& result) {
  std::uint32_t* columns = result.columnIndices.get() + result.entries;
  double* values = result.values.get() + result.entries;
  std::int32_t ka = 0;
  std::int32_t kb = 0;
  while (ka < a.length && kb < b.length) {
    std::uint32_t const ca = a.columns[ka];
    std::uint32_t const cb = b.columns[kb];
    if (ca < cb) {
      *values++ = a.values[ka];
    } else {
      *values++ = ca == cb ? a.values[ka] - b.values[kb] : -b.values[kb];
    }
    *columns++ = std::min(ca, cb);
    ka += static_cast<std::int32_t>(ca <= cb);
    kb += static_cast<std::int32_t>(cb <= ca);
  }
  columns = std::copy(a.columns + ka, a.columns + a.length, columns);
  values = std::copy(a.values + ka, a.values + a.length, values);
  columns = std::copy(b.columns + kb, b.columns + b.length, columns);
  std::transform(b.values + kb, b.values + b.length, values, [](double value) { return -value; });
  result.entries = static_cast<std::int32_t>(columns - result.columnIndices.get());
}

void AppendDifference(Row const& a, Row const& b, CompressedRows& result) {
  if (!a.HasColumnsOf(b)) return AppendMerged(a, b, result);
  std::copy_n(a.columns, a.length, result.columnIndices.get() + result.entries);
  double* const values = result.values.get() + result.entries;
  for (std::int32_t k = 0; k < a.length; ++k)
    values[k] = a.values[k] - b.values[k];
  result.entries += a.length;
}

/// Appends the rows of a - b up to the last row of either. Returns false when the columns of a row do not
/// ascend.
bool AppendRows(CompressedRowsView const& a, CompressedRowsView const& b, Dimensions& dimensions,
                CompressedRows& result) {
  for (std::int32_t i = 0; i < std::max(a.rows, b.rows); ++i) {
    Row const rowA(a, i);
    Row const rowB(b, i);
    if (!rowA.IsAscending() || !rowB.IsAscending()) return false;
    AppendDifference(rowA, rowB, result);
    result.rowPointers[i + 1] = result.entries;
    if (result.entries > result.rowPointers[i])
      dimensions.Hold(static_cast<std::uint32_t>(i), result.columnIndices[result.entries - 1]);
  }
  return true;
}

/// Returns a - b, computed row by row, the same as the assembly of all entries. Returns nothing when the
/// columns of a row do not ascend. The result has `dimensions`, which grow to hold the entries.
std::optional<CompressedRows> DifferenceOfRows(CompressedRowsView const& a, CompressedRowsView const& b,
                                               Dimensions dimensions) {
  std::int64_t const largest = std::int64_t{a.Entries()} + b.Entries();
  CompressedRows result;
  // Memory that is never written costs nothing, and the rest is freed at the end. More entries than an int
  // counts raise mem_OutOfMemory.
  ResizeEntries(result, largest <= INT_MAX ? largest : -1);
  AllocateRowPointers(result, std::max({a.rows, b.rows, dimensions.rows}), dimensions.columns);
  result.rowPointers[0] = 0;
  if (!AppendRows(a, b, dimensions, result)) return std::nullopt;
  for (std::int32_t i = std::max(a.rows, b.rows); i < dimensions.rows; ++i)
    result.rowPointers[i + 1] = result.entries;
  result.rows = dimensions.rows;
  result.columns = dimensions.columns;
  result.numberOfNonzeros = result.entries;
  ResizeEntries(result, result.entries);
  return result;
}

/// All entries of a matrix, in a list of their own.
struct EntryList {
  explicit EntryList(ORXSrvSparseMatrix const& matrix) : m_entries(matrix.GetEntries(m_count)) {}
  std::span<ORXSrvSparseMatrixEntry> All() const {
    return {m_entries.get(), static_cast<std::size_t>(m_count)};
  }

private:
  int m_count = 0;
  mem_Array<ORXSrvSparseMatrixEntry> m_entries;
};

/// Returns the assembly of the entries that wait for it (`ordered`, which may be null, and `list`), of `a`,
/// and of `b` negated, each in any order.
CompressedRows DifferenceOfEntries(TripletCompressor const* ordered,
                                   cow_List<ORXSrvSparseMatrixEntry> const& list, EntryList const& a,
                                   EntryList const& b, Dimensions dimensions) {
  for (ORXSrvSparseMatrixEntry const& entry : a.All())
    dimensions.Hold(entry.row, entry.column);
  for (ORXSrvSparseMatrixEntry& entry : b.All()) {
    dimensions.Hold(entry.row, entry.column);
    entry.value = -entry.value;
  }
  auto const expected = list.Count() + static_cast<std::int64_t>(a.All().size() + b.All().size());
  TripletCompressor compressor(dimensions.rows, dimensions.columns, expected);
  if (ordered != nullptr) compressor.Add(*ordered);
  for (int i = 0; i < list.Count();) {
    auto const run = list.RunFrom(i);
    compressor.Add(run);
    i += static_cast<int>(run.size());
  }
  compressor.Add(a.All());
  compressor.Add(b.All());
  return compressor.Compress();
}

// Symmetry

/// True when two values at mirrored positions differ by at most 1e-16, relative to `upper` unless it is zero.
bool AreMirrored(double upper, double lower) {
  if (upper == lower) return true;
  double const weight = upper == 0.0 ? 1.0 : 1.0 / upper;
  return !(std::abs((upper - lower) * weight) > 1e-16); // a NaN passes
}

} // namespace

// Checks

void ORXSrvSparseMatrix::RequireAssembled(char const* operation) const {
  if (m_stored.rowPointers != nullptr && m_stored.rows == m_rows) return;
  std::string const detail = std::string(operation) + ", a matrix assembled with all its rows expected";
  ORXSrvMtxIllegalInput(detail.c_str()).Throw(sourceFile, __LINE__);
}

void ORXSrvSparseMatrix::RequireAllAssembled(char const* operation) const {
  RequireAssembled(operation);
  if (!HasPendingEntries()) return;
  std::string const detail =
      std::string(operation) + ", a matrix without entries added since its assembly expected";
  ORXSrvMtxIllegalInput(detail.c_str()).Throw(sourceFile, __LINE__);
}

void ORXSrvSparseMatrix::RequireGeneralForm(char const* operation) const {
  if (IsSymmetricForm()) ORXSrvMtxNoSymmetricTrue(operation).Throw(sourceFile, __LINE__);
}

void ORXSrvSparseMatrix::RequireNoMoreColumnsThanRows(char const* operation) const {
  if (m_columns <= m_rows) return;
  std::string const detail = std::string(operation) + ", " + std::to_string(m_rows) + " rows and " +
                             std::to_string(m_columns) + " columns, no more columns than rows expected";
  ORXSrvMtxIllegalInput(detail.c_str()).Throw(sourceFile, __LINE__);
}

// Updates

void ORXSrvSparseMatrix::Scale(double s) {
  RequireAssembled("Scale");
  for (std::int32_t k = 0; k < StoredEntries(); ++k)
    m_stored.values[k] *= s;
  if (!IsSymmetricForm()) return;
  for (std::int32_t i = 0; i < m_rows; ++i)
    m_stored.diagonal[i] *= s;
}

void ORXSrvSparseMatrix::Subtract(ORXSrvSparseMatrix const& a, ORXSrvSparseMatrix const& b) {
  a.RequireAssembled("Subtract");
  b.RequireAssembled("Subtract");
  Dimensions const dimensions{m_rows, m_columns};
  std::optional<CompressedRows> difference;
  bool const areRowsEnough = !HasPendingEntries() && !a.IsSymmetricForm() && !b.IsSymmetricForm();
  if (areRowsEnough) difference = DifferenceOfRows(a.View(), b.View(), dimensions);
  if (!difference)
    difference = DifferenceOfEntries(m_ordered.get(), m_entries, EntryList(a), EntryList(b), dimensions);
  // The symmetry state becomes what an AddData for each entry of the operands would make of it.
  std::int64_t const added = a.NumberOfEntries() + b.NumberOfEntries();
  if (added > 0) m_symmetryState = added == 1 && m_symmetryState == symmetric ? unsymmetric : unknown;
  m_entries.Resize(0);
  m_ordered.reset();
  Store(std::move(*difference));
}

void ORXSrvSparseMatrix::SetColumnsToZero(int const* list, int n) {
  RequireGeneralForm("SetcolumnsToZero");
  RequireAssembled("SetColumnsToZero");
  std::vector<char> isListed(static_cast<std::size_t>(m_columns));
  for (int p = 0; p < n; ++p) {
    if (list[p] < 0 || list[p] >= m_columns) {
      std::string const detail = "SetColumnsToZero, list[" + std::to_string(p) +
                                 "] = " + std::to_string(list[p]) + ", columns 0 to " +
                                 std::to_string(m_columns - 1) + " expected";
      ORXSrvMtxIllegalInput(detail.c_str()).Throw(sourceFile, __LINE__);
    }
    isListed[static_cast<std::size_t>(list[p])] = 1;
  }
  for (std::int32_t k = 0; k < StoredEntries(); ++k)
    if (isListed[m_stored.columnIndices[k]] != 0) m_stored.values[k] = 0.0;
}

unsigned* ORXSrvSparseMatrix::EliminateTrivialColumns(int& count) {
  RequireGeneralForm("EliminateTrivialColumns");
  RequireAssembled("EliminateTrivialColumns");
  int kept = 0;
  mem_Array<unsigned> list(FindNontrivialColumns(kept));
  auto const newNumbers = AllocateList(m_columns);
  for (int p = 0; p < kept; ++p)
    newNumbers[list[p]] = static_cast<unsigned>(p);
  for (std::int32_t k = 0; k < StoredEntries(); ++k)
    m_stored.columnIndices[k] = newNumbers[m_stored.columnIndices[k]];
  m_columns = m_stored.columns = kept;
  m_symmetryState = unknown;
  m_rowPattern = {};
  count = kept;
  return list.release();
}

// Tests of the pattern

bool ORXSrvSparseMatrix::IsSymmetric() const {
  if (m_symmetryState == unknown) {
    RequireAssembled("IsSymmetric");
    m_symmetryState = IsSymmetricForm() || CompareTriangles() ? symmetric : unsymmetric;
  }
  return m_symmetryState == symmetric;
}

/// Compares the triangles of a general form in one pass. The entries of column j below the diagonal come in
/// the order of their mirror images in row j: each row has a cursor on its next entry above the diagonal that
/// must meet its mirror image. At the end each cursor must be at the end of its row.
bool ORXSrvSparseMatrix::CompareTriangles() const {
  auto const cursors = mem_MakeArray<std::int32_t>(m_rows);
  for (std::int32_t i = 0; i < m_rows; ++i) {
    auto const row = static_cast<std::uint32_t>(i);
    std::int32_t const end = m_stored.rowPointers[i + 1];
    std::int32_t k = m_stored.rowPointers[i];
    for (; k < end && m_stored.columnIndices[k] < row; ++k) {
      std::uint32_t const j = m_stored.columnIndices[k];
      std::int32_t const image = cursors[j]++;
      if (image >= m_stored.rowPointers[j + 1] || m_stored.columnIndices[image] != row) return false;
      if (!AreMirrored(m_stored.values[image], m_stored.values[k])) return false;
    }
    if (k < end && m_stored.columnIndices[k] == row) ++k;
    cursors[i] = k;
  }
  for (std::int32_t i = 0; i < m_rows; ++i)
    if (cursors[i] != m_stored.rowPointers[i + 1]) return false;
  return true;
}

unsigned* ORXSrvSparseMatrix::FindNontrivialRows(int& count) const {
  RequireAssembled("FindNontrivialRows");
  auto list = AllocateList(m_rows);
  count = 0;
  for (std::int32_t i = 0; i < m_rows; ++i)
    if (m_stored.rowPointers[i] < m_stored.rowPointers[i + 1]) list[count++] = static_cast<unsigned>(i);
  return list.release();
}

unsigned* ORXSrvSparseMatrix::FindNontrivialColumns(int& count) const {
  RequireAssembled("FindNontrivialColumns");
  auto list = AllocateList(m_columns);
  std::fill_n(list.get(), m_columns, 0U);
  for (std::int32_t k = 0; k < StoredEntries(); ++k)
    list[m_stored.columnIndices[k]] = 1;
  count = 0;
  for (std::int32_t j = 0; j < m_columns; ++j)
    if (list[j] != 0) list[count++] = static_cast<unsigned>(j);
  return list.release();
}
