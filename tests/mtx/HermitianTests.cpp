#include "tests/mtx/DenseSupport.h"

#include "mtx/ORXSrvSparseMatrix.h"
#include "tests/support/Shortage.h"

#include <complex>
#include <functional>

// The symmetric scratch matrix: what it does otherwise than matrices that keep all their cells, whose
// contract views of it pass too.

namespace {

using Hermitian = ORXSrvHermitianScrDenseMatrix;
constexpr char mirrorsDiffer[] = "204 ORXSrvDenseMatrix::SetValues invalid range values. ";

Dense SymmetricIntegers(int n, int seed) {
  return Filled(n, n,
                [=](int i, int j) { return (std::min(i, j) * 37 + std::max(i, j) * 101 + seed) % 97 - 48; });
}
Dense Cut(Dense const& a, int firstRow, int lastRow, int firstColumn, int lastColumn) {
  return Filled(lastRow - firstRow + 1, lastColumn - firstColumn + 1,
                [&](int i, int j) { return a(firstRow + i, firstColumn + j); });
}

/// A symmetric matrix or view of order 11 that holds some values.
struct Square {
  char const* name;
  std::unique_ptr<Hermitian> matrix;
};

class HermitianMatrix : public testing::Test {
protected:
  static std::unique_ptr<Hermitian> New(Dense const& values, int chunk) {
    auto matrix = std::make_unique<Hermitian>(values.rows, chunk);
    Set(*matrix, values);
    return matrix;
  }
  static std::unique_ptr<Hermitian> View(ORXSrvDenseMatrix const& parent, int first, int last) {
    DensePtr view = ViewOf(parent, first, last, first, last);
    return std::unique_ptr<Hermitian>(&dynamic_cast<Hermitian&>(*view.release()));
  }
  /// The values in all kinds of symmetric matrices; a view lies in a frame of ones.
  static std::vector<Square> MakeAll(Dense const& values) {
    int const n = values.rows;
    std::vector<Square> all;
    all.push_back({"blocks of one", New(values, 1)});
    all.push_back({"blocks of 4", New(values, 4)});
    all.push_back({"one block", New(values, -1)});
    all.push_back({"a block longer than the matrix", New(values, 64)});
    auto grown = std::make_unique<Hermitian>(n / 2, 4);
    grown->ExtendOrder(2, nullptr);
    grown->ExtendOrder(n - n / 2 - 2, nullptr);
    Set(*grown, values);
    all.push_back({"grown", std::move(grown)});
    auto const parent = New(Constant(n + 4, n + 4, 1.0), 3);
    all.push_back({"view of a view", View(*View(*parent, 1, n + 2), 1, n)});
    Set(*all.back().matrix, values);
    return all;
  }
  template<class Check>
  static void ForAll(Dense const& values, Check check) {
    for (Square const& square : MakeAll(values)) {
      SCOPED_TRACE(square.name);
      check(*square.matrix);
    }
  }

  DenseDatabase m_database; // changes into a folder of its own
};

// ---- products

TEST_F(HermitianMatrix, ProductsEqualPlainLoops) {
  Dense const a = SymmetricIntegers(11, 1), x = Integers(11, 3, 2), old = Integers(11, 3, 3);
  Dense tall = Integers(13, 3, 2); // its leading rows count
  Dense const product = a * x;
  DensePtr const blocks = m_database.New(11, 3, 4, 2);
  Set(*blocks, x);
  ForAll(a, [&](Hermitian& r) {
    Dense right = x, y = old;
    r.Multiply(x.Data(), 3, y.Data());
    EXPECT_EQ(y, product + old);
    y = old;
    r.TransposeMultiply(x.Data(), 3, y.Data(), 11);
    EXPECT_EQ(y, product + old);
    Dense few = Integers(11, 3, 4);
    r.TransposeMultiply(LeadingRows(x, 5).Data(), 3, few.Data(), 5);
    EXPECT_EQ(few, Transposed(LeadingRows(a, 5)) * LeadingRows(x, 5) + Integers(11, 3, 4));

    Dense c = Constant(11, 3, notANumber);
    ORXSrvMatrix target = Lent(c);
    auto const expectProduct = [&](char const* operation) {
      EXPECT_EQ(c, product) << operation;
      target = notANumber;
    };
    r.Multiply(Lent(right), target);
    expectProduct("in memory");
    r.TransposeMultiply(Lent(right), target, 0);
    expectProduct("transposed");
    r.TransposeMultiply(Lent(right), c.Data(), 0);
    expectProduct("into an array");
    r.TransposeMultiply(blocks.get(), target, 0);
    expectProduct("transposed, of a block matrix");
    r.TransposeMultiply(blocks.get(), c.Data(), 0);
    expectProduct("transposed, of a block matrix into an array");
    r.Multiply(blocks.get(), c.Data());
    expectProduct("of a block matrix");

    Dense wide = Constant(13, 4, -7.0);
    ORXSrvMatrix wideTarget = Lent(wide);
    r.TransposeMultiply(Lent(tall), wideTarget, 0);
    EXPECT_EQ(LeadingRows(Cut(wide, 0, 12, 0, 2), 11), a * LeadingRows(tall, 11));
    EXPECT_EQ((Doubles{wide(11, 0), wide(12, 2), wide(0, 3)}), Doubles(3, -7.0));

    DensePtr const into = m_database.New(11, 4, 4, 2);
    Set(*into, Constant(11, 4, notANumber));
    r.Multiply(*blocks, *into);
    EXPECT_EQ(Contents(*ViewOf(*into, 0, 10, 0, 2)), product);
    r.Multiply(2.0, Lent(right), 0.0, *into);
    EXPECT_EQ(Contents(*ViewOf(*into, 0, 10, 0, 2)), 2.0 * product);
    EXPECT_EQ(All(*ViewOf(*into, 0, 10, 3, 3)), Doubles(11));
    Set(*into, Constant(11, 4, 5.0));
    r.Multiply(2.0, Lent(right), -3.0, *into);
    EXPECT_EQ(Contents(*ViewOf(*into, 0, 10, 0, 2)), 2.0 * product + Constant(11, 3, -15.0));
    EXPECT_EQ(All(*ViewOf(*into, 0, 10, 3, 3)), Doubles(11, 5.0));

    Dense square = Constant(11, 11, notANumber), itself = a;
    ORXSrvMatrix gram = Lent(square);
    r.TransposeMultiply(&r, gram, 1);
    EXPECT_EQ(square, a * a);
    r.TransposeMultiply(Lent(itself), gram, 1);
    EXPECT_EQ(square, a * a);
    DensePtr const copy = m_database.New(11, 11, 3, 3);
    r.Multiply(r, *copy);
    EXPECT_EQ(Contents(*copy), a * a);
    EXPECT_EQ(Contents(r), a);
  });
}

TEST_F(HermitianMatrix, ProductsEqualThoseOfAFullCopyUpToRounding) {
  int const n = 700;
  Dense const lower = Random(n, n);
  Dense const a = Filled(n, n, [&](int i, int j) { return lower(std::max(i, j), std::min(i, j)); });
  Dense const x = Random(n, 5);
  for (int const chunk : {150, 256, 700, -1}) {
    auto const r = New(a, chunk);
    ORXSrvScratchDenseMatrix full(n, n, 256, 256);
    full.CopyValues(r.get());
    EXPECT_TRUE(full.IsSymmetric() && r->IsSymmetric());
    EXPECT_EQ(Contents(full), a);
    Dense y = Constant(n, 5, 0.0), z = y;
    r->Multiply(x.Data(), 5, y.Data());
    full.Multiply(x.Data(), 5, z.Data());
    EXPECT_TRUE(Near(z, y, 1e-11)) << chunk;
  }
}

/// Sets the memory for work while it lives.
struct WorkMemory : Uncopied {
  explicit WorkMemory(std::int64_t bytes) { ORXSrvDenseMatrix::SetWorkMemory(bytes); }
  ~WorkMemory() { ORXSrvDenseMatrix::SetWorkMemory(0); }
};

TEST_F(HermitianMatrix, ProductsWithLittleMemoryAreTheSame) {
  Dense const a = SymmetricIntegers(150, 1), b = Integers(150, 300, 2);
  auto const r = New(a, 64);
  DensePtr const blocks = m_database.New(150, 300, 50, 40), c = m_database.New(150, 300, 50, 40);
  Set(*blocks, b);
  for (std::int64_t const bytes : {1, 200000, 2 * 150 * 260 * 8}) {
    WorkMemory const little(bytes);
    r->Multiply(*blocks, *c);
    EXPECT_EQ(Contents(*c), a * b) << bytes;
    Dense y = Constant(150, 300, notANumber);
    ORXSrvMatrix target = Lent(y);
    r->TransposeMultiply(blocks.get(), target, 0);
    EXPECT_EQ(y, a * b) << bytes;
  }
}

TEST_F(HermitianMatrix, ProjectsAndAddsProductsExactlySymmetric) {
  Dense const a = SymmetricIntegers(11, 1), x = Integers(11, 4, 2), d = SymmetricIntegers(4, 5);
  ORXSrvMatrix const weights = Diagonal({2, 0, -1, 3});
  ForAll(a, [&](Hermitian& r) {
    Dense right = x, c = Constant(6, 5, -7.0), form = d;
    ORXSrvMatrix target = Lent(c);
    r.Project(Lent(right), target);
    EXPECT_EQ(Cut(c, 0, 3, 0, 3), Transposed(x) * (a * x));
    EXPECT_EQ((Doubles{c(4, 0), c(0, 4)}), Doubles(2, -7.0));
    r.AddProduct(2.0, Lent(right), Lent(form));
    r.AddProduct(-1.0, Lent(right), weights);
    Dense const sum = 2.0 * d + -1.0 * DenseOf(weights);
    EXPECT_EQ(Contents(r), a + x * (sum * Transposed(x)));
  });
  auto const r = New(Constant(300, 300, 0.0), 77);
  ORXSrvMatrix const vectors = RandomFull(300, 9);
  r->AddProduct(0.1, vectors, Diagonal({1, 2, 3, 4, 5, 6, 7, 8, 9.1}));
  EXPECT_TRUE(r->IsSymmetric());
  ORXSrvMatrix projected(9, 9);
  r->Project(vectors, projected);
  EXPECT_TRUE(projected.IsSymmetricNumerically());
  EXPECT_TRUE(
      Near(Transposed(DenseOf(vectors)) * (Contents(*r) * DenseOf(vectors)), DenseOf(projected), 1e-8));
}

// ---- changes

TEST_F(HermitianMatrix, ScaleAndAddAssignChangeEachStoredCellOnce) {
  Dense const a = SymmetricIntegers(11, 1), b = SymmetricIntegers(11, 7);
  DensePtr const other = m_database.New(11, 11, 4, 3);
  Set(*other, b);
  ForAll(a, [&](Hermitian& r) {
    r.Scale(-3.0);
    EXPECT_EQ(Contents(r), -3.0 * a);
    r.AddAssign(*other);
    EXPECT_EQ(Contents(r), b + -3.0 * a);
    r.AddAssign(*New(a, 3));
    r.AddAssign(r);
    EXPECT_EQ(Contents(r), 2.0 * b + -4.0 * a);
  });
  // Views that hold some cells and their mirror images, and parts of blocks.
  Dense const whole = SymmetricIntegers(13, 3);
  for (auto const& [r1, r2, c1, c2] :
       {std::array{0, 12, 2, 7}, {3, 9, 5, 12}, {5, 12, 0, 8}, {4, 4, 0, 12}, {2, 6, 2, 6}, {0, 3, 9, 12}}) {
    SCOPED_TRACE(testing::Message() << r1 << ' ' << r2 << ' ' << c1 << ' ' << c2);
    auto const r = New(whole, 3);
    DensePtr const view = ViewOf(*r, r1, r2, c1, c2);
    auto const isInside = [&](int i, int j) { return i >= r1 && i <= r2 && j >= c1 && j <= c2; };
    Dense const expected = Filled(
        13, 13, [&](int i, int j) { return (isInside(i, j) || isInside(j, i) ? 2.0 : 1.0) * whole(i, j); });
    view->Scale(2.0);
    EXPECT_EQ(Contents(*r), expected);
    Set(*r, whole);
    view->AddAssign(*view);
    EXPECT_EQ(Contents(*r), expected);
    EXPECT_EQ(dynamic_cast<Hermitian*>(view.get())->IsNull(), false);
    Dense right = Integers(view->NumberOfColumns(), 2, 5), y = Constant(view->NumberOfRows(), 2, 0.0);
    view->Multiply(right.Data(), 2, y.Data());
    EXPECT_EQ(y, Cut(expected, r1, r2, c1, c2) * right);
  }
  auto const large = New(SymmetricIntegers(600, 3), 500); // blocks that are worked on in parts
  large->Scale(2.0);
  large->AddAssign(*large);
  EXPECT_EQ(Contents(*large), 4.0 * SymmetricIntegers(600, 3));
}

TEST_F(HermitianMatrix, WhatWouldDestroySymmetryIsRefusedWithoutEffect) {
  Dense const a = SymmetricIntegers(11, 1), skewed = Integers(11, 11, 2);
  DensePtr const other = m_database.New(11, 11, 4, 3);
  Set(*other, skewed);
  ORXSrvMatrix square = MatrixOf(skewed);
  static int const rows[] = {0, 1, 2}, starts[] = {0, 3};
  ORXSrvSparseMatrix sparse(11, 11);
  sparse.AddData(0, 1, 2.0);
  sparse.EndAssembly();
  ForAll(a, [&](Hermitian& r) {
    struct Change {
      std::string text;
      std::function<void()> run;
    };
    for (Change const& change : std::initializer_list<Change>{
             {IllegalInput("AddAssign"), [&] { r.AddAssign(*other); }},
             {IllegalInput("MultiplyAssign"), [&] { r.MultiplyAssign(square); }},
             {IllegalInput("Multiply"), [&] { other->Multiply(*other, r); }},
             {IllegalInput("Multiply"), [&] { other->Multiply(1.0, square, 1.0, r); }},
             {IllegalInput("IndexedMultiply"), [&] { other->IndexedMultiply(square, r, rows, starts, 1); }},
             {IllegalInput("MultiplyDense"), [&] { sparse.MultiplyDense(*other, r, false); }},
             {IllegalInput("CopyMappedRows"), [&] { r.CopyMappedRows(other.get(), true); }},
             {IllegalInput("AddProduct"), [&] { r.AddProduct(1.0, square, square); }},
             {mirrorsDiffer, [&] { r.CopyValues(other.get()); }},
             {mirrorsDiffer, [&] { other->GetSubmatrix(r, 0, 10, 0, 10); }},
             {mirrorsDiffer, [&] { r.SetColumns(0, 10, square); }},
             {mirrorsDiffer, [&] { other->TransposeMultiply(New(a, 4).get(), &r, 0); }},
             {invalidSet, [&] { r.SetValues(0, 11, 0, 0, square); }}}) {
      EXPECT_TRUE(RaisesFrom(change.text, change.run));
      EXPECT_EQ(Contents(r), a);
    }
    EXPECT_EQ(r.ExtendDim(0, 1, nullptr), r.ExtendOrder(0, nullptr) == 1 ? 1 : 3);
  });
  // The same through the base class on the distribution; and what has no mirror images is free.
  auto const r = New(a, 4);
  ORXSrvDenseMatrix base(r->DistributionID());
  EXPECT_EQ(base.ExtendDim(1, 1, nullptr), 3);
  EXPECT_RAISED(IllegalInput("AddAssign"), base.AddAssign(*other));
  DensePtr const below = ViewOf(base, 6, 10, 0, 4);
  EXPECT_RAISED("nothing raised", below->AddAssign(*ViewOf(*other, 0, 4, 0, 4)));
  EXPECT_EQ(Contents(*ViewOf(*r, 0, 4, 6, 10)), Transposed(Cut(a, 6, 10, 0, 4) + Cut(skewed, 0, 4, 0, 4)));
  // A view and the mirror image of another one are the same cells at other places.
  EXPECT_RAISED(IllegalInput("AddAssign"), below->AddAssign(*ViewOf(*r, 0, 4, 6, 10)));
  EXPECT_RAISED(IllegalInput("Multiply"),
                ViewOf(*r, 0, 4, 6, 10)->Multiply(*ViewOf(*other, 0, 4, 0, 4), *below));
}

TEST_F(HermitianMatrix, ConflictingWritesLeaveEverythingAsItWas) {
  ForAll(Constant(11, 11, 1.0), [](Hermitian& r) {
    Dense const before = Contents(r);
    // Rows 4 to 6, columns 5 to 7: (5, 6) and (6, 5) differ.
    EXPECT_TRUE(RaisesFrom(mirrorsDiffer, [&] { Write(r, 4, 6, 5, 7, {1, 2, 3, 4, 5, 6.5, 7, 8, 9}); }));
    EXPECT_TRUE(RaisesFrom(mirrorsDiffer, [&] {
      Write(r, 4, 6, 5, 7, {1, 2, notANumber, 4, 5, 6, 7, 8, 9});
    }));
    EXPECT_EQ(Contents(r), before);
    Write(r, 4, 6, 5, 7, {1, 2, 3, 4, 3, 6, 7, 8, 9});
    EXPECT_EQ(All(*ViewOf(r, 5, 7, 4, 6)), (Doubles{1, 4, 7, 2, 3, 8, 3, 6, 9}));
    Write(r, 4, 6, 5, 7, {1, 2, notANumber, 4, notANumber, 6, 7, 8, 9});
    EXPECT_TRUE(std::isnan(All(*ViewOf(r, 6, 6, 5, 5))[0]));
  });
}

// ---- shape

TEST_F(HermitianMatrix, GrowsInBothDirectionsWhileViewsExist) {
  Hermitian r(5, 4);
  Set(r, SymmetricIntegers(5, 1));
  auto const view = View(r, 1, 4);
  int const labels[] = {20, 30};
  EXPECT_EQ(r.ExtendOrder(2, labels), 0);
  EXPECT_EQ(r.ExtendOrder(1, labels), 4);
  EXPECT_EQ(r.ExtendOrder(0, nullptr), 2);
  EXPECT_EQ(view->ExtendOrder(1, nullptr), 1);
  EXPECT_EQ(r.ExtendOrder(4, nullptr), 0);
  EXPECT_EQ(SizeOf(r), (std::pair{11, 11}));
  EXPECT_EQ(r.NumberOfRowBlocks(), 3);
  EXPECT_EQ(r.NumberOfColumnsInBlock(2), 3);
  std::vector<int> const expected{0, 1, 2, 3, 4, 20, 30, 7, 8, 9, 10};
  EXPECT_EQ(Labels(r.RowCSetID()), expected);
  EXPECT_EQ(Labels(r.ColumnCSetID()), expected);
  EXPECT_EQ(Contents(r), Filled(11, 11, [](int i, int j) {
              return i < 5 && j < 5 ? SymmetricIntegers(5, 1)(i, j) : 0.0;
            }));
  view->Scale(0.0);
  EXPECT_EQ(All(*ViewOf(r, 1, 1, 0, 4)), (Doubles{SymmetricIntegers(5, 1)(1, 0), 0, 0, 0, 0}));
  EXPECT_EQ(Labels(View(r, 5, 7)->ColumnCSetID()), (std::vector<int>{20, 30, 7}));
  EXPECT_EQ(r.ExtendableDim(), 0);

  Hermitian small(1, 1000);
  for (int k = 0; k < 40; ++k)
    EXPECT_EQ(small.ExtendOrder(50, nullptr), 0);
  EXPECT_EQ(small.NumberOfRowBlocks(), 3);
  EXPECT_EQ(small.NumberOfRowsInBlock(0), 1000);
  ORXSrvMatrix last(1, 1);
  last = 3.0;
  small.SetValues(2000, 2000, 2000, 2000, last);
  Dense x = Constant(2001, 1, 1.0), y = Constant(2001, 1, 0.0);
  small.Multiply(x.Data(), 1, y.Data());
  EXPECT_EQ(y(2000, 0), 3.0);
}

TEST_F(HermitianMatrix, HasAFileOfItsNameThatItsViewsKeep) {
  WorkingFolder const folder;
  auto r = std::make_unique<Hermitian>(3, 2);
  char name[64];
  std::snprintf(name, sizeof name, "ORXSrvHermitianScrDenseMatrix%p.sim", static_cast<void*>(r.get()));
  EXPECT_EQ(folder.Files(), std::set<std::string>{name});
  auto view = View(*r, 0, 1);
  r.reset();
  EXPECT_EQ(All(*view), Doubles(4));
  view.reset();
  EXPECT_TRUE(folder.Files().empty());

  Hermitian const null;
  EXPECT_TRUE(null.IsNull());
  ORXSimCSetID const set = m_database.NewSet(std::vector<int>{4, 9, 2});
  Hermitian const ofSet(set, 2);
  EXPECT_TRUE(ofSet.RowCSetID().Equal(set) && ofSet.ColumnCSetID().Equal(set));
  int const labels[] = {7, 5};
  Hermitian const labelled(2, labels, 2);
  EXPECT_EQ(Labels(labelled.ColumnCSetID()), (std::vector<int>{7, 5}));

  std::set<std::string> const before = folder.Files();
  EXPECT_CODE(viewDoesNotFit, Hermitian(0, 3));
  EXPECT_CODE(viewDoesNotFit, Hermitian(3, 0));
  EXPECT_CODE(invalidArgument, Hermitian(-1, 3));
  EXPECT_CODE(staleIdentifier, Hermitian(ORXSimCSetID(), 3));
  int error = 0;
  {
    FullDisk const full;
    error = CodeOf([] { Hermitian(1000, 100); });
  }
  EXPECT_EQ(error, ORXSimException::writeFailed);
  EXPECT_EQ(folder.Files(), before);
}

// ---- complex matrices

using Complex = std::complex<double>;

/// A Hermitian matrix of integers.
Complex Element(int i, int j) {
  if (i < j) return std::conj(Element(j, i));
  return {(i * 7 + j * 3) % 11 - 5.0, i == j ? 0.0 : (i * 5 + j) % 7 - 3.0};
}

/// Real and imaginary part of a rectangle of f(i, j).
struct Parts {
  template<class Function>
  Parts(int firstRow, int lastRow, int firstColumn, int lastColumn, Function f)
      : real(Filled(lastRow - firstRow + 1, lastColumn - firstColumn + 1,
                    [&](int i, int j) { return f(firstRow + i, firstColumn + j).real(); })),
        imaginary(Filled(real.rows, real.columns,
                         [&](int i, int j) { return f(firstRow + i, firstColumn + j).imag(); })) {}
  Dense real, imaginary;
};

TEST_F(HermitianMatrix, OfComplexNumbersAreTheirRealForm) {
  constexpr int n = 7;
  Hermitian r(2 * n, 3);
  // Lower block columns; what lies above comes with them.
  for (auto const& [first, last] : {std::pair{0, 2}, {3, 3}, {4, 6}}) {
    Parts h(first, n - 1, first, last, Element);
    r.SetHermitian(first, n - 1, first, last, Lent(h.real), Lent(h.imaginary));
  }
  for (auto const& [r1, r2, c1, c2] : {std::array{0, 6, 0, 6}, {0, 2, 4, 6}, {5, 6, 1, 3}, {2, 4, 3, 6}}) {
    Parts const expected(r1, r2, c1, c2, Element);
    Parts got(r1, r2, c1, c2, [](int, int) { return Complex(-99, -99); });
    ORXSrvMatrix real = Lent(got.real), imaginary = Lent(got.imaginary);
    r.GetHermitian(r1, r2, c1, c2, real, imaginary);
    EXPECT_EQ(got.real, expected.real);
    EXPECT_EQ(got.imaginary, expected.imaginary);
  }
  std::vector<Complex> const x{{1, 2}, {-3, 0}, {0, 4}, {5, 5}, {2, -1}, {0, 0}, {-6, 1}};
  Doubles pair(2 * n), product(2 * n);
  for (int i = 0; i < n; ++i)
    pair[i] = x[i].real(), pair[n + i] = x[i].imag();
  r.Multiply(pair.data(), 1, product.data());
  for (int i = 0; i < n; ++i) {
    Complex sum = 0.0;
    for (int j = 0; j < n; ++j)
      sum += Element(i, j) * x[j];
    EXPECT_EQ(Complex(product[i], product[n + i]), sum) << i;
  }
}

TEST_F(HermitianMatrix, RefusesWhatIsNotHermitian) {
  constexpr int n = 5;
  Hermitian r(2 * n, 4);
  Dense const before = Contents(r);
  struct Fault {
    std::string text;
    Complex at13, at31, at22;
  };
  for (Fault const& fault : std::initializer_list<Fault>{
           {"204 ORXSrvDenseMatrix::SetValues invalid range values. Row 3, column 1 of H is not the "
            "conjugate",
            {2, 1},
            {2, 1},
            0},
           {mirrorsDiffer, {2, 1}, {3, -1}, 0},
           {"204 ORXSrvDenseMatrix::SetValues invalid range values. Row 2, column 2 of H",
            {2, 1},
            {2, -1},
            {0, 1}}}) {
    Parts h(0, n - 1, 1, 3, [&](int i, int j) {
      return i == 1 && j == 3   ? fault.at13
             : i == 3 && j == 1 ? fault.at31
             : i == 2 && j == 2 ? fault.at22
                                : Complex(0.0);
    });
    EXPECT_TRUE(
        RaisesFrom(fault.text, [&] { r.SetHermitian(0, n - 1, 1, 3, Lent(h.real), Lent(h.imaginary)); }));
    EXPECT_EQ(Contents(r), before);
  }
  ORXSrvMatrix part(n, n), small(2, 2);
  EXPECT_RAISED(invalidSet, r.SetHermitian(0, n, 0, 0, part, part));
  EXPECT_RAISED(invalidGet, r.GetHermitian(2, 1, 0, 0, part, part));
  EXPECT_RAISED(IllegalInput("SetHermitian"), r.SetHermitian(0, 2, 0, 2, part, small));
  EXPECT_RAISED(IllegalInput("GetHermitian"), r.GetHermitian(0, 2, 0, 2, small, part));
  EXPECT_RAISED(IllegalInput("GetHermitian"), Hermitian(5, 2).GetHermitian(0, 0, 0, 0, small, small));
}

TEST_F(HermitianMatrix, EigenvaluesOfAProjectedComplexOperatorComeInPairs) {
  constexpr int n = 3;
  // H = diag(1, 2, 4) rotated by a unitary matrix: the eigenvalues of its real form are these, twice.
  Complex const u[n][n] = {{0.6, {0.0, 0.8}, 0.0}, {{0.0, 0.8}, 0.6, 0.0}, {0.0, 0.0, {0.0, 1.0}}};
  double const values[] = {1, 2, 4};
  auto const element = [&](int i, int j) {
    Complex sum = 0.0;
    for (int k = 0; k < n; ++k)
      sum += u[i][k] * values[k] * std::conj(u[j][k]);
    return i == j ? Complex(sum.real()) : i > j ? sum : std::conj(sum);
  };
  Hermitian r(2 * n, 2);
  Parts h(0, n - 1, 0, n - 1, [&](int i, int j) { return i < j ? std::conj(element(j, i)) : element(i, j); });
  r.SetHermitian(0, n - 1, 0, n - 1, Lent(h.real), Lent(h.imaginary));
  ORXSrvMatrix identity = MatrixOf(Identity(2 * n, 0)), reduced(2 * n, 2 * n), mass = identity;
  r.Project(identity, reduced);
  ORXSrvMatrix eigenvalues(2 * n, 1), shapes(2 * n, 2 * n);
  reduced.SolveEigenproblemSymmetric(mass, eigenvalues, shapes);
  for (int k = 0; k < 2 * n; ++k)
    EXPECT_NEAR(eigenvalues.Values()[k], values[k / 2], 1e-14) << k;
}

} // namespace
