#pragma once

#include "mtx/CompressedRows.h"

namespace orx {

/// Returns the general form of a matrix of which `pattern` has the diagonal and one position of each mirrored
/// pair, in any order. `stored` are the values at the positions of the pattern, `mirrored` those of their
/// mirror images; both are pattern.values for a symmetric matrix. Values at the same position are summed.
/// More entries than an int counts raise mem_OutOfMemory. REQUIRES columns below pattern.rows.
CompressedRows MakeGeneralForm(CompressedRowsView const& pattern, double const* mirrored,
                               double const* stored);

} // namespace orx
