#include "ToolSupport.h"

#include "tools/commands/Check.h"

#include <array>
#include <cmath>

// What orxmtx check finds wrong with models, and what it takes for facts.

namespace {

using orx::tool::CheckModel;
using orx::tool::CheckOptions;
using orx::tool::CheckResult;
using orx::tool::Format;

using Point = std::array<double, 3>;
using Bar = std::array<int, 2>;

/// A tetrahedron, and the bars that make a rigid body of it.
std::vector<Point> const corners{{0, 0, 0}, {1, 0.3, 0}, {0.1, 2, 0.7}, {0.2, 0.9, 3}};
std::vector<Bar> const edges{{0, 1}, {0, 2}, {0, 3}, {1, 2}, {1, 3}, {2, 3}};

/// The lower triangle of the stiffness of bars between points of three unknowns, with that many digits.
std::string Bars(std::vector<Point> const& points, std::vector<Bar> const& bars, int digits = 17) {
  std::string text;
  for (Bar const& bar : bars) {
    Point direction{};
    double length = 0.0;
    for (int axis = 0; axis < 3; ++axis)
      direction[axis] = points[bar[1]][axis] - points[bar[0]][axis];
    length = std::hypot(direction[0], direction[1], direction[2]);
    for (int i = 0; i < 6; ++i)
      for (int j = 0; j < 6; ++j) {
        int const row = 3 * bar[i / 3] + i % 3, column = 3 * bar[j / 3] + j % 3;
        double const value =
            (i / 3 == j / 3 ? 1e6 : -1e6) * direction[i % 3] * direction[j % 3] / (length * length * length);
        if (row >= column) text += Format("%d %d %.*e\n", row + 1, column + 1, digits - 1, value);
      }
  }
  return text;
}

std::string Coordinates(std::vector<Point> const& points) {
  std::string text = "# x y z\n";
  for (Point const& p : points)
    text += Format("%g %g %g\n", p[0], p[1], p[2]);
  return text;
}

std::string Diagonal(std::vector<double> const& values) {
  std::string text;
  for (std::size_t i = 0; i < values.size(); ++i)
    text += Format("%zu %zu %.17g\n", i + 1, i + 1, values[i]);
  return text;
}

/// Empty texts stand for no file.
CheckResult Check(std::string const& k, std::string const& coordinates = {}, std::string const& m = {}) {
  TemporaryFolder const folder;
  CheckOptions options;
  options.stiffnessPath = folder.Write("k", k);
  if (!m.empty()) options.massPath = folder.Write("m", m);
  if (!coordinates.empty()) options.coordinatesPath = folder.Write("xyz", coordinates);
  return CheckModel(options);
}

TEST(Check, TellsRigidMotionsFromMechanisms) {
  std::string const body = Bars(corners, edges), xyz = Coordinates(corners);
  CheckResult const rigid = Check(body, xyz);
  EXPECT_TRUE(rigid.isSound) << rigid.text;
  EXPECT_CONTAINS(rigid.text, "  parts:             1\n");
  EXPECT_CONTAINS(rigid.text, "  eigenvalues:       0 negative, 6 zero, 6 positive\n");
  EXPECT_CONTAINS(rigid.text, "    rigid:           6\nwrong:               nothing found\n");

  std::vector<Bar> const one(edges.begin(), edges.end() - 1);
  CheckResult const mechanism = Check(Bars(corners, one), xyz);
  EXPECT_FALSE(mechanism.isSound);
  EXPECT_CONTAINS(mechanism.text,
                  "wrong:               1 motion without stiffness besides the 6 of a rigid body:");
  EXPECT_CONTAINS(Check(Bars(corners, one)).text, "besides up to 6 of a rigid body");
  EXPECT_CONTAINS(Check(body).text, "    rigid:           --coordinates tells how many are\n");

  // Hinged at a corner it has three rotations, about axes that are not those of the coordinates.
  std::string const hinge = "1 1 1e7\n2 2 1e7\n3 3 1e7\n";
  std::vector<Point> moved = corners;
  for (Point& p : moved)
    p = {p[0] + 10, p[1] - 20, p[2] + 5};
  CheckResult const hinged = Check(body + hinge, Coordinates(moved));
  EXPECT_TRUE(hinged.isSound);
  EXPECT_CONTAINS(hinged.text, "    rigid:           3\n");
  EXPECT_CONTAINS(Check(body + hinge + "4 4 1e6\n5 5 1e6\n6 6 1e6\n7 7 1e6\n8 8 1e6\n9 9 1e6\n", xyz).text,
                  "  free motions:      none\n");
}

TEST(Check, KnowsRigidMotionsInMatricesOfTenDigits) {
  CheckResult const result = Check(Bars(corners, edges, 10), Coordinates(corners));
  EXPECT_TRUE(result.isSound) << result.text;
  EXPECT_CONTAINS(result.text, "    rigid:           6\n");
}

TEST(Check, FindsPartsAndWhichOfThemAreFree) {
  std::vector<Point> points = corners;
  std::vector<Bar> bars = edges;
  for (Point const& p : corners)
    points.push_back({p[0] + 5, p[1], p[2]});
  for (Bar const& bar : edges)
    bars.push_back({bar[0] + 4, bar[1] + 4});
  CheckResult const both = Check(Bars(points, bars), Coordinates(points));
  EXPECT_FALSE(both.isSound);
  EXPECT_CONTAINS(both.text, "  parts:             2 that nothing ties together, of 12 to 12 unknowns\n");
  EXPECT_CONTAINS(both.text, "    part:            6 in that of unknown 13, with 12 unknowns\n");
  EXPECT_CONTAINS(both.text, "6 motions without stiffness besides the 6 of a rigid body");

  // Each held at all its unknowns: two parts are no fault.
  std::string ground;
  for (int i = 1; i <= 24; ++i)
    ground += Format("%d %d 1e3\n", i, i);
  CheckResult const held = Check(Bars(points, bars) + ground);
  EXPECT_TRUE(held.isSound) << held.text;
  EXPECT_CONTAINS(held.text, "  condition:         ");
}

TEST(Check, SumsMassForThreeAndSixUnknownsOfANode) {
  // Masses of 2 and 6 at (1, 2, 3) and (5, 2, 3), the second with a moment of inertia of 10 about x.
  std::string const xyz = "1 2 3\n5 2 3\n";
  CheckResult const three = Check(Diagonal({1, 1, 1, 1, 1, 1}), xyz, Diagonal({2, 2, 2, 6, 6, 6}));
  EXPECT_TRUE(three.isSound) << three.text;
  EXPECT_CONTAINS(three.text, "  mass:              8  8  8  along x, y, z\n"
                              "  centre of gravity: 4  2  3\n"
                              "  inertia:           0  24  24  about axes through it\n");
  CheckResult const six =
      Check(Diagonal(std::vector<double>(12, 1.0)), xyz, Diagonal({2, 2, 2, 0, 0, 0, 6, 6, 6, 10, 0, 0}));
  EXPECT_CONTAINS(six.text, "  inertia:           10  24  24  about axes through it\n");
  EXPECT_CONTAINS(six.text, "  no mass:           5: 4, 5, 6, 11, 12\n");
  EXPECT_TRUE(six.isSound) << "massless unknowns are no fault";
}

TEST(Check, NamesWhatIsWrong) {
  struct Case {
    std::string k, m;
    char const* finding;
  };
  Case const cases[] = {
      {"1 1 1\n4 4 1\n2 3 0\n", "", "wrong:               2 unknowns have no stiffness: 2, 3\n"},
      {Diagonal({1, 1}), Diagonal({1, 1, 1}), "wrong:               1 unknown has no stiffness: 3\n"},
      {Diagonal({1, -2}), "", "K has 1 negative diagonal entry at unknown 2\n"},
      {"1 1 1\n1 2 2\n2 2 1\n", "", "wrong:               K has 1 negative eigenvalue\n"},
      {"1 1 1\n1 2 2\n2 1 3\n2 2 9\n", "", "wrong:               K is not symmetric\n"},
      {"1 1 nan\n2 2 inf\n", "",
       "wrong:               K has 2 values that are not finite, the first is (1, 1) = nan\n"},
      {Diagonal({0, 0, 0}), "", "wrong:               3 unknowns have no stiffness: 1, 2, 3\n"},
      {Diagonal({1, 1}), Diagonal({0, 0}), "wrong:               M has no mass\n"},
      {Diagonal({1, 1}), Diagonal({1, -1}),
       "wrong:               M has 1 negative diagonal entry at unknown 2\n"},
  };
  for (Case const& c : cases) {
    CheckResult const result = Check(c.k, {}, c.m);
    EXPECT_FALSE(result.isSound);
    EXPECT_CONTAINS(result.text, c.finding);
    EXPECT_EQ(result.text.find("nothing found"), std::string::npos);
  }
  // The multiplier of a constraint, and scales.
  CheckResult const multiplier = Check("1 1 1e-3\n2 2 4e5\n3 1 1\n3 2 -1\n");
  EXPECT_TRUE(multiplier.isSound) << multiplier.text;
  EXPECT_CONTAINS(multiplier.text, "from 0.001 (unknown 1) to 4e+05 (unknown 2), a ratio of 4e+08\n");
  EXPECT_CONTAINS(multiplier.text,
                  "  constraints:       1 unknown with stiffness and a zero on the diagonal");
}

TEST(Check, EndsWithOneWhenSomethingIsWrong) {
  TemporaryFolder const folder;
  std::string const good = folder.Write("good", Diagonal({1, 1, 1})),
                    bad = folder.Write("bad", Diagonal({1, -1}));
  std::string const nodes = folder.Write("nodes", "0 0 0\n1 0 0\n"), line = folder.Write("line", "0 0\n");
  EXPECT_EQ(RunTool("check " + good + " " + good + " --budget 1GB").exitCode, 0);
  EXPECT_EQ(RunTool("check " + bad).exitCode, 1);
  EXPECT_EQ(RunTool("check").exitCode, 2);
  EXPECT_CONTAINS(RunTool("check " + good + " --coordinates " + nodes).err,
                  "nodes' has 2 nodes; the matrices have order 3, expected 3 or 6 for each node");
  EXPECT_CONTAINS(RunTool("check " + good + " --coordinates " + line).err,
                  "line 1: x y z expected, found \"0 0\"");
}

} // namespace
