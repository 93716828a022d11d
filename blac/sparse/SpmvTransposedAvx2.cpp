#ifdef __x86_64__

#include "blac/sparse/SpmvClearingAvx2.h"
#include "blac/sparse/SpmvRowGroupsAvx2.h"
#include "blac/sparse/SpmvShiftedRowsAvx2.h"

#include <algorithm>
#include <cstdint>
#include <utility>

// The transposed product y = A^T*x for processors with AVX2.
//
// Up to four consecutive columns fill a register: a(r, j ... j+3) * x(r, v) is added to y(j ... j+3, v). For
// rows that share their columns, the elements of y are loaded and stored once for two or three rows. Four
// rows with shifted columns have the rows in the lanes, see SpmvShiftedRowsAvx2.h.

namespace orx::blac {
namespace {

/// The number of columns that are consecutive from j[0] on, at most four. REQUIRES: the columns
/// j[0] ... j[left - 1] ascend.
BLAC_AVX2_INLINE int CountConsecutive(int const* j, std::ptrdiff_t left) {
  for (int length = lanes; length > 1; --length)
    if (left >= length && j[length - 1] - j[0] == length - 1) return length;
  return 1;
}

/// All bits set in the first `count` lanes, none in the others.
BLAC_AVX2_INLINE __m256i MaskFirstLanes(int count) {
  alignas(__m256i) static constexpr std::int64_t masks[] = {-1, -1, -1, -1, 0, 0, 0};
  return _mm256_loadu_si256(reinterpret_cast<__m256i const*>(masks + lanes - count));
}

/// The elements of x that belong to a row group: element (r, v) in all lanes of a register.
template<int vectors, int rows>
class Factors {
public:
  BLAC_AVX2_INLINE Factors(double const* x, std::ptrdiff_t stride) {
    for (int v = 0; v < vectors; ++v)
      for (int r = 0; r < rows; ++r)
        m_factors[v][r] = _mm256_broadcast_sd(x + v * stride + r);
  }
  /// y + the sum over the rows of entries[r] * x(r, v), added row by row.
  template<int v>
  BLAC_AVX2_INLINE __m256d AddTo(__m256d y, __m256d const* entries) const {
    for (int r = 0; r < rows; ++r)
      y = _mm256_add_pd(y, _mm256_mul_pd(m_factors[v][r], entries[r]));
    return y;
  }
  BLAC_AVX2_INLINE double AddTo(double y, int v, double const* entries) const {
    for (int r = 0; r < rows; ++r)
      y += m_factors[v][r][0] * entries[r];
    return y;
  }

private:
  __m256d m_factors[vectors][rows];
};

/// Adds the products of consecutive columns to vector v of y. Unless all four lanes are full, `used` tells
/// which lanes may change.
template<int v, bool isFull, int vectors, int rows>
BLAC_AVX2_INLINE void AddToVector(double* y, Factors<vectors, rows> const& factors, __m256d const* entries,
                                  __m256d used) {
  __m256d const before = _mm256_loadu_pd(y);
  __m256d const after = factors.template AddTo<v>(before, entries);
  _mm256_storeu_pd(y, isFull ? after : _mm256_blendv_pd(before, after, used));
}

/// Adds the entries k ... k + count - 1 of a row group, whose columns are consecutive, to y.
template<bool isFull, int vectors, int rows, int... v>
BLAC_AVX2_INLINE void AddConsecutive(RowGroup<rows> const& group, std::ptrdiff_t k, int count,
                                     Factors<vectors, rows> const& factors, double* y, std::ptrdiff_t stride,
                                     std::integer_sequence<int, v...>) {
  __m256i const used = MaskFirstLanes(count);
  __m256d entries[rows];
  for (int r = 0; r < rows; ++r)
    entries[r] = isFull ? _mm256_loadu_pd(group.values + r * group.length + k)
                        : _mm256_maskload_pd(group.values + r * group.length + k, used);
  y = HideOrigin(y);
  ((AddToVector<v, isFull>(y, factors, entries, _mm256_castsi256_pd(used)), y += stride), ...);
}

/// Adds entry k of a row group to y.
template<int vectors, int rows, int... v>
BLAC_AVX2_INLINE void AddSingle(RowGroup<rows> const& group, std::ptrdiff_t k,
                                Factors<vectors, rows> const& factors, double* y, std::ptrdiff_t stride,
                                std::integer_sequence<int, v...>) {
  double entries[rows];
  for (int r = 0; r < rows; ++r)
    entries[r] = group.values[r * group.length + k];
  y = HideOrigin(y);
  ((*y = factors.AddTo(*y, v, entries), y += stride), ...);
}

/// Adds a row group to two to eight vectors of y. REQUIRES: the columns ascend. Then no two entries of a row
/// meet the same element of y, and each element gets its products row by row. Consecutive columns are taken
/// together only where y has four elements, of which all are loaded.
template<int vectors, int rows>
[[gnu::noinline]] BLAC_AVX2 void AddSharedColumns(double const* values, int const* columns,
                                                  std::ptrdiff_t length, double const* x,
                                                  std::ptrdiff_t strideX, double* y, std::ptrdiff_t strideY) {
  RowGroup<rows> const group{values, columns, length};
  constexpr auto allVectors = std::make_integer_sequence<int, vectors>();
  Factors<vectors, rows> const factors(x, strideX);
  for (std::ptrdiff_t k = 0; k < group.length;) {
    int const* const j = group.columns + k;
    double* const first = HideOrigin(y + j[0]);
    int const count = std::ptrdiff_t{j[0]} + lanes <= strideY ? CountConsecutive(j, group.length - k) : 1;
    if (count > 1 || k % 8 == 0) PrefetchEntries<vectors, lanes>(group, k);
    if (count == lanes)
      AddConsecutive<true>(group, k, count, factors, first, strideY, allVectors);
    else if (count > 1)
      AddConsecutive<false>(group, k, count, factors, first, strideY, allVectors);
    else
      AddSingle(group, k, factors, first, strideY, allVectors);
    k += count;
  }
}

/// Adds a row group to one vector of y, entry by entry: consecutive columns would save too little.
template<int rows>
BLAC_AVX2_INLINE void AddSharedColumnsToOne(RowGroup<rows> const& group, double const* x, double* y) {
  constexpr std::ptrdiff_t step = 8;
  double factors[rows];
  for (int r = 0; r < rows; ++r)
    factors[r] = x[r];
  for (std::ptrdiff_t begin = 0; begin < group.length; begin += step) {
    PrefetchEntries<1, step>(group, begin);
    std::ptrdiff_t const end = std::min(begin + step, group.length);
    for (std::ptrdiff_t k = begin; k < end; ++k) {
      double sum = y[group.columns[k]];
      for (int r = 0; r < rows; ++r)
        sum += factors[r] * group.values[r * group.length + k];
      y[group.columns[k]] = sum;
    }
  }
}

/// Adds the rows at positions begin ... end - 1 one by one, entry by entry. Consecutive columns are not taken
/// together: they overlap with consecutive columns of the row before, and a load that covers two earlier
/// stores waits until both have reached the cache.
template<int vectors>
[[gnu::noinline]] BLAC_AVX2 void AddRows(SpmvOperands const s, std::ptrdiff_t begin, std::ptrdiff_t end,
                                         GradualClearing<vectors>& clearing) {
  for (std::ptrdiff_t p = begin; p < end; ++p) {
    std::ptrdiff_t const row = s.rowList != nullptr ? s.rowList[p] : p;
    std::ptrdiff_t k = s.matrix.rowPointers[row];
    std::ptrdiff_t const last = s.matrix.rowPointers[row + 1];
    PrefetchRow<vectors>(s, k, last);
    double factors[vectors];
    for (int v = 0; v < vectors; ++v)
      factors[v] = s.x[v * s.rows + p];
    for (; k < last; ++k) {
      double const entry = s.matrix.values[k];
      std::ptrdiff_t const j = s.matrix.columnIndices[k];
      clearing.ClearThrough(j);
      for (int v = 0; v < vectors; ++v)
        s.y[v * s.columns + j] += factors[v] * entry;
    }
  }
}

/// Adds four rows with shifted columns. REQUIRES: the columns ascend; there are not more than
/// mostShiftedColumns.
template<int vectors>
[[gnu::noinline]] BLAC_AVX2 void
AddShiftedColumns(double const* values, int const* columns, std::ptrdiff_t length, double const* x,
                  std::ptrdiff_t strideX, double* y, std::ptrdiff_t strideY) {
  __m256d entries[mostShiftedColumns];
  LoadFourRows<vectors>(RowGroup<lanes>{values, columns, length}, entries);
  AddFourRows<vectors>(entries, columns, length, x, strideX, y, strideY);
}

/// The transposed product, as MultiplyAllRows asks for it.
template<int vectors>
class TransposedProduct {
public:
  explicit TransposedProduct(SpmvOperands const& s) : m_s(s), m_clearing(s.y, s.columns) {}

  BLAC_AVX2_INLINE std::ptrdiff_t MultiplyGroup(std::ptrdiff_t p) {
    RowGroup<1> const row = RowAt(m_s, p);
    PrefetchX(p);
    // One vector is faster entry by entry: there are too few additions to outweigh the permutation of lanes.
    bool const mayBeShifted = vectors > 1 && row.length >= leastShiftedColumns &&
                              row.length <= mostShiftedColumns && m_s.rowList == nullptr;
    bool const isLong = row.length >= leastSharedColumns;
    if ((!mayBeShifted && !isLong) || !IsAscending(row.columns, row.length)) return 0;
    if (mayBeShifted && IsShiftedGroup(m_s, p, m_s.rows, row)) {
      m_clearing.ClearThrough(std::ptrdiff_t{row.columns[row.length - 1]} + lanes - 1);
      AddShiftedColumns<vectors>(row.values, row.columns, row.length, m_s.x + p, m_s.rows, m_s.y,
                                 m_s.columns);
      return lanes;
    }
    if (!isLong) return 0;
    int const rows = CountRowsWithSharedColumns(m_s, p, row);
    if (rows == 1) return 0;
    m_clearing.ClearThrough(row.columns[row.length - 1]);
    rows == 2 ? AddShared<2>(p, row) : AddShared<3>(p, row);
    return rows;
  }
  BLAC_AVX2_INLINE void MultiplySingleRows(std::ptrdiff_t begin, std::ptrdiff_t end) {
    AddRows<vectors>(m_s, begin, end, m_clearing);
  }
  /// Clears the elements of y that no row has met.
  void Finish() { m_clearing.ClearRest(); }

private:
  /// Prefetches x for the rows from position p, once for each cache line.
  BLAC_AVX2_INLINE void PrefetchX(std::ptrdiff_t p) {
    if (vectors == 1 || p < m_nextPrefetch) return;
    m_nextPrefetch = p + doublesInCacheLine;
    PrefetchVectors<vectors>(m_s.x + p + elementsAhead, m_s.rows);
  }
  template<int rows>
  BLAC_AVX2_INLINE void AddShared(std::ptrdiff_t p, RowGroup<1> const& row) const {
    if constexpr (vectors == 1) {
      AddSharedColumnsToOne(RowGroup<rows>{row.values, row.columns, row.length}, m_s.x + p, m_s.y);
    } else {
      AddSharedColumns<vectors, rows>(row.values, row.columns, row.length, m_s.x + p, m_s.rows, m_s.y,
                                      m_s.columns);
    }
  }

  SpmvOperands const& m_s;
  GradualClearing<vectors> m_clearing;
  std::ptrdiff_t m_nextPrefetch = 0; ///< the position for which x is prefetched next
};

template<int vectors>
BLAC_AVX2 void Multiply(SpmvOperands const& s) {
  TransposedProduct<vectors> product(s);
  MultiplyAllRows(s.rows, product);
  product.Finish();
}

} // namespace

constexpr SpmvKernel avx2TransposedProduct[vectorsInGroup] = {&Multiply<1>, &Multiply<2>, &Multiply<3>,
                                                              &Multiply<4>, &Multiply<5>, &Multiply<6>,
                                                              &Multiply<7>, &Multiply<8>};

} // namespace orx::blac

#endif
