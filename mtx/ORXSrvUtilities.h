#pragma once

#include "core/orx_export.h"
#include "sim/ORXSimArray.h"
#include "sim/ORXSimIdentifiers.h"
#include "sim/ORXSimTransaction.h"
#include "sim/ORXSrvPosition.h"

/// Creates the distributions that matrices and solver fields are kept in. No state, no objects needed.
///
///     operation                 grid, dimension 0 first     cells     drawer
///     Create1DDistribution      set                         doubles   zeros, whole or chunked
///     Create2DDistribution      columns, rows               doubles   zeros, whole or chunked
///     CreateSparseDistribution  rows, columns               doubles   none: the sparse write makes it
///     CreateSymmetricDist...    set, set                    doubles   zeros, one triangle of blocks
///     CreateDistribution        last set, ..., first set    doubles   zeros, whole or chunked
///     Write1DIntDistribution    set                         integers  the given values, whole
///
/// Two forms. Without a position the distribution is untyped and belongs to the context of the first member
/// set. At a position it belongs to the caller's transaction, which must be open on the position's context;
/// `typeIndex` is an index of that context's schema, or negative for an untyped distribution.
///
/// A chunk length of -1 means that the dimension is not chunked; a drawer without any chunked dimension is
/// stored whole, and in another one a dimension that is not chunked gets its size as chunk length.
///
/// A grid names each collection once. Where two member sets of a grid may be of one collection, the later one
/// is moved to the collection's colour 1: the same members under another identity.
///
/// Errors are ORXSimException, as the database raises them; a distribution that was created before a later
/// step failed stays in the database.
class ORX_EXPORT ORXSrvUtilities {
public:
  /// Lowers each chunk length so that a chunk across the whole other dimension stays within 2 GiB of doubles:
  ///
  ///     chunkA * sizeA <= 2^28      chunkB * sizeB <= 2^28
  ///
  /// Callers pass (row chunk, column chunk, rows, columns): the last argument limits the first. A chunk
  /// length becomes 0 where the other dimension alone is longer than 2^28; a chunk of one row or column then
  /// exceeds 2 GiB whatever is done, and callers take 1. REQUIRES: sizes other than 0 (not checked).
  static void LimitChunkSize2GB(int& chunkA, int& chunkB, int sizeB, int sizeA);

  // Fields of doubles

  /// A zero vector. The chunk length is used as given, even when it exceeds the size of the set.
  static ORXSimDistributionID Create1DDistribution(ORXSimCSetID set, int chunk);
  static ORXSimDistributionID Create1DDistribution(ORXSimTransaction& tx, ORXSrvPosition pos, int typeIndex,
                                                   ORXSimCSetID set, int chunk);

  /// A zero matrix with the rows `first` and the columns `second`. Sets of one collection: dimension 0 is
  /// `second` on colour 1, the caller's identifiers stay as they are. Chunk lengths are used as given, even
  /// when they exceed the sizes of the sets.
  static ORXSimDistributionID Create2DDistribution(ORXSimCSetID first, ORXSimCSetID second, int chunkFirst,
                                                   int chunkSecond);
  /// The same at a position, where a chunk length that is not less than the size of its set counts as -1.
  static ORXSimDistributionID Create2DDistribution(ORXSimTransaction& tx, ORXSrvPosition pos, int typeIndex,
                                                   ORXSimCSetID first, ORXSimCSetID second, int chunkFirst,
                                                   int chunkSecond);

  /// A zero field of N = sets.Size() dimensions; dimension d is sets[N-1-d]. `chunks` is empty (stored whole)
  /// or has N lengths of at least 1 in the order of `sets`.
  /// One pair of sets may be of one collection: the one that comes first in `sets` is moved to colour 1. More
  /// are not resolved: the result is the null identifier, and nothing is created.
  /// `temporary`: the distribution lives in the position's context until the file is closed, `tx` is not
  /// used.
  static ORXSimDistributionID CreateDistribution(ORXSimTransaction& tx, ORXSrvPosition pos, int typeIndex,
                                                 ORXSimArray<ORXSimCSetID> sets, ORXSimArray<int> chunks,
                                                 bool temporary);

  /// A zero matrix over the members of one set, of which the database keeps one triangle of blocks
  /// (ORXSimSerializationType::SetDenseSym). The rows are the set, the columns the same members on colour 1.
  /// A chunk length of -1: blocks of 1024.
  static ORXSimDistributionID CreateSymmetricDistribution(ORXSimCSetID set, int chunk);
  static ORXSimDistributionID CreateSymmetricDistribution(ORXSimTransaction& tx, ORXSrvPosition pos,
                                                          int typeIndex, ORXSimCSetID set, int chunk);

  // Other distributions

  /// The grid of a sparse matrix. When the two sets are of one collection, `columns` is rewritten to its
  /// members on colour 1, by which the columns are addressed from then on; also when the creation then fails.
  static ORXSimDistributionID CreateSparseDistribution(ORXSimCSetID& rows, ORXSimCSetID& columns);
  /// The same at a position; the colour variant that `columns` moves to is recorded in the database.
  static ORXSimDistributionID CreateSparseDistribution(ORXSimTransaction& tx, ORXSrvPosition pos,
                                                       int typeIndex, ORXSimCSetID& rows,
                                                       ORXSimCSetID& columns);

  /// A vector of 32-bit integers, written from `values`, one for each member in set order. `count` says how
  /// many there are: fewer than members are refused with viewDoesNotFit, the distribution then has no values.
  static ORXSimDistributionID Write1DIntDistribution(ORXSimCSetID set, int const* values, int count);
};

/// Splits labels into runs of consecutive labels (each its predecessor plus 1) of at most `maxRun` labels;
/// with `maxRun` of 1 or less each label is a run. Run i has the positions result[i] ... result[i+1]-1:
///
///     labels 3 4 5 9 10, maxRun 100  ->  numRanges 2, result 0 3 5
///
/// The result has numRanges + 1 elements and is the caller's, freed with mem_Free. No labels (`count` 0):
/// null and numRanges 0. A negative count is treated like 1; labels[0] is never read.
ORX_EXPORT int* ORXSrvFindContiguousRanges(int const* labels, int count, int maxRun, int& numRanges);
