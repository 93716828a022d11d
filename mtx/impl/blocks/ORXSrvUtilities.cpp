#include "mtx/ORXSrvUtilities.h"

#include "core/mem_Allocator.h"
#include "mtx/impl/blocks/ORXSrvUtilitiesChunks.h"
#include "sim/ORXSimCSet.h"
#include "sim/ORXSimCollection.h"
#include "sim/ORXSimContext.h"
#include "sim/ORXSimDistribution.h"
#include "sim/ORXSimGrid.h"
#include "sim/ORXSimRange.h"
#include "sim/ORXSimTransfer.h"

#include <algorithm>
#include <cstdint>

namespace {

constexpr int notChunked = -1;

// The member sets of a grid, or its chunk lengths, dimension 0 first.
using Sets = ORXSimArray<ORXSimCSetID>;
using Chunks = ORXSimArray<int>;

/// The position and the type of a new distribution.
struct Place {
  ORXSimTransaction& transaction;
  ORXSrvPosition position;
  int typeIndex; ///< negative: untyped
};

// Member sets of one collection

bool AreOfOneCollection(ORXSimCSetID const& a, ORXSimCSetID const& b) {
  return a.Collection().Equal(b.Collection());
}

/// Moves `later` to colour 1 when both sets are of one collection. Returns true when they were.
bool MakeDistinct(ORXSimCSetID const& earlier, ORXSimCSetID& later) {
  if (!AreOfOneCollection(earlier, later)) return false;
  later = later.OnColorVariant(1);
  return true;
}

/// Returns the sets of a dense matrix as the database has them, columns before rows; makes two sets of one
/// collection distinct.
Sets DenseMatrixSets(ORXSimCSetID const& rows, ORXSimCSetID columns) {
  MakeDistinct(rows, columns);
  return {columns, rows};
}

/// Makes all sets distinct. Returns the number of moves. A set that was moved is compared in its new colour.
int MakeAllDistinct(Sets& sets) {
  int moved = 0;
  for (int i = 0; i < sets.Size(); ++i)
    for (int j = i + 1; j < sets.Size(); ++j)
      if (MakeDistinct(sets[i], sets[j])) ++moved;
  return moved;
}

// Creation

ORXSimGrid GridOf(Sets const& sets) {
  ORXSimArray<ORXSimCollectionID> collections;
  for (ORXSimCSetID const& set : sets)
    collections.Append(set.Collection());
  return ORXSimGrid(collections);
}

ORXSimDistributionID CreateIn(ORXSimContextID context, Sets const& sets, ORXSimTypeKey cells) {
  return ORXSimContext(context).CreateDistribution(GridOf(sets), ORXSimRangeType(cells), ORXSimTypeID());
}

ORXSimDistributionID CreateAt(Place const& place, Sets const& sets) {
  ORXSimRangeType const doubles(ORXSimTypeKey::Double);
  if (place.typeIndex < 0) return place.position.CreateDistribution(place.transaction, GridOf(sets), doubles);
  return place.position.CreateTypedDistribution(place.transaction, GridOf(sets), place.typeIndex, doubles);
}

ORXSimDistributionID CreateTemporaryAt(Place const& place, Sets const& sets) {
  ORXSimContext const context = place.position.Context();
  ORXSimTypeID const type = place.typeIndex < 0 ? ORXSimTypeID() : context.Schema().TypeID(place.typeIndex);
  return context.CreateTempDistribution(GridOf(sets), ORXSimRangeType(ORXSimTypeKey::Double), type);
}

// Drawers

/// Returns the chunk lengths of a drawer: none when no dimension is chunked, otherwise the size of the set
/// for a dimension that is not chunked.
Chunks ChunksFor(Sets const& sets, Chunks lengths) {
  if (std::all_of(lengths.begin(), lengths.end(), [](int length) { return length == notChunked; })) return {};
  for (int d = 0; d < lengths.Size(); ++d)
    if (lengths[d] == notChunked) lengths[d] = ORXSimCSet(sets[d]).Size();
  return lengths;
}

/// Creates the drawer of a new distribution, with zeros; without chunk lengths it is stored whole.
void MakeZeroDrawer(ORXSimDistributionID const& id, Sets const& sets, Chunks const& chunks,
                    ORXSimSerializationType const& form = {}) {
  ORXSimTransfer transfer{ORXSimDistribution(id)};
  transfer.SetSerialization(form);
  if (chunks.IsEmpty()) {
    transfer.SetMakeNewDrawer();
  } else {
    transfer.SetMakeNewDrawerChunked(chunks);
  }
  transfer.SetWrite();
  for (int d = 0; d < sets.Size(); ++d)
    transfer.SetDim(d, sets[d]);
  transfer.SetInitializationValue(ORXSimRangeValue(0.0, -1, ORXSimTypeKey::Double))
      .CheckView()
      .InitializePersistentDrawer();
}

/// Returns the chunk length, or notChunked when the set fits into one chunk.
int ChunkWithin(ORXSimCSetID const& set, int chunk) {
  return ORXSimCSet(set).Size() > chunk ? chunk : notChunked;
}

} // namespace

// ORXSrvUtilities

void ORXSrvUtilities::LimitChunkSize2GB(int& chunkA, int& chunkB, int sizeB, int sizeA) {
  constexpr int doublesIn2GB = 1 << 28;
  chunkA = std::min(chunkA, doublesIn2GB / sizeA);
  chunkB = std::min(chunkB, doublesIn2GB / sizeB);
}

void orx::LimitChunks(int& rowChunk, int& columnChunk, int rows, int columns) {
  rowChunk = std::min(rowChunk, rows);
  columnChunk = std::min(columnChunk, columns);
  // The database refuses an empty matrix, because it has no chunks of 0.
  if (rows <= 0 || columns <= 0) return;
  int const leastRows = std::min(rowChunk, 1);
  int const leastColumns = std::min(columnChunk, 1);
  ORXSrvUtilities::LimitChunkSize2GB(rowChunk, columnChunk, rows, columns);
  rowChunk = std::max(rowChunk, leastRows);
  columnChunk = std::max(columnChunk, leastColumns);
}

ORXSimDistributionID ORXSrvUtilities::Create1DDistribution(ORXSimCSetID set, int chunk) {
  Sets const sets{set};
  ORXSimDistributionID const id = CreateIn(set.Context(), sets, ORXSimTypeKey::Double);
  MakeZeroDrawer(id, sets, ChunksFor(sets, {chunk}));
  return id;
}

ORXSimDistributionID ORXSrvUtilities::Create1DDistribution(ORXSimTransaction& tx, ORXSrvPosition pos,
                                                           int typeIndex, ORXSimCSetID set, int chunk) {
  Sets const sets{set};
  ORXSimDistributionID const id = CreateAt({tx, pos, typeIndex}, sets);
  MakeZeroDrawer(id, sets, ChunksFor(sets, {chunk}));
  return id;
}

ORXSimDistributionID ORXSrvUtilities::Create2DDistribution(ORXSimCSetID first, ORXSimCSetID second,
                                                           int chunkFirst, int chunkSecond) {
  Sets const sets = DenseMatrixSets(first, second);
  ORXSimDistributionID const id = CreateIn(first.Context(), sets, ORXSimTypeKey::Double);
  MakeZeroDrawer(id, sets, ChunksFor(sets, {chunkSecond, chunkFirst}));
  return id;
}

ORXSimDistributionID ORXSrvUtilities::Create2DDistribution(ORXSimTransaction& tx, ORXSrvPosition pos,
                                                           int typeIndex, ORXSimCSetID first,
                                                           ORXSimCSetID second, int chunkFirst,
                                                           int chunkSecond) {
  Sets const sets = DenseMatrixSets(first, second);
  ORXSimDistributionID const id = CreateAt({tx, pos, typeIndex}, sets);
  MakeZeroDrawer(id, sets,
                 ChunksFor(sets, {ChunkWithin(second, chunkSecond), ChunkWithin(first, chunkFirst)}));
  return id;
}

namespace {
void MakeSymmetricDrawer(ORXSimDistributionID const& id, Sets const& sets, int chunk) {
  MakeZeroDrawer(id, sets, ChunksFor(sets, {chunk, chunk}), ORXSimSerializationType().SetDenseSym());
}
} // namespace

ORXSimDistributionID ORXSrvUtilities::CreateSymmetricDistribution(ORXSimCSetID set, int chunk) {
  Sets const sets = DenseMatrixSets(set, set);
  ORXSimDistributionID const id = CreateIn(set.Context(), sets, ORXSimTypeKey::Double);
  MakeSymmetricDrawer(id, sets, chunk);
  return id;
}

ORXSimDistributionID ORXSrvUtilities::CreateSymmetricDistribution(ORXSimTransaction& tx, ORXSrvPosition pos,
                                                                  int typeIndex, ORXSimCSetID set,
                                                                  int chunk) {
  Sets const sets = DenseMatrixSets(set, set);
  ORXSimDistributionID const id = CreateAt({tx, pos, typeIndex}, sets);
  MakeSymmetricDrawer(id, sets, chunk);
  return id;
}

ORXSimDistributionID ORXSrvUtilities::CreateDistribution(ORXSimTransaction& tx, ORXSrvPosition pos,
                                                         int typeIndex, ORXSimArray<ORXSimCSetID> sets,
                                                         ORXSimArray<int> chunks, bool temporary) {
  std::reverse(sets.begin(), sets.end());
  std::reverse(chunks.begin(), chunks.end());
  // Colour 1 resolves only one clash: a second set that is moved to it would clash again.
  if (MakeAllDistinct(sets) > 1) return {};
  Place const place{tx, pos, typeIndex};
  ORXSimDistributionID const id = temporary ? CreateTemporaryAt(place, sets) : CreateAt(place, sets);
  MakeZeroDrawer(id, sets, chunks);
  return id;
}

ORXSimDistributionID ORXSrvUtilities::CreateSparseDistribution(ORXSimCSetID& rows, ORXSimCSetID& columns) {
  MakeDistinct(rows, columns);
  return CreateIn(rows.Context(), {rows, columns}, ORXSimTypeKey::Double);
}

ORXSimDistributionID ORXSrvUtilities::CreateSparseDistribution(ORXSimTransaction& tx, ORXSrvPosition pos,
                                                               int typeIndex, ORXSimCSetID& rows,
                                                               ORXSimCSetID& columns) {
  if (AreOfOneCollection(rows, columns)) ORXSimCollection(rows.Collection()).CreateColorVariant(1);
  MakeDistinct(rows, columns);
  return CreateAt({tx, pos, typeIndex}, {rows, columns});
}

ORXSimDistributionID ORXSrvUtilities::Write1DIntDistribution(ORXSimCSetID set, int const* values, int count) {
  ORXSimDistributionID const id = CreateIn(set.Context(), {set}, ORXSimTypeKey::Int32);
  ORXSimTransfer transfer{ORXSimDistribution(id)};
  transfer.SetMakeNewDrawer().SetBufferPadding(false).SetWrite().SetDim(0, set).CheckView();
  transfer.SetBuffer(0, values, std::int64_t{count} * 4).ExecWrite().RelinquishBuffers();
  return id;
}

// ORXSrvFindContiguousRanges

namespace {

/// Calls `end` with the end position of each run of labels, in ascending order. There is always a first run,
/// with the label at position 0.
template<class End>
void ForEachRun(int const* labels, int count, int maxRun, End end) {
  int run = 1;
  for (int k = 1; k < count; ++k) {
    // The difference of two labels may need 33 bits.
    bool const continues = std::int64_t{labels[k]} - labels[k - 1] == 1 && run < maxRun;
    if (!continues) end(k);
    run = continues ? run + 1 : 1;
  }
  end(std::max(count, 1));
}

} // namespace

int* ORXSrvFindContiguousRanges(int const* labels, int count, int maxRun, int& numRanges) {
  numRanges = 0;
  if (count == 0) return nullptr;
  ForEachRun(labels, count, maxRun, [&](int) { ++numRanges; });
  int* const starts = mem_NewArray<int>(std::int64_t{numRanges} + 1);
  starts[0] = 0;
  ForEachRun(labels, count, maxRun, [next = starts + 1](int end) mutable { *next++ = end; });
  return starts;
}
