// cholmod_products [symmetric] FOLDER COUNT...: times CHOLMOD's products of the matrix in FOLDER with COUNT
// vectors each. With "symmetric" one triangle is kept of a symmetric matrix. Prints what kernel_peers.py
// prints, with "symmetric" only the products that are not transposed.

#include "bench/peers/CholmodMatrix.h"

#include <string>

namespace {

cholmod_dense Over(bench::BlockOfVectors& vectors, int count) {
  cholmod_dense dense{};
  dense.nzmax = vectors.Size();
  dense.nrow = dense.d = vectors.Size() / static_cast<std::size_t>(count);
  dense.ncol = static_cast<std::size_t>(count);
  dense.x = vectors.Data();
  dense.xtype = CHOLMOD_REAL;
  dense.dtype = CHOLMOD_DOUBLE;
  return dense;
}

} // namespace

int main(int argc, char** argv) {
  bool const symmetric = argc > 1 && std::string(argv[1]) == "symmetric";
  if (symmetric) --argc, ++argv;
  if (argc < 3) return 2;
  bench::RowsOfFolder rows(argv[1]);
  cholmod_common common;
  cholmod_start(&common);
  cholmod_sparse matrix = bench::CholmodMatrixOver(rows);
  constexpr int upper = 1, withValues = 1;
  cholmod_sparse* triangle = symmetric ? cholmod_copy(&matrix, upper, withValues, &common) : nullptr;
  for (int k = 2; k < argc; ++k) {
    int const count = std::atoi(argv[k]);
    auto x = bench::BlockOfVectors::Factors(rows.rows, count);
    bench::BlockOfVectors y(rows.rows, count);
    cholmod_dense denseX = Over(x, count);
    cholmod_dense denseY = Over(y, count);
    auto const report = [&](char const* task, bool transposeHeld) {
      double one[] = {1, 0}, zero[] = {0, 0};
      double const seconds = bench::MedianSeconds([&] {
        cholmod_sdmult(symmetric ? triangle : &matrix, transposeHeld ? 1 : 0, one, zero, &denseX, &denseY,
                       &common);
      });
      bench::PrintTiming((task + std::to_string(count)).c_str(), seconds, y.Checksum());
    };
    report("product_", true);
    if (!symmetric) report("transposed_", false);
  }
  cholmod_free_sparse(&triangle, &common);
  cholmod_finish(&common);
  return 0;
}
