#include "blac/sparse/SpmvKernels.h"

namespace orx::blac {

#ifdef __x86_64__
constexpr SpmvKernels avx2SpmvKernels{avx2Product, avx2TransposedProduct, avx2SymmetricProduct};
#endif

SpmvKernels const& ChooseSpmvKernels() {
#ifdef __x86_64__
  if (__builtin_cpu_supports("avx2")) return avx2SpmvKernels;
#endif
  return plainSpmvKernels;
}

void MultiplyGroups(SpmvKernel const* kernels, SpmvOperands operands, std::ptrdiff_t lengthX,
                    std::ptrdiff_t lengthY, int vectors, int groupSize) {
  for (; vectors >= groupSize; vectors -= groupSize) {
    kernels[groupSize - 1](operands);
    operands.x += groupSize * lengthX;
    operands.y += groupSize * lengthY;
  }
  if (vectors > 0) kernels[vectors - 1](operands);
}

} // namespace orx::blac
