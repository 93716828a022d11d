#include "MatrixSupport.h"
#include "core/mem_Allocator.h"

#include <cstdio>
#include <numeric>

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

/// rows x columns with values 0, 1, 2, ... in storage order.
ORXSrvMatrix Numbered(int rows, int columns) {
  ORXSrvMatrix matrix(rows, columns);
  std::iota(matrix.Values(), matrix.Values() + matrix.NumberOfStoredValues(), 0.0);
  return matrix;
}

// ---- storage and ownership

TEST(Matrix, LendsAndKeepsTheCallersBuffer) {
  double buffer[] = {1, 2, 3, 4, 5, 6};
  {
    ORXSrvMatrix lent(2, 3, buffer);
    lent.Transpose(); // [1 3 5; 2 4 6] becomes [1 2; 3 4; 5 6]
    EXPECT_EQ(lent.NumberOfRows(), 3);
    EXPECT_EQ(lent.Values(), buffer);
  }
  EXPECT_EQ(Doubles(buffer, buffer + 6), (Doubles{1, 3, 5, 2, 4, 6}));
}

TEST(Matrix, CopiesAreDeepAndKeepTheFlags) {
  double buffer[] = {1, 2, 2, 1};
  ORXSrvMatrix const lent(2, 2, buffer, true, false), copy(lent);
  buffer[0] = 9;
  EXPECT_EQ(Stored(copy), (Doubles{1, 2, 2, 1}));
  EXPECT_TRUE(copy.IsSymmetric());
  ORXSrvMatrix const diagonal(Diagonal({4, 5}));
  EXPECT_TRUE(diagonal.IsDiagonal());
  EXPECT_EQ(Stored(diagonal), (Doubles{4, 5}));
}

TEST(Matrix, MovesTakeTheBufferOver) {
  ORXSrvMatrix source = Full({{1, 2}, {2, 1}}, true);
  double const* const values = source.Values();
  ORXSrvMatrix const taken(std::move(source));
  EXPECT_EQ(taken.Values(), values);
  EXPECT_EQ(Stored(taken), (Doubles{1, 2, 2, 1}));
  EXPECT_TRUE(taken.IsSymmetric());
  EXPECT_EQ(source.NumberOfStoredValues(),
            0); // NOLINT(bugprone-use-after-move): the header says what is left
  source = Diagonal({3});
  EXPECT_EQ(Stored(source), (Doubles{3}));

  double buffer[] = {1, 2};
  ORXSrvMatrix lent(2, 1, buffer);
  {
    ORXSrvMatrix const stillLent(std::move(lent));
    EXPECT_EQ(stillLent.Values(), buffer);
  }
  EXPECT_EQ(buffer[1], 2);
}

TEST(Matrix, ElementsAreReadAndWrittenInEitherStorage) {
  ORXSrvMatrix full = Numbered(2, 3);
  full(1, 2) = -1;
  EXPECT_EQ(Stored(full), (Doubles{0, 1, 2, 3, 4, -1}));
  ORXSrvMatrix diagonal = Diagonal({1, 2});
  diagonal(1, 1) += 5;
  ORXSrvMatrix const& fixed = diagonal;
  EXPECT_EQ((Doubles{fixed(0, 0), fixed(1, 0), fixed(0, 1), fixed(1, 1)}), (Doubles{1, 0, 0, 7}));
  EXPECT_RAISED(IllegalInput("operator()"), diagonal(0, 1) = 1);
  ORXSrvMatrix const& read = full;
  for (auto const& [i, j] : {std::pair{-1, 0}, {0, -1}, {2, 0}, {0, 3}}) {
    EXPECT_RAISED(IllegalInput("operator()"), static_cast<void>(read(i, j)));
    EXPECT_RAISED(IllegalInput("operator()"), full(i, j) = 1);
  }
}

TEST(Matrix, SizesThatCannotBeAllocatedThrow) {
  EXPECT_THROW(ORXSrvMatrix(-1, 3), mem_OutOfMemory);
  EXPECT_THROW(ORXSrvMatrix(-1, -1), mem_OutOfMemory);
  EXPECT_THROW(ORXSrvMatrix(std::numeric_limits<int>::max(), std::numeric_limits<int>::max()),
               mem_OutOfMemory);
}

TEST(Matrix, AssignmentOfTheSameShapeCopiesIntoTheBuffer) {
  double buffer[] = {0, 0, 0, 0};
  ORXSrvMatrix lent(2, 2, buffer);
  lent = Full({{1, 2}, {3, 4}}, true);
  EXPECT_EQ(Doubles(buffer, buffer + 4), (Doubles{1, 3, 2, 4}));
  EXPECT_FALSE(lent.IsSymmetric()) << "flags stay";
  lent = Diagonal({7, 8});
  EXPECT_EQ(Stored(lent), (Doubles{7, 0, 0, 8}));
  EXPECT_FALSE(lent.IsDiagonal());
  lent = lent;
  EXPECT_EQ(Stored(lent), (Doubles{7, 0, 0, 8}));
}

TEST(Matrix, AssignmentOfAnotherShapeNeedsABufferOfItsOwn) {
  ORXSrvMatrix own(1, 1);
  own = Full({{1, 2}, {2, 5}}, true);
  EXPECT_EQ(Stored(own), (Doubles{1, 2, 2, 5}));
  EXPECT_TRUE(own.IsSymmetric());

  ORXSrvMatrix diagonal = Diagonal({1, 1});
  diagonal = Full({{1, 2}, {3, 4}});
  EXPECT_FALSE(diagonal.IsDiagonal());
  EXPECT_EQ(Stored(diagonal), (Doubles{1, 3, 2, 4}));

  double buffer[] = {5, 6};
  ORXSrvMatrix lent(2, 1, buffer);
  EXPECT_RAISED(IllegalInput("Assignment operator"), lent = Full({{1, 2}}));
  EXPECT_EQ(buffer[0], 5);
}

TEST(Matrix, ScalarFillsStoredValuesOnly) {
  double buffer[] = {0, 0, 9};
  ORXSrvMatrix diagonal(2, 2, buffer, false, true);
  diagonal = 3.0;
  EXPECT_EQ(Doubles(buffer, buffer + 3), (Doubles{3, 3, 9}));
}

// ---- comparison

TEST(Matrix, ComparisonIsExactAndReportsTheFirstDifference) {
  EXPECT_TRUE(Full({{1, 2}}) == Full({{1, 2}}, true));
  EXPECT_FALSE(Full({{1, 2}}) == Full({{1}, {2}}));
  EXPECT_FALSE(Diagonal({1, 1}) == Full({{1, 0}, {0, 1}}));
  EXPECT_FALSE(Diagonal({1, 0}) == Full({{1, 0}, {0, 1}})) << "their first values are equal";
  EXPECT_TRUE(Diagonal({1, 2}) == Diagonal({1, 2}));

  testing::internal::CaptureStdout();
  ORXSrvMatrix const withNan = Full({{1, nan}});
  EXPECT_TRUE(withNan == withNan);
  EXPECT_FALSE(withNan == Full({{1, nan}}));
  EXPECT_FALSE(Full({{1}, {2}, {3}}) == Full({{1}, {2}, {4}}));
  std::fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            " m_dim1= 1, m_dim2= 2i= 1 ptr[i]= nan  rhsPtr[i]= nan"
            " m_dim1= 3, m_dim2= 1i= 2 ptr[i]= 3.000000  rhsPtr[i]= 4.000000");
}

TEST(Matrix, SymmetryTestIsExact) {
  EXPECT_TRUE(ORXSrvMatrix(0, 0).IsSymmetricNumerically());
  EXPECT_TRUE(Diagonal({1, nan}).IsSymmetricNumerically());
  EXPECT_FALSE(Numbered(2, 3).IsSymmetricNumerically());
  EXPECT_FALSE(Full({{1, nan}, {nan, 1}}).IsSymmetricNumerically());
  EXPECT_TRUE(Full({{nan, 2}, {2, 1}}).IsSymmetricNumerically());

  // Every off-diagonal pair counts, also across the tiles the test works in.
  int const n = 70;
  ORXSrvMatrix matrix(n, n);
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i)
      matrix.Values()[j * n + i] = i * j;
  EXPECT_TRUE(matrix.IsSymmetricNumerically());
  for (int i = 1; i < n; ++i)
    for (int j = 0; j < i; ++j) {
      double& value = matrix.Values()[j * n + i];
      double const kept = value;
      value = std::nextafter(value, 1e9);
      ASSERT_FALSE(matrix.IsSymmetricNumerically()) << i << ", " << j;
      value = kept;
    }
}

// ---- transposition

TEST(Matrix, TransposeOfEveryShapeMovesEveryElement) {
  for (auto const& [rows, columns] :
       {std::pair{1, 1}, {5, 5}, {67, 67}, {1, 9}, {40, 3}, {33, 70}, {0, 4}, {48, 48}}) {
    ORXSrvMatrix matrix = Numbered(rows, columns);
    matrix.Transpose();
    ASSERT_EQ(matrix.NumberOfRows(), columns);
    ASSERT_EQ(matrix.NumberOfColumns(), rows);
    for (int i = 0; i < columns; ++i)
      for (int j = 0; j < rows; ++j)
        ASSERT_EQ(matrix.Values()[j * columns + i], i * rows + j);
  }
}

TEST(Matrix, TransposeLeavesSymmetricAndDiagonalMatricesAlone) {
  ORXSrvMatrix flagged = Full({{1, 2}, {3, 4}}, true);
  flagged.Transpose();
  EXPECT_EQ(Stored(flagged), (Doubles{1, 3, 2, 4}));
  ORXSrvMatrix diagonal = Diagonal({1, 2});
  diagonal.Transpose();
  EXPECT_EQ(Stored(diagonal), (Doubles{1, 2}));
}

// ---- blocks

TEST(Matrix, BlocksArePackedWhateverTheOtherShapeIs) {
  ORXSrvMatrix matrix = Numbered(3, 3); // [0 3 6; 1 4 7; 2 5 8]
  ORXSrvMatrix target(4, 1);
  matrix.GetValues(0, 1, 0, 1, target);
  EXPECT_EQ(Stored(target), (Doubles{0, 1, 3, 4}));
  EXPECT_EQ(target.NumberOfColumns(), 1);

  matrix.SetValues(1, 2, 1, 2, target);
  EXPECT_EQ(Stored(matrix), (Doubles{0, 1, 2, 3, 0, 1, 6, 3, 4}));

  double const row[] = {-1, -2, -3};
  ORXSrvMatrix source(1, 3);
  source.SetValues(0, 0, 0, 2, row);
  matrix.SetRows(0, 0, source);
  ORXSrvMatrix back(1, 3);
  matrix.GetRows(0, 0, back);
  EXPECT_EQ(Stored(back), (Doubles{-1, -2, -3}));
}

TEST(Matrix, BlockRangesOutsideTheMatrixAreRefused) {
  ORXSrvMatrix matrix = Numbered(2, 3), other(5, 5);
  double const values[30] = {};
  constexpr int bad[][4] = {{-1, 0, 0, 0}, {0, 2, 0, 0}, {0, 0, -1, 0},
                            {0, 0, 0, 3},  {1, 0, 0, 0}, {0, 0, 2, 1}};
  for (auto const& r : bad) {
    EXPECT_RAISED(IllegalInput("SetValues"), matrix.SetValues(r[0], r[1], r[2], r[3], values));
    EXPECT_RAISED(IllegalInput("SetValues"), matrix.SetValues(r[0], r[1], r[2], r[3], other));
    EXPECT_RAISED(IllegalInput("GetValues"), matrix.GetValues(r[0], r[1], r[2], r[3], other));
  }
  ORXSrvMatrix small(1, 3);
  EXPECT_RAISED(IllegalInput("GetValues"), matrix.GetValues(0, 1, 0, 1, small));
  EXPECT_RAISED(IllegalInput("SetValues"), matrix.SetValues(0, 1, 0, 1, small));
  EXPECT_EQ(Stored(matrix), (Doubles{0, 1, 2, 3, 4, 5}));
}

TEST(Matrix, SlicesScaleAndStayInside) {
  ORXSrvMatrix matrix(3, 3);
  ORXSrvMatrix const square = Full({{1, 2}, {3, 4}}), diagonal = Diagonal({1, 2});
  matrix = 1.0;
  matrix.SetSlice(2.0, square, 1, 0);
  EXPECT_EQ(Stored(matrix), (Doubles{1, 2, 6, 1, 4, 8, 1, 1, 1}));
  matrix.AddSlice(-1.0, Full({{1, 1}}), 0, 1);
  EXPECT_EQ(Stored(matrix), (Doubles{1, 2, 6, 0, 4, 8, 0, 1, 1}));
  matrix.SetSlice(3.0, diagonal, 0, 1); // clears its square, then writes the diagonal
  EXPECT_EQ(Stored(matrix), (Doubles{1, 2, 6, 3, 0, 8, 0, 6, 1}));
  matrix.AddSlice(1.0, diagonal, 1, 0);
  EXPECT_EQ(Stored(matrix), (Doubles{1, 3, 6, 3, 0, 10, 0, 6, 1}));

  Doubles const before = Stored(matrix);
  for (auto const& [row, column] : {std::pair{2, 0}, {0, 2}, {-1, 0}, {0, -1}}) {
    EXPECT_RAISED(IllegalInput("SetSlice"), matrix.SetSlice(1.0, square, row, column));
    EXPECT_RAISED(IllegalInput("AddSlice"), matrix.AddSlice(1.0, diagonal, row, column));
  }
  EXPECT_EQ(Stored(matrix), before);
}

TEST(Matrix, SlicesOfDiagonalMatrices) {
  ORXSrvMatrix diagonal = Diagonal({1, 2, 3});
  ORXSrvMatrix const single = Numbered(1, 1);
  diagonal.SetSlice(10.0, Diagonal({1, 2}), 1, 7); // the column offset does not count here
  EXPECT_EQ(Stored(diagonal), (Doubles{1, 10, 20}));
  EXPECT_RAISED(IllegalInput("SetSlice"), diagonal.SetSlice(1.0, single, 0, 0));
  EXPECT_RAISED(IllegalInput("Assignment operator"), diagonal.AddSlice(1.0, single, 0, 0));

  // Sums go to full-storage positions even in a diagonal matrix: index (1 + k) * 2 + ... of a lent 2 x 2
  // buffer.
  double buffer[] = {1, 2, 3, 4};
  ORXSrvMatrix lent(2, 2, buffer, false, true);
  lent.AddSlice(1.0, Diagonal({10, 20}), 0, 0);
  EXPECT_EQ(Doubles(buffer, buffer + 4), (Doubles{11, 2, 3, 24}));
  for (auto const& [size, column] : {std::pair{2, 0}, {1, 1}}) { // its own buffer ends before those positions
    ORXSrvMatrix const source(size, size, buffer, false, true);
    EXPECT_RAISED(IllegalInput("AddSlice"), diagonal.AddSlice(1.0, source, 0, column));
  }
}

TEST(Matrix, DiagonalsAreWrittenToEitherStorage) {
  ORXSrvMatrix full(2, 2);
  full = 5.0;
  full.SetDiagonal(Diagonal({1, 2}));
  EXPECT_EQ(Stored(full), (Doubles{1, 5, 5, 2}));
  full.SetDiagonal(Full({{7, 0}, {0, 8}}));
  EXPECT_EQ(Stored(full), (Doubles{7, 5, 5, 8}));
  // A larger full source is read with this matrix's stride: its values 0 and 3 in storage order.
  full.SetDiagonal(Numbered(3, 3));
  EXPECT_EQ(Stored(full), (Doubles{0, 5, 5, 3}));

  ORXSrvMatrix diagonal = Diagonal({1, 2});
  for (ORXSrvMatrix const& bad : {Numbered(2, 3), Numbered(2, 2)})
    EXPECT_RAISED(IllegalInput("SetDiagonal"), diagonal.SetDiagonal(bad));
  for (ORXSrvMatrix const& bad : {Diagonal({1}), Numbered(2, 3), Numbered(3, 2)})
    EXPECT_RAISED(IllegalInput("SetDiagonal"), full.SetDiagonal(bad));
  EXPECT_RAISED(IllegalInput("SetDiagonal"), full.SetDiagonal(Numbered(1, 1)));
  ORXSrvMatrix tall = Numbered(3, 1);
  EXPECT_RAISED(IllegalInput("SetDiagonal"), tall.SetDiagonal(Diagonal({1, 2, 3}).Values()));
}

// ---- permutation

TEST(Matrix, RowsAreScattered) {
  ORXSrvMatrix matrix = Full({{1, 4}, {2, 5}, {3, 6}});
  int const permutation[] = {1, 2, 0};
  matrix.PermuteRowsInPlace(permutation, 3);
  EXPECT_EQ(Stored(matrix), (Doubles{3, 1, 2, 6, 4, 5}));
  EXPECT_RAISED(IllegalInput("PermuteRowsInPlace"), matrix.PermuteRowsInPlace(permutation, 2));
}

TEST(Matrix, PermutationRefusesOnlyEntriesAboveTheRowCount) {
  ORXSrvMatrix matrix = Full({{1, 3}, {2, 4}});
  int const beyond[] = {0, 3};
  EXPECT_RAISED("212 ORXSrvMatrix::PermuteRowsInPlace - Illegal perm Vector.",
                matrix.PermuteRowsInPlace(beyond, 2));
  // An entry equal to the row count reaches the first row of the next column, before that one is permuted.
  int const equal[] = {0, 2};
  matrix.PermuteRowsInPlace(equal, 2);
  EXPECT_EQ(Stored(matrix), (Doubles{1, 2, 2, 4}));
  // A negative entry reaches back, but never out of the matrix.
  int const negative[] = {0, -1};
  matrix.PermuteRowsInPlace(negative, 2);
  EXPECT_EQ(Stored(matrix), (Doubles{1, 4, 2, 4}));
}

// ---- sums, scaling, interpolation

TEST(Matrix, SumsOfEachPairOfStorages) {
  ORXSrvMatrix full = Full({{1, 2}, {3, 4}});
  full += Full({{10, 10}, {10, 10}});
  full += Diagonal({100, 200});
  EXPECT_EQ(Stored(full), (Doubles{111, 13, 12, 214}));
  full.Add(-1.0, Diagonal({100, 200}));
  full.Add(2.0, Full({{1, 0}, {0, 1}}));
  EXPECT_EQ(Stored(full), (Doubles{13, 13, 12, 16}));
  ORXSrvMatrix diagonal = Diagonal({1, 2});
  diagonal += Diagonal({1, 1});
  diagonal.Add(0.5, Diagonal({2, 2}));
  EXPECT_EQ(Stored(diagonal), (Doubles{3, 4}));
}

TEST(Matrix, SumsEndWithTheLastValue) {
  for (double const factor : {1.0, -1.0, 0.5}) {
    double target[] = {1, 1, 7};
    double source[] = {2, 2, 9};
    ORXSrvMatrix(2, 1, target).Add(factor, ORXSrvMatrix(2, 1, source));
    EXPECT_EQ(Doubles(target, target + 3), (Doubles{1 + 2 * factor, 1 + 2 * factor, 7}));
  }
}

TEST(Matrix, SumsCheckShapesUnlessTheFactorIsZero) {
  ORXSrvMatrix full = Numbered(2, 2);
  ORXSrvMatrix diagonal = Diagonal({1, 2});
  EXPECT_RAISED(IllegalInput("*="), full += full);
  EXPECT_RAISED(IllegalInput("*="), full += Numbered(2, 3));
  EXPECT_RAISED(IllegalInput("*="), diagonal += full);
  ORXSrvMatrix tall(3, 1); // has no positions for three diagonal values
  EXPECT_RAISED(IllegalInput("*="), tall += ORXSrvMatrix(3, 1, nullptr, false, true));
  EXPECT_RAISED(IllegalInput("Add"), full.Add(1.0, Numbered(3, 2)));
  EXPECT_RAISED(IllegalInput("Add"), diagonal.Add(1.0, full));
  EXPECT_RAISED("nothing raised", full.Add(0.0, Numbered(3, 2)));
  EXPECT_EQ(Stored(full), (Doubles{0, 1, 2, 3}));
}

TEST(Matrix, ScalingIsForFullStorage) {
  ORXSrvMatrix full = Full({{1, -2}});
  full.Multiply(-3.0);
  EXPECT_EQ(Stored(full), (Doubles{-3, 6}));
  ORXSrvMatrix diagonal = Diagonal({1, 2});
  EXPECT_RAISED(IllegalInput("Multiply"), diagonal.Multiply(2.0));
  EXPECT_EQ(Stored(diagonal), (Doubles{1, 2}));
  ORXSrvMatrix single = Diagonal({4}); // whose diagonal is all it has
  single.Multiply(2.0);
  EXPECT_EQ(Stored(single), (Doubles{8}));
}

TEST(Matrix, TrianglesAreCopiedElementByElementInEveryShape) {
  for (auto const& [rows, columns] : {std::pair{17, 17}, {64, 64}, {37, 45}, {45, 37}, {1, 40}}) {
    ORXSrvMatrix const before = RandomFull(rows, columns);
    ORXSrvMatrix symmetric(before), skew(before);
    symmetric.SetSymmetricResults();
    skew.SetSkewSymmetricResults();
    int const n = std::min(rows, columns);
    for (int j = 0; j < columns; ++j)
      for (int i = 0; i < rows; ++i) {
        bool const isCopied = rows < columns ? j < i && i < n : i < j && j < n;
        double const source = isCopied ? At(before, j, i) : At(before, i, j);
        ASSERT_EQ(At(symmetric, i, j), source) << i << ", " << j;
        ASSERT_EQ(At(skew, i, j), isCopied ? -source : source) << i << ", " << j;
      }
  }
}

TEST(Matrix, InterpolationVisitsItsOwnIndexRule) {
  ORXSrvMatrix const a = Full({{1, 2}, {3, 4}});
  ORXSrvMatrix const b = Full({{11, 22}, {33, 44}});
  ORXSrvMatrix result(2, 2);
  result.Interpolate(0.0, a, b);
  EXPECT_TRUE(result == a);
  result.Interpolate(1.0, a, b);
  EXPECT_TRUE(result == b);
  result.Interpolate(0.5, a, b);
  EXPECT_TRUE(result == Full({{6, 12}, {18, 24}}));
  // 2 x 3: positions 2 i + j are 0 .. 4; the last value is never reached.
  ORXSrvMatrix wide(2, 3);
  wide = -1.0;
  wide.Interpolate(0.0, Numbered(2, 3), Numbered(2, 3));
  EXPECT_EQ(Stored(wide), (Doubles{0, 1, 2, 3, 4, -1}));
}

TEST(Matrix, InterpolationRefusesShapesAndParameters) {
  ORXSrvMatrix const a = Numbered(2, 2);
  ORXSrvMatrix result(2, 2);
  for (double const t : {1.5, -1e-9})
    EXPECT_RAISED(IllegalInput("Interpolate"), result.Interpolate(t, a, a));
  EXPECT_RAISED("nothing raised", result.Interpolate(nan, a, a));
  EXPECT_RAISED(IllegalInput("Interpolate"), result.Interpolate(0.5, a, Numbered(2, 3)));
  ORXSrvMatrix tall(3, 2); // position 3 * 2 + 1 would lie behind its six values
  EXPECT_RAISED(IllegalInput("Interpolate"), tall.Interpolate(0.5, Numbered(3, 2), Numbered(3, 2)));
}

} // namespace
