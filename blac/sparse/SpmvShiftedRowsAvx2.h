#pragma once

#include "blac/sparse/SpmvRegistersAvx2.h"
#include "blac/sparse/SpmvRowGroupsAvx2.h"

#include <cstddef>
#include <utility>

// Four rows with shifted columns, one row in each lane of a register. Entry k of row r lies in column
// columns[k] + r: the elements of x, or of y, that entry k of all four rows meets are consecutive and fill
// one register.
//
//     lane                    0          1          2          3
//     entry k of row          i          i + 1      i + 2      i + 3
//     meets element           c          c + 1      c + 2      c + 3       c = columns[k]

namespace orx::blac {

/// A longer group is not gathered into registers by the transposed and the symmetric product.
constexpr int mostShiftedColumns = 32;

/// The sums of four rows, one in each lane, for each vector.
template<int vectors, class = std::make_index_sequence<vectors>>
class FourRowSums;
template<int vectors, std::size_t... v>
class FourRowSums<vectors, std::index_sequence<v...>> {
public:
  BLAC_AVX2_INLINE FourRowSums() { ((m_sums[v] = _mm256_setzero_pd()), ...); }
  /// Adds the products of an entry of each row with four consecutive elements of x.
  BLAC_AVX2_INLINE void Add(__m256d entries, double const* x, std::ptrdiff_t stride) {
    ((m_sums[v] = _mm256_add_pd(m_sums[v], _mm256_mul_pd(entries, _mm256_loadu_pd(x))),
      x = HideOrigin(x + stride)),
     ...);
  }
  BLAC_AVX2_INLINE void Store(double* y, std::ptrdiff_t stride) const {
    (_mm256_storeu_pd(y + v * stride, m_sums[v]), ...);
  }
  /// y += diagonal * x + sums.
  BLAC_AVX2_INLINE void AddWithDiagonal(__m256d diagonal, double const* x, double* y,
                                        std::ptrdiff_t stride) const {
    (_mm256_storeu_pd(
         y + v * stride,
         _mm256_add_pd(_mm256_loadu_pd(y + v * stride),
                       _mm256_add_pd(_mm256_mul_pd(diagonal, _mm256_loadu_pd(x + v * stride)), m_sums[v]))),
     ...);
  }

private:
  __m256d m_sums[vectors];
};

/// Loads the entries of four rows: entries[k] gets entry k of each row.
template<int vectors>
BLAC_AVX2_INLINE void LoadFourRows(RowGroup<lanes> const& group, __m256d* entries) {
  std::ptrdiff_t k = 0;
  for (; k + lanes <= group.length; k += lanes) {
    PrefetchEntries<vectors, lanes>(group, k);
    FourColumns const four = LoadTransposed<lanes>(group.values + k, group.length);
    for (int c = 0; c < lanes; ++c)
      entries[k + c] = four.column[c];
  }
  for (; k < group.length; ++k) {
    PrefetchEntries<vectors, 1>(group, k);
    entries[k] = LoadStrided<lanes>(group.values + k, group.length);
  }
}

/// {*first, behind[0], behind[1], behind[2]}: the window moved down by one.
BLAC_AVX2_INLINE __m256d MoveDownByOne(double const* first, __m256d behind) {
  constexpr int upwards = 0b10'01'00'00;
  return _mm256_blend_pd(_mm256_permute4x64_pd(behind, upwards), _mm256_broadcast_sd(first), 1);
}

/// A window of four consecutive elements of each vector of y, held in registers while four rows add to it.
/// The elements of x that belong to the rows are held beside it, one row in each lane.
template<int vectors, class = std::make_index_sequence<vectors>>
class WindowOfY;
template<int vectors, std::size_t... v>
class WindowOfY<vectors, std::index_sequence<v...>> {
public:
  BLAC_AVX2_INLINE WindowOfY(double const* x, std::ptrdiff_t stride) {
    ((m_x[v] = _mm256_loadu_pd(x + v * stride)), ...);
  }
  BLAC_AVX2_INLINE void Load(double const* y, std::ptrdiff_t stride) {
    ((m_sums[v] = _mm256_loadu_pd(y), y = HideOrigin(y + stride)), ...);
  }
  BLAC_AVX2_INLINE void Store(double* y, std::ptrdiff_t stride) const {
    ((_mm256_storeu_pd(y, m_sums[v]), y = HideOrigin(y + stride)), ...);
  }
  BLAC_AVX2_INLINE void Add(__m256d entries) {
    ((m_sums[v] = _mm256_add_pd(m_sums[v], _mm256_mul_pd(m_x[v], entries))), ...);
  }
  /// Moves the window from y to y - 1: stores the last element, which leaves it, and loads the new first one.
  BLAC_AVX2_INLINE void MoveDown(double* y, std::ptrdiff_t stride) {
    ((_mm_storeh_pd(y + lanes - 1, _mm256_extractf128_pd(m_sums[v], 1)),
      m_sums[v] = MoveDownByOne(y - 1, m_sums[v]), y = HideOrigin(y + stride)),
     ...);
  }

private:
  __m256d m_x[vectors];
  __m256d m_sums[vectors];
};

/// y(columns[k] + r) += x(r) * entry k of row r, for the `length` entries of four rows that LoadFourRows has
/// loaded. Goes from the last entry to the first: an element of y that several rows add to then gets their
/// products in the order of the rows, because the entry of row r + 1 comes before the entry of row r.
/// REQUIRES: the columns ascend; length > 0.
template<int vectors>
BLAC_AVX2_INLINE void AddFourRows(__m256d const* entries, int const* columns, std::ptrdiff_t length,
                                  double const* x, std::ptrdiff_t strideX, double* y,
                                  std::ptrdiff_t strideY) {
  WindowOfY<vectors> window(x, strideX);
  window.Load(y + columns[length - 1], strideY);
  for (std::ptrdiff_t k = length - 1; k > 0; --k) {
    window.Add(entries[k]);
    if (columns[k] - columns[k - 1] == 1) {
      window.MoveDown(y + columns[k], strideY);
    } else {
      window.Store(y + columns[k], strideY);
      window.Load(y + columns[k - 1], strideY);
    }
  }
  window.Add(entries[0]);
  window.Store(y + columns[0], strideY);
}

} // namespace orx::blac
