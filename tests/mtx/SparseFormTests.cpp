#include "SparseOracle.h"
#include "tests/support/Shortage.h"

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

ORXSrvSparseMatrix Row(Doubles const& values) {
  ORXSrvSparseMatrix row(1, 0);
  for (std::uint32_t j = 0; j < values.size(); ++j)
    row.AddData(0, j, values[j]);
  row.EndAssembly();
  return row;
}

bool IsSame(double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); }

// ---- norms and diagonal

void ExpectMeasures(ORXSrvSparseMatrix const& matrix) {
  Dense const grid = DenseOf(matrix);
  Doubles rowSums(grid.rows), columnSums(grid.columns);
  Doubles diagonal(rowSums.size()), found(rowSums.size(), nan);
  double squares = 0.0, largest = 0.0;
  for (int i = 0; i < grid.rows; ++i)
    for (int j = 0; j < grid.columns; ++j) {
      rowSums[i] += std::fabs(grid(i, j));
      columnSums[j] += std::fabs(grid(i, j));
      squares += grid(i, j) * grid(i, j);
      largest = std::max(largest, std::fabs(grid(i, j)));
      if (i == j) diagonal[i] = grid(i, j);
    }
  EXPECT_EQ(matrix.InfinityNorm(), *std::ranges::max_element(rowSums));
  EXPECT_EQ(matrix.OneNorm(), *std::ranges::max_element(columnSums));
  EXPECT_NEAR(matrix.FrobeniusNorm(), std::sqrt(squares), 1e-14 * std::sqrt(squares));
  ORXSrvSparseMatrixEntry const at = matrix.LargestEntry();
  EXPECT_EQ(std::fabs(at.value), largest);
  EXPECT_EQ(grid(static_cast<int>(at.row), static_cast<int>(at.column)), at.value);
  matrix.GetDiagonal(found.data());
  EXPECT_EQ(found, diagonal);
}

TEST(SparseNorms, AgreeWithDenseArithmeticInBothForms) {
  for (unsigned seed = 0; seed < 20; ++seed) {
    SCOPED_TRACE(seed);
    int const n = 1 + static_cast<int>(seed);
    ExpectMeasures(*RandomMatrix(seed, n, 8));
    ExpectMeasures(*RandomPairs(seed, n).NewMatrix());
  }
}

TEST(SparseNorms, AreAccurateOverTheWholeRangeOfDoubles) {
  Doubles small(10001, 1e-8), smaller(10001, 1e-16); // each value is lost when it is added to 1
  small[0] = smaller[0] = 1.0;
  EXPECT_NEAR(Row(small).FrobeniusNorm(), 1.0 + 5e-13, 4e-16);
  EXPECT_NEAR(Row(smaller).InfinityNorm(), 1.0 + 1e-12, 4e-16);
  for (auto const& [values, frobenius, infinityNorm] : {std::tuple{Doubles{3e300, 4e300}, 5e300, 7e300},
                                                        {{3e-300, -4e-300}, 5e-300, 7e-300},
                                                        {{1.7e308, 1.7e308}, infinity, infinity},
                                                        {{1, -infinity, 2}, infinity, infinity},
                                                        {{1, nan, infinity}, nan, nan},
                                                        {{0, -0.0}, 0, 0},
                                                        {{}, 0, 0}}) {
    ORXSrvSparseMatrix const row = Row(values);
    double const found = row.FrobeniusNorm();
    EXPECT_TRUE(IsSame(found, frobenius) || std::fabs(found / frobenius - 1.0) < 1e-15) << found;
    EXPECT_TRUE(IsSame(row.InfinityNorm(), infinityNorm)) << row.InfinityNorm();
  }
  EXPECT_EQ(Row({1, -3, 3}).LargestEntry(), (ORXSrvSparseMatrixEntry{0, 1, -3}));
}

// ---- forms

TEST(SparseForms, GeneralFormHasAllEntriesOfEither) {
  for (unsigned seed = 0; seed < 40; ++seed) {
    int const n = 1 + static_cast<int>(seed * 3 % 31);
    auto const side = static_cast<Pairs::Side>(seed % 3);
    auto const symmetric = Pairs(EntriesOf(*RandomMatrix(seed, n, n)), n, side).NewMatrix();
    ORXSrvSparseMatrix const general = symmetric->GeneralForm();
    EXPECT_EQ(general.View().diagonal, nullptr);
    EXPECT_EQ(DenseOf(general), DenseOf(*symmetric)) << seed;
    EXPECT_EQ(general.NumberOfNonzeros(), n + 2 * symmetric->View().Entries());
    EXPECT_EQ(EntriesOf(general.GeneralForm()), EntriesOf(general));
  }
}

TEST(SparseForms, SymmetricFormTakesOneTriangleAndComesBack) {
  for (bool const upper : {false, true})
    for (unsigned seed = 0; seed < 20; ++seed) {
      int const n = 1 + static_cast<int>(seed);
      auto const matrix = RandomMatrix(seed, n, n);
      Dense const grid = DenseOf(*matrix);
      ORXSrvSparseMatrix const symmetric = matrix->SymmetricForm(upper);
      EXPECT_EQ(DenseOf(symmetric), Filled(n, n, [&](int i, int j) {
                  return upper ? grid(std::min(i, j), std::max(i, j)) : grid(std::max(i, j), std::min(i, j));
                }));
      EXPECT_EQ(symmetric.NumberOfNonzeros(), n + symmetric.View().Entries());
      EXPECT_EQ(EntriesOf(symmetric.SymmetricForm()), EntriesOf(symmetric)) << "a copy";
      EXPECT_EQ(EntriesOf(symmetric.GeneralForm().SymmetricForm(upper)), EntriesOf(symmetric));
    }
  // A matrix that has only a diagonal multiplies: the diagonal counts.
  Doubles const x{2, 3};
  Doubles y{nan, nan};
  NewAssembled(2, 2, {{1, 1, 5}})->SymmetricForm().Multiply(x.data(), 1, y.data(), false);
  EXPECT_EQ(y, (Doubles{0, 15}));
}

TEST(SparseForms, RefuseWhatTheyCannotTake) {
  ORXSrvSparseMatrix const assembling(2, 2);
  for (auto const& [name, call] : {std::pair<std::string, void (*)(ORXSrvSparseMatrix const&)>{
                                       "GeneralForm", [](auto const& m) { m.GeneralForm(); }},
                                   {"SymmetricForm", [](auto const& m) { m.SymmetricForm(); }},
                                   {"FrobeniusNorm", [](auto const& m) { m.FrobeniusNorm(); }},
                                   {"InfinityNorm", [](auto const& m) { m.InfinityNorm(); }},
                                   {"OneNorm", [](auto const& m) { m.OneNorm(); }},
                                   {"LargestEntry", [](auto const& m) { m.LargestEntry(); }},
                                   {"GetDiagonal", [](auto const& m) { m.GetDiagonal(nullptr); }}})
    EXPECT_RAISED(IllegalInput(name + ", a matrix assembled with all its rows expected"), call(assembling));
  EXPECT_RAISED(IllegalInput("SymmetricForm, as many columns as rows expected, found 3 rows and 2 columns"),
                NewAssembled(3, 2, {{0, 1, 1}})->SymmetricForm());
  auto wide = RandomPairs(1, 3).NewMatrix();
  wide->AddData(0, 4, 1);
  EXPECT_RAISED(IllegalInput("GeneralForm, 3 rows and 5 columns, no more columns than rows expected"),
                wide->GeneralForm());
}

// ---- moving

TEST(SparseMove, TakesArraysAndWaitingEntriesAndLeavesAnEmptyMatrix) {
  auto matrix = NewAssembled(2, 3, {{0, 2, 7}});
  matrix->AddData(1, 1, 9);
  ORXSrvSparseMatrix moved = std::move(*matrix);
  EXPECT_EQ(EntriesOf(moved), (Entries{{0, 2, 7}}));
  EXPECT_EQ(matrix->NumberOfRows() + matrix->NumberOfColumns() + matrix->NumberOfNonzeros(), 0);
  EXPECT_TRUE(matrix->IsNull());
  matrix->AddData(0, 0, 1);
  matrix->EndAssembly();
  EXPECT_EQ(EntriesOf(*matrix), (Entries{{0, 0, 1}}));
  moved.BeginAssembly();
  moved.EndAssembly();
  EXPECT_EQ(EntriesOf(moved), (Entries{{1, 1, 9}}));
  moved = RandomPairs(1, 3).NewMatrix()->GeneralForm();
  EXPECT_EQ(moved.NumberOfRows(), 3);
}

} // namespace
