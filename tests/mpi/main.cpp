#include "tests/mpi/MpiSupport.h"

#include "module/ORXSrvLinearAlgebra.h"

#include <iostream>

namespace {

orx::mpi::Ranks const* allRanks = nullptr;

/// What a rank other than the root says: failures alone.
class Failures : public testing::EmptyTestEventListener {
  void OnTestPartResult(testing::TestPartResult const& result) override {
    if (result.failed())
      std::cerr << "rank " << AllRanks().Rank() << ": " << result.file_name() << ":" << result.line_number()
                << ": " << result.message() << "\n";
  }
};

} // namespace

orx::mpi::Ranks const& AllRanks() { return *allRanks; }

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  orx::mpi::PetscSession const petsc("mpi_tests", {});
  ORXSrvLinearAlgebraSession const session;
  orx::mpi::Ranks const ranks(PETSC_COMM_WORLD);
  allRanks = &ranks;
  if (!ranks.IsRoot()) {
    testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
    delete listeners.Release(listeners.default_result_printer());
    listeners.Append(new Failures);
  }
  int const result = RUN_ALL_TESTS();
  return ranks.AreAll(result == 0) ? 0 : 1;
}
