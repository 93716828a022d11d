#pragma once

#include "bench/Harness.h"
#include "mtx/ORXSrvMatrix.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

// Timing of one call on matrices of one order. A call on a small matrix is shorter than the clock can see, so
// a run makes it on a batch of matrices, each with its own copy of the values, one after the other.

namespace bench {

/// The orders for which overheads are claimed, and how many matrices a run takes.
struct BatchSize {
  int order;
  int count;
};
constexpr BatchSize smallBatch{4, 1000};
constexpr BatchSize largeBatch{512, 1};
constexpr BatchSize largerBatch{1000, 1};

/// The values of a batch of equal matrices, and what they are set back to before each run.
class Batch {
public:
  Batch(std::vector<double> values, int count)
      : m_original(std::move(values)), m_count(count), m_values(m_original.size() * count) {
    Restore();
  }

  void Restore() {
    for (int k = 0; k < m_count; ++k)
      std::copy(m_original.begin(), m_original.end(), At(k));
  }
  double* At(int k) { return m_values.data() + m_original.size() * k; }
  std::vector<double> const& AllValues() const { return m_values; }

  /// Matrices over the values of the batch.
  std::vector<ORXSrvMatrix> Matrices(int rows, int columns, bool symmetric = false) {
    std::vector<ORXSrvMatrix> matrices;
    matrices.reserve(static_cast<std::size_t>(m_count));
    for (int k = 0; k < m_count; ++k)
      matrices.emplace_back(rows, columns, At(k), symmetric);
    return matrices;
  }

private:
  std::vector<double> m_original;
  int m_count;
  std::vector<double> m_values;
};

/// Values in [-1, 1), the same in every run; `diagonal` is added on the diagonal.
inline std::vector<double> RandomSquare(int order, bool symmetric, double diagonal) {
  std::mt19937_64 generator(static_cast<std::uint64_t>(order));
  std::uniform_real_distribution<double> distribution(-1.0, 1.0);
  auto const n = static_cast<std::size_t>(order);
  std::vector<double> values(n * n);
  for (std::size_t j = 0; j < n; ++j)
    for (std::size_t i = 0; i < n; ++i)
      values[j * n + i] = symmetric && i < j ? values[i * n + j] : distribution(generator);
  for (std::size_t i = 0; i < n; ++i)
    values[i * (n + 1)] += diagonal;
  return values;
}

/// Seconds per call of call(0) ... call(count - 1).
template<class Call>
double SecondsPerCall(int count, Call& call) {
  double const start = Now();
  for (int k = 0; k < count; ++k)
    call(k);
  return (Now() - start) / count;
}

/// Reports ours against the bare call: the ratio of times for a large order, the difference in microseconds
/// for the small one. `restore` gives the inputs back and is not timed; `results` copies the outputs, which
/// must agree.
template<class Restore, class Ours, class Bare, class Results>
void CompareWithBare(Report& report, std::string const& claim, BatchSize size, Restore restore, Ours ours,
                     Bare bare, Results results, double largestRatio = 1.02) {
  auto const run = [&](auto& call) {
    restore();
    return SecondsPerCall(size.count, call);
  };
  run(ours);
  std::vector<double> const oursResults = results();
  run(bare);
  std::vector<double> const bareResults = results();
  RequireAgreement(std::equal(oursResults.begin(), oursResults.end(), bareResults.begin(), bareResults.end(),
                              [](double a, double b) { return std::abs(a - b) <= 1e-9 * (1 + std::abs(b)); }),
                   claim);
  Pairs const pairs = MeasurePairs([&] { return run(ours); }, [&] { return run(bare); }, 1.0, 25);
  bool const isSmall = size.order == smallBatch.order;
  double const scale = isSmall ? 1e6 : 1e3;
  std::string const figures =
      Format("%.3f : %.3f %s", pairs.ours * scale, pairs.peers * scale, isSmall ? "us" : "ms");
  if (isSmall) {
    report.Line(claim, figures, pairs.difference * 1e6, " us", AtMost(1.0));
  } else {
    report.Line(claim, figures, pairs.ratio, "", AtMost(largestRatio));
  }
}

} // namespace bench
