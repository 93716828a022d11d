#include "ToolSupport.h"

#include <limits>

namespace {

using orx::tool::MatrixEntries;
using orx::tool::MeasureSymmetry;
using orx::tool::Symmetry;
using Form = orx::tool::Symmetry::Form;

/// A as a full matrix, row by row, through products with unit vectors.
std::vector<std::vector<double>> Dense(orx::tool::SymmetricMatrix const& matrix) {
  auto const n = static_cast<std::size_t>(matrix.Order());
  std::vector<std::vector<double>> rows;
  for (std::size_t i = 0; i < n; ++i) {
    std::vector<double> unit(n, 0.0);
    unit[i] = 1.0;
    rows.push_back(matrix.Times(unit));
  }
  return rows;
}

std::string EndingOfMakeSymmetric(Rows rows, int order) {
  MatrixEntries const matrix = Sparse(rows);
  return Ending([&] { orx::tool::MakeSymmetric(matrix, MeasureSymmetry(matrix), order, "K"); });
}

TEST(SymmetryMeasure, TellsWhichTriangleIsStored) {
  EXPECT_EQ(MeasureSymmetry(Sparse({{1, 0}, {0, 2}})).form, Form::Diagonal);
  EXPECT_EQ(MeasureSymmetry(Sparse({{1, 0}, {3, 2}})).form, Form::LowerTriangle);
  EXPECT_EQ(MeasureSymmetry(Sparse({{0, 3}, {0, 2}})).form, Form::UpperTriangle);
  EXPECT_EQ(MeasureSymmetry(Sparse({{0, 3}, {3, 0}})).form, Form::BothTriangles);
  EXPECT_EQ(MeasureSymmetry(Sparse({})).form, Form::Diagonal);

  //  4 1 0
  //  1 0 2     two below, one on, two above
  //  0 2 0
  Symmetry const symmetry = MeasureSymmetry(Sparse({{4, 1, 0}, {1, 0, 2}, {0, 2, 0}}));

  EXPECT_EQ(symmetry.lowerEntries, 2);
  EXPECT_EQ(symmetry.diagonalEntries, 1);
  EXPECT_EQ(symmetry.upperEntries, 2);
  EXPECT_TRUE(symmetry.IsExact());
}

TEST(SymmetryMeasure, NamesTheWorstPair) {
  //  1    2    5
  //  2    1    3       (3, 1) is off by 1 in 5, (3, 2) by 1 in 4
  //  4    4    1
  Symmetry const symmetry = MeasureSymmetry(Sparse({{1, 2, 5}, {2, 1, 3}, {4, 4, 1}}));

  ASSERT_FALSE(symmetry.IsExact());
  EXPECT_EQ(orx::tool::Describe(*symmetry.worst), "(3, 2) = 4, (2, 3) = 3");
  EXPECT_DOUBLE_EQ(symmetry.worstDifference, 0.25);
  EXPECT_EQ(symmetry.unmatchedEntries, 0);
}

TEST(SymmetryMeasure, LeftoversOfCancellationAreMeasuredAgainstTheDiagonal) {
  //  1e6    1e-7        without the diagonal the pair would be wholly unsymmetric
  //  0      4e6
  Symmetry const symmetry = MeasureSymmetry(Sparse({{1e6, 1e-7, 0}, {0, 4e6, 1}, {0, 1, 9e6}}));

  EXPECT_DOUBLE_EQ(symmetry.worstDifference, 1e-7 / 2e6);
}

TEST(SymmetryMeasure, CountsEntriesWithoutMirrorImage) {
  //  1 2 0 7
  //  2 1 0 0       (1, 4) and (4, 3) stand alone
  //  0 0 1 0
  //  0 0 8 1
  Symmetry const symmetry = MeasureSymmetry(Sparse({{1, 2, 0, 7}, {2, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 8, 1}}));

  EXPECT_EQ(symmetry.unmatchedEntries, 2);
  EXPECT_EQ(orx::tool::Describe(*symmetry.unmatched), "(4, 1) = 0, (1, 4) = 7");
}

TEST(MakeSymmetric, OneTriangleStandsForBoth) {
  std::vector<std::vector<double>> const expected{{4, 1, 0}, {1, 5, 2}, {0, 2, 0}};
  for (auto const& matrix : {Sparse({{4, 0, 0}, {1, 5, 0}, {0, 2, 0}}), Sparse({{4, 1, 0}, {0, 5, 2}}),
                             Sparse({{4, 1, 0}, {1, 5, 2}, {0, 2, 0}})})
    EXPECT_EQ(Dense(orx::tool::MakeSymmetric(matrix, MeasureSymmetry(matrix), 3, "K")), expected);
}

TEST(MakeSymmetric, AveragesRoundingErrorsOnly) {
  MatrixEntries const nearly = Sparse({{1, 2}, {2 * (1 + 0x1p-36), 1}});

  auto const averaged = Dense(orx::tool::MakeSymmetric(nearly, MeasureSymmetry(nearly), 2, "K"));

  EXPECT_EQ(averaged[1][0], 2 * (1 + 0x1p-37));
  EXPECT_EQ(averaged[0][1], averaged[1][0]);
  std::string const refused = EndingOfMakeSymmetric({{1, 2}, {2.5, 1}}, 2);
  EXPECT_CONTAINS(refused, "1 K: the matrix is not symmetric: (2, 1) = 2.5, (1, 2) = 2");
}

TEST(MakeSymmetric, RefusesRectanglesAndValuesThatAreNotFinite) {
  EXPECT_CONTAINS(EndingOfMakeSymmetric({{1, 2}, {2, 1}, {1, 0}}, 3),
                  "1 K: the matrix is 3 x 2, expected a square");
  EXPECT_CONTAINS(EndingOfMakeSymmetric({{1, 0}, {std::numeric_limits<double>::infinity(), 1}}, 2),
                  "1 K: the value at (2, 1) is inf, expected a finite number");
}

} // namespace
