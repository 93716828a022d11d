#include "tests/mtx/DenseSupport.h"

#include "file/PositionedFile.h"

#include <climits>

namespace {

using Ints = std::vector<int>;

/// A packed rectangle of a column-major array with `rows` rows.
Doubles Part(Doubles const& all, int rows, int firstRow, int lastRow, int firstColumn, int lastColumn) {
  Doubles part;
  for (int j = firstColumn; j <= lastColumn; ++j)
    for (int i = firstRow; i <= lastRow; ++i)
      part.push_back(all[j * rows + i]);
  return part;
}

Doubles Read(ORXSrvDenseMatrix const& a, int firstRow, int lastRow, int firstColumn, int lastColumn) {
  // One value more than the rectangle has: it must stay.
  Doubles values(((lastRow - firstRow + 1) * (lastColumn - firstColumn + 1)) + 1, -1.0);
  ORXSrvMatrix target(static_cast<int>(values.size()), 1, values.data());
  a.GetValues(firstRow, lastRow, firstColumn, lastColumn, target);
  EXPECT_EQ(values.back(), -1.0);
  values.pop_back();
  return values;
}

/// Calls visit(first, last) for each range inside 0 ... size-1.
template<class Visit>
void ForEachRange(int size, Visit visit) {
  for (int first = 0; first < size; ++first)
    for (int last = first; last < size; ++last)
      visit(first, last);
}

/// Contract of every kind of matrix: 11 x 7 or 11 x 1 values, element (i, j) is 100 * i + j.
class DenseAccess : public testing::TestWithParam<DenseKind> {
protected:
  DenseAccess() : m_a(m_database.New(GetParam(), 11, 7)) {
    Number(*m_a);
    m_values = All(*m_a);
  }
  int Rows() const { return m_a->NumberOfRows(); }
  int Columns() const { return m_a->NumberOfColumns(); }
  /// All values of the distribution, of which a view is a part.
  Doubles InDatabase() const { return All(ORXSrvDenseMatrix(m_a->DistributionID())); }

  DenseDatabase m_database;
  DensePtr m_a;
  Doubles m_values;
};

TEST_P(DenseAccess, EveryRectangleIsReadPacked) {
  ASSERT_EQ(m_values[10], 1000.0);
  ForEachRange(Rows(), [&](int r1, int r2) {
    ForEachRange(Columns(), [&](int c1, int c2) {
      ASSERT_EQ(Read(*m_a, r1, r2, c1, c2), Part(m_values, Rows(), r1, r2, c1, c2))
          << r1 << " " << r2 << " " << c1 << " " << c2;
    });
  });
}

TEST_P(DenseAccess, EveryWriteChangesItsRectangleOnly) {
  Doubles const stored = InDatabase();
  int const storedRows = ORXSrvDenseMatrix(m_a->DistributionID()).NumberOfRows();
  auto const [row, column] = DenseDatabase::OriginOf(GetParam(), Rows(), Columns());
  using Handle = DenseKind::Handle;
  bool const isMirrored =
      GetParam().handle == Handle::BelowDiagonal || GetParam().handle == Handle::AboveDiagonal;
  ForEachRange(Rows(), [&](int r1, int r2) {
    ForEachRange(Columns(), [&](int c1, int c2) {
      Doubles expected = stored, part;
      for (int j = c1; j <= c2; ++j)
        for (int i = r1; i <= r2; ++i) {
          part.push_back(-1.0 - static_cast<double>(part.size()));
          expected[(j + column) * storedRows + i + row] = part.back();
          if (isMirrored) expected[(i + row) * storedRows + j + column] = part.back();
        }
      Write(*m_a, r1, r2, c1, c2, part);
      ASSERT_EQ(InDatabase(), expected) << r1 << " " << r2 << " " << c1 << " " << c2;
      Write(*m_a, r1, r2, c1, c2, Part(m_values, Rows(), r1, r2, c1, c2));
    });
  });
}

TEST_P(DenseAccess, RowsAndColumnsAreWholeRectangles) {
  int const lastColumn = Columns() - 1;
  ORXSrvMatrix rows(3, Columns());
  m_a->GetRows(4, 6, rows);
  EXPECT_EQ(Stored(rows), Part(m_values, 11, 4, 6, 0, lastColumn));
  rows = -1.0;
  m_a->SetRows(8, 10, rows);
  EXPECT_EQ(Read(*m_a, 8, 10, 0, lastColumn), Stored(rows));

  ORXSrvMatrix column(11, 1);
  m_a->GetColumns(lastColumn, lastColumn, column);
  EXPECT_EQ(column.Values()[7], 700.0 + lastColumn);
  column = -2.0;
  m_a->SetColumns(0, 0, column);
  EXPECT_EQ(Read(*m_a, 0, 10, 0, 0), Doubles(11, -2.0));
}

TEST_P(DenseAccess, WhatDoesNotFitIsRefusedWithoutEffect) {
  ORXSrvMatrix buffer(20, 20);
  buffer = -1.0;
  Doubles const before = InDatabase();
  int const rows = Rows(), columns = Columns();
  int const ranges[][4] = {{-1, 0, 0, 0},      {0, rows, 0, 0},   {0, 0, -1, 0},      {0, 0, 0, columns},
                           {2, 1, 0, 0},       {0, 0, 0, -1},     {INT_MIN, 0, 0, 0}, {0, INT_MAX, 0, 0},
                           {rows, rows, 0, 0}, {0, INT_MIN, 0, 0}};
  for (auto const& [r1, r2, c1, c2] : ranges) {
    EXPECT_RAISED(invalidGet, m_a->GetValues(r1, r2, c1, c2, buffer)) << r1 << " " << r2;
    EXPECT_RAISED(invalidSet, m_a->SetValues(r1, r2, c1, c2, buffer)) << r1 << " " << r2;
  }
  ORXSrvMatrix small(2, 2);
  EXPECT_CODE(viewDoesNotFit, m_a->GetValues(0, 4, 0, 0, small));
  EXPECT_CODE(viewDoesNotFit, m_a->SetValues(0, 4, 0, 0, small));

  EXPECT_EQ(Stored(buffer), Doubles(400, -1.0));
  EXPECT_EQ(InDatabase(), before);
}

TEST_P(DenseAccess, CopiesGoBetweenAllKinds) {
  for (DenseKind const& kind : denseKinds) {
    SCOPED_TRACE(kind.name);
    DensePtr const other = m_database.New(kind, 11, Columns());
    if (other->NumberOfColumns() != Columns()) continue;
    other->CopyValues(m_a.get());
    EXPECT_EQ(All(*other), m_values);

    DensePtr const part = m_database.New(kind, 5, std::max(Columns() - 2, 1));
    int const c1 = Columns() > 1 ? 1 : 0;
    m_a->GetSubmatrix(*part, 3, 7, c1, c1 + part->NumberOfColumns() - 1);
    EXPECT_EQ(All(*part), Part(m_values, 11, 3, 7, c1, c1 + part->NumberOfColumns() - 1));
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, DenseAccess, testing::ValuesIn(denseKinds),
                         [](auto const& kind) { return kind.param.name; });

// ---- failures of the write

class DenseValues : public testing::Test {
protected:
  DensePtr Labelled(Ints const& labels, int columns, int columnChunk) const {
    return std::make_unique<ORXSrvDenseMatrix>(ORXSrvUtilities::Create2DDistribution(
        m_database.NewSet(labels), m_database.NewSet(columns), -1, columnChunk));
  }

  DenseDatabase m_database;
};

/// While it lives, writes to files end with a database error of that code.
class FailingWrites : Uncopied {
public:
  explicit FailingWrites(std::uint16_t code) {
    orx::file::SetFaultHook([code](orx::file::FileStep const& step) -> int {
      if (step.kind == orx::file::FileStep::Kind::Write) throw ORXSimException(code, "on purpose");
      return 0;
    });
  }
  ~FailingWrites() { orx::file::SetFaultHook(nullptr); }
};

TEST_F(DenseValues, AWriteThatFailsIsReportedWhateverFailed) {
  DensePtr const a = m_database.New(1000, 1, -1, -1);
  ORXSrvMatrix ones(1000, 1);
  ones = 1.0;
  for (std::uint16_t const code :
       {ORXSimException::writeFailed, ORXSimException::damaged, ORXSimException::internalError}) {
    FailingWrites const failing(code);
    std::string const text = Raised([&] { a->SetColumns(0, 0, ones); });
    EXPECT_EQ(text.rfind("208 Error at writing to file: ORXSrvDenseMatrix::SetValues\n", 0), 0u) << text;
  }
  EXPECT_EQ(All(*a), Doubles(1000));
  EXPECT_RAISED("nothing raised", a->SetColumns(0, 0, ones));
  EXPECT_EQ(All(*a), Stored(ones));
}

TEST_F(DenseValues, ReadOnlyFileIsAWriteFailureAndAClosedOneIsStale) {
  DensePtr a = m_database.New(3, 1, -1, -1);
  Write(*a, 0, 2, 0, 0, {1, 2, 3});
  m_database.Close();
  ORXSrvMatrix buffer(3, 1);
  EXPECT_CODE(staleIdentifier, a->SetValues(0, 2, 0, 0, buffer));
  EXPECT_CODE(staleIdentifier, a->GetValues(0, 2, 0, 0, buffer));

  ORXSimDatabase readOnly;
  readOnly.OpenFile(ORXUnicodeString("dense.sim"), true);
  ORXSrvDenseMatrix same(ORXSimContext(readOnly.Contexts()[0]).Distributions()[0]);
  EXPECT_EQ(Raised([&] { same.SetValues(0, 2, 0, 0, buffer); }).rfind("208 ", 0), 0u);
  EXPECT_EQ(All(*ViewOf(same, 1, 2, 0, 0)), (Doubles{2, 3}));
}

TEST_F(DenseValues, DiagonalMatrixLendsWhatItHas) {
  DensePtr const a = m_database.New(3, 3, -1, -1);
  ORXSrvMatrix diagonal = Diagonal({1, 2, 3});
  a->SetValues(0, 2, 1, 1, diagonal);
  EXPECT_EQ(All(*a), (Doubles{0, 0, 0, 1, 2, 3, 0, 0, 0}));
  EXPECT_CODE(viewDoesNotFit, a->GetValues(0, 1, 0, 1, diagonal));
}

// ---- whole matrix into memory

//      0  1  2
//     10 11 12
//     20 21 22
TEST_F(DenseValues, TrianglesArePacked) {
  DensePtr const a = m_database.New(3, 3, 2, 2);
  Write(*a, 0, 2, 0, 2, {0, 10, 20, 1, 11, 21, 2, 12, 22});
  Doubles out(6);
  a->GetUpperValues(out.data());
  EXPECT_EQ(out, (Doubles{0, 1, 11, 2, 12, 22}));
  a->GetLowerValues(out.data());
  EXPECT_EQ(out, (Doubles{0, 10, 11, 20, 21, 22}));
  a->GetSymmetricValues(out.data());
  EXPECT_EQ(out, (Doubles{0, 5.5, 11, 11, 16.5, 22}));
}

TEST_F(DenseValues, TrianglesOfOtherShapesStayInsideTheirBuffers) {
  for (auto const& [rows, columns] : {std::pair{1, 4}, {2, 3}, {4, 2}}) {
    DensePtr const a = m_database.New(rows, columns, -1, -1);
    Number(*a);
    Doubles out((columns * (columns + 1) / 2) + 1, -1.0);
    a->GetLowerValues(out.data());
    a->GetSymmetricValues(out.data());
    EXPECT_EQ(out.back(), -1.0);
    a->GetUpperValues(out.data());
    EXPECT_EQ(out.back(), -1.0);
    EXPECT_EQ(out[1], 1.0) << "element (0, 1)";
  }
}

TEST_F(DenseValues, RowsAreScatteredByTheMap) {
  DensePtr const a = m_database.New(2, 2, 1, 1);
  Write(*a, 0, 1, 0, 1, {5, 7, 6, 8});
  ORXSrvMatrix target(3, 2);
  target = -1.0;
  int const map[] = {2, 0};
  a->CopyRowsToMemory(map, 3, target);
  EXPECT_EQ(Stored(target), (Doubles{7, 0, 5, 8, 0, 6}));
}

TEST_F(DenseValues, SumInMemoryTakesEveryBlock) {
  for (int const chunk : {1, 2, 3, 64}) {
    DensePtr const a = m_database.New(3, 3, chunk, chunk);
    Write(*a, 0, 2, 0, 2, {0, 10, 20, 1, 11, 21, 2, 12, 22});
    ORXSrvMatrix full(4, 3);
    full = 1.0;
    full.Add(2.0, *a);
    EXPECT_EQ(Stored(full), (Doubles{1, 21, 41, 1, 3, 23, 43, 1, 5, 25, 45, 1}));
    full.Add(0.0, *a);
    EXPECT_EQ(full.Values()[0], 1.0);

    ORXSrvMatrix symmetric(3, 3, nullptr, true);
    symmetric = 1.0;
    symmetric.Add(1.0, *a);
    EXPECT_EQ(Stored(symmetric), (Doubles{1, 2, 3, 2, 12, 13, 3, 13, 23}));

    ORXSrvMatrix small = Full({{1, 2}, {3, 4}});
    EXPECT_RAISED(IllegalInput("Add"), small.Add(1.0, *a));
    EXPECT_EQ(Stored(small), (Doubles{1, 3, 2, 4}));
    ORXSrvMatrix diagonal = Diagonal({1, 2, 3});
    EXPECT_RAISED(IllegalInput("Assignment operator"), diagonal.Add(1.0, *a));
  }
}

// ---- copies between block matrices

TEST_F(DenseValues, CopiesOfOtherShapesAreRefusedWithoutEffect) {
  DensePtr const a = m_database.New(4, 3, 2, 2), target = m_database.New(3, 2, 1, 1);
  Number(*a);
  EXPECT_RAISED(invalidSet, target->CopyValues(a.get()));
  EXPECT_RAISED(invalidGet, a->GetSubmatrix(*target, 0, 1, 0, 1));
  EXPECT_RAISED(invalidGet, a->GetSubmatrix(*target, 2, 4, 0, 1));
  EXPECT_RAISED(invalidSet, a->GetSubmatrix(*target, 0, 2, 0, 2));
  EXPECT_RAISED(invalidSet, target->CopyMappedRows(a.get(), true));
  EXPECT_EQ(All(*target), Doubles(6));
}

TEST_F(DenseValues, MappedRowsGoByTheirLabels) {
  for (int const chunk : {1, 2, 64}) {
    DensePtr const source = Labelled({4, 9}, 3, chunk);
    Write(*source, 0, 1, 0, 2, {1, 2, 3, 4, 5, 6});
    DensePtr const target = Labelled({9, 1, 4}, 3, 2);
    Write(*target, 0, 2, 0, 2, Doubles(9, -1.0));

    target->CopyMappedRows(source.get(), true);
    EXPECT_EQ(All(*target), (Doubles{2, 0, 1, 4, 0, 3, 6, 0, 5}));
    target->CopyMappedRows(source.get(), false);
    EXPECT_EQ(Read(*target, 0, 0, 0, 2), (Doubles{2, 4, 6}));
    EXPECT_EQ(Read(*target, 2, 2, 0, 2), (Doubles{1, 3, 5}));
  }
}

TEST_F(DenseValues, MappedRowsTakeLargeRepeatedAndForeignLabels) {
  DensePtr const source = Labelled({INT_MAX, 8, 2}, 1, -1);
  Write(*source, 0, 2, 0, 0, {1, 2, 3});
  DensePtr const target = Labelled({2, 2, INT_MAX, 5}, 1, -1);
  target->CopyMappedRows(source.get(), true);
  EXPECT_EQ(All(*target), (Doubles{0, 3, 1, 0}));

  // A view by its own labels, a scratch matrix by those it was made from.
  ORXSrvScratchDenseMatrix scratch(m_database.NewSet(Ints{8, 2}), m_database.NewSet(1), 1, 1);
  scratch.CopyMappedRows(ViewOf(*source, 1, 2, 0, 0).get(), true);
  EXPECT_EQ(All(scratch), (Doubles{2, 3}));
}

TEST_F(DenseValues, MappedRowsNeedALabelForEachRow) {
  ORXSrvScratchDenseMatrix scratch(m_database.NewSet(Ints{8, 5}), m_database.NewSet(1), 1, 1);
  ASSERT_EQ(scratch.ExtendDim(1, 1, nullptr), 0);
  DensePtr const source = Labelled({8}, 1, -1);
  EXPECT_CODE(viewDoesNotFit, scratch.CopyMappedRows(source.get(), true));
}

} // namespace
