#include "tests/mtx/DenseSupport.h"

#include "core/mem_Allocator.h"
#include "mtx/ORXSrvProgress.h"
#include "tests/support/Shortage.h"

#include <functional>

namespace {

/// What holds for all operations at the edges: operands without rows or columns, operands that share values,
/// and what the target holds after an error.
class DenseContract : public testing::Test {
protected:
  ~DenseContract() override { ORXSrvProgress::Set(nullptr, nullptr); }

  /// A matrix that holds one value everywhere.
  DensePtr Filled(int rows, int columns, double value) const {
    DensePtr matrix = m_database.New(rows, columns, -1, -1);
    if (rows > 0 && columns > 0) Write(*matrix, 0, rows - 1, 0, columns - 1, Doubles(rows * columns, value));
    return matrix;
  }
  /// 9 x 9 values 100 * i + j.
  DensePtr Numbered() const {
    DensePtr matrix = m_database.New(9, 9, 4, 3);
    Number(*matrix);
    return matrix;
  }

  DenseDatabase m_database;
};

// ---- empty operands

TEST_F(DenseContract, ASumOfNothingIsZero) {
  DensePtr const a = Filled(3, 0, 0), b = Filled(0, 2, 0);
  ORXSrvMatrix const nothing(0, 2);
  Doubles const zeros(6);
  int const rows[] = {0, 1, 2}, starts[] = {0, 3};
  auto const after = [&](auto const& multiply) {
    DensePtr const c = Filled(3, 2, 5);
    multiply(*c);
    return All(*c);
  };
  EXPECT_EQ(after([&](auto& c) { a->Multiply(2.0, nothing, 0.0, c); }), zeros) << "C = A * B";
  EXPECT_EQ(after([&](auto& c) { a->Multiply(2.0, nothing, -2.0, c); }), Doubles(6, -10.0)) << "beta * C";
  EXPECT_EQ(after([&](auto& c) { a->Multiply(2.0, Diagonal({}), 3.0, c); }), Doubles(6, 15.0)) << "diagonal";
  EXPECT_EQ(after([&](auto& c) { a->Multiply(*b, c); }), zeros) << "three block matrices";
  EXPECT_EQ(after([&](auto& c) { a->IndexedMultiply(nothing, c, rows, starts, 1); }), zeros)
      << "indexed rows";

  ORXSrvMatrix inMemory(3, 2);
  inMemory = 5.0;
  a->Multiply(nothing, inMemory);
  EXPECT_EQ(Stored(inMemory), zeros);
  Doubles y(6, 5.0);
  a->Multiply(b.get(), y.data());
  EXPECT_EQ(y, zeros);
  y.assign(6, 5.0);
  a->Multiply(nothing.Values(), 2, y.data());
  EXPECT_EQ(y, Doubles(6, 5.0)) << "nothing is added";
}

TEST_F(DenseContract, ATransposedSumOfNothingIsZero) {
  DensePtr const a = Filled(0, 3, 0), b = Filled(0, 2, 0);
  ORXSrvMatrix const nothing(0, 2);
  Doubles const zeros(6);
  ORXSrvMatrix c(3, 2);

  for (double const beta : {0.0, -2.0}) {
    c = 5.0;
    a->TransposeMultiply(nullptr, nothing, c, 1.0, beta);
    EXPECT_EQ(Stored(c), Doubles(6, 5.0 * beta));
    c = 5.0;
    Filled(4, 3, 1)->TransposeMultiply(nullptr, nothing, c, 1.0, beta);
    EXPECT_EQ(Stored(c), Doubles(6, 5.0 * beta)) << "none of the rows takes part";
  }
  c = 5.0;
  a->TransposeMultiply(nothing, c, 0);
  EXPECT_EQ(Stored(c), zeros);
  c = 5.0;
  a->TransposeMultiply(b.get(), c, 0);
  EXPECT_EQ(Stored(c), zeros);
  DensePtr const inFile = Filled(3, 2, 5);
  a->TransposeMultiply(b.get(), inFile.get(), 0);
  EXPECT_EQ(All(*inFile), zeros);
}

TEST_F(DenseContract, OperationsOnNothingDoNothing) {
  for (auto const& [rows, columns] : {std::pair{3, 0}, {0, 3}, {0, 0}}) {
    SCOPED_TRACE(std::to_string(rows) + " x " + std::to_string(columns));
    DensePtr const a = Filled(rows, columns, 0), b = Filled(rows, columns, 0);
    ORXSrvMatrix sum(rows, columns);
    EXPECT_EQ(Raised([&] {
                a->Scale(2.0);
                a->AddAssign(*b);
                a->CopyValues(b.get());
                a->CopyMappedRows(b.get(), true);
                a->MultiplyAssign(ORXSrvMatrix(columns, columns));
                sum.Add(1.0, *a);
              }),
              "nothing raised");
    EXPECT_EQ(a->IsSymmetric(), rows == columns);
  }
  DensePtr const target = Filled(3, 2, 5);
  target->CopyMappedRows(Filled(0, 2, 0).get(), true);
  EXPECT_EQ(All(*target), Doubles(6)) << "no label is matched";
}

// ---- operands that share values

struct Window {
  int firstRow, lastRow, firstColumn, lastColumn;
};
DensePtr ViewOf(ORXSrvDenseMatrix const& parent, Window const& window) {
  return ViewOf(parent, window.firstRow, window.lastRow, window.firstColumn, window.lastColumn);
}

/// An operation of a target and a source of 4 x 4.
struct Binary {
  char const* name;
  std::function<void(ORXSrvDenseMatrix& target, ORXSrvDenseMatrix const& source)> run;
};

Binary const elementwise[] = {
    {"AddAssign", [](auto& target, auto& source) { target.AddAssign(source); }},
    {"CopyValues", [](auto& target, auto& source) { target.CopyValues(&source); }},
    {"GetSubmatrix", [](auto& target, auto& source) { source.GetSubmatrix(target, 0, 3, 0, 3); }},
    {"CopyMappedRows", [](auto& target, auto& source) { target.CopyMappedRows(&source, true); }},
    {"Multiply",
     [](auto& target, auto& source) {
       source.Multiply(1.0, Diagonal({2, 2, 2, 2}), 1.0, target);
     }},
};

TEST_F(DenseContract, ElementwiseOperationsTakeTheSameValuesButNotShiftedOnes) {
  Window const place{3, 6, 2, 5};
  for (Binary const& operation : elementwise)
    for (Window const& other : {place, Window{4, 7, 2, 5}, Window{3, 6, 3, 6}, Window{2, 5, 1, 4},
                                Window{5, 8, 5, 8}, Window{0, 3, 5, 8}}) {
      SCOPED_TRACE(std::string(operation.name) + ", rows from " + std::to_string(other.firstRow));
      DensePtr const all = Numbered();
      Doubles const before = All(*all);
      DensePtr const target = ViewOf(*all, place), source = ViewOf(*all, other);
      bool const isSame = other.firstRow == place.firstRow && other.firstColumn == place.firstColumn;

      std::string const text = Raised([&] { operation.run(*target, *source); });

      if (!isSame) {
        EXPECT_EQ(text, IllegalInput(operation.name));
        EXPECT_EQ(All(*all), before);
        continue;
      }
      DensePtr const expected = m_database.New(4, 4, 4, 3);
      expected->CopyValues(ViewOf(*Numbered(), 3, 6, 2, 5).get());
      DensePtr const copy = m_database.New(4, 4, 4, 3);
      copy->CopyValues(expected.get());
      if (std::string(operation.name) != "CopyMappedRows") operation.run(*expected, *copy);
      EXPECT_EQ(text, "nothing raised");
      EXPECT_EQ(All(*target), All(*expected));
    }
}

TEST_F(DenseContract, ViewsThatOnlyTouchShareNothing) {
  for (Binary const& operation : elementwise)
    for (Window const& other : {Window{0, 3, 0, 3}, Window{4, 7, 4, 7}, Window{0, 3, 4, 7}}) {
      DensePtr const all = Numbered();
      DensePtr const target = ViewOf(*all, 4, 7, 0, 3), source = ViewOf(*all, other);
      EXPECT_RAISED("nothing raised", operation.run(*target, *source)) << operation.name;
    }
}

TEST_F(DenseContract, ProductsDoNotWriteWhatTheyRead) {
  DensePtr const all = Numbered();
  Doubles const before = All(*all);
  DensePtr const a = ViewOf(*all, 0, 3, 0, 3), b = ViewOf(*all, 4, 7, 4, 7);
  DensePtr const overlapsBoth = ViewOf(*all, 3, 6, 3, 6);
  std::string const refused = IllegalInput("Multiply");
  EXPECT_RAISED(refused, a->Multiply(*b, *b));
  EXPECT_RAISED(refused, a->Multiply(*b, *a));
  EXPECT_RAISED(refused, a->Multiply(*b, *overlapsBoth));
  EXPECT_RAISED(refused, ORXSrvDenseMatrix(all->DistributionID()).Multiply(*all, *all));
  EXPECT_EQ(All(*all), before);
  // Rows that go to other places of the same matrix are overwritten before they are read.
  int const starts[] = {0, 2, 4};
  int const exchanged[] = {2, 3, 0, 1};
  EXPECT_RAISED(IllegalInput("IndexedMultiply"),
                a->IndexedMultiply(ORXSrvMatrix(4, 4), *a, exchanged, starts, 2));
  EXPECT_EQ(All(*all), before);
  int const inPlace[] = {0, 1, 2, 3};
  ORXSrvMatrix twice = Full({{2, 0, 0, 0}, {0, 2, 0, 0}, {0, 0, 2, 0}, {0, 0, 0, 2}});
  a->IndexedMultiply(twice, *a, inPlace, starts, 2);
  EXPECT_EQ(All(*ViewOf(*all, 3, 3, 0, 3)), (Doubles{600, 602, 604, 606}));
  // This one is computed in memory before it is written.
  DensePtr const gram = m_database.New(4, 4, 2, 2);
  b->TransposeMultiply(b.get(), gram.get(), 0);
  b->TransposeMultiply(b.get(), b.get(), 0);
  EXPECT_EQ(All(*b), All(*gram));
}

TEST_F(DenseContract, BuffersThatOverlapAreRefused) {
  DensePtr const a = m_database.New(4, 4, 3, 3);
  Number(*a);
  Doubles memory(16 + 8, 1.0);
  ORXSrvMatrix b(4, 2, memory.data());
  for (int const offset : {0, 1, 7}) {
    double* const at = memory.data() + offset;
    ORXSrvMatrix c(4, 2, at);
    EXPECT_RAISED(IllegalInput("Multiply"), a->Multiply(b, c));
    EXPECT_RAISED(IllegalInput("Multiply"), a->Multiply(at, 2, memory.data()));
    std::string const refused = IllegalInput("TransposeMultiply");
    EXPECT_RAISED(refused, a->TransposeMultiply(b, c, 0));
    EXPECT_RAISED(refused, a->TransposeMultiply(b, at, 0));
    EXPECT_RAISED(refused, a->TransposeMultiply(nullptr, b, c, 1.0, 1.0));
    EXPECT_RAISED(refused, a->TransposeMultiply(memory.data(), 2, at, 4));
  }
  EXPECT_EQ(memory, Doubles(24, 1.0));
  ORXSrvMatrix next(4, 2, memory.data() + 8);
  EXPECT_RAISED("nothing raised", a->Multiply(b, next));
  EXPECT_EQ(memory[8], 0.0 + 1 + 2 + 3);
}

// ---- after an error

/// The host stops the operation as soon as a block is reported: an error in its midst.
TEST_F(DenseContract, AnErrorLeavesFinishedBlocksAndWhatWasThere) {
  static int const rows[] = {0, 1, 2, 3, 4, 5, 6, 7};
  static int const starts[] = {0, 2, 4, 8};
  static ORXSrvMatrix const square = Full({{1, 2}, {3, 4}});
  struct Update { // of an 8 x 2 matrix of row blocks of 2 rows
    char const* name;
    int blocksDone; // when the host has stopped it after the first report
    std::function<void(ORXSrvDenseMatrix& target, ORXSrvDenseMatrix const& a)> run;
  };
  Update const updates[] = {
      {"AddAssign", 1, [](auto& c, auto& a) { c.AddAssign(a); }},
      {"Scale", 1, [](auto& c, auto&) { c.Scale(3.0); }},
      {"MultiplyAssign", 1, [](auto& c, auto&) { c.MultiplyAssign(square); }},
      {"Multiply into blocks", 1, [](auto& c, auto& a) { a.Multiply(2.0, square, 1.0, c); }},
      {"IndexedMultiply", 1, [](auto& c, auto& a) { a.IndexedMultiply(square, c, rows, starts, 3); }},
      {"TransposeMultiply", 0,
       [](auto& c, auto& a) {
         ViewOf(a, 0, 7, 0, 1)->TransposeMultiply(&a, ViewOf(c, 0, 1, 0, 1).get(), 0);
       }},
  };
  for (Update const& update : updates) {
    SCOPED_TRACE(update.name);
    DensePtr const a = m_database.New(8, 2, 2, 1), stopped = m_database.New(8, 2, 2, 2);
    DensePtr const finished = m_database.New(8, 2, 2, 2);
    for (DensePtr const& matrix : {std::cref(a), std::cref(stopped), std::cref(finished)})
      Number(*matrix);
    Doubles const before = All(*a);
    update.run(*finished, *a);

    ORXSrvProgress::Set([](void*, char const*, std::int64_t, std::int64_t) { return false; }, nullptr);
    std::string const text = Raised([&] { update.run(*stopped, *a); });
    ORXSrvProgress::Set(nullptr, nullptr);

    EXPECT_EQ(text.substr(0, 4), "301 ");
    Doubles expected = before;
    for (int j = 0; j < 2; ++j)
      for (int i = 0; i < 2 * update.blocksDone; ++i)
        expected[8 * j + i] = All(*finished)[8 * j + i];
    EXPECT_EQ(All(*stopped), expected);
    EXPECT_EQ(All(*a), before);
    EXPECT_NE(All(*finished), before);
  }
}

// ---- memory

/// Sets the memory for work while it lives.
struct WorkMemory : Uncopied {
  explicit WorkMemory(std::int64_t bytes) { ORXSrvDenseMatrix::SetWorkMemory(bytes); }
  ~WorkMemory() { ORXSrvDenseMatrix::SetWorkMemory(0); }
};

/// Values whose sums of products are exact in any order.
DensePtr Integers(DenseDatabase const& database, int rows, int columns, int chunk) {
  DensePtr matrix = database.New(rows, columns, chunk, chunk);
  Doubles values;
  for (int k = 0; k < rows * columns; ++k)
    values.push_back(k * 37 % 23 - 11);
  Write(*matrix, 0, rows - 1, 0, columns - 1, values);
  return matrix;
}

TEST_F(DenseContract, ProductsWithLittleMemoryAreTheSame) {
  for (int const chunk : {-1, 50, 100}) {
    SCOPED_TRACE(chunk);
    DensePtr const a = Integers(m_database, 150, 140, chunk);
    DensePtr const b = Integers(m_database, 140, 160, chunk);
    ORXSrvMatrix square(140, 140);
    b->GetColumns(0, 139, square);
    ORXSrvMatrix right(150, 3);
    a->GetColumns(0, 2, right);
    auto const results = [&] {
      std::vector<Doubles> all;
      DensePtr const c = m_database.New(150, 160, chunk, chunk);
      a->Multiply(*b, *c);
      all.push_back(All(*c));
      DensePtr const d = m_database.New(150, 140, chunk, chunk);
      a->Multiply(2.0, square, 0.0, *d);
      d->MultiplyAssign(square);
      all.push_back(All(*d));
      Doubles y(150 * 160);
      a->Multiply(b.get(), y.data());
      all.push_back(y);
      ORXSrvMatrix gram(140, 140);
      a->TransposeMultiply(a.get(), gram, 1);
      all.push_back(Stored(gram));
      ORXSrvMatrix narrow(140, 3);
      a->TransposeMultiply(nullptr, right, narrow, 1.0, 0.0);
      all.push_back(Stored(narrow));
      DensePtr const copy = m_database.New(150, 140, chunk, chunk);
      copy->CopyValues(a.get());
      a->GetSubmatrix(*copy, 0, 149, 0, 139);
      all.push_back(All(*copy));
      return all;
    };
    std::vector<Doubles> const expected = results();
    EXPECT_EQ(expected[0], expected[2]);
    for (std::int64_t const bytes : {std::int64_t{1}, std::int64_t{200000}}) {
      WorkMemory const little(bytes);
      EXPECT_EQ(results(), expected) << bytes << " bytes";
    }
  }
}

#ifndef __SANITIZE_ADDRESS__
/// Ends with 0 when the call raises mem_OutOfMemory, and succeeds once there is memory.
template<class Call>
[[noreturn]] void ExitAfterShortage(Call call) {
  alarm(60); // it used to wait for ever
  bool isRefused = false;
  try {
    ShortOfMemory const shortage(100);
    call();
  } catch (mem_OutOfMemory const&) {
    isRefused = true;
  }
  call();
  std::exit(isRefused ? 0 : 1);
}

TEST(ProductMemoryDeathTest, ProductsAreRefusedWhenTheBlasCannotHaveItsMemory) {
  testing::FLAGS_gtest_death_test_style = "threadsafe"; // in a process in which nothing was multiplied yet
  ORXSrvMatrix a(200, 200), c(200, 200);
  a = 1.0;
  std::vector<int> pivots(200);
  EXPECT_EXIT(ExitAfterShortage([&] { c.Multiply(a, a); }), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(ExitAfterShortage([&] { a.Factorize(pivots.data()); }), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(ExitAfterShortage([&] {
                DenseDatabase const database;
                DensePtr const blocks = database.New(200, 200, 100, 100);
                blocks->Multiply(a, c);
              }),
              testing::ExitedWithCode(0), "");
}
#endif

TEST(WorkMemory, IsHalfOfWhatThereIsUntilItIsSet) {
  std::int64_t const usual = ORXSrvDenseMatrix::WorkMemory();
  EXPECT_GT(usual, std::int64_t{16} << 20);
  {
    WorkMemory const some(12345);
    EXPECT_EQ(ORXSrvDenseMatrix::WorkMemory(), 12345);
  }
  EXPECT_EQ(ORXSrvDenseMatrix::WorkMemory(), usual);
}

} // namespace
