#pragma once

#include "bench/RowsOfFolder.h"

#include <cholmod.h>

// For the programs over CHOLMOD, which are programs of their own, so that what CHOLMOD loads is not in ours.

namespace bench {

/// CHOLMOD has columns where we have rows: what it holds is the transpose of what we mean.
inline cholmod_sparse CholmodMatrixOver(RowsOfFolder& rows) {
  cholmod_sparse matrix{};
  matrix.nrow = matrix.ncol = static_cast<std::size_t>(rows.rows);
  matrix.nzmax = rows.a.Size();
  matrix.p = rows.ia.Data();
  matrix.i = rows.ja.Data();
  matrix.x = rows.a.Data();
  matrix.itype = CHOLMOD_INT;
  matrix.xtype = CHOLMOD_REAL;
  matrix.dtype = CHOLMOD_DOUBLE;
  matrix.sorted = matrix.packed = 1;
  return matrix;
}

} // namespace bench
