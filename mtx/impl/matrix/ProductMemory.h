#pragma once

namespace orx {

/// Makes sure that the BLAS has the memory that it packs matrices into; to be called before its first call.
/// OpenBLAS takes that memory once, and asks for ever when the system does not have it. Raises
/// mem_OutOfMemory; the next call tries again.
void RequireProductMemory();

/// The same without the error, for hosts that call the BLAS themselves: to be called while there is memory.
void TakeProductMemoryIfThere() noexcept;

} // namespace orx
