#pragma once

#include "blac/sparse/CacheSizes.h"

#include <cstddef>
#include <immintrin.h>

// Registers of four doubles, how they are filled from memory, and prefetches, for all kernels for processors
// with AVX2. Only functions that are marked BLAC_AVX2 are compiled for these processors.

#define BLAC_AVX2 [[gnu::target("avx2")]]
#define BLAC_AVX2_INLINE [[gnu::target("avx2"), gnu::always_inline]] inline

namespace orx::blac {

/// Doubles in a register.
constexpr int lanes = 4;

// Prefetches

/// The number of bytes between the values in use and the values being prefetched; column indices are
/// prefetched half as far ahead. One vector uses an entry at once, and its entries are prefetched to the
/// first level of the cache. Several vectors leave time to prefetch to the second level, which can wait for
/// more lines at a time. (With a non-temporal hint, which bypasses the second level, one vector takes up to
/// twice as long: lines are evicted before their use and come from memory again.)
template<int vectors>
constexpr std::ptrdiff_t bytesAhead = vectors == 1 ? 2048 : 8192;

/// The number of elements of x and y between the ones in use and the ones being prefetched, a cache line
/// of each vector at a time. Short rows and many vectors gain by it: there are more streams than the
/// processor's own prefetching follows.
constexpr std::ptrdiff_t elementsAhead = 32;

/// Prefetches `entries` values and column indices, some way ahead of the given ones. The addresses may lie
/// beyond the end of the arrays: a prefetch does not fault.
template<int vectors, int entries>
BLAC_AVX2_INLINE void PrefetchEntries(double const* nextValue, int const* nextColumn) {
  constexpr auto level = vectors == 1 ? _MM_HINT_T0 : _MM_HINT_T1;
  auto const* const values = reinterpret_cast<char const*>(nextValue) + bytesAhead<vectors>;
  auto const* const columns = reinterpret_cast<char const*>(nextColumn) + bytesAhead<vectors> / 2;
  for (std::ptrdiff_t byte = 0; byte < std::ptrdiff_t{sizeof(double)} * entries; byte += cacheLineBytes)
    _mm_prefetch(values + byte, level);
  for (std::ptrdiff_t byte = 0; byte < std::ptrdiff_t{sizeof(int)} * entries; byte += cacheLineBytes)
    _mm_prefetch(columns + byte, level);
}

/// Prefetches a cache line of each vector. The addresses may lie beyond the vectors.
template<int vectors>
BLAC_AVX2_INLINE void PrefetchVectors(double const* first, std::ptrdiff_t stride) {
  for (int v = 0; v < vectors; ++v)
    _mm_prefetch(reinterpret_cast<char const*>(first + v * stride), _MM_HINT_T0);
}

// Loads

/// Hides from the compiler how an address was computed. Without this the compiler computes the addresses of
/// all eight vectors in advance and runs out of registers.
template<class T>
BLAC_AVX2_INLINE T* HideOrigin(T* address) {
  asm("" : "+r"(address));
  return address;
}

/// {x[0], x[stride], x[2 * stride], x[3 * stride]}, with zeros in place of the elements from `count` on.
template<int count>
BLAC_AVX2_INLINE __m256d LoadStrided(double const* x, std::ptrdiff_t stride) {
  __m128d low = _mm_load_sd(x);
  if constexpr (count > 1) low = _mm_loadh_pd(low, x + stride);
  if constexpr (count < 3) return _mm256_zextpd128_pd256(low);
  __m128d high = _mm_load_sd(x + 2 * stride);
  if constexpr (count > 3) high = _mm_loadh_pd(high, x + 3 * stride);
  return _mm256_insertf128_pd(_mm256_castpd128_pd256(low), high, 1);
}

/// Four registers, the columns of a 4 x 4 block.
struct FourColumns {
  __m256d column[lanes];
};

/// Loads four consecutive elements of each of `count` arrays and transposes them:
///
///     array 0:  00 01 02 03          column[0]: 00 10 20 30
///     array 1:  10 11 12 13    ->    column[1]: 01 11 21 31
///     array 2:  20 21 22 23          column[2]: 02 12 22 32
///     array 3:  30 31 32 33          column[3]: 03 13 23 33
///
/// Array r begins at x + r * stride. Zeros take the place of the arrays from `count` on.
template<int count>
BLAC_AVX2_INLINE FourColumns LoadTransposed(double const* x, std::ptrdiff_t stride) {
  __m256d const zero = _mm256_setzero_pd();
  __m256d const v0 = _mm256_loadu_pd(x);
  __m256d const v1 = count > 1 ? _mm256_loadu_pd(x + stride) : zero;
  __m256d const v2 = count > 2 ? _mm256_loadu_pd(x + 2 * stride) : zero;
  __m256d const v3 = count > 3 ? _mm256_loadu_pd(x + 3 * stride) : zero;
  __m256d const even01 = _mm256_unpacklo_pd(v0, v1);
  __m256d const even23 = _mm256_unpacklo_pd(v2, v3);
  __m256d const odd01 = _mm256_unpackhi_pd(v0, v1);
  __m256d const odd23 = _mm256_unpackhi_pd(v2, v3);
  return {{_mm256_permute2f128_pd(even01, even23, 0x20), _mm256_permute2f128_pd(odd01, odd23, 0x20),
           _mm256_permute2f128_pd(even01, even23, 0x31), _mm256_permute2f128_pd(odd01, odd23, 0x31)}};
}

} // namespace orx::blac
