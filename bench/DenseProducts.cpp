#include "bench/Claims.h"
#include "bench/Process.h"
#include "bench/Python.h"

#include "blac/BLAC.h"
#include "core/ORXUnicodeString.h"
#include "mtx/ORXSrvDenseMatrix.h"
#include "mtx/ORXSrvMatrix.h"
#include "mtx/ORXSrvProgress.h"
#include "mtx/ORXSrvUtilities.h"
#include "sim/ORXSimCollection.h"
#include "sim/ORXSimContext.h"
#include "sim/ORXSimDatabase.h"
#include "sim/ORXSimTransaction.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

// Products of block matrices in a file against DGEMM of the same library on arrays in memory (of the suite
// allocator: on 2 MB pages), and against other ways to multiply what does not fit into memory. The file is in
// the page cache, as it is for a program that works on it.

namespace bench {
namespace {

constexpr int productOrder = 4096;
constexpr int tallOrder = 8192;
constexpr int tallColumns = 64;

/// Small integers, so that every product is exact and all contenders must agree to the last bit.
double Value(int i, int j, int seed) { return (i * 37 + j * 101 + seed) % 97 - 48; }

ORXSrvMatrix InMemory(int rows, int columns, int seed) {
  ORXSrvMatrix matrix(rows, columns);
  for (int j = 0; j < columns; ++j)
    for (int i = 0; i < rows; ++i)
      matrix.Values()[std::int64_t{j} * rows + i] = Value(i, j, seed);
  return matrix;
}

/// Where the files are: the folder the program was started in.
std::string Scratch(char const* name) {
  return (std::filesystem::current_path() / (Format("orx_bench_%d_", getpid()) + name)).string();
}

/// Square block matrices in a database file of their own.
class Database {
public:
  Database() : m_path(Scratch("products.sim")) {
    m_database.CreateFile(ORXUnicodeString(m_path.c_str()), ORXSimDatabase::replaceExisting, -1);
    m_context = m_database.CreateContext({});
  }
  Database(Database const&) = delete;
  Database& operator=(Database const&) = delete;
  ~Database() {
    m_database.Close();
    std::filesystem::remove(m_path);
  }

  std::unique_ptr<ORXSrvDenseMatrix> Matrix(int order, int block) {
    ORXSimTransaction transaction(m_context);
    ORXSimContext const context(m_context);
    auto const set = [&] {
      return ORXSimCollection(context.CreateCollection(order, ORXSimTypeID(-1))).BiggestCSetID();
    };
    ORXSimDistributionID const id = ORXSrvUtilities::Create2DDistribution(set(), set(), block, block);
    transaction.Commit();
    return std::make_unique<ORXSrvDenseMatrix>(id);
  }
  std::unique_ptr<ORXSrvDenseMatrix> Matrix(ORXSrvMatrix const& values, int block) {
    auto matrix = Matrix(values.NumberOfRows(), block);
    matrix->SetColumns(0, values.NumberOfColumns() - 1, values);
    return matrix;
  }

private:
  std::string m_path;
  ORXSimDatabase m_database;
  ORXSimContextID m_context;
};

template<class Task>
TimedRun Timed(Task task) {
  return [task] {
    double const start = Now();
    task();
    return Now() - start;
  };
}

void MultiplyInMemory(char const* transposition, ORXSrvMatrix const& a, ORXSrvMatrix const& b,
                      ORXSrvMatrix& c) {
  double const one = 1.0;
  double const zero = 0.0;
  int const m = c.NumberOfRows();
  int const n = c.NumberOfColumns();
  int const k = b.NumberOfRows();
  int const lda = a.NumberOfRows();
  BLAC_DGEMM(transposition, "N", &m, &n, &k, &one, a.Values(), &lda, b.Values(), &k, &zero, c.Values(), &m);
}

bool SameValues(ORXSrvMatrix const& a, ORXSrvMatrix const& b) {
  return std::memcmp(a.Values(), b.Values(), static_cast<std::size_t>(a.NumberOfStoredValues()) * 8) == 0;
}

std::string Speeds(double operations, Pairs const& pairs) {
  return Format("%.1f : %.1f GFlop/s", operations / pairs.ours * 1e-9, operations / pairs.peers * 1e-9);
}

// ---- all three matrices out of core

std::string ProductClaim(int block, char const* peer) {
  return Format("C = A*B out of core, n = %d, blocks %d: speed / %s", productOrder, block, peer);
}

constexpr double productOperations = 2.0 * productOrder * productOrder * productOrder;

/// Memory of this process that no file backs; the mapped blocks of a database are page cache.
double AnonymousMegabytes() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with("RssAnon:")) return std::atof(line.c_str() + 8) * 1024e-6;
  return 0.0;
}

/// The work memory of a product, looked at after each block.
double WorkMegabytes(ORXSrvDenseMatrix const& a, ORXSrvDenseMatrix const& b, ORXSrvDenseMatrix& c) {
  // What DGEMM takes for itself, once, is not counted.
  ORXSrvMatrix product(512, productOrder);
  MultiplyInMemory("N", InMemory(512, 512, 1), InMemory(512, productOrder, 1), product);
  double peak = 0.0;
  double const before = AnonymousMegabytes();
  ORXSrvProgress::Set(
      [](void* context, char const*, std::int64_t, std::int64_t) {
        double& most = *static_cast<double*>(context);
        most = std::max(most, AnonymousMegabytes());
        return true;
      },
      &peak);
  a.Multiply(b, c);
  ORXSrvProgress::Set(nullptr, nullptr);
  return peak - before;
}

/// Bytes of a row panel of A, a column panel of B and a tile of C, as the budget of one panel beside C has
/// it.
double ExpectedWorkMegabytes(int block) {
  double const n = productOrder;
  return 8.0 * (n * block + n * n + block * n) * 1e-6;
}

void CompareProduct(Report& report, int block) {
  std::string const claim = ProductClaim(block, "in-memory DGEMM");
  std::string const memory =
      Format("C = A*B out of core, n = %d, blocks %d: work memory", productOrder, block);
  if (!report.Wants(claim) && !report.Wants(memory)) return;
  Database database;
  ORXSrvMatrix const a = InMemory(productOrder, productOrder, 1);
  ORXSrvMatrix const b = InMemory(productOrder, productOrder, 2);
  ORXSrvMatrix c(productOrder, productOrder);
  auto const blocksA = database.Matrix(a, block);
  auto const blocksB = database.Matrix(b, block);
  auto const blocksC = database.Matrix(productOrder, block);
  double const work = WorkMegabytes(*blocksA, *blocksB, *blocksC);
  if (report.Wants(claim)) {
    auto const timed = Timed([&] { blocksA->Multiply(*blocksB, *blocksC); });
    auto const ours = [&] {
      WarmMemory(static_cast<std::int64_t>(ExpectedWorkMegabytes(block) * 1.1e6));
      return timed();
    };
    Pairs const pairs = MeasurePairs(ours, Timed([&] { MultiplyInMemory("N", a, b, c); }), 30.0, 3);
    ORXSrvMatrix result(productOrder, productOrder);
    blocksC->GetColumns(0, productOrder - 1, result);
    RequireAgreement(SameValues(result, c), claim);
    report.Line(claim, Speeds(productOperations, pairs), 1.0 / pairs.ratio, "", AtLeast(0.95));
  }
  report.Line(memory,
              Format("by the budget %.0f MB, the operands %.0f MB", ExpectedWorkMegabytes(block),
                     3 * 8.0 * productOrder * productOrder * 1e-6),
              work, "MB", AtMost(1.02 * ExpectedWorkMegabytes(block)));
}

// ---- other ways to multiply out of core

struct Peer {
  char const* name;
  char const* modules;
  char const* mode;
};

void CompareWithPeer(Report& report, Peer const& peer) {
  constexpr int block = 1024;
  std::string const claim = ProductClaim(block, peer.name);
  if (!report.Wants(claim)) return;
  std::string const python = PythonWith(peer.modules);
  if (python.empty()) {
    report.Absent(claim, peer.modules);
    return;
  }
  Database database;
  auto const a = database.Matrix(InMemory(productOrder, productOrder, 1), block);
  auto const b = database.Matrix(InMemory(productOrder, productOrder, 2), block);
  auto const c = database.Matrix(productOrder, block);
  std::string const command =
      Format("OPENBLAS_NUM_THREADS=1 OMP_NUM_THREADS=1 %s '%s' %s '%s' %d %d", python.c_str(),
             ORX_BENCH_PRODUCT_PEERS, peer.mode, Scratch("peer").c_str(), productOrder, block);
  double theirs = 0.0;
  Pairs const pairs = MeasurePairs(
      Timed([&] { a->Multiply(*b, *c); }),
      [&] {
        auto const lines = RunProgram(command);
        theirs = Number(lines, "value");
        return Number(lines, "seconds");
      },
      20.0, 3);
  ORXSrvMatrix cell(1, 1);
  c->GetValues(1234, 1234, 3210, 3210, cell);
  RequireAgreement(cell.Values()[0] == theirs, claim);
  report.Line(claim, Speeds(productOperations, pairs), 1.0 / pairs.ratio, "", {});
}

// ---- one block matrix and tall matrices in memory

void CompareTallProducts(Report& report, int block) {
  auto const claim = [&](char const* product) {
    return Format("%s, A out of core, n = %d, blocks %d, %d columns: speed / in-memory DGEMM", product,
                  tallOrder, block, tallColumns);
  };
  std::string const plain = claim("A*B");
  std::string const transposed = claim("A^T*B");
  if (!report.Wants(plain) && !report.Wants(transposed)) return;
  Database database;
  ORXSrvMatrix const a = InMemory(tallOrder, tallOrder, 1);
  ORXSrvMatrix const b = InMemory(tallOrder, tallColumns, 2);
  ORXSrvMatrix ours(tallOrder, tallColumns);
  ORXSrvMatrix theirs(tallOrder, tallColumns);
  auto const blocks = database.Matrix(a, block);
  double const operations = 2.0 * tallOrder * tallOrder * tallColumns;
  auto const compare = [&](std::string const& text, char const* transposition, auto const& product) {
    if (!report.Wants(text)) return;
    Pairs const pairs =
        MeasurePairs(Timed(product), Timed([&] { MultiplyInMemory(transposition, a, b, theirs); }), 8.0, 10);
    RequireAgreement(SameValues(ours, theirs), text);
    report.Line(text, Speeds(operations, pairs), 1.0 / pairs.ratio, "", AtLeast(0.80));
  };
  compare(plain, "N", [&] { blocks->Multiply(b, ours); });
  compare(transposed, "T", [&] { blocks->TransposeMultiply(b, ours, 0); });
}

// ---- operations that are limited by memory

/// The peer copies between two arrays so that as many bytes are read and written as the operation must.
void CompareUpdates(Report& report, int block) {
  auto const claim = [&](char const* operation) {
    return Format("%s, n = %d, blocks %d: speed / its bytes at the speed of memcpy", operation, tallOrder,
                  block);
  };
  if (!report.Wants(claim("Scale")) && !report.Wants(claim("AddAssign")) &&
      !report.Wants(claim("IsSymmetric")))
    return;
  Database database;
  constexpr std::int64_t bytes = std::int64_t{8} * tallOrder * tallOrder;
  ORXSrvMatrix values(tallOrder, tallOrder);
  for (int j = 0; j < tallOrder; ++j)
    for (int i = 0; i < tallOrder; ++i)
      values.Values()[std::int64_t{j} * tallOrder + i] = Value(i + j, 0, i ^ j);
  ORXSrvMatrix target(tallOrder, tallOrder);
  target = 0.0;
  auto const a = database.Matrix(values, block);
  auto const b = database.Matrix(values, block);
  auto const compare = [&](char const* operation, std::int64_t moved, auto const& task) {
    if (!report.Wants(claim(operation))) return;
    auto const copy = [&, moved] {
      for (std::int64_t rest = moved / 2; rest > 0; rest -= bytes)
        std::memcpy(target.Values(), values.Values(), static_cast<std::size_t>(std::min(rest, bytes)));
    };
    Pairs const pairs = MeasurePairs(Timed(task), Timed(copy), 5.0, 10);
    report.Line(claim(operation),
                Format("%.2f : %.2f GB/s", static_cast<double>(moved) / pairs.ours * 1e-9,
                       static_cast<double>(moved) / pairs.peers * 1e-9),
                1.0 / pairs.ratio, "", {});
  };
  compare("IsSymmetric", bytes, [&] { RequireAgreement(a->IsSymmetric(), "symmetry"); });
  compare("AddAssign", 3 * bytes, [&] { a->AddAssign(*b); });
  compare("Scale", 2 * bytes, [&] { a->Scale(0.5); });
}

// ---- overhead of one access

void MeasureSmallRectangles(Report& report) {
  std::string const claim = "one 16 x 16 rectangle through GetValues of a block matrix";
  if (!report.Wants(claim)) return;
  constexpr int reads = 20000;
  Database database;
  ORXSrvMatrix const values = InMemory(productOrder, productOrder, 1);
  auto const matrix = database.Matrix(values, 1024);
  ORXSrvMatrix cells(16, 16);
  ORXSrvMatrix theirCells(16, 16);
  auto const visit = [](auto const& read) {
    for (int k = 0; k < reads; ++k)
      read((k * 4099 + 7) % (productOrder - 16), (k * 31 + 11) % 512);
  };
  Pairs const pairs = MeasurePairs(
      Timed([&] { visit([&](int r, int c) { matrix->GetValues(r, r + 15, c, c + 15, cells); }); }),
      Timed([&] { visit([&](int r, int c) { values.GetValues(r, r + 15, c, c + 15, theirCells); }); }), 2.0,
      10);
  RequireAgreement(SameValues(cells, theirCells), claim);
  report.Line(claim, Format("in memory %.2f us", pairs.peers / reads * 1e6), pairs.ours / reads * 1e6, "us",
              AtMost(2.0));
}

} // namespace

void ClaimDenseProducts(Report& report) {
  for (int const block : {512, 1024})
    report.Try("products out of core", [&] { CompareProduct(report, block); });
  for (Peer const& peer :
       {Peer{"numpy.memmap", "numpy", "memmap"}, Peer{"h5py and dask", "h5py, dask.array", "dask"}})
    report.Try(peer.name, [&] { CompareWithPeer(report, peer); });
  for (int const block : {512, 1024})
    report.Try("tall products", [&] { CompareTallProducts(report, block); });
  report.Try("updates of block matrices", [&] { CompareUpdates(report, 1024); });
  report.Try("small rectangles of block matrices", [&] { MeasureSmallRectangles(report); });
}

} // namespace bench
