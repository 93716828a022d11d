// Modes of models as engineers have them: free bodies, shells with pairs of modes, parts that are there many
// times.

#include "bench/ElasticBlock.h"
#include "blac/BLAC.h"
#include "solve/ORXSrvModes.h"
#include "tests/solve/SolveSupport.h"
#include "tests/support/Raised.h"

#include <gtest/gtest.h>

#include <chrono>
#include <iostream>
#include <ostream>
#include <string>
#include <vector>

namespace {

using bench::ElasticBlock;

struct Model {
  Sparse stiffness, mass;
  int rigid; ///< modes
  int count; ///< that are looked for

  Model(ElasticBlock const& block, int rigidModes, int wanted)
      : stiffness(block.Stiffness()), mass(block.Mass()), rigid(rigidModes), count(wanted) {}
};

/// A free block; its length is in cells of 0.1 m.
Model FreeBlock(int length, int width) { return {ElasticBlock(length, width, width, false), 6, 30}; }
/// A square plate that is free: by its symmetry many modes come in pairs.
Model FreePlate(int cells) {
  return {ElasticBlock(cells, cells, 1, false, {1.0 / cells, 1.0 / cells, 0.01}), 6, 40};
}
/// A thin tube of radius 0.5 m: all modes but the axisymmetric ones come in pairs, and the pairs lie dense.
Model Tube(int length, int around) {
  return {ElasticBlock(length, around, 1, true, {2.0 / length, std::numbers::pi / around, 0.005},
                       ElasticBlock::Form::RolledUp),
          0, 60};
}

/// A clamped plate that carries the same part at 100 places: two masses in a row, on springs whose
/// stiffness is `softness` times less than the plate's where they are fixed. Every mode of the part is there
/// 100 times, as good as alike.
Model PlateWithParts(int cells, double softness, int count) {
  constexpr int places = 10, unknownsOfPart = 6;
  ElasticBlock const plate(cells, cells, 1, true, {1.0 / cells, 1.0 / cells, 0.05});
  Model model(plate, 0, count);
  int const order = plate.Order(), all = order + places * places * unknownsOfPart;
  auto const eachPart = [&](auto visit) {
    for (int part = 0; part < places * places; ++part) {
      int const x = (part / places + 1) * cells / places, y = part % places * cells / places;
      int const node = ((x - 1) * (cells + 1) + y) * 2;
      for (int axis = 0; axis < 3; ++axis)
        visit(3 * node + axis, order + part * unknownsOfPart + axis, 1.0 + 0.3 * axis);
    }
  };
  double const spring = 1e10 / softness, weight = spring / 1e5;
  model.stiffness = Assembled(all, [&](auto add) {
    orx::ForEachEntry(plate.Stiffness().View(), add);
    eachPart([&](int foot, int first, double factor) {
      AddSpring(add, foot, first, factor * spring);
      AddSpring(add, first, first + 3, factor * spring);
    });
  });
  model.mass = Assembled(all, [&](auto add) {
    orx::ForEachEntry(plate.Mass().View(), add);
    eachPart([&](int, int first, double) { add(first, first, weight), add(first + 3, first + 3, weight); });
  });
  return model;
}

std::vector<double> EigenvaluesByLapack(Model const& model) {
  int const n = model.stiffness.NumberOfRows(), itype = 1, size = 64 * n;
  Dense k = ToDense(model.stiffness), m = ToDense(model.mass);
  std::vector<double> values(static_cast<std::size_t>(n)), work(static_cast<std::size_t>(size));
  int info = 0;
  BLAC_DSYGV(&itype, "N", "U", &n, k.Data(), &n, m.Data(), &n, values.data(), work.data(), &size, &info);
  EXPECT_EQ(info, 0);
  return values;
}

void ExpectComplete(ORXSrvModes const& modes, Model const& model) {
  EXPECT_TRUE(modes.IsCertified());
  ASSERT_EQ(modes.Modes().size(), static_cast<std::size_t>(model.count));
  int rigid = 0;
  for (ORXSrvMode const& mode : modes.Modes()) {
    rigid += mode.isRigid;
    EXPECT_LT(mode.residual, 1e-9);
  }
  EXPECT_EQ(rigid, model.rigid);
  for (ORXSrvModeCount const& count : modes.Counts())
    EXPECT_EQ(count.found, count.counted) << count.from << " to " << count.to;
}

struct Case {
  char const* name;
  Model (*make)();
  friend void PrintTo(Case const& self, std::ostream* out) { *out << self.name; }
};
class Models : public testing::TestWithParam<Case> {};
class LargeModels : public testing::TestWithParam<Case> {};

} // namespace

TEST_P(Models, HaveTheModesThatLapackFinds) {
  Model const model = GetParam().make();
  std::vector<double> const exact = EigenvaluesByLapack(model);

  ORXSrvModes modes(model.stiffness, model.mass);
  EXPECT_EQ(Raised([&] { modes.FindLowest(model.count); }), "nothing raised");

  ExpectComplete(modes, model);
  double const rounding = 1e-13 * exact.back(); // of LAPACK
  for (std::size_t k = 0; k < modes.Modes().size(); ++k) {
    ORXSrvMode const& mode = modes.Modes()[k];
    EXPECT_NEAR(mode.eigenvalue, exact[k], mode.error + rounding) << "mode " << k + 1;
    EXPECT_LT(mode.error, 1e-8 * mode.eigenvalue + rounding) << "mode " << k + 1;
  }
}
INSTANTIATE_TEST_SUITE_P(Small, Models,
                         testing::Values(Case{"free block", [] { return FreeBlock(8, 4); }},
                                         Case{"free plate", [] { return FreePlate(9); }},
                                         Case{"tube", [] { return Tube(8, 16); }},
                                         Case{"one of soft parts", [] { return PlateWithParts(10, 1e5, 1); }},
                                         Case{"soft parts", [] { return PlateWithParts(10, 1e3, 100); }}));

// They take minutes: --gtest_also_run_disabled_tests.
TEST_P(LargeModels, DISABLED_AreFoundComplete) {
  Model const model = GetParam().make();
  auto const start = std::chrono::steady_clock::now();

  ORXSrvModes modes(model.stiffness, model.mass);
  EXPECT_EQ(Raised([&] { modes.FindLowest(model.count); }), "nothing raised");

  std::chrono::duration<double> const seconds = std::chrono::steady_clock::now() - start;
  std::cout << GetParam().name << ": " << model.stiffness.NumberOfRows() << " unknowns, " << seconds.count()
            << " s, " << modes.Shifts().size() << " factorizations\n";
  ExpectComplete(modes, model);
}
INSTANTIATE_TEST_SUITE_P(Large, LargeModels,
                         testing::Values(Case{"free block", [] { return FreeBlock(25, 15); }},
                                         Case{"free plate", [] { return FreePlate(57); }},
                                         Case{"tube", [] { return Tube(54, 60); }},
                                         Case{"soft parts", [] { return PlateWithParts(60, 1e3, 100); }},
                                         Case{"softest parts", [] { return PlateWithParts(60, 1e7, 230); }}));
