#include "tests/mtx/DenseSupport.h"

#include "mtx/ORXSrvProgress.h"
#include "mtx/impl/blocks/ProductTiles.h"

using namespace orx;

namespace {

// ---- block matrices

using Handle = DenseKind::Handle;

/// How a matrix is cut; a view begins and ends inside blocks of its parent.
struct Cut {
  int rows, columns;
  Handle handle = Handle::Own;
};
constexpr Cut cuts[] = {{1, 1},
                        {3, 2},
                        {4, 5},
                        {11, 7},
                        {64, 64},
                        {3, 4, Handle::View},
                        {5, 3, Handle::View},
                        {64, 64, Handle::View},
                        {64, 64, Handle::Grown},
                        {8, 5, Handle::Grown},
                        {12, 8, Handle::ViewOfGrown},
                        {3, 3, Handle::BelowDiagonal},
                        {4, 4, Handle::AboveDiagonal}};

std::string Text(Cut cut) {
  return std::to_string(cut.rows) + " x " + std::to_string(cut.columns) + ", kind " +
         std::to_string(static_cast<int>(cut.handle)) + "; ";
}

class DenseProducts : public testing::Test {
protected:
  ~DenseProducts() override { ORXSrvProgress::Set(nullptr, nullptr); }

  DensePtr Make(Dense const& values, Cut cut) const {
    DensePtr matrix = m_database.New({"", cut.handle, cut.rows, cut.columns}, values.rows, values.columns);
    Set(*matrix, values);
    return matrix;
  }
  /// The same contents in all cuts.
  std::vector<DensePtr> MakeAll(Dense const& values) const {
    std::vector<DensePtr> all;
    for (Cut const cut : cuts)
      all.push_back(Make(values, cut));
    return all;
  }
  /// Calls check(matrix) for the same values in every cut.
  template<class Check>
  void ForEveryCut(Dense const& values, Check check) const {
    for (Cut const cut : cuts) {
      SCOPED_TRACE(Text(cut));
      check(Make(values, cut));
    }
  }

  DenseDatabase m_database;
};

// ---- products with matrices in memory

TEST_F(DenseProducts, WithOperandsInMemoryEqualPlainLoops) {
  Dense const a = Integers(11, 7, 1), x = Integers(7, 3, 2), old = Integers(11, 3, 3);
  ForEveryCut(a, [&](DensePtr const& blocks) {
    Dense right = x;

    Dense sum = old;
    blocks->Multiply(x.values.data(), 3, sum.values.data());
    EXPECT_EQ(sum, a * x + old);

    Dense product = Constant(11, 3, notANumber);
    ORXSrvMatrix target = Lent(product);
    blocks->Multiply(Lent(right), target);
    EXPECT_EQ(product, a * x);

    Dense square = Integers(7, 7, 4);
    blocks->MultiplyAssign(Lent(square));
    EXPECT_EQ(Contents(*blocks), a * square);
  });
}

TEST_F(DenseProducts, TransposedWithOperandsInMemoryEqualPlainLoops) {
  Dense const a = Integers(11, 7, 1), b = Integers(11, 3, 2);
  ForEveryCut(a, [&](DensePtr const& blocks) {
    Dense right = b;
    for (int const k : {1, 4, 11}) {
      Dense const x = LeadingRows(b, k);
      Dense sum = Integers(7, 3, 3);
      blocks->TransposeMultiply(x.values.data(), 3, sum.values.data(), k);
      EXPECT_EQ(sum, Transposed(LeadingRows(a, k)) * x + Integers(7, 3, 3)) << k;
    }

    Dense product = Constant(7, 3, notANumber);
    ORXSrvMatrix target = Lent(product);
    blocks->TransposeMultiply(Lent(right), target, 0);
    EXPECT_EQ(product, Transposed(a) * b);

    Dense raw = Constant(7, 3, notANumber);
    blocks->TransposeMultiply(Lent(right), raw.values.data(), 0);
    EXPECT_EQ(raw, product);

    Dense itself = a, gram = Constant(7, 7, notANumber);
    blocks->TransposeMultiply(Lent(itself), gram.values.data(), 1);
    EXPECT_EQ(gram, Transposed(a) * a);
  });
}

TEST_F(DenseProducts, PermutedRowsGoWhereThePermutationSays) {
  for (auto const& permutation : {std::vector<int>{3, 0, 9, 1, 10, 2, 4, 8, 7, 6, 5}, std::vector<int>{0}}) {
    auto const rows = static_cast<int>(permutation.size());
    Dense const a = Integers(rows, 7, 1);
    Dense permuted = Constant(rows, 7, 0.0);
    for (int j = 0; j < 7; ++j)
      for (int i = 0; i < rows; ++i)
        permuted(permutation[i], j) = a(i, j);
    ForEveryCut(a, [&](DensePtr const& blocks) {
      for (int const rowsOfB : {rows, (rows + 1) / 2}) {
        Dense b = Integers(rowsOfB, 3, 2);
        Dense const old = Integers(7, 3, 5);
        Dense c = old;
        ORXSrvMatrix target = Lent(c);
        blocks->TransposeMultiply(permutation.data(), Lent(b), target, 2.0, -1.0);
        EXPECT_EQ(c, 2.0 * (Transposed(LeadingRows(permuted, rowsOfB)) * b) + -1.0 * old);
        blocks->TransposeMultiply(nullptr, Lent(b), target, 1.0, 0.0);
        EXPECT_EQ(c, Transposed(LeadingRows(a, rowsOfB)) * b);
      }
      EXPECT_EQ(Contents(*blocks), a);
    });
  }
}

// ---- products into block matrices

TEST_F(DenseProducts, OfThreeBlockMatricesEqualPlainLoopsWhateverTheirCuts) {
  Dense const a = Integers(11, 7, 1), b = Integers(7, 9, 2), expected = a * b;
  Dense const nothing = Constant(11, 9, notANumber);
  std::vector<DensePtr> const as = MakeAll(a), bs = MakeAll(b), cs = MakeAll(nothing);

  for (std::size_t i = 0; i < as.size(); ++i)
    for (std::size_t j = 0; j < bs.size(); ++j) {
      for (std::size_t k = 0; k < cs.size(); ++k) {
        Set(*cs[k], nothing);
        as[i]->Multiply(*bs[j], *cs[k]);
        ASSERT_EQ(Contents(*cs[k]), expected) << Text(cuts[i]) << Text(cuts[j]) << Text(cuts[k]);
      }
      Dense raw = nothing;
      as[i]->Multiply(bs[j].get(), raw.values.data());
      ASSERT_EQ(raw, expected) << Text(cuts[i]) << Text(cuts[j]);
    }
}

/// Shapes that the budget cuts into several groups in each direction, the last of them not full.
TEST_F(DenseProducts, OfManyGroupsOfBlocksEqualPlainLoops) {
  struct Shape {
    int m, k, n;
  };
  for (Shape const s :
       {Shape{203, 30, 5}, Shape{5, 90, 203}, Shape{5, 203, 7}, Shape{1, 50, 1}, Shape{60, 1, 40}})
    for (Cut const cut : {Cut{2, 3}, Cut{4, 4, Handle::View}, Cut{7, 1, Handle::View}}) {
      Dense const a = Integers(s.m, s.k, 1), b = Integers(s.k, s.n, 2);
      DensePtr const c = Make(Constant(s.m, s.n, notANumber), cut);
      Make(a, cut)->Multiply(*Make(b, cut), *c);
      EXPECT_EQ(Contents(*c), a * b) << s.m << ' ' << s.k << ' ' << s.n << ' ' << Text(cut);
    }
}

TEST_F(DenseProducts, TransposedWithABlockMatrixEqualPlainLoops) {
  Dense const a = Integers(11, 7, 1), b = Integers(11, 5, 2);
  Dense const expected = Transposed(a) * b;
  std::vector<DensePtr> const as = MakeAll(a), bs = MakeAll(b);

  for (std::size_t i = 0; i < as.size(); ++i) {
    for (std::size_t j = 0; j < bs.size(); ++j) {
      SCOPED_TRACE(Text(cuts[i]) + Text(cuts[j]));
      DensePtr const c = Make(Constant(7, 5, notANumber), cuts[j]);
      as[i]->TransposeMultiply(bs[j].get(), c.get(), 0);
      EXPECT_EQ(Contents(*c), expected);
      Dense raw = Constant(7, 5, notANumber);
      as[i]->TransposeMultiply(bs[j].get(), raw.values.data(), 0);
      EXPECT_EQ(raw, expected);
    }
    DensePtr const gram = Make(Constant(7, 7, notANumber), cuts[i]);
    as[i]->TransposeMultiply(as[i].get(), gram.get(), 1);
    EXPECT_EQ(Contents(*gram), Transposed(a) * a) << Text(cuts[i]);
  }
}

TEST_F(DenseProducts, UpdatesOfABlockMatrixScaleItAndAddTheProduct) {
  Dense const a = Integers(11, 7, 1);
  Dense b = Integers(7, 9, 2);
  Dense const old = Integers(11, 9, 3);
  std::vector<DensePtr> const as = MakeAll(a), cs = MakeAll(old);
  for (std::size_t i = 0; i < as.size(); ++i)
    for (std::size_t k = 0; k < cs.size(); ++k) {
      SCOPED_TRACE(Text(cuts[i]) + Text(cuts[k]));
      Set(*cs[k], old);
      as[i]->Multiply(2.0, Lent(b), -3.0, *cs[k]);
      EXPECT_EQ(Contents(*cs[k]), 2.0 * (a * b) + -3.0 * old);
      Set(*cs[k], Constant(11, 9, notANumber));
      as[i]->Multiply(2.0, Lent(b), 0.0, *cs[k]); // what C held is not read
      EXPECT_EQ(Contents(*cs[k]), 2.0 * (a * b) + 0.0 * old);
    }

  // A narrower B: the columns beyond it get no product.
  Dense narrow = LeadingRows(b, 7);
  narrow.columns = 2;
  DensePtr const c = Make(Constant(11, 3, 5.0), {4, 2});
  as[1]->Multiply(1.0, Lent(narrow), 0.0, *c);
  Dense const cleared = Contents(*c), product = a * narrow;
  for (int i = 0; i < 11; ++i)
    EXPECT_EQ((Doubles{cleared(i, 0), cleared(i, 1), cleared(i, 2)}),
              (Doubles{product(i, 0), product(i, 1), 0.0}));
}

TEST_F(DenseProducts, DiagonalFactorsScaleColumnsWithoutAlpha) {
  Dense const a = Integers(5, 3, 1), old = Integers(5, 3, 2);
  ORXSrvMatrix const diagonal = Diagonal({2, -1, 10});
  Dense const full = Filled(3, 3, [&](int i, int j) { return i == j ? diagonal.Values()[i] : 0.0; });
  DensePtr const blocks = Make(a, {2, 2});
  for (double const beta : {0.0, 1.0, -2.0}) {
    DensePtr const c = Make(beta == 0.0 ? Constant(5, 3, notANumber) : old, {3, 2});
    blocks->Multiply(7.0, diagonal, beta, *c);
    EXPECT_EQ(Contents(*c), a * full + beta * old) << beta;
  }
}

TEST_F(DenseProducts, IndexedRowsGoToTheirPositions) {
  Dense const a = Integers(11, 7, 1);
  Dense b = Integers(7, 3, 2);
  Dense const product = a * b;
  int const rowIndex[] = {4, 5, 6, 0, 10, 2, 3};
  int const groupStart[] = {0, 3, 3, 4, 5, 7}; // the second group is empty
  Dense expected = Constant(8, 4, -5.0);
  for (int i = 0; i < 7; ++i)
    for (int j = 0; j < 3; ++j)
      expected(i, j) = product(rowIndex[i], j);
  ForEveryCut(a, [&](DensePtr const& blocks) {
    DensePtr const c = Make(Constant(8, 4, -5.0), {3, 2});
    blocks->IndexedMultiply(Lent(b), *c, rowIndex, groupStart, 5);
    EXPECT_EQ(Contents(*c), expected);
  });
}

// ---- operations in place

TEST_F(DenseProducts, AddAssignAndScaleWorkOnEveryValueAndOnNoOther) {
  Dense const a = Integers(11, 7, 1), b = Integers(11, 7, 2);
  std::vector<DensePtr> const bs = MakeAll(b);
  for (Cut const cut : cuts)
    for (DensePtr const& other : bs) {
      DensePtr const blocks = Make(a, cut);
      blocks->AddAssign(*other);
      blocks->Scale(-3.0);
      EXPECT_EQ(Contents(*blocks), Filled(11, 7, [&](int i, int j) { return -3.0 * (a(i, j) + b(i, j)); }))
          << Text(cut);
    }
}

TEST_F(DenseProducts, IsSymmetricFindsEverySingleDifference) {
  Dense const a = Filled(7, 7, [](int i, int j) { return 3 * (i + j) + i * j; });
  testing::internal::CaptureStdout(); // it is the host's
  for (Cut const cut : {Cut{1, 1}, Cut{3, 3}, Cut{7, 7}, Cut{9, 9}, Cut{3, 2}, Cut{3, 3, Handle::View}}) {
    DensePtr const blocks = Make(a, cut);
    EXPECT_TRUE(blocks->IsSymmetric()) << Text(cut);
    for (int i = 0; i < 7; ++i)
      for (int j = 0; j < 7; ++j) {
        ORXSrvMatrix cell = Full({{notANumber}});
        blocks->SetValues(i, i, j, j, cell);
        EXPECT_EQ(blocks->IsSymmetric(), i == j) << Text(cut) << i << ' ' << j;
        cell = a(i, j);
        blocks->SetValues(i, i, j, j, cell);
      }
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_FALSE(m_database.New(3, 4, 2, 2)->IsSymmetric());
  EXPECT_TRUE(ORXSrvDenseMatrix().IsSymmetric());
}

/// Blocks that are larger than what is worked on at a time.
TEST_F(DenseProducts, LargeBlocksAreWorkedOnInPieces) {
  Dense const a = Integers(2100, 150, 1);
  Dense x = Integers(150, 2, 2);
  for (Cut const cut : {Cut{2100, 150}, Cut{1500, 7}}) {
    DensePtr const blocks = Make(a, cut);
    Dense product = Constant(2100, 2, notANumber);
    ORXSrvMatrix target = Lent(product);
    blocks->Multiply(Lent(x), target);
    EXPECT_EQ(product, a * x) << Text(cut);
    DensePtr const c = Make(Constant(2100, 2, 1.0), {900, 1});
    blocks->Multiply(3.0, Lent(x), 2.0, *c);
    EXPECT_EQ(Contents(*c), 3.0 * (a * x) + 2.0 * Constant(2100, 2, 1.0)) << Text(cut);
    blocks->AddAssign(*Make(Constant(2100, 150, 100.0), {64, 64}));
    blocks->Scale(2.0);
    EXPECT_EQ(Contents(*blocks), Filled(2100, 150, [&](int i, int j) { return 2.0 * (a(i, j) + 100.0); }))
        << Text(cut);
  }

  Dense const symmetric = Filled(300, 300, [](int i, int j) { return i * j + i + j; });
  DensePtr const blocks = Make(symmetric, {170, 170});
  EXPECT_TRUE(blocks->IsSymmetric());
  for (auto const& [i, j] : {std::pair{0, 169}, {299, 0}, {128, 127}, {127, 128}, {298, 299}, {171, 130}}) {
    ORXSrvMatrix cell = Full({{-1}});
    blocks->SetValues(i, i, j, j, cell);
    EXPECT_FALSE(blocks->IsSymmetric()) << i << ' ' << j;
    cell = symmetric(i, j);
    blocks->SetValues(i, i, j, j, cell);
  }
}

// ---- slots

class WithProductsOfItsOwn : public ORXSrvDenseMatrix {
public:
  using ORXSrvDenseMatrix::ORXSrvDenseMatrix;
  using ORXSrvDenseMatrix::TransposeMultiply;
  void TransposeMultiply(ORXSrvMatrix const&, ORXSrvMatrix& c, int symmetric) const override {
    c = 10.0 + symmetric;
  }
  void TransposeMultiply(ORXSrvDenseMatrix const*, ORXSrvMatrix& c, int symmetric) const override {
    c = 20.0 + symmetric;
  }
};

TEST_F(DenseProducts, WrappersUseTheProductsOfDerivedClasses) {
  WithProductsOfItsOwn const a(m_database.New(4, 2, 2, 2)->DistributionID());
  Dense b = Constant(4, 3, 0.0);
  DensePtr const blocks = Make(b, {2, 2});
  Dense c = Constant(2, 3, 0.0);
  a.TransposeMultiply(Lent(b), c.values.data(), 1);
  EXPECT_EQ(c, Constant(2, 3, 11.0));
  a.TransposeMultiply(blocks.get(), c.values.data(), 1);
  EXPECT_EQ(c, Constant(2, 3, 21.0));
  DensePtr const target = Make(c, {1, 2});
  a.TransposeMultiply(blocks.get(), target.get(), 0);
  EXPECT_EQ(Contents(*target), Constant(2, 3, 20.0));
}

// ---- failures

TEST_F(DenseProducts, OfShapesThatDoNotFitFailBeforeAnythingIsWritten) {
  Dense const old = Constant(11, 9, 4.0);
  DensePtr const a = Make(Integers(11, 7, 1), {4, 3});
  DensePtr const b = Make(Integers(7, 9, 2), {4, 3});
  DensePtr const shortB = Make(Integers(6, 9, 2), {4, 3});
  DensePtr const c = Make(old, {4, 3});
  DensePtr const smallC = Make(Constant(11, 8, 4.0), {4, 3});
  Dense y = old;

  EXPECT_RAISED(invalidGet, a->Multiply(*shortB, *c));
  EXPECT_RAISED(invalidGet, a->Multiply(shortB.get(), y.values.data()));
  EXPECT_RAISED(invalidSet, a->Multiply(*b, *smallC));
  EXPECT_RAISED(invalidGet, a->AddAssign(*b));
  EXPECT_RAISED(invalidSet, a->TransposeMultiply(a.get(), c.get(), 0));
  DensePtr const shortRows = Make(Integers(10, 3, 2), {4, 3});
  DensePtr const gram = Make(Constant(7, 3, 4.0), {4, 3});
  ORXSrvMatrix inMemory(7, 3);
  inMemory = 4.0;
  EXPECT_RAISED(invalidGet, a->TransposeMultiply(shortRows.get(), inMemory, 0));
  EXPECT_RAISED(invalidGet, a->TransposeMultiply(shortRows.get(), inMemory.Values(), 0));
  EXPECT_RAISED(invalidGet, a->TransposeMultiply(shortRows.get(), gram.get(), 0));
  EXPECT_EQ(DenseOf(inMemory), Contents(*gram));
  EXPECT_EQ(Contents(*gram), Constant(7, 3, 4.0));
  EXPECT_RAISED(invalidGet, a->TransposeMultiply(y.values.data(), 1, y.values.data(), 12));
  EXPECT_RAISED(invalidGet, a->TransposeMultiply(y.values.data(), 1, y.values.data(), -1));

  EXPECT_EQ(Contents(*c), old);
  EXPECT_EQ(Contents(*smallC), Constant(11, 8, 4.0));
  EXPECT_EQ(Contents(*a), Integers(11, 7, 1));
  EXPECT_EQ(y, old);
}

TEST_F(DenseProducts, WithBuffersThatAreTooShortFailBeforeAnythingIsWritten) {
  Dense const old = Constant(11, 9, 4.0);
  DensePtr const a = Make(Integers(11, 7, 1), {4, 3});
  DensePtr const c = Make(old, {4, 3});
  ORXSrvMatrix const shortB(6, 3), wideB(7, 10), tallB(12, 3), b(11, 3);
  Dense y = Constant(7, 2, 4.0);
  ORXSrvMatrix target = Lent(y);
  int const permutation[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 12};

  EXPECT_RAISED(IllegalInput("Multiply"), a->Multiply(shortB, target));
  EXPECT_RAISED(IllegalInput("Multiply"), a->Multiply(ORXSrvMatrix(7, 2), target));
  EXPECT_RAISED(IllegalInput("Multiply"), a->Multiply(1.0, shortB, 0.0, *c));
  EXPECT_RAISED(IllegalInput("Multiply"), a->Multiply(1.0, wideB, 0.0, *c));
  EXPECT_RAISED(IllegalInput("MultiplyAssign"), a->MultiplyAssign(shortB));
  EXPECT_RAISED(IllegalInput("TransposeMultiply"), a->TransposeMultiply(b, target, 0));
  EXPECT_RAISED(IllegalInput("TransposeMultiply"), a->TransposeMultiply(nullptr, tallB, target, 1.0, 0.0));
  ORXSrvMatrix wide(7, 3);
  EXPECT_RAISED(IllegalInput("GetValues"), a->TransposeMultiply(ORXSrvMatrix(10, 3), wide, 0));
  EXPECT_RAISED("212 ORXSrvMatrix::PermuteRowsInPlace - Illegal perm Vector.",
                a->TransposeMultiply(permutation, ORXSrvMatrix(11, 2), target, 1.0, 0.0));

  EXPECT_EQ(y, Constant(7, 2, 4.0));
  EXPECT_EQ(Contents(*c), old);
  EXPECT_EQ(Contents(*a), Integers(11, 7, 1));
}

TEST_F(DenseProducts, IndexedGroupsAreCheckedBeforeTheFirstIsComputed) {
  DensePtr const a = Make(Integers(11, 7, 1), {4, 3});
  DensePtr const c = Make(Constant(4, 3, 4.0), {2, 2});
  ORXSrvMatrix const b(7, 3);
  auto const raised = [&](std::vector<int> const& rows, std::vector<int> const& starts) {
    return Raised(
        [&] { a->IndexedMultiply(b, *c, rows.data(), starts.data(), static_cast<int>(starts.size()) - 1); });
  };
  EXPECT_EQ(raised({0, 1, 5, 7}, {0, 2, 4}), IllegalInput("IndexedMultiply"));
  EXPECT_EQ(raised({0, 1, 10, 11}, {0, 2, 4}), invalidGet);
  EXPECT_EQ(raised({0, 1, 2, 3, 4}, {0, 2, 5}), invalidSet);
  EXPECT_RAISED(invalidSet, a->IndexedMultiply(ORXSrvMatrix(7, 4), *c, nullptr, nullptr, 0));
  EXPECT_EQ(Contents(*c), Constant(4, 3, 4.0));
}

// ---- progress

/// What the host was told, and after which report it stops.
struct Host {
  std::vector<std::string> reports;
  int stopAfter = -1;

  static bool Report(void* context, char const* operation, std::int64_t done, std::int64_t total) {
    Host& host = *static_cast<Host*>(context);
    host.reports.push_back(std::string(operation) + ' ' + std::to_string(done) + '/' + std::to_string(total));
    return static_cast<int>(host.reports.size()) != host.stopAfter;
  }
};

TEST_F(DenseProducts, TellTheHostOfEveryBlock) {
  DensePtr const a = Make(Integers(6, 6, 1), {3, 2});
  Dense b = Integers(6, 6, 2), c = Constant(6, 6, 0.0);
  ORXSrvMatrix target = Lent(c);
  Host host;
  host.stopAfter = 2; // nothing is left to be stopped then
  ORXSrvProgress::Set(Host::Report, &host);

  a->Multiply(Lent(b), target);
  EXPECT_EQ(host.reports,
            (std::vector<std::string>{"ORXSrvDenseMatrix::Multiply 1/2", "ORXSrvDenseMatrix::Multiply 2/2"}));
  host.reports.clear();
  host.stopAfter = -1;
  a->Scale(0.0);
  EXPECT_EQ(host.reports.size(), 6U);
  EXPECT_EQ(host.reports.back(), "ORXSrvDenseMatrix::Scale 6/6");
  host.reports.clear();
  EXPECT_TRUE(a->IsSymmetric());
  EXPECT_EQ(host.reports.back(), "ORXSrvDenseMatrix::IsSymmetric 3/3");
  host.reports.clear();
  host.stopAfter = 1;
  EXPECT_RAISED("301 ORXSrvDenseMatrix::Multiply stopped by the host after 1 of 2 blocks.",
                a->Multiply(Lent(b), target));
}

TEST_F(DenseProducts, PassOnWhatTheHostThrows) {
  DensePtr const a = Make(Integers(6, 6, 1), {3, 3});
  ORXSrvProgress::Set(
      [](void*, char const*, std::int64_t, std::int64_t) -> bool { throw std::length_error("x"); }, nullptr);
  EXPECT_THROW(a->Scale(2.0), std::length_error);
  ORXSrvProgress::Set(nullptr, nullptr);
  a->Scale(1.0);
}

// ---- tiles

TEST(ProductTiles, GroupsFollowTheBudget) {
  struct Case {
    ProductShape shape;
    int row, inner, column;
  };
  for (Case const& c : {
           // all of B's columns and of A's rows; one column block of A at a time
           Case{{4096, 4096, 4096, 512, 512, 512}, 8, 1, 8},
           // budget 600,000: rows (600,000 - 500 * 100) / (500 + 100) = 916
           Case{{100000, 1000, 500, 100, 100, 100}, 10, 1, 5},
           // few rows: the inner direction takes what is left, (100,010,000 - 1,000,000) / 100,010 = 990
           Case{{10, 1000, 100000, 10, 100, 100}, 1, 10, 1000},
           // a single column
           Case{{1000, 1000, 1, 100, 100, 1}, 10, 1, 1},
           // 32-bit products of these extents overflow
           Case{{2000000, 2000000, 2000000, 1000, 1000, 1000}, 1999, 1, 2000},
       }) {
    ProductGroups const groups = GroupsWithinBudget(c.shape);
    EXPECT_EQ(std::vector({groups.row, groups.inner, groups.column}), std::vector({c.row, c.inner, c.column}))
        << c.shape.m << ' ' << c.shape.k << ' ' << c.shape.n;
  }
}

TEST(ProductTiles, TilesStayWithinTheMemory) {
  constexpr int least = 64;
  for (std::int64_t const values : {std::int64_t{3 * least * least}, std::int64_t{20000},
                                    std::int64_t{1000000}, std::int64_t{1000000000}})
    for (ProductShape const& shape :
         {ProductShape{60000, 60000, 60000, 1024, 1024, 1024}, ProductShape{10, 1000, 100000, 10, 100, 100},
          ProductShape{1000000, 64, 64, 4096, 64, 64}, ProductShape{64, 2000000, 3, 64, 1, 3}}) {
      auto const [rows, inner, columns] = TileWithin(values, shape);
      SCOPED_TRACE(std::to_string(rows) + ' ' + std::to_string(inner) + ' ' + std::to_string(columns));
      EXPECT_LE(std::int64_t{rows} * inner + std::int64_t{inner} * columns + std::int64_t{rows} * columns,
                values);
      for (auto const& [extent, whole] : {std::pair{rows, shape.m}, {inner, shape.k}, {columns, shape.n}}) {
        EXPECT_GE(extent, std::min(least, whole));
        EXPECT_LE(extent, whole);
      }
    }
}

} // namespace
