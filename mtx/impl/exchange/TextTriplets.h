#pragma once

#include "mtx/CompressedRows.h"

namespace orx {

/// Reads a text file of entries "row column value" with one-based indices, separated by blanks and line ends.
/// The file is opened with fopen's `mode`. Anything that is not an entry raises ORXSrvMtxOpenFileException
/// with the path, the line, what was expected and what was found.
CompressedRows ReadTextTriplets(char const* path, char const* mode);

} // namespace orx
