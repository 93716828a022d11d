#pragma once

namespace orx {

/// Lowers the chunk lengths of a new rows x columns matrix to its size and to the limit of
/// ORXSrvUtilities::LimitChunkSize2GB, but not below 1: where one row or column alone exceeds 2 GB, it
/// becomes a chunk of its own. Lengths of 0 or less that the caller gives stay.
void LimitChunks(int& rowChunk, int& columnChunk, int rows, int columns);

} // namespace orx
