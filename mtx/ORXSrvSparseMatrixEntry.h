#pragma once

#include <cstdint>

/// One entry of a sparse matrix; indices are zero-based.
struct ORXSrvSparseMatrixEntry {
  std::uint32_t row;
  std::uint32_t column;
  double value;
};
