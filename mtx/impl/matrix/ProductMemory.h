#pragma once

namespace orx {

/// Makes sure that OpenBLAS has the memory into which it packs matrices; called before each call of the BLAS.
/// OpenBLAS takes the memory once, and asks forever when the system does not have it. Raises mem_OutOfMemory
/// then; the next call tries again.
void RequireProductMemory();

/// Does the same without an error, for hosts that call the BLAS themselves; called while there is memory.
void TryTakeProductMemory() noexcept;

} // namespace orx
