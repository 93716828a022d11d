#include "mtx/impl/sparse/PackedProducts.h"

#include "blac/sparse/PackedSweeps.h"
#include "blac/sparse/SparseSweeps.h"
#include "core/mem_Allocator.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cstdlib>

namespace orx {

namespace {

using orx::blac::PackedSweep;
using orx::blac::PackedSweepSet;

constexpr std::int64_t secondLevelCache = std::int64_t{1} << 20;

/// Doubles from a multiple of 64 bytes on.
class Scratch {
public:
  explicit Scratch(std::int64_t size) : m_memory(mem_MakeArray<double>(size + spare)) {}
  double* Begin() const {
    auto const address = reinterpret_cast<std::uintptr_t>(m_memory.get());
    return m_memory.get() + (-address & (alignment - 1)) / sizeof(double);
  }

private:
  static constexpr std::uintptr_t alignment = 64;
  static constexpr std::int64_t spare = alignment / sizeof(double);
  mem_Array<double> m_memory;
};

/// The lanes for a number of vectors: a power of two that holds them.
int LanesFor(int vectors) {
  return static_cast<int>(
      std::bit_ceil(static_cast<unsigned>(std::min(vectors, PackedSweepSet::widestLanes))));
}

constexpr int noneIsPacked = INT_MAX;

/// How many vectors, from the first one on, are packed when groups of `fewest` and more are.
int VectorsToPack(int vectors, int fewest) {
  if (vectors < fewest) return 0;
  int const rest = vectors % PackedSweepSet::widestLanes;
  return rest >= fewest ? vectors : vectors - rest;
}

/// Performs the sweep for groups of eight vectors and the rest. x and y step by one vector's length.
void SweepOverGroups(PackedSweepSet::Sweep const* sweeps, PackedSweep sweep, std::ptrdiff_t lengthX,
                     std::ptrdiff_t lengthY, int vectors) {
  for (; vectors > 0; vectors -= sweep.vectors) {
    sweep.vectors = std::min(vectors, PackedSweepSet::widestLanes);
    sweeps[PackedSweepSet::IndexOf(LanesFor(sweep.vectors))](sweep);
    sweep.x += sweep.vectors * lengthX;
    sweep.y += sweep.vectors * lengthY;
  }
}

} // namespace

/// Where rows have something in common, the kernels make use of it; where they have not, they are as fast as
/// packing for few vectors, the more so for short rows, which are soon done with a slot.
int PackedProducts::FewestToPack(int vectors) const {
  constexpr std::int64_t longRow = 10;
  if (IsScattered(vectors)) return 2;
  if (m_pattern != RowPattern::Irregular) return noneIsPacked;
  return m_rowPointers[m_rows] > longRow * m_rows ? 5 : 7;
}

int PackedProducts::FewestToPackSymmetric(int vectors) const {
  if (IsScattered(vectors)) return 5;
  if (m_pattern == RowPattern::Alike) return 3;
  return m_pattern == RowPattern::Irregular ? 7 : noneIsPacked;
}

/// Whether an entry anywhere misses the cache for each vector of a group.
bool PackedProducts::IsScattered(int vectors) const {
  return m_pattern == RowPattern::Scattered && AreBeyondCache(m_columns, vectors);
}

void PackedProducts::Multiply(double const* x, int vectors, double* y) const {
  int const packed = VectorsToPack(vectors, FewestToPack(vectors));
  if (packed > 0) {
    Scratch const scratch(blac::PackedScratch(m_columns, LanesFor(packed)));
    SweepOverGroups(blac::PackedSweepsOfThisProcessor().product, SweepWith(x, y, scratch.Begin()), m_columns,
                    m_rows, packed);
  }
  blac::SweepOverGroups(
      blac::SparseSweepsOfThisProcessor().product,
      KernelWith(x + std::ptrdiff_t{packed} * m_columns, y + std::ptrdiff_t{packed} * m_rows), m_columns,
      m_rows, vectors - packed);
}

void PackedProducts::MultiplyTransposed(double const* x, int vectors, double* y) const {
  int const packed = VectorsToPack(vectors, FewestToPack(vectors));
  if (packed > 0) {
    Scratch const scratch(blac::PackedScratch(m_columns, LanesFor(packed)));
    SweepOverGroups(blac::PackedSweepsOfThisProcessor().transposedProduct, SweepWith(x, y, scratch.Begin()),
                    m_rows, m_columns, packed);
  }
  blac::SweepOverGroups(
      blac::SparseSweepsOfThisProcessor().transposedProduct,
      KernelWith(x + std::ptrdiff_t{packed} * m_rows, y + std::ptrdiff_t{packed} * m_columns), m_rows,
      m_columns, vectors - packed);
}

void PackedProducts::MultiplySymmetric(double const* diagonal, double const* x, int vectors,
                                       double* y) const {
  int const packed = VectorsToPack(vectors, FewestToPackSymmetric(vectors));
  if (packed > 0) {
    int const lanes = LanesFor(packed);
    std::int64_t const slots = SlotsOfRing(lanes);
    Scratch const scratch(blac::SymmetricScratch(slots, lanes));
    PackedSweep sweep = SweepWith(x, y, scratch.Begin());
    sweep.diagonal = diagonal;
    sweep.slots = slots;
    SweepOverGroups(blac::PackedSweepsOfThisProcessor().symmetricProduct, sweep, m_rows, m_rows, packed);
  }
  std::ptrdiff_t const done = std::ptrdiff_t{packed} * m_rows;
  blac::SparseSweep sweep = KernelWith(x + done, y + done);
  sweep.diagonal = diagonal;
  blac::SweepOverGroups(blac::SparseSweepsOfThisProcessor().symmetricProduct, sweep, m_rows, m_rows,
                        vectors - packed, IsScattered(vectors) ? 1 : blac::vectorsInGroup);
}

/// A ring that stays in the second-level cache, or, when that is too small for many of the entries, one for
/// all rows.
std::int64_t PackedProducts::SlotsOfRing(int lanes) const {
  std::int64_t const slots = secondLevelCache / (2 * lanes * std::int64_t{sizeof(double)});
  if (m_rows <= slots) return static_cast<std::int64_t>(std::bit_ceil(static_cast<std::uint64_t>(m_rows)));
  std::int64_t outside = 0;
  std::int64_t const visited = ForSomeRows(m_columns, [&](std::int64_t i) {
    for (std::int32_t k = m_rowPointers[i]; k < m_rowPointers[i + 1]; ++k)
      outside += static_cast<std::int64_t>(std::abs(m_columnIndices[k] - i) >= slots);
  });
  return outside > visited ? static_cast<std::int64_t>(std::bit_ceil(static_cast<std::uint64_t>(m_rows)))
                           : slots;
}

blac::SparseSweep PackedProducts::KernelWith(double const* x, double* y) const {
  return {m_values, m_rowPointers, m_columnIndices, nullptr, m_rows, m_columns, x, y};
}

PackedSweep PackedProducts::SweepWith(double const* x, double* y, double* scratch) const {
  return {m_values, m_rowPointers, m_columnIndices, nullptr, m_rows, m_columns, 0, x, y, scratch, 0};
}

} // namespace orx
