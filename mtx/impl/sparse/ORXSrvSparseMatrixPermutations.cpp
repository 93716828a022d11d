#include "mtx/ORXSrvSparseMatrix.h"

#include "blac/sparse/CacheSizes.h"
#include "blac/sparse/RowPatterns.h"
#include "mtx/impl/exchange/RowAppender.h"
#include "mtx/impl/matrix/ORXSrvMtxErrors.h"
#include "mtx/impl/sparse/KernelArrays.h"

#include <algorithm>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

using namespace orx;

// Permutations and transposition. A row group (neighbouring rows with the same columns, as the unknowns of
// one node have) is moved as a whole: its columns are renumbered once.

namespace {

constexpr auto& sourceFile = orx::sparseMatrixSource;

/// Returns the inverse: inverse[perm[k]] = k. Error 206 unless `perm` is a permutation of 0 ... rows - 1.
mem_Array<std::int32_t> InvertPermutation(int const* perm, std::int32_t rows, char const* operation) {
  auto inverse = mem_MakeArray<std::int32_t>(rows);
  std::fill_n(inverse.get(), rows, -1);
  for (std::int32_t k = 0; k < rows; ++k) {
    if (perm[k] < 0 || perm[k] >= rows || inverse[perm[k]] >= 0) {
      std::string const detail = std::string(operation) + ", perm[" + std::to_string(k) +
                                 "] = " + std::to_string(perm[k]) + ", each of 0 to " +
                                 std::to_string(rows - 1) + " once expected";
      ORXSrvMtxIllegalInput(detail.c_str()).Throw(sourceFile, __LINE__);
    }
    inverse[perm[k]] = k;
  }
  return inverse;
}

/// Allocates a matrix for the entries of another one, without row pointers and diagonal.
CompressedRows AllocateLike(CompressedRows const& matrix, std::int32_t columns) {
  CompressedRows made;
  made.rows = matrix.rows;
  made.columns = columns;
  made.entries = matrix.View().Entries();
  made.numberOfNonzeros = matrix.numberOfNonzeros;
  ResizeEntries(made, made.entries);
  return made;
}

/// Returns the row pointers of a matrix whose row newRow[i] is the old row i.
mem_Array<std::int32_t> MoveRowPointers(std::int32_t const* rowPointers, std::int32_t rows,
                                        std::int32_t const* newRow) {
  auto moved = mem_MakeArray<std::int32_t>(std::int64_t{rows} + 1);
  for (std::int32_t i = 0; i < rows; ++i)
    moved[newRow[i] + 1] = rowPointers[i + 1] - rowPointers[i];
  SumCounts(moved.get(), rows);
  return moved;
}

std::int32_t FindLongestRow(std::int32_t const* rowPointers, std::int32_t rows) {
  std::int32_t longest = 0;
  for (std::int32_t i = 0; i < rows; ++i)
    longest = std::max(longest, rowPointers[i + 1] - rowPointers[i]);
  return longest;
}

constexpr std::int32_t largestRowGroup = 8;

/// Number of rows from `first` with the same columns, at most largestRowGroup.
std::int32_t CountRowGroup(CompressedRowsView const& matrix, std::int32_t first) {
  std::int32_t groupSize = 1;
  std::int32_t const length = matrix.Length(first);
  std::uint32_t const* const columns = matrix.ColumnsOf(first);
  while (groupSize < largestRowGroup && first + groupSize < matrix.rows &&
         matrix.Length(first + groupSize) == length &&
         std::equal(columns, columns + length, matrix.ColumnsOf(first + groupSize)))
    ++groupSize;
  return groupSize;
}

/// The columns of a row with their new numbers, ascending, each with its position in the old row.
class RenumberedRow {
public:
  /// `newNumber[j]` is the new number of column j. Rows have at most `longest` entries.
  RenumberedRow(std::int32_t const* newNumber, std::int32_t longest)
      : m_newNumber(newNumber), m_keys(mem_MakeArray<std::uint64_t>(longest)) {}

  void Set(std::uint32_t const* columns, std::int32_t length) noexcept {
    m_length = length;
    bool ascending = true;
    for (std::int32_t k = 0; k < length; ++k) {
      m_keys[k] = static_cast<std::uint64_t>(m_newNumber[columns[k]]) << 32 | static_cast<std::uint32_t>(k);
      ascending = ascending && (k == 0 || m_keys[k - 1] < m_keys[k]);
    }
    if (ascending) return;
    if (length <= longestInserted) return InsertKeys();
    std::sort(m_keys.get(), m_keys.get() + length);
  }
  void StoreColumns(std::uint32_t* columns) const noexcept {
    for (std::int32_t k = 0; k < m_length; ++k)
      columns[k] = static_cast<std::uint32_t>(m_keys[k] >> 32);
  }
  /// Stores the values of the old row in the new order. REQUIRES: the arrays do not overlap.
  void StoreValues(double const* old, double* values) const noexcept {
    for (std::int32_t k = 0; k < m_length; ++k)
      values[k] = old[static_cast<std::uint32_t>(m_keys[k])];
  }
  std::int32_t ColumnsNeeded() const noexcept {
    return m_length > 0 ? static_cast<std::int32_t>(m_keys[m_length - 1] >> 32) + 1 : 0;
  }

private:
  static constexpr std::int32_t longestInserted = 16;

  /// Sorts few keys by insertion: std::sort would move them by memmove, which takes longer than the sorting.
  void InsertKeys() noexcept {
    for (std::int32_t k = 1; k < m_length; ++k) {
      std::uint64_t const key = m_keys[k];
      std::int32_t to = k;
      for (; to > 0 && m_keys[to - 1] > key; --to)
        m_keys[to] = m_keys[to - 1];
      m_keys[to] = key;
    }
  }

  std::int32_t const* m_newNumber;
  mem_Array<std::uint64_t> m_keys; ///< new number << 32 | position in the old row
  std::int32_t m_length = 0;
};

/// Moves element source[p] to position p for all p, cycle by cycle; leaves source[p] = p.
void GatherInPlace(std::uint32_t* columns, double* values, std::int32_t* source,
                   std::int32_t count) noexcept {
  for (std::int32_t p = 0; p < count; ++p) {
    if (source[p] == p) continue;
    std::uint32_t const column = columns[p];
    double const value = values[p];
    std::int32_t to = p;
    for (std::int32_t from = source[p]; from != p; from = source[to]) {
      columns[to] = columns[from];
      values[to] = values[from];
      source[to] = to;
      to = from;
    }
    columns[to] = column;
    values[to] = value;
    source[to] = to;
  }
}

// Transposition

/// Transposes row group by row group: stores each entry at next[column], the next position of its column.
void TransposeByRows(CompressedRowsView const& rows, std::int32_t* next, CompressedRows& result) {
  for (std::int32_t first = 0; first < rows.rows;) {
    std::int32_t const groupSize = CountRowGroup(rows, first);
    std::int32_t const length = rows.Length(first);
    double const* const firstValues = rows.values + rows.rowPointers[first];
    for (std::int32_t k = 0; k < length; ++k) {
      std::int32_t& to = next[rows.ColumnsOf(first)[k]];
      for (std::int32_t r = 0; r < groupSize; ++r, ++to) {
        result.columnIndices[to] = static_cast<std::uint32_t>(first + r);
        result.values[to] = firstValues[std::int64_t{r} * length + k];
      }
    }
    first += groupSize;
  }
}

/// Number of entries of a bucket, 16 bytes each, that fill half of the second-level cache.
constexpr auto entriesOfBucket = static_cast<std::int32_t>(blac::secondLevelCacheBytes / 2 / 16);

/// Ranges of 2^shift columns whose entries fill a bucket on average.
struct Buckets {
  explicit Buckets(CompressedRowsView const& rows) {
    while ((rows.columns >> shift) > rows.Entries() / entriesOfBucket)
      ++shift;
    count = ((rows.columns - 1) >> shift) + 1;
  }
  int shift = 0;
  std::int32_t count = 0;
};

/// Moves each entry into its bucket. From the start a bucket lies where its entries belong, only their order
/// is not right. `ends` holds the start of each bucket and is advanced to its end. Returns the column of each
/// entry.
mem_Array<std::uint32_t> FillBuckets(CompressedRowsView const& rows, int shift, std::int32_t* ends,
                                     CompressedRows& result) {
  auto columnOf = mem_MakeArray<std::uint32_t>(rows.Entries());
  ForEachStored(rows, [&](std::int32_t row, std::int32_t column, double value) {
    std::int32_t const to = ends[column >> shift]++;
    columnOf[to] = static_cast<std::uint32_t>(column);
    result.columnIndices[to] = static_cast<std::uint32_t>(row);
    result.values[to] = value;
  });
  return columnOf;
}

/// Orders the entries of a bucket, which all lie in the cache.
class BucketSorter {
public:
  void Sort(std::int32_t begin, std::int32_t end, std::uint32_t const* columnOf, std::int32_t* next,
            CompressedRows& result) {
    m_rows.assign(result.columnIndices.get() + begin, result.columnIndices.get() + end);
    m_values.assign(result.values.get() + begin, result.values.get() + end);
    for (std::int32_t k = begin; k < end; ++k) {
      std::int32_t const to = next[columnOf[k]]++;
      result.columnIndices[to] = m_rows[static_cast<std::size_t>(k - begin)];
      result.values[to] = m_values[static_cast<std::size_t>(k - begin)];
    }
  }

private:
  std::vector<std::uint32_t> m_rows;
  std::vector<double> m_values;
};

/// Does the same for scattered columns, where TransposeByRows would miss the cache with each entry: moves the
/// entries into buckets, each a range of columns, and orders each bucket within the cache.
void TransposeByBuckets(CompressedRowsView const& rows, std::int32_t* next, CompressedRows& result) {
  Buckets const buckets(rows);
  auto const ends = mem_MakeArray<std::int32_t>(buckets.count);
  for (std::int32_t b = 0; b < buckets.count; ++b)
    ends[b] = next[std::int64_t{b} << buckets.shift];
  auto const columnOf = FillBuckets(rows, buckets.shift, ends.get(), result);
  BucketSorter sorter;
  for (std::int32_t b = 0, begin = 0; b < buckets.count; begin = ends[b++])
    sorter.Sort(begin, ends[b], columnOf.get(), next, result);
}

} // namespace

// Permutations

void ORXSrvSparseMatrix::PermuteRows(int const* perm) {
  RequireGeneralForm("PermuteRows");
  RequireAssembled("PermuteRows");
  static_cast<void>(InvertPermutation(perm, m_rows, "PermuteRows"));
  CompressedRows moved = AllocateLike(m_stored, m_columns);
  moved.rowPointers = MoveRowPointers(m_stored.rowPointers.get(), m_rows, perm);
  for (std::int32_t i = 0; i < m_rows; ++i) {
    std::int32_t const from = m_stored.rowPointers[i];
    std::int32_t const to = moved.rowPointers[perm[i]];
    std::int32_t const length = m_stored.rowPointers[i + 1] - from;
    std::copy_n(m_stored.columnIndices.get() + from, length, moved.columnIndices.get() + to);
    std::copy_n(m_stored.values.get() + from, length, moved.values.get() + to);
  }
  Replace(std::move(moved));
}

ORXSrvSparseMatrix* ORXSrvSparseMatrix::Permute(int const* perm) const {
  RequireAssembled("Permute");
  RequireNoMoreColumnsThanRows("Permute");
  auto const inverse = InvertPermutation(perm, m_rows, "Permute");
  RenumberedRow row(inverse.get(), FindLongestRow(m_stored.rowPointers.get(), m_rows));
  CompressedRows moved = AllocateLike(m_stored, m_columns);
  moved.rowPointers = MoveRowPointers(m_stored.rowPointers.get(), m_rows, inverse.get());
  moved.diagonal = PermuteDiagonal(perm);
  CompressedRowsView const old = View();
  constexpr std::int32_t rowsAhead = 16; // rows go to scattered positions of the row pointers
  for (std::int32_t first = 0; first < m_rows;) {
    std::int32_t const end = first + CountRowGroup(old, first);
    if (rowsAhead < m_rows - first) __builtin_prefetch(moved.rowPointers.get() + inverse[first + rowsAhead]);
    row.Set(old.ColumnsOf(first), old.Length(first));
    moved.columns = std::max(moved.columns, row.ColumnsNeeded());
    for (; first < end; ++first) {
      std::int32_t const to = moved.rowPointers[inverse[first]];
      row.StoreColumns(moved.columnIndices.get() + to);
      row.StoreValues(m_stored.values.get() + m_stored.rowPointers[first], moved.values.get() + to);
    }
  }
  return new ORXSrvSparseMatrix(std::move(moved));
}

/// Returns diagonal[perm[k]] for all k; null in general form.
mem_Array<double> ORXSrvSparseMatrix::PermuteDiagonal(int const* perm) const {
  if (!IsSymmetricForm()) return nullptr;
  auto permuted = mem_MakeArray<double>(m_rows);
  for (std::int32_t k = 0; k < m_rows; ++k)
    permuted[k] = m_stored.diagonal[perm[k]];
  return permuted;
}

void ORXSrvSparseMatrix::PermuteInPlace(int const* perm) {
  RequireAssembled("PermuteInPlace");
  RequireNoMoreColumnsThanRows("PermuteInPlace");
  auto const inverse = InvertPermutation(perm, m_rows, "PermuteInPlace");
  std::int32_t const longest = FindLongestRow(m_stored.rowPointers.get(), m_rows);
  RenumberedRow row(inverse.get(), longest);
  auto const rowValues = mem_MakeArray<double>(longest);
  auto const source = mem_MakeArray<std::int32_t>(StoredEntries());
  auto rowPointers = MoveRowPointers(m_stored.rowPointers.get(), m_rows, inverse.get());
  auto diagonal = PermuteDiagonal(perm);
  // From here on nothing can fail.
  for (std::int32_t i = 0; i < m_rows; ++i) {
    std::uint32_t* const columns = m_stored.columnIndices.get() + m_stored.rowPointers[i];
    double* const values = m_stored.values.get() + m_stored.rowPointers[i];
    std::int32_t const length = m_stored.rowPointers[i + 1] - m_stored.rowPointers[i];
    row.Set(columns, length);
    row.StoreColumns(columns);
    std::copy_n(values, length, rowValues.get());
    row.StoreValues(rowValues.get(), values);
    m_columns = std::max(m_columns, row.ColumnsNeeded());
    std::iota(source.get() + rowPointers[inverse[i]], source.get() + rowPointers[inverse[i]] + length,
              m_stored.rowPointers[i]);
  }
  GatherInPlace(m_stored.columnIndices.get(), m_stored.values.get(), source.get(), StoredEntries());
  m_stored.rowPointers = std::move(rowPointers);
  m_stored.diagonal = std::move(diagonal);
  m_symmetryState = IsSymmetricForm() ? symmetric : unknown;
  m_rowPattern = {};
}

// Transposition

ORXSrvSparseMatrix* ORXSrvSparseMatrix::Transpose() const {
  RequireAssembled("Transpose");
  if (IsSymmetricForm()) RequireNoMoreColumnsThanRows("Transpose");
  std::int32_t const entries = StoredEntries();
  CompressedRows result = AllocateLike(m_stored, m_rows);
  AllocateRowPointers(result, m_columns, m_rows);
  if (IsSymmetricForm()) {
    result.diagonal = mem_MakeArray<double>(m_columns);
    std::copy_n(m_stored.diagonal.get(), m_columns, result.diagonal.get());
  }
  // While entries are stored, next[j] is the position of the next entry of row j; at the end it is the start
  // of row j + 1.
  std::int32_t* const next = result.rowPointers.get();
  std::fill_n(next, std::int64_t{m_columns} + 1, 0);
  for (std::int32_t k = 0; k < entries; ++k)
    ++next[m_stored.columnIndices[k] + 1];
  SumCounts(next, m_columns);
  CompressedRowsView const rows = View();
  if (HasScatteredColumns(KernelArrays(rows), m_rows) && entries > entriesOfBucket) {
    TransposeByBuckets(rows, next, result);
  } else {
    TransposeByRows(rows, next, result);
  }
  std::copy_backward(next, next + m_columns, next + m_columns + 1);
  next[0] = 0;
  return new ORXSrvSparseMatrix(std::move(result));
}
