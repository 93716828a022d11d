#pragma once

#include "blac/sparse/PackedSweeps.h"

#include <algorithm>
#include <cstdint>

// The packed sweeps, for the instruction set of the source that includes this file. It defines
// BLAC_PACKED_SWEEP, the attributes of functions that use it, BLAC_PACKED_WIDTH, the doubles that a register
// of it holds, and BLAC_PACKED_NAMESPACE, where they are put.

#define BLAC_PACKED_INLINE BLAC_PACKED_SWEEP __attribute__((always_inline)) inline

namespace orx::blac::BLAC_PACKED_NAMESPACE {

/// One element of a group of vectors, in registers. Not one vector of all lanes: the compiler makes much of
/// one that is wider than a register go through memory.
template<int lanes>
struct __attribute__((may_alias)) Slot {
  static constexpr int width = std::min(lanes, BLAC_PACKED_WIDTH);
  static constexpr int registers = lanes / width;
  typedef double Register __attribute__((vector_size(width * sizeof(double)), may_alias));

  Slot() = default;
  /// Register by register: the compiler's own copy goes through memory.
  BLAC_PACKED_INLINE Slot(Slot const& other) { *this = other; }
  // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): copies registers onto themselves
  BLAC_PACKED_INLINE Slot& operator=(Slot const& other) {
    for (int r = 0; r < registers; ++r)
      parts[r] = other.parts[r];
    return *this;
  }
  BLAC_PACKED_INLINE double operator[](int v) const { return parts[v / width][v % width]; }
  BLAC_PACKED_INLINE Slot& operator+=(Slot const& other) {
    for (int r = 0; r < registers; ++r)
      parts[r] += other.parts[r];
    return *this;
  }

  Register parts[registers];
};
template<int lanes>
BLAC_PACKED_INLINE Slot<lanes> operator*(double a, Slot<lanes> x) {
  for (int r = 0; r < Slot<lanes>::registers; ++r)
    x.parts[r] *= a;
  return x;
}
template<int lanes>
BLAC_PACKED_INLINE Slot<lanes> operator+(Slot<lanes> x, Slot<lanes> const& y) {
  return x += y;
}

/// Element 0 of each vector from a slot.
template<int lanes>
BLAC_PACKED_INLINE void Store(Slot<lanes> const& slot, double* to, std::ptrdiff_t stride, int vectors) {
  for (int v = 0; v < lanes; ++v)
    if (v < vectors) to[v * stride] = slot[v];
}

/// Element 0 of each vector into a slot, zeros behind them. Its registers are filled before they are stored:
/// what has just been stored in pieces cannot be loaded as a whole without waiting.
template<int lanes>
BLAC_PACKED_INLINE void Load(double const* from, std::ptrdiff_t stride, int vectors, Slot<lanes>& slot) {
  constexpr int width = Slot<lanes>::width;
  for (int first = 0; first < lanes; first += width) {
    typename Slot<lanes>::Register part{};
    for (int v = 0; v < width; ++v)
      part[v] = first + v < vectors ? from[(first + v) * stride] : 0.0;
    slot.parts[first / width] = part;
  }
}

/// Fetches a and ja of entries ahead of those of a row or some, which pays as in the kernels with several
/// vectors.
BLAC_PACKED_INLINE void FetchAhead(double const* a, int const* ja, std::ptrdiff_t entries) {
  constexpr std::ptrdiff_t line = 64;
  constexpr std::ptrdiff_t bytesAhead = 8192;
  auto const* const fromA = reinterpret_cast<char const*>(a) + bytesAhead;
  auto const* const fromJa = reinterpret_cast<char const*>(ja) + bytesAhead / 2;
  for (std::ptrdiff_t byte = 0; byte < entries * std::ptrdiff_t{sizeof(double)}; byte += line)
    __builtin_prefetch(fromA + byte, 0, 2);
  for (std::ptrdiff_t byte = 0; byte < entries * std::ptrdiff_t{sizeof(int)}; byte += line)
    __builtin_prefetch(fromJa + byte, 0, 2);
}

// ---- products of the general form

/// Fetches the slot of the entry that comes a hundred or so after entry k, to the second level of the cache:
/// more requests can be on their way to it than the processor makes when it works row by row.
template<int lanes>
BLAC_PACKED_INLINE void FetchSlotAhead(PackedSweep const& s, std::ptrdiff_t k) {
  constexpr std::ptrdiff_t entriesAhead = 128;
  if (k + entriesAhead < s.ia[s.rows])
    __builtin_prefetch(s.scratch + s.ja[k + entriesAhead] * std::ptrdiff_t{lanes}, 0, 2);
}

template<int lanes>
BLAC_PACKED_SWEEP void Product(PackedSweep const& s) {
  auto* const x = reinterpret_cast<Slot<lanes>*>(s.scratch);
  for (std::ptrdiff_t j = 0; j < s.columns; ++j)
    Load<lanes>(s.x + j, s.columns, s.vectors, x[j]);
  for (std::ptrdiff_t i = 0; i < s.rows; ++i) {
    Slot<lanes> sum{};
    for (std::ptrdiff_t k = s.ia[i]; k < s.ia[i + 1]; ++k) {
      FetchSlotAhead<lanes>(s, k);
      sum += s.a[k] * x[s.ja[k]];
    }
    Store<lanes>(sum, s.y + i, s.rows, s.vectors);
  }
}

template<int lanes>
BLAC_PACKED_SWEEP void TransposedProduct(PackedSweep const& s) {
  auto* const y = reinterpret_cast<Slot<lanes>*>(s.scratch);
  std::fill_n(s.scratch, PackedScratch(s.columns, lanes), 0.0);
  for (std::ptrdiff_t i = 0; i < s.rows; ++i) {
    Slot<lanes> factor;
    Load<lanes>(s.x + i, s.rows, s.vectors, factor);
    for (std::ptrdiff_t k = s.ia[i]; k < s.ia[i + 1]; ++k) {
      FetchSlotAhead<lanes>(s, k);
      y[s.ja[k]] += s.a[k] * factor;
    }
  }
  for (std::ptrdiff_t j = 0; j < s.columns; ++j)
    Store<lanes>(y[j], s.y + j, s.columns, s.vectors);
}

// ---- the product of the symmetric form

/// The `slots` elements before m_end of x and y, in slots of their own, x beside y. Elements enter in
/// ascending order; the oldest one leaves to make room, its y to where y belongs.
template<int lanes>
class Ring {
public:
  explicit Ring(PackedSweep const& s)
      : m_sweep(s), m_slots(reinterpret_cast<Slot<lanes>*>(s.scratch)), m_mask(s.slots - 1) {}

  BLAC_PACKED_INLINE void EnterUpTo(std::ptrdiff_t end) {
    for (; m_end < end; ++m_end) {
      if (m_end >= m_sweep.slots) StoreY(m_end - m_sweep.slots);
      LoadX(m_end, At(m_end)[0]);
      if (m_isYSetAhead) {
        Load<lanes>(m_sweep.y + m_end, m_sweep.rows, m_sweep.vectors, Y(m_end));
      } else {
        Y(m_end) = Slot<lanes>{};
      }
    }
  }
  BLAC_PACKED_INLINE bool Holds(std::ptrdiff_t first, std::ptrdiff_t last) const {
    return first >= m_end - m_sweep.slots && last < m_end;
  }
  BLAC_PACKED_INLINE bool Holds(std::ptrdiff_t j) const { return Holds(j, j); }
  BLAC_PACKED_INLINE Slot<lanes> const& X(std::ptrdiff_t j) const { return At(j)[0]; }
  BLAC_PACKED_INLINE Slot<lanes>& Y(std::ptrdiff_t j) { return At(j)[1]; }
  BLAC_PACKED_INLINE void LoadX(std::ptrdiff_t j, Slot<lanes>& x) const {
    Load<lanes>(m_sweep.x + j, m_sweep.rows, m_sweep.vectors, x);
  }
  /// Adds to an element of y that is not in the ring.
  BLAC_PACKED_SWEEP void AddOutside(std::ptrdiff_t j, Slot<lanes> const& term) {
    if (j >= m_end && !m_isYSetAhead) {
      for (int v = 0; v < m_sweep.vectors; ++v)
        std::fill(m_sweep.y + v * m_sweep.rows + m_end, m_sweep.y + (v + 1) * m_sweep.rows, 0.0);
      m_isYSetAhead = true;
    }
    for (int v = 0; v < m_sweep.vectors; ++v)
      m_sweep.y[v * m_sweep.rows + j] += term[v];
  }
  /// Brings all of y to where it belongs.
  BLAC_PACKED_SWEEP void Finish() {
    EnterUpTo(m_sweep.rows);
    for (std::ptrdiff_t j = std::max<std::ptrdiff_t>(0, m_end - m_sweep.slots); j < m_end; ++j)
      StoreY(j);
  }

private:
  BLAC_PACKED_INLINE Slot<lanes>* At(std::ptrdiff_t j) const { return m_slots + 2 * (j & m_mask); }
  BLAC_PACKED_INLINE void StoreY(std::ptrdiff_t j) {
    Store<lanes>(Y(j), m_sweep.y + j, m_sweep.rows, m_sweep.vectors);
  }

  PackedSweep const& m_sweep;
  Slot<lanes>* m_slots;
  std::ptrdiff_t m_mask;
  std::ptrdiff_t m_end = 0;
  bool m_isYSetAhead = false; ///< y from m_end on has been cleared in its place and may have been added to
};

/// A row's share of the product, as far as it has been made.
template<int lanes>
struct RowSums {
  Slot<lanes> x{};   ///< x of the row
  Slot<lanes> sum{}; ///< of the row's entries so far
};

template<int lanes>
class SymmetricProduct {
public:
  BLAC_PACKED_INLINE explicit SymmetricProduct(PackedSweep const& s) : m_s(s), m_ring(s) {}

  BLAC_PACKED_INLINE void Perform() {
    for (std::ptrdiff_t i = 0; i < m_s.columns;) {
      int const rows = RowsAlike(i);
      FetchAhead(m_s.a + m_s.ia[i], m_s.ja + m_s.ia[i], m_s.ia[i + rows] - m_s.ia[i]);
      if (rows == mostRows) {
        AddBlock(i);
      } else {
        AddRow(i);
      }
      i += rows;
    }
    m_ring.Finish();
  }

private:
  static constexpr int mostRows = 3;
  /// Comparing the columns of rows shorter than this costs more than it can save.
  static constexpr std::ptrdiff_t leastSharedColumns = 12;
  using Sums = RowSums<lanes>;

  BLAC_PACKED_INLINE std::ptrdiff_t Length(std::ptrdiff_t i) const { return m_s.ia[i + 1] - m_s.ia[i]; }
  BLAC_PACKED_INLINE int const* ColumnsOf(std::ptrdiff_t i) const { return m_s.ja + m_s.ia[i]; }

  /// mostRows when these rows can be taken together, else 1: all begin with the columns of the first, which
  /// ascend and end before the rows' own, as the unknowns of a node do below the diagonal.
  BLAC_PACKED_INLINE int RowsAlike(std::ptrdiff_t i) const {
    std::ptrdiff_t const length = Length(i);
    if (length < leastSharedColumns || i + mostRows > m_s.columns) return 1;
    int const* const columns = ColumnsOf(i);
    if (columns[length - 1] >= i) return 1;
    for (int r = 1; r < mostRows; ++r)
      if (Length(i + r) < length || !std::equal(columns, columns + length, ColumnsOf(i + r))) return 1;
    bool ascending = true;
    for (std::ptrdiff_t k = 1; k < length; ++k)
      ascending &= columns[k - 1] < columns[k];
    return ascending ? mostRows : 1;
  }

  BLAC_PACKED_INLINE void AddBlock(std::ptrdiff_t i) {
    std::ptrdiff_t const length = Length(i);
    int const* const columns = ColumnsOf(i);
    m_ring.EnterUpTo(i + mostRows);
    if (!m_ring.Holds(columns[0], i + mostRows - 1)) {
      for (int r = 0; r < mostRows; ++r)
        AddRow(i + r);
      return;
    }
    double const* const a0 = m_s.a + m_s.ia[i];
    double const* const a1 = m_s.a + m_s.ia[i + 1];
    double const* const a2 = m_s.a + m_s.ia[i + 2];
    Sums row0{m_ring.X(i)};
    Sums row1{m_ring.X(i + 1)};
    Sums row2{m_ring.X(i + 2)};
    for (std::ptrdiff_t k = 0; k < length; ++k) {
      Slot<lanes> const x = m_ring.X(columns[k]);
      Slot<lanes> y = m_ring.Y(columns[k]);
      row0.sum += a0[k] * x;
      y += a0[k] * row0.x;
      row1.sum += a1[k] * x;
      y += a1[k] * row1.x;
      row2.sum += a2[k] * x;
      y += a2[k] * row2.x;
      m_ring.Y(columns[k]) = y;
    }
    AddRest(i, length, row0);
    AddRest(i + 1, length, row1);
    AddRest(i + 2, length, row2);
  }

  BLAC_PACKED_INLINE void AddRow(std::ptrdiff_t i) {
    m_ring.EnterUpTo(EndToEnter(i));
    Sums row{m_ring.X(i)};
    AddRest(i, 0, row);
  }

  /// Where the window should end for row i: behind its last column, but row i itself must not leave.
  BLAC_PACKED_INLINE std::ptrdiff_t EndToEnter(std::ptrdiff_t i) const {
    std::ptrdiff_t const length = Length(i);
    int const* const columns = ColumnsOf(i);
    if (length == 0 || std::max(columns[0], columns[length - 1]) <= i) [[likely]]
      return i + 1;
    std::ptrdiff_t const last = *std::max_element(columns, columns + length);
    return std::min(last + 1, i + m_s.slots);
  }

  /// Entries from k on and the diagonal of a row.
  BLAC_PACKED_INLINE void AddRest(std::ptrdiff_t i, std::ptrdiff_t k, Sums& row) {
    double const* const a = m_s.a + m_s.ia[i];
    int const* const columns = ColumnsOf(i);
    for (std::ptrdiff_t const length = Length(i); k < length; ++k) {
      std::ptrdiff_t const j = columns[k];
      if (m_ring.Holds(j)) [[likely]] {
        row.sum += a[k] * m_ring.X(j);
        m_ring.Y(j) += a[k] * row.x;
      } else {
        AddOutside(j, a[k], row);
      }
    }
    m_ring.Y(i) += m_s.diagonal[i] * row.x + row.sum;
  }
  /// An entry whose column is not in the window.
  BLAC_PACKED_SWEEP void AddOutside(std::ptrdiff_t j, double a, Sums& row) {
    Slot<lanes> x;
    m_ring.LoadX(j, x);
    row.sum += a * x;
    m_ring.AddOutside(j, a * row.x);
  }

  PackedSweep const& m_s;
  Ring<lanes> m_ring;
};

template<int lanes>
BLAC_PACKED_SWEEP void MultiplySymmetric(PackedSweep const& s) {
  SymmetricProduct<lanes>(s).Perform();
}

inline constexpr PackedSweepSet sweepSet{
    {&Product<2>, &Product<4>, &Product<8>},
    {&TransposedProduct<2>, &TransposedProduct<4>, &TransposedProduct<8>},
    {&MultiplySymmetric<2>, &MultiplySymmetric<4>, &MultiplySymmetric<8>}};

} // namespace orx::blac::BLAC_PACKED_NAMESPACE
