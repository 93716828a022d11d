#include "tests/mtx/DenseSupport.h"

#include "sim/ORXSimTransaction.h"
#include "sim/ORXSimTransfer.h"
#include "tests/support/Shortage.h"

#include <climits>
#include <type_traits>

namespace {

using Ints = std::vector<int>;

/// The sizes of the blocks along a direction.
Ints RowBlocks(ORXSrvDenseMatrix const& matrix) {
  Ints sizes;
  for (int b = 0; b < matrix.NumberOfRowBlocks(); ++b)
    sizes.push_back(matrix.NumberOfRowsInBlock(b));
  return sizes;
}
Ints ColumnBlocks(ORXSrvDenseMatrix const& matrix) {
  Ints sizes;
  for (int b = 0; b < matrix.NumberOfColumnBlocks(); ++b)
    sizes.push_back(matrix.NumberOfColumnsInBlock(b));
  return sizes;
}

class DenseGeometry : public testing::Test {
protected:
  DenseDatabase m_database;
};

// ---- blocks

TEST_F(DenseGeometry, ChunksAreTheBlocks) {
  DensePtr const a = m_database.New(10, 7, 4, 3);
  EXPECT_EQ(RowBlocks(*a), (Ints{4, 4, 2}));
  EXPECT_EQ(ColumnBlocks(*a), (Ints{3, 3, 1}));
  EXPECT_EQ(a->BlockContainingColumn(6), 2);
  EXPECT_EQ(a->FirstColumnInBlock(1), 3);
  EXPECT_EQ(a->MaxNumberOfColumnsInBlock(), 3);
  EXPECT_EQ(a->NumberOfColumnsInBlockRange(1, 2), 4);
  EXPECT_FALSE(a->IsNull());
  for (int const chunk : {-1, 10, 64})
    EXPECT_EQ(RowBlocks(*m_database.New(10, 10, chunk, chunk)), Ints{10}) << chunk;
}

TEST_F(DenseGeometry, QueriesTakeAnyBlockAndRow) {
  DensePtr const a = m_database.New(10, 7, 4, 3);

  EXPECT_EQ(a->NumberOfRowsInBlock(-1), 0);
  EXPECT_EQ(a->NumberOfRowsInBlock(3), 2);
  EXPECT_EQ(a->NumberOfRowsInBlock(INT_MAX), 2);
  EXPECT_EQ(a->FirstRowInBlock(-5), 0);
  EXPECT_EQ(a->BlockContainingRow(-1), 0);
  EXPECT_EQ(a->BlockContainingRow(10), 2);
  EXPECT_EQ(a->BlockContainingRow(INT_MAX), 2);
  EXPECT_EQ(a->NumberOfRowsInBlockRange(-1, 1), 0);
  EXPECT_EQ(a->NumberOfRowsInBlockRange(1, 0), 0);
  EXPECT_EQ(a->NumberOfRowsInBlockRange(1, 1), 4);
}

TEST_F(DenseGeometry, OneDimensionIsAColumn) {
  ORXSimCSetID const rows = m_database.NewSet(5);
  ORXSrvDenseMatrix const a(ORXSrvUtilities::Create1DDistribution(rows, 2));

  EXPECT_EQ(RowBlocks(a), (Ints{2, 2, 1}));
  EXPECT_EQ(ColumnBlocks(a), Ints{1});
  EXPECT_TRUE(a.RowCSetID().Equal(rows));
  EXPECT_TRUE(a.ColumnCSetID().IsNull());
  EXPECT_EQ(RowBlocks(*ViewOf(a, 1, 3, 0, 0)), (Ints{1, 2}));
}

/// Contract of every kind that has not grown: blocks are consecutive and cover the matrix; every query fits
/// to that.
class DenseBlocks : public testing::TestWithParam<DenseKind> {
protected:
  DenseDatabase m_database;
};

TEST_P(DenseBlocks, CoverTheMatrix) {
  for (int const rows : {1, 2, 11, 12}) {
    SCOPED_TRACE(rows);
    DensePtr const a = m_database.New(GetParam(), rows, 7);
    int next = 0, largest = 0;
    for (int b = 0; b < a->NumberOfRowBlocks(); ++b) {
      EXPECT_EQ(a->FirstRowInBlock(b), next);
      for (int i = 0; i < a->NumberOfRowsInBlock(b); ++i, ++next)
        EXPECT_EQ(a->BlockContainingRow(next), b);
      EXPECT_EQ(a->NumberOfRowsInBlockRange(0, b), next);
      largest = std::max(largest, a->NumberOfRowsInBlock(b));
    }
    EXPECT_EQ(next, rows);
    EXPECT_EQ(a->NumberOfRows(), rows);
    EXPECT_EQ(a->MaxNumberOfRowsInBlock(), largest);
    EXPECT_EQ(a->NumberOfColumnsInBlockRange(0, a->NumberOfColumnBlocks() - 1), a->NumberOfColumns());
    EXPECT_EQ(Labels(a->RowCSetID()).size(), rows);
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, DenseBlocks, testing::ValuesIn(denseKinds, denseKindsThatGrew),
                         [](auto const& kind) { return kind.param.name; });

// ---- creation

TEST_F(DenseGeometry, NullMatrixHasNothing) {
  ORXSrvDenseMatrix const none, ofNull{ORXSimDistributionID()};
  ORXSrvDenseMatrix const ofNothing{ORXSimDistribution()};
  for (ORXSrvDenseMatrix const* a : {&none, &ofNull, &ofNothing}) {
    EXPECT_TRUE(a->IsNull());
    EXPECT_TRUE(a->DistributionID().IsNull());
    EXPECT_EQ(a->NumberOfRows(), 0);
    EXPECT_EQ(a->NumberOfColumnBlocks(), 0);
    EXPECT_EQ(a->MaxNumberOfRowsInBlock(), 0);
    EXPECT_TRUE(a->RowCSetID().IsNull());
    ORXSrvMatrix target(1, 1);
    EXPECT_RAISED(invalidGet, a->GetValues(0, 0, 0, 0, target));
    EXPECT_RAISED(invalidGet, a->GetAllValues(target.Values()));
  }
  static_assert(!std::is_copy_constructible_v<ORXSrvDenseMatrix>);
}

TEST_F(DenseGeometry, HandlesShareAndOutliveNothingButTheFile) {
  DensePtr a = m_database.New(3, 2, 2, 2);
  ORXSimDistributionID const id = a->DistributionID();
  Number(*a);
  Doubles const values = All(*a);
  a.reset();

  ORXSrvDenseMatrix const again{ORXSimDistribution(id)};
  EXPECT_EQ(All(again), values);

  m_database.Close();
  EXPECT_TRUE(again.IsNull());
  EXPECT_CODE(staleIdentifier, All(again));
  EXPECT_CODE(staleIdentifier, ORXSrvDenseMatrix{id});
}

TEST_F(DenseGeometry, RefusesDistributionsWithoutDoubles) {
  ORXSimCSetID const rows = m_database.NewSet(3);
  ORXSimArray<ORXSimCollectionID> const axes{rows.Collection()};
  ORXSimDistributionID const empty = m_database.Context().CreateDistribution(
      ORXSimGrid(axes), ORXSimRangeType(ORXSimTypeKey::Double), ORXSimTypeID());
  int const integers[] = {1, 2, 3};
  ORXSimDistributionID const ints = ORXSrvUtilities::Write1DIntDistribution(rows, integers, 3);

  EXPECT_NE(Raised([&] { ORXSrvDenseMatrix{empty}; }).find("it has no drawer"), std::string::npos);
  EXPECT_CODE(viewDoesNotFit, ORXSrvDenseMatrix{empty});
  EXPECT_CODE(viewDoesNotFit, ORXSrvDenseMatrix{ints});

  ORXSimContextID const context = m_database.Context().ID();
  ORXSimTransaction transaction(context);
  ORXSimDistributionID const cube = ORXSrvUtilities::CreateDistribution(
      transaction, ORXSrvPosition(context), -1, {m_database.NewSet(2), rows, m_database.NewSet(4)}, {}, true);
  EXPECT_NE(Raised([&] { ORXSrvDenseMatrix{cube}; }).find("it has 3 dimensions, expected 1 or 2"),
            std::string::npos);
}

TEST_F(DenseGeometry, AnEmptyMatrixHasNoBlocksAndGrows) {
  DensePtr const a = m_database.New(0, 2, -1, -1);
  EXPECT_EQ(a->NumberOfRows(), 0);
  EXPECT_EQ(a->NumberOfRowBlocks(), 0);
  EXPECT_EQ(a->ExtendDim(1, 2, nullptr), 0);
  EXPECT_EQ(RowBlocks(*a), (Ints{1, 1}));
  EXPECT_EQ(All(*a), Doubles(4));
}

// ---- views

TEST_F(DenseGeometry, ViewsCutTheBlocksOfTheirParents) {
  DensePtr a = m_database.New(10, 7, 4, 3);
  Number(*a);

  DensePtr view = ViewOf(*a, 3, 9, 1, 4);
  EXPECT_EQ(RowBlocks(*view), (Ints{1, 4, 2}));
  EXPECT_EQ(ColumnBlocks(*view), (Ints{2, 2}));
  EXPECT_EQ(view->FirstRowInBlock(1), 1);
  EXPECT_EQ(Labels(view->RowCSetID()), (Ints{3, 4, 5, 6, 7, 8, 9}));
  EXPECT_EQ(Labels(view->ColumnCSetID()), (Ints{1, 2, 3, 4}));

  DensePtr const inner = ViewOf(*view, 1, 2, 0, 3);
  a.reset();
  view.reset();
  EXPECT_EQ(RowBlocks(*inner), Ints{2});
  EXPECT_EQ(Labels(inner->RowCSetID()), (Ints{4, 5}));
  EXPECT_EQ(All(*inner), (Doubles{401, 501, 402, 502, 403, 503, 404, 504}));

  DensePtr const parent = m_database.New(10, 7, 4, 3), everything = ViewOf(*parent, 0, 9, 0, 6);
  EXPECT_TRUE(everything->RowCSetID().Equal(parent->RowCSetID()));
  EXPECT_TRUE(everything->ColumnCSetID().Equal(parent->ColumnCSetID()));
  EXPECT_EQ(RowBlocks(*everything), RowBlocks(*parent));
}

TEST_F(DenseGeometry, ViewsLieInsideTheirParents) {
  DensePtr const a = m_database.New(10, 7, 4, 3);
  constexpr int bad[][2] = {
      {-1, 3}, {0, 10}, {5, 3}, {4, 3}, {5, 4}, {10, 9}, {0, -1}, {INT_MAX, INT_MIN}, {INT_MIN, 0}};
  for (auto const& [first, last] : bad) {
    EXPECT_RAISED(invalidGet, ViewOf(*a, first, last, 0, 6)) << first << " to " << last;
    EXPECT_RAISED(invalidGet, ViewOf(*a, 0, 9, first, std::max(last, 7)));
  }
}

// ---- growth

TEST_F(DenseGeometry, RowsAndColumnsAreAppended) {
  for (DenseKind const& kind : {denseKinds[2], denseKinds[4]}) {
    SCOPED_TRACE(kind.name);
    DensePtr const a = m_database.New({kind.name, kind.handle, 4, 3}, 10, 7);
    Number(*a);
    Doubles const before = All(*a);
    Ints const more = {20, 30};

    EXPECT_EQ(a->ExtendDim(1, 3, nullptr), 0);
    EXPECT_EQ(RowBlocks(*a), (Ints{4, 4, 4, 1}));
    EXPECT_EQ(Labels(a->RowCSetID()), (Ints{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
    EXPECT_EQ(a->ExtendDim(0, 2, more.data()), 0);
    EXPECT_EQ(ColumnBlocks(*a), (Ints{3, 3, 3}));
    EXPECT_EQ(Labels(a->ColumnCSetID()), (Ints{0, 1, 2, 3, 4, 5, 6, 20, 30}));

    EXPECT_EQ(All(*ViewOf(*a, 0, 9, 0, 6)), before);
    EXPECT_EQ(All(*ViewOf(*a, 10, 12, 0, 8)), Doubles(27));
    EXPECT_EQ(All(*ViewOf(*a, 0, 12, 7, 8)), Doubles(26));
    EXPECT_GE(a->ExtendableDim(), 0);
    ORXSrvDenseMatrix const again(a->DistributionID());
    EXPECT_EQ(RowBlocks(again), RowBlocks(*a));
    EXPECT_TRUE(again.RowCSetID().Equal(a->RowCSetID()));
  }
}

TEST_F(DenseGeometry, ASingleFirstBlockKeepsItsSize) {
  DensePtr const a = m_database.New(3, 2, 4, 4), whole = m_database.New(3, 2, -1, -1);
  EXPECT_EQ(a->ExtendDim(1, 3, nullptr), 0);
  EXPECT_EQ(RowBlocks(*a), (Ints{3, 2}));
  EXPECT_EQ(a->ExtendDim(0, 3, nullptr), 0);
  EXPECT_EQ(ColumnBlocks(*a), (Ints{2, 1}));
  // Only columns are set anew, and by growth in any direction.
  EXPECT_EQ(a->ExtendDim(1, 1, nullptr), 0);
  EXPECT_EQ(RowBlocks(*a), (Ints{3, 3}));
  EXPECT_EQ(ColumnBlocks(*a), (Ints{4, 1}));
  EXPECT_EQ(whole->ExtendDim(1, 4, nullptr), 0);
  EXPECT_EQ(RowBlocks(*whole), (Ints{3, 3, 1}));
}

TEST_F(DenseGeometry, GrowthIsRefusedWithACode) {
  DensePtr const a = m_database.New(10, 7, 4, 3), view = ViewOf(*a, 0, 9, 0, 6);
  int const present[] = {12, 9};
  int const others[] = {40};
  ORXSrvDenseMatrix column(ORXSrvUtilities::Create1DDistribution(m_database.NewSet(4), 2));

  EXPECT_EQ(a->ExtendDim(2, 1, nullptr), 3);
  EXPECT_EQ(a->ExtendDim(-1, 1, nullptr), 3);
  EXPECT_EQ(view->ExtendDim(2, 1, nullptr), 3);
  EXPECT_EQ(view->ExtendDim(1, 1, others), 1);
  EXPECT_EQ(a->ExtendDim(1, 0, nullptr), 2);
  EXPECT_EQ(a->ExtendDim(1, 2, present), 4);
  EXPECT_CODE(invalidArgument, a->ExtendDim(1, -1, nullptr));
  EXPECT_CODE(staleIdentifier, column.ExtendDim(0, 1, nullptr));

  EXPECT_EQ(RowBlocks(*a), (Ints{4, 4, 2}));
  EXPECT_EQ(Labels(a->RowCSetID()).size(), 10u);
  EXPECT_EQ(ORXSimCollection(a->RowCSetID().Collection()).Size(), 11) << "label 12, but not 40";
  EXPECT_EQ(column.ExtendDim(1, 1, nullptr), 0);
  EXPECT_EQ(RowBlocks(column), (Ints{2, 2, 1}));
}

TEST_F(DenseGeometry, RowsAndColumnsOfOneCollectionGrowApart) {
  ORXSimCSetID const both = m_database.NewSet(3);
  ORXSrvDenseMatrix a(ORXSrvUtilities::Create2DDistribution(both, both, 2, 2));
  EXPECT_EQ(a.ExtendDim(1, 1, nullptr), 0);
  EXPECT_EQ(SizeOf(a), (std::pair{4, 3}));
  EXPECT_EQ(a.ExtendDim(0, 2, nullptr), 0);
  EXPECT_EQ(a.NumberOfColumns(), 5);
}

TEST_F(DenseGeometry, WhatGrewThroughAnotherHandleGrowsBehindItsOwnLabels) {
  DensePtr const a = m_database.New(3, 2, 4, 4);
  ORXSrvDenseMatrix other(a->DistributionID());
  Ints const firstLabels = {20, 30};
  Ints const secondLabels = {40};
  EXPECT_EQ(other.ExtendDim(1, 2, firstLabels.data()), 0);
  EXPECT_EQ(a->ExtendDim(1, 1, secondLabels.data()), 0);
  EXPECT_EQ(a->NumberOfRows(), 4);
  EXPECT_EQ(Labels(a->RowCSetID()), (Ints{0, 1, 2, 40}));
  EXPECT_EQ(Labels(ORXSrvDenseMatrix(a->DistributionID()).RowCSetID()), (Ints{0, 1, 2, 20, 30, 40}));
}

TEST_F(DenseGeometry, FailedGrowthLeavesTheMatrixUsable) {
  DensePtr const a = m_database.New(600, 2, 100, 2);
  Number(*a);
  Doubles const before = All(*a);

  int error = 0;
  {
    FullDisk const full;
    error = CodeOf([&] { a->ExtendDim(1, 1000, nullptr); });
  }

  EXPECT_EQ(error, ORXSimException::writeFailed);
  EXPECT_EQ(a->NumberOfRows(), 600);
  EXPECT_EQ(Labels(a->RowCSetID()).size(), 600u);
  EXPECT_EQ(All(*a), before);
  EXPECT_EQ(a->ExtendDim(1, 1000, nullptr), 0);
  EXPECT_EQ(All(*ViewOf(*a, 0, 599, 0, 1)), before);
}

TEST_F(DenseGeometry, AnAbandonedGrowthMustBeForgotten) {
  DensePtr const a = m_database.New(10, 7, 4, 3);
  Number(*a);
  Doubles const before = All(*a);
  {
    ORXSimTransaction const transaction(m_database.Context().ID());
    EXPECT_EQ(a->ExtendDim(1, 3, nullptr), 0);
  }
  ORXSrvMatrix row(13, 7);
  EXPECT_CODE(viewDoesNotFit, a->GetRows(12, 12, row));
  EXPECT_CODE(staleIdentifier, Labels(a->RowCSetID()));
  EXPECT_EQ(All(ORXSrvDenseMatrix(a->DistributionID())), before);
}

} // namespace
