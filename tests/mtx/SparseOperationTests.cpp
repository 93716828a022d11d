#include "SparseOracle.h"
#include "tests/support/Shortage.h"

#include <numeric>

namespace {

using Ints = std::vector<int>;

Ints RandomPermutation(int n, unsigned seed) {
  Ints permutation(n);
  std::iota(permutation.begin(), permutation.end(), 0);
  std::shuffle(permutation.begin(), permutation.end(), std::mt19937(seed));
  return permutation;
}

/// A list that an operation returned.
template<class Find>
std::vector<unsigned> ListOf(Find find) {
  int count = -1;
  mem_Array<unsigned> const list(find(count));
  return {list.get(), list.get() + count};
}

Dense Permuted(Dense const& a, Ints const& perm) {
  return Filled(a.rows, a.columns, [&](int k, int l) { return a(perm[k], perm[l]); });
}

/// The entries of a general form come row by row, columns ascending, each place once.
void ExpectOrdered(ORXSrvSparseMatrix const& matrix) {
  Entries const entries = EntriesOf(matrix);
  for (std::size_t k = 1; k < entries.size(); ++k)
    ASSERT_LT(std::pair(entries[k - 1].row, entries[k - 1].column),
              std::pair(entries[k].row, entries[k].column));
}

/// What an operation may change of a matrix.
struct Snapshot {
  Entries entries;
  int rows, columns, nonzeros, state;

  explicit Snapshot(ORXSrvSparseMatrix const& matrix)
      : entries(EntriesOf(matrix)), rows(matrix.NumberOfRows()), columns(matrix.NumberOfColumns()),
        nonzeros(matrix.NumberOfNonzeros()), state(Access::SymmetryState(matrix)) {}
  bool operator==(Snapshot const&) const = default;
};

constexpr char notAssembled[] = ", a matrix assembled with all its rows expected";

// ---- permutations and transposition

TEST(SparsePermutations, AgreeWithDenseArithmetic) {
  for (unsigned seed = 0; seed < 60; ++seed) {
    int const n = 1 + static_cast<int>(seed * 7 % 53);
    auto const matrix = RandomMatrix(seed, n, n);
    Dense const grid = DenseOf(*matrix);
    Ints const perm = RandomPermutation(n, seed);
    SparsePtr const permuted(matrix->Permute(perm.data()));
    EXPECT_EQ(DenseOf(*permuted), Permuted(grid, perm)) << seed;
    ExpectOrdered(*permuted);
    EXPECT_EQ(permuted->NumberOfNonzeros(), matrix->NumberOfNonzeros());
    EXPECT_EQ(DenseOf(*matrix), grid);

    auto const inPlace = RandomMatrix(seed, n, n);
    Access::SetSymmetryState(*inPlace, 2);
    inPlace->PermuteInPlace(perm.data());
    EXPECT_EQ(EntriesOf(*inPlace), EntriesOf(*permuted)) << seed;
    EXPECT_EQ(Access::RowPointers(*inPlace), Access::RowPointers(*permuted)) << seed;
    EXPECT_EQ(Access::SymmetryState(*inPlace), 0);

    Access::SetSymmetryState(*matrix, 2);
    matrix->PermuteRows(perm.data());
    EXPECT_EQ(Filled(n, n, [&](int i, int j) { return DenseOf(*matrix)(perm[i], j); }), grid) << seed;
    ExpectOrdered(*matrix);
    EXPECT_EQ(Access::SymmetryState(*matrix), 0);
  }
}

TEST(SparsePermutations, KeepTheSymmetricForm) {
  for (unsigned seed = 0; seed < 30; ++seed) {
    int const n = 1 + static_cast<int>(seed * 7 % 31);
    auto const matrix = RandomPairs(seed, n).NewMatrix();
    Dense const expected = Permuted(DenseOf(*matrix), RandomPermutation(n, seed));
    SparsePtr const permuted(matrix->Permute(RandomPermutation(n, seed).data()));
    matrix->PermuteInPlace(RandomPermutation(n, seed).data());
    for (ORXSrvSparseMatrix const* const result : {permuted.get(), matrix.get()}) {
      EXPECT_EQ(DenseOf(*result), expected) << seed;
      EXPECT_EQ(Access::SymmetryState(*result), 1);
    }
    EXPECT_EQ(EntriesOf(*permuted), EntriesOf(*matrix)) << seed;
    EXPECT_EQ(permuted->NumberOfNonzeros(), matrix->NumberOfNonzeros());
  }
}

// 1 .        . 2       column 0 becomes column 2, which the matrix did not have
// . 2   ->   . .
// . .        . . 1
TEST(SparsePermutations, GiveATallMatrixTheColumnsThatItsEntriesNeed) {
  Ints const perm{1, 2, 0};
  auto const tall = NewAssembled(3, 2, {{0, 0, 1}, {1, 1, 2}});
  SparsePtr const permuted(tall->Permute(perm.data()));
  tall->PermuteInPlace(perm.data());
  for (ORXSrvSparseMatrix const* const result : {permuted.get(), tall.get()}) {
    EXPECT_EQ(result->NumberOfColumns(), 3);
    EXPECT_EQ(EntriesOf(*result), (Entries{{0, 0, 2}, {2, 2, 1}}));
  }
  auto const wide = NewAssembled(2, 3, {{0, 2, 1}});
  Ints const swap{1, 0};
  EXPECT_RAISED(IllegalInput("Permute, 2 rows and 3 columns, no more columns than rows expected"),
                wide->Permute(swap.data()));
}

TEST(SparsePermutations, RefuseWhatIsNoPermutationAndKeepTheMatrix) {
  auto const matrix = RandomMatrix(7, 4, 4);
  Access::SetSymmetryState(*matrix, 2);
  Snapshot const before(*matrix);
  using Bad = std::pair<Ints, std::string>;
  for (auto const& [perm, fault] :
       {Bad{{0, 1, 4, 2}, "perm[2] = 4"}, {{-1, 1, 3, 2}, "perm[0] = -1"}, {{0, 1, 3, 1}, "perm[3] = 1"}}) {
    std::string const rest = ", " + fault + ", each of 0 to 3 once expected";
    EXPECT_RAISED(IllegalInput("PermuteRows" + rest), matrix->PermuteRows(perm.data()));
    EXPECT_RAISED(IllegalInput("Permute" + rest), matrix->Permute(perm.data()));
    EXPECT_RAISED(IllegalInput("PermuteInPlace" + rest), matrix->PermuteInPlace(perm.data()));
  }
  EXPECT_TRUE(Snapshot(*matrix) == before);
}

TEST(SparseTranspose, AgreesWithDenseArithmeticInBothForms) {
  for (unsigned seed = 0; seed < 40; ++seed) {
    auto const matrix =
        RandomMatrix(seed, 1 + static_cast<int>(seed * 5 % 29), 1 + static_cast<int>(seed * 3 % 41));
    SparsePtr const transposed(matrix->Transpose());
    EXPECT_EQ(DenseOf(*transposed), Transposed(DenseOf(*matrix))) << seed;
    ExpectOrdered(*transposed);
    EXPECT_EQ(transposed->NumberOfNonzeros(), matrix->NumberOfNonzeros());
    EXPECT_EQ(Access::SymmetryState(*transposed), 0);

    auto const pairs = RandomPairs(seed, 1 + static_cast<int>(seed % 13)).NewMatrix();
    SparsePtr const mirrored(pairs->Transpose());
    EXPECT_EQ(DenseOf(*mirrored), DenseOf(*pairs)) << seed;
    EXPECT_EQ(Access::SymmetryState(*mirrored), 1);
  }
}

TEST(SparseTranspose, OfLargePatternsIsItsOwnInverse) {
  for (auto const& [name, entries, n] : LargePatterns()) {
    auto const matrix = NewAssembled(n, n, entries);
    SparsePtr const transposed(matrix->Transpose());
    Entries expected = EntriesOf(*matrix);
    for (ORXSrvSparseMatrixEntry& e : expected)
      std::swap(e.row, e.column);
    std::ranges::stable_sort(expected, {}, &ORXSrvSparseMatrixEntry::row);
    EXPECT_TRUE(EntriesOf(*transposed) == expected) << name;
    Ints const perm = RandomPermutation(n, 5);
    SparsePtr const permuted(matrix->Permute(perm.data()));
    matrix->PermuteInPlace(perm.data());
    EXPECT_TRUE(EntriesOf(*permuted) == EntriesOf(*matrix)) << name;
  }
}

// ---- updates

TEST(SparseScale, MultipliesValuesAndDiagonalAndKeepsTheState) {
  auto const matrix = NewAssembled(2, 2, {{0, 0, 1}, {1, 0, 3}});
  Access::SetSymmetryState(*matrix, 2);
  matrix->Scale(-2);
  EXPECT_EQ(EntriesOf(*matrix), (Entries{{0, 0, -2}, {1, 0, -6}}));
  EXPECT_EQ(Access::SymmetryState(*matrix), 2);
  Doubles const diagonal{1, 2};
  auto const symmetric = Access::Adopt({0, 0, 1}, {0}, {5}, &diagonal, 1, 2);
  symmetric->Scale(3);
  EXPECT_EQ(EntriesOf(*symmetric), (Entries{{0, 0, 3}, {1, 1, 6}, {1, 0, 15}, {0, 1, 15}}));
}

TEST(SparseSubtract, GivesWhatAssemblyOfTheEntriesGives) {
  for (unsigned seed = 0; seed < 40; ++seed) {
    int const n = 1 + static_cast<int>(seed % 17);
    auto const operand = [&](unsigned k) {
      return (seed >> k) % 2 == 0 ? RandomMatrix(seed + 50 * k, n, n + static_cast<int>(seed % 3) * 4)
                                  : RandomPairs(seed + 50 * k, n).NewMatrix();
    };
    auto const a = operand(0);
    auto const b = operand(1);
    ORXSrvSparseMatrix expected(2, 3), difference(2, 3);
    Assemble(difference, {{0, 0, 77}});
    Entries entries = EntriesOf(*a);
    for (ORXSrvSparseMatrixEntry const& e : EntriesOf(*b))
      entries.push_back({e.row, e.column, -e.value});
    if (seed % 5 == 0) { // what was added before comes first
      difference.AddData(1, 2, 0.25);
      entries.insert(entries.begin(), {1, 2, 0.25});
    }
    Assemble(expected, entries);
    difference.Subtract(*a, *b);
    EXPECT_EQ(EntriesOf(difference), EntriesOf(expected)) << seed;
    EXPECT_TRUE(Snapshot(difference) == Snapshot(expected)) << seed;
    EXPECT_EQ(Access::RowPointers(difference), Access::RowPointers(expected)) << seed;
    difference.BeginAssembly();
    difference.EndAssembly();
    EXPECT_TRUE(EntriesOf(difference).empty()) << "entries are left over";
  }
}

TEST(SparseSubtract, TakesItselfAndKeepsZeros) {
  auto const matrix = NewAssembled(4, 4, {{0, 1, 2}, {2, 0, -0.0}});
  matrix->Subtract(*matrix, *matrix);
  EXPECT_EQ(EntriesOf(*matrix), (Entries{{0, 1, 0}, {2, 0, 0}}));
  EXPECT_EQ(matrix->NumberOfRows(), 4);
  auto const symmetric = RandomPairs(3, 5).NewMatrix();
  Dense const expected =
      Filled(5, 5, [grid = DenseOf(*symmetric)](int i, int j) { return 0.0 - grid(i, j); });
  symmetric->Subtract(*NewAssembled(5, 5, {}), *symmetric);
  EXPECT_EQ(DenseOf(*symmetric), expected);
  EXPECT_EQ(Access::SymmetryState(*symmetric), 0);
}

// Rows as a careless file has them: not in order, a place twice.
TEST(SparseSubtract, TakesColumnsInAnyOrder) {
  auto const careless = Access::Adopt({0, 3}, {2, 0, 2}, {1, 2, 4}, nullptr, 3, 3);
  ORXSrvSparseMatrix difference(0, 0);
  difference.Subtract(*careless, *NewAssembled(1, 3, {{0, 0, 5}}));
  EXPECT_EQ(EntriesOf(difference), (Entries{{0, 0, -3}, {0, 2, 5}}));
}

TEST(SparseColumns, TrivialOnesAreFoundAndDropped) {
  auto const matrix = NewAssembled(4, 6, {{0, 5, 1}, {2, 1, 0}, {2, 5, 3}});
  EXPECT_EQ(ListOf([&](int& n) { return matrix->FindNontrivialRows(n); }), (std::vector<unsigned>{0, 2}));
  EXPECT_EQ(ListOf([&](int& n) { return matrix->FindNontrivialColumns(n); }), (std::vector<unsigned>{1, 5}));
  EXPECT_FALSE(matrix->IsSymmetric());
  EXPECT_EQ(ListOf([&](int& n) { return matrix->EliminateTrivialColumns(n); }),
            (std::vector<unsigned>{1, 5}));
  EXPECT_EQ(matrix->NumberOfColumns(), 2);
  EXPECT_EQ(EntriesOf(*matrix), (Entries{{0, 1, 1}, {2, 0, 0}, {2, 1, 3}}));
  EXPECT_EQ(Access::SymmetryState(*matrix), 0) << "the answer was that of the old columns";

  auto const symmetric = Access::Adopt({0, 0, 1, 1}, {0}, {5}, std::vector<Doubles>{{1, 1, 1}}.data(), 1, 3);
  EXPECT_EQ(ListOf([&](int& n) { return symmetric->FindNontrivialRows(n); }), (std::vector<unsigned>{1}));
  EXPECT_EQ(ListOf([&](int& n) { return symmetric->FindNontrivialColumns(n); }), (std::vector<unsigned>{0}));
}

TEST(SparseColumns, AreSetToZeroAndStayStored) {
  auto const matrix = NewAssembled(2, 4, {{0, 0, 1}, {0, 3, 2}, {1, 1, 3}, {1, 3, 4}});
  Access::SetSymmetryState(*matrix, 2);
  Ints const list{3, 0, 3};
  matrix->SetColumnsToZero(list.data(), 3);
  EXPECT_EQ(EntriesOf(*matrix), (Entries{{0, 0, 0}, {0, 3, 0}, {1, 1, 3}, {1, 3, 0}}));
  EXPECT_EQ(matrix->NumberOfNonzeros(), 4);
  EXPECT_EQ(Access::SymmetryState(*matrix), 2);
  Snapshot const before(*matrix);
  for (int const bad : {4, -1}) {
    Ints const wrong{1, bad};
    std::string const fault = ", list[1] = " + std::to_string(bad) + ", columns 0 to 3 expected";
    EXPECT_RAISED(IllegalInput("SetColumnsToZero" + fault), matrix->SetColumnsToZero(wrong.data(), 2));
  }
  matrix->SetColumnsToZero(nullptr, -1);
  EXPECT_TRUE(Snapshot(*matrix) == before);
}

// ---- symmetry

TEST(SparseIsSymmetric, ComparesEachEntryWithItsMirrorImage) {
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  constexpr double infinity = std::numeric_limits<double>::infinity();
  using Case = std::pair<Entries, bool>;
  for (auto const& [entries, expected] : {
           Case{{{0, 0, 1}, {0, 1, 2}, {1, 0, 2}, {1, 1, 1}}, true},
           {{{0, 0, 1}, {0, 1, 2}, {1, 0, 2 + 1e-15}, {1, 1, 1}}, false},
           {{{0, 1, 2}}, false},                          // no image below
           {{{1, 0, 2}}, false},                          // nor above
           {{{0, 1, 2}, {2, 1, 2}}, false},               // as many above as below
           {{{0, 2, 2}, {1, 0, 2}}, false},               //
           {{{0, 1, 0}, {1, 0, 1e-17}}, true},            // absolute beside a zero above
           {{{0, 1, 0}, {1, 0, 1e-15}}, false},           //
           {{{0, 1, 1e-17}, {1, 0, 0}}, false},           // but not beside one below
           {{{0, 1, 0}, {1, 0, -0.0}}, true},             //
           {{{0, 1, 3}, {1, 0, nan}}, true},              // NaN passes
           {{{0, 1, infinity}, {1, 0, -infinity}}, true}, // as infinity / infinity does
           {{{0, 1, 3}, {1, 0, infinity}}, false},
           {{{3, 3, 4}}, true},
           {{}, true},
       }) {
    auto const matrix = NewAssembled(2, 3, entries);
    EXPECT_EQ(matrix->IsSymmetric(), expected) << testing::PrintToString(entries);
    EXPECT_EQ(Access::SymmetryState(*matrix), expected ? 1 : 2);
  }
}

TEST(SparseIsSymmetric, AgreesWithTheTransposeOnRandomMatrices) {
  int symmetric = 0;
  for (unsigned seed = 0; seed < 200; ++seed) {
    int const n = 1 + static_cast<int>(seed % 12);
    Entries entries = EntriesOf(*RandomPairs(seed, n).NewMatrix());
    if (seed % 2 == 0) entries[seed % entries.size()].value += 1.0;
    if (seed % 3 == 0)
      entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(seed * 7 % entries.size()));
    auto const matrix = NewAssembled(n, n, entries);
    Entries mirrored = EntriesOf(*SparsePtr(matrix->Transpose()));
    EXPECT_EQ(matrix->IsSymmetric(), mirrored == EntriesOf(*matrix)) << seed;
    symmetric += matrix->IsSymmetric() ? 1 : 0;
  }
  EXPECT_GT(symmetric, 60);
  EXPECT_LT(symmetric, 140);
}

TEST(SparseIsSymmetric, KeepsItsAnswerUntilEntriesAreAdded) {
  auto const matrix = NewAssembled(2, 2, {{0, 1, 2}, {1, 0, 2}});
  EXPECT_TRUE(matrix->IsSymmetric());
  Ints const list{0};
  matrix->SetColumnsToZero(list.data(), 1);
  EXPECT_TRUE(matrix->IsSymmetric());
  matrix->BeginAssembly();
  EXPECT_TRUE(matrix->IsSymmetric());
  matrix->AddData(1, 0, 3);
  EXPECT_FALSE(matrix->IsSymmetric());
  matrix->AddData(0, 1, 3);
  matrix->EndAssembly();
  EXPECT_TRUE(matrix->IsSymmetric());
  auto const pairs = RandomPairs(1, 5).NewMatrix();
  EXPECT_TRUE(pairs->IsSymmetric());
  Access::SetSymmetryState(*pairs, 0);
  EXPECT_TRUE(pairs->IsSymmetric());
}

// ---- what is refused

// The form is that of the arrays, whatever the test of symmetry has found.
TEST(SparseOperations, RefuseTheSymmetricFormByItsDiagonal) {
  auto const symmetric = RandomPairs(1, 3).NewMatrix();
  Access::SetSymmetryState(*symmetric, 2);
  Snapshot const before(*symmetric);
  Ints const identity{0, 1, 2};
  int count = 0;
  auto const refused = [](std::string const& name) {
    return "201 ORXSrvSparseMatrix::" + name + " symmetric:True not supported!";
  };
  EXPECT_RAISED(refused("PermuteRows"), symmetric->PermuteRows(identity.data()));
  EXPECT_RAISED(refused("SetcolumnsToZero"), symmetric->SetColumnsToZero(identity.data(), 3));
  EXPECT_RAISED(refused("EliminateTrivialColumns"), mem_Free(symmetric->EliminateTrivialColumns(count)));
  EXPECT_TRUE(Snapshot(*symmetric) == before);

  auto const general = NewAssembled(2, 2, {{0, 1, 2}, {1, 0, 2}});
  EXPECT_TRUE(general->IsSymmetric());
  general->PermuteRows(identity.data());
  EXPECT_EQ(EntriesOf(*general), (Entries{{0, 1, 2}, {1, 0, 2}}));
}

TEST(SparseOperations, RefuseAMatrixUnderAssembly) {
  ORXSrvSparseMatrix matrix(2, 2);
  auto const assembled = RandomMatrix(1, 2, 2);
  Ints const identity{0, 1};
  int count = 0;
  auto const message = [](char const* name) { return IllegalInput(std::string(name) + notAssembled); };
  EXPECT_RAISED(message("Scale"), matrix.Scale(2));
  EXPECT_RAISED(message("PermuteRows"), matrix.PermuteRows(identity.data()));
  EXPECT_RAISED(message("Permute"), matrix.Permute(identity.data()));
  EXPECT_RAISED(message("PermuteInPlace"), matrix.PermuteInPlace(identity.data()));
  EXPECT_RAISED(message("Transpose"), matrix.Transpose());
  EXPECT_RAISED(message("IsSymmetric"), matrix.IsSymmetric());
  EXPECT_RAISED(message("FindNontrivialRows"), matrix.FindNontrivialRows(count));
  EXPECT_RAISED(message("FindNontrivialColumns"), matrix.FindNontrivialColumns(count));
  EXPECT_RAISED(message("EliminateTrivialColumns"), matrix.EliminateTrivialColumns(count));
  EXPECT_RAISED(message("SetColumnsToZero"), matrix.SetColumnsToZero(identity.data(), 1));
  Snapshot const before(*assembled);
  EXPECT_RAISED(message("Subtract"), assembled->Subtract(*assembled, matrix));
  EXPECT_TRUE(Snapshot(*assembled) == before);
}

#ifndef __SANITIZE_ADDRESS__
TEST(SparseOperations, KeepTheMatrixWhenMemoryIsShort) {
  constexpr int n = 1 << 19;
  ORXSrvSparseMatrix matrix(n, n);
  for (int k = 0; k < 8 * n; ++k)
    matrix.AddData(static_cast<std::uint32_t>(k / 8), static_cast<std::uint32_t>(k % 8 * (n / 8)), k);
  matrix.EndAssembly();
  Snapshot const before(matrix);
  Ints const perm = RandomPermutation(n, 1);
  {
    ShortOfMemory const shortage(6);
    EXPECT_THROW(matrix.PermuteRows(perm.data()), mem_OutOfMemory);
    EXPECT_THROW(matrix.Permute(perm.data()), mem_OutOfMemory);
    EXPECT_THROW(matrix.PermuteInPlace(perm.data()), mem_OutOfMemory);
    EXPECT_THROW(matrix.Transpose(), mem_OutOfMemory);
    EXPECT_THROW(matrix.Subtract(matrix, matrix), mem_OutOfMemory);
  }
  EXPECT_TRUE(Snapshot(matrix) == before);
}
#endif

} // namespace
