#pragma once

#include "blac/sparse/SpmvRegistersAvx2.h"

#include <algorithm>
#include <cstddef>

namespace orx::blac {
namespace { // each source has its own copy, of which the compiler knows all calls

/// Clears the vectors of y step by step, shortly before they are added to: cleared at once, long vectors
/// would have left the cache before their first use. A single vector is cleared at once.
template<int vectors>
class GradualClearing {
public:
  GradualClearing(double* y, std::ptrdiff_t length) : m_y(y), m_length(length) {
    if (vectors == 1) ClearRest();
  }

  /// Makes sure that element `last` and all before it are cleared. Later calls clear no element again.
  BLAC_AVX2_INLINE void ClearThrough(std::ptrdiff_t last) {
    if (vectors > 1 && last >= m_cleared) [[unlikely]]
      m_cleared = Clear(m_y, m_length, m_cleared, std::min(m_length, last + elementsInStep));
  }
  void ClearRest() { m_cleared = Clear(m_y, m_length, m_cleared, m_length); }

private:
  static constexpr std::ptrdiff_t elementsInStep = 256; ///< 16 KB for eight vectors

  /// Clears the elements begin ... end - 1 of each vector and returns `end`.
  [[gnu::noinline]] static std::ptrdiff_t Clear(double* y, std::ptrdiff_t length, std::ptrdiff_t begin,
                                                std::ptrdiff_t end) {
    for (int v = 0; v < vectors; ++v)
      std::fill(y + v * length + begin, y + v * length + end, 0.0);
    return end;
  }

  double* m_y;
  std::ptrdiff_t m_length;
  std::ptrdiff_t m_cleared = 0; ///< elements 0 ... m_cleared - 1 of each vector are cleared
};

} // namespace
} // namespace orx::blac
