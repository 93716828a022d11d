#include "mtx/impl/PackedProducts.h"

#include "blac/impl/PackedSweeps.h"
#include "blac/impl/SparseSweeps.h"
#include "core/mem_Allocator.h"
#include "mtx/impl/PatternTests.h"

#include <algorithm>
#include <bit>
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
int LanesFor(int vectors) { return static_cast<int>(std::bit_ceil(static_cast<unsigned>(vectors))); }

int WidestLanes(int vectors) { return LanesFor(std::min(vectors, PackedSweepSet::widestLanes)); }

/// Performs the sweep for groups of eight vectors and the rest. x and y step by one vector's length.
void SweepOverGroups(PackedSweepSet::Sweep const* sweeps, PackedSweep sweep, std::ptrdiff_t lengthX,
                     std::ptrdiff_t lengthY, int vectors) {
  for (; vectors > 0; vectors -= sweep.vectors) {
    sweep.vectors = std::min(vectors, PackedSweepSet::widestLanes);
    sweeps[std::countr_zero(static_cast<unsigned>(LanesFor(sweep.vectors)))](sweep);
    sweep.x += sweep.vectors * lengthX;
    sweep.y += sweep.vectors * lengthY;
  }
}

} // namespace

bool PackedProducts::Pay(int vectors) const {
  if (vectors < 2 ||
      std::int64_t{m_columns} * WidestLanes(vectors) * std::int64_t{sizeof(double)} < 2 * secondLevelCache)
    return false;
  return HasScatteredColumns(m_rowPointers, reinterpret_cast<std::uint32_t const*>(m_columnIndices), m_rows);
}

void PackedProducts::Multiply(double const* x, int vectors, double* y) const {
  Scratch const scratch(orx::blac::PackedScratch(m_columns, WidestLanes(vectors)));
  SweepOverGroups(orx::blac::PackedSweepsOfThisProcessor().product, SweepWith(x, y, scratch.Begin()),
                  m_columns, m_rows, vectors);
}

void PackedProducts::MultiplyTransposed(double const* x, int vectors, double* y) const {
  Scratch const scratch(orx::blac::PackedScratch(m_columns, WidestLanes(vectors)));
  SweepOverGroups(orx::blac::PackedSweepsOfThisProcessor().transposedProduct,
                  SweepWith(x, y, scratch.Begin()), m_rows, m_columns, vectors);
}

void PackedProducts::MultiplySymmetric(double const* diagonal, double const* x, int vectors,
                                       double* y) const {
  if (vectors < 1) return;
  orx::blac::SparseSweepSet const& sweeps = orx::blac::SparseSweepsOfThisProcessor();
  if (&sweeps != &orx::blac::plainSparseSweeps &&
      IsGridBelowDiagonal(m_rowPointers, m_columnIndices, m_columns))
    return orx::blac::SweepOverGroups(
        sweeps.symmetricProduct,
        {m_values, m_rowPointers, m_columnIndices, nullptr, m_rows, m_columns, x, y, diagonal}, m_rows,
        m_rows, vectors);
  int const lanes = WidestLanes(vectors);
  std::int64_t const slots = lanes > 1 ? SlotsOfRing(lanes) : 0;
  Scratch const scratch(orx::blac::SymmetricScratch(slots, lanes));
  PackedSweep sweep = SweepWith(x, y, scratch.Begin());
  sweep.diagonal = diagonal;
  sweep.slots = slots;
  SweepOverGroups(orx::blac::PackedSweepsOfThisProcessor().symmetricProduct, sweep, m_rows, m_rows, vectors);
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

PackedSweep PackedProducts::SweepWith(double const* x, double* y, double* scratch) const {
  return {m_values, m_rowPointers, m_columnIndices, nullptr, m_rows, m_columns, 0, x, y, scratch, 0};
}

} // namespace orx
