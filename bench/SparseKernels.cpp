#include "bench/BlockOfVectors.h"
#include "bench/Claims.h"
#include "bench/HexMesh.h"
#include "bench/Python.h"
#include "bench/TemporaryFolder.h"
#include "blac/BLAC.h"
#include "core/mem_Allocator.h"
#include "mtx/ORXSrvSparseMatrix.h"

#include <Eigen/SparseCore>

#include <array>
#include <cstring>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

// The sparse kernels beside other libraries' products of compressed rows and beside the roofline: the time to
// read a and ja once and to copy x to y, which no product can do without. In each round every contestant has
// its turn with all products; what is reported are medians over the rounds. Our vectors, and those of PETSc
// and Eigen, are stored one after the other; SciPy, which would copy these, has its own order.

namespace bench {
namespace {

constexpr std::array vectorCounts = {1, 7, 8, 16};

struct ProblemKind {
  char const* name;
  int rounds;
  void (*assemble)(ORXSrvSparseMatrix&);
};

void AssembleElasticity(ORXSrvSparseMatrix& matrix) {
  HexMesh(46, AssemblyOrder::Natural).ForEachTriplet([&](int row, int column, double value) {
    matrix.AddData(static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(column), value);
  });
}

void AssemblePlaneGrid(ORXSrvSparseMatrix& matrix) {
  constexpr int side = 1000;
  auto const isInside = [](int k) { return k >= 0 && k < side; };
  for (int row = 0; row < side * side; ++row)
    for (int dy = -1; dy <= 1; ++dy)
      for (int dx = -1; dx <= 1; ++dx)
        if (isInside(row % side + dx) && isInside(row / side + dy))
          matrix.AddData(static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(row + dx + side * dy),
                         1.0 + (3 * dx + dy) / 1024.0);
}

void AssembleRandom(ORXSrvSparseMatrix& matrix) {
  constexpr std::uint32_t rows = 1000000;
  std::mt19937 generator(5);
  std::uniform_int_distribution<std::uint32_t> column(0, rows - 1);
  for (std::uint32_t row = 0; row < rows; ++row)
    for (int k = 0; k < 10; ++k)
      matrix.AddData(row, column(generator), 1.0 + k / 1024.0);
}

constexpr ProblemKind elasticity{"elasticity", 5, AssembleElasticity};
constexpr ProblemKind planeGrid{"9-point grid", 5, AssemblePlaneGrid};
constexpr ProblemKind random{"random", 3, AssembleRandom};

/// A square matrix in compressed rows.
struct Problem {
  int rows;
  LargeArray<int> ia, ja;
  LargeArray<double> a;

  explicit Problem(ORXSrvSparseMatrix const& matrix)
      : rows(matrix.NumberOfRows()), ia(static_cast<std::size_t>(rows) + 1),
        ja(static_cast<std::size_t>(matrix.NumberOfNonzeros())), a(ja.Size()) {
    int count = 0;
    mem_Array<ORXSrvSparseMatrixEntry> const entries(matrix.GetEntries(count));
    std::fill_n(ia.Data(), ia.Size(), 0);
    for (int k = 0; k < count; ++k) {
      ja.Data()[k] = static_cast<int>(entries[k].column);
      a.Data()[k] = entries[k].value;
      ia.Data()[entries[k].row + 1] = k + 1; // every row has entries
    }
  }
  static Problem Of(ProblemKind const& kind) {
    ORXSrvSparseMatrix matrix(0, 0);
    matrix.BeginAssembly();
    kind.assemble(matrix);
    matrix.EndAssembly();
    return Problem(matrix);
  }
};

// ---- contestants

struct Timing {
  double seconds;
  double checksum;
};
/// By "product_8", "transposed_8" ...
using Timings = std::map<std::string, Timing>;

std::string Key(bool transposed, int count) {
  return Format("%s_%d", transposed ? "transposed" : "product", count);
}

/// Times product(transposed, x, y, count) for all counts of vectors.
template<class Product>
Timings TimeProducts(Problem const& problem, Product const& product) {
  Timings timings;
  for (int const count : vectorCounts) {
    BlockOfVectors const x = BlockOfVectors::Factors(problem.rows, count);
    BlockOfVectors y(problem.rows, count);
    for (bool const transposed : {false, true}) {
      double const seconds = MedianSeconds([&] { product(transposed, x.Data(), y.Data(), count); });
      timings[Key(transposed, count)] = {seconds, y.Checksum()};
    }
  }
  return timings;
}

Timings TimeOurs(Problem const& p) {
  return TimeProducts(p, [&](bool transposed, double const* x, double* y, int count) {
    auto* const kernel = transposed ? BLAC_SPARSE_UMTV : BLAC_SPARSE_UMV;
    kernel(p.a.Data(), x, p.ia.Data(), p.ja.Data(), y, &p.rows, &p.rows, &count);
  });
}

Timings TimeRoofline(Problem const& p) {
  std::size_t const entries = p.a.Size() / 16 * 16;
  double volatile sink = 0.0;
  return TimeProducts(p, [&](bool, double const* x, double* y, int count) {
    std::array<double, 16> sums{};
    std::array<int, 16> columns{};
    for (std::size_t k = 0; k < entries; k += sums.size())
      for (std::size_t i = 0; i < sums.size(); ++i) {
        sums[i] += p.a.Data()[k + i];
        columns[i] ^= p.ja.Data()[k + i];
      }
    for (std::size_t i = 0; i < sums.size(); ++i)
      sink = sums[i] + columns[i];
    std::memcpy(y, x, sizeof(double) * static_cast<std::size_t>(p.rows) * static_cast<std::size_t>(count));
  });
}

Timings TimeEigen(Problem const& p) {
  using Sparse = Eigen::SparseMatrix<double, Eigen::RowMajor>;
  Eigen::Map<Sparse const> const matrix(p.rows, p.rows, static_cast<Eigen::Index>(p.a.Size()), p.ia.Data(),
                                        p.ja.Data(), p.a.Data());
  return TimeProducts(p, [&](bool transposed, double const* xValues, double* yValues, int count) {
    Eigen::Map<Eigen::MatrixXd const> const x(xValues, p.rows, count);
    Eigen::Map<Eigen::MatrixXd> y(yValues, p.rows, count);
    if (transposed)
      y.noalias() = matrix.transpose() * x;
    else
      y.noalias() = matrix * x;
  });
}

template<class T>
void WriteArray(std::string const& path, LargeArray<T> const& array) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<char const*>(array.Data()),
             static_cast<std::streamsize>(array.Size() * sizeof(T)));
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

/// The matrix as files, for peers that are programs of their own.
class MatrixFiles {
public:
  explicit MatrixFiles(Problem const& problem) {
    WriteArray(m_folder.File("ia.bin"), problem.ia);
    WriteArray(m_folder.File("ja.bin"), problem.ja);
    WriteArray(m_folder.File("a.bin"), problem.a);
  }
  Timings Time(std::string command) const {
    command += " " + m_folder.Path();
    for (int const count : vectorCounts)
      command += Format(" %d", count);
    auto const lines = RunProgram(command);
    Timings timings;
    for (int const count : vectorCounts)
      for (std::string const& key : {Key(false, count), Key(true, count)})
        timings[key] = {Number(lines, key), Number(lines, key + "_checksum")};
    return timings;
  }

private:
  TemporaryFolder m_folder;
};

struct Contestant {
  char const* name;
  std::function<Timings()> run;
  std::vector<Timings> rounds{};

  double MedianSecondsOf(std::string const& key) const {
    std::vector<double> seconds;
    for (Timings const& round : rounds)
      seconds.push_back(round.at(key).seconds);
    return Median(seconds);
  }
};

std::vector<Contestant> Peers(Problem const& problem, MatrixFiles const& files) {
  std::vector<Contestant> peers{{"Eigen", [&] { return TimeEigen(problem); }}};
  if (*ORX_BENCH_PETSC_PRODUCTS != '\0')
    peers.push_back({"PETSc", [&] { return files.Time(ORX_BENCH_PETSC_PRODUCTS); }});
  if (std::string const python = PythonWithSciPy(); !python.empty())
    peers.push_back({"SciPy", [&files, python] { return files.Time(KernelPeersCommand(python)); }});
  return peers;
}

// ---- claims

/// The median over the rounds of the ratio of times.
double Ratio(Contestant const& ours, Contestant const& other, std::string const& key) {
  std::vector<double> ratios;
  for (std::size_t r = 0; r < ours.rounds.size(); ++r)
    ratios.push_back(ours.rounds[r].at(key).seconds / other.rounds[r].at(key).seconds);
  return Median(ratios);
}

std::string Claim(ProblemKind const& kind, bool transposed, int count) {
  return Format("sparse kernels, y = A%s*x, %s, %d vector%s: time", transposed ? "'" : "", kind.name, count,
                count == 1 ? "" : "s");
}

Goal GoalAgainstRoofline(ProblemKind const& kind, int count) {
  if (kind.name != elasticity.name) return {};
  return AtMost(count == 1 ? 1.15 : 1.35);
}

Goal GoalAgainstPeers(ProblemKind const& kind, bool transposed, int count) {
  if (kind.name == random.name) return {}; // here x should be packed first, for which a kernel has no memory
  if (count == 1) return AtMost(0.80);
  if (kind.name == planeGrid.name) return AtMost(0.65);
  return AtMost(transposed ? 0.48 : 0.45);
}

void ReportProduct(Report& report, ProblemKind const& kind, bool transposed, int count,
                   Contestant const& ours, Contestant const& roofline, std::vector<Contestant> const& peers) {
  std::string const key = Key(transposed, count);
  std::string const claim = Claim(kind, transposed, count);
  double const milliseconds = ours.MedianSecondsOf(key) * 1e3;
  report.Line(claim + " / roofline",
              Format("%.1f : %.1f ms", milliseconds, roofline.MedianSecondsOf(key) * 1e3),
              Ratio(ours, roofline, key), "", GoalAgainstRoofline(kind, count));
  double largest = 0.0;
  std::string figures = Format("%.1f :", milliseconds);
  for (Contestant const& peer : peers) {
    RequireAgreement(peer.rounds[0].at(key).checksum == ours.rounds[0].at(key).checksum,
                     claim + ", " + peer.name);
    largest = std::max(largest, Ratio(ours, peer, key));
    figures +=
        Format("%s %s %.1f", &peer == peers.data() ? "" : ",", peer.name, peer.MedianSecondsOf(key) * 1e3);
  }
  report.Line(claim + " / fastest peer", figures + " ms", largest, "",
              GoalAgainstPeers(kind, transposed, count));
}

bool IsWanted(Report const& report, ProblemKind const& kind) {
  for (int const count : vectorCounts)
    for (bool const transposed : {false, true}) {
      std::string const claim = Claim(kind, transposed, count);
      if (report.Wants(claim + " / roofline") || report.Wants(claim + " / fastest peer")) return true;
    }
  return false;
}

void CompareProducts(Report& report, ProblemKind const& kind) {
  Problem const problem = Problem::Of(kind);
  MatrixFiles const files(problem);
  Contestant ours{"ours", [&] { return TimeOurs(problem); }};
  Contestant roofline{"roofline", [&] { return TimeRoofline(problem); }};
  std::vector<Contestant> peers = Peers(problem, files);
  for (int round = 0; round < kind.rounds; ++round) {
    for (Contestant* const contestant : {&ours, &roofline})
      contestant->rounds.push_back(contestant->run());
    for (Contestant& peer : peers)
      peer.rounds.push_back(peer.run());
  }
  for (int const count : vectorCounts)
    for (bool const transposed : {false, true})
      ReportProduct(report, kind, transposed, count, ours, roofline, peers);
}

} // namespace

void ClaimSparseKernels(Report& report) {
  for (ProblemKind const& kind : {elasticity, planeGrid, random})
    if (IsWanted(report, kind))
      report.Try(Format("sparse kernels, %s", kind.name), [&] { CompareProducts(report, kind); });
}

} // namespace bench
