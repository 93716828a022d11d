#pragma once

#include "mtx/CompressedRows.h"
#include "mtx/layouts/FileLayouts.h"

namespace orx {

// Two binary formats store entries in blocks of 2^s elements. Both begin with six integers (order, entries,
// blocks, variant, s, unused), the row pointers and the diagonal; see docs/formats/.
//
//   block      b blocks of column indices | b blocks of values                                 symmetric
//              b blocks of column indices | values of (j, i) | values of (i, j)                unsymmetric
//   chunked    chunk: columns, values | chunk: columns, values | ... | last chunk, padded | trailer

CompressedRows ReadBlockBinary(char const* path);

/// Chunks have 2^exponent elements; tests use small ones. The exponent in the header of the file is ignored.
CompressedRows ReadChunkedBinary(char const* path, int exponent = chunkExponent);

/// REQUIRES the symmetric form. When the number of entries is a multiple of the chunk length, the entries of
/// the last chunk are written as zeros.
void WriteChunkedBinary(char const* path, CompressedRowsView const& matrix, int exponent = chunkExponent);

} // namespace orx
