#include "blac/sparse/KernelChoice.h"

#include "blac/sparse/CacheSizes.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cstdlib>

namespace orx::blac {

namespace {

constexpr int noneIsInterleaved = INT_MAX;

/// The lanes of a slot that holds this number of vectors.
int LanesFor(int vectors) {
  return static_cast<int>(
      std::bit_ceil(static_cast<unsigned>(std::min(vectors, InterleavedKernels::mostLanes))));
}

/// The number of vectors, from the first one on, that are interleaved when groups of `fewest` and more are.
int CountInterleaved(int vectors, int fewest) {
  if (vectors < fewest) return 0;
  int const rest = vectors % InterleavedKernels::mostLanes;
  return rest >= fewest ? vectors : vectors - rest;
}

/// The table of kernels for a kind of product.
template<class Kernels>
auto KernelsFor(SparseProduct::Kind kind, Kernels const& kernels) {
  switch (kind) {
  case SparseProduct::Kind::General:
    return &kernels.product[0];
  case SparseProduct::Kind::Transposed:
    return &kernels.transposedProduct[0];
  case SparseProduct::Kind::Symmetric:
    break;
  }
  return &kernels.symmetricProduct[0];
}

/// Interleaved kernels want a workspace that begins with a cache line: a slot of eight lanes then fills one.
constexpr std::uintptr_t alignment = cacheLineBytes;

double* Align(double* workspace) {
  auto const address = reinterpret_cast<std::uintptr_t>(workspace);
  return workspace + (-address & (alignment - 1)) / sizeof(double);
}

} // namespace

SparseProduct::SparseProduct(Kind kind, RowArrays const& matrix, std::int32_t rows, std::int32_t columns,
                             RowPattern pattern, int vectors)
    : m_matrix(matrix), m_rows(rows), m_columns(columns), m_vectors(vectors), m_kind(kind),
      m_pattern(pattern) {
  m_interleaved = CountInterleaved(vectors, FewestToInterleave());
  if (m_interleaved > 0 && kind == Kind::Symmetric) m_ringSlots = ChooseRingSlots();
}

/// True when an entry misses the cache for each vector of a group.
bool SparseProduct::IsScattered() const {
  return m_pattern == RowPattern::Scattered && m_vectors > 0 && IsBeyondCache(m_columns, m_vectors);
}

/// The fewest vectors of a group for which interleaving is faster than the SpMV kernels. These make use of
/// shared and of shifted columns. In irregular rows the SpMV kernels are as fast for few vectors, and in
/// short rows, which use a slot only a few times, for any number. The numbers are measured.
int SparseProduct::FewestToInterleave() const {
  constexpr std::int64_t longRow = 10;
  bool const isScattered = IsScattered();
  if (m_kind == Kind::Symmetric) {
    if (isScattered) return 5;
    if (m_pattern == RowPattern::SharedColumns) return 3;
    return m_pattern == RowPattern::Irregular ? 7 : noneIsInterleaved;
  }
  if (isScattered) return 2;
  if (m_pattern != RowPattern::Irregular) return noneIsInterleaved;
  return m_matrix.rowPointers[m_rows] > longRow * m_rows ? 5 : noneIsInterleaved;
}

/// A ring that stays in the second-level cache. When such a ring is too small for more than one entry of a
/// row, on average over a sample of the rows, it gets a slot for each row instead.
std::int64_t SparseProduct::ChooseRingSlots() const {
  auto const allRows = static_cast<std::int64_t>(std::bit_ceil(static_cast<std::uint64_t>(m_rows)));
  std::int64_t const slots =
      secondLevelCacheBytes / (2 * LanesFor(m_interleaved) * std::int64_t{sizeof(double)});
  if (m_rows <= slots) return allRows;
  std::int64_t outside = 0;
  std::int64_t const visited = VisitSampleRows(m_columns, [&](std::int64_t i) {
    for (int k = m_matrix.rowPointers[i]; k < m_matrix.rowPointers[i + 1]; ++k)
      outside += static_cast<std::int64_t>(std::abs(m_matrix.columnIndices[k] - i) >= slots);
  });
  return outside > visited ? allRows : slots;
}

std::int64_t SparseProduct::WorkspaceSize() const {
  if (m_interleaved == 0) return 0;
  int const lanes = LanesFor(m_interleaved);
  std::int64_t const size =
      m_kind == Kind::Symmetric ? RingWorkspace(m_ringSlots, lanes) : InterleavedWorkspace(m_columns, lanes);
  return size + std::int64_t{alignment / sizeof(double)};
}

void SparseProduct::Multiply(double const* diagonal, double const* x, double* y, double* workspace) const {
  if (m_interleaved > 0)
    MultiplyInterleaved({m_matrix, diagonal, m_rows, m_columns, 0, x, y, Align(workspace), m_ringSlots});
  std::ptrdiff_t const done = m_interleaved;
  MultiplyGroups(
      KernelsFor(m_kind, ChooseSpmvKernels()),
      {m_matrix, nullptr, m_rows, m_columns, x + done * LengthOfX(), y + done * LengthOfY(), diagonal},
      LengthOfX(), LengthOfY(), m_vectors - m_interleaved, IsScattered() ? 1 : vectorsInGroup);
}

void SparseProduct::MultiplyInterleaved(InterleavedOperands operands) const {
  auto const* const kernels = KernelsFor(m_kind, ChooseInterleavedKernels());
  for (int left = m_interleaved; left > 0; left -= operands.vectors) {
    operands.vectors = std::min(left, InterleavedKernels::mostLanes);
    kernels[InterleavedKernels::IndexOf(LanesFor(operands.vectors))](operands);
    operands.x += operands.vectors * LengthOfX();
    operands.y += operands.vectors * LengthOfY();
  }
}

} // namespace orx::blac
