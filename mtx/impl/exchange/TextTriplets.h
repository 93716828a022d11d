#pragma once

#include "mtx/CompressedRows.h"

namespace orx {

/// Reads a text file of items "row column value" with one-based indices, separated by blanks and line ends,
/// opened with fopen's `mode`. What is not an item is an ORXSrvMtxOpenFileException with path, line, what was
/// expected and what was found.
CompressedRows ReadTextTriplets(char const* path, char const* mode);

} // namespace orx
