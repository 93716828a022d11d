#include "bench/Batch.h"
#include "bench/Claims.h"

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

// The peer of each claim is what a program without the class would write: a loop or memcpy over the same
// buffers.

namespace bench {
namespace {

std::string Claim(char const* operation, char const* peer, int order) {
  return Format("%s, n = %d: time / %s", operation, order, peer);
}

void CompareSum(Report& report, BatchSize size) {
  std::string const claim = Claim("operator+=", "a loop", size.order);
  if (!report.Wants(claim)) return;
  int const n = size.order;
  Batch targets(RandomSquare(n, false, 0.0), size.count);
  std::vector<ORXSrvMatrix> matrices = targets.Matrices(n, n);
  std::vector<double> addend = RandomSquare(n, false, 1.0);
  ORXSrvMatrix const addendMatrix(n, n, addend.data());
  auto const ours = [&](int k) { matrices[k] += addendMatrix; };
  auto const loop = [&](int k) {
    double* const target = targets.At(k);
    for (std::size_t i = 0; i < addend.size(); ++i)
      target[i] += addend[i];
  };
  CompareWithBare(
      report, claim, size, [&] { targets.Restore(); }, ours, loop, [&] { return targets.AllValues(); });
}

void CompareAssignment(Report& report, BatchSize size) {
  std::string const claim = Claim("operator= of equal shapes", "memcpy", size.order);
  if (!report.Wants(claim)) return;
  int const n = size.order;
  Batch targets(RandomSquare(n, false, 0.0), size.count);
  std::vector<ORXSrvMatrix> matrices = targets.Matrices(n, n);
  std::vector<double> source = RandomSquare(n, false, 1.0);
  ORXSrvMatrix const sourceMatrix(n, n, source.data());
  auto const ours = [&](int k) { matrices[k] = sourceMatrix; };
  auto const copy = [&](int k) { std::memcpy(targets.At(k), source.data(), source.size() * sizeof(double)); };
  CompareWithBare(
      report, claim, size, [&] { targets.Restore(); }, ours, copy, [&] { return targets.AllValues(); });
}

/// The inner block of half the order, out of a larger matrix into a packed one.
void CompareBlockRead(Report& report, BatchSize size) {
  std::string const claim = Claim("GetValues of the inner block", "memcpy by columns", size.order);
  if (!report.Wants(claim)) return;
  int const n = size.order;
  int const first = n / 4;
  int const length = n / 2;
  std::vector<double> source = RandomSquare(n, false, 0.0);
  ORXSrvMatrix const sourceMatrix(n, n, source.data());
  Batch targets(std::vector<double>(static_cast<std::size_t>(length) * length), size.count);
  std::vector<ORXSrvMatrix> matrices = targets.Matrices(length, length);
  auto const ours = [&](int k) {
    sourceMatrix.GetValues(first, first + length - 1, first, first + length - 1, matrices[k]);
  };
  auto const copy = [&](int k) {
    for (int j = 0; j < length; ++j)
      std::memcpy(targets.At(k) + std::ptrdiff_t{j} * length,
                  source.data() + std::ptrdiff_t{first + j} * n + first, sizeof(double) * length);
  };
  CompareWithBare(
      report, claim, size, [&] { targets.Restore(); }, ours, copy, [&] { return targets.AllValues(); });
}

/// Elements beside their mirror images, also at orders whose columns begin in the same lines of the cache.
void CompareMirrors(Report& report, int order) {
  std::vector<double> values = RandomSquare(order, true, 0.0);
  std::vector<double> copy(values.size());
  ORXSrvMatrix matrix(order, order, values.data());
  auto const timed = [](auto work) {
    return TimedRun([work] {
      double const start = Now();
      work();
      return Now() - start;
    });
  };
  TimedRun const bare =
      timed([&] { std::memcpy(copy.data(), values.data(), values.size() * sizeof(double)); });
  auto const compare = [&](char const* operation, TimedRun const& ours) {
    std::string const claim = Claim(operation, "memcpy", order);
    if (!report.Wants(claim)) return;
    Pairs const pairs = MeasurePairs(ours, bare, 0.5, 15);
    report.Line(claim, Format("%.3f : %.3f ms", pairs.ours * 1e3, pairs.peers * 1e3), pairs.ratio, "",
                AtMost(2.0));
  };
  compare("Transpose", timed([&] { matrix.Transpose(); }));
  compare("SetSymmetricResults", timed([&] { matrix.SetSymmetricResults(); }));
  compare("IsSymmetricNumerically",
          timed([&] { RequireAgreement(matrix.IsSymmetricNumerically(), "the matrix is symmetric"); }));
}

} // namespace

void ClaimElementOperations(Report& report) {
  for (BatchSize const size : {largeBatch, smallBatch}) {
    report.Try("element operations", [&] {
      CompareSum(report, size);
      CompareAssignment(report, size);
      CompareBlockRead(report, size);
    });
  }
  for (int const order : {512, 1000, 1024, 2048})
    report.Try("mirrored elements", [&] { CompareMirrors(report, order); });
}

} // namespace bench
