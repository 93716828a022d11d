#include "MatrixSupport.h"
#include "SparseSupport.h"
#include "mtx/impl/exchange/TripletCollector.h"
#include "tests/support/Shortage.h"

#include <map>
#include <numeric>
#include <utility>

namespace {

using namespace orx;

/// What assembly must give, by a map: sums in the order added, the first value taken as it is.
Entries Reference(Entries const& triplets) {
  std::map<std::pair<std::uint32_t, std::uint32_t>, double> sums;
  for (ORXSrvSparseMatrixEntry const& t : triplets) {
    auto const [place, isNew] = sums.try_emplace({t.row, t.column}, t.value);
    if (!isNew) place->second += t.value;
  }
  Entries result;
  for (auto const& [position, value] : sums)
    result.push_back({position.first, position.second, value});
  return result;
}

void ExpectAssemblyIs(Entries const& triplets, std::string const& what) {
  ORXSrvSparseMatrix matrix(0, 0);
  Assemble(matrix, triplets);
  Entries const expected = Reference(triplets);
  EXPECT_TRUE(EntriesOf(matrix) == expected) << what;
  EXPECT_EQ(matrix.NumberOfNonzeros(), static_cast<int>(expected.size())) << what;

  Entries byRow = triplets;
  std::ranges::stable_sort(byRow, {}, &ORXSrvSparseMatrixEntry::row);
  for (Entries const& input : {triplets, byRow}) {
    TripletCollector collector;
    collector.Add(input);
    CompressedRows const collected = collector.Finish(matrix.NumberOfRows(), matrix.NumberOfColumns());
    CompressedRowsView const view = Access::View(matrix);
    EXPECT_TRUE(std::equal(view.rowPointers, view.rowPointers + view.rows + 1, collected.rowPointers.get()))
        << what;
    EXPECT_TRUE(
        std::equal(view.columnIndices, view.columnIndices + view.Entries(), collected.columnIndices.get()))
        << what;
    EXPECT_EQ(std::memcmp(view.values, collected.values.get(), expected.size() * sizeof(double)), 0) << what;
  }
}

Entries RandomTriplets(unsigned seed, std::size_t count, std::uint32_t rows, std::uint32_t columns) {
  std::mt19937 random(seed);
  Entries triplets;
  while (triplets.size() < count) {
    double const value =
        std::ldexp(static_cast<double>(random()) - 2e9, static_cast<int>(random() % 40) - 20);
    triplets.push_back({static_cast<std::uint32_t>(random() % rows),
                        static_cast<std::uint32_t>(random() % columns), random() % 9 == 0 ? -0.0 : value});
  }
  return triplets;
}

// ---- states and dimensions

TEST(Assembly, EmptyAssemblyIsAValidNullMatrix) {
  ORXSrvSparseMatrix matrix(3, 2);
  matrix.BeginAssembly();
  matrix.EndAssembly();
  EXPECT_EQ(matrix.NumberOfNonzeros(), 0);
  EXPECT_EQ(Access::RowPointers(matrix), (std::vector<int>{0, 0, 0, 0}));
  EXPECT_TRUE(matrix.IsNull());
  EXPECT_TRUE(EntriesOf(matrix).empty());
  EXPECT_TRUE(matrix.RowCSetID().IsNull());
  EXPECT_TRUE(matrix.ColumnCSetID().IsNull());
}

TEST(Assembly, DimensionsGrowAndNeverShrink) {
  ORXSrvSparseMatrix matrix(2, 2);
  Assemble(matrix, {{5, 2, 1.0}});
  EXPECT_EQ(SizeOf(matrix), (std::pair{6, 3}));
  Assemble(matrix, {{0, 0, 1.0}});
  EXPECT_EQ(matrix.NumberOfRows(), 6);
  EXPECT_EQ(EntriesOf(matrix), (Entries{{0, 0, 1.0}}));
}

TEST(Assembly, IndicesBeyondTheDimensionsTypeAreRefused) {
  ORXSrvSparseMatrix matrix(2, 2);
  matrix.AddData(1, 1, 4.0);
  EXPECT_RAISED(IllegalInput("AddData(0, 2147483647), indices up to 2147483646 expected"),
                matrix.AddData(0, 2147483647u, 1.0));
  EXPECT_RAISED(IllegalInput("AddData(4294967295, 0), indices up to 2147483646 expected"),
                matrix.AddData(UINT32_MAX, 0, 1.0));
  matrix.EndAssembly();
  EXPECT_EQ(EntriesOf(matrix), (Entries{{1, 1, 4.0}}));
  EXPECT_EQ(matrix.NumberOfColumns(), 2);
  EXPECT_NE(Raised([] { ORXSrvSparseMatrix(-1, 2); }), "nothing raised");
}

TEST(Assembly, SecondEndWithoutBeginKeepsTheEntriesForLater) {
  ORXSrvSparseMatrix matrix(1, 1);
  Assemble(matrix, {{0, 0, 1.0}});
  matrix.AddData(0, 0, 2.0);
  matrix.AddData(4, 0, 3.0); // the arrays keep their one row
  matrix.EndAssembly();
  EXPECT_EQ(EntriesOf(matrix), (Entries{{0, 0, 1.0}}));
  matrix.BeginAssembly();
  EXPECT_TRUE(EntriesOf(matrix).empty());
  matrix.EndAssembly();
  EXPECT_EQ(EntriesOf(matrix), (Entries{{0, 0, 2.0}, {4, 0, 3.0}}));
}

// ---- compression

TEST(Assembly, DuplicatesAreSummedAndZerosStay) {
  ORXSrvSparseMatrix matrix(2, 2);
  Assemble(matrix, {{1, 1, 2.0}, {1, 0, 7.0}, {1, 1, -2.0}, {0, 1, 0.0}});
  EXPECT_EQ(EntriesOf(matrix), (Entries{{0, 1, 0.0}, {1, 0, 7.0}, {1, 1, 0.0}}));
  EXPECT_FALSE(matrix.IsNull());
  // A negative zero alone stays one; the order of a sum shows in its rounding.
  Assemble(matrix, {{0, 0, -0.0}, {1, 0, 1e16}, {1, 0, 1.0}, {1, 0, -1e16}});
  EXPECT_EQ(EntriesOf(matrix), (Entries{{0, 0, -0.0}, {1, 0, 0.0}}));
}

TEST(Assembly, AnyOrderAndDensityGivesTheSameAsAMap) {
  for (unsigned seed = 0; seed < 40; ++seed) {
    auto const rows = static_cast<std::uint32_t>(1 + seed * seed % 97);
    auto const columns = static_cast<std::uint32_t>(1 + seed * 7 % 61);
    ExpectAssemblyIs(RandomTriplets(seed, 1 + seed * 53, rows, columns), "seed " + std::to_string(seed));
  }
  ExpectAssemblyIs(RandomTriplets(1, 200000, 3000, 3000), "many buckets");
  ExpectAssemblyIs(RandomTriplets(2, 60000, 40, 50), "long rows");
  ExpectAssemblyIs(RandomTriplets(3, 60000, 1, 2000), "one row");
  ExpectAssemblyIs(RandomTriplets(4, 60000, 50000, 1), "one column");
  ExpectAssemblyIs(RandomTriplets(5, 4000, 3, 2000000), "more columns than the triplets could pay for");
}

TEST(Assembly, ElementBlocksShareTheirPattern) {
  // Chains of elements with three unknowns a node: the rows of a node see the same columns in the same order.
  Entries triplets;
  std::mt19937 random(5);
  std::vector<std::uint32_t> elements(6000);
  std::iota(elements.begin(), elements.end(), 0u);
  for (bool const scrambled : {false, true}) {
    if (scrambled) std::shuffle(elements.begin(), elements.end(), random);
    triplets.clear();
    for (std::uint32_t const e : elements)
      for (std::uint32_t i = 0; i < 12; ++i)
        for (std::uint32_t j = 0; j < 12; ++j) // nodes e, e + 7, e + 3, e + 5: columns not ascending
          triplets.push_back({3 * (e + i / 3 * 7 % 11) + i % 3, 3 * (e + j / 3 * 7 % 11) + j % 3,
                              static_cast<double>(random()) * 1e-9});
    ExpectAssemblyIs(triplets, scrambled ? "scrambled elements" : "elements in order");
  }
}

TEST(Assembly, ElementMatricesAreAddedWhole) {
  int const dofs[] = {3, 0, 1, 3, -2, 6};
  constexpr int n = 6;
  std::vector<double> full(n * n), lower;
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i)
      full[static_cast<std::size_t>(j * n + i)] = std::max(i, j) + 10.5 * std::min(i, j);
  for (int j = 0; j < n; ++j)
    lower.insert(lower.end(), full.begin() + j * n + j, full.begin() + (j + 1) * n);
  full[5 * n + 2] = 0.1; // unknowns 1 and 6
  ORXSrvSparseMatrix whole(0, 0), packed(2, 2), single(0, 0);
  whole.AddData(n, dofs, full.data());
  packed.AddPackedData(n, dofs, lower.data());
  for (unsigned i = 0; i < n; ++i)
    for (unsigned j = 0; j < n; ++j)
      if (dofs[i] > 0 && dofs[j] > 0)
        single.AddData(static_cast<unsigned>(dofs[i]) - 1, static_cast<unsigned>(dofs[j]) - 1,
                       full[j * n + i]);
  for (ORXSrvSparseMatrix* matrix : {&whole, &packed, &single})
    matrix->EndAssembly();
  EXPECT_EQ(SizeOf(whole), (std::pair{6, 6}));
  EXPECT_EQ(EntriesOf(whole), EntriesOf(single));
  Entries symmetric = EntriesOf(single);
  EXPECT_NE(EntriesOf(packed), symmetric);
  for (ORXSrvSparseMatrixEntry& e : symmetric)
    if (e.row == 0 && e.column == 5) e.value = 5 + 10.5 * 2;
  EXPECT_EQ(EntriesOf(packed), symmetric);

  ORXSrvSparseMatrix matrix(2, 2);
  int const tooLarge[] = {1, 2147483647}, none[] = {0, -1};
  EXPECT_RAISED(IllegalInput("AddData, unknown 2147483647, unknowns up to 2147483646 expected"),
                matrix.AddData(2, tooLarge, full.data()));
  EXPECT_RAISED(IllegalInput("AddData, an element of -1 unknowns"), matrix.AddData(-1, none, full.data()));
  matrix.AddData(2, none, full.data());
  matrix.AddData(1, 0, 0); // an entry, although 0 may stand for a pointer
  matrix.EndAssembly();
  EXPECT_EQ(EntriesOf(matrix), (Entries{{1, 0, 0.0}}));
}

TEST(Assembly, HugeDimensionsCostRowPointersOnly) {
  ORXSrvSparseMatrix matrix(0, 0);
  Assemble(matrix,
           {{3000000, 2147483646u, 1.0}, {0, 5, 2.0}, {3000000, 0, 3.0}, {3000000, 2147483646u, 0.5}});
  EXPECT_EQ(matrix.NumberOfColumns(), 2147483647);
  EXPECT_EQ(EntriesOf(matrix), (Entries{{0, 5, 2.0}, {3000000, 0, 3.0}, {3000000, 2147483646u, 1.5}}));
}

// ---- symmetric form

TEST(SymmetricForm, EntriesAreTheDiagonalThenMirroredPairs) {
  // [1 5 .; 5 2 6; . 6 3]
  std::vector<double> const diagonal{1, 2, 3};
  auto const matrix = Access::Adopt({0, 0, 1, 2}, {0, 1}, {5, 6}, &diagonal, 5, 3);
  EXPECT_EQ(EntriesOf(*matrix),
            (Entries{{0, 0, 1}, {1, 1, 2}, {2, 2, 3}, {1, 0, 5}, {0, 1, 5}, {2, 1, 6}, {1, 2, 6}}));
  EXPECT_EQ(Access::SymmetryState(*matrix), 1);
  EXPECT_FALSE(matrix->IsNull());
}

TEST(SymmetricForm, IsNullWithoutPairsAndWithAZeroDiagonal) {
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  for (auto const& [diagonal, nonzeros, isNull] : {std::tuple{Doubles{0, -0.0}, 2, true},
                                                   {Doubles{0, 0}, 0, false},
                                                   {Doubles{0, 1}, 2, false},
                                                   {Doubles{0, nan}, 2, false},
                                                   {Doubles{}, 0, true}}) {
    std::vector<int> const rowPointers(diagonal.size() + 1, 0);
    auto const matrix =
        Access::Adopt(rowPointers, {}, {}, &diagonal, nonzeros, static_cast<int>(diagonal.size()));
    EXPECT_EQ(matrix->IsNull(), isNull);
  }
}

TEST(SymmetricForm, CachedSymmetryNeverChangesHowTheArraysAreRead) {
  ORXSrvSparseMatrix matrix(0, 0);
  Assemble(matrix, {{0, 0, 1.0}, {0, 1, 2.0}, {1, 0, 2.0}});
  Entries const before = EntriesOf(matrix);
  Access::SetSymmetryState(matrix, 1);
  EXPECT_EQ(EntriesOf(matrix), before);
  EXPECT_FALSE(matrix.IsNull());
}

TEST(SymmetricForm, AssemblingAnewGivesTheGeneralForm) {
  std::vector<double> const diagonal{1, 2};
  auto const matrix = Access::Adopt({0, 0, 1}, {0}, {5}, &diagonal, 3, 2);
  matrix->AddData(0, 0, 9.0);
  EXPECT_EQ(Access::SymmetryState(*matrix), 2);
  EXPECT_EQ(EntriesOf(*matrix).size(), 4u) << "the arrays stay until assembly begins";
  matrix->AddData(1, 1, 8.0);
  EXPECT_EQ(Access::SymmetryState(*matrix), 0);
  matrix->BeginAssembly();
  EXPECT_TRUE(EntriesOf(*matrix).empty());
  matrix->EndAssembly();
  EXPECT_EQ(EntriesOf(*matrix), (Entries{{0, 0, 9.0}, {1, 1, 8.0}}));
}

// ---- shortage of memory

#ifndef __SANITIZE_ADDRESS__
TEST(Assembly, CanBeRepeatedWhereverMemoryRanOut) {
  Entries const triplets = RandomTriplets(7, 400000, 3000, 900);
  Entries const later = RandomTriplets(8, 1000, 70000, 1000); // more rows than there were at first
  Entries all = triplets;
  all.insert(all.end(), later.begin(), later.end());
  Entries const expected = Reference(all);
  int failures = 0;
  for (int megabytes = 0; megabytes < 40; ++megabytes) {
    ORXSrvSparseMatrix matrix(0, 0);
    matrix.BeginAssembly();
    for (ORXSrvSparseMatrixEntry const& t : triplets)
      matrix.AddData(t.row, t.column, t.value);
    bool hadEnough = true;
    try {
      ShortOfMemory const shortage(megabytes);
      matrix.EndAssembly();
    } catch (std::bad_alloc const&) {
      hadEnough = false;
      ++failures;
    }
    if (hadEnough) break;
    EXPECT_TRUE(EntriesOf(matrix).empty());
    for (ORXSrvSparseMatrixEntry const& t : later)
      matrix.AddData(t.row, t.column, t.value);
    if (megabytes % 2 == 0) {
      matrix.EndAssembly();
    } else {
      ORXSrvSparseMatrix none(0, 0);
      none.EndAssembly();
      matrix.Subtract(none, none); // sums what waits for assembly, too
    }
    ASSERT_TRUE(EntriesOf(matrix) == expected) << megabytes;
  }
  EXPECT_GT(failures, 2);
}

TEST(Assembly, AnEntryThatHasNoPlaceLeavesTheDimensions) {
  ORXSrvSparseMatrix matrix(2, 2);
  std::uint32_t added = 0;
  {
    ShortOfMemory const shortage(0);
    EXPECT_THROW(
        while (true) {
          matrix.AddData(added, 2 * added, 1.0);
          ++added;
        },
        std::bad_alloc);
  }
  EXPECT_EQ(matrix.NumberOfRows(), static_cast<int>(added));
  EXPECT_EQ(matrix.NumberOfColumns(), static_cast<int>(2 * added - 1));
  std::vector<int> dofs(2000);
  std::iota(dofs.begin(), dofs.end(), static_cast<int>(added) + 1);
  std::vector<double> const ke(dofs.size() * dofs.size(), 1.0);
  {
    ShortOfMemory const shortage(0);
    EXPECT_THROW(matrix.AddData(2000, dofs.data(), ke.data()), std::bad_alloc);
  }
  EXPECT_EQ(matrix.NumberOfRows(), static_cast<int>(added));
  matrix.EndAssembly();
  EXPECT_EQ(matrix.NumberOfNonzeros(), static_cast<int>(added));
}
#endif

} // namespace
