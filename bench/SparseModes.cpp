#include "bench/Claims.h"
#include "bench/ElasticBlock.h"
#include "bench/Process.h"
#include "bench/Python.h"
#include "bench/TemporaryFolder.h"
#include "solve/ORXSrvModes.h"
#include "solve/ORXSrvSparseFactor.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <optional>
#include <string>
#include <vector>

// Factorization, block solves and modes of a clamped block of steel with 92,610 unknowns and 6.6 million
// entries.

namespace bench {
namespace {

constexpr int fewModes = 20;

std::string SolveClaim(int count) {
  return Format("sparse solve of 92,610 unknowns, %d vectors: time a vector / of a single one", count);
}
std::string ModesClaim(int count) { return Format("modes, %d of 92,610 unknowns", count); }
constexpr char plainToSlepc[] = ": time / SLEPc with MUMPS";
constexpr char certifiedToSlepc[] = ", certified: time / SLEPc with MUMPS, which certifies nothing";
constexpr char factorTime[] = "factorization of 92,610 unknowns: time / MUMPS called directly";
constexpr char factorMemory[] = "factorization of 92,610 unknowns: memory / MUMPS called directly";
constexpr char scipyClaim[] = "modes of 92,610 unknowns: time / SciPy's eigsh";
constexpr char onDiskName[] = "half-million";

struct Model {
  ORXSrvSparseMatrix stiffness, mass;
  TemporaryFolder folder; ///< with both in files, for the peers

  Model() : Model(ElasticBlock(70, 20, 20, true)) {}
  explicit Model(ElasticBlock const& block) : stiffness(block.Stiffness()), mass(block.Mass()) {
    Write("K", stiffness);
    Write("M", mass);
  }

  std::string PathOf(std::string const& name) const { return folder.Path() + "/" + name; }

private:
  template<class T>
  void WriteArray(std::string const& name, T const* values, std::int64_t count) const {
    std::ofstream(PathOf(name + ".bin"), std::ios::binary)
        .write(reinterpret_cast<char const*>(values), count * static_cast<std::int64_t>(sizeof(T)));
  }
  void Write(std::string const& name, ORXSrvSparseMatrix const& matrix) const {
    orx::CompressedRowsView const rows = matrix.View();
    std::filesystem::create_directory(PathOf(name));
    WriteArray(name + "/ia", rows.rowPointers, rows.rows + 1);
    WriteArray(name + "/ja", rows.columnIndices, rows.Entries());
    WriteArray(name + "/a", rows.values, rows.Entries());
  }
};

struct Factorization {
  double seconds, peakGrowth, entries, checksum;
};

/// In a process of its own, for the sake of its peak of memory.
Factorization FactorizeInChild(Model const& model) {
  return InChild<Factorization>([&] {
    auto const before = ResidentBytes();
    double const start = Now();
    ORXSrvSparseFactor factor;
    factor.Factorize(model.stiffness);
    double const seconds = Now() - start;
    auto const growth = PeakBytes() - before;
    std::vector<double> x(static_cast<std::size_t>(factor.Facts().order), 1.0);
    factor.Solve(x.data(), 1);
    return Factorization{seconds, static_cast<double>(growth), static_cast<double>(factor.Facts().entries),
                         std::accumulate(x.begin(), x.end(), 0.0)};
  });
}

Factorization FactorizeByPeer(Model const& model) {
  auto const lines = RunProgram("'" ORX_BENCH_MUMPS "' '" + model.PathOf("K") + "'");
  return {Number(lines, "factorization"), Number(lines, "peak_growth"), Number(lines, "factor"),
          Number(lines, "checksum")};
}

void CompareFactorizations(Report& report, Model const& model) {
  constexpr std::int64_t asMuchAsTheyTake = 1000000000;
  std::vector<double> ourPeaks, peerPeaks;
  double ourSum = 0.0, peerSum = 0.0;
  auto const measure = [&](auto const& factorize, std::vector<double>& peaks, double& sum) {
    WarmMemory(asMuchAsTheyTake);
    Factorization const result = factorize(model);
    peaks.push_back(result.peakGrowth);
    sum = result.checksum;
    return result.seconds;
  };
  Pairs const times = MeasurePairs([&] { return measure(FactorizeInChild, ourPeaks, ourSum); },
                                   [&] { return measure(FactorizeByPeer, peerPeaks, peerSum); }, 30.0, 3);
  RequireAgreement(std::abs(ourSum - peerSum) <= 1e-8 * std::abs(peerSum), "the sum of a solution");
  report.Line(factorTime, Format("%.2f : %.2f s", times.ours, times.peers), times.ratio, "", AtMost(1.03));
  double const ourPeak = Median(ourPeaks), peerPeak = Median(peerPeaks);
  report.Line(factorMemory, Format("%.0f : %.0f MB", ourPeak / 1e6, peerPeak / 1e6), ourPeak / peerPeak, "",
              AtMost(1.05));
}

double TimeFactorization(Model const& model) {
  double const start = Now();
  ORXSrvSparseFactor factor;
  factor.Factorize(model.stiffness);
  return Now() - start;
}

struct Found {
  double seconds;
  double last; ///< eigenvalue
};

Found FindModes(Model const& model, int count, bool isCertified) {
  double const start = Now();
  ORXSrvModes modes(model.stiffness, model.mass);
  modes.SetCertified(isCertified);
  modes.FindLowest(count);
  return {Now() - start, modes.Modes().back().eigenvalue};
}

Found FindModesByPeer(Model const& model, std::string const& python, char const* peer, int count) {
  auto const lines = RunProgram(python + " '" ORX_BENCH_MODE_PEERS "' " + peer + " '" + model.folder.Path() +
                                "' " + std::to_string(count));
  return {Number(lines, "modes"), Number(lines, "last")};
}

void RequireSame(double a, double b) {
  RequireAgreement(std::abs(a - b) <= 1e-8 * std::abs(b), "the last eigenvalue");
}

void CompareModes(Report& report, Model const& model, int count, std::string const& python) {
  std::vector<double> plainRatios, certifiedRatios, toFactor, certifiedToFactor, seconds;
  std::string const name = ModesClaim(count);
  bool const isFew = count <= fewModes;
  int const rounds = isFew ? 3 : 1; // many take minutes
  for (int round = 0; round < rounds; ++round) {
    double const factorization = TimeFactorization(model);
    Found const plain = FindModes(model, count, false), certified = FindModes(model, count, true);
    RequireSame(plain.last, certified.last);
    toFactor.push_back(plain.seconds / factorization);
    certifiedToFactor.push_back(certified.seconds / factorization);
    seconds.push_back(certified.seconds);
    if (python.empty()) continue;
    Found const peer = FindModesByPeer(model, python, "slepc", count);
    RequireSame(certified.last, peer.last);
    plainRatios.push_back(plain.seconds / peer.seconds);
    certifiedRatios.push_back(certified.seconds / peer.seconds);
  }
  std::string const figures = Format("%.1f s certified", Median(seconds));
  report.Line(name + ": time / analysis and factorization", figures, Median(toFactor), "",
              isFew ? AtMost(1.7) : Goal{});
  report.Line(name + ", certified: time / analysis and factorization", figures, Median(certifiedToFactor), "",
              isFew ? AtMost(2.3) : Goal{});
  if (python.empty()) return report.Absent(name + plainToSlepc, "SLEPc");
  report.Line(name + plainToSlepc, figures, Median(plainRatios), "", AtMost(isFew ? 0.75 : 0.7));
  report.Line(name + certifiedToSlepc, figures, Median(certifiedRatios), "", isFew ? AtMost(1.0) : Goal{});
}

/// SciPy's eigsh takes minutes: one run.
void CompareWithSciPy(Report& report, Model const& model) {
  std::string const python = PythonWithSciPy();
  if (python.empty()) return report.Absent(scipyClaim, "SciPy");
  Found const ours = FindModes(model, fewModes, false);
  Found const peer = FindModesByPeer(model, python, "scipy", fewModes);
  RequireSame(ours.last, peer.last);
  report.Line(scipyClaim, Format("%.1f : %.1f s", ours.seconds, peer.seconds), ours.seconds / peer.seconds,
              "", AtMost(0.06));
}

void CompareBlockSolves(Report& report, Model const& model) {
  ORXSrvSparseFactor factor;
  factor.Factorize(model.stiffness);
  auto const order = static_cast<std::size_t>(factor.Facts().order);
  std::vector<double> x(order * 32, 1.0);
  auto const perVector = [&](int count) {
    double const start = Now();
    factor.Solve(x.data(), count);
    return (Now() - start) / count;
  };
  for (auto const& [count, goal] : {std::pair{8, 0.25}, std::pair{32, 0.15}}) {
    Pairs const pairs = MeasurePairs([&] { return perVector(count); }, [&] { return perVector(1); }, 5.0, 3);
    report.Line(SolveClaim(count), Format("%.1f : %.1f ms", pairs.ours * 1e3, pairs.peers * 1e3), pairs.ratio,
                "", AtMost(goal));
  }
}

std::int64_t BytesIn(std::string const& folder) {
  std::int64_t bytes = 0;
  for (auto const& entry : std::filesystem::recursive_directory_iterator(folder))
    if (entry.is_regular_file()) bytes += static_cast<std::int64_t>(entry.file_size());
  return bytes;
}

/// A model whose factor does not fit the budget. It takes a quarter of an hour and 7 GB in the temporary
/// folder.
void FindModesOnDisk(Report& report) {
  constexpr double gigabyte = 1e9;
  constexpr std::int64_t budget = 8000000000;
  ElasticBlock const block(124, 36, 36, true);
  ORXSrvSparseMatrix const stiffness = block.Stiffness(), mass = block.Mass();
  TemporaryFolder const folder;
  double const start = Now();
  ORXSrvModes modes(stiffness, mass);
  modes.SetMemory(budget);
  modes.SetFolder(folder.Path().c_str());
  modes.FindLowest(fewModes);
  double const seconds = Now() - start;
  RequireAgreement(modes.IsCertified(), "the modes are certified");
  std::string const name = Format("%s model of %d unknowns, 20 certified modes", onDiskName, block.Order());
  report.Line(name + ": time",
              Format("%d factorizations, last eigenvalue %.10g", static_cast<int>(modes.Shifts().size()),
                     modes.Modes().back().eigenvalue),
              seconds, " s", {});
  report.Line(name + ": peak memory",
              Format("budget %.0f GB, %.1f GB on disk", budget / gigabyte,
                     static_cast<double>(BytesIn(folder.Path())) / gigabyte),
              static_cast<double>(PeakBytes()) / gigabyte, " GB", AtMost(20));
}

} // namespace

void ClaimSparseModes(Report& report) {
  std::optional<Model> model;
  auto const withModel = [&](std::vector<std::string> const& claims, auto measure) {
    if (std::ranges::none_of(claims, [&](std::string const& claim) { return report.Wants(claim); })) return;
    report.Try(claims.front(), [&] {
      if (!model) model.emplace();
      measure();
    });
  };
  std::string const python = PythonWith("slepc4py");
  withModel({factorTime, factorMemory}, [&] { CompareFactorizations(report, *model); });
  withModel({SolveClaim(8), SolveClaim(32)}, [&] { CompareBlockSolves(report, *model); });
  for (int const count : {fewModes, 200})
    withModel({ModesClaim(count) + certifiedToSlepc, ModesClaim(count) + plainToSlepc},
              [&] { CompareModes(report, *model, count, python); });
  if (report.IsAskedFor(onDiskName)) report.Try(onDiskName, [&] { FindModesOnDisk(report); });
  withModel({scipyClaim}, [&] { CompareWithSciPy(report, *model); });
}

} // namespace bench
