#include "module/ORXSrvLinearAlgebra.h"
#include "mtx/ORXSrvSparseMatrix.h"
#include "solve/ORXSrvModes.h"

#include <cstdio>

// Two masses of 1 between walls, on three springs of 1.
int main() {
  int tally = 0;
  ORXSrvLinearAlgebra_initialize(tally);
  {
    ORXSrvSparseMatrix k(2, 2), m(2, 2);
    for (unsigned i = 0; i < 2; ++i)
      for (unsigned j = 0; j < 2; ++j) {
        k.AddData(i, j, i == j ? 2.0 : -1.0);
        m.AddData(i, j, i == j ? 1.0 : 0.0);
      }
    k.EndAssembly(), m.EndAssembly();
    ORXSrvModes modes(k, m);
    modes.FindLowest(2);
    for (ORXSrvMode const& mode : modes.Modes())
      std::printf("%.6f\n", mode.eigenvalue);
    std::puts(modes.IsCertified() ? "certified" : "not certified");
  }
  ORXSrvLinearAlgebra_finalize(tally);
}
