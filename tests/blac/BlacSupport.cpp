#include "BlacSupport.h"

#include <cmath>
#include <cstring>
#include <random>
#include <utility>

namespace {

std::string lastReport;

bool InTriangle(char uplo, int i, int j) { return uplo == 'U' || uplo == 'u' ? i <= j : i >= j; }
bool IsUnit(char diag) { return diag == 'U' || diag == 'u'; }

} // namespace

extern "C" void xerbla_(char const* name, int const* position, std::size_t nameLength) {
  lastReport += std::string(name, strnlen(name, nameLength)) + '/' + std::to_string(*position);
}

std::string TakeReport() { return std::exchange(lastReport, {}); }

Dense::Dense(int rowCount, int columnCount, int gap)
    : rows(rowCount), columns(columnCount), ld(rowCount + gap),
      values(static_cast<std::size_t>(ld) * columnCount, notANumber) {}

Dense Filled(int rows, int columns, int gap, std::function<double(int, int)> const& f) {
  Dense result(rows, columns, gap);
  for (int j = 0; j < columns; ++j)
    for (int i = 0; i < rows; ++i)
      result(i, j) = f(i, j);
  return result;
}

Dense Random(int rows, int columns, int gap) {
  static std::mt19937_64 generator;
  std::uniform_real_distribution<double> distribution(-1, 1);
  return Filled(rows, columns, gap, [&](int, int) { return distribution(generator); });
}

Dense RandomSymmetric(int n, double addedToDiagonal) {
  Dense const a = Random(n, n);
  return a + Transposed(a) + addedToDiagonal * Identity(n);
}

Dense Identity(int n) {
  return Filled(n, n, 1, [](int i, int j) { return i == j ? 1 : 0; });
}

Dense Transposed(Dense const& a) {
  return Filled(a.columns, a.rows, 1, [&](int i, int j) { return a(j, i); });
}

Dense Op(char trans, Dense const& a) { return trans == 'N' || trans == 'n' ? a : Transposed(a); }

Dense Triangle(char uplo, Dense const& a, double other, char diag) {
  return Filled(a.rows, a.columns, 1, [&](int i, int j) {
    if (i == j && IsUnit(diag)) return 1.0;
    return InTriangle(uplo, i, j) ? a(i, j) : other;
  });
}

Dense Mirrored(char uplo, Dense const& half) {
  return Filled(half.rows, half.columns, 1,
                [&](int i, int j) { return InTriangle(uplo, i, j) ? half(i, j) : half(j, i); });
}

std::vector<double> Packed(char uplo, Dense const& a) {
  std::vector<double> result;
  for (int j = 0; j < a.columns; ++j)
    for (int i = 0; i < a.rows; ++i)
      if (InTriangle(uplo, i, j)) result.push_back(a(i, j));
  return result;
}

Dense Unpacked(char uplo, std::vector<double> const& packed, int n) {
  std::size_t next = 0;
  return Filled(n, n, 1, [&](int i, int j) { return InTriangle(uplo, i, j) ? packed.at(next++) : 0; });
}

Dense operator*(Dense const& a, Dense const& b) {
  return Filled(a.rows, b.columns, 1, [&](int i, int j) {
    double sum = 0;
    for (int l = 0; l < a.columns; ++l)
      sum += a(i, l) * b(l, j);
    return sum;
  });
}

Dense operator*(double factor, Dense const& a) {
  return Filled(a.rows, a.columns, 1, [&](int i, int j) { return factor * a(i, j); });
}

Dense operator+(Dense const& a, Dense const& b) {
  return Filled(a.rows, a.columns, 1, [&](int i, int j) { return a(i, j) + b(i, j); });
}

testing::AssertionResult Near(Dense const& expected, Dense const& actual, double tolerance) {
  if (expected.rows != actual.rows || expected.columns != actual.columns)
    return testing::AssertionFailure() << "sizes differ";
  for (int j = 0; j < actual.columns; ++j) {
    for (int i = 0; i < actual.rows; ++i)
      if (!(std::abs(actual(i, j) - expected(i, j)) <= tolerance))
        return testing::AssertionFailure() << "element (" << i << ", " << j << ") is " << actual(i, j)
                                           << " and should be " << expected(i, j);
    for (int i = actual.rows; i < actual.ld; ++i)
      if (!std::isnan(actual(i, j))) return testing::AssertionFailure() << "written below column " << j;
  }
  return testing::AssertionSuccess();
}
