#include "bench/Claims.h"

#include "mtx/ORXSrvHermitianScrDenseMatrix.h"
#include "mtx/ORXSrvMatrix.h"

#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

// The symmetric scratch matrix, which keeps one triangle of blocks, against the scratch matrix that keeps
// all: the same values, the same product R * X with a tall X in memory, with the file in the page cache and
// without.

namespace bench {
namespace {

constexpr int order = 8192;
constexpr int columns = 64;

/// Small integers, so that every product is exact.
double Value(int i, int j) { return (std::min(i, j) * 37 + std::max(i, j) * 101) % 97 - 48; }

/// Fills a matrix by column blocks and returns the path of its file.
template<class Matrix>
std::string Fill(Matrix& matrix, char const* className) {
  ORXSrvMatrix block(order, 512);
  for (int first = 0; first < order; first += 512) {
    for (int j = 0; j < 512; ++j)
      for (int i = 0; i < order; ++i)
        block.Values()[std::int64_t{j} * order + i] = Value(i, first + j);
    matrix.SetColumns(first, first + 511, block);
  }
  return (std::filesystem::current_path() / Format("%s%p.sim", className, static_cast<void*>(&matrix)))
      .string();
}

/// Takes a file out of the page cache, and out of the mappings of this process, which would hold it there.
void Evict(std::string const& path) {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    unsigned long first = 0;
    unsigned long last = 0;
    if (!line.ends_with(path) || std::sscanf(line.c_str(), "%lx-%lx", &first, &last) != 2) continue;
    madvise(reinterpret_cast<void*>(first), last - first, MADV_DONTNEED); // NOLINT: that is what it takes
  }
  int const file = open(path.c_str(), O_RDONLY);
  fdatasync(file);
  posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED);
  close(file);
}

/// Bytes that this process has had read from disks.
double BytesRead() {
  std::ifstream io("/proc/self/io");
  for (std::string line; std::getline(io, line);)
    if (line.starts_with("read_bytes:")) return std::stod(line.substr(11));
  return 0.0;
}

struct Run {
  ORXSrvDenseMatrix const& matrix;
  std::string path;
  ORXSrvMatrix& product;
};

double Warm(Run const& run, ORXSrvMatrix const& x) {
  double const start = Now();
  run.matrix.Multiply(x, run.product);
  return Now() - start;
}

double Cold(Run const& run, ORXSrvMatrix const& x, double& bytes) {
  Evict(run.path);
  double const before = BytesRead();
  double const seconds = Warm(run, x);
  bytes = BytesRead() - before;
  return seconds;
}

void CompareProducts(Report& report, int block) {
  auto const claim = [&](char const* what) {
    return Format("symmetric scratch matrix, n = %d, blocks %d: %s / full scratch matrix", order, block,
                  what);
  };
  std::string const space = claim("bytes in the file");
  std::string const warm = claim("R*X, 64 columns, time");
  std::string const cold = claim("R*X, 64 columns, time, cold file");
  std::string const read = claim("R*X, 64 columns, bytes read");
  if (!report.Wants(space) && !report.Wants(warm) && !report.Wants(cold) && !report.Wants(read)) return;
  ORXSrvHermitianScrDenseMatrix symmetric(order, block);
  ORXSrvScratchDenseMatrix full(order, order, block, block);
  ORXSrvMatrix x(order, columns);
  ORXSrvMatrix ours(order, columns);
  ORXSrvMatrix theirs(order, columns);
  for (std::int64_t k = 0; k < x.NumberOfStoredValues(); ++k)
    x.Values()[k] = static_cast<double>(k % 89 - 44);
  Run const half{symmetric, Fill(symmetric, "ORXSrvHermitianScrDenseMatrix"), ours};
  Run const whole{full, Fill(full, "ORXSrvScratchDenseMatrix"), theirs};
  auto const bytes = static_cast<double>(std::filesystem::file_size(half.path));
  auto const allBytes = static_cast<double>(std::filesystem::file_size(whole.path));
  report.Line(space, Format("%.0f : %.0f MB", bytes * 1e-6, allBytes * 1e-6), bytes / allBytes, "",
              AtMost(0.5 * (1 + static_cast<double>(block) / order) + 0.01));

  Pairs const times = MeasurePairs([&] { return Warm(half, x); }, [&] { return Warm(whole, x); }, 8.0, 10);
  RequireAgreement(std::memcmp(ours.Values(), theirs.Values(), sizeof(double) * order * columns) == 0, warm);
  report.Line(warm, Format("%.0f : %.0f ms", times.ours * 1e3, times.peers * 1e3), times.ratio, "",
              AtMost(1.0));

  double bytesRead = 0.0;
  double allBytesRead = 0.0;
  Pairs const coldTimes = MeasurePairs([&] { return Cold(half, x, bytesRead); },
                                       [&] { return Cold(whole, x, allBytesRead); }, 20.0, 5);
  report.Line(cold, Format("%.0f : %.0f ms", coldTimes.ours * 1e3, coldTimes.peers * 1e3), coldTimes.ratio,
              "", AtMost(0.75));
  if (allBytesRead > 0.9 * allBytes) // not where the folder is in memory
    report.Line(read, Format("%.0f : %.0f MB", bytesRead * 1e-6, allBytesRead * 1e-6),
                bytesRead / allBytesRead, "", block == 512 ? AtMost(0.55) : Goal{});
}

} // namespace

void ClaimSymmetricBlocks(Report& report) {
  for (int const block : {512, 1024})
    report.Try("products of the symmetric scratch matrix", [&] { CompareProducts(report, block); });
}

} // namespace bench
