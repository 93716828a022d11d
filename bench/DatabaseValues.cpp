#include "bench/Claims.h"
#include "bench/Process.h"
#include "bench/Python.h"
#include "bench/peers/Hdf5Peer.h"

#include "core/ORXUnicodeString.h"
#include "mtx/ORXSrvUtilities.h"
#include "sim/ORXSimCollection.h"
#include "sim/ORXSimContext.h"
#include "sim/ORXSimDatabase.h"
#include "sim/ORXSimTransaction.h"
#include "sim/ORXSimTransfer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

// Values of a dense drawer in a file against the same copies between arrays in memory that are cut into the
// same blocks, against HDF5's own reads and writes with a chunk cache that holds a row of blocks, and against
// numpy.memmap. The file is in the page cache, as it is for a program that works on it.

namespace bench {
namespace {

constexpr int order = 8192;
constexpr std::int64_t matrixBytes = std::int64_t{8} * order * order;

/// Rows r1 ... r2 and columns c1 ... c2, inclusive.
struct Rectangle {
  int r1, r2, c1, c2;
  std::int64_t Rows() const { return r2 - r1 + 1; }
  std::int64_t Columns() const { return c2 - c1 + 1; }
  std::int64_t Bytes() const { return 8 * Rows() * Columns(); }
};

struct BlockShape {
  int rows, columns;
};

/// An array as any program has it, touched; with `largePages` on 2 MB pages, which a program must ask for.
class LargeArray {
public:
  explicit LargeArray(std::int64_t bytes, bool largePages = false)
      : m_bytes(static_cast<std::size_t>(bytes)) {
    void* const place = mmap(nullptr, m_bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (place == MAP_FAILED) throw std::runtime_error("no memory");
    m_data = static_cast<double*>(place);
    madvise(m_data, m_bytes, largePages ? MADV_HUGEPAGE : MADV_NOHUGEPAGE);
    std::memset(m_data, 0, m_bytes);
  }
  LargeArray(LargeArray const&) = delete;
  LargeArray& operator=(LargeArray const&) = delete;
  ~LargeArray() { munmap(m_data, m_bytes); }
  double* Data() const { return m_data; }

private:
  std::size_t m_bytes;
  double* m_data;
};

/// The matrix in memory: blocks one after the other, each column-major.
class MemoryBlocks {
public:
  MemoryBlocks(BlockShape block, bool largePages) : m_block(block), m_values(matrixBytes, largePages) {}

  template<bool isWrite>
  void Move(Rectangle const& r, double* buffer) const {
    std::int64_t const blockRows = order / m_block.rows;
    std::int64_t const blockCells = std::int64_t{m_block.rows} * m_block.columns;
    for (int cb = r.c1 / m_block.columns; cb <= r.c2 / m_block.columns; ++cb)
      for (int rb = r.r1 / m_block.rows; rb <= r.r2 / m_block.rows; ++rb) {
        double* const block = m_values.Data() + (cb * blockRows + rb) * blockCells;
        int const firstColumn = std::max(r.c1, cb * m_block.columns);
        int const lastColumn = std::min(r.c2, (cb + 1) * m_block.columns - 1);
        int const firstRow = std::max(r.r1, rb * m_block.rows);
        int const lastRow = std::min(r.r2, (rb + 1) * m_block.rows - 1);
        auto const rows = static_cast<std::size_t>(lastRow) - static_cast<std::size_t>(firstRow) + 1;
        for (int c = firstColumn; c <= lastColumn; ++c) {
          double* const inBlock =
              block + std::int64_t{c - cb * m_block.columns} * m_block.rows + firstRow - rb * m_block.rows;
          double* const inBuffer = buffer + (c - r.c1) * r.Rows() + firstRow - r.r1;
          if (rows == 1) {
            isWrite ? * inBlock = *inBuffer : * inBuffer = *inBlock;
          } else if constexpr (isWrite) {
            std::memcpy(inBlock, inBuffer, rows * 8);
          } else {
            std::memcpy(inBuffer, inBlock, rows * 8);
          }
        }
      }
  }

private:
  BlockShape m_block;
  LargeArray m_values;
};

/// The matrix in a database file of its own.
class DatabaseBlocks {
public:
  DatabaseBlocks(std::string const& path, BlockShape block) : m_path(path) {
    m_database.CreateFile(ORXUnicodeString(path.c_str()), ORXSimDatabase::replaceExisting, -1);
    ORXSimContextID const id = m_database.CreateContext({});
    ORXSimTransaction transaction(id);
    ORXSimContext const context(id);
    ORXSimCollectionID const rows = context.CreateCollection(order, ORXSimTypeID(-1));
    ORXSimCollectionID const columns = context.CreateCollection(order, ORXSimTypeID(-1));
    m_distribution = ORXSimDistribution(ORXSrvUtilities::Create2DDistribution(
        ORXSimCollection(rows).BiggestCSetID(), ORXSimCollection(columns).BiggestCSetID(), block.rows,
        block.columns));
    transaction.Commit();
    m_rows = rows;
    m_columns = columns;
    m_transfer = std::make_unique<ORXSimTransfer>(m_distribution);
    m_transfer->SetRead().SetWrite().SetBufferPadding(false);
  }
  DatabaseBlocks(DatabaseBlocks const&) = delete;
  DatabaseBlocks& operator=(DatabaseBlocks const&) = delete;
  ~DatabaseBlocks() {
    m_database.Close();
    std::filesystem::remove(m_path);
  }

  template<bool isWrite>
  void Move(Rectangle const& r, double* buffer) const {
    // As the block matrix does it: on a copy of its transfer.
    ORXSimTransfer transfer(*m_transfer);
    transfer.SetDimOrdinalRange(0, m_columns, r.c1, r.c2).SetDimOrdinalRange(1, m_rows, r.r1, r.r2);
    transfer.CheckView().SetBuffer(0, buffer, r.Bytes());
    if (isWrite) {
      transfer.ExecWrite();
    } else {
      transfer.ExecRead();
    }
    transfer.RelinquishBuffers();
  }

private:
  std::string m_path;
  ORXSimDatabase m_database;
  ORXSimDistribution m_distribution;
  ORXSimCollectionID m_rows;
  ORXSimCollectionID m_columns;
  std::unique_ptr<ORXSimTransfer> m_transfer;
};

/// Where the files are: the folder the program was started in.
std::string Scratch(char const* name) {
  return (std::filesystem::current_path() / (Format("orx_bench_%d_", getpid()) + name)).string();
}

constexpr char largePages[] = "memory on 2 MB pages";

struct Task {
  char const* name;
  std::vector<Rectangle> rectangles;
  double readGoal; ///< share of the speed of copies in memory; 0: none
  double writeGoal;
};

std::vector<Task> Tasks(BlockShape block) {
  Task blocks{"blocks", {}, 0.92, 0.85};
  for (int c = 0; c < order; c += block.columns)
    for (int r = 0; r < order; r += block.rows)
      blocks.rectangles.push_back({r, r + block.rows - 1, c, c + block.columns - 1});
  Task rowBlocks{"row blocks", {}, 0.92, 0.85};
  for (int r = 0; r < order; r += 1024)
    rowBlocks.rectangles.push_back({r, r + 1023, 0, order - 1});
  Task unaligned{"unaligned rectangles", {}, 0.92, 0.85};
  for (int c = 517; c + 1000 < order; c += 1024)
    for (int r = 311; r + 900 < order; r += 1024)
      unaligned.rectangles.push_back({r, r + 899, c, c + 999});
  Task row{"512 single rows", {}, 1 / 1.2, 0.0};
  Task column{"512 single columns", {}, 1 / 1.2, 0.0};
  for (int k = 0; k < 512; ++k) {
    int const at = (k * 1237 + 100) % order;
    row.rectangles.push_back({at, at, 0, order - 1});
    column.rectangles.push_back({0, order - 1, at, at});
  }
  return {blocks, rowBlocks, unaligned, row, column};
}

template<bool isWrite, class Store>
TimedRun Timed(Store const& store, std::vector<Rectangle> const& rectangles, double* buffer) {
  return [&store, &rectangles, buffer] {
    double const start = Now();
    for (Rectangle const& r : rectangles)
      store.template Move<isWrite>(r, buffer);
    return Now() - start;
  };
}

std::string Rate(std::vector<Rectangle> const& rectangles, Pairs const& pairs) {
  double bytes = 0;
  for (Rectangle const& r : rectangles)
    bytes += static_cast<double>(r.Bytes());
  return Format("%.2f : %.2f GB/s", bytes / pairs.ours * 1e-9, bytes / pairs.peers * 1e-9);
}

std::string Claim(BlockShape block, char const* task, char const* what, char const* peer) {
  return Format("database, blocks %d x %d, %s: %s, speed / %s", block.rows, block.columns, task, what, peer);
}

template<bool isWrite, class Peer>
void Compare(Report& report, std::string const& claim, DatabaseBlocks const& ours, Peer const& peer,
             Task const& task, Goal goal) {
  if (!report.Wants(claim)) return;
  std::int64_t largest = 0;
  for (Rectangle const& r : task.rectangles)
    largest = std::max(largest, r.Bytes());
  LargeArray const ourBuffer(largest);
  LargeArray const peersBuffer(largest);
  for (std::int64_t k = 0; k < largest / 8; ++k)
    ourBuffer.Data()[k] = peersBuffer.Data()[k] = static_cast<double>(k);
  Pairs const pairs = MeasurePairs(Timed<isWrite>(ours, task.rectangles, ourBuffer.Data()),
                                   Timed<isWrite>(peer, task.rectangles, peersBuffer.Data()), 3.0, 3);
  RequireAgreement(std::memcmp(ourBuffer.Data(), peersBuffer.Data(), static_cast<std::size_t>(largest)) == 0,
                   claim);
  report.Line(claim, Rate(task.rectangles, pairs), 1.0 / pairs.ratio, "", goal);
}

/// Both contenders get the same contents, in pages that have been touched.
template<class Store>
void FillMatrix(Store const& store) {
  LargeArray const columns(std::int64_t{8} * order * 256);
  for (int c = 0; c < order; c += 256) {
    for (std::int64_t k = 0; k < std::int64_t{256} * order; ++k)
      columns.Data()[k] = static_cast<double>(c) * order + static_cast<double>(k);
    store.template Move<true>(Rectangle{0, order - 1, c, c + 255}, columns.Data());
  }
}

void CompareTasks(Report& report, BlockShape block) {
  DatabaseBlocks const ours(Scratch("ours.sim"), block);
  FillMatrix(ours);
  std::vector<Task> const tasks = Tasks(block);
  {
    MemoryBlocks const memory(block, false);
    FillMatrix(memory);
    for (Task const& task : tasks) {
      Compare<false>(report, Claim(block, task.name, "reading", "copies in memory"), ours, memory, task,
                     AtLeast(task.readGoal));
      if (task.writeGoal > 0)
        Compare<true>(report, Claim(block, task.name, "rewriting", "copies in memory"), ours, memory, task,
                      AtLeast(task.writeGoal));
    }
  }
  if (report.Wants(Claim(block, tasks[0].name, "reading", largePages))) {
    MemoryBlocks const memory(block, true);
    FillMatrix(memory);
    FillMatrix(ours);
    for (Task const& task : tasks)
      Compare<false>(report, Claim(block, task.name, "reading", largePages), ours, memory, task, {});
  }
  Hdf5Blocks const hdf5(Scratch("peer.h5"), order, block.rows, block.columns);
  FillMatrix(hdf5);
  FillMatrix(ours);
  for (Task const& task : tasks)
    Compare<false>(report, Claim(block, task.name, "reading", "H5Dread"), ours, hdf5, task, {});
  Compare<true>(report, Claim(block, tasks[0].name, "rewriting", "H5Dwrite"), ours, hdf5, tasks[0], {});
}

/// Each run has a new file, and a new array in memory that nobody has touched.
void CompareFirstWrites(Report& report, BlockShape block) {
  std::string const claim = Claim(block, "blocks", "first writing", "copies in memory");
  if (!report.Wants(claim)) return;
  Task const task = Tasks(block)[0];
  LargeArray const buffer(task.rectangles[0].Bytes());
  auto const ours = [&] {
    DatabaseBlocks const store(Scratch("first.sim"), block);
    return Timed<true>(store, task.rectangles, buffer.Data())();
  };
  auto const memory = [&] {
    MemoryBlocks const store(block, false);
    return Timed<true>(store, task.rectangles, buffer.Data())();
  };
  Pairs const pairs = MeasurePairs(ours, memory, 10.0, 3);
  report.Line(claim, Rate(task.rectangles, pairs), 1.0 / pairs.ratio, "", AtLeast(0.3));
}

void MeasureSmallRectangles(Report& report) {
  std::string const claim = "database: one 16 x 16 rectangle read through a transfer of its own";
  if (!report.Wants(claim)) return;
  BlockShape const block{1024, 1024};
  DatabaseBlocks const ours(Scratch("small.sim"), block);
  FillMatrix(ours);
  MemoryBlocks const memory(block, false);
  FillMatrix(memory);
  std::vector<Rectangle> rectangles;
  for (int k = 0; k < 100000; ++k) {
    int const r = (k * 4099 + 7) % (order - 16);
    int const c = (k * 31 + 11) % 512;
    rectangles.push_back({r, r + 15, c, c + 15});
  }
  double buffer[256];
  Pairs const pairs =
      MeasurePairs(Timed<false>(ours, rectangles, buffer), Timed<false>(memory, rectangles, buffer), 2.0, 5);
  double const microseconds = pairs.ours / static_cast<double>(rectangles.size()) * 1e6;
  report.Line(claim, Format("in memory %.2f us", pairs.peers / static_cast<double>(rectangles.size()) * 1e6),
              microseconds, "us", AtMost(2.0));
}

void CompareWithMemmap(Report& report) {
  BlockShape const block{1024, 1024};
  std::vector<Task> const tasks = Tasks(block);
  std::string const python = PythonWithSciPy();
  std::string const word = Claim(block, tasks[0].name, "reading", "numpy.memmap");
  if (!report.Wants(word)) return;
  if (python.empty()) {
    report.Absent(word, "NumPy");
    return;
  }
  DatabaseBlocks const ours(Scratch("ours.sim"), block);
  FillMatrix(ours);
  auto const peers = RunProgram(python + " '" + ORX_BENCH_MEMMAP_PEER + "' '" + Scratch("memmap.bin") + "'");
  char const* const names[] = {"blocks", "row_blocks", "unaligned", "rows", "columns"};
  for (std::size_t k = 0; k < tasks.size(); ++k) {
    LargeArray const buffer(matrixBytes);
    auto const run = Timed<false>(ours, tasks[k].rectangles, buffer.Data());
    Pairs const pairs = MeasurePairs(run, run, 1.0, 3);
    double const peer = Number(peers, names[k]);
    report.Line(Claim(block, tasks[k].name, "reading", "numpy.memmap"),
                Rate(tasks[k].rectangles, {pairs.ours, peer, 0, 0}), peer / pairs.ours, "", {});
  }
}

bool WantsAny(Report const& report, BlockShape block) {
  for (Task const& task : Tasks(block))
    for (char const* const what : {"reading", "rewriting", "first writing"})
      for (char const* const peer : {"copies in memory", largePages, "H5Dread", "H5Dwrite"})
        if (report.Wants(Claim(block, task.name, what, peer))) return true;
  return false;
}

} // namespace

void ClaimDatabaseValues(Report& report) {
  for (BlockShape const block : {BlockShape{1024, 1024}, BlockShape{256, order}}) {
    if (WantsAny(report, block))
      report.Try("values of a database", [&] {
        CompareTasks(report, block);
        CompareFirstWrites(report, block);
      });
  }
  report.Try("small rectangles of a database", [&] { MeasureSmallRectangles(report); });
  report.Try("numpy.memmap", [&] { CompareWithMemmap(report); });
}

} // namespace bench
