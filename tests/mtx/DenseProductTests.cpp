#include "mtx/ORXSrvDenseMatrix.h"

#include "core/ORXUnicodeString.h"
#include "mtx/ORXSrvProgress.h"
#include "mtx/ORXSrvUtilities.h"
#include "mtx/impl/ProductTiles.h"
#include "sim/ORXSimCollection.h"
#include "sim/ORXSimContext.h"
#include "sim/ORXSimDatabase.h"
#include "sim/ORXSimTransaction.h"
#include "tests/mtx/MatrixSupport.h"
#include "tests/mtx/SimSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using namespace orx;

namespace {

constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr char invalidGet[] = "203 ORXSrvDenseMatrix::GetValues invalid range values.";
constexpr char invalidSet[] = "204 ORXSrvDenseMatrix::SetValues invalid range values.";

// ---- matrices as plain loops see them
// -----------------------------------------------------------------------

/// Column-major values without blocks.
struct Plain {
  Plain(int rowCount, int columnCount, double value = 0.0)
      : rows(rowCount), columns(columnCount), values(static_cast<std::size_t>(rows) * columns, value) {}
  double& At(int i, int j) { return values[static_cast<std::size_t>(j) * rows + i]; }
  double At(int i, int j) const { return values[static_cast<std::size_t>(j) * rows + i]; }
  /// A matrix over these values.
  ORXSrvMatrix Lent() { return {rows, columns, values.data()}; }
  bool operator==(Plain const&) const = default;

  int rows;
  int columns;
  Doubles values;
};

void PrintTo(Plain const& a, std::ostream* out) {
  for (int i = 0; i < a.rows; ++i) {
    *out << '\n';
    for (int j = 0; j < a.columns; ++j)
      *out << ' ' << a.At(i, j);
  }
}

template<class Value>
Plain Filled(int rows, int columns, Value value) {
  Plain a(rows, columns);
  for (int j = 0; j < columns; ++j)
    for (int i = 0; i < rows; ++i)
      a.At(i, j) = value(i, j);
  return a;
}

/// Integers of at most two digits: sums of their products are exact in any order.
Plain Integers(int rows, int columns, int seed) {
  return Filled(rows, columns, [&](int i, int j) { return (i * 37 + j * 101 + seed * 53) % 97 - 48; });
}

/// alpha * a * b + beta * c.
Plain Product(double alpha, Plain const& a, Plain const& b, double beta, Plain const& c) {
  return Filled(a.rows, b.columns, [&](int i, int j) {
    double sum = 0.0;
    for (int l = 0; l < a.columns; ++l)
      sum += a.At(i, l) * b.At(l, j);
    return alpha * sum + beta * c.At(i, j);
  });
}
Plain Product(Plain const& a, Plain const& b) { return Product(1.0, a, b, 0.0, Plain(a.rows, b.columns)); }
Plain Transposed(Plain const& a) {
  return Filled(a.columns, a.rows, [&](int i, int j) { return a.At(j, i); });
}
Plain LeadingRows(Plain const& a, int rows) {
  return Filled(rows, a.columns, [&](int i, int j) { return a.At(i, j); });
}

// ---- block matrices
// -----------------------------------------------------------------------------------------

/// How a matrix is cut; a view begins and ends inside blocks of its parent.
struct Cut {
  int rows, columns;
  bool isView = false;
  bool hasGrown = false; ///< made with half of its rows and columns
};
constexpr Cut cuts[] = {{1, 1},
                        {3, 2},
                        {4, 5},
                        {11, 7},
                        {64, 64},
                        {3, 4, true},
                        {5, 3, true},
                        {64, 64, true},
                        {64, 64, false, true},
                        {8, 5, false, true},
                        {12, 8, true, true}};

std::string Text(Cut cut) {
  return std::to_string(cut.rows) + " x " + std::to_string(cut.columns) + (cut.isView ? " view" : "") +
         (cut.hasGrown ? " grown; " : "; ");
}

Plain Contents(ORXSrvDenseMatrix const& matrix) {
  Plain values(matrix.NumberOfRows(), matrix.NumberOfColumns());
  ORXSrvMatrix all = values.Lent();
  matrix.GetValues(0, values.rows - 1, 0, values.columns - 1, all);
  return values;
}

/// A block matrix that may be a view.
class Blocks {
public:
  Blocks(std::unique_ptr<ORXSrvDenseMatrix> parent, std::unique_ptr<ORXSrvDenseMatrix> view)
      : m_parent(std::move(parent)), m_view(std::move(view)) {}
  ORXSrvDenseMatrix& operator*() const { return m_view ? *m_view : *m_parent; }
  ORXSrvDenseMatrix* operator->() const { return &**this; }
  ORXSrvDenseMatrix* Get() const { return &**this; }
  void Set(Plain values) const {
    (*this)->SetValues(0, values.rows - 1, 0, values.columns - 1, values.Lent());
  }

private:
  std::unique_ptr<ORXSrvDenseMatrix> m_parent;
  std::unique_ptr<ORXSrvDenseMatrix> m_view;
};

/// A database in which matrices are made.
class DenseProducts : public testing::Test {
protected:
  DenseProducts() : m_context(NewContext()), m_transaction(m_context.ID()) {}
  ~DenseProducts() override { ORXSrvProgress::Set(nullptr, nullptr); }

  ORXSimDistributionID NewDistribution(int rows, int columns, Cut cut) const {
    auto const set = [&](int size) {
      return ORXSimCollection(m_context.CreateCollection(size, ORXSimTypeID())).BiggestCSetID();
    };
    return ORXSrvUtilities::Create2DDistribution(set(rows), set(columns), cut.rows, cut.columns);
  }
  Blocks Make(Plain const& values, Cut cut) const {
    int const frame = cut.isView ? 2 : 0;
    int const rows = values.rows + 2 * frame;
    int const columns = values.columns + 2 * frame;
    int const missingRows = cut.hasGrown ? rows / 2 : 0;
    int const missingColumns = cut.hasGrown ? columns / 2 : 0;
    auto parent = std::make_unique<ORXSrvDenseMatrix>(
        NewDistribution(rows - missingRows, columns - missingColumns, cut));
    if (missingRows > 0) parent->ExtendDim(1, missingRows, nullptr);
    if (missingColumns > 0) parent->ExtendDim(0, missingColumns, nullptr);
    std::unique_ptr<ORXSrvDenseMatrix> view;
    if (cut.isView)
      view.reset(parent->Submatrix(frame, frame + values.rows - 1, frame, frame + values.columns - 1));
    Blocks blocks(std::move(parent), std::move(view));
    blocks.Set(values);
    return blocks;
  }
  /// The same contents in all cuts.
  std::vector<Blocks> MakeAll(Plain const& values) const {
    std::vector<Blocks> all;
    for (Cut const cut : cuts)
      all.push_back(Make(values, cut));
    return all;
  }

private:
  ORXSimContextID NewContext() {
    m_database.SetDurability(ORXSimDurability::Scratch);
    m_database.CreateFile(ORXUnicodeString("products.sim"), 0, -1);
    return m_database.CreateContext(ORXSimNamespaceID());
  }

  WorkingFolder m_folder;
  ORXSimDatabase m_database;
  ORXSimContext m_context;
  ORXSimTransaction m_transaction;
};

/// Calls check(matrix) for the same 11 x 7 integers in every cut.
template<class Fixture, class Check>
void ForEveryCut(Plain const& values, Fixture make, Check check) {
  for (Cut const cut : cuts) {
    SCOPED_TRACE(Text(cut));
    check(make(values, cut));
  }
}

// ---- products with matrices in memory
// ------------------------------------------------------------------------

TEST_F(DenseProducts, WithOperandsInMemoryEqualPlainLoops) {
  Plain const a = Integers(11, 7, 1);
  Plain const x = Integers(7, 3, 2);
  Plain const old = Integers(11, 3, 3);
  ForEveryCut(
      a, [this](auto... arguments) { return Make(arguments...); },
      [&](Blocks const& blocks) {
        Plain right = x;

        Plain sum = old;
        blocks->Multiply(x.values.data(), 3, sum.values.data());
        EXPECT_EQ(sum, Product(1.0, a, x, 1.0, old));

        Plain product(11, 3, notANumber);
        ORXSrvMatrix target = product.Lent();
        blocks->Multiply(right.Lent(), target);
        EXPECT_EQ(product, Product(a, x));

        Plain square = Integers(7, 7, 4);
        blocks->MultiplyAssign(square.Lent());
        EXPECT_EQ(Contents(*blocks), Product(a, square));
      });
}

TEST_F(DenseProducts, TransposedWithOperandsInMemoryEqualPlainLoops) {
  Plain const a = Integers(11, 7, 1);
  Plain const b = Integers(11, 3, 2);
  ForEveryCut(
      a, [this](auto... arguments) { return Make(arguments...); },
      [&](Blocks const& blocks) {
        Plain right = b;
        for (int const k : {1, 4, 11}) {
          Plain const x = LeadingRows(b, k);
          Plain sum = Integers(7, 3, 3);
          blocks->TransposeMultiply(x.values.data(), 3, sum.values.data(), k);
          EXPECT_EQ(sum, Product(1.0, Transposed(LeadingRows(a, k)), x, 1.0, Integers(7, 3, 3))) << k;
        }

        Plain product(7, 3, notANumber);
        ORXSrvMatrix target = product.Lent();
        blocks->TransposeMultiply(right.Lent(), target, 0);
        EXPECT_EQ(product, Product(Transposed(a), b));

        Plain raw(7, 3, notANumber);
        blocks->TransposeMultiply(right.Lent(), raw.values.data(), 0);
        EXPECT_EQ(raw, product);

        Plain itself = a;
        Plain gram(7, 7, notANumber);
        blocks->TransposeMultiply(itself.Lent(), gram.values.data(), 1);
        EXPECT_EQ(gram, Product(Transposed(a), a));
      });
}

TEST_F(DenseProducts, PermutedRowsGoWhereThePermutationSays) {
  Plain const a = Integers(11, 7, 1);
  int const permutation[] = {3, 0, 9, 1, 10, 2, 4, 8, 7, 6, 5};
  Plain permuted(11, 7);
  for (int j = 0; j < 7; ++j)
    for (int i = 0; i < 11; ++i)
      permuted.At(permutation[i], j) = a.At(i, j);
  ForEveryCut(
      a, [this](auto... arguments) { return Make(arguments...); },
      [&](Blocks const& blocks) {
        for (int const rowsOfB : {11, 4}) {
          Plain b = Integers(rowsOfB, 3, 2);
          Plain const old = Integers(7, 3, 5);
          Plain c = old;
          ORXSrvMatrix target = c.Lent();
          blocks->TransposeMultiply(permutation, b.Lent(), target, 2.0, -1.0);
          EXPECT_EQ(c, Product(2.0, Transposed(LeadingRows(permuted, rowsOfB)), b, -1.0, old));
          blocks->TransposeMultiply(nullptr, b.Lent(), target, 1.0, 0.0);
          EXPECT_EQ(c, Product(Transposed(LeadingRows(a, rowsOfB)), b));
        }
        EXPECT_EQ(Contents(*blocks), a);
      });
}

// ---- products into block matrices
// -------------------------------------------------------------------------------

TEST_F(DenseProducts, OfThreeBlockMatricesEqualPlainLoopsWhateverTheirCuts) {
  Plain const a = Integers(11, 7, 1);
  Plain const b = Integers(7, 9, 2);
  Plain const expected = Product(a, b);
  Plain const nothing(11, 9, notANumber);
  std::vector<Blocks> const as = MakeAll(a);
  std::vector<Blocks> const bs = MakeAll(b);
  std::vector<Blocks> const cs = MakeAll(nothing);

  for (std::size_t i = 0; i < as.size(); ++i)
    for (std::size_t j = 0; j < bs.size(); ++j) {
      for (std::size_t k = 0; k < cs.size(); ++k) {
        cs[k].Set(nothing);
        as[i]->Multiply(*bs[j], *cs[k]);
        ASSERT_EQ(Contents(*cs[k]), expected) << Text(cuts[i]) << Text(cuts[j]) << Text(cuts[k]);
      }
      Plain raw = nothing;
      as[i]->Multiply(bs[j].Get(), raw.values.data());
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
    for (Cut const cut : {Cut{2, 3}, Cut{4, 4, true}, Cut{7, 1, true}}) {
      Plain const a = Integers(s.m, s.k, 1);
      Plain const b = Integers(s.k, s.n, 2);
      Blocks const c = Make(Plain(s.m, s.n, notANumber), cut);
      Make(a, cut)->Multiply(*Make(b, cut), *c);
      EXPECT_EQ(Contents(*c), Product(a, b)) << s.m << ' ' << s.k << ' ' << s.n << ' ' << Text(cut);
    }
}

TEST_F(DenseProducts, TransposedWithABlockMatrixEqualPlainLoops) {
  Plain const a = Integers(11, 7, 1);
  Plain const b = Integers(11, 5, 2);
  Plain const expected = Product(Transposed(a), b);
  std::vector<Blocks> const as = MakeAll(a);
  std::vector<Blocks> const bs = MakeAll(b);

  for (std::size_t i = 0; i < as.size(); ++i) {
    for (std::size_t j = 0; j < bs.size(); ++j) {
      SCOPED_TRACE(Text(cuts[i]) + Text(cuts[j]));
      Blocks const c = Make(Plain(7, 5, notANumber), cuts[j]);
      as[i]->TransposeMultiply(bs[j].Get(), c.Get(), 0);
      EXPECT_EQ(Contents(*c), expected);
      Plain raw(7, 5, notANumber);
      as[i]->TransposeMultiply(bs[j].Get(), raw.values.data(), 0);
      EXPECT_EQ(raw, expected);
    }
    Blocks const gram = Make(Plain(7, 7, notANumber), cuts[i]);
    as[i]->TransposeMultiply(as[i].Get(), gram.Get(), 1);
    EXPECT_EQ(Contents(*gram), Product(Transposed(a), a)) << Text(cuts[i]);
  }
}

TEST_F(DenseProducts, UpdatesOfABlockMatrixScaleItAndAddTheProduct) {
  Plain const a = Integers(11, 7, 1);
  Plain b = Integers(7, 9, 2);
  Plain const old = Integers(11, 9, 3);
  std::vector<Blocks> const as = MakeAll(a);
  std::vector<Blocks> const cs = MakeAll(old);
  for (std::size_t i = 0; i < as.size(); ++i)
    for (std::size_t k = 0; k < cs.size(); ++k) {
      SCOPED_TRACE(Text(cuts[i]) + Text(cuts[k]));
      cs[k].Set(old);
      as[i]->Multiply(2.0, b.Lent(), -3.0, *cs[k]);
      EXPECT_EQ(Contents(*cs[k]), Product(2.0, a, b, -3.0, old));
      cs[k].Set(Plain(11, 9, notANumber));
      as[i]->Multiply(2.0, b.Lent(), 0.0, *cs[k]); // what C held is not read
      EXPECT_EQ(Contents(*cs[k]), Product(2.0, a, b, 0.0, old));
    }

  // A narrower B: the columns beyond it get no product.
  Plain narrow = LeadingRows(b, 7);
  narrow.columns = 2;
  Blocks const c = Make(Plain(11, 3, 5.0), {4, 2});
  as[1]->Multiply(1.0, narrow.Lent(), 0.0, *c);
  Plain const cleared = Contents(*c);
  Plain const product = Product(a, narrow);
  for (int i = 0; i < 11; ++i)
    EXPECT_EQ((Doubles{cleared.At(i, 0), cleared.At(i, 1), cleared.At(i, 2)}),
              (Doubles{product.At(i, 0), product.At(i, 1), 0.0}));
}

TEST_F(DenseProducts, DiagonalFactorsScaleColumnsWithoutAlpha) {
  Plain const a = Integers(5, 3, 1);
  Plain const old = Integers(5, 3, 2);
  ORXSrvMatrix const diagonal = Diagonal({2, -1, 10});
  Plain const full = Filled(3, 3, [&](int i, int j) { return i == j ? diagonal.Values()[i] : 0.0; });
  Blocks const blocks = Make(a, {2, 2});
  for (double const beta : {0.0, 1.0, -2.0}) {
    Blocks const c = Make(beta == 0.0 ? Plain(5, 3, notANumber) : old, {3, 2});
    blocks->Multiply(7.0, diagonal, beta, *c);
    EXPECT_EQ(Contents(*c), Product(1.0, a, full, beta, old)) << beta;
  }
}

TEST_F(DenseProducts, IndexedRowsGoToTheirPositions) {
  Plain const a = Integers(11, 7, 1);
  Plain b = Integers(7, 3, 2);
  Plain const product = Product(a, b);
  int const rowIndex[] = {4, 5, 6, 0, 10, 2, 3};
  int const groupStart[] = {0, 3, 3, 4, 5, 7}; // the second group is empty
  Plain expected(8, 4, -5.0);
  for (int i = 0; i < 7; ++i)
    for (int j = 0; j < 3; ++j)
      expected.At(i, j) = product.At(rowIndex[i], j);
  ForEveryCut(
      a, [this](auto... arguments) { return Make(arguments...); },
      [&](Blocks const& blocks) {
        Blocks const c = Make(Plain(8, 4, -5.0), {3, 2});
        blocks->IndexedMultiply(b.Lent(), *c, rowIndex, groupStart, 5);
        EXPECT_EQ(Contents(*c), expected);
      });
}

// ---- rounding
// ------------------------------------------------------------------------------------------------------

TEST_F(DenseProducts, OfRandomValuesStayWithinTheBoundOfASum) {
  std::mt19937_64 random(7);
  std::uniform_real_distribution<double> uniform(-1.0, 1.0);
  auto const draw = [&](int, int) { return uniform(random); };
  Plain const a = Filled(60, 130, draw);
  Plain const b = Filled(130, 50, draw);
  Blocks const c = Make(Plain(60, 50), {16, 16});
  Make(a, {16, 16})->Multiply(*Make(b, {16, 16}), *c);

  Plain const result = Contents(*c);
  for (int i = 0; i < 60; ++i)
    for (int j = 0; j < 50; ++j) {
      long double sum = 0.0L;
      double magnitudes = 0.0;
      for (int l = 0; l < 130; ++l) {
        sum += static_cast<long double>(a.At(i, l)) * b.At(l, j);
        magnitudes += std::abs(a.At(i, l) * b.At(l, j));
      }
      // Of n products and sums in any order: n rounding units of the sum of magnitudes.
      ASSERT_LE(std::abs(static_cast<double>(result.At(i, j) - sum)), 130 * 0x1p-53 * magnitudes);
    }
}

// ---- operations in place
// --------------------------------------------------------------------------------------------

TEST_F(DenseProducts, AddAssignAndScaleWorkOnEveryValueAndOnNoOther) {
  Plain const a = Integers(11, 7, 1);
  Plain const b = Integers(11, 7, 2);
  std::vector<Blocks> const bs = MakeAll(b);
  for (Cut const cut : cuts)
    for (Blocks const& other : bs) {
      Blocks const blocks = Make(a, cut);
      blocks->AddAssign(*other);
      blocks->Scale(-3.0);
      EXPECT_EQ(Contents(*blocks),
                Filled(11, 7, [&](int i, int j) { return -3.0 * (a.At(i, j) + b.At(i, j)); }))
          << Text(cut);
    }

  ORXSrvDenseMatrix whole(NewDistribution(9, 9, {4, 4}));
  Plain ones(9, 9, 1.0);
  whole.SetValues(0, 8, 0, 8, ones.Lent());
  std::unique_ptr<ORXSrvDenseMatrix> const view(whole.Submatrix(3, 6, 2, 5));
  view->AddAssign(*view);
  view->Scale(4.0);
  EXPECT_EQ(Contents(whole),
            Filled(9, 9, [](int i, int j) { return i >= 3 && i <= 6 && j >= 2 && j <= 5 ? 8.0 : 1.0; }));
}

TEST_F(DenseProducts, IsSymmetricFindsEverySingleDifference) {
  Plain const a = Filled(7, 7, [](int i, int j) { return 3 * (i + j) + i * j; });
  testing::internal::CaptureStdout(); // it is the host's
  for (Cut const cut : {Cut{1, 1}, Cut{3, 3}, Cut{7, 7}, Cut{9, 9}, Cut{3, 2}, Cut{3, 3, true}}) {
    Blocks const blocks = Make(a, cut);
    EXPECT_TRUE(blocks->IsSymmetric()) << Text(cut);
    for (int i = 0; i < 7; ++i)
      for (int j = 0; j < 7; ++j) {
        ORXSrvMatrix cell = Full({{notANumber}});
        blocks->SetValues(i, i, j, j, cell);
        EXPECT_EQ(blocks->IsSymmetric(), i == j) << Text(cut) << i << ' ' << j;
        cell = a.At(i, j);
        blocks->SetValues(i, i, j, j, cell);
      }
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_FALSE(Make(Plain(3, 4), {2, 2})->IsSymmetric());
  EXPECT_TRUE(ORXSrvDenseMatrix().IsSymmetric());
}

/// Blocks that are larger than what is worked on at a time.
TEST_F(DenseProducts, LargeBlocksAreWorkedOnInPieces) {
  Plain const a = Integers(2100, 150, 1);
  Plain x = Integers(150, 2, 2);
  for (Cut const cut : {Cut{2100, 150}, Cut{1500, 7}}) {
    Blocks const blocks = Make(a, cut);
    Plain product(2100, 2, notANumber);
    ORXSrvMatrix target = product.Lent();
    blocks->Multiply(x.Lent(), target);
    EXPECT_EQ(product, Product(a, x)) << Text(cut);
    Blocks const c = Make(Plain(2100, 2, 1.0), {900, 1});
    blocks->Multiply(3.0, x.Lent(), 2.0, *c);
    EXPECT_EQ(Contents(*c), Product(3.0, a, x, 2.0, Plain(2100, 2, 1.0))) << Text(cut);
    blocks->AddAssign(*Make(Plain(2100, 150, 100.0), {64, 64}));
    blocks->Scale(2.0);
    EXPECT_EQ(Contents(*blocks), Filled(2100, 150, [&](int i, int j) { return 2.0 * (a.At(i, j) + 100.0); }))
        << Text(cut);
  }

  Plain const symmetric = Filled(300, 300, [](int i, int j) { return i * j + i + j; });
  Blocks const blocks = Make(symmetric, {170, 170});
  EXPECT_TRUE(blocks->IsSymmetric());
  for (auto const& [i, j] : {std::pair{0, 169}, {299, 0}, {128, 127}, {127, 128}, {298, 299}, {171, 130}}) {
    ORXSrvMatrix cell = Full({{-1}});
    blocks->SetValues(i, i, j, j, cell);
    EXPECT_FALSE(blocks->IsSymmetric()) << i << ' ' << j;
    cell = symmetric.At(i, j);
    blocks->SetValues(i, i, j, j, cell);
  }
}

// ---- slots
// ---------------------------------------------------------------------------------------------------------

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
  WithProductsOfItsOwn const a(NewDistribution(4, 2, {2, 2}));
  Plain b(4, 3);
  Blocks const blocks = Make(b, {2, 2});
  Plain c(2, 3);
  a.TransposeMultiply(b.Lent(), c.values.data(), 1);
  EXPECT_EQ(c, Plain(2, 3, 11.0));
  a.TransposeMultiply(blocks.Get(), c.values.data(), 1);
  EXPECT_EQ(c, Plain(2, 3, 21.0));
  Blocks const target = Make(c, {1, 2});
  a.TransposeMultiply(blocks.Get(), target.Get(), 0);
  EXPECT_EQ(Contents(*target), Plain(2, 3, 20.0));
}

// ---- failures
// -----------------------------------------------------------------------------------------------------

TEST_F(DenseProducts, OfShapesThatDoNotFitFailBeforeAnythingIsWritten) {
  Plain const old(11, 9, 4.0);
  Blocks const a = Make(Integers(11, 7, 1), {4, 3});
  Blocks const b = Make(Integers(7, 9, 2), {4, 3});
  Blocks const shortB = Make(Integers(6, 9, 2), {4, 3});
  Blocks const c = Make(old, {4, 3});
  Blocks const smallC = Make(Plain(11, 8, 4.0), {4, 3});
  Plain y = old;

  EXPECT_EQ(Raised([&] { a->Multiply(*shortB, *c); }), invalidGet);
  EXPECT_EQ(Raised([&] { a->Multiply(shortB.Get(), y.values.data()); }), invalidGet);
  EXPECT_EQ(Raised([&] { a->Multiply(*b, *smallC); }), invalidSet);
  EXPECT_EQ(Raised([&] { a->AddAssign(*b); }), invalidGet);
  EXPECT_EQ(Raised([&] { a->TransposeMultiply(a.Get(), c.Get(), 0); }), invalidSet);
  EXPECT_EQ(Raised([&] { a->TransposeMultiply(y.values.data(), 1, y.values.data(), 12); }), invalidGet);
  EXPECT_EQ(Raised([&] { a->TransposeMultiply(y.values.data(), 1, y.values.data(), -1); }), invalidGet);

  EXPECT_EQ(Contents(*c), old);
  EXPECT_EQ(Contents(*smallC), Plain(11, 8, 4.0));
  EXPECT_EQ(Contents(*a), Integers(11, 7, 1));
  EXPECT_EQ(y, old);
}

TEST_F(DenseProducts, WithBuffersThatAreTooShortFailBeforeAnythingIsWritten) {
  Plain const old(11, 9, 4.0);
  Blocks const a = Make(Integers(11, 7, 1), {4, 3});
  Blocks const c = Make(old, {4, 3});
  ORXSrvMatrix const shortB(6, 3);
  ORXSrvMatrix const wideB(7, 10);
  ORXSrvMatrix const tallB(12, 3);
  ORXSrvMatrix const b(11, 3);
  Plain y(7, 2, 4.0);
  ORXSrvMatrix target = y.Lent();
  int const permutation[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 12};

  EXPECT_EQ(Raised([&] { a->Multiply(shortB, target); }), IllegalInput("Multiply"));
  EXPECT_EQ(Raised([&] { a->Multiply(ORXSrvMatrix(7, 2), target); }), IllegalInput("Multiply"));
  EXPECT_EQ(Raised([&] { a->Multiply(1.0, shortB, 0.0, *c); }), IllegalInput("Multiply"));
  EXPECT_EQ(Raised([&] { a->Multiply(1.0, wideB, 0.0, *c); }), IllegalInput("Multiply"));
  EXPECT_EQ(Raised([&] { a->MultiplyAssign(shortB); }), IllegalInput("MultiplyAssign"));
  EXPECT_EQ(Raised([&] { a->TransposeMultiply(b, target, 0); }), IllegalInput("TransposeMultiply"));
  EXPECT_EQ(Raised([&] { a->TransposeMultiply(nullptr, tallB, target, 1.0, 0.0); }),
            IllegalInput("TransposeMultiply"));
  ORXSrvMatrix wide(7, 3);
  EXPECT_EQ(Raised([&] { a->TransposeMultiply(ORXSrvMatrix(10, 3), wide, 0); }), IllegalInput("GetValues"));
  EXPECT_EQ(Raised([&] { a->TransposeMultiply(permutation, ORXSrvMatrix(11, 2), target, 1.0, 0.0); }),
            "212 ORXSrvMatrix::PermuteRowsInPlace - Illegal perm Vector.");

  EXPECT_EQ(y, Plain(7, 2, 4.0));
  EXPECT_EQ(Contents(*c), old);
  EXPECT_EQ(Contents(*a), Integers(11, 7, 1));
}

TEST_F(DenseProducts, IndexedGroupsAreCheckedBeforeTheFirstIsComputed) {
  Blocks const a = Make(Integers(11, 7, 1), {4, 3});
  Blocks const c = Make(Plain(4, 3, 4.0), {2, 2});
  ORXSrvMatrix const b(7, 3);
  auto const raised = [&](std::vector<int> const& rows, std::vector<int> const& starts) {
    return Raised(
        [&] { a->IndexedMultiply(b, *c, rows.data(), starts.data(), static_cast<int>(starts.size()) - 1); });
  };
  EXPECT_EQ(raised({0, 1, 5, 7}, {0, 2, 4}), IllegalInput("IndexedMultiply"));
  EXPECT_EQ(raised({0, 1, 10, 11}, {0, 2, 4}), invalidGet);
  EXPECT_EQ(raised({0, 1, 2, 3, 4}, {0, 2, 5}), invalidSet);
  EXPECT_EQ(Raised([&] { a->IndexedMultiply(ORXSrvMatrix(7, 4), *c, nullptr, nullptr, 0); }), invalidSet);
  EXPECT_EQ(Contents(*c), Plain(4, 3, 4.0));
}

// ---- progress
// ----------------------------------------------------------------------------------------------------

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
  Blocks const a = Make(Integers(6, 6, 1), {3, 2});
  Plain b = Integers(6, 6, 2);
  Plain c(6, 6);
  ORXSrvMatrix target = c.Lent();
  Host host;
  host.stopAfter = 2; // nothing is left to be stopped then
  ORXSrvProgress::Set(Host::Report, &host);

  a->Multiply(b.Lent(), target);
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
}

TEST_F(DenseProducts, StopBetweenBlocksAndKeepWhatIsFinished) {
  Plain const a = Integers(10, 3, 1);
  Plain b = Integers(3, 3, 2);
  Blocks const blocks = Make(a, {4, 3});
  Blocks const c = Make(Plain(10, 3, 7.0), {4, 3});
  Host host;
  host.stopAfter = 2;
  ORXSrvProgress::Set(Host::Report, &host);

  EXPECT_EQ(Raised([&] { blocks->Multiply(1.0, b.Lent(), 0.0, *c); }),
            "301 ORXSrvDenseMatrix::Multiply stopped by the host after 2 of 3 blocks.");
  EXPECT_EQ(Raised([&] { blocks->MultiplyAssign(b.Lent()); }), "nothing raised");
  Plain const product = Product(a, b);
  EXPECT_EQ(Contents(*c), Filled(10, 3, [&](int i, int j) { return i < 8 ? product.At(i, j) : 7.0; }));
  EXPECT_EQ(Contents(*blocks), product);
}

TEST_F(DenseProducts, PassOnWhatTheHostThrows) {
  Blocks const a = Make(Integers(6, 6, 1), {3, 3});
  ORXSrvProgress::Set(
      [](void*, char const*, std::int64_t, std::int64_t) -> bool { throw std::length_error("x"); }, nullptr);
  EXPECT_THROW(a->Scale(2.0), std::length_error);
  ORXSrvProgress::Set(nullptr, nullptr);
  a->Scale(1.0);
}

// ---- tiles
// -------------------------------------------------------------------------------------------------------

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
