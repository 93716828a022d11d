#include "tests/mpi/DenseSupport.h"

#include "tools/formats/DatabaseMatrix.h"
#include "tools/mpi/DenseModes.h"

#include <cmath>
#include <sstream>

using namespace orx::mpi;
using orx::tool::ModesOptions;

namespace {

/// A chain of springs between masses that are coupled too; its ends are held, or all of it is free.
struct Chain {
  Dense k, m;

  Chain(int order, bool isHeld) : k(order, order), m(order, order) {
    for (int j = 0; j < order; ++j)
      for (int i = 0; i < order; ++i) {
        bool const isEnd = i == 0 || i == order - 1, isNext = i - j == 1 || j - i == 1;
        k(i, j) = i == j ? (isEnd && !isHeld ? 1e6 : 2e6) : isNext ? -1e6 : 0.0;
        m(i, j) = i == j ? 4.0 + i % 3 : isNext ? 1.0 : 0.0;
      }
  }
};

struct Row {
  double frequency = 0.0, residual = 0.0;
};

std::vector<Row> RowsOf(std::string const& output) {
  std::vector<Row> rows;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("#")) continue;
    Row row;
    double skipped = 0.0;
    std::istringstream(line) >> skipped >> row.frequency >> skipped >> row.residual;
    rows.push_back(row);
  }
  return rows;
}

/// What the program prints, on the root.
std::string Printed(ModesOptions const& options) {
  std::string output;
  PrintDenseModes(options, AllRanks(), [&](std::string const& text) { output += text; });
  return output;
}

std::string PrintedByOne(ModesOptions const& options) {
  std::string output;
  orx::tool::PrintModes(options, [&](std::string const& text) { output += text; });
  return output;
}

/// The lines but for the table and the shapes.
std::string NotesOf(std::string const& output) {
  std::string notes;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);)
    if (line.starts_with("#") && !line.starts_with("# shapes")) notes += line + "\n";
  return notes;
}

} // namespace

TEST(DenseModes, AreThoseOfOneMachine) {
  SharedFolder const folder;
  for (int const order : {1, 2, 7, 61, 130})
    for (bool const isHeld : {true, false}) {
      Chain const chain(order, isHeld);
      ModesOptions options;
      options.stiffnessPath = folder.Path("K.sim");
      options.massPath = folder.Path("M.sim");
      options.shapesPath = folder.Path("shapes.sim");
      WriteMatrix(options.stiffnessPath, chain.k, order == 61 ? Form::Symmetric : Form::Chunked);
      WriteMatrix(options.massPath, chain.m, Form::Whole);
      ASSERT_TRUE(AreDense(options, AllRanks()));
      std::string const output = Printed(options);
      if (AllRanks().IsRoot()) {
        SCOPED_TRACE(testing::Message() << "order " << order << (isHeld ? ", held\n" : ", free\n") << output);
        std::string const ofOne = PrintedByOne(options);
        std::vector<Row> const found = RowsOf(output), expected = RowsOf(ofOne);
        ASSERT_EQ(found.size(), expected.size()) << ofOne;
        for (std::size_t i = 0; i < found.size(); ++i) {
          EXPECT_NEAR(found[i].frequency, expected[i].frequency, 1e-10 * expected[i].frequency);
          EXPECT_LT(found[i].residual, 1e-12);
        }
        EXPECT_TRUE(!isHeld || NotesOf(output) == NotesOf(ofOne)) << ofOne;
        ORXSimDatabase database;
        orx::tool::OpenToRead(database, options.shapesPath);
        EXPECT_EQ(orx::tool::RowLabels(orx::tool::FindMatrix(database, "", "0/0", ""))[0], 100);
      }
      MPI_Barrier(AllRanks().Communicator());
    }
}

TEST(DenseModes, OfAnIntervalOrNearAFrequencyAreAllOfThem) {
  SharedFolder const folder;
  Chain const chain(61, true);
  ModesOptions options;
  options.stiffnessPath = folder.Path("K.sim");
  options.massPath = folder.Path("M.sim");
  WriteMatrix(options.stiffnessPath, chain.k, Form::Whole);
  WriteMatrix(options.massPath, chain.m, Form::Symmetric);
  options.choice.count = 61;
  std::vector<Row> const all = RowsOf(Printed(options));
  options.choice.interval = std::pair(20.0, 60.0);
  std::vector<Row> const between = RowsOf(Printed(options));
  options.choice = orx::tool::ModeChoice(5);
  options.choice.near = 40.0;
  std::vector<Row> const near = RowsOf(Printed(options));
  if (!AllRanks().IsRoot()) return;

  ASSERT_EQ(all.size(), 61U);
  std::vector<double> inside, byDistance;
  for (Row const& row : all) {
    if (row.frequency > 20.0 && row.frequency < 60.0) inside.push_back(row.frequency);
    byDistance.push_back(std::fabs(row.frequency * row.frequency - 1600.0));
  }
  ASSERT_EQ(between.size(), inside.size());
  for (std::size_t i = 0; i < inside.size(); ++i)
    EXPECT_NEAR(between[i].frequency, inside[i], 1e-12 * inside[i]); // messages may arrive in another order
  std::ranges::sort(byDistance);
  ASSERT_EQ(near.size(), 5U);
  for (Row const& row : near)
    EXPECT_LE(std::fabs(row.frequency * row.frequency - 1600.0), byDistance[4] * (1 + 1e-12));
}

TEST(DenseModes, RefuseWhatScaLapackCannotSolve) {
  SharedFolder const folder;
  Chain massless(7, true), unsymmetric(7, true), infinite(7, true);
  massless.m.values[24] = 0.0;
  unsymmetric.k.values[3] = 5.0;
  infinite.k.values[8] = INFINITY;
  struct Case {
    Chain const& chain;
    char const* message;
    orx::tool::ExitCode code;
  };
  for (Case const& c :
       {Case{massless, "is not positive definite, by its first ", orx::tool::ExitCode::Failure},
        {unsymmetric, "not symmetric: (4, 1) = 5, (1, 4) = 0, a relative difference of 2.5e-06;",
         orx::tool::ExitCode::UnusableInput},
        {infinite, "the value at (2, 2) is inf", orx::tool::ExitCode::UnusableInput}}) {
    ModesOptions options;
    options.stiffnessPath = folder.Path("K.sim");
    options.massPath = folder.Path("M.sim");
    WriteMatrix(options.stiffnessPath, c.chain.k, Form::Whole);
    WriteMatrix(options.massPath, c.chain.m, Form::Whole);
    std::string const text = SharedText([&] { Printed(options); }, c.code);
    EXPECT_NE(text.find(c.message), std::string::npos) << text;
  }
}
