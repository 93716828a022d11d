#include "BlacSupport.h"

#include <cstring>
#include <utility>

namespace {

std::string lastReport;

bool InTriangle(char uplo, int i, int j) { return uplo == 'U' || uplo == 'u' ? i <= j : i >= j; }

} // namespace

extern "C" void xerbla_(char const* name, int const* position, std::size_t nameLength) {
  lastReport += std::string(name, strnlen(name, nameLength)) + '/' + std::to_string(*position);
}

std::string TakeReport() { return std::exchange(lastReport, {}); }

Dense RandomSymmetric(int n, double addedToDiagonal) {
  Dense const a = Random(n, n, 1);
  return a + Transposed(a) + addedToDiagonal * Identity(n);
}

Dense Op(char trans, Dense const& a) { return trans == 'N' || trans == 'n' ? a : Transposed(a); }

std::vector<double> Packed(char uplo, Dense const& a) {
  std::vector<double> result;
  for (int j = 0; j < a.columns; ++j)
    for (int i = 0; i < a.rows; ++i)
      if (InTriangle(uplo, i, j)) result.push_back(a(i, j));
  return result;
}
