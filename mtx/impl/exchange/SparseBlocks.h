#pragma once

#include "mtx/CompressedRows.h"

namespace orx {

// The two binary formats whose entries lie in blocks of 2^s elements. Both begin with six integers (order,
// entries, blocks, variant, s, unused), the row starts and the diagonal; see docs/formats/.
//
//   block      b blocks of column indices | b blocks of values                                 symmetric
//              b blocks of column indices | values of (j, i) | values of (i, j)                unsymmetric
//   chunked    chunk: columns, values | chunk: columns, values | ... | last chunk, padded | trailer

/// The chunk that files are written and read with: 2^17 elements. Tests use smaller ones.
constexpr int chunkExponent = 17;

CompressedRows ReadBlockBinary(char const* path);

/// The reader takes the length of chunks from its caller, not from the file, whose header it ignores.
CompressedRows ReadChunkedBinary(char const* path, int exponent = chunkExponent);

/// REQUIRES the symmetric form. When the number of entries is a multiple of the chunk length, those of the
/// last chunk are written as zeros.
void WriteChunkedBinary(char const* path, CompressedRowsView const& matrix, int exponent = chunkExponent);

} // namespace orx
