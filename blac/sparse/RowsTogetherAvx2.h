#pragma once

#include "blac/sparse/SparseSweeps.h"

#include <algorithm>
#include <cstddef>
#include <immintrin.h>
#include <utility>

// Which rows the sweeps for processors with AVX2 take together, and where it is worth looking for them.

#define BLAC_SWEEP [[gnu::target("avx2")]]
#define BLAC_SWEEP_INLINE [[gnu::target("avx2"), gnu::always_inline]] inline

namespace orx::blac {

/// Comparing the columns of rows shorter than this costs more than it can save.
constexpr int leastSharedColumns = 12;
constexpr int leastShiftedColumns = 4;
constexpr int mostRowsInBlock = 3;
constexpr int lanes = 4;

/// Neighbouring rows with the same columns.
template<int rows>
struct RowBlock {
  double const* a; ///< of the first row; the next ones follow without gaps
  int const* columns;
  std::ptrdiff_t length; ///< entries of a row
};

BLAC_SWEEP_INLINE RowBlock<1> RowAt(SparseSweep const& s, std::ptrdiff_t position) {
  std::ptrdiff_t const row = s.list != nullptr ? s.list[position] : position;
  return {s.a + s.ia[row], s.ja + s.ia[row], s.ia[row + 1] - s.ia[row]};
}

/// Zero in all bits where four columns of b are those of a plus `shift`.
BLAC_SWEEP_INLINE __m128i Difference(int const* a, int const* b, __m128i shift) {
  __m128i const fromA = _mm_loadu_si128(reinterpret_cast<__m128i const*>(a));
  __m128i const fromB = _mm_loadu_si128(reinterpret_cast<__m128i const*>(b));
  return _mm_xor_si128(_mm_add_epi32(fromA, shift), fromB);
}
/// The same for eight columns.
BLAC_SWEEP_INLINE __m256i Difference(int const* a, int const* b, __m256i shift) {
  __m256i const fromA = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(a));
  __m256i const fromB = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(b));
  return _mm256_xor_si256(_mm256_add_epi32(fromA, shift), fromB);
}

/// Whether the columns of b are those of a plus `shift`. REQUIRES: length >= 4. Columns at the end are
/// compared twice rather than one by one.
BLAC_SWEEP_INLINE bool HaveShift(int const* a, int const* b, std::ptrdiff_t length, int shift) {
  if (length < 8) {
    __m128i const shifts = _mm_set1_epi32(shift);
    __m128i const different =
        _mm_or_si128(Difference(a, b, shifts), Difference(a + length - 4, b + length - 4, shifts));
    return _mm_testz_si128(different, different) != 0;
  }
  __m256i const shifts = _mm256_set1_epi32(shift);
  __m256i different = Difference(a + length - 8, b + length - 8, shifts);
  for (std::ptrdiff_t k = 0; k + 8 < length; k += 8)
    different = _mm256_or_si256(different, Difference(a + k, b + k, shifts));
  return _mm256_testz_si256(different, different) != 0;
}

BLAC_SWEEP_INLINE bool AreAscending(int const* columns, std::ptrdiff_t length) {
  std::ptrdiff_t k = 0;
  for (; k + 8 < length; k += 8) {
    __m256i const here = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(columns + k));
    __m256i const next = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(columns + k + 1));
    if (_mm256_movemask_epi8(_mm256_cmpgt_epi32(next, here)) != -1) return false;
  }
  for (; k + 1 < length; ++k)
    if (columns[k] >= columns[k + 1]) return false;
  return true;
}

/// How many rows from a position on, whose first is given, make a block.
BLAC_SWEEP_INLINE int RowsInBlock(SparseSweep const& s, std::ptrdiff_t position, RowBlock<1> const& first) {
  int rows = 1;
  for (; rows < mostRowsInBlock && position + rows < s.rows; ++rows) {
    RowBlock<1> const next = RowAt(s, position + rows);
    if (next.length != first.length || next.a != first.a + rows * first.length ||
        !HaveShift(first.columns, next.columns, first.length, 0))
      break;
  }
  return rows;
}

/// Whether four rows from row i on, whose first is given, each have the columns of the one before plus one.
BLAC_SWEEP_INLINE bool AreShifted(SparseSweep const& s, std::ptrdiff_t i, std::ptrdiff_t rows,
                                  RowBlock<1> const& first) {
  std::ptrdiff_t const length = first.length;
  if (length < leastShiftedColumns || i + lanes > rows) return false;
  for (int r = 1; r < lanes; ++r)
    if (s.ia[i + r + 1] - s.ia[i + r] != length) return false;
  if (first.columns[length] != first.columns[0] + 1) return false;
  for (int r = 1; r < lanes; ++r)
    if (!HaveShift(first.columns, first.columns + r * length, length, r)) return false;
  return true;
}

/// Where rows that can be taken together are looked for. After many rows that had to be taken alone there is
/// a pause, each time a longer one; rows that were taken together meanwhile speak against it.
class Lookout {
public:
  /// Takes note of so many rows taken together, 0 of one that could not be; returns for how many rows from
  /// there on it is better not to look.
  std::ptrdiff_t PauseAfter(std::ptrdiff_t together) {
    m_alone = together > 0 ? std::max<std::ptrdiff_t>(m_alone - together, 0) : m_alone + 1;
    if (m_alone < mostAlone) [[likely]]
      return 0;
    m_alone = mostAlone / 2;
    return std::exchange(m_pause, std::min(2 * m_pause, longestPause));
  }

private:
  static constexpr std::ptrdiff_t mostAlone = 16;
  static constexpr std::ptrdiff_t longestPause = 4096;
  std::ptrdiff_t m_alone = 0;
  std::ptrdiff_t m_pause = 32;
};

/// Goes through the rows. work.TakeTogether(i) takes some from row i on and returns how many, or takes none
/// and returns 0; work.TakeAlone(begin, end) takes them one by one.
template<class Work>
BLAC_SWEEP_INLINE void SweepRows(std::ptrdiff_t rows, Work& work) {
  Lookout lookout;
  for (std::ptrdiff_t i = 0; i < rows;) {
    std::ptrdiff_t const together = work.TakeTogether(i);
    std::ptrdiff_t const alone = (together == 0 ? 1 : 0) + lookout.PauseAfter(together);
    i += together;
    if (alone == 0) continue;
    std::ptrdiff_t const end = std::min(rows, i + alone);
    work.TakeAlone(i, end);
    i = end;
  }
}

} // namespace orx::blac
