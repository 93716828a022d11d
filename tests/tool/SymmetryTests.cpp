#include "ToolSupport.h"

#include <limits>

namespace {

using orx::tool::MeasureSymmetry;
using orx::tool::Symmetry;
using Form = orx::tool::Symmetry::Form;

ORXSrvSparseMatrix LowerTriangle(ORXSrvSparseMatrix const& matrix, int order) {
  return orx::tool::MakeLowerTriangle(matrix, MeasureSymmetry(matrix), order, "K");
}

std::string EndingOfTriangle(Rows rows, int order) {
  return Ending([&] { LowerTriangle(Sparse(rows), order); });
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

TEST(LowerTriangle, OneTriangleStandsForBoth) {
  for (auto const& matrix : {Sparse({{4, 0, 0}, {1, 5, 0}, {0, 2, 0}}), Sparse({{4, 1, 0}, {0, 5, 2}}),
                             Sparse({{4, 1, 0}, {1, 5, 2}, {0, 2, 0}})})
    EXPECT_EQ(TextOf(LowerTriangle(matrix, 3)), "3 x 3: 1,1=4 2,1=1 2,2=5 3,2=2");
}

TEST(LowerTriangle, AveragesRoundingErrorsOnly) {
  auto const averaged = LowerTriangle(Sparse({{1, 2}, {2 * (1 + 0x1p-36), 1}}), 2);

  EXPECT_EQ(averaged.View().values[1], 2 * (1 + 0x1p-37));
  EXPECT_CONTAINS(EndingOfTriangle({{1, 2}, {2.5, 1}}, 2),
                  "1 K: the matrix is not symmetric: (2, 1) = 2.5, (1, 2) = 2");
}

TEST(LowerTriangle, RefusesRectanglesAndValuesThatAreNotFinite) {
  EXPECT_CONTAINS(EndingOfTriangle({{1, 2}, {2, 1}, {1, 0}}, 3),
                  "1 K: the matrix is 3 x 2, expected a square");
  EXPECT_CONTAINS(EndingOfTriangle({{1, 0}, {std::numeric_limits<double>::infinity(), 1}}, 2),
                  "1 K: the value at (2, 1) is inf, expected a finite number");
}

} // namespace
