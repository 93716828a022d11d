#include "ToolSupport.h"

#include "tools/commands/Solve.h"

#include <cmath>
#include <map>

// Displacements under loads, as orxmtx solve prints and writes them.

namespace {

/// Springs of stiffness 2 between neighbours, free at both ends, as text triplets of the lower triangle.
std::string FreeChain(int order) {
  std::string text;
  for (int i = 1; i <= order; ++i) {
    text += orx::tool::Format("%d %d %d\n", i, i, i == 1 || i == order ? 2 : 4);
    if (i > 1) text += orx::tool::Format("%d %d -2\n", i, i - 1);
  }
  return text;
}

/// Files of a model, and the command on them.
struct Model {
  TemporaryFolder folder;

  Model() = default;
  Model(std::string const& k, std::string const& f, std::string const& fix = {}) {
    folder.Write("k", k), folder.Write("f", f), folder.Write("fix", fix);
  }
  /// `fix` after "--fix" only when asked for.
  RunResult Solve(std::string const& arguments = {}) const {
    return RunTool("solve " + folder.Path("k") + " " + folder.Path("f") + " " + arguments);
  }
  RunResult SolveHeld(std::string const& arguments = {}) const {
    return Solve("--fix " + folder.Path("fix") + " " + arguments);
  }
};

/// The figures of a table by their unknowns, without its notes; `head` is the name of its first column.
std::map<int, std::vector<double>> Table(std::string const& output, std::string const& head) {
  std::map<int, std::vector<double>> table;
  std::istringstream lines(output);
  bool isIn = false;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with('#')) {
      isIn = line.find(" " + head) != std::string::npos;
      continue;
    }
    std::istringstream fields(line);
    int unknown = 0;
    fields >> unknown;
    for (double value = 0.0; isIn && fields >> value;)
      table[unknown].push_back(value);
  }
  return table;
}

using Values = std::vector<double>;

TEST(Solve, GivesDisplacementsAndReactionsOfEveryLoad) {
  // A chain of four, held at its left end and moved by 1 at its right one.
  Model const model(FreeChain(4), "2 1 6\n3 2 6\n1 1 5\n", "1 # left\n\n 4=1 1,4=1.0 # once more\n");

  RunResult const result = model.SolveHeld();

  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_CONTAINS(result.out, ", 2 load columns\n");
  EXPECT_CONTAINS(result.out, ": 2 unknowns, 2 free\n# factor of order 2: L D L^T, ");
  EXPECT_CONTAINS(result.out, "# eigenvalues: 0 negative, 0 zero, 2 positive\n# condition number 3 ");
  EXPECT_CONTAINS(result.out, "after one step of refinement\n");
  // Thirds of the way, and by the load of 6 two springs' worth of it at its own node, one at the other.
  auto const u = Table(result.out, "displacement_1");
  auto const r = Table(result.out, "reaction_1");
  double const expected[4][2] = {{0, 0}, {1.0 / 3 + 2, 1.0 / 3 + 1}, {2.0 / 3 + 1, 2.0 / 3 + 2}, {1, 1}};
  ASSERT_EQ(u.size(), 4U);
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 2; ++j)
      EXPECT_NEAR(u.at(i + 1)[j], expected[i][j], 1e-15);
  ASSERT_EQ(r.size(), 2U);
  EXPECT_NEAR(r.at(1)[0], -2.0 * (1.0 / 3 + 2) - 5, 1e-14);
  EXPECT_NEAR(r.at(1)[1], -2.0 * (1.0 / 3 + 1), 1e-14);
  EXPECT_NEAR(r.at(4)[0], 2.0 - 2.0 * (2.0 / 3 + 1), 1e-14);
}

TEST(Solve, TakesLoadsOfEveryKindAndWritesFilesOfEveryKind) {
  std::string const array = "%%MatrixMarket matrix array real general\n3 1\n0\n0\n6\n";
  for (std::string const& f : {std::string("# loads\n0\n0\n6\n"), std::string("3 1 6\n"), array,
                               General("3 1 1\n3 1 6\n"), std::string("2,0, 6\n")}) {
    Model const model(FreeChain(3), f, "1");
    for (std::string const extension : {".txt", ".csv", ".mtx", ".bin"}) {
      std::string const u = model.folder.Path("u" + extension), r = model.folder.Path("r" + extension);
      RunResult const result = model.SolveHeld(u + " --reactions " + r);
      EXPECT_EQ(result.exitCode, 0) << f << result.err;
      EXPECT_EQ(result.out.find("displacement_"), std::string::npos);
      Entry const reaction = orx::tool::LoadMatrix(r).LargestEntry();
      EXPECT_EQ(reaction.row + reaction.column, 0U) << extension;
      EXPECT_NEAR(reaction.value, -6.0, 1e-14) << extension;
      ORXSrvSparseMatrix const read = orx::tool::LoadMatrix(u);
      EXPECT_EQ(read.NumberOfRows(), 3);
      EXPECT_NEAR(read.LargestEntry().value, 6.0, 1e-14) << extension;
    }
  }
  Model const model(FreeChain(3), "3 1 6\n", "1");
  RunResult const database = model.SolveHeld(model.folder.Path("u.sim"));
  EXPECT_EQ(database.exitCode, 0) << database.err;
  RunResult const content = RunTool("db " + model.folder.Path("u.sim"));
  EXPECT_CONTAINS(content.out, "displacements");
  RunResult const piped = RunTool("solve - " + model.folder.Path("f") + " - --fix " +
                                  model.folder.Path("fix") + " < " + model.folder.Path("k"));
  EXPECT_EQ(piped.exitCode, 0);
  EXPECT_CONTAINS(piped.err, "# K: standard input, order 3");
}

TEST(Solve, SolvesUnsymmetricMatricesAndSaysSo) {
  // Of the first unknown held, (2 1; -1 3) u = (3, 2) remains: u = (1, 1).
  Model const model("1 1 9\n1 2 4\n2 2 2\n2 3 1\n3 2 -1\n3 3 3\n", "0\n3\n2\n", "1");
  RunResult const result = model.SolveHeld();
  EXPECT_CONTAINS(result.out, "unsymmetric: relative difference");
  EXPECT_CONTAINS(result.out, "# factor of order 2: L U, ");
  EXPECT_EQ(result.out.find("eigenvalues"), std::string::npos);
  EXPECT_NEAR(Table(result.out, "displacement").at(3)[0], 1.0, 1e-15);
  EXPECT_NEAR(Table(result.out, "reaction").at(1)[0], 4.0, 1e-15);
}

TEST(Solve, AllOrNoUnknownsMayBeHeld) {
  Model const all("1 1 2\n2 2 4\n", "1\n1\n", "1=3 2");
  EXPECT_CONTAINS(all.SolveHeld().out, "# all unknowns are held\n");
  EXPECT_EQ(Table(all.SolveHeld().out, "reaction").at(1), Values{5.0});
  Model const none("1 1 -2\n2 2 4\n", "1\n1\n", "# nothing\n");
  RunResult const result = none.SolveHeld("--budget 1GB --explain");
  EXPECT_CONTAINS(result.out, "# order 2: the factor of K has ");
  EXPECT_CONTAINS(result.out, ": 0 unknowns, 2 free\n");
  EXPECT_CONTAINS(result.out, "# K is not positive definite: ");
  EXPECT_EQ(Table(result.out, "displacement").at(2), Values{0.25});
}

TEST(Solve, RefusesWhatItCannotUseAndLeavesNothingBehind) {
  struct Case {
    std::string k, f, fix, arguments;
    int exitCode;
    char const* message;
  };
  std::string const chain = FreeChain(3), unit = "1\n0\n0\n";
  Case const cases[] = {
      {chain, unit, "", "", 3,
       "K is singular, 1 motion without stiffness, of a free body or a mechanism, which unknown"},
      {chain + "5 5 0\n4 4 1\n", "5 1 1\n", "2", "", 3,
       "K is singular, 1 unknown has no stiffness: 5; --fix FILE"},
      {chain, unit, "1\n2 4", "", 1, "fix, line 2: an unknown of 1 to 3 expected, found \"4\""},
      {chain, unit, "1=2 1=3", "", 1, "the value 2, which unknown 1 has before, expected, found 3"},
      {chain, unit, "x", "", 1, "fix, line 1: an unknown of 1 to 3 expected, found \"x\""},
      {chain, unit, "1=nan", "", 1, "a finite value expected, found nan"},
      {chain, "1\n0\n", "1", "", 1, "f') has 2 rows; K ('"},
      {chain, General("2 1 1\n1 1 1\n"), "1", "", 1, "f') has 2 rows; K ('"},
      {chain, "4 1 1\n", "1", "", 1, "f') has 4 rows; K ('"},
      {chain, "1\n2 3\n", "1", "", 1, "f, line 2: one value expected, found \"2 3\""},
      {chain, "1\n0\ninf\n", "1", "", 1, "f'): the value at (3, 1) is inf, expected a finite number"},
      {chain, "", "1", "", 1, "f') has no column; expected one for each load"},
      {chain + "3 1 nan\n", unit, "1", "", 1, "k'): the value at (3, 1) is nan, expected a finite number"},
      {General("2 2 2\n1 1 1\n2 1 1\n"), unit, "1", "", 1, "the file says that it holds both triangles"},
      {General("2 3 1\n1 1 1\n"), unit, "1", "", 1,
       "the file says that the matrix is 2 x 3; expected a square"},
      {chain, unit, "1", "u.unf", 2, "OUT 'u.unf': expected the extension .txt, .csv, .mtx or .bin"},
      {chain, unit, "1", "/nowhere/u.txt", 3, "cannot write '/nowhere/u.txt'"},
      {chain, unit, "1", "- --reactions -", 2, "OUT and --reactions are both '-'; expected two files"},
  };
  for (Case const& c : cases) {
    Model const model(c.k, c.f, c.fix);
    RunResult const result = model.SolveHeld(c.arguments.empty() ? model.folder.Path("u.txt") : c.arguments);
    EXPECT_EQ(result.exitCode, c.exitCode) << result.err;
    EXPECT_CONTAINS(result.err, c.message);
    EXPECT_EQ(model.folder.Files().size(), 3U) << c.message;
  }
}

TEST(Solve, NeverReplacesItsInput) {
  Model const model(FreeChain(3), "1\n0\n0\n", "1");
  std::filesystem::rename(model.folder.Path("k"), model.folder.Path("k.txt"));
  std::string const k = model.folder.Path("k.txt"), f = model.folder.Path("f");
  EXPECT_CONTAINS(RunTool("solve " + k + " " + f + " " + k).err, "OUT names the input file '" + k + "'");
  EXPECT_CONTAINS(RunTool("solve " + k + " " + f + " --reactions r.txt").err, "--reactions needs --fix");
  EXPECT_CONTAINS(RunTool("solve - - < " + k).err, "both files are standard input");
  EXPECT_EQ(model.folder.Read("k.txt"), FreeChain(3));
}

} // namespace
