#include "tests/mtx/DenseSupport.h"
#include "tests/support/Shortage.h"

#include <new>

namespace {

using Ints = std::vector<int>;

class ScratchMatrix : public testing::Test {
protected:
  /// Names of the scratch files.
  std::set<std::string> Files() const { return m_folder.Files(); }

  WorkingFolder m_folder;
};

TEST_F(ScratchMatrix, ChunksAreLoweredToTheMatrix) {
  ORXSrvScratchDenseMatrix const a(10, 7, 4, 100);
  EXPECT_EQ(a.NumberOfRowBlocks(), 3);
  EXPECT_EQ(a.NumberOfRowsInBlock(2), 2);
  EXPECT_EQ(a.NumberOfColumnBlocks(), 1);
  EXPECT_EQ(a.NumberOfColumnsInBlock(0), 7);
  EXPECT_EQ(All(a), Doubles(70));

  ORXSrvScratchDenseMatrix const column(5, 1, 8, 8);
  EXPECT_EQ(SizeOf(column), (std::pair{5, 1}));
  EXPECT_EQ(column.NumberOfRowBlocks(), 1);
  EXPECT_FALSE(column.ColumnCSetID().IsNull());

  ORXSrvScratchDenseMatrix const whole(5, 3, -1, -1);
  EXPECT_EQ(whole.NumberOfRowBlocks(), 1);
}

TEST_F(ScratchMatrix, FileIsNamedByTheAddressAndGoesWithTheMatrix) {
  auto first = std::make_unique<ORXSrvScratchDenseMatrix>(3, 3, 2, 2);
  char name[64];
  std::snprintf(name, sizeof name, "ORXSrvScratchDenseMatrix%p.sim", static_cast<void*>(first.get()));
  EXPECT_EQ(Files(), std::set<std::string>{name});

  ORXSrvScratchDenseMatrix const second(3, 3, 2, 2);
  EXPECT_EQ(Files().size(), 2u);

  first.reset();
  EXPECT_EQ(Files().size(), 1u);
  EXPECT_EQ(Files().count(name), 0u);
}

TEST_F(ScratchMatrix, ViewKeepsTheFile) {
  auto parent = std::make_unique<ORXSrvScratchDenseMatrix>(4, 3, 2, 2);
  Number(*parent);
  DensePtr view = ViewOf(*parent, 1, 2, 0, 1), inner = ViewOf(*view, 1, 1, 0, 1);

  parent.reset();
  view.reset();
  EXPECT_EQ(Files().size(), 1u);
  EXPECT_EQ(All(*inner), (Doubles{200, 201}));
  EXPECT_NE(dynamic_cast<ORXSrvScratchDenseMatrix*>(inner.get()), nullptr);

  inner.reset();
  EXPECT_TRUE(Files().empty());
}

TEST_F(ScratchMatrix, MatrixWhereAnotherWasThatAViewStillUsesGetsItsOwnFile) {
  alignas(ORXSrvScratchDenseMatrix) unsigned char place[sizeof(ORXSrvScratchDenseMatrix)];
  auto* matrix = new (place) ORXSrvScratchDenseMatrix(2, 2, 2, 2);
  Number(*matrix);
  DensePtr const view = ViewOf(*matrix, 0, 1, 0, 1);
  matrix->~ORXSrvScratchDenseMatrix();

  matrix = new (place) ORXSrvScratchDenseMatrix(2, 2, 2, 2);
  EXPECT_EQ(Files().size(), 2u);
  EXPECT_EQ(All(*matrix), Doubles(4));
  EXPECT_EQ(All(*view), (Doubles{0, 100, 1, 101}));
  matrix->~ORXSrvScratchDenseMatrix();
  EXPECT_EQ(Files().size(), 1u);
}

TEST(ScratchMatrixOfSets, ReportsTheCallersSetsAndUsesItsOwn) {
  DenseDatabase database;
  ORXSimCSetID const rows = database.NewSet(Ints{4, 9, 2});
  ORXSimCSetID const columns = database.NewSet(Ints{5, 6});
  ORXSrvScratchDenseMatrix a(rows, columns, 2, 2);
  Number(a);

  EXPECT_TRUE(a.RowCSetID().Equal(rows));
  EXPECT_TRUE(a.ColumnCSetID().Equal(columns));
  EXPECT_EQ(a.ORXSrvDenseMatrix::RowCSetID().Collection().Context(), a.DistributionID().context);
  EXPECT_EQ(Labels(a.ORXSrvDenseMatrix::RowCSetID()), (Ints{4, 9, 2}));
  DensePtr const view = ViewOf(a, 1, 2, 0, 1);
  EXPECT_EQ(view->RowCSetID().Context(), a.DistributionID().context);
  EXPECT_EQ(Labels(view->RowCSetID()), (Ints{9, 2}));

  database.Close();
  EXPECT_TRUE(a.RowCSetID().Equal(rows)) << "names what it was made from, also when that is gone";
  EXPECT_EQ(All(a), (Doubles{0, 100, 200, 1, 101, 201}));
}

TEST(ScratchMatrixOfSets, GrowsByItsOwnSets) {
  DenseDatabase const database;
  ORXSimCSetID const rows = database.NewSet(Ints{4, 9});
  ORXSrvScratchDenseMatrix a(rows, database.NewSet(2), 2, 2);
  int const label = 9;
  EXPECT_EQ(a.ExtendDim(1, 1, &label), 4);
  EXPECT_EQ(a.ExtendDim(1, 1, nullptr), 0);
  EXPECT_EQ(Labels(a.ORXSrvDenseMatrix::RowCSetID()), (Ints{4, 9, 2}));
  EXPECT_TRUE(a.RowCSetID().Equal(rows));
}

TEST_F(ScratchMatrix, FailedCreationLeavesNoFile) {
  EXPECT_CODE(viewDoesNotFit, ORXSrvScratchDenseMatrix(0, 3, 1, 1));
  EXPECT_CODE(invalidArgument, ORXSrvScratchDenseMatrix(-1, 3, 1, 1));
  EXPECT_CODE(viewDoesNotFit, ORXSrvScratchDenseMatrix(3, 3, 0, 1));
  int const negative[] = {1, -1};
  EXPECT_CODE(invalidArgument, ORXSrvScratchDenseMatrix(2, 2, negative, nullptr, 1, 1));
  EXPECT_CODE(staleIdentifier, ORXSrvScratchDenseMatrix(ORXSimCSetID(), ORXSimCSetID(), 1, 1));
  int error = 0;
  {
    FullDisk const full;
    error = CodeOf([] { ORXSrvScratchDenseMatrix(1000, 1000, 100, 100); });
  }
  EXPECT_EQ(error, ORXSimException::writeFailed);
  EXPECT_TRUE(Files().empty());
}

} // namespace
