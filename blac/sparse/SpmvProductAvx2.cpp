#ifdef __x86_64__

#include "blac/sparse/SpmvRowGroupsAvx2.h"
#include "blac/sparse/SpmvShiftedRowsAvx2.h"

#include <algorithm>
#include <utility>

// The product y = A*x for processors with AVX2.
//
// The sum of one vector may not be split up, because that would change its bits. So a register holds the sums
// of one row for four vectors, one vector in each lane, and the elements of x are transposed on their way
// from memory. Three consecutive columns, the unknowns of a node, are loaded and transposed together:
//
//     columns j ... j+2 of x                        sums of row r
//     v0: x x x .  \                                v0 v1 v2 v3
//     v1: x x x .   \ transposed  j  : v0 v1 v2 v3  += a(r, j  ) * (...)
//     v2: x x x .   /             j+1: v0 v1 v2 v3  += a(r, j+1) * (...)
//     v3: x x x .  /              j+2: v0 v1 v2 v3  += a(r, j+2) * (...)
//
// For rows that share their columns the transposed elements serve two or three rows. Four rows with shifted
// columns have the rows in the lanes instead, see SpmvShiftedRowsAvx2.h.

namespace orx::blac {
namespace {

/// The sums of a row group for one to four vectors, one register for each row. The index sequence unrolls all
/// loops over the rows: a loop would keep the sums in memory.
template<int vectors, int rows, class = std::make_index_sequence<rows>>
class GroupSums;
template<int vectors, int rows, std::size_t... r>
class GroupSums<vectors, rows, std::index_sequence<r...>> {
public:
  BLAC_AVX2_INLINE GroupSums() { ((m_sums[r] = _mm256_setzero_pd()), ...); }
  /// Adds an entry of each row, the first at `entry`, times the element of x of each vector.
  BLAC_AVX2_INLINE void Add(double const* entry, std::ptrdiff_t stride, __m256d x) {
    ((m_sums[r] = _mm256_add_pd(m_sums[r], _mm256_mul_pd(_mm256_broadcast_sd(entry + r * stride), x))), ...);
  }
  /// Adds three consecutive entries of each row. The fourth column of x is not used.
  BLAC_AVX2_INLINE void AddThree(double const* entry, std::ptrdiff_t stride, FourColumns const& x) {
    for (int c = 0; c < 3; ++c)
      Add(entry + c, stride, x.column[c]);
  }
  BLAC_AVX2_INLINE void Store(double* y, std::ptrdiff_t stride) const {
    (StoreRow(y + r, stride, m_sums[r]), ...);
  }

private:
  BLAC_AVX2_INLINE static void StoreRow(double* y, std::ptrdiff_t stride, __m256d sums) {
    __m128d const low = _mm256_castpd256_pd128(sums);
    __m128d const high = _mm256_extractf128_pd(sums, 1);
    _mm_storel_pd(y, low);
    if constexpr (vectors > 1) _mm_storeh_pd(y + stride, low);
    if constexpr (vectors > 2) _mm_storel_pd(y + 2 * stride, high);
    if constexpr (vectors > 3) _mm_storeh_pd(y + 3 * stride, high);
  }

  __m256d m_sums[rows];
};

/// True when the columns j[0], j[1] and j[2] are consecutive.
BLAC_AVX2_INLINE bool AreThreeConsecutive(int const* j) { return j[1] - j[0] == 1 && j[2] - j[0] == 2; }

/// Multiplies a row group with two to eight vectors. Three columns are taken together only where x has a
/// fourth one behind them, which is loaded too. The members of the row group are arguments of their own,
/// which travel in registers: a struct would be stored by the caller and loaded here in pieces of another
/// size, and wait for that in every row.
template<int vectors, int rows>
[[gnu::noinline]] BLAC_AVX2 void
MultiplySharedColumns(double const* values, int const* columns, std::ptrdiff_t length, double const* x,
                      std::ptrdiff_t strideX, double* y, std::ptrdiff_t strideY) {
  RowGroup<rows> const group{values, columns, length};
  constexpr int low = std::min(vectors, lanes);
  constexpr int high = vectors - low;
  GroupSums<low, rows> lowSums;
  GroupSums<std::max(high, 1), rows> highSums;
  for (std::ptrdiff_t k = 0; k < group.length;) {
    int const* const j = group.columns + k;
    double const* const entry = group.values + k;
    double const* const first = HideOrigin(x + j[0]);
    if (k + 3 <= group.length && AreThreeConsecutive(j) && std::ptrdiff_t{j[0]} + lanes <= strideX) {
      PrefetchEntries<vectors, 3>(group, k);
      lowSums.AddThree(entry, group.length, LoadTransposed<low>(first, strideX));
      if constexpr (high > 0)
        highSums.AddThree(HideOrigin(entry), group.length,
                          LoadTransposed<high>(HideOrigin(first + lanes * strideX), strideX));
      k += 3;
    } else {
      if (k % 8 == 0) PrefetchEntries<vectors, 8>(group, k);
      lowSums.Add(entry, group.length, LoadStrided<low>(first, strideX));
      if constexpr (high > 0)
        highSums.Add(entry, group.length, LoadStrided<high>(HideOrigin(first + lanes * strideX), strideX));
      ++k;
    }
  }
  lowSums.Store(y, strideY);
  if constexpr (high > 0) highSums.Store(y + lanes * strideY, strideY);
}

/// Multiplies a row group with one vector. The sums of the rows are made side by side: an addition need not
/// wait for the one before.
template<int rows>
BLAC_AVX2_INLINE void MultiplySharedColumnsByOne(RowGroup<rows> const& group, double const* x, double* y) {
  constexpr std::ptrdiff_t step = 8;
  double sums[rows] = {};
  for (std::ptrdiff_t begin = 0; begin < group.length; begin += step) {
    PrefetchEntries<1, step>(group, begin);
    std::ptrdiff_t const end = std::min(begin + step, group.length);
    for (std::ptrdiff_t k = begin; k < end; ++k) {
      double const factor = x[group.columns[k]];
      for (int r = 0; r < rows; ++r)
        sums[r] += group.values[r * group.length + k] * factor;
    }
  }
  for (int r = 0; r < rows; ++r)
    y[r] = sums[r];
}

/// Multiplies the rows begin ... end - 1 one by one. The only branch is at the end of a row, because rows of
/// unstructured meshes make no other predictable. One vector is as fast without prefetches. `s` is a copy:
/// the compiler knows that no store changes it.
template<int vectors>
[[gnu::noinline]] BLAC_AVX2 void MultiplyRows(SpmvOperands const s, std::ptrdiff_t begin,
                                              std::ptrdiff_t end) {
  constexpr int low = std::min(vectors, lanes);
  constexpr int high = vectors - low;
  for (std::ptrdiff_t i = begin; i < end; ++i) {
    std::ptrdiff_t k = s.matrix.rowPointers[i];
    std::ptrdiff_t const last = s.matrix.rowPointers[i + 1];
    if constexpr (vectors > 1) PrefetchRow<vectors>(s, k, last);
    if constexpr (vectors == 1) {
      double sum = 0.0;
      for (; k < last; ++k)
        sum += s.matrix.values[k] * s.x[s.matrix.columnIndices[k]];
      s.y[i] = sum;
    } else {
      GroupSums<low, 1> lowSums;
      GroupSums<std::max(high, 1), 1> highSums;
      for (; k < last; ++k) {
        double const* const x = HideOrigin(s.x + s.matrix.columnIndices[k]);
        lowSums.Add(s.matrix.values + k, 0, LoadStrided<low>(x, s.columns));
        if constexpr (high > 0)
          highSums.Add(s.matrix.values + k, 0,
                       LoadStrided<high>(HideOrigin(x + lanes * s.columns), s.columns));
      }
      lowSums.Store(s.y + i, s.rows);
      if constexpr (high > 0) highSums.Store(s.y + i + lanes * s.rows, s.rows);
    }
  }
}

/// Multiplies four rows with shifted columns.
template<int vectors>
[[gnu::noinline]] BLAC_AVX2 void
MultiplyShiftedColumns(double const* values, int const* columns, std::ptrdiff_t length, double const* x,
                       std::ptrdiff_t strideX, double* y, std::ptrdiff_t strideY) {
  RowGroup<lanes> const group{values, columns, length};
  FourRowSums<vectors> sums;
  std::ptrdiff_t k = 0;
  for (; k + lanes <= length; k += lanes) {
    PrefetchEntries<vectors, lanes>(group, k);
    FourColumns const entries = LoadTransposed<lanes>(values + k, length);
    for (int c = 0; c < lanes; ++c)
      sums.Add(entries.column[c], x + columns[k + c], strideX);
  }
  for (; k < length; ++k) {
    PrefetchEntries<vectors, 1>(group, k);
    sums.Add(LoadStrided<lanes>(values + k, length), x + columns[k], strideX);
  }
  sums.Store(y, strideY);
}

/// The product, as MultiplyAllRows asks for it.
template<int vectors>
class Product {
public:
  explicit Product(SpmvOperands const& s) : m_s(s) {}

  BLAC_AVX2_INLINE std::ptrdiff_t MultiplyGroup(std::ptrdiff_t i) {
    RowGroup<1> const row = RowAt(m_s, i);
    PrefetchNear(i, row);
    if (IsShiftedGroup(m_s, i, m_s.rows, row)) {
      MultiplyShiftedColumns<vectors>(row.values, row.columns, row.length, m_s.x, m_s.columns, m_s.y + i,
                                      m_s.rows);
      return lanes;
    }
    if (row.length < leastSharedColumns) return 0;
    int const rows = CountRowsWithSharedColumns(m_s, i, row);
    if (rows == 1) return 0;
    rows == 2 ? MultiplyShared<2>(i, row) : MultiplyShared<3>(i, row);
    return rows;
  }
  BLAC_AVX2_INLINE void MultiplySingleRows(std::ptrdiff_t begin, std::ptrdiff_t end) {
    MultiplyRows<vectors>(m_s, begin, end);
  }

private:
  /// Prefetches x and y for the rows from row i, once for each cache line of y. In a banded matrix the last
  /// column is where an element of x is used for the first time.
  BLAC_AVX2_INLINE void PrefetchNear(std::ptrdiff_t i, RowGroup<1> const& row) {
    if (i < m_nextPrefetch) return;
    m_nextPrefetch = i + doublesInCacheLine;
    if (row.length > 0)
      PrefetchVectors<vectors>(m_s.x + row.columns[row.length - 1] + elementsAhead, m_s.columns);
    PrefetchVectors<vectors>(m_s.y + i + elementsAhead, m_s.rows);
  }
  template<int rows>
  BLAC_AVX2_INLINE void MultiplyShared(std::ptrdiff_t i, RowGroup<1> const& row) const {
    if constexpr (vectors == 1) {
      MultiplySharedColumnsByOne(RowGroup<rows>{row.values, row.columns, row.length}, m_s.x, m_s.y + i);
    } else {
      MultiplySharedColumns<vectors, rows>(row.values, row.columns, row.length, m_s.x, m_s.columns, m_s.y + i,
                                           m_s.rows);
    }
  }

  SpmvOperands const& m_s;
  std::ptrdiff_t m_nextPrefetch = 0; ///< the row for which x and y are prefetched next
};

template<int vectors>
BLAC_AVX2 void Multiply(SpmvOperands const& s) {
  Product<vectors> product(s);
  MultiplyAllRows(s.rows, product);
}

} // namespace

constexpr SpmvKernel avx2Product[vectorsInGroup] = {&Multiply<1>, &Multiply<2>, &Multiply<3>, &Multiply<4>,
                                                    &Multiply<5>, &Multiply<6>, &Multiply<7>, &Multiply<8>};

} // namespace orx::blac

#endif
