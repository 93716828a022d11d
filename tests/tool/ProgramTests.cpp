#include "ToolSupport.h"

#include "module/ORXSrvLinearAlgebra.h"
#include "mtx/ORXSrvDenseMatrix.h"
#include "sim/ORXSimContext.h"
#include "sim/ORXSimDatabase.h"

#include <cmath>
#include <numbers>

// The program from outside: exit codes, what goes to which stream, and the formats that scripts rely on.

namespace {

/// Two unit masses between three unit springs: lambda 1 and 3.
struct TwoMasses {
  TemporaryFolder folder;
  std::string k = folder.Write("K.txt", "1 1 2\n1 2 -1\n2 1 -1\n2 2 2\n");
  std::string m = folder.Write("M.txt", "1 1 1\n2 2 1\n");
  std::string Pair() const { return k + " " + m; }
};

void ExpectFailure(RunResult const& result, int exitCode, std::string const& message) {
  EXPECT_EQ(result.exitCode, exitCode);
  EXPECT_EQ(result.out, "");
  EXPECT_TRUE(result.err.starts_with("orxmtx: ")) << result.err;
  EXPECT_CONTAINS(result.err, message);
}

TEST(Program, PrintsModesForPeopleAndScripts) {
  TwoMasses const files;

  RunResult const result = RunTool("modes " + files.Pair());

  EXPECT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_CONTAINS(result.out, "order 2, 4 entries, both triangles, exactly symmetric\n");
  EXPECT_CONTAINS(result.out, "# M and K are positive definite: solved as M x = nu K x");
  EXPECT_CONTAINS(result.out, "# 10 modes asked for, there are 2\n");
  auto const modes = ReadModes(result.out);
  ASSERT_EQ(modes.size(), 2U);
  EXPECT_EQ(modes[1].number, 2);
  EXPECT_NEAR(static_cast<double>(modes[1].eigenvalue), 3.0, 1e-14);
  EXPECT_NEAR(modes[1].frequency, std::sqrt(3.0) / (2 * std::numbers::pi), 1e-14);
  EXPECT_LT(modes[1].residual, 1e-14);
}

TEST(Program, WritesShapesAsOneBasedTriplets) {
  TwoMasses const files;

  RunResult const result = RunTool("modes " + files.Pair() + " --shapes " + files.folder.Path("S.txt"));

  EXPECT_EQ(result.exitCode, 0);
  std::istringstream shapes(files.folder.Read("S.txt"));
  double const half = std::sqrt(0.5);
  for (std::vector<double> const& expected :
       {std::vector<double>{1, 1, half}, {1, 2, half}, {2, 1, half}, {2, 2, -half}}) {
    double row = 0, mode = 0, value = 0;
    ASSERT_TRUE(shapes >> row >> mode >> value);
    EXPECT_EQ(row, expected[0]);
    EXPECT_EQ(mode, expected[1]);
    EXPECT_NEAR(value, expected[2], 1e-14);
  }
}

TEST(Program, ShapesAreOfTheTypeOfTheirFile) {
  TwoMasses const files;

  EXPECT_EQ(RunTool("modes " + files.Pair() + " --shapes " + files.folder.Path("S.mtx")).exitCode, 0);
  RunResult const piped = RunTool("modes " + files.Pair() + " --shapes -");

  EXPECT_CONTAINS(files.folder.Read("S.mtx"), "%%MatrixMarket matrix coordinate real ");
  EXPECT_TRUE(piped.out.starts_with("1 1 7.07106781186547")) << piped.out;
  EXPECT_EQ(ReadModes(piped.err).size(), 2U);
  ExpectFailure(RunTool("modes " + files.Pair() + " --shapes S.chk"), 2, "type chunks cannot hold them");
}

/// The values of a distribution of a database, column by column, behind its rows and columns.
std::vector<double> ReadDistribution(std::string const& path, int index) {
  ORXSimDatabase database;
  database.OpenFile(ORXUnicodeString(path.c_str()), true);
  ORXSrvDenseMatrix const matrix(ORXSimContext(database.Contexts()[0]).Distributions()[index]);
  int const rows = matrix.NumberOfRows(), columns = matrix.NumberOfColumns();
  std::vector<double> values(2 + static_cast<std::size_t>(rows) * columns);
  values[0] = rows;
  values[1] = columns;
  if (values.size() > 2) matrix.GetAllValues(values.data() + 2);
  return values;
}

TEST(Program, ShapesInADatabaseAreABlockMatrixBesideTheirFrequencies) {
  TwoMasses const files;
  ORXSrvLinearAlgebraSession const session;
  for (char const* const name : {"S.sim", "S.h5"}) {
    std::string const path = files.folder.Write(name, "what it replaces");
    RunResult const result = RunTool("modes " + files.Pair() + " --shapes " + path);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    std::vector<double> const shapes = ReadDistribution(path, 0), frequencies = ReadDistribution(path, 1);
    double const half = std::sqrt(0.5);
    std::vector<double> const expected = {2, 2, half, half, half, -half};
    ASSERT_EQ(shapes.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
      EXPECT_NEAR(shapes[i], expected[i], 1e-14);
    ASSERT_EQ(frequencies.size(), 4U);
    EXPECT_NEAR(frequencies[3], std::sqrt(3.0) / (2 * std::numbers::pi), 1e-14);
    EXPECT_CONTAINS(RunTool("db " + path).out, "type mode shapes\n");
  }
  // An interval without modes.
  RunResult const none =
      RunTool("modes " + files.Pair() + " --interval 7 8 --shapes " + files.folder.Path("S.sim"));
  EXPECT_EQ(none.exitCode, 0) << none.err;
  EXPECT_EQ(ReadDistribution(files.folder.Path("S.sim"), 0), (std::vector<double>{2, 0}));
  EXPECT_EQ(files.folder.Files().size(), 4U); // nothing is left beside
}

TEST(Program, ModesArePrintedThoughTheirShapesCannotBeWritten) {
  TwoMasses const files;
  if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full";

  RunResult const result = RunTool("modes " + files.Pair() + " --shapes /dev/full");

  EXPECT_EQ(result.exitCode, 3);
  EXPECT_EQ(ReadModes(result.out).size(), 2U);
  EXPECT_CONTAINS(result.err, "cannot write '/dev/full': No space left");
}

TEST(Program, NeverOverwritesAnInput) {
  TwoMasses const files;
  std::string const before = files.folder.Read("M.txt");

  ExpectFailure(RunTool("modes " + files.Pair() + " --shapes " + files.folder.Path("./M.txt")), 2,
                "names the input file");

  EXPECT_EQ(files.folder.Read("M.txt"), before);
}

TEST(Program, ShorterMatrixIsContinuedByZeros) {
  TwoMasses const files;
  std::string const m = files.folder.Write("short.txt", "1 1 1\n");

  RunResult const result = RunTool("modes " + files.k + " " + m);

  EXPECT_EQ(result.exitCode, 0);
  EXPECT_CONTAINS(result.out,
                  "# M ends at row 1, the other matrix at row 2: what follows is taken as zero\n");
  EXPECT_CONTAINS(result.out, "# M is not positive definite, K is");
  EXPECT_CONTAINS(result.out, "# 1 eigenvalue infinite");
  ASSERT_EQ(ReadModes(result.out).size(), 1U);
  EXPECT_NEAR(static_cast<double>(ReadModes(result.out)[0].eigenvalue), 1.5, 1e-14);
}

TEST(Program, WhatAFileSaysOfItselfIsBelieved) {
  TwoMasses const files;
  struct Case {
    std::string k, m;
    char const* message; ///< none: lambda are 1 and 3
  };
  std::string const k = "1 1 2\n2 1 -1\n2 2 2\n", m = "1 1 1\n2 2 1\n";
  std::string const symmetric = "%%MatrixMarket matrix coordinate real symmetric\n2 2 3\n" + k;
  for (Case const& test : {
           Case{General("2 2 3\n1 1 2\n1 2 1\n2 2 3\n"), m, "(1, 2) = 1, (2, 1) is not stored"},
           {General("2 2 3\n" + k), m, "it is not symmetric: (2, 1) = -1, (1, 2) is not stored"},
           {k, General("2 2 3\n1 1 1\n2 1 0.1\n2 2 1\n"), "(2, 1) = 0.1, (1, 2) is not stored"},
           {General("3 2 2\n1 1 2\n2 2 2\n"), m, "the file says that the matrix is 3 x 2; expected a square"},
           {General("3 3 2\n1 1 2\n2 2 2\n"), General("2 2 2\n" + m),
            "says that the matrix has order 2; K ("},
           {k + "3 3 1\n", General("2 2 2\n" + m), "says that the matrix has order 2; K ("},
           {symmetric, General("2 2 2\n" + m), nullptr},
           {General("2 2 4\n1 2 -1\n" + k), m, nullptr},
           {k, General("2 2 3\n2 1 0\n" + m), nullptr},
       }) {
    SCOPED_TRACE(test.k + test.m);
    RunResult const result =
        RunTool("modes " + files.folder.Write("k", test.k) + " " + files.folder.Write("m", test.m));
    if (test.message != nullptr) {
      ExpectFailure(result, 1, test.message);
      continue;
    }
    ASSERT_EQ(ReadModes(result.out).size(), 2U) << result.err;
    EXPECT_NEAR(static_cast<double>(ReadModes(result.out)[1].eigenvalue), 3.0, 1e-14);
  }
}

TEST(Program, PrintsTheDigitsThatAreKnownAndWhereAGroupLiesFarBelow) {
  TwoMasses const files;
  std::string const k = files.folder.Write("soft.txt", "1 1 1.0000000001\n2 1 -1\n2 2 1.0000000001\n");

  std::string const out = RunTool("modes " + k + " " + files.m).out;

  EXPECT_CONTAINS(out, "sigma = 0 and 2, each mode with the one that serves it best\n");
  EXPECT_CONTAINS(
      out, "# mode 1 lies far below the others: the eigenvalue of mode 2 is 2.0e+10 times that of mode 1\n");
  EXPECT_CONTAINS(out, " 1.000000e-10 ");
  EXPECT_CONTAINS(out, " 2.00000000010000");
}

TEST(Program, SaysWhatItAveragedAndWhatIsRigid) {
  TwoMasses const files;
  std::string const k = files.folder.Write("free.txt", "1 1 1\n1 2 -1\n2 1 -1.00000000001\n2 2 1\n");

  RunResult const result = RunTool("modes " + k + " " + files.m);

  EXPECT_EQ(result.exitCode, 0);
  EXPECT_CONTAINS(result.out,
                  "both triangles, averaged: relative difference 1e-11, worst pair (2, 1) = -1.00000000001");
  EXPECT_CONTAINS(result.out, "# M is positive definite, K is not, K + sigma M is");
  EXPECT_CONTAINS(result.out, "# 1 mode rigid");
  ASSERT_EQ(ReadModes(result.out).size(), 2U);
  EXPECT_EQ(ReadModes(result.out)[0].frequency, 0.0);
}

TEST(Program, WarnsOfModesThatMayBeRigidInFewDigits) {
  TwoMasses const files;
  std::string const k = files.folder.Write("free.txt", "1 1 1\n1 2 -1\n2 2 0.99999999999\n");

  std::string const out = RunTool("modes " + k + " " + files.m).out;

  EXPECT_CONTAINS(out, "# 1 mode with a negative eigenvalue: the frequency is imaginary");
  EXPECT_CONTAINS(out, "# 1 mode with x^T K x at most 2.5e-12 of its terms: rigid, if");
}

TEST(Program, UnusableInputIsExitCode1) {
  TwoMasses const files;
  auto const modesOf = [&](std::string const& text) {
    return RunTool("modes " + files.folder.Write("bad.txt", text) + " " + files.m);
  };

  ExpectFailure(RunTool("info " + files.folder.Path("none.txt")), 1, "none.txt': No such file or directory");
  ExpectFailure(RunTool("info " + files.folder.Path("")), 1, "Is a directory");
  ExpectFailure(modesOf("1 1 2\n1 x 2\n"), 1,
                "orxmtx: " + files.folder.Path("bad.txt") + ", line 2: a column");
  ExpectFailure(modesOf(""), 1, "is empty");
  ExpectFailure(modesOf("1 1 2\n1 2 -1\n2 1 1\n2 2 2\n"), 1, "not symmetric: (2, 1) = 1, (1, 2) = -1");
  ExpectFailure(modesOf("1 1 2\n1 2 -1\n2 1 -1\n3 1 2\n"), 1, "3 x 2, expected a square");
}

TEST(Program, WrongUsageIsExitCode2) {
  TwoMasses const files;

  ExpectFailure(RunTool(""), 2, "subcommand");
  ExpectFailure(RunTool("mode " + files.Pair()), 2,
                "there is no command 'mode'; expected one of info, db, convert");
  ExpectFailure(RunTool("modes " + files.k), 2, "M is required");
  ExpectFailure(RunTool("modes -n 0 " + files.Pair()), 2, "--count");
  ExpectFailure(RunTool("modes -n many " + files.Pair()), 2, "--count");
  ExpectFailure(RunTool("info --loud " + files.k), 2, "--loud");
}

TEST(Program, FailedWorkIsExitCode3) {
  TwoMasses const files;
  ExpectFailure(RunTool("modes " + files.folder.Write("K1.txt", "1 1 1\n2 2 -1\n") + " " +
                        files.folder.Write("M1.txt", "1 1 1\n")),
                3, "Unknown 2 has");
  ExpectFailure(RunTool("modes " + files.Pair() + " --shapes " + files.folder.Path("none/S.txt")), 3,
                "S.txt");
  if (access("/dev/full", W_OK) == 0)
    ExpectFailure(RunTool("info " + files.k + " >/dev/full"), 3, "standard output");
}

TEST(Program, HelpNamesTheExitCodesAndVersionTheVersion) {
  RunResult const help = RunTool("--help");
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_EQ(help.err, "");
  EXPECT_CONTAINS(help.out, "Exit codes:");
  EXPECT_CONTAINS(help.out, "modes");
  EXPECT_EQ(RunTool("--version").out, "orxmtx " ORXMTX_VERSION "\n");
}

} // namespace
