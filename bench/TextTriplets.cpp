#include "bench/Claims.h"
#include "bench/HexMesh.h"
#include "bench/Python.h"
#include "bench/TemporaryFolder.h"
#include "core/mem_Allocator.h"
#include "mtx/ORXSrvSparseMatrix.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

// Three million entries with values of 16 digits and many magnitudes, in the pattern of an elasticity
// problem. The files are in the page cache: what is measured is the conversion, not the disk.

namespace bench {
namespace {

namespace fs = std::filesystem;

constexpr int elementsPerSide = 23;
constexpr int textFormat = 3;
/// More than a run takes.
constexpr std::int64_t memoryOfRun = std::int64_t{1} << 28;

/// A stdio file that is closed with its scope; for the peers.
class StdFile {
public:
  StdFile(std::string const& path, char const* mode) : m_file(std::fopen(path.c_str(), mode), std::fclose) {
    if (m_file == nullptr) throw std::runtime_error("cannot open " + path);
  }
  operator std::FILE*() const { return m_file.get(); } // NOLINT: stands for the file in calls

private:
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> m_file;
};

/// The value that the 16 digits of a text file stand for.
double Rounded(double value) { return std::strtod(Format("%.15e", value).c_str(), nullptr); }

/// One entry for each pair of unknowns that share an element.
mem_Array<ORXSrvSparseMatrixEntry> Pattern(int& count) {
  ORXSrvSparseMatrix matrix(0, 0);
  HexMesh const mesh(elementsPerSide, AssemblyOrder::Natural);
  mesh.ForEachTriplet([&](int row, int column, double value) {
    matrix.AddData(static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(column), value);
  });
  matrix.EndAssembly();
  return mem_Array<ORXSrvSparseMatrixEntry>(matrix.GetEntries(count));
}

/// Values of 16 digits from 1e-4 to 1e9 in magnitude.
void AssembleValues(ORXSrvSparseMatrix& matrix) {
  std::mt19937_64 generator(3);
  std::uniform_real_distribution<double> mantissa(-10.0, 10.0);
  std::uniform_int_distribution<int> exponent(-4, 8);
  int count = 0;
  mem_Array<ORXSrvSparseMatrixEntry> const pattern = Pattern(count);
  for (int k = 0; k < count; ++k)
    matrix.AddData(pattern[k].row, pattern[k].column,
                   Rounded(mantissa(generator) * std::pow(10.0, exponent(generator))));
  matrix.EndAssembly();
}

/// What all claims of the group work on.
struct TextData {
  TemporaryFolder folder;
  ORXSrvSparseMatrix matrix{0, 0};
  mem_Array<ORXSrvSparseMatrixEntry> entries; ///< of the matrix
  int count = 0;
  std::string path;       ///< the matrix as text
  double megabytes = 0.0; ///< of that file

  TextData() : path(folder.File("text.txt")) {
    AssembleValues(matrix);
    entries.reset(matrix.GetEntries(count));
    matrix.Export(path.c_str(), textFormat, nullptr);
    megabytes = static_cast<double>(fs::file_size(path)) / 1e6;
  }
  std::span<ORXSrvSparseMatrixEntry const> Entries() const {
    return {entries.get(), static_cast<std::size_t>(count)};
  }
};

std::string Figures(TextData const& data, Pairs const& pairs) {
  return Format("%.0f : %.0f MB/s, %.0f : %.0f ns/entry", data.megabytes / pairs.ours,
                data.megabytes / pairs.peers, pairs.ours / data.count * 1e9, pairs.peers / data.count * 1e9);
}

/// Speed-up: the peer's time over ours.
void ReportSpeedUp(Report& report, std::string const& claim, TextData const& data, Pairs const& pairs,
                   Goal goal) {
  report.Line(claim, Figures(data, pairs), 1.0 / pairs.ratio, " x", goal);
}

// ---- reading

bool AreEqual(std::span<ORXSrvSparseMatrixEntry const> a, std::span<ORXSrvSparseMatrixEntry const> b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](auto const& x, auto const& y) {
    return x.row == y.row && x.column == y.column && x.value == y.value;
  });
}

/// Seconds of a whole import, with the compressed matrix built.
double ImportOurs(TextData const& data) {
  WarmMemory(memoryOfRun);
  ORXSrvSparseMatrix matrix(0, 0);
  double const start = Now();
  matrix.Import(data.path.c_str(), textFormat);
  double const seconds = Now() - start;
  int count = 0;
  mem_Array<ORXSrvSparseMatrixEntry> const entries(matrix.GetEntries(count));
  RequireAgreement(AreEqual({entries.get(), static_cast<std::size_t>(count)}, data.Entries()),
                   "entries read by Import");
  return seconds;
}

struct Columns {
  std::vector<int> rows, columns; ///< one-based
  std::vector<double> values;

  explicit Columns(int count)
      : rows(static_cast<std::size_t>(count)), columns(rows.size()), values(rows.size()) {}
  bool Agrees(TextData const& data) const {
    for (std::size_t k = 0; k < values.size(); ++k) {
      ORXSrvSparseMatrixEntry const& e = data.entries[k];
      if (static_cast<std::uint32_t>(rows[k]) != e.row + 1 ||
          static_cast<std::uint32_t>(columns[k]) != e.column + 1 || values[k] != e.value)
        return false;
    }
    return true;
  }
};

/// False when the file holds fewer items than there is room for.
bool Scan(std::string const& path, Columns& into) {
  StdFile const file(path, "r");
  for (std::size_t k = 0; k < into.values.size(); ++k)
    if (std::fscanf(file, "%d %d %lf", &into.rows[k], &into.columns[k], &into.values[k]) !=
        3) // NOLINT: the peer
      return false;
  return true;
}

/// Seconds of the loop alone, into arrays whose pages are there already.
double ScanEntries(TextData const& data) {
  Columns read(data.count);
  double const start = Now();
  bool const complete = Scan(data.path, read);
  double const seconds = Now() - start;
  RequireAgreement(complete && read.Agrees(data), "entries read by fscanf");
  return seconds;
}

/// Seconds of the loop and of the assembly of what it read: all that an import does.
double ScanAndAssemble(TextData const& data) {
  WarmMemory(memoryOfRun);
  Columns read(data.count);
  double const start = Now();
  Scan(data.path, read);
  ORXSrvSparseMatrix matrix(0, 0);
  matrix.BeginAssembly();
  for (std::size_t k = 0; k < read.values.size(); ++k)
    matrix.AddData(static_cast<std::uint32_t>(read.rows[k]) - 1,
                   static_cast<std::uint32_t>(read.columns[k]) - 1, read.values[k]);
  matrix.EndAssembly();
  double const seconds = Now() - start;
  RequireAgreement(matrix.NumberOfNonzeros() == data.count, "entries assembled from fscanf");
  return seconds;
}

struct ReadingClaim {
  char const* text;
  double (*peer)(TextData const& data);
  Goal goal;
};

constexpr ReadingClaim readingClaims[] = {
    {"text, reading: speed-up of Import, matrix built, over the fscanf loop alone",
     ScanEntries,
     {Goal::Kind::AtLeast, 8.0}},
    {"text, reading: speed-up of Import, matrix built, over fscanf + AddData + EndAssembly",
     ScanAndAssemble,
     {}}};

// ---- writing

double ExportOurs(TextData const& data, std::string const& path) {
  fs::remove(path);
  WarmMemory(memoryOfRun);
  double const start = Now();
  data.matrix.Export(path.c_str(), textFormat, nullptr);
  return Now() - start;
}

double PrintEntries(TextData const& data, std::string const& path) {
  fs::remove(path);
  WarmMemory(memoryOfRun);
  double const start = Now();
  {
    StdFile const file(path, "w");
    for (ORXSrvSparseMatrixEntry const& e : data.Entries())
      std::fprintf(file, "%ld %ld %18.15le\n", long{e.row} + 1, long{e.column} + 1, e.value);
  }
  return Now() - start;
}

bool AreSameFiles(std::string const& a, std::string const& b) {
  std::ifstream first(a, std::ios::binary), second(b, std::ios::binary);
  using Bytes = std::istreambuf_iterator<char>;
  return fs::file_size(a) == fs::file_size(b) && std::equal(Bytes(first), Bytes(), Bytes(second), Bytes());
}

void CompareWithPrintf(Report& report, std::string const& claim, TextData const& data) {
  std::string const ours = data.folder.File("ours.txt");
  std::string const printed = data.folder.File("printed.txt");
  Pairs const pairs = MeasurePairs([&] { return ExportOurs(data, ours); },
                                   [&] { return PrintEntries(data, printed); }, 5.0, 5);
  RequireAgreement(AreSameFiles(ours, printed), "the bytes of Export and of fprintf");
  ReportSpeedUp(report, claim, data, pairs, AtLeast(6.0));
}

// ---- SciPy and NumPy

template<class T, class Get>
void WriteArray(std::string const& path, TextData const& data, Get get) {
  std::vector<T> values;
  for (ORXSrvSparseMatrixEntry const& e : data.Entries())
    values.push_back(static_cast<T>(get(e)));
  StdFile const file(path, "wb");
  if (std::fwrite(values.data(), sizeof(T), values.size(), file) != values.size())
    throw std::runtime_error("cannot write " + path);
}

/// The files that text_peers.py works on, beside the text itself.
void WritePeersFiles(TextData const& data) {
  WriteArray<std::int32_t>(data.folder.File("rows.bin"), data, [](auto const& e) { return e.row; });
  WriteArray<std::int32_t>(data.folder.File("columns.bin"), data, [](auto const& e) { return e.column; });
  WriteArray<double>(data.folder.File("values.bin"), data, [](auto const& e) { return e.value; });
  std::ofstream market(data.folder.File("text.mtx"), std::ios::binary);
  market << "%%MatrixMarket matrix coordinate real general\n"
         << data.matrix.NumberOfRows() << ' ' << data.matrix.NumberOfColumns() << ' ' << data.count << '\n'
         << std::ifstream(data.path, std::ios::binary).rdbuf();
  if (!market.flush()) throw std::runtime_error("cannot write text.mtx");
}

double RunPython(std::string const& python, char const* task, TextData const& data) {
  auto const lines = RunProgram(TextPeersCommand(python) + " " + task + " " + data.folder.Path());
  RequireAgreement(Number(lines, "agrees") == 1.0, task);
  return Number(lines, "seconds");
}

struct PythonPeer {
  char const* task;
  char const* claim;
  bool reads;
};

void CompareWithPython(Report& report, PythonPeer const& peer, std::string const& python,
                       TextData const& data) {
  std::string const scratch = data.folder.File("ours.txt");
  auto const ours = [&] { return peer.reads ? ImportOurs(data) : ExportOurs(data, scratch); };
  Pairs const pairs = MeasurePairs(
      ours, [&] { return RunPython(python, peer.task, data); }, 0.0, 1);
  ReportSpeedUp(report, peer.claim, data, pairs, {});
}

constexpr PythonPeer pythonPeers[] = {
    {"loadtxt", "text, reading: speed-up of Import over numpy.loadtxt", true},
    {"mmread", "text, reading: speed-up of Import over scipy.io.mmread", true},
    {"mmwrite", "text, writing: speed-up of Export over scipy.io.mmwrite", false}};

void ClaimAgainstPython(Report& report, std::function<TextData const&()> const& data) {
  std::string const python = PythonWithSciPy();
  bool filesWritten = false;
  for (PythonPeer const& peer : pythonPeers) {
    if (!report.Wants(peer.claim)) continue;
    if (python.empty()) {
      report.Absent(peer.claim, "SciPy");
      continue;
    }
    report.Try(peer.claim, [&] {
      if (!filesWritten) WritePeersFiles(data());
      filesWritten = true;
      CompareWithPython(report, peer, python, data());
    });
  }
}

} // namespace

void ClaimTextTriplets(Report& report) {
  std::unique_ptr<TextData> made;
  auto const data = [&]() -> TextData const& {
    if (!made) made = std::make_unique<TextData>();
    return *made;
  };
  for (ReadingClaim const& claim : readingClaims) {
    if (!report.Wants(claim.text)) continue;
    report.Try(claim.text, [&] {
      Pairs const pairs =
          MeasurePairs([&] { return ImportOurs(data()); }, [&] { return claim.peer(data()); }, 5.0, 5);
      ReportSpeedUp(report, claim.text, data(), pairs, claim.goal);
    });
  }
  std::string const writing = "text, writing: speed-up of Export over the fprintf loop, same bytes";
  if (report.Wants(writing)) report.Try(writing, [&] { CompareWithPrintf(report, writing, data()); });
  ClaimAgainstPython(report, data);
}

} // namespace bench
