#include "bench/Claims.h"
#include "bench/Process.h"
#include "bench/peers/Hdf5Peer.h"

#include "mtx/ORXSrvMatrixContainer.h"

#include <filesystem>
#include <string>
#include <unistd.h>

// Many small matrices in one registry, from its creation to its end, against as many datasets that HDF5
// creates by itself in a file.

namespace bench {

void ClaimMatrixRegistry(Report& report) {
  constexpr int count = 1000;
  constexpr int order = 6;
  std::string const claim = Format("%d registered matrices %d x %d: time / H5Dcreate", count, order, order);
  if (!report.Wants(claim)) return;
  report.Try(claim, [&] {
    std::string const path =
        (std::filesystem::current_path() / Format("orx_bench_%d_datasets.h5", getpid())).string();
    auto const ours = [] {
      double const start = Now();
      ORXSrvMatrixContainer matrices;
      for (int id = 0; id < count; ++id)
        matrices.Create(id, order, order, order, order);
      return Now() - start;
    };
    auto const theirs = [&] {
      double const start = Now();
      CreateHdf5Datasets(path, count, order);
      return Now() - start;
    };
    Pairs const pairs = MeasurePairs(ours, theirs, 5.0, 5);
    report.Line(claim, Format("%.1f : %.1f us each", pairs.ours / count * 1e6, pairs.peers / count * 1e6),
                pairs.ratio, "", Goal{});
  });
}

} // namespace bench
