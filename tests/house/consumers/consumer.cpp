#include "core/ORXBasException.h"
#include "module/ORXSrvLinearAlgebra.h"
#include "mtx/ORXSrvMatrix.h"
#include "mtx/ORXSrvMtxOpenFileException.h"
#include "mtx/ORXSrvSparseMatrix.h"

#include <cstdio>

int main() {
  int tally = 0;
  ORXSrvLinearAlgebra_initialize(tally);
  try {
    ORXSrvMatrix(2, 3).SetRows(0, 2, *new ORXSrvMatrix(2, 3));
  } catch (ORXBasException const& e) {
    std::printf("%d %s\n", e.ErrorCode(), e.AsString().AsText());
  }
  try {
    ORXSrvSparseMatrix(0, 0).Import("no such file", 3);
  } catch (ORXSrvMtxOpenFileException const& e) {
    std::printf("%d %s\n", e.ErrorCode(), e.AsString().AsText());
  }
  ORXSrvLinearAlgebra_finalize(tally);
  std::printf("tally %d\n", tally);
}
