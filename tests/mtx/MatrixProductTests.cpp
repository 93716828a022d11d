#include "MatrixSupport.h"

namespace {

/// What a target holds before a product: a value that none of them gives.
constexpr double untouched = -12345.0;
/// Around the block sizes of the products, which are 128 and 144.
constexpr int sizes[] = {1, 2, 127, 128, 129, 130, 143, 144, 145, 288, 300};

ORXSrvMatrix Uniform(int rows, int columns, double value) { return MatrixOf(Constant(rows, columns, value)); }

/// Whose products and sums are exact in any order.
ORXSrvMatrix OfIntegers(int rows, int columns, int seed) { return MatrixOf(Integers(rows, columns, seed)); }

ORXSrvMatrix DiagonalOfIntegers(int n, int seed) {
  ORXSrvMatrix diagonal(n, n, nullptr, false, true);
  diagonal.SetDiagonal(Integers(n, 1, seed).Data());
  return diagonal;
}

ORXSrvMatrix Transposed(ORXSrvMatrix const& a) { return MatrixOf(Transposed(DenseOf(a))); }

ORXSrvMatrix FirstColumns(ORXSrvMatrix const& a, int columns) {
  return MatrixOf(Filled(a.NumberOfRows(), columns, [&](int i, int j) { return At(a, i, j); }));
}

/// By definition, in full storage.
ORXSrvMatrix Product(ORXSrvMatrix const& a, ORXSrvMatrix const& b) {
  return MatrixOf(DenseOf(a) * DenseOf(b));
}
ORXSrvMatrix Sum(ORXSrvMatrix const& a, ORXSrvMatrix const& b) { return MatrixOf(DenseOf(a) + DenseOf(b)); }

// ---- general products

TEST(Product, IsExactOnIntegersOfEveryShape) {
  std::size_t const count = std::size(sizes);
  for (std::size_t s = 0; s < 2 * count; ++s) {
    // Squares, and products of three different sizes.
    int const m = sizes[s % count], n = s < count ? m : sizes[(s + 3) % count];
    int const k = s < count ? m : sizes[(s + 7) % count];
    SCOPED_TRACE(testing::Message() << m << " x " << k << " times " << k << " x " << n);
    ORXSrvMatrix const a = OfIntegers(m, k, 1), transposed = Transposed(a);
    ORXSrvMatrix const b = OfIntegers(k, n, 2), old = OfIntegers(m, n, 3);
    ORXSrvMatrix const expected = Product(a, b), accumulated = Sum(expected, old);

    ORXSrvMatrix checked = Uniform(m, n, untouched);
    checked.Multiply(a, b);
    EXPECT_TRUE(checked == expected);
    for (int const flag : {0, 1}) {
      ORXSrvMatrix c = Uniform(m, n, untouched);
      a.Multiply(b, c, flag, 0);
      EXPECT_TRUE(c == expected);
      c = old;
      a.Multiply(b, c, flag, 2);
      EXPECT_TRUE(c == accumulated);
    }
    ORXSrvMatrix c = Uniform(m, n, untouched);
    transposed.TransposeMultiply(b, c, 0, 0);
    EXPECT_TRUE(c == expected);
    c = old;
    transposed.TransposeMultiply(b, c, 0, -1);
    EXPECT_TRUE(c == accumulated);
  }
}

TEST(Product, WritesTheLeadingRowsOfATallerTarget) {
  ORXSrvMatrix const a = Full({{1, 2}, {3, 4}});
  ORXSrvMatrix const b = Full({{1, 0}, {1, 1}});
  ORXSrvMatrix c = Uniform(3, 2, 9);
  a.Multiply(b, c, 0, 0);
  EXPECT_EQ(Stored(c), (Doubles{3, 7, 9, 2, 4, 9}));
  a.TransposeMultiply(b, c, 0, 1);
  EXPECT_EQ(Stored(c), (Doubles{7, 13, 9, 5, 8, 9}));
}

/// Whether `value` is a * b up to rounding, for each element by its own sum of absolute terms.
bool IsRounded(ORXSrvMatrix const& value, ORXSrvMatrix const& a, ORXSrvMatrix const& b) {
  Dense const sums = DenseOf(a) * DenseOf(b);
  Dense const bounds = Absolute(DenseOf(a)) * Absolute(DenseOf(b));
  double const unit = 2 * a.NumberOfColumns() * std::numeric_limits<double>::epsilon();
  for (std::size_t p = 0; p < sums.values.size(); ++p)
    if (!(std::abs(value.Values()[p] - sums.values[p]) <= unit * bounds.values[p])) return false;
  return true;
}

TEST(Product, KeepsTheErrorBoundOfASum) {
  for (int const n : {5, 150}) {
    ORXSrvMatrix const a = RandomFull(n, n), b = RandomFull(n, n);
    ORXSrvMatrix const transposed = Transposed(a);
    ORXSrvMatrix c(n, n);
    c.Multiply(a, b);
    EXPECT_TRUE(IsRounded(c, a, b));
    c.SymmetricMultiply(a, transposed);
    c.SetSymmetricResults();
    EXPECT_TRUE(IsRounded(c, a, transposed));
    a.TransposeMultiply(a, c, 1, 0);
    c.SetSymmetricResults();
    EXPECT_TRUE(IsRounded(c, transposed, a));
    ORXSrvMatrix const x = RandomFull(n, 1);
    ORXSrvMatrix y(x);
    y *= b;
    EXPECT_TRUE(IsRounded(y, b, x));
  }
}

TEST(Product, TakesEmptyMatricesWithoutComplaint) {
  testing::internal::CaptureStderr();
  ORXSrvMatrix none(0, 0), other(0, 0);
  none.Multiply(other, other);
  none *= other;
  none.SymmetricMultiply(other, other);
  other.TransposeMultiply(other, none, 1, 0);
  ORXSrvMatrix zeros = Uniform(2, 3, untouched);
  zeros.Multiply(ORXSrvMatrix(2, 0), ORXSrvMatrix(0, 3)); // a sum of no terms
  EXPECT_TRUE(zeros == Uniform(2, 3, 0.0));
  ORXSrvMatrix const noRows(0, 2);
  noRows.TransposeMultiply(ORXSrvMatrix(0, 3), zeros, 0, 1);
  EXPECT_TRUE(zeros == Uniform(2, 3, 0.0));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// ---- diagonal operands

TEST(Product, ScalesByDiagonalOperands) {
  for (int const n : {1, 3, 129}) {
    ORXSrvMatrix const diagonal = DiagonalOfIntegers(n, 1);
    for (int const other : {1, 3, 5}) {
      ORXSrvMatrix const wide = OfIntegers(n, other, 2);
      ORXSrvMatrix rows(n, other);
      rows.Multiply(diagonal, wide);
      EXPECT_TRUE(rows == Product(diagonal, wide));
      ORXSrvMatrix const tall = OfIntegers(other, n, 3);
      ORXSrvMatrix columns(tall);
      columns.Multiply(columns, diagonal); // in place
      EXPECT_TRUE(columns == Product(tall, diagonal));
    }
  }
}

TEST(Product, OfDiagonalsClearsOnlyTheFirstColumnOfAFullTarget) {
  ORXSrvMatrix full = Uniform(3, 3, 7);
  full.Multiply(Diagonal({1, 2, 3}), Diagonal({4, 5, 6}));
  EXPECT_TRUE(full == Full({{4, 7, 7}, {0, 10, 7}, {0, 7, 18}}));
  ORXSrvMatrix diagonal = Diagonal({0, 0, 0});
  diagonal.Multiply(Diagonal({1, 2, 3}), Diagonal({4, 5, 6}));
  EXPECT_TRUE(diagonal == Diagonal({4, 10, 18}));
}

TEST(Product, RefusesShapesStoragesAndItsOwnOperands) {
  ORXSrvMatrix target = Uniform(2, 2, untouched);
  ORXSrvMatrix const square = Full({{1, 2}, {3, 4}});
  auto const refuses = [&](ORXSrvMatrix const& a, ORXSrvMatrix const& b) {
    return Raised([&] { target.Multiply(a, b); }) == IllegalInput("Multiply");
  };
  EXPECT_TRUE(refuses(OfIntegers(2, 3, 1), square));
  EXPECT_TRUE(refuses(OfIntegers(3, 2, 1), square));
  EXPECT_TRUE(refuses(square, OfIntegers(2, 3, 1)));
  EXPECT_TRUE(refuses(target, square));
  EXPECT_TRUE(refuses(square, target));
  // A diagonal that is not square has no value for some of the rows or columns that it would scale.
  double values[] = {1, 2};
  ORXSrvMatrix const wideDiagonal(1, 2, values, false, true);
  ORXSrvMatrix const tallDiagonal(2, 1, values, false, true);
  EXPECT_TRUE(refuses(OfIntegers(2, 1, 1), wideDiagonal));
  EXPECT_TRUE(refuses(tallDiagonal, OfIntegers(1, 2, 1)));
  EXPECT_TRUE(refuses(tallDiagonal, wideDiagonal));
  EXPECT_TRUE(target == Uniform(2, 2, untouched));

  ORXSrvMatrix diagonal = Diagonal({1, 2});
  EXPECT_RAISED(IllegalInput("Multiply"), diagonal.Multiply(square, square));
  EXPECT_RAISED(IllegalInput("Multiply"), diagonal.Multiply(diagonal, square));
  EXPECT_TRUE(diagonal == Diagonal({1, 2}));
}

// ---- in place

TEST(InPlaceProduct, MultipliesSquaresFromTheRightAndVectorsFromTheLeft) {
  for (int const n : {1, 2, 128, 145, 300}) {
    ORXSrvMatrix const b = OfIntegers(n, n, 1), scaling = DiagonalOfIntegers(n, 2);
    ORXSrvMatrix const square = OfIntegers(n, n, 3), x = OfIntegers(n, 1, 4);

    ORXSrvMatrix result(square);
    EXPECT_EQ(&(result *= b), &result);
    EXPECT_TRUE(result == Product(square, b));
    result = square;
    result *= scaling;
    EXPECT_TRUE(result == Product(square, scaling));
    ORXSrvMatrix vector(x);
    vector *= b;
    EXPECT_TRUE(vector == Product(b, x));
    vector = x;
    vector *= scaling;
    EXPECT_TRUE(vector == Product(scaling, x));
    ORXSrvMatrix diagonal = DiagonalOfIntegers(n, 5);
    diagonal *= scaling;
    EXPECT_EQ(Stored(diagonal)[0], DiagonalOfIntegers(n, 5).Values()[0] * scaling.Values()[0]);
    EXPECT_TRUE(diagonal.IsDiagonal());
  }
}

TEST(InPlaceProduct, RefusesWithTheNameOfTheTestThatFailed) {
  ORXSrvMatrix square = Full({{1, 2}, {3, 4}});
  EXPECT_RAISED(IllegalInput("*="), square *= square);
  EXPECT_RAISED(IllegalInput("*="), square *= OfIntegers(2, 3, 1));
  EXPECT_RAISED(IllegalInput("Multiply"), square *= OfIntegers(1, 2, 1)) << "b ends too early";
  ORXSrvMatrix const sameBuffer(2, 2, square.Values());
  EXPECT_RAISED(IllegalInput("Multiply"), square *= sameBuffer);
  EXPECT_TRUE(square == Full({{1, 2}, {3, 4}}));

  ORXSrvMatrix wide = Full({{1, 2, 3}, {4, 5, 6}});
  EXPECT_RAISED(IllegalInput("Multiply"), wide *= OfIntegers(3, 2, 1));
  EXPECT_RAISED(IllegalInput("Multiply"), wide *= Diagonal({1, 2}));
  EXPECT_TRUE(wide == Full({{1, 2, 3}, {4, 5, 6}}));
  ORXSrvMatrix vector = Full({{1}, {2}});
  EXPECT_RAISED(IllegalInput("*="), vector *= OfIntegers(3, 2, 1));
  EXPECT_RAISED(IllegalInput("*="), vector *= OfIntegers(1, 2, 1));
  EXPECT_TRUE(vector == Full({{1}, {2}}));
  ORXSrvMatrix diagonal = Diagonal({1, 2});
  EXPECT_RAISED(IllegalInput("Multiply"), diagonal *= square);
  EXPECT_TRUE(diagonal == Diagonal({1, 2}));
}

// ---- symmetric results

TEST(SymmetricProduct, HoldsTheLowerBlocksBehindAFirstOneThatIsTheRemainder) {
  for (int const n : sizes) {
    ORXSrvMatrix const a = OfIntegers(n, n, 1), b = Transposed(a);
    ORXSrvMatrix const expected = Product(a, b);
    int const shift = (128 - n % 128) % 128; // the first block is that much short of 128
    auto const block = [&](int i) { return (i + shift) / 128; };

    ORXSrvMatrix result = Uniform(n, n, untouched);
    result.SymmetricMultiply(a, b);
    EXPECT_TRUE(DenseOf(result) ==
                Masked(DenseOf(expected), 0.0, [&](int i, int j) { return block(i) >= block(j); }))
        << n;
    result.SetSymmetricResults();
    EXPECT_TRUE(result == expected) << n;
  }
}

TEST(SymmetricProduct, WantsThreeFullSquaresOfOneOrder) {
  ORXSrvMatrix target = Uniform(2, 2, untouched);
  ORXSrvMatrix const square = Full({{1, 2}, {2, 1}});
  auto const refuses = [&](ORXSrvMatrix const& a, ORXSrvMatrix const& b) {
    return Raised([&] { target.SymmetricMultiply(a, b); }) == IllegalInput("SymmetricMultiply");
  };
  EXPECT_TRUE(refuses(OfIntegers(2, 3, 1), OfIntegers(3, 2, 1)));
  EXPECT_TRUE(refuses(OfIntegers(3, 2, 1), square));
  EXPECT_TRUE(refuses(square, OfIntegers(2, 3, 1)));
  EXPECT_TRUE(refuses(square, Diagonal({1, 1})));
  EXPECT_TRUE(refuses(Diagonal({1, 1}), square));
  EXPECT_TRUE(refuses(target, square));
  EXPECT_TRUE(refuses(square, target));
  EXPECT_TRUE(target == Uniform(2, 2, untouched));
  ORXSrvMatrix diagonal = Diagonal({1, 2});
  EXPECT_RAISED(IllegalInput("SymmetricMultiply"), diagonal.SymmetricMultiply(square, square));
}

TEST(SymmetricTransposeProduct, WritesOneBlockTriangleWithTheRemainderLast) {
  int const k = 40;
  for (int const m : sizes)
    for (int const n : {m, 1, 100, 144, 300, 450}) {
      SCOPED_TRACE(testing::Message() << m << " x " << n);
      // The narrower operand is the leading part of the wider one, so that the leading square is symmetric.
      ORXSrvMatrix const wider = OfIntegers(k, std::max(m, n), 1);
      ORXSrvMatrix const a = FirstColumns(wider, m), b = FirstColumns(wider, n);
      ORXSrvMatrix const expected = Product(Transposed(a), b);
      auto const inside = [&](int i, int j) { return m >= n ? i / 144 >= j / 144 : i / 144 <= j / 144; };

      ORXSrvMatrix c = Uniform(m, n, untouched);
      a.TransposeMultiply(b, c, 1, 0);
      EXPECT_TRUE(DenseOf(c) == Masked(DenseOf(expected), untouched, inside));
      a.TransposeMultiply(b, c, 1, 1);
      EXPECT_TRUE(DenseOf(c) == Masked(DenseOf(Sum(expected, expected)), untouched, inside));
      c.SetSymmetricResults();
      EXPECT_TRUE(c == Sum(expected, expected));
    }
}

} // namespace
