#include "bench/Claims.h"
#include "bench/HexMesh.h"
#include "bench/TemporaryFolder.h"
#include "core/mem_Allocator.h"
#include "mtx/ORXSrvSparseMatrix.h"
#include "sim/ORXSrvSystemDofDefinition.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

// Each exchange format, with the matrix built or taken apart, against one fread or fwrite of the same bytes.
// The files are in the page cache: what is measured is the format, not the disk.

namespace bench {
namespace {

namespace fs = std::filesystem;
using Triplet = ORXSrvSparseMatrixEntry;

constexpr int elementsPerSide = 30; ///< 7 million entries of an elasticity problem
constexpr int denseOrder = 4000;
constexpr std::int64_t memoryOfRun = std::int64_t{1} << 29;

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using OpenFile = std::unique_ptr<std::FILE, FileCloser>;

OpenFile Open(std::string const& path, char const* mode) {
  OpenFile file(std::fopen(path.c_str(), mode));
  if (file == nullptr) throw std::runtime_error("cannot open " + path);
  return file;
}

/// Compressed rows of the upper triangle, the diagonal apart.
struct Upper {
  std::vector<std::int32_t> starts{0}, columns;
  std::vector<double> values, diagonal;

  explicit Upper(ORXSrvSparseMatrix const& matrix)
      : diagonal(static_cast<std::size_t>(matrix.NumberOfRows())) {
    int count = 0;
    mem_Array<Triplet> const entries(matrix.GetEntries(count));
    std::uint32_t row = 0;
    for (Triplet const* e = entries.get(); e != entries.get() + count; ++e) {
      for (; row < e->row; ++row)
        starts.push_back(static_cast<std::int32_t>(columns.size()));
      if (e->row == e->column) diagonal[e->row] = e->value;
      if (e->column <= e->row) continue;
      columns.push_back(static_cast<std::int32_t>(e->column));
      values.push_back(e->value);
    }
    while (starts.size() <= diagonal.size())
      starts.push_back(static_cast<std::int32_t>(columns.size()));
  }
  std::int32_t Order() const { return static_cast<std::int32_t>(diagonal.size()); }
  std::int32_t Count() const { return static_cast<std::int32_t>(columns.size()); }
};

template<class T>
void Append(std::string& bytes, T const* values, std::size_t count) {
  bytes.append(reinterpret_cast<char const*>(values), count * sizeof(T));
}
template<class T>
void Append(std::string& bytes, std::vector<T> const& values) {
  Append(bytes, values.data(), values.size());
}

/// One block of the smallest size that takes all entries.
std::string BlockBytes(Upper const& upper, bool isUnsymmetric) {
  std::int32_t exponent = 0;
  while (std::int64_t{1} << exponent < upper.Count())
    ++exponent;
  std::string bytes;
  std::int32_t const header[] = {upper.Order(), upper.Count(), 1, isUnsymmetric ? 1 : 0, exponent, 0};
  Append(bytes, header, 6);
  Append(bytes, upper.starts);
  Append(bytes, upper.diagonal);
  std::size_t const padding = (std::size_t{1} << exponent) - upper.columns.size();
  Append(bytes, upper.columns);
  bytes.append(4 * padding, '\0');
  for (int section = 0; section < (isUnsymmetric ? 2 : 1); ++section) {
    Append(bytes, upper.values);
    bytes.append(8 * padding, '\0');
  }
  return bytes;
}

void AppendRecord(std::string& bytes, std::string const& record) {
  auto const length = static_cast<std::int32_t>(record.size());
  Append(bytes, &length, 1);
  bytes += record;
  Append(bytes, &length, 1);
}

std::string FortranBytes(Upper const& upper) {
  std::string bytes, record;
  std::int32_t const order = upper.Order();
  Append(record, &order, 1);
  AppendRecord(bytes, record);
  for (std::size_t i = 0; i < upper.diagonal.size(); ++i) {
    auto const first = static_cast<std::size_t>(upper.starts[i]);
    std::vector<std::int32_t> numbers{upper.starts[i + 1] - upper.starts[i] + 1,
                                      static_cast<std::int32_t>(i) + 1};
    std::vector<double> values{upper.diagonal[i]};
    for (auto k = first; k < static_cast<std::size_t>(upper.starts[i + 1]); ++k) {
      numbers.push_back(upper.columns[k] + 1);
      values.push_back(upper.values[k]);
    }
    record.clear();
    Append(record, numbers);
    Append(record, values);
    AppendRecord(bytes, record);
  }
  return bytes;
}

void Assemble(ORXSrvSparseMatrix& matrix) {
  HexMesh const mesh(elementsPerSide, AssemblyOrder::Natural);
  mesh.ForEachTriplet([&](int row, int column, double value) {
    matrix.AddData(static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(column), value);
  });
  matrix.EndAssembly();
}

/// One value in fifty.
void AssembleForDense(ORXSrvSparseMatrix& matrix) {
  for (std::uint32_t i = 0; i < denseOrder; ++i)
    for (std::uint32_t j = i % 50; j < denseOrder; j += 50)
      matrix.AddData(i, j, 1.0 + i);
  matrix.EndAssembly();
}

/// What all claims of the group work on.
struct Data {
  TemporaryFolder folder;
  ORXSrvSparseMatrix general{0, 0}, forDense{denseOrder, denseOrder}, symmetric{0, 0};
  std::unique_ptr<ORXSrvSystemDofDefinition> dofs;

  Data() {
    Assemble(general);
    AssembleForDense(forDense);
    Upper const upper(general);
    Save("fortran", FortranBytes(upper));
    Save("block", BlockBytes(upper, false));
    Save("unsymmetric", BlockBytes(upper, true));
    symmetric.Import(Path("block").c_str(), 1);
    symmetric.Export(Path("chunked").c_str(), 6, nullptr);
    forDense.Export(Path("dense").c_str(), 7, nullptr);
    general.Export(Path("text").c_str(), 3, nullptr);
    ORXSimArray<ORXSrvNodeDof> equations;
    for (int k = 0; k < general.NumberOfRows(); ++k)
      equations.Append({k / 3 + 1, k % 3 + 1});
    dofs = std::make_unique<ORXSrvSystemDofDefinition>(equations);
  }
  std::string Path(std::string const& name) const { return folder.File(name.c_str()); }
  void Save(std::string const& name, std::string const& bytes) const {
    if (std::fwrite(bytes.data(), 1, bytes.size(), Open(Path(name), "wb").get()) != bytes.size())
      throw std::runtime_error("cannot write " + name);
  }
};

double FreadWhole(std::string const& path) {
  WarmMemory(memoryOfRun);
  double const start = Now();
  auto const size = static_cast<std::int64_t>(fs::file_size(path));
  auto const bytes = mem_MakeArray<char>(size);
  bool const isWhole = std::fread(bytes.get(), 1, static_cast<std::size_t>(size), Open(path, "rb").get()) ==
                       static_cast<std::size_t>(size);
  double const seconds = Now() - start;
  RequireAgreement(isWhole, "fread of " + path);
  return seconds;
}

double FwriteWhole(std::string const& from, std::string const& to) {
  auto const size = fs::file_size(from);
  auto const bytes = mem_MakeArray<char>(static_cast<std::int64_t>(size));
  RequireAgreement(std::fread(bytes.get(), 1, size, Open(from, "rb").get()) == size, "fread");
  fs::remove(to);
  WarmMemory(memoryOfRun);
  double const start = Now();
  OpenFile file = Open(to, "wb");
  bool isWritten = std::fwrite(bytes.get(), 1, size, file.get()) == size;
  isWritten = std::fclose(file.release()) == 0 && isWritten;
  double const seconds = Now() - start;
  RequireAgreement(isWritten, "fwrite of " + to);
  return seconds;
}

void ReportShare(Report& report, std::string const& claim, std::string const& path, Pairs const& pairs,
                 Goal goal) {
  double const megabytes = static_cast<double>(fs::file_size(path)) / 1e6;
  report.Line(claim,
              Format("%.0f MB, %.0f : %.0f MB/s", megabytes, megabytes / pairs.ours, megabytes / pairs.peers),
              1.0 / pairs.ratio, " x", goal);
}

struct Reading {
  char const* name;
  char const* file;
  int code;
  ORXSrvSparseMatrix Data::*holds; ///< what the file was made of; null: not compared
  Goal goal;
};
constexpr Reading readings[] = {{"Fortran records", "fortran", 0, &Data::symmetric, AtLeast(0.15)},
                                {"block binary, symmetric", "block", 1, &Data::symmetric, AtLeast(0.5)},
                                {"block binary, unsymmetric", "unsymmetric", 1, &Data::general, {}},
                                {"chunked binary", "chunked", 6, &Data::symmetric, AtLeast(0.5)},
                                {"dense binary", "dense", 7, &Data::forDense, AtLeast(0.5)},
                                {"text", "text", 3, nullptr, {}}};

bool AreEqual(ORXSrvSparseMatrix const& a, ORXSrvSparseMatrix const& b) {
  int countOfA = 0, countOfB = 0;
  mem_Array<Triplet> const ofA(a.GetEntries(countOfA)), ofB(b.GetEntries(countOfB));
  return std::equal(ofA.get(), ofA.get() + countOfA, ofB.get(), ofB.get() + countOfB,
                    [](Triplet const& x, Triplet const& y) {
                      return x.row == y.row && x.column == y.column && x.value == y.value;
                    });
}

void ClaimReading(Report& report, std::string const& claim, Reading const& reading, Data const& data) {
  std::string const path = data.Path(reading.file);
  Pairs const pairs = MeasurePairs(
      [&] {
        WarmMemory(memoryOfRun);
        ORXSrvSparseMatrix matrix(0, 0);
        double const start = Now();
        matrix.Import(path.c_str(), reading.code);
        double const seconds = Now() - start;
        if (reading.holds != nullptr)
          RequireAgreement(AreEqual(matrix, data.*reading.holds), std::string("entries of ") + reading.name);
        return seconds;
      },
      [&] { return FreadWhole(path); }, 3.0, 5);
  ReportShare(report, claim, path, pairs, reading.goal);
}

struct Writing {
  char const* name;
  int code;
  ORXSrvSparseMatrix Data::*matrix;
  Goal goal;
};
constexpr Writing writings[] = {{"chunked binary", 6, &Data::symmetric, AtLeast(0.5)},
                                {"dense binary", 7, &Data::forDense, AtLeast(0.5)},
                                {"text, one-based", 3, &Data::general, {}},
                                {"text, zero-based", 5, &Data::general, {}},
                                {"text, node numbers", 4, &Data::general, {}}};

void ClaimWriting(Report& report, std::string const& claim, Writing const& writing, Data const& data) {
  std::string const ours = data.Path("ours");
  std::string const copy = data.Path("copy");
  auto const write = [&] {
    fs::remove(ours);
    WarmMemory(memoryOfRun);
    double const start = Now();
    (data.*writing.matrix).Export(ours.c_str(), writing.code, data.dofs.get());
    return Now() - start;
  };
  write();
  Pairs const pairs = MeasurePairs(
      write, [&] { return FwriteWhole(ours, copy); }, 3.0, 5);
  ReportShare(report, claim, ours, pairs, writing.goal);
}

} // namespace

void ClaimExchangeFiles(Report& report) {
  std::unique_ptr<Data> made;
  auto const data = [&]() -> Data const& {
    if (!made) made = std::make_unique<Data>();
    return *made;
  };
  for (Reading const& reading : readings) {
    std::string const claim =
        std::string("exchange, reading ") + reading.name + ": speed of Import over one fread of the file";
    if (report.Wants(claim)) report.Try(claim, [&] { ClaimReading(report, claim, reading, data()); });
  }
  for (Writing const& writing : writings) {
    std::string const claim =
        std::string("exchange, writing ") + writing.name + ": speed of Export over one fwrite of the bytes";
    if (report.Wants(claim)) report.Try(claim, [&] { ClaimWriting(report, claim, writing, data()); });
  }
}

} // namespace bench
