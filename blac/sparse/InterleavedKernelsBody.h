#pragma once

#include "blac/sparse/CacheSizes.h"
#include "blac/sparse/InterleavedKernels.h"

#include <algorithm>
#include <cstdint>

// The interleaved kernels, compiled for the instruction set of the source that includes this file. The source
// defines BLAC_INTERLEAVED, the attributes of functions that use the instruction set, BLAC_INTERLEAVED_LANES,
// the number of doubles in a register, and BLAC_INTERLEAVED_NAMESPACE, the namespace of the kernels.

#define BLAC_INTERLEAVED_INLINE BLAC_INTERLEAVED __attribute__((always_inline)) inline

namespace orx::blac::BLAC_INTERLEAVED_NAMESPACE {

/// One element of each vector of a group, in registers. A single vector type of all lanes would be simpler,
/// but the compiler moves one that is wider than a register through memory.
template<int lanes>
struct __attribute__((may_alias)) Slot {
  static constexpr int width = std::min(lanes, BLAC_INTERLEAVED_LANES);
  static constexpr int registerCount = lanes / width;
  typedef double Register __attribute__((vector_size(width * sizeof(double)), may_alias));

  Slot() = default;
  /// Register by register: the compiler's own copy goes through memory.
  BLAC_INTERLEAVED_INLINE Slot(Slot const& other) { *this = other; }
  // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): copies registers onto themselves
  BLAC_INTERLEAVED_INLINE Slot& operator=(Slot const& other) {
    for (int r = 0; r < registerCount; ++r)
      registers[r] = other.registers[r];
    return *this;
  }
  BLAC_INTERLEAVED_INLINE double operator[](int v) const { return registers[v / width][v % width]; }
  BLAC_INTERLEAVED_INLINE Slot& operator+=(Slot const& other) {
    for (int r = 0; r < registerCount; ++r)
      registers[r] += other.registers[r];
    return *this;
  }

  Register registers[registerCount];
};
template<int lanes>
BLAC_INTERLEAVED_INLINE Slot<lanes> operator*(double a, Slot<lanes> x) {
  for (int r = 0; r < Slot<lanes>::registerCount; ++r)
    x.registers[r] *= a;
  return x;
}
template<int lanes>
BLAC_INTERLEAVED_INLINE Slot<lanes> operator+(Slot<lanes> x, Slot<lanes> const& y) {
  return x += y;
}

/// Copies the lanes of a slot to to[0], to[stride] ..., as many as there are vectors.
template<int lanes>
BLAC_INTERLEAVED_INLINE void Store(Slot<lanes> const& slot, double* to, std::ptrdiff_t stride, int vectors) {
  for (int v = 0; v < lanes; ++v)
    if (v < vectors) to[v * stride] = slot[v];
}

/// Fills the lanes of a slot from from[0], from[stride] ..., as many as there are vectors, the others with
/// zeros. Whole registers are stored: a later load of a register would wait for stores of single lanes.
template<int lanes>
BLAC_INTERLEAVED_INLINE void Load(double const* from, std::ptrdiff_t stride, int vectors, Slot<lanes>& slot) {
  constexpr int width = Slot<lanes>::width;
  for (int first = 0; first < lanes; first += width) {
    typename Slot<lanes>::Register filled{};
    for (int v = 0; v < width; ++v)
      filled[v] = first + v < vectors ? from[(first + v) * stride] : 0.0;
    slot.registers[first / width] = filled;
  }
}

/// Prefetches `entries` values and column indices, some way ahead of the given ones, to the second level of
/// the cache. The addresses may lie beyond the end of the arrays: a prefetch does not fault.
BLAC_INTERLEAVED_INLINE void PrefetchEntries(double const* nextValue, int const* nextColumn,
                                             std::ptrdiff_t entries) {
  constexpr std::ptrdiff_t bytesAhead = 8192;
  auto const* const values = reinterpret_cast<char const*>(nextValue) + bytesAhead;
  auto const* const columns = reinterpret_cast<char const*>(nextColumn) + bytesAhead / 2;
  for (std::ptrdiff_t byte = 0; byte < entries * std::ptrdiff_t{sizeof(double)}; byte += cacheLineBytes)
    __builtin_prefetch(values + byte, 0, 2);
  for (std::ptrdiff_t byte = 0; byte < entries * std::ptrdiff_t{sizeof(int)}; byte += cacheLineBytes)
    __builtin_prefetch(columns + byte, 0, 2);
}

// Products of the general form

/// Prefetches the slot that belongs to a later entry than entry k, to the second level of the cache. The
/// processor itself looks ahead by a few rows only, and so has fewer cache lines on their way than it could.
template<int lanes>
BLAC_INTERLEAVED_INLINE void PrefetchSlot(InterleavedOperands const& s, std::ptrdiff_t k) {
  constexpr std::ptrdiff_t entriesAhead = 128;
  if (k + entriesAhead < s.matrix.rowPointers[s.rows])
    __builtin_prefetch(s.workspace + s.matrix.columnIndices[k + entriesAhead] * std::ptrdiff_t{lanes}, 0, 2);
}

template<int lanes>
BLAC_INTERLEAVED void Multiply(InterleavedOperands const& s) {
  auto* const x = reinterpret_cast<Slot<lanes>*>(s.workspace);
  for (std::ptrdiff_t j = 0; j < s.columns; ++j)
    Load<lanes>(s.x + j, s.columns, s.vectors, x[j]);
  for (std::ptrdiff_t i = 0; i < s.rows; ++i) {
    Slot<lanes> sum{};
    for (std::ptrdiff_t k = s.matrix.rowPointers[i]; k < s.matrix.rowPointers[i + 1]; ++k) {
      PrefetchSlot<lanes>(s, k);
      sum += s.matrix.values[k] * x[s.matrix.columnIndices[k]];
    }
    Store<lanes>(sum, s.y + i, s.rows, s.vectors);
  }
}

template<int lanes>
BLAC_INTERLEAVED void MultiplyTransposed(InterleavedOperands const& s) {
  auto* const y = reinterpret_cast<Slot<lanes>*>(s.workspace);
  std::fill_n(s.workspace, InterleavedWorkspace(s.columns, lanes), 0.0);
  for (std::ptrdiff_t i = 0; i < s.rows; ++i) {
    Slot<lanes> factor;
    Load<lanes>(s.x + i, s.rows, s.vectors, factor);
    for (std::ptrdiff_t k = s.matrix.rowPointers[i]; k < s.matrix.rowPointers[i + 1]; ++k) {
      PrefetchSlot<lanes>(s, k);
      y[s.matrix.columnIndices[k]] += s.matrix.values[k] * factor;
    }
  }
  for (std::ptrdiff_t j = 0; j < s.columns; ++j)
    Store<lanes>(y[j], s.y + j, s.columns, s.vectors);
}

// The product of the symmetric form

/// A ring of slots for consecutive elements of x and y, which stays in the cache while the rows that use
/// these elements are multiplied. Elements enter in ascending order. Each takes the place of the element
/// `ringSlots` before it, whose y is first stored to y itself.
///
///     elements     0 ... end - ringSlots - 1    end - ringSlots ... end - 1    end ... rows - 1
///                  y is complete or added to    in the ring                    not yet cleared, or added
///                  in y itself                                                 to in y itself
///     workspace    x(0) y(0) x(1) y(1) ...      element j has slot j modulo ringSlots of x and of y
template<int lanes>
class Ring {
public:
  explicit Ring(InterleavedOperands const& s)
      : m_s(s), m_slots(reinterpret_cast<Slot<lanes>*>(s.workspace)), m_mask(s.ringSlots - 1) {}

  /// Lets the elements before `end` enter.
  BLAC_INTERLEAVED_INLINE void EnterUpTo(std::ptrdiff_t end) {
    for (; m_end < end; ++m_end) {
      if (m_end >= m_s.ringSlots) StoreY(m_end - m_s.ringSlots);
      LoadX(m_end, SlotsOf(m_end)[0]);
      if (m_isYSetAhead) {
        Load<lanes>(m_s.y + m_end, m_s.rows, m_s.vectors, Y(m_end));
      } else {
        Y(m_end) = Slot<lanes>{};
      }
    }
  }
  /// True when all elements first ... last are in the ring.
  BLAC_INTERLEAVED_INLINE bool Holds(std::ptrdiff_t first, std::ptrdiff_t last) const {
    return first >= m_end - m_s.ringSlots && last < m_end;
  }
  BLAC_INTERLEAVED_INLINE bool Holds(std::ptrdiff_t j) const { return Holds(j, j); }
  /// REQUIRES: Holds(j).
  BLAC_INTERLEAVED_INLINE Slot<lanes> const& X(std::ptrdiff_t j) const { return SlotsOf(j)[0]; }
  BLAC_INTERLEAVED_INLINE Slot<lanes>& Y(std::ptrdiff_t j) { return SlotsOf(j)[1]; }
  /// Loads element j from x itself.
  BLAC_INTERLEAVED_INLINE void LoadX(std::ptrdiff_t j, Slot<lanes>& x) const {
    Load<lanes>(m_s.x + j, m_s.rows, m_s.vectors, x);
  }
  /// Adds to an element of y that is not in the ring. The first element behind the ring clears all of y that
  /// has not entered yet.
  BLAC_INTERLEAVED void AddOutside(std::ptrdiff_t j, Slot<lanes> const& term) {
    if (j >= m_end && !m_isYSetAhead) {
      for (int v = 0; v < m_s.vectors; ++v)
        std::fill(m_s.y + v * m_s.rows + m_end, m_s.y + (v + 1) * m_s.rows, 0.0);
      m_isYSetAhead = true;
    }
    for (int v = 0; v < m_s.vectors; ++v)
      m_s.y[v * m_s.rows + j] += term[v];
  }
  /// Lets all elements enter, and stores the elements of y that are in the ring at the end.
  BLAC_INTERLEAVED void Finish() {
    EnterUpTo(m_s.rows);
    for (std::ptrdiff_t j = std::max<std::ptrdiff_t>(0, m_end - m_s.ringSlots); j < m_end; ++j)
      StoreY(j);
  }

private:
  BLAC_INTERLEAVED_INLINE Slot<lanes>* SlotsOf(std::ptrdiff_t j) const { return m_slots + 2 * (j & m_mask); }
  BLAC_INTERLEAVED_INLINE void StoreY(std::ptrdiff_t j) {
    Store<lanes>(Y(j), m_s.y + j, m_s.rows, m_s.vectors);
  }

  InterleavedOperands const& m_s;
  Slot<lanes>* m_slots;
  std::ptrdiff_t m_mask;
  std::ptrdiff_t m_end = 0; ///< the elements before it have entered
  bool m_isYSetAhead =
      false; ///< the elements of y from m_end on have been cleared, and may have been added to
};

/// A row that is being multiplied.
template<int lanes>
struct Row {
  Slot<lanes> x{};   ///< the element of x that belongs to the row
  Slot<lanes> sum{}; ///< of the entries so far
};

template<int lanes>
class SymmetricProduct {
public:
  BLAC_INTERLEAVED_INLINE explicit SymmetricProduct(InterleavedOperands const& s) : m_s(s), m_ring(s) {}

  BLAC_INTERLEAVED_INLINE void Multiply() {
    for (std::ptrdiff_t i = 0; i < m_s.columns;) {
      int const rows = CountRowsInGroup(i);
      PrefetchEntries(m_s.matrix.values + m_s.matrix.rowPointers[i], ColumnsOf(i),
                      m_s.matrix.rowPointers[i + rows] - m_s.matrix.rowPointers[i]);
      if (rows == rowsInGroup) {
        MultiplyGroup(i);
      } else {
        MultiplyRow(i);
      }
      i += rows;
    }
    m_ring.Finish();
  }

private:
  static constexpr int rowsInGroup = 3;

  BLAC_INTERLEAVED_INLINE std::ptrdiff_t Length(std::ptrdiff_t i) const {
    return m_s.matrix.rowPointers[i + 1] - m_s.matrix.rowPointers[i];
  }
  BLAC_INTERLEAVED_INLINE int const* ColumnsOf(std::ptrdiff_t i) const {
    return m_s.matrix.columnIndices + m_s.matrix.rowPointers[i];
  }

  /// rowsInGroup when row i and the next ones make a group, else 1. In a group all rows begin with the
  /// columns of row i, which ascend and lie before row i. The later rows may have more, as the unknowns of a
  /// node have below the diagonal:
  ///
  ///     row i       x x . x . .
  ///     row i + 1   x x . x x . .
  ///     row i + 2   x x . x x x . .
  BLAC_INTERLEAVED_INLINE int CountRowsInGroup(std::ptrdiff_t i) const {
    std::ptrdiff_t const length = Length(i);
    if (length < leastSharedColumns || i + rowsInGroup > m_s.columns) return 1;
    int const* const columns = ColumnsOf(i);
    if (columns[length - 1] >= i) return 1;
    for (int r = 1; r < rowsInGroup; ++r)
      if (Length(i + r) < length || !std::equal(columns, columns + length, ColumnsOf(i + r))) return 1;
    bool ascending = true;
    for (std::ptrdiff_t k = 1; k < length; ++k)
      ascending &= columns[k - 1] < columns[k];
    return ascending ? rowsInGroup : 1;
  }

  /// Multiplies the columns that the rows of a group share together, the other entries row by row. When the
  /// ring does not hold the shared columns, all of the group is multiplied row by row.
  BLAC_INTERLEAVED_INLINE void MultiplyGroup(std::ptrdiff_t i) {
    std::ptrdiff_t const length = Length(i);
    int const* const columns = ColumnsOf(i);
    m_ring.EnterUpTo(i + rowsInGroup);
    if (!m_ring.Holds(columns[0], i + rowsInGroup - 1)) {
      for (int r = 0; r < rowsInGroup; ++r)
        MultiplyRow(i + r);
      return;
    }
    double const* const values0 = m_s.matrix.values + m_s.matrix.rowPointers[i];
    double const* const values1 = m_s.matrix.values + m_s.matrix.rowPointers[i + 1];
    double const* const values2 = m_s.matrix.values + m_s.matrix.rowPointers[i + 2];
    Row<lanes> row0{m_ring.X(i)};
    Row<lanes> row1{m_ring.X(i + 1)};
    Row<lanes> row2{m_ring.X(i + 2)};
    for (std::ptrdiff_t k = 0; k < length; ++k) {
      Slot<lanes> const x = m_ring.X(columns[k]);
      Slot<lanes> y = m_ring.Y(columns[k]);
      row0.sum += values0[k] * x;
      y += values0[k] * row0.x;
      row1.sum += values1[k] * x;
      y += values1[k] * row1.x;
      row2.sum += values2[k] * x;
      y += values2[k] * row2.x;
      m_ring.Y(columns[k]) = y;
    }
    MultiplyRest(i, length, row0);
    MultiplyRest(i + 1, length, row1);
    MultiplyRest(i + 2, length, row2);
  }

  BLAC_INTERLEAVED_INLINE void MultiplyRow(std::ptrdiff_t i) {
    m_ring.EnterUpTo(EndOfRing(i));
    Row<lanes> row{m_ring.X(i)};
    MultiplyRest(i, 0, row);
  }

  /// One past the last element to hold for row i: its last column, limited so that element i stays in the
  /// ring.
  BLAC_INTERLEAVED_INLINE std::ptrdiff_t EndOfRing(std::ptrdiff_t i) const {
    std::ptrdiff_t const length = Length(i);
    int const* const columns = ColumnsOf(i);
    if (length == 0 || std::max(columns[0], columns[length - 1]) <= i) [[likely]]
      return i + 1;
    std::ptrdiff_t const last = *std::max_element(columns, columns + length);
    return std::min(last + 1, i + m_s.ringSlots);
  }

  /// Multiplies the entries of row i from the row's entry k on, and adds the diagonal and the row's sum to y.
  BLAC_INTERLEAVED_INLINE void MultiplyRest(std::ptrdiff_t i, std::ptrdiff_t k, Row<lanes>& row) {
    double const* const values = m_s.matrix.values + m_s.matrix.rowPointers[i];
    int const* const columns = ColumnsOf(i);
    for (std::ptrdiff_t const length = Length(i); k < length; ++k) {
      std::ptrdiff_t const j = columns[k];
      if (m_ring.Holds(j)) [[likely]] {
        row.sum += values[k] * m_ring.X(j);
        m_ring.Y(j) += values[k] * row.x;
      } else {
        MultiplyOutside(j, values[k], row);
      }
    }
    m_ring.Y(i) += m_s.diagonal[i] * row.x + row.sum;
  }
  /// Multiplies an entry whose column is not in the ring.
  BLAC_INTERLEAVED void MultiplyOutside(std::ptrdiff_t j, double value, Row<lanes>& row) {
    Slot<lanes> x;
    m_ring.LoadX(j, x);
    row.sum += value * x;
    m_ring.AddOutside(j, value * row.x);
  }

  InterleavedOperands const& m_s;
  Ring<lanes> m_ring;
};

template<int lanes>
BLAC_INTERLEAVED void MultiplySymmetric(InterleavedOperands const& s) {
  SymmetricProduct<lanes>(s).Multiply();
}

inline constexpr InterleavedKernels kernels{
    {&Multiply<2>, &Multiply<4>, &Multiply<8>},
    {&MultiplyTransposed<2>, &MultiplyTransposed<4>, &MultiplyTransposed<8>},
    {&MultiplySymmetric<2>, &MultiplySymmetric<4>, &MultiplySymmetric<8>}};

} // namespace orx::blac::BLAC_INTERLEAVED_NAMESPACE
