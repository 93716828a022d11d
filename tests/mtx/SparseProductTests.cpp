#include "DenseSupport.h"
#include "SparseOracle.h"
#include "blac/sparse/RowPatterns.h"
#include "tests/support/SparseProducts.h"

#include <functional>

namespace {

constexpr double stale = 1e300;

Doubles Stale(std::int64_t length) { return Doubles(length, stale); }

/// Small integers; sums of their products are exact.
Doubles Integers(std::int64_t length, unsigned seed) {
  std::mt19937 random(seed);
  Doubles values(length);
  std::generate(values.begin(), values.end(), [&] { return static_cast<double>(random() % 19) - 9.0; });
  return values;
}

/// Numbers whose sums depend on the order of the additions.
Doubles Reals(std::int64_t length, unsigned seed) {
  std::mt19937 random(seed);
  Doubles values(length);
  std::generate(values.begin(), values.end(), [&] {
    return std::ldexp(static_cast<double>(random()) - 2e9, static_cast<int>(random() % 20));
  });
  return values;
}

/// A * x or A^T * x, column by column.
Doubles Product(Dense const& a, Doubles const& x, int vectors, bool transpose) {
  Dense b(transpose ? a.rows : a.columns, vectors);
  b.values = x;
  return ((transpose ? Transposed(a) : a) * b).values;
}

Doubles Multiply(ORXSrvSparseMatrix const& a, Doubles const& x, int vectors, bool transpose) {
  Doubles y = Stale(std::int64_t{transpose ? a.NumberOfColumns() : a.NumberOfRows()} * vectors);
  a.Multiply(x.data(), vectors, y.data(), transpose);
  return y;
}

/// The product as its definition states it, for one vector. `entries` are the stored ones, in order.
Doubles StatedProduct(Entries const& entries, int n, Doubles const& x, bool transpose) {
  Doubles y(x.size());
  for (std::size_t first = 0; first < x.size(); first += n)
    for (ORXSrvSparseMatrixEntry const& e : entries)
      if (transpose) {
        y[first + e.column] += x[first + e.row] * e.value;
      } else {
        y[first + e.row] += e.value * x[first + e.column];
      }
  return y;
}

constexpr int vectorCounts[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 16, 17};

DensePtr NewFilled(DenseDatabase const& database, int rows, int columns, int rowChunk, int columnChunk,
                   Doubles const& values) {
  DensePtr matrix = database.New(rows, columns, rowChunk, columnChunk);
  Write(*matrix, 0, rows - 1, 0, columns - 1, values);
  return matrix;
}

// ---- vectors

TEST(SparseMultiply, WritesNothingWithoutNonzerosOrVectors) {
  ORXSrvSparseMatrix empty(2, 2);
  Assemble(empty, {});
  Doubles const diagonal{3, 4};
  // The diagonal does not count where the builder has not counted it.
  auto const diagonalOnly = Access::Adopt({0, 0, 0}, {}, {}, &diagonal, 0, 2);
  auto const matrix = RandomMatrix(1, 2, 2);
  Doubles const x{1, 2};
  EXPECT_EQ(Multiply(empty, x, 1, false), Stale(2));
  EXPECT_EQ(Multiply(*diagonalOnly, x, 1, false), Stale(2));
  Doubles y = Stale(2);
  matrix->Multiply(x.data(), 0, y.data(), false);
  matrix->Multiply(x.data(), -8, y.data(), true);
  EXPECT_EQ(y, Stale(2));
  auto const counted = Access::Adopt({0, 0, 0}, {}, {}, &diagonal, 2, 2);
  EXPECT_EQ(Multiply(*counted, x, 1, false), (Doubles{3, 8}));
}

TEST(SparseMultiply, RefusesAMatrixThatIsNotAssembled) {
  auto const matrix = RandomMatrix(3, 4, 4);
  Doubles const x = Integers(5, 1);
  Doubles y = Stale(5);
  std::string const expected = IllegalInput("Multiply, a matrix assembled with all its rows expected");
  matrix->AddData(4, 0, 1.0);
  EXPECT_RAISED(expected, matrix->Multiply(x.data(), 1, y.data(), false));
  matrix->BeginAssembly();
  EXPECT_RAISED(expected, matrix->Multiply(x.data(), 1, y.data(), false));
  EXPECT_EQ(y, Stale(5));
}

// What is packed, taken together or moved round in a ring must not change a bit.
TEST(SparseMultiply, AddsInTheStatedOrderWhateverThePattern) {
  for (auto const& [name, entries, n] : LargePatterns()) {
    SparsePtr const matrix = NewAssembled(n, n, entries);
    Entries const stored = EntriesOf(*matrix);
    for (int const vectors : vectorCounts)
      for (bool const transpose : {false, true}) {
        Doubles const x = Reals(std::int64_t{n} * vectors, 7);
        ASSERT_TRUE(
            SameBits(StatedProduct(stored, n, x, transpose), Multiply(*matrix, x, vectors, transpose)))
            << name << ", " << vectors << " vectors, transpose " << transpose;
      }
  }
}

TEST(SparseMultiply, SymmetricFormAddsInTheStatedOrderWhateverThePattern) {
  for (auto const& [name, entries, n] : LargePatterns())
    for (Pairs::Side const side : {Pairs::Side::Below, Pairs::Side::Above, Pairs::Side::Either}) {
      Pairs const pairs(entries, n, side);
      SparsePtr const matrix = pairs.NewMatrix();
      for (int const vectors : vectorCounts) {
        Doubles const x = Reals(std::int64_t{n} * vectors, 8);
        ASSERT_TRUE(SameBits(
            StatedSymmetricProduct(pairs.rowPointers, pairs.columns, pairs.values, pairs.diagonal, x),
            Multiply(*matrix, x, vectors, false)))
            << name << ", side " << static_cast<int>(side) << ", " << vectors << " vectors";
      }
    }
}

TEST(SparseMultiply, FindsOutOnceWhatTheRowsHaveInCommon) {
  using orx::RowPattern;
  std::map<std::string, RowPattern> const patterns{{"three unknowns a node", RowPattern::SharedColumns},
                                                   {"one unknown a node", RowPattern::ShiftedColumns},
                                                   {"a mesh without structure", RowPattern::Irregular},
                                                   {"anywhere", RowPattern::Scattered}};
  for (auto const& [name, entries, n] : LargePatterns()) {
    if (!patterns.contains(name)) continue;
    SparsePtr const general = NewAssembled(n, n, entries);
    SparsePtr const symmetric = Pairs(entries, n, Pairs::Side::Below).NewMatrix();
    EXPECT_EQ(Access::RowPattern(*general), RowPattern::Unknown) << name;
    for (ORXSrvSparseMatrix const* const matrix : {general.get(), symmetric.get()}) {
      Multiply(*matrix, Doubles(n), 1, false);
      EXPECT_EQ(Access::RowPattern(*matrix), patterns.at(name)) << name;
    }
  }
}

TEST(SparseMultiply, LooksAtTheRowsAgainWhenTheyHaveChanged) {
  auto const matrix = RandomMatrix(3, 5, 5);
  std::vector<int> const backwards{4, 3, 2, 1, 0};
  int count = 0;
  std::function<void()> const changes[] = {
      [&] { matrix->PermuteRows(backwards.data()); }, [&] { matrix->PermuteInPlace(backwards.data()); },
      [&] { matrix->Subtract(*matrix, *matrix); }, [&] { mem_Free(matrix->EliminateTrivialColumns(count)); }};
  for (auto const& change : changes) {
    Multiply(*matrix, Integers(5, 1), 1, false);
    EXPECT_NE(Access::RowPattern(*matrix), orx::RowPattern::Unknown);
    change();
    EXPECT_EQ(Access::RowPattern(*matrix), orx::RowPattern::Unknown);
  }
}

// ---- block matrices, array result

TEST(SparseMultiplyDense, GivesAnArrayOfTheTransposedProduct) {
  DenseDatabase const database;
  for (unsigned seed = 0; seed < 6; ++seed) {
    auto const matrix = RandomMatrix(seed, 17, 9);
    Dense const grid = DenseOf(*matrix);
    Doubles const values = Integers(17 * 8, seed);
    DensePtr const d = seed % 2 == 0 ? database.New(17, 8, 4, 3) : database.New(*denseKindsThatGrew, 17, 8);
    Write(*d, 0, 16, 0, 7, values);
    Doubles out = Stale(9 * 8);
    matrix->MultiplyDense(*d, out.data(), true);
    EXPECT_EQ(out, Product(grid, values, 8, true)) << "seed " << seed;
  }
}

// Every second row: 999 runs are read one by one, 1000 and more at once.
TEST(SparseMultiplyDense, ReadsFewAndManyRunsOfRows) {
  DenseDatabase const database;
  for (int const runs : {999, 1000, 1003}) {
    ORXSrvSparseMatrix matrix(2 * runs, 2);
    Entries entries;
    for (int run = 0; run < runs; ++run)
      entries.push_back(
          {2 * static_cast<std::uint32_t>(run), static_cast<std::uint32_t>(run % 2), run % 7 - 3.0});
    Assemble(matrix, entries);
    Doubles const values = Integers(std::int64_t{matrix.NumberOfRows()} * 3, 5);
    DensePtr const d = NewFilled(database, matrix.NumberOfRows(), 3, -1, 2, values);
    Doubles out = Stale(6);
    matrix.MultiplyDense(*d, out.data(), true);
    EXPECT_EQ(out, Product(DenseOf(matrix), values, 3, true)) << runs;

    DensePtr const tooShort = database.New(matrix.NumberOfRows() - 2, 3, -1, -1);
    EXPECT_RAISED(invalidGet, matrix.MultiplyDense(*tooShort, out.data(), true)) << runs;
  }
}

TEST(SparseMultiplyDense, RefusesTheSymmetricFormAndTheProductThatIsNotTransposed) {
  DenseDatabase const database;
  DensePtr const d = database.New(3, 2, -1, -1);
  auto const matrix = RandomMatrix(5, 3, 3);
  auto const symmetric = RandomPairs(5, 3).NewMatrix();
  Doubles out = Stale(6);
  EXPECT_RAISED("211 ORXSrvSparseMatrix::MultiplyIndexed transpose:False not supported!",
                matrix->MultiplyDense(*d, out.data(), false));
  EXPECT_RAISED("201 ORXSrvSparseMatrix::MultiplyDense symmetric:True not supported!",
                symmetric->MultiplyDense(*d, out.data(), true));
  // Columns 0 to 2 of A ask for rows that this one does not have, which shows first.
  EXPECT_RAISED(invalidGet, matrix->MultiplyDense(*database.New(1, 2, -1, -1), out.data(), false));
  ORXSrvSparseMatrix empty(3, 3);
  Assemble(empty, {});
  empty.MultiplyDense(*d, out.data(), false);
  EXPECT_EQ(out, Stale(6));
}

// ---- block matrices, block result

TEST(SparseMultiplyDense, GivesABlockMatrixOfEitherProduct) {
  DenseDatabase const database;
  for (bool const transpose : {false, true})
    for (int const rowsBelow : {0, 3}) {
      auto const matrix = RandomMatrix(11, 7, 10);
      Dense const grid = DenseOf(*matrix);
      int const in = transpose ? 7 : 10, out = transpose ? 10 : 7;
      Doubles const values = Integers(in * 5, 3);
      // D has rows to spare, and was longer than its first blocks say; R has columns and perhaps rows.
      DensePtr const d = database.New(*denseKindsThatGrew, in + 1, 5);
      Write(*d, 0, in - 1, 0, 4, values);
      DensePtr const r = NewFilled(database, out + rowsBelow, 6, 4, 4, Stale((out + rowsBelow) * 6));
      matrix->MultiplyDense(*d, *r, transpose);
      Doubles const product = Product(grid, values, 5, transpose);
      Doubles expected;
      for (int j = 0; j < 6; ++j)
        for (int i = 0; i < out + rowsBelow; ++i)
          expected.push_back(j == 5 ? stale : i < out ? product[j * out + i] : 0.0);
      EXPECT_EQ(All(*r), expected) << transpose << ' ' << rowsBelow;
    }
}

TEST(SparseMultiplyDense, GivesABlockMatrixForTheSymmetricForm) {
  DenseDatabase const database;
  auto const matrix = RandomPairs(2, 9).NewMatrix();
  Doubles const values = Integers(9 * 10, 4);
  DensePtr const d = NewFilled(database, 9, 10, 4, 9, values);
  DensePtr const r = database.New(9, 10, -1, -1);
  matrix->MultiplyDense(*d, *r, true);
  EXPECT_EQ(All(*r), Product(DenseOf(*matrix), values, 10, false));
}

TEST(SparseMultiplyDense, RefusesBlockMatricesThatAreTooSmallBeforeItWrites) {
  DenseDatabase const database;
  auto const matrix = RandomMatrix(4, 5, 6);
  DensePtr const d = NewFilled(database, 6, 4, 2, 1, Integers(24, 1));
  for (auto const& [rows, columns] : {std::pair{4, 4}, {5, 3}}) {
    DensePtr const r = NewFilled(database, rows, columns, -1, -1, Stale(rows * columns));
    EXPECT_RAISED(invalidSet, matrix->MultiplyDense(*d, *r, false));
    EXPECT_EQ(All(*r), Stale(rows * columns));
  }
  DensePtr const r = NewFilled(database, 6, 4, -1, -1, Stale(24));
  EXPECT_RAISED(invalidGet, matrix->MultiplyDense(*database.New(4, 4, -1, -1), *r, true));
  ORXSrvSparseMatrix empty(6, 6);
  Assemble(empty, {});
  empty.MultiplyDense(*d, *r, false);
  EXPECT_EQ(All(*r), Stale(24));

  // What is written for one block would be read with the next.
  DensePtr const all = database.New(12, 12, 2, 2), from = ViewOf(*all, 0, 11, 0, 3);
  DensePtr const shifted = ViewOf(*all, 0, 11, 1, 5);
  EXPECT_RAISED(IllegalInput("MultiplyDense"), matrix->MultiplyDense(*from, *shifted, false));
}

} // namespace
