#ifdef __x86_64__

#include "blac/sparse/SpmvClearingAvx2.h"
#include "blac/sparse/SpmvRowGroupsAvx2.h"
#include "blac/sparse/SpmvShiftedRowsAvx2.h"

#include <utility>

// The product of the symmetric form for processors with AVX2. Each stored entry (i, j) stands for (j, i) too:
// it adds to element i of y, as in the product, and to element j, as in the transposed product. Four rows
// with shifted columns are multiplied together, see SpmvShiftedRowsAvx2.h; all other rows one by one.

namespace orx::blac {
namespace {

/// Multiplies four rows with shifted columns, the first of which is row i. REQUIRES: the columns of a row
/// ascend and lie before the row; there are not more than mostShiftedColumns. So only later rows of the group
/// add to the elements i ... i + 3 of y, and the stated order is kept when the sums and the diagonal of all
/// four rows are added first.
template<int vectors>
[[gnu::noinline]] BLAC_AVX2 void MultiplyShiftedColumns(SpmvOperands const& s, std::ptrdiff_t i,
                                                        RowGroup<lanes> const& group) {
  __m256d entries[mostShiftedColumns];
  LoadFourRows<vectors>(group, entries);
  FourRowSums<vectors> sums;
  for (std::ptrdiff_t k = 0; k < group.length; ++k)
    sums.Add(entries[k], s.x + group.columns[k], s.rows);
  sums.AddWithDiagonal(_mm256_loadu_pd(s.diagonal + i), s.x + i, s.y + i, s.rows);
  AddFourRows<vectors>(entries, group.columns, group.length, s.x + i, s.rows, s.y, s.rows);
}

/// Multiplies the rows begin ... end - 1 one by one, entry by entry. One vector is as fast without
/// prefetches.
template<int vectors>
[[gnu::noinline]] BLAC_AVX2 void MultiplyRows(SpmvOperands const s, std::ptrdiff_t begin, std::ptrdiff_t end,
                                              GradualClearing<vectors>& clearing) {
  for (std::ptrdiff_t i = begin; i < end; ++i) {
    std::ptrdiff_t k = s.matrix.rowPointers[i];
    std::ptrdiff_t const last = s.matrix.rowPointers[i + 1];
    if constexpr (vectors > 1) PrefetchRow<vectors>(s, k, last);
    double sums[vectors] = {};
    double factors[vectors];
    for (int v = 0; v < vectors; ++v)
      factors[v] = s.x[v * s.rows + i];
    for (; k < last; ++k) {
      double const entry = s.matrix.values[k];
      std::ptrdiff_t const j = s.matrix.columnIndices[k];
      clearing.ClearThrough(j);
      for (int v = 0; v < vectors; ++v) {
        sums[v] += entry * s.x[v * s.rows + j];
        s.y[v * s.rows + j] += entry * factors[v];
      }
    }
    clearing.ClearThrough(i);
    for (int v = 0; v < vectors; ++v)
      s.y[v * s.rows + i] += s.diagonal[i] * factors[v] + sums[v];
  }
}

/// The symmetric product, as MultiplyAllRows asks for it.
template<int vectors>
class SymmetricProduct {
public:
  explicit SymmetricProduct(SpmvOperands const& s) : m_s(s), m_clearing(s.y, s.rows) {}

  BLAC_AVX2_INLINE std::ptrdiff_t MultiplyGroup(std::ptrdiff_t i) {
    RowGroup<1> const row = RowAt(m_s, i);
    PrefetchVectorsNear(i);
    if (row.length > mostShiftedColumns || !IsShiftedGroup(m_s, i, m_s.columns, row) ||
        !IsAscending(row.columns, row.length) || row.columns[row.length - 1] >= i)
      return 0;
    m_clearing.ClearThrough(i + lanes - 1);
    MultiplyShiftedColumns<vectors>(m_s, i, RowGroup<lanes>{row.values, row.columns, row.length});
    return lanes;
  }
  BLAC_AVX2_INLINE void MultiplySingleRows(std::ptrdiff_t begin, std::ptrdiff_t end) {
    MultiplyRows<vectors>(m_s, begin, end, m_clearing);
  }
  /// Clears the elements of y that no row has met.
  void Finish() { m_clearing.ClearRest(); }

private:
  /// Prefetches x and y for the rows from row i, once for each cache line.
  BLAC_AVX2_INLINE void PrefetchVectorsNear(std::ptrdiff_t i) {
    if (i < m_nextPrefetch) return;
    m_nextPrefetch = i + doublesInCacheLine;
    PrefetchVectors<vectors>(m_s.x + i + elementsAhead, m_s.rows);
    PrefetchVectors<vectors>(m_s.y + i + elementsAhead, m_s.rows);
  }

  SpmvOperands const& m_s;
  GradualClearing<vectors> m_clearing;
  std::ptrdiff_t m_nextPrefetch = 0; ///< the row for which x and y are prefetched next
};

/// One vector is faster entry by entry.
template<int vectors>
BLAC_AVX2 void Multiply(SpmvOperands const& s) {
  SymmetricProduct<vectors> product(s);
  if constexpr (vectors == 1)
    product.MultiplySingleRows(0, s.columns);
  else
    MultiplyAllRows(s.columns, product);
  product.Finish();
}

} // namespace

constexpr SpmvKernel avx2SymmetricProduct[vectorsInGroup] = {&Multiply<1>, &Multiply<2>, &Multiply<3>,
                                                             &Multiply<4>, &Multiply<5>, &Multiply<6>,
                                                             &Multiply<7>, &Multiply<8>};

} // namespace orx::blac

#endif
