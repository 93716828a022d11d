#ifdef __x86_64__

#include "blac/sparse/RowsTogetherAvx2.h"

#include <algorithm>
#include <cstdint>
#include <immintrin.h>
#include <utility>

// The sweeps with registers of four doubles, for processors with AVX2. Only the functions below may use them:
// what lies outside is compiled as everywhere else.
//
// Three things make these sweeps fast, besides the registers:
//
//  - Rows with the same columns, as the unknowns of one node have them, are taken up to three together: what
//    is loaded of x or y serves all of them.
//  - Columns that follow each other, as those of a node or of neighbouring nodes do, are taken up to four
//    together: the elements of one vector are loaded at once.
//  - Rows whose columns are those of the row before plus one, as neighbours in a grid with one unknown a
//    node have them, are taken four together: one load of x brings an element for each of them.
//
// Rows of unstructured meshes have none of this, and the branches of looking for it cannot be predicted: they
// would cost more than the products do. So a sweep stops looking where it finds nothing, see Lookout.
//
// The product has the vectors in the lanes, because the sum of one vector may not be split up: the elements
// of x are transposed on their way from memory.
//
//     columns j ... j+2 of x                        sums of row r, one register per four vectors
//     v0: x x x .  \                                v0 v1 v2 v3
//     v1: x x x .   \ transposed  j  : v0 v1 v2 v3  += a(r, j  ) * (...)
//     v2: x x x .   /             j+1: v0 v1 v2 v3  += a(r, j+1) * (...)
//     v3: x x x .  /              j+2: v0 v1 v2 v3  += a(r, j+2) * (...)
//
// The transposed product has the columns in the lanes: it adds a(r, j ... j+3) * x(r, v) to y(j ... j+3, v).
// Of four rows that are shifted, both have the rows in the lanes.

namespace orx::blac {
namespace {

/// How far ahead of its use a is fetched, and ja half as far. One vector is done with an entry in no time:
/// its entries are fetched to the first level of the cache. Several vectors leave time to fetch to the second
/// level, which has room for more requests on their way. (Past the cache, with a non-temporal hint, one
/// vector takes up to twice as long: what is evicted before its use comes from memory again.)
template<int vectors>
constexpr std::ptrdiff_t bytesAhead = vectors == 1 ? 2048 : 8192;
/// How far ahead x and y are fetched, a line of each vector at a time. It pays for short rows and many
/// vectors: their streams are more than the processor keeps apart.
constexpr std::ptrdiff_t elementsAhead = 32;
constexpr std::ptrdiff_t elementsInLine = 8;
constexpr int mostShiftedColumns = 32; ///< transposed and symmetric product

/// Fetches a and ja ahead of the next entries. The addresses may lie beyond the end of the arrays; a prefetch
/// does not fault.
template<int vectors, int entries>
BLAC_SWEEP_INLINE void FetchAhead(double const* nextA, int const* nextJa) {
  constexpr std::ptrdiff_t line = 64;
  constexpr auto level = vectors == 1 ? _MM_HINT_T0 : _MM_HINT_T1;
  auto const* const a = reinterpret_cast<char const*>(nextA) + bytesAhead<vectors>;
  auto const* const ja = reinterpret_cast<char const*>(nextJa) + bytesAhead<vectors> / 2;
  for (std::ptrdiff_t byte = 0; byte < std::ptrdiff_t{sizeof(double)} * entries; byte += line)
    _mm_prefetch(a + byte, level);
  for (std::ptrdiff_t byte = 0; byte < std::ptrdiff_t{sizeof(int)} * entries; byte += line)
    _mm_prefetch(ja + byte, level);
}
/// The same ahead of entry k of the block, as far as `entries` entries of all rows reach. The fetches go
/// through the arrays in the order of their addresses although the rows are read side by side: in the order
/// of the reads, the processor's own prefetching stops and a sweep takes up to twice as long.
template<int vectors, int entries, int rows>
BLAC_SWEEP_INLINE void FetchAhead(RowBlock<rows> const& block, std::ptrdiff_t k) {
  FetchAhead<vectors, entries * rows>(block.a + k * rows, block.columns + k * rows);
}

/// The same ahead of a whole row: where a part is left out, the processor's own prefetching stops. One vector
/// that is multiplied row by row is as fast without.
template<int vectors>
BLAC_SWEEP_INLINE void FetchRowAhead(SparseSweep const& s, std::ptrdiff_t k, std::ptrdiff_t last) {
  constexpr int step = 8;
  for (; k < last; k += step)
    FetchAhead<vectors, step>(s.a + k, s.ja + k);
}

/// Fetches a line of each vector. The address may lie beyond the vectors.
template<int vectors>
BLAC_SWEEP_INLINE void FetchVectors(double const* first, std::ptrdiff_t stride) {
  for (int v = 0; v < vectors; ++v)
    _mm_prefetch(reinterpret_cast<char const*>(first + v * stride), _MM_HINT_T0);
}

// ---- the product

/// Four vectors or fewer in the lanes, zeros in the others: x[0], x[stride] ...
template<int vectors>
BLAC_SWEEP_INLINE __m256d LoadVectors(double const* x, std::ptrdiff_t stride) {
  __m128d low = _mm_load_sd(x);
  if constexpr (vectors > 1) low = _mm_loadh_pd(low, x + stride);
  if constexpr (vectors < 3) return _mm256_zextpd128_pd256(low);
  __m128d high = _mm_load_sd(x + 2 * stride);
  if constexpr (vectors > 3) high = _mm_loadh_pd(high, x + 3 * stride);
  return _mm256_insertf128_pd(_mm256_castpd128_pd256(low), high, 1);
}

/// The same for elements 0 ... 3: four arrays of four, transposed.
struct FourColumns {
  __m256d column[lanes];
};
template<int vectors>
BLAC_SWEEP_INLINE FourColumns LoadFourColumns(double const* x, std::ptrdiff_t stride) {
  __m256d const zero = _mm256_setzero_pd();
  __m256d const v0 = _mm256_loadu_pd(x);
  __m256d const v1 = vectors > 1 ? _mm256_loadu_pd(x + stride) : zero;
  __m256d const v2 = vectors > 2 ? _mm256_loadu_pd(x + 2 * stride) : zero;
  __m256d const v3 = vectors > 3 ? _mm256_loadu_pd(x + 3 * stride) : zero;
  __m256d const even01 = _mm256_unpacklo_pd(v0, v1);
  __m256d const even23 = _mm256_unpacklo_pd(v2, v3);
  __m256d const odd01 = _mm256_unpackhi_pd(v0, v1);
  __m256d const odd23 = _mm256_unpackhi_pd(v2, v3);
  return {{_mm256_permute2f128_pd(even01, even23, 0x20), _mm256_permute2f128_pd(odd01, odd23, 0x20),
           _mm256_permute2f128_pd(even01, even23, 0x31), _mm256_permute2f128_pd(odd01, odd23, 0x31)}};
}

/// The sums of four vectors or fewer, for each row of a block. Packs rather than loops over the rows: they
/// leave the sums in registers.
template<int vectors, int rows, class = std::make_index_sequence<rows>>
class Sums;
template<int vectors, int rows, std::size_t... r>
class Sums<vectors, rows, std::index_sequence<r...>> {
public:
  BLAC_SWEEP_INLINE Sums() { ((m_sums[r] = _mm256_setzero_pd()), ...); }
  BLAC_SWEEP_INLINE void Add(double const* a, std::ptrdiff_t stride, __m256d x) {
    ((m_sums[r] = _mm256_add_pd(m_sums[r], _mm256_mul_pd(_mm256_broadcast_sd(a + r * stride), x))), ...);
  }
  BLAC_SWEEP_INLINE void AddThree(double const* a, std::ptrdiff_t stride, FourColumns const& x) {
    for (int c = 0; c < 3; ++c)
      Add(a + c, stride, x.column[c]);
  }
  BLAC_SWEEP_INLINE void Store(double* y, std::ptrdiff_t stride) const {
    (StoreRow(y + r, stride, m_sums[r]), ...);
  }

private:
  BLAC_SWEEP_INLINE static void StoreRow(double* y, std::ptrdiff_t stride, __m256d sums) {
    __m128d const low = _mm256_castpd256_pd128(sums);
    __m128d const high = _mm256_extractf128_pd(sums, 1);
    _mm_storel_pd(y, low);
    if constexpr (vectors > 1) _mm_storeh_pd(y + stride, low);
    if constexpr (vectors > 2) _mm_storel_pd(y + 2 * stride, high);
    if constexpr (vectors > 3) _mm_storeh_pd(y + 3 * stride, high);
  }

  __m256d m_sums[rows];
};

/// Hides from the compiler what it knows of an address. Otherwise it computes the addresses of all eight
/// vectors in advance, for which there are not enough registers.
template<class T>
BLAC_SWEEP_INLINE T* Opaque(T* address) {
  asm("" : "+r"(address));
  return address;
}

/// Whether the columns j[0], j[1] and j[2] follow each other.
BLAC_SWEEP_INLINE bool AreThree(int const* j) { return j[1] - j[0] == 1 && j[2] - j[0] == 2; }

/// Two to eight vectors. Three columns are taken together only where a fourth follows: that is read too. The
/// parts of the block are arguments of their own and so travel in registers: a struct would be loaded in
/// other pieces than it has just been stored in, and wait for that in every row.
template<int vectors, int rows>
[[gnu::noinline]] BLAC_SWEEP void MultiplyBlock(double const* entries, int const* columns,
                                                std::ptrdiff_t length, double const* x,
                                                std::ptrdiff_t strideX, double* y, std::ptrdiff_t strideY) {
  RowBlock<rows> const block{entries, columns, length};
  constexpr int low = std::min(vectors, lanes);
  constexpr int high = vectors - low;
  Sums<low, rows> lowSums;
  Sums<std::max(high, 1), rows> highSums;
  for (std::ptrdiff_t k = 0; k < block.length;) {
    int const* const j = block.columns + k;
    double const* const a = block.a + k;
    double const* const first = Opaque(x + j[0]);
    if (k + 3 <= block.length && AreThree(j) && std::ptrdiff_t{j[0]} + lanes <= strideX) {
      FetchAhead<vectors, 3>(block, k);
      lowSums.AddThree(a, block.length, LoadFourColumns<low>(first, strideX));
      if constexpr (high > 0)
        highSums.AddThree(Opaque(a), block.length,
                          LoadFourColumns<high>(Opaque(first + lanes * strideX), strideX));
      k += 3;
    } else {
      if (k % 8 == 0) FetchAhead<vectors, 8>(block, k);
      lowSums.Add(a, block.length, LoadVectors<low>(first, strideX));
      if constexpr (high > 0)
        highSums.Add(a, block.length, LoadVectors<high>(Opaque(first + lanes * strideX), strideX));
      ++k;
    }
  }
  lowSums.Store(y, strideY);
  if constexpr (high > 0) highSums.Store(y + lanes * strideY, strideY);
}

/// Rows begin ... end - 1 one by one, as they come in unstructured meshes: no branch but that at the end of a
/// row. `s` is a copy, which the compiler knows that no store changes.
template<int vectors>
[[gnu::noinline]] BLAC_SWEEP void MultiplyRows(SparseSweep const s, std::ptrdiff_t begin,
                                               std::ptrdiff_t end) {
  constexpr int low = std::min(vectors, lanes);
  constexpr int high = vectors - low;
  for (std::ptrdiff_t i = begin; i < end; ++i) {
    std::ptrdiff_t k = s.ia[i];
    std::ptrdiff_t const last = s.ia[i + 1];
    if constexpr (vectors > 1) FetchRowAhead<vectors>(s, k, last);
    if constexpr (vectors == 1) {
      double sum = 0.0;
      for (; k < last; ++k)
        sum += s.a[k] * s.x[s.ja[k]];
      s.y[i] = sum;
    } else {
      Sums<low, 1> lowSums;
      Sums<std::max(high, 1), 1> highSums;
      for (; k < last; ++k) {
        double const* const x = Opaque(s.x + s.ja[k]);
        lowSums.Add(s.a + k, 0, LoadVectors<low>(x, s.columns));
        if constexpr (high > 0)
          highSums.Add(s.a + k, 0, LoadVectors<high>(Opaque(x + lanes * s.columns), s.columns));
      }
      lowSums.Store(s.y + i, s.rows);
      if constexpr (high > 0) highSums.Store(s.y + i + lanes * s.rows, s.rows);
    }
  }
}

/// One vector: the sums of a block's rows side by side, else each addition would wait for the one before.
template<int rows>
BLAC_SWEEP_INLINE void MultiplyBlockByOne(RowBlock<rows> const& block, double const* x, double* y) {
  constexpr std::ptrdiff_t step = 8;
  double sums[rows] = {};
  for (std::ptrdiff_t begin = 0; begin < block.length; begin += step) {
    FetchAhead<1, step>(block, begin);
    std::ptrdiff_t const end = std::min(begin + step, block.length);
    for (std::ptrdiff_t k = begin; k < end; ++k) {
      double const factor = x[block.columns[k]];
      for (int r = 0; r < rows; ++r)
        sums[r] += block.a[r * block.length + k] * factor;
    }
  }
  for (int r = 0; r < rows; ++r)
    y[r] = sums[r];
}

/// The sums of four rows, one in each lane, for each vector.
template<int vectors, class = std::make_index_sequence<vectors>>
class SumsOfRows;
template<int vectors, std::size_t... v>
class SumsOfRows<vectors, std::index_sequence<v...>> {
public:
  BLAC_SWEEP_INLINE SumsOfRows() { ((m_sums[v] = _mm256_setzero_pd()), ...); }
  BLAC_SWEEP_INLINE void Add(__m256d a, double const* x, std::ptrdiff_t stride) {
    ((m_sums[v] = _mm256_add_pd(m_sums[v], _mm256_mul_pd(a, _mm256_loadu_pd(x))), x = Opaque(x + stride)),
     ...);
  }
  BLAC_SWEEP_INLINE void Store(double* y, std::ptrdiff_t stride) const {
    (_mm256_storeu_pd(y + v * stride, m_sums[v]), ...);
  }
  /// y += diagonal * x + sums.
  BLAC_SWEEP_INLINE void AddWithDiagonal(__m256d diagonal, double const* x, double* y,
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

/// Four rows, each with the columns of the one before plus one.
template<int vectors>
[[gnu::noinline]] BLAC_SWEEP void
MultiplyShiftedRows(double const* entries, int const* columns, std::ptrdiff_t length, double const* x,
                    std::ptrdiff_t strideX, double* y, std::ptrdiff_t strideY) {
  RowBlock<lanes> const block{entries, columns, length};
  SumsOfRows<vectors> sums;
  std::ptrdiff_t k = 0;
  for (; k + lanes <= length; k += lanes) {
    FetchAhead<vectors, lanes>(block, k);
    FourColumns const a = LoadFourColumns<lanes>(entries + k, length);
    for (int c = 0; c < lanes; ++c)
      sums.Add(a.column[c], x + columns[k + c], strideX);
  }
  for (; k < length; ++k) {
    FetchAhead<vectors, 1>(block, k);
    sums.Add(LoadVectors<lanes>(entries + k, length), x + columns[k], strideX);
  }
  sums.Store(y, strideY);
}

// ---- the transposed product

/// Clears y little by little just before it is used: then it need not come from memory twice. One vector is
/// too little for that and is cleared at once.
template<int vectors>
class Clearing {
public:
  Clearing(double* y, std::ptrdiff_t columns) : m_y(y), m_columns(columns) {
    if (vectors == 1) Finish();
  }

  /// Clears up to a column that is about to be used.
  BLAC_SWEEP_INLINE void Prepare(std::ptrdiff_t last) {
    if (vectors > 1 && last >= m_cleared) [[unlikely]]
      m_cleared = Clear(m_y, m_columns, m_cleared, std::min(m_columns, last + columnsAhead));
  }
  /// Clears what is left.
  void Finish() { m_cleared = Clear(m_y, m_columns, m_cleared, m_columns); }

private:
  static constexpr std::ptrdiff_t columnsAhead = 256; ///< for eight vectors 16 KB

  [[gnu::noinline]] static std::ptrdiff_t Clear(double* y, std::ptrdiff_t columns, std::ptrdiff_t begin,
                                                std::ptrdiff_t end) {
    for (int v = 0; v < vectors; ++v)
      std::fill(y + v * columns + begin, y + v * columns + end, 0.0);
    return end;
  }

  double* m_y;
  std::ptrdiff_t m_columns;
  std::ptrdiff_t m_cleared = 0; ///< columns
};

/// Of the ascending columns j[0] ... j[left - 1] those at the front that follow each other, up to four.
BLAC_SWEEP_INLINE int LengthOfRun(int const* j, std::ptrdiff_t left) {
  for (int length = lanes; length > 1; --length)
    if (left >= length && j[length - 1] - j[0] == length - 1) return length;
  return 1;
}

/// All bits set in the first lanes.
BLAC_SWEEP_INLINE __m256i FirstLanes(int count) {
  alignas(__m256i) static constexpr std::int64_t masks[] = {-1, -1, -1, -1, 0, 0, 0};
  return _mm256_loadu_si256(reinterpret_cast<__m256i const*>(masks + lanes - count));
}

/// What a block adds to y: element (r, v) of x in all lanes.
template<int vectors, int rows>
class Factors {
public:
  BLAC_SWEEP_INLINE Factors(double const* x, std::ptrdiff_t stride) {
    for (int v = 0; v < vectors; ++v)
      for (int r = 0; r < rows; ++r)
        m_factors[v][r] = _mm256_broadcast_sd(x + v * stride + r);
  }
  /// y + sum of a[r] * factor(r, v), row by row.
  template<int v>
  BLAC_SWEEP_INLINE __m256d AddTo(__m256d y, __m256d const* a) const {
    for (int r = 0; r < rows; ++r)
      y = _mm256_add_pd(y, _mm256_mul_pd(m_factors[v][r], a[r]));
    return y;
  }
  BLAC_SWEEP_INLINE double AddTo(double y, int v, double const* a) const {
    for (int r = 0; r < rows; ++r)
      y += m_factors[v][r][0] * a[r];
    return y;
  }

private:
  __m256d m_factors[vectors][rows];
};

/// Adds a run of entries to a vector of y; `used` says which lanes count where not all do.
template<int v, bool isFull, int vectors, int rows>
BLAC_SWEEP_INLINE void AddRunToVector(double* y, Factors<vectors, rows> const& factors, __m256d const* a,
                                      __m256d used) {
  __m256d const before = _mm256_loadu_pd(y);
  __m256d const after = factors.template AddTo<v>(before, a);
  _mm256_storeu_pd(y, isFull ? after : _mm256_blendv_pd(before, after, used));
}

template<bool isFull, int vectors, int rows, int... v>
BLAC_SWEEP_INLINE void AddRun(RowBlock<rows> const& block, std::ptrdiff_t k, int length,
                              Factors<vectors, rows> const& factors, double* y, std::ptrdiff_t stride,
                              std::integer_sequence<int, v...>) {
  __m256i const used = FirstLanes(length);
  __m256d a[rows];
  for (int r = 0; r < rows; ++r)
    a[r] = isFull ? _mm256_loadu_pd(block.a + r * block.length + k)
                  : _mm256_maskload_pd(block.a + r * block.length + k, used);
  y = Opaque(y);
  ((AddRunToVector<v, isFull>(y, factors, a, _mm256_castsi256_pd(used)), y += stride), ...);
}

template<int vectors, int rows, int... v>
BLAC_SWEEP_INLINE void AddOne(RowBlock<rows> const& block, std::ptrdiff_t k,
                              Factors<vectors, rows> const& factors, double* y, std::ptrdiff_t stride,
                              std::integer_sequence<int, v...>) {
  double a[rows];
  for (int r = 0; r < rows; ++r)
    a[r] = block.a[r * block.length + k];
  y = Opaque(y);
  ((*y = factors.AddTo(*y, v, a), y += stride), ...);
}

/// Two to eight vectors. REQUIRES: the columns ascend. Each then gets its products row by row.
template<int vectors, int rows>
[[gnu::noinline]] BLAC_SWEEP void AddBlock(double const* entries, int const* columns, std::ptrdiff_t length,
                                           double const* x, std::ptrdiff_t strideX, double* y,
                                           std::ptrdiff_t strideY) {
  RowBlock<rows> const block{entries, columns, length};
  constexpr auto allVectors = std::make_integer_sequence<int, vectors>();
  Factors<vectors, rows> const factors(x, strideX);
  for (std::ptrdiff_t k = 0; k < block.length;) {
    int const* const j = block.columns + k;
    double* const first = Opaque(y + j[0]);
    int const run = std::ptrdiff_t{j[0]} + lanes <= strideY ? LengthOfRun(j, block.length - k) : 1;
    if (run > 1 || k % 8 == 0) FetchAhead<vectors, lanes>(block, k);
    if (run == lanes)
      AddRun<true>(block, k, run, factors, first, strideY, allVectors);
    else if (run > 1)
      AddRun<false>(block, k, run, factors, first, strideY, allVectors);
    else
      AddOne(block, k, factors, first, strideY, allVectors);
    k += run;
  }
}

/// The same for one vector, column by column: there is too little to add for more.
template<int rows>
BLAC_SWEEP_INLINE void AddBlockToOne(RowBlock<rows> const& block, double const* x, double* y) {
  constexpr std::ptrdiff_t step = 8;
  double factors[rows];
  for (int r = 0; r < rows; ++r)
    factors[r] = x[r];
  for (std::ptrdiff_t begin = 0; begin < block.length; begin += step) {
    FetchAhead<1, step>(block, begin);
    std::ptrdiff_t const end = std::min(begin + step, block.length);
    for (std::ptrdiff_t k = begin; k < end; ++k) {
      double sum = y[block.columns[k]];
      for (int r = 0; r < rows; ++r)
        sum += factors[r] * block.a[r * block.length + k];
      y[block.columns[k]] = sum;
    }
  }
}

/// Rows at positions begin ... end - 1 one by one. Runs are not taken together: they overlap with those of
/// the row before, and what has just been stored in one piece cannot be loaded in another without waiting.
template<int vectors>
[[gnu::noinline]] BLAC_SWEEP void AddRows(SparseSweep const s, std::ptrdiff_t begin, std::ptrdiff_t end,
                                          Clearing<vectors>& clearing) {
  for (std::ptrdiff_t p = begin; p < end; ++p) {
    std::ptrdiff_t const row = s.list != nullptr ? s.list[p] : p;
    std::ptrdiff_t k = s.ia[row];
    std::ptrdiff_t const last = s.ia[row + 1];
    FetchRowAhead<vectors>(s, k, last);
    double factors[vectors];
    for (int v = 0; v < vectors; ++v)
      factors[v] = s.x[v * s.rows + p];
    for (; k < last; ++k) {
      double const a = s.a[k];
      std::ptrdiff_t const j = s.ja[k];
      clearing.Prepare(j);
      for (int v = 0; v < vectors; ++v)
        s.y[v * s.columns + j] += factors[v] * a;
    }
  }
}

/// An element of y, and before it the first three of four that lie behind it.
BLAC_SWEEP_INLINE __m256d MovedByOne(double const* first, __m256d behind) {
  constexpr int upwards = 0b10'01'00'00;
  return _mm256_blend_pd(_mm256_permute4x64_pd(behind, upwards), _mm256_broadcast_sd(first), 1);
}

/// Four elements of y that follow each other, for each vector, and what four rows add to them: element v of x
/// has the rows in its lanes.
template<int vectors, class = std::make_index_sequence<vectors>>
class Window;
template<int vectors, std::size_t... v>
class Window<vectors, std::index_sequence<v...>> {
public:
  BLAC_SWEEP_INLINE Window(double const* x, std::ptrdiff_t stride) {
    ((m_x[v] = _mm256_loadu_pd(x + v * stride)), ...);
  }
  BLAC_SWEEP_INLINE void Load(double const* y, std::ptrdiff_t stride) {
    ((m_sums[v] = _mm256_loadu_pd(y), y = Opaque(y + stride)), ...);
  }
  BLAC_SWEEP_INLINE void Store(double* y, std::ptrdiff_t stride) const {
    ((_mm256_storeu_pd(y, m_sums[v]), y = Opaque(y + stride)), ...);
  }
  BLAC_SWEEP_INLINE void Add(__m256d a) {
    ((m_sums[v] = _mm256_add_pd(m_sums[v], _mm256_mul_pd(m_x[v], a))), ...);
  }
  /// Moves from y to the elements that begin one before.
  BLAC_SWEEP_INLINE void MoveDown(double* y, std::ptrdiff_t stride) {
    ((_mm_storeh_pd(y + lanes - 1, _mm256_extractf128_pd(m_sums[v], 1)),
      m_sums[v] = MovedByOne(y - 1, m_sums[v]), y = Opaque(y + stride)),
     ...);
  }

private:
  __m256d m_x[vectors];
  __m256d m_sums[vectors];
};

/// The entries of four rows that follow each other without gaps, one row in each lane.
template<int vectors>
BLAC_SWEEP_INLINE void LoadRows(RowBlock<lanes> const& block, __m256d* a) {
  std::ptrdiff_t k = 0;
  for (; k + lanes <= block.length; k += lanes) {
    FetchAhead<vectors, lanes>(block, k);
    FourColumns const four = LoadFourColumns<lanes>(block.a + k, block.length);
    for (int c = 0; c < lanes; ++c)
      a[k + c] = four.column[c];
  }
  for (; k < block.length; ++k) {
    FetchAhead<vectors, 1>(block, k);
    a[k] = LoadVectors<lanes>(block.a + k, block.length);
  }
}

/// Adds to y four rows, each with the columns of the one before plus one, out of LoadRows. Their entries k go
/// to four elements of y that follow each other. From the last k to the first, each element gets its products
/// row by row. REQUIRES: the columns ascend.
template<int vectors>
BLAC_SWEEP_INLINE void AddRows(__m256d const* a, int const* columns, std::ptrdiff_t length, double const* x,
                               std::ptrdiff_t strideX, double* y, std::ptrdiff_t strideY) {
  Window<vectors> window(x, strideX);
  window.Load(y + columns[length - 1], strideY);
  for (std::ptrdiff_t k = length - 1; k > 0; --k) {
    window.Add(a[k]);
    if (columns[k] - columns[k - 1] == 1) {
      window.MoveDown(y + columns[k], strideY);
    } else {
      window.Store(y + columns[k], strideY);
      window.Load(y + columns[k - 1], strideY);
    }
  }
  window.Add(a[0]);
  window.Store(y + columns[0], strideY);
}

/// REQUIRES: the columns ascend; there are not more than mostShiftedColumns.
template<int vectors>
[[gnu::noinline]] BLAC_SWEEP void AddShiftedRows(double const* entries, int const* columns,
                                                 std::ptrdiff_t length, double const* x,
                                                 std::ptrdiff_t strideX, double* y, std::ptrdiff_t strideY) {
  __m256d a[mostShiftedColumns];
  LoadRows<vectors>(RowBlock<lanes>{entries, columns, length}, a);
  AddRows<vectors>(a, columns, length, x, strideX, y, strideY);
}

// ---- the symmetric product

/// Four rows from row i on, each with the columns of the one before plus one. REQUIRES: as AddShiftedRows;
/// the columns of a row come before the row: no row adds to an element of y that is not complete as far as
/// its own row goes.
template<int vectors>
[[gnu::noinline]] BLAC_SWEEP void MultiplyShiftedSymmetric(SparseSweep const& s, std::ptrdiff_t i,
                                                           RowBlock<lanes> const& block) {
  __m256d a[mostShiftedColumns];
  LoadRows<vectors>(block, a);
  SumsOfRows<vectors> sums;
  for (std::ptrdiff_t k = 0; k < block.length; ++k)
    sums.Add(a[k], s.x + block.columns[k], s.rows);
  sums.AddWithDiagonal(_mm256_loadu_pd(s.diagonal + i), s.x + i, s.y + i, s.rows);
  AddRows<vectors>(a, block.columns, block.length, s.x + i, s.rows, s.y, s.rows);
}

/// Rows begin ... end - 1 one by one.
template<int vectors>
[[gnu::noinline]] BLAC_SWEEP void MultiplyRowsSymmetric(SparseSweep const s, std::ptrdiff_t begin,
                                                        std::ptrdiff_t end, Clearing<vectors>& clearing) {
  for (std::ptrdiff_t i = begin; i < end; ++i) {
    std::ptrdiff_t k = s.ia[i];
    std::ptrdiff_t const last = s.ia[i + 1];
    if constexpr (vectors > 1) FetchRowAhead<vectors>(s, k, last);
    double sums[vectors] = {};
    double factors[vectors];
    for (int v = 0; v < vectors; ++v)
      factors[v] = s.x[v * s.rows + i];
    for (; k < last; ++k) {
      double const a = s.a[k];
      std::ptrdiff_t const j = s.ja[k];
      clearing.Prepare(j);
      for (int v = 0; v < vectors; ++v) {
        sums[v] += a * s.x[v * s.rows + j];
        s.y[v * s.rows + j] += a * factors[v];
      }
    }
    clearing.Prepare(i);
    for (int v = 0; v < vectors; ++v)
      s.y[v * s.rows + i] += s.diagonal[i] * factors[v] + sums[v];
  }
}

// ---- the sweeps

template<int vectors>
class ProductOfRows {
public:
  explicit ProductOfRows(SparseSweep const& s) : m_s(s) {}

  BLAC_SWEEP_INLINE std::ptrdiff_t TakeTogether(std::ptrdiff_t i) {
    RowBlock<1> const row = RowAt(m_s, i);
    FetchFrom(i, row);
    if (AreShifted(m_s, i, m_s.rows, row)) {
      MultiplyShiftedRows<vectors>(row.a, row.columns, row.length, m_s.x, m_s.columns, m_s.y + i, m_s.rows);
      return lanes;
    }
    if (row.length < leastSharedColumns) return 0;
    int const rows = RowsInBlock(m_s, i, row);
    if (rows == 1) return 0;
    rows == 2 ? Multiply<2>(i, row) : Multiply<3>(i, row);
    return rows;
  }
  BLAC_SWEEP_INLINE void TakeAlone(std::ptrdiff_t begin, std::ptrdiff_t end) {
    MultiplyRows<vectors>(m_s, begin, end);
  }

private:
  /// Now and then fetches x and y for rows from row i on.
  BLAC_SWEEP_INLINE void FetchFrom(std::ptrdiff_t i, RowBlock<1> const& row) {
    if (i < m_nextFetch) return;
    m_nextFetch = i + elementsInLine;
    // In a banded matrix, the last column is where x is entered for the first time.
    if (row.length > 0)
      FetchVectors<vectors>(m_s.x + row.columns[row.length - 1] + elementsAhead, m_s.columns);
    FetchVectors<vectors>(m_s.y + i + elementsAhead, m_s.rows);
  }
  template<int rows>
  BLAC_SWEEP_INLINE void Multiply(std::ptrdiff_t i, RowBlock<1> const& row) const {
    if constexpr (vectors == 1) {
      MultiplyBlockByOne(RowBlock<rows>{row.a, row.columns, row.length}, m_s.x, m_s.y + i);
    } else {
      MultiplyBlock<vectors, rows>(row.a, row.columns, row.length, m_s.x, m_s.columns, m_s.y + i, m_s.rows);
    }
  }

  SparseSweep const& m_s;
  std::ptrdiff_t m_nextFetch = 0;
};

template<int vectors>
class TransposedProductOfRows {
public:
  explicit TransposedProductOfRows(SparseSweep const& s) : m_s(s), m_clearing(s.y, s.columns) {}

  BLAC_SWEEP_INLINE std::ptrdiff_t TakeTogether(std::ptrdiff_t p) {
    RowBlock<1> const row = RowAt(m_s, p);
    FetchFrom(p);
    // One vector is faster entry by entry: too little is added to outweigh the moving of lanes.
    bool const mayBeShifted = vectors > 1 && row.length >= leastShiftedColumns &&
                              row.length <= mostShiftedColumns && m_s.list == nullptr;
    bool const isLong = row.length >= leastSharedColumns;
    if ((!mayBeShifted && !isLong) || !AreAscending(row.columns, row.length)) return 0;
    if (mayBeShifted && AreShifted(m_s, p, m_s.rows, row)) {
      m_clearing.Prepare(std::ptrdiff_t{row.columns[row.length - 1]} + lanes - 1);
      AddShiftedRows<vectors>(row.a, row.columns, row.length, m_s.x + p, m_s.rows, m_s.y, m_s.columns);
      return lanes;
    }
    if (!isLong) return 0;
    int const rows = RowsInBlock(m_s, p, row);
    if (rows == 1) return 0;
    m_clearing.Prepare(row.columns[row.length - 1]);
    rows == 2 ? Add<2>(p, row) : Add<3>(p, row);
    return rows;
  }
  BLAC_SWEEP_INLINE void TakeAlone(std::ptrdiff_t begin, std::ptrdiff_t end) {
    AddRows<vectors>(m_s, begin, end, m_clearing);
  }
  void Finish() { m_clearing.Finish(); }

private:
  BLAC_SWEEP_INLINE void FetchFrom(std::ptrdiff_t p) {
    if (vectors == 1 || p < m_nextFetch) return;
    m_nextFetch = p + elementsInLine;
    FetchVectors<vectors>(m_s.x + p + elementsAhead, m_s.rows);
  }
  template<int rows>
  BLAC_SWEEP_INLINE void Add(std::ptrdiff_t p, RowBlock<1> const& row) const {
    if constexpr (vectors == 1) {
      AddBlockToOne(RowBlock<rows>{row.a, row.columns, row.length}, m_s.x + p, m_s.y);
    } else {
      AddBlock<vectors, rows>(row.a, row.columns, row.length, m_s.x + p, m_s.rows, m_s.y, m_s.columns);
    }
  }

  SparseSweep const& m_s;
  Clearing<vectors> m_clearing;
  std::ptrdiff_t m_nextFetch = 0;
};

template<int vectors>
class SymmetricProductOfRows {
public:
  explicit SymmetricProductOfRows(SparseSweep const& s) : m_s(s), m_clearing(s.y, s.rows) {}

  BLAC_SWEEP_INLINE std::ptrdiff_t TakeTogether(std::ptrdiff_t i) {
    RowBlock<1> const row = RowAt(m_s, i);
    FetchFrom(i);
    if (row.length > mostShiftedColumns || !AreShifted(m_s, i, m_s.columns, row) ||
        !AreAscending(row.columns, row.length) || row.columns[row.length - 1] >= i)
      return 0;
    m_clearing.Prepare(i + lanes - 1);
    MultiplyShiftedSymmetric<vectors>(m_s, i, RowBlock<lanes>{row.a, row.columns, row.length});
    return lanes;
  }
  BLAC_SWEEP_INLINE void TakeAlone(std::ptrdiff_t begin, std::ptrdiff_t end) {
    MultiplyRowsSymmetric<vectors>(m_s, begin, end, m_clearing);
  }
  void Finish() { m_clearing.Finish(); }

private:
  BLAC_SWEEP_INLINE void FetchFrom(std::ptrdiff_t i) {
    if (i < m_nextFetch) return;
    m_nextFetch = i + elementsInLine;
    FetchVectors<vectors>(m_s.x + i + elementsAhead, m_s.rows);
    FetchVectors<vectors>(m_s.y + i + elementsAhead, m_s.rows);
  }

  SparseSweep const& m_s;
  Clearing<vectors> m_clearing;
  std::ptrdiff_t m_nextFetch = 0;
};

template<int vectors>
BLAC_SWEEP void Product(SparseSweep const& s) {
  ProductOfRows<vectors> work(s);
  SweepRows(s.rows, work);
}
template<int vectors>
BLAC_SWEEP void TransposedProduct(SparseSweep const& s) {
  TransposedProductOfRows<vectors> work(s);
  SweepRows(s.rows, work);
  work.Finish();
}
template<int vectors>
BLAC_SWEEP void SymmetricProduct(SparseSweep const& s) {
  SymmetricProductOfRows<vectors> work(s);
  // One vector is faster entry by entry.
  if constexpr (vectors == 1)
    work.TakeAlone(0, s.columns);
  else
    SweepRows(s.columns, work);
  work.Finish();
}

template<int... n>
constexpr SparseSweepSet MakeSet(std::integer_sequence<int, n...>) {
  return {{&Product<n + 1>...}, {&TransposedProduct<n + 1>...}, {&SymmetricProduct<n + 1>...}};
}

} // namespace

constexpr SparseSweepSet avx2SparseSweeps = MakeSet(std::make_integer_sequence<int, vectorsInGroup>());

} // namespace orx::blac

#endif
