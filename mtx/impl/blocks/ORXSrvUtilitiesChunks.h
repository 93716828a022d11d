#pragma once

namespace orx {

/// Lowers the chunk lengths of a new rows x columns matrix to its size and to what
/// ORXSrvUtilities::LimitChunkSize2GB allows, but not to nothing: where one row or column alone exceeds 2 GB,
/// it is a chunk of its own. Lengths that the caller gives as 0 or less stay.
void LimitChunks(int& rowChunk, int& columnChunk, int rows, int columns);

} // namespace orx
