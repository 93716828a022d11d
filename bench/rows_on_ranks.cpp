// rows_on_ranks FILE ORDER
//
// On each rank of mpirun: its rows of the sparse matrices 0/0 and 0/1 of a database, of that order. Prints
// the medians over some rounds, of the slowest rank: "raw" the same bytes by pread, "rows" the rows with all
// checks, "matrices" the rows made into PETSc's matrices besides, and "excess", the peak growth of memory
// beyond 1.3 of the rank's share of the larger matrix, in bytes, the worst of all ranks.

#include "tools/mpi/SparseDrawer.h"
#include "tools/mpi/SplitRows.h"

#include "module/ORXSrvLinearAlgebra.h"
#include "sim/ORXSimDatabase.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace orx::mpi;

constexpr int rounds = 7;

struct Extent {
  off_t first;
  std::int64_t bytes;
};

std::string Drawer(int distribution) {
  return "/context_0/distribution_" + std::to_string(distribution) + "/drawer";
}

/// Where the bytes of this rank lie, by HDF5's own word; contiguous arrays.
std::vector<Extent> OwnExtents(std::string const& path, int order, Ranks const& ranks) {
  hid_t const file = H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
  std::vector<Extent> extents;
  for (int distribution : {0, 1}) {
    auto const offset = [&](char const* name) {
      hid_t const dataset = H5Dopen2(file, (Drawer(distribution) + "/" + name).c_str(), H5P_DEFAULT);
      haddr_t const at = H5Dget_offset(dataset);
      H5Dclose(dataset);
      return static_cast<off_t>(at);
    };
    Range const own = ranks.OwnShare(order);
    std::vector<std::int32_t> pointers(static_cast<std::size_t>(own.count) + 1);
    Extent const ofPointers{offset("jc") + 4 * off_t{own.first}, 4 * (own.count + 1)};
    int const descriptor = open(path.c_str(), O_RDONLY);
    if (pread(descriptor, pointers.data(), static_cast<std::size_t>(ofPointers.bytes), ofPointers.first) !=
        ofPointers.bytes)
      std::exit(1);
    close(descriptor);
    std::int64_t const entries = pointers.back() - pointers.front();
    extents.push_back(ofPointers);
    extents.push_back({offset("ir") + 4 * off_t{pointers.front()}, 4 * entries});
    extents.push_back({offset("data") + 8 * off_t{pointers.front()}, 8 * entries});
  }
  H5Fclose(file);
  return extents;
}

void ReadRaw(std::string const& path, std::vector<Extent> const& extents) {
  int const descriptor = open(path.c_str(), O_RDONLY);
  for (Extent const& extent : extents) {
    PagedArray<char> bytes(extent.bytes);
    for (std::int64_t at = 0; at < extent.bytes;) {
      ssize_t const count = pread(descriptor, bytes.Data() + at, static_cast<std::size_t>(extent.bytes - at),
                                  extent.first + at);
      if (count <= 0) std::exit(1);
      at += count;
    }
  }
  close(descriptor);
}

std::int64_t StatusBytes(char const* name) {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;)
    if (word == name) {
      std::int64_t kilobytes = 0;
      status >> kilobytes;
      return 1024 * kilobytes;
    }
  return 0;
}

/// Takes the file out of the page cache.
void Forget(std::string const& path, Ranks const& ranks) {
  MPI_Barrier(ranks.Communicator());
  if (ranks.IsRoot()) {
    int const descriptor = open(path.c_str(), O_RDONLY);
    fdatasync(descriptor);
    posix_fadvise(descriptor, 0, 0, POSIX_FADV_DONTNEED);
    close(descriptor);
  }
  MPI_Barrier(ranks.Communicator());
}

/// Seconds of the slowest rank.
double Time(Ranks const& ranks, std::function<void()> const& work) {
  MPI_Barrier(ranks.Communicator());
  double const start = MPI_Wtime();
  work();
  return ranks.Largest(MPI_Wtime() - start);
}

double Median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  PetscSession const petsc(argv[0], {});
  ORXSrvLinearAlgebraSession const session;
  Ranks const ranks(PETSC_COMM_WORLD);
  std::string const path = argv[1];
  int const order = std::atoi(argv[2]);
  ORXSimDatabase database;
  if (ranks.IsRoot()) database.OpenFile(ORXUnicodeString(path.c_str()), true);
  std::vector<Extent> const extents = OwnExtents(path, order, ranks);
  std::vector<double> raw, rows, coldRaw, coldRows, matrices, excess;
  for (int round = 0; round < rounds; ++round) {
    raw.push_back(Time(ranks, [&] { ReadRaw(path, extents); }));
    ParallelFile const file(path, ranks);
    auto const read = [&](int distribution) {
      SparsePlace const place{Drawer(distribution), order, order, false};
      return ReadSparseDrawer(file, place, ranks);
    };
    rows.push_back(Time(ranks, [&] { read(0), read(1); }));
    Forget(path, ranks);
    coldRaw.push_back(Time(ranks, [&] { ReadRaw(path, extents); }));
    Forget(path, ranks);
    coldRows.push_back(Time(ranks, [&] { read(0), read(1); }));
    std::array<Handle<Mat>, 2> made;
    matrices.push_back(Time(ranks, [&] {
      for (int distribution : {0, 1})
        made[static_cast<std::size_t>(distribution)] = MakeMatrix(Split(read(distribution), ranks), ranks);
    }));
    made = {};
    std::ofstream("/proc/self/clear_refs") << "5"; // the peak is the present size
    std::int64_t const before = StatusBytes("VmHWM:");
    made[0] = MakeMatrix(Split(read(0), ranks), ranks);
    double const share = static_cast<double>(extents[0].bytes + extents[1].bytes + extents[2].bytes);
    excess.push_back(ranks.Largest(static_cast<double>(StatusBytes("VmHWM:") - before) - 1.3 * share));
  }
  if (ranks.IsRoot())
    std::printf("raw %g\nrows %g\ncold_raw %g\ncold_rows %g\nmatrices %g\nexcess %g\n", Median(raw),
                Median(rows), Median(coldRaw), Median(coldRows), Median(matrices),
                *std::ranges::max_element(excess));
}
