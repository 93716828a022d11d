#pragma once

#include "mtx/CompressedRows.h"

class ORXSrvSystemDofDefinition;

namespace orx {

// Text files of a matrix, one line per entry; see docs/formats/.

/// "%ld %ld %18.15e": row and column from one. Symmetric form: the diagonal, then each entry and its mirror.
void WriteOneBasedText(char const* path, CompressedRowsView const& matrix);

/// "%d,%d, %18.15e": row and column from zero. Symmetric form: each row's diagonal, then its entries.
void WriteZeroBasedText(char const* path, CompressedRowsView const& matrix);

/// "%d,%d,%d,%d,%18.15e": node and degree of freedom of the row and of the column; for a matrix that is not
/// square, the zero-based column and 0 instead of the latter. The diagonal of the symmetric form is not
/// written. A row or column that is not in `dofs` raises the ORXSimException of `dofs`, and leaves the file
/// as before.
void WriteNodeDofText(char const* path, CompressedRowsView const& matrix,
                      ORXSrvSystemDofDefinition const& dofs);

} // namespace orx
