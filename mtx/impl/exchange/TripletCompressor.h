#pragma once

#include "core/cow_List.h"
#include "core/mem_Allocator.h"
#include "mtx/CompressedRows.h"
#include "mtx/ORXSrvSparseMatrixEntry.h"

#include <cstdint>
#include <span>

namespace orx {

/// Turns triplets in any order into compressed rows; values at equal positions are summed in the order of
/// Add.
///
///     Add        appends each triplet to the bucket of its range of rows           (one pass, streaming)
///     Compress   per bucket, in cache: orders it by row, and per row gives every
///                triplet the slot of its column, then adds the values up
///
/// A bucket is a chain of small chunks from the suite's allocator: they reuse the memory that a caller frees
/// when it drops triplets while adding them. When memory runs out, no triplet is lost: triplets that were
/// added stay, and each step can be repeated.
class TripletCompressor {
public:
  /// Makes an empty collection for about `expected` triplets with rows below `rows` and columns below
  /// `columns`, all three at least 0.
  TripletCompressor(std::int32_t rows, std::int32_t columns, std::int64_t expected);
  TripletCompressor(TripletCompressor const&) = delete;
  TripletCompressor& operator=(TripletCompressor const&) = delete;
  ~TripletCompressor();

  /// Admits further rows and columns. REQUIRES no fewer of either than before.
  void Grow(std::int32_t rows, std::int32_t columns);
  void Add(std::span<ORXSrvSparseMatrixEntry const> triplets);
  void Add(TripletCompressor const& other);
  /// Adds all triplets of a list and empties it on the way. On failure each triplet is in one of the two.
  void AddAndDrop(cow_List<ORXSrvSparseMatrixEntry>& triplets);
  /// Returns the matrix and drops the triplets. More triplets than an int counts raise mem_OutOfMemory.
  CompressedRows Compress();

private:
  struct Chunk;
  struct Bucket;
  struct Workspace;

  void AddTriplet(ORXSrvSparseMatrixEntry const& triplet);
  static void OpenChunk(Bucket& bucket);
  static void FreeChunks(Bucket& bucket) noexcept;
  std::int64_t TripletsOfLargestBucket() const noexcept;
  void CompressBucket(std::int32_t firstRow, Bucket& bucket, Workspace& workspace, CompressedRows& result);
  static void OrderByRow(std::int32_t firstRow, std::int32_t rowsHere, Bucket const& bucket,
                         Workspace& workspace);
  static void CompressRow(std::span<std::uint32_t const> columns, double const* values, Workspace& workspace,
                          CompressedRows& result);
  static bool FindSlotsInPattern(std::span<std::uint32_t const> columns, Workspace& workspace);
  static void NumberColumns(std::span<std::uint32_t const> columns, std::int32_t start, Workspace& workspace);
  static void StoreSortedColumns(std::int32_t start, Workspace& workspace, CompressedRows& result);
  static void FindSlots(std::span<std::uint32_t const> columns, Workspace& workspace, CompressedRows& result);

  std::int32_t m_rows = 0;
  std::int32_t m_columns = 0;
  int m_bucketShift; ///< a bucket holds 2^m_bucketShift rows
  std::int64_t m_bucketCount = 0;
  mem_Array<Bucket> m_buckets;
};

} // namespace orx
