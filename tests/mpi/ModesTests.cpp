#include "tests/mpi/MpiSupport.h"

#include "tools/commands/Modes.h"
#include "tools/mpi/Modes.h"
#include "tools/terminal/ToolError.h"

#include "bench/ElasticBlock.h"
#include "tests/solve/SolveSupport.h"

#include <cmath>
#include <numeric>
#include <sstream>

namespace {

using namespace orx::mpi;
using orx::tool::ToolError;

/// The arrays of a matrix in general form, its unknowns numbered at random.
Arrays Scattered(Sparse const& matrix) {
  std::vector<int> number(static_cast<std::size_t>(matrix.NumberOfRows()));
  std::iota(number.begin(), number.end(), 0);
  std::shuffle(number.begin(), number.end(), std::mt19937(5));
  std::vector<std::map<int, double>> rows(number.size());
  orx::ForEachEntry(matrix.View(), [&](int i, int j, double value) { rows[number[i]][number[j]] += value; });
  Arrays arrays;
  arrays.rows = arrays.columns = matrix.NumberOfRows();
  for (auto const& row : rows) {
    for (auto const& [column, value] : row)
      arrays.Add(column, value);
    arrays.EndRow();
  }
  return arrays;
}

/// A table of modes, and the number of eigenvalues that were counted.
struct Report {
  std::vector<double> frequencies, errors;
  int counted = 0;
  std::string text;
};

Report Parse(std::string const& text) {
  Report report{{}, {}, 0, text};
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string word;
    double number = 0, frequency = 0, eigenvalue = 0, residual = 0, error = 0;
    if (int count = 0; line.starts_with("# certified: ")) {
      words >> word >> word >> count;
      report.counted += count;
    } else if (line[0] != '#') {
      words >> number >> frequency >> eigenvalue >> residual >> error;
      report.frequencies.push_back(frequency);
      report.errors.push_back(error);
      EXPECT_LT(residual, 1e-8) << line;
    }
  }
  return report;
}

class ModesOnRanks : public testing::Test {
protected:
  void Write(Sparse const& k, Sparse const& m) {
    WriteDatabase(m_path, {{"K", Scattered(k)}, {"M", Scattered(m)}});
  }
  ModesOptions Options(orx::tool::ModeChoice const& choice) const {
    ModesOptions options;
    options.stiffnessPath = m_path;
    options.choice = choice;
    return options;
  }
  Report OnAllRanks(ModesOptions const& options) const {
    std::string text;
    PrintModes(options, AllRanks(), [&](std::string const& part) { text += part; });
    AllRanks().Broadcast(text);
    return Parse(text);
  }
  Report OnOne(ModesOptions const& options) const {
    std::string text;
    AllRanks().OnRoot(
        [&] { orx::tool::PrintModes(options, [&](std::string const& part) { text += part; }); });
    AllRanks().Broadcast(text);
    return Parse(text);
  }
  /// Both find the same modes and count as many; SLEPc finds and counts them too where it `finds` them.
  Report Compare(ModesOptions options, bool slepcFinds = true) const {
    Report const one = OnOne(options);
    if (slepcFinds) {
      options.solver = "slepc";
      ExpectSame(OnAllRanks(options), one);
      options.solver = "lanczos";
    }
    Report all = OnAllRanks(options);
    ExpectSame(all, one);
    return all;
  }
  static void ExpectSame(Report const& all, Report const& one) {
    if (one.counted > 0) { // small matrices are solved densely on one machine
      EXPECT_EQ(all.counted, one.counted) << all.text << one.text;
    }
    EXPECT_EQ(all.frequencies.size(), one.frequencies.size()) << all.text << one.text;
    for (std::size_t i = 0; i < std::min(all.frequencies.size(), one.frequencies.size()); ++i) {
      double const tolerance = std::max(1e-10, all.errors[i] + one.errors[i]);
      EXPECT_NEAR(all.frequencies[i], one.frequencies[i], tolerance * std::abs(one.frequencies[i])) << i;
    }
  }
  std::string ErrorOf(ModesOptions const& options) const {
    try {
      OnAllRanks(options);
    } catch (ToolError const& e) {
      return e.what();
    }
    return "";
  }

  SharedFolder m_folder;
  std::string m_path = m_folder.Path("model.sim");
};

orx::tool::ModeChoice Lowest(int count) { return {count}; }
orx::tool::ModeChoice Between(double from, double to) {
  orx::tool::ModeChoice choice;
  choice.interval = {from, to};
  return choice;
}
orx::tool::ModeChoice Near(double frequency, int count) {
  orx::tool::ModeChoice choice(count);
  choice.near = frequency;
  return choice;
}

TEST_F(ModesOnRanks, AreThoseOfOneMachine) {
  bench::ElasticBlock const free(9, 5, 4, false);
  Write(free.Stiffness(), free.Mass());
  Report const report = Compare(Options(Lowest(12)));
  ASSERT_EQ(report.frequencies.size(), 12u);
  EXPECT_EQ(std::count(report.frequencies.begin(), report.frequencies.end(), 0.0), 6) << report.text;
  double const seventh = report.frequencies[6], ninth = report.frequencies[8];
  Compare(Options(Between(-1.0, ninth)), false);  // with the rigid ones, of which SLEPc may miss one
  Compare(Options(Between(seventh, ninth)));      // bounds on modes
  Compare(Options(Near(1.01 * ninth, 5)), false); // its rigid modes are as far as the others
  Compare(Options(Between(1e-3 * seventh, 2e-3 * seventh))); // nothing
}

TEST_F(ModesOnRanks, OfOneFrequencyManyTimesAreAllFound) {
  // 60 equal pairs of masses, each with the eigenvalues 0 and 2, beside others far above.
  auto const fill = [](auto add) {
    for (int i = 0; i < 120; i += 2)
      AddSpring(add, i, i + 1, 1.0);
    for (int i = 120; i < 520; ++i)
      add(i, i, 10.0 + i);
  };
  Write(Assembled(520, fill), UnitMass(520));
  Report const report = Compare(Options(Between(0.1, 0.3)), false);
  EXPECT_EQ(report.frequencies.size(), 60u);
  Compare(Options(Lowest(70)), false);
  ModesOptions bySlepc = Options(Between(0.1, 0.3));
  bySlepc.solver = "slepc";
  std::string const error = ErrorOf(bySlepc); // it may find them
  EXPECT_TRUE(error.empty() || error.find("there are 60 by inertia") != std::string::npos) << error;
}

TEST_F(ModesOnRanks, TreatUnknownsWithoutMassOrStiffnessAlike) {
  // A membrane of which every third unknown has no mass; behind it three unknowns without anything, and two
  // that a spring ties to each other and to nothing else, without mass.
  Sparse const grid = Grid(28, 24);
  int const order = grid.NumberOfRows() + 5;
  auto const stiffness = [&](auto add) {
    orx::ForEachEntry(grid.View(), add);
    AddSpring(add, order - 2, order - 1, 1.0);
  };
  std::vector<double> masses(static_cast<std::size_t>(order), 0.0);
  for (int i = 0; i < grid.NumberOfRows(); ++i)
    masses[static_cast<std::size_t>(i)] = i % 3 == 0 ? 0.0 : 1.0;
  Write(Assembled(order, stiffness), DiagonalMatrix(masses));
  Report const report = Compare(Options(Lowest(15)));
  EXPECT_NE(report.text.find("3 unknowns without stiffness and mass"), std::string::npos) << report.text;
  EXPECT_NE(report.text.find("1 motion of several unknowns"), std::string::npos) << report.text;
}

TEST_F(ModesOnRanks, OfAnIndefiniteStiffnessBeginBelowZero) {
  Sparse const grid = Grid(26, 23);
  Write(Assembled(grid.NumberOfRows(),
                  [&](auto add) {
                    orx::ForEachEntry(grid.View(), add);
                    for (int i = 0; i < grid.NumberOfRows(); ++i)
                      add(i, i, -0.1);
                  }),
        UnitMass(grid.NumberOfRows()));
  Report const report = Compare(Options(Lowest(9)));
  EXPECT_LT(report.frequencies.at(0), 0.0);
}

TEST_F(ModesOnRanks, AreFoundWhereRanksHaveNoRows) {
  Write(DiagonalMatrix({1, 4, 9, 16, 25}), UnitMass(5));
  Compare(Options(Lowest(3)));
  Report const report = Compare(Options(Between(0.3, 0.6)));
  ASSERT_EQ(report.frequencies.size(), 2u);
  EXPECT_NEAR(report.frequencies[0], 2 / (2 * std::numbers::pi), 1e-12);
}

TEST_F(ModesOnRanks, KeepTheirShapesInTheSameFileAsOneMachine) {
  bench::ElasticBlock const block(11, 4, 3, true);
  Write(block.Stiffness(), block.Mass());
  for (char const* const name : {"shapes.sim", "shapes.mtx"}) {
    ModesOptions options = Options(Lowest(5));
    options.shapesPath = m_folder.Path(name);
    OnAllRanks(options);
    options.shapesPath = m_folder.Path(std::string("one-") + name);
    OnOne(options);
    AllRanks().OnRoot([&] {
      ORXSrvSparseMatrix const all = orx::tool::LoadMatrix(m_folder.Path(name));
      ORXSrvSparseMatrix const one = orx::tool::LoadMatrix(options.shapesPath);
      Dense const a = ToDense(all), b = ToDense(one);
      ASSERT_EQ(all.NumberOfRows(), one.NumberOfRows());
      for (int j = 0; j < 5; ++j) {
        double dot = 0.0, square = 0.0;
        for (int i = 0; i < one.NumberOfRows(); ++i)
          dot += a(i, j) * b(i, j), square += b(i, j) * b(i, j);
        EXPECT_NEAR(dot, square, 1e-8 * square) << name << ", mode " << j;
      }
    });
  }
}

TEST_F(ModesOnRanks, RefuseWhatHasNoneOnAllRanksTheSame) {
  Sparse const grid = Grid(25, 21);
  int const order = grid.NumberOfRows();
  std::vector<double> masses(static_cast<std::size_t>(order), 1.0);
  masses[77] = -1.0;
  Write(grid, DiagonalMatrix(masses));
  EXPECT_NE(ErrorOf(Options(Lowest(3))).find("M has -1 on the diagonal"), std::string::npos);
  Write(grid, Assembled(order, [&](auto add) {
          for (int i = 0; i < order; ++i)
            add(i, i, 1.0);
          add(3, 9, 2.0), add(9, 3, 2.0);
        }));
  EXPECT_NE(ErrorOf(Options(Lowest(3))).find("M is indefinite"), std::string::npos);
  Write(grid, DiagonalMatrix(std::vector<double>(static_cast<std::size_t>(order), 0.0)));
  EXPECT_NE(ErrorOf(Options(Lowest(3))).find("M holds no value other than 0"), std::string::npos);
  Write(grid, UnitMass(order + 1));
  EXPECT_NE(ErrorOf(Options(Lowest(3))).find("expected the same"), std::string::npos);
  ModesOptions options = Options(Lowest(3));
  options.shapesPath = m_folder.Path("nowhere/shapes.sim");
  Write(grid, UnitMass(order));
  EXPECT_NE(ErrorOf(options).find("nowhere"), std::string::npos);
}

} // namespace
