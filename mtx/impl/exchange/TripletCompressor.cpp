#include "mtx/impl/exchange/TripletCompressor.h"

#include "mtx/impl/exchange/RowAppender.h"
#include <algorithm>
#include <bit>
#include <climits>
#include <functional>
#include <vector>

namespace orx {

namespace {

/// Number of triplets wanted in a bucket: with their ordered copy they fit into a second-level cache of 1 MB.
constexpr std::int64_t bucketTriplets = 32768;

/// Up to this number of triplets, sorting a row is cheaper than looking up its columns.
constexpr std::size_t shortRow = 24;

} // namespace

/// A link of a bucket's chain; it is filled from the front.
struct TripletCompressor::Chunk {
  static constexpr int capacity = 63; ///< a chunk is as large as the allocator's largest small object
  Chunk* next;
  ORXSrvSparseMatrixEntry triplets[capacity];
};

struct TripletCompressor::Bucket {
  Chunk* first;
  Chunk* last;
  std::int64_t chunks;
  ORXSrvSparseMatrixEntry* next; ///< position of the next triplet, in the last chunk
  ORXSrvSparseMatrixEntry* end;  ///< end of the last chunk

  std::int64_t Triplets() const noexcept { return chunks * Chunk::capacity - (end - next); }
  /// Calls visit(triplet) in the order of Add.
  template<class Visit>
  void ForEach(Visit visit) const {
    for (Chunk const* chunk = first; chunk != nullptr; chunk = chunk->next) {
      // The chunks of a bucket may be scattered over all memory: the next one is fetched while this one is
      // read.
      for (std::size_t offset = 0; chunk->next != nullptr && offset < sizeof(Chunk); offset += 64)
        __builtin_prefetch(reinterpret_cast<char const*>(chunk->next) + offset);
      ORXSrvSparseMatrixEntry const* const chunkEnd =
          chunk == last ? next : chunk->triplets + Chunk::capacity;
      for (ORXSrvSparseMatrixEntry const* t = chunk->triplets; t != chunkEnd; ++t)
        visit(*t);
    }
  }
};

/// Workspace, reused from bucket to bucket and from row to row.
struct TripletCompressor::Workspace {
  // The triplets of a bucket ordered by row: row r has [r == 0 ? 0 : rowEnds[r - 1], rowEnds[r]).
  std::vector<std::int32_t> rowEnds;
  std::vector<std::uint32_t> columns;
  std::vector<double> values;

  // The last row whose slots were found, and its pattern: its distinct columns. A row with the same columns
  // in the same order, as the unknowns of one node have, reuses the slots; a row with the same pattern saves
  // the sort.
  std::span<std::uint32_t const> slotColumns;
  std::vector<std::uint32_t> slots;    ///< for each triplet: index of its column in the pattern
  std::int32_t distinct = 0;           ///< number of distinct columns
  std::int32_t patternStart = 0;       ///< position in the result of the pattern, which ascends
  std::vector<std::uint8_t> isTouched; ///< for each slot: true when a triplet has it

  std::vector<std::uint64_t> order; ///< column << 32 | index by first appearance, to be sorted
  std::vector<std::uint32_t> rank;
  /// For each column: its last position in the result, or -1. Positions only grow, so that a position below
  /// the current row's start means "not in this row", and nothing is reset between rows. Null when the matrix
  /// has so many more columns than triplets that the array would cost more than sorting.
  mem_Array<std::int32_t> lastPosition;

  /// Allocates for buckets of up to `rows` rows and `triplets` triplets: nothing can fail after that.
  void Reserve(std::int64_t rows, std::int64_t triplets) {
    auto const most = static_cast<std::size_t>(triplets);
    rowEnds.reserve(static_cast<std::size_t>(rows) + 1);
    columns.resize(most);
    values.resize(most);
    slots.reserve(most);
    isTouched.reserve(most);
    order.reserve(most);
    rank.reserve(most);
  }
};

TripletCompressor::TripletCompressor(std::int32_t rows, std::int32_t columns, std::int64_t expected) {
  std::int64_t const wanted = std::max<std::int64_t>(1, expected / bucketTriplets);
  std::int64_t const rowsPerBucket = (std::max(rows, 1) + wanted - 1) / wanted;
  m_bucketShift = static_cast<int>(std::bit_width(static_cast<std::uint64_t>(rowsPerBucket - 1)));
  Grow(rows, columns);
}

void TripletCompressor::Grow(std::int32_t rows, std::int32_t columns) {
  std::int64_t const buckets = (std::int64_t{rows} + (std::int64_t{1} << m_bucketShift) - 1) >> m_bucketShift;
  auto grown = mem_MakeArray<Bucket>(buckets);
  std::copy_n(m_buckets.get(), m_bucketCount, grown.get());
  std::fill(grown.get() + m_bucketCount, grown.get() + buckets, Bucket{});
  m_buckets = std::move(grown);
  m_bucketCount = buckets;
  m_rows = rows;
  m_columns = columns;
}

TripletCompressor::~TripletCompressor() {
  for (std::int64_t b = 0; b < m_bucketCount; ++b)
    FreeChunks(m_buckets[b]);
}

void TripletCompressor::FreeChunks(Bucket& bucket) noexcept {
  while (bucket.first != nullptr) {
    Chunk* const next = bucket.first->next;
    mem_Free(bucket.first);
    bucket.first = next;
  }
}

void TripletCompressor::OpenChunk(Bucket& bucket) {
  auto* const chunk = static_cast<Chunk*>(mem_OperatorNewTinyThrow(sizeof(Chunk)));
  chunk->next = nullptr;
  (bucket.first == nullptr ? bucket.first : bucket.last->next) = chunk;
  bucket.last = chunk;
  ++bucket.chunks;
  bucket.next = chunk->triplets;
  bucket.end = chunk->triplets + Chunk::capacity;
}

inline void TripletCompressor::AddTriplet(ORXSrvSparseMatrixEntry const& triplet) {
  Bucket& bucket = m_buckets[triplet.row >> m_bucketShift];
  if (bucket.next == bucket.end) OpenChunk(bucket);
  *bucket.next++ = triplet;
}

void TripletCompressor::Add(std::span<ORXSrvSparseMatrixEntry const> triplets) {
  for (ORXSrvSparseMatrixEntry const& triplet : triplets)
    AddTriplet(triplet);
}

void TripletCompressor::Add(TripletCompressor const& other) {
  for (std::int64_t b = 0; b < other.m_bucketCount; ++b)
    other.m_buckets[b].ForEach([&](ORXSrvSparseMatrixEntry const& triplet) { AddTriplet(triplet); });
}

void TripletCompressor::AddAndDrop(cow_List<ORXSrvSparseMatrixEntry>& triplets) {
  while (triplets.Count() > 0) {
    std::span<ORXSrvSparseMatrixEntry const> const run = triplets.RunFrom(0);
    int added = 0;
    try {
      for (; added < static_cast<int>(run.size()); ++added)
        AddTriplet(run[static_cast<std::size_t>(added)]);
    } catch (mem_OutOfMemory const&) {
      triplets.DropFront(added);
      throw;
    }
    triplets.DropFront(added);
  }
}

std::int64_t TripletCompressor::TripletsOfLargestBucket() const noexcept {
  std::int64_t most = 0;
  for (std::int64_t b = 0; b < m_bucketCount; ++b)
    most = std::max(most, m_buckets[b].Triplets());
  return most;
}

CompressedRows TripletCompressor::Compress() {
  std::int64_t count = 0;
  for (std::int64_t b = 0; b < m_bucketCount; ++b)
    count += m_buckets[b].Triplets();
  CompressedRows result;
  AllocateRowPointers(result, m_rows, m_columns);
  std::fill_n(result.rowPointers.get(), std::int64_t{m_rows} + 1, 0);
  if (count == 0) return result;
  // Memory for a matrix without duplicates. Pages that are not needed are never touched, and are freed below.
  ResizeEntries(result, count <= INT_MAX ? count : -1);
  Workspace workspace;
  workspace.Reserve(std::min<std::int64_t>(std::int64_t{1} << m_bucketShift, m_rows),
                    TripletsOfLargestBucket());
  if (m_columns <= 4 * count) {
    workspace.lastPosition = mem_MakeArray<std::int32_t>(m_columns);
    std::fill_n(workspace.lastPosition.get(), m_columns, -1);
  }
  for (std::int64_t b = 0; b < m_bucketCount; ++b)
    CompressBucket(static_cast<std::int32_t>(b << m_bucketShift), m_buckets[b], workspace, result);
  result.numberOfNonzeros = result.entries;
  ResizeEntries(result, result.entries); // cannot fail, because it only gives memory back
  return result;
}

void TripletCompressor::CompressBucket(std::int32_t firstRow, Bucket& bucket, Workspace& workspace,
                                       CompressedRows& result) {
  auto const rowsHere = static_cast<std::int32_t>(
      std::min<std::int64_t>(std::int64_t{1} << m_bucketShift, std::int64_t{m_rows} - firstRow));
  OrderByRow(firstRow, rowsHere, bucket, workspace);
  FreeChunks(bucket);
  workspace.slotColumns = {};
  std::int32_t begin = 0;
  for (std::int32_t r = 0; r < rowsHere; ++r) {
    std::int32_t const end = workspace.rowEnds[r];
    std::size_t const length = static_cast<std::size_t>(end - begin);
    CompressRow({workspace.columns.data() + begin, length}, workspace.values.data() + begin, workspace,
                result);
    result.rowPointers[std::int64_t{firstRow} + r + 1] = result.entries;
    begin = end;
  }
}

/// Orders the triplets of a bucket by row, with a stable counting sort.
void TripletCompressor::OrderByRow(std::int32_t firstRow, std::int32_t rowsHere, Bucket const& bucket,
                                   Workspace& workspace) {
  std::vector<std::int32_t>& ends = workspace.rowEnds;
  ends.assign(static_cast<std::size_t>(rowsHere) + 1, 0);
  bucket.ForEach([&](ORXSrvSparseMatrixEntry const& t) { ++ends[t.row - firstRow + 1]; });
  for (std::int32_t r = 0; r < rowsHere; ++r)
    ends[r + 1] += ends[r];
  // ends[r] is the start of row r now; each triplet of the row advances it, until it is the row's end.
  bucket.ForEach([&](ORXSrvSparseMatrixEntry const& t) {
    std::int32_t const p = ends[t.row - firstRow]++;
    workspace.columns[p] = t.column;
    workspace.values[p] = t.value;
  });
}

void TripletCompressor::CompressRow(std::span<std::uint32_t const> columns, double const* values,
                                    Workspace& workspace, CompressedRows& result) {
  if (std::adjacent_find(columns.begin(), columns.end(), std::greater_equal<>()) == columns.end())
    return AppendAscending(result, columns, values);
  bool const isLikeLast = std::ranges::equal(columns, workspace.slotColumns);
  if (!isLikeLast && (columns.size() <= shortRow || workspace.lastPosition == nullptr))
    return AppendSorted(result, columns, values, workspace.order);
  if (isLikeLast || FindSlotsInPattern(columns, workspace)) {
    std::copy_n(result.columnIndices.get() + workspace.patternStart, workspace.distinct,
                result.columnIndices.get() + result.entries);
  } else {
    FindSlots(columns, workspace, result);
  }
  double* const sums = result.values.get() + result.entries;
  std::fill_n(sums, workspace.distinct, -0.0); // -0.0 + x is x, also for zeros of either sign
  for (std::size_t e = 0; e < columns.size(); ++e)
    sums[workspace.slots[e]] += values[e];
  result.entries += workspace.distinct;
}

/// True when the row has the pattern found last; workspace.slots then has the slots of its triplets.
bool TripletCompressor::FindSlotsInPattern(std::span<std::uint32_t const> columns, Workspace& workspace) {
  if (workspace.slots.size() < columns.size()) workspace.slots.resize(columns.size());
  workspace.isTouched.assign(static_cast<std::size_t>(workspace.distinct), 0);
  std::int32_t untouched = workspace.distinct;
  for (std::size_t e = 0; e < columns.size(); ++e) {
    std::int32_t const slot = workspace.lastPosition[columns[e]] - workspace.patternStart;
    if (slot < 0 || slot >= workspace.distinct) return false;
    workspace.slots[e] = static_cast<std::uint32_t>(slot);
    untouched -= workspace.isTouched[slot] == 0 ? 1 : 0;
    workspace.isTouched[slot] = 1;
  }
  if (untouched != 0) return false;
  workspace.slotColumns = columns;
  return true;
}

/// Numbers the columns of the row by first appearance: workspace.slots gets the number of each triplet's
/// column, workspace.order each distinct column with its number.
void TripletCompressor::NumberColumns(std::span<std::uint32_t const> columns, std::int32_t start,
                                      Workspace& workspace) {
  std::int32_t* const lastPosition = workspace.lastPosition.get();
  workspace.order.clear();
  if (workspace.slots.size() < columns.size()) workspace.slots.resize(columns.size());
  for (std::size_t e = 0; e < columns.size(); ++e) {
    std::int32_t& position = lastPosition[columns[e]];
    if (position < start) {
      std::size_t const number = workspace.order.size();
      position = start + static_cast<std::int32_t>(number);
      workspace.order.push_back(std::uint64_t{columns[e]} << 32 | number);
    }
    workspace.slots[e] = static_cast<std::uint32_t>(position - start);
  }
}

/// Writes the distinct columns, ascending, to the result from `start` on, and the rank of each number into
/// workspace.rank.
void TripletCompressor::StoreSortedColumns(std::int32_t start, Workspace& workspace, CompressedRows& result) {
  std::sort(workspace.order.begin(), workspace.order.end());
  std::size_t const distinct = workspace.order.size();
  if (workspace.rank.size() < distinct) workspace.rank.resize(distinct);
  for (std::size_t k = 0; k < distinct; ++k) {
    auto const column = static_cast<std::uint32_t>(workspace.order[k] >> 32);
    workspace.rank[workspace.order[k] & UINT32_MAX] = static_cast<std::uint32_t>(k);
    result.columnIndices[start + k] = column;
    workspace.lastPosition[column] = start + static_cast<std::int32_t>(k);
  }
}

/// Writes the row's distinct columns, ascending, after the last entry of the result, and the slots of its
/// triplets into workspace.slots.
void TripletCompressor::FindSlots(std::span<std::uint32_t const> columns, Workspace& workspace,
                                  CompressedRows& result) {
  std::int32_t const start = result.entries;
  NumberColumns(columns, start, workspace);
  StoreSortedColumns(start, workspace, result);
  for (std::size_t e = 0; e < columns.size(); ++e)
    workspace.slots[e] = workspace.rank[workspace.slots[e]];
  workspace.slotColumns = columns;
  workspace.distinct = static_cast<std::int32_t>(workspace.order.size());
  workspace.patternStart = start;
}

} // namespace orx
