#include "DatabaseSupport.h"

namespace {

/// 3 x 2 of columns x rows: column c, row r holds 10 r + c.
class SmallField : public testing::Test {
protected:
  SmallField() {
    Create(m_database, m_folder.Path("a.sim"));
    ORXSimContext const context(m_database.CreateContext({}));
    m_field = CreateField(context, {3, 2});
    CreateDrawer(m_field, {2, 1});
    WriteCells(m_field, {0, 10, 1, 11, 2, 12});
  }
  ORXSimTransfer Transfer() const { return ORXSimTransfer(ORXSimDistribution(m_field)); }
  ORXSimCollectionID Collection(int dim) const { return ORXSimDistribution(m_field).Collection(dim); }
  /// The message of a failed read of this selection.
  std::string Message(ORXSimTransfer transfer) const {
    std::vector<double> values(6);
    std::string text;
    EXPECT_EQ(CodeOf([&] { transfer.SetRead().SetBuffer(0, values.data(), 48).ExecRead(); }, &text),
              ORXSimException::viewDoesNotFit);
    return text;
  }

  TemporaryFolder m_folder;
  ORXSimDatabase m_database;
  ORXSimDistributionID m_field;
};

#define EXPECT_CONTAINS(text, part) EXPECT_NE((text).find(part), std::string::npos) << (text)

TEST_F(SmallField, ViewsThatDoNotFitAreNamed) {
  EXPECT_CONTAINS(Message(Transfer().SetDimOrdinalRange(1, Collection(1), 0, 2)),
                  "along dimension 1 the positions are 0 to 2, the drawer has 0 to 1");
  EXPECT_CONTAINS(Message(Transfer().SetDimOrdinalRange(0, {}, 2, 1)),
                  "along dimension 0 the positions are 2 to 1");
  EXPECT_CONTAINS(Message(Transfer().SetDimOrdinalRange(0, {}, -1, 1)),
                  "along dimension 0 the positions are -1 to 1");
  EXPECT_CONTAINS(Message(Transfer().SetDimOrdinalRange(0, Collection(1), 0, 1)),
                  "along dimension 0 the selection");
  EXPECT_CONTAINS(Message(Transfer().SetDim(0, {})), "along dimension 0 the member set is null");
  int const foreign[] = {1, 7};
  EXPECT_CONTAINS(
      Message(Transfer().SetDim(0, ORXSimCollection(Collection(0)).CreateOrderedCSet(foreign, 2))),
      "the drawer has no member 7");
  EXPECT_CONTAINS(Message(Transfer().SetSerialization(ORXSimSerializationType().SetSparse())),
                  "its drawer is dense");
  EXPECT_EQ(CodeOf([&] { Transfer().SetDimOrdinalRange(2, {}, 0, 0); }), ORXSimException::invalidArgument);
  EXPECT_EQ(CodeOf([&] { Transfer().SetBuffer(4, static_cast<void*>(nullptr), 0); }),
            ORXSimException::invalidArgument);
}

TEST_F(SmallField, CheckViewFindsMembersAndSetsThatAreNotThere) {
  int const foreign[] = {1, 7};
  ORXSimCollection const columns(Collection(0));
  ORXSimDynamicDataID data = columns.CreateOrderedCSet(foreign, 2).Data();
  EXPECT_EQ(CodeOf([&] { Transfer().SetDim(0, columns.CreateOrderedCSet(foreign, 1)).CheckView(); }), 0);
  EXPECT_EQ(CodeOf([&] { Transfer().SetDim(0, columns.CreateOrderedCSet(foreign, 2)).CheckView(); }),
            ORXSimException::viewDoesNotFit);
  data.memberSet += 1000;
  ORXSimCSetID const none(columns.ID().Context(), data, {});
  EXPECT_EQ(CodeOf([&] { Transfer().SetDim(0, none).CheckView(); }), ORXSimException::viewDoesNotFit);
  EXPECT_EQ(CodeOf([&] { Transfer().SetMakeNewDrawer().SetDim(0, none).CheckView(); }),
            ORXSimException::viewDoesNotFit);
  EXPECT_EQ(CodeOf([&] { Transfer().SetDimExtension(none).CheckView(); }), ORXSimException::viewDoesNotFit);
}

TEST_F(SmallField, ViewsAreCheckedAgainBecauseDrawersChange) {
  double values[6] = {};
  ORXSimTransfer transfer = Transfer().SetRead().SetDimOrdinalRange(0, {}, 2, 2).CheckView();
  int const label[] = {0};
  Transfer()
      .SetMakeNewDrawer()
      .SetWrite()
      .SetDim(0, ORXSimCollection(Collection(0)).CreateOrderedCSet(label, 1))
      .InitializePersistentDrawer();
  EXPECT_CONTAINS(Message(transfer), "the drawer has 0 to 0");

  ORXSimContext const context(m_database.Contexts()[0]);
  ORXSimDistribution const other(CreateField(context, {2, 3}));
  {
    ORXSimTransaction const abandoned(context.ID());
    Extend(m_field, 0, 1);
    transfer.SetDimOrdinalRange(0, {}, 1, 1).CheckView();
  }
  EXPECT_CONTAINS(Message(transfer), "the drawer has 0 to 0");
  ORXSimTransfer late(other);
  {
    ORXSimTransaction const abandoned(context.ID());
    CreateDrawer(other.ID(), {});
    late.SetRead().CheckView();
  }
  EXPECT_EQ(CodeOf([&] { late.SetBuffer(0, values, 48); }), ORXSimException::viewDoesNotFit);
  EXPECT_EQ(CodeOf([&] { late.ExecRead(); }), ORXSimException::viewDoesNotFit);
}

TEST_F(SmallField, SelectionsBeyondAnyMemoryAreRefused) {
  ORXSimTransfer transfer = Transfer();
  for (int const dim : {0, 1})
    transfer.SetDim(dim, ORXSimCollection(Collection(dim)).CreateCSetStrided(0, 2147483647, 0, 1));
  EXPECT_CONTAINS(Message(transfer), "more cells are selected than any buffer holds");
}

TEST_F(SmallField, BuffersMustBeLongEnough) {
  double values[6] = {7, 7, 7, 7, 7, 7};
  std::string text;
  EXPECT_EQ(CodeOf([&] { Transfer().SetWrite().SetBuffer(0, values, 40).ExecWrite(); }, &text),
            ORXSimException::viewDoesNotFit);
  EXPECT_CONTAINS(text, "buffer 0 has 40 bytes, the selection needs 48");
  EXPECT_EQ(CodeOf([&] { Transfer().SetWrite().CheckView().SetBuffer(0, values, 40); }),
            ORXSimException::viewDoesNotFit)
      << "known before the execution";
  EXPECT_EQ(CodeOf([&] { Transfer().SetRead().ExecRead(); }), ORXSimException::viewDoesNotFit);
  EXPECT_EQ(CodeOf([&] { Transfer().SetBuffer(0, values, 48).ExecWrite(); }), ORXSimException::wrongState);

  EXPECT_EQ(CellsOf(m_field), (std::vector<double>{0, 10, 1, 11, 2, 12})) << "nothing was written";
}

TEST_F(SmallField, CopiesOfATransferAreConfiguredApart) {
  ORXSimTransfer first = Transfer().SetRead();
  ORXSimTransfer second = first;
  double values[2] = {0, 0};
  double other[3] = {0, 0, 0};

  second.SetDimOrdinalRange(1, Collection(1), 1, 1).SetBuffer(0, other, 24);
  first.SetDimOrdinalRange(0, Collection(0), 1, 1).SetBuffer(0, values, 16).ExecRead();
  second.ExecRead();

  EXPECT_EQ(std::vector<double>(values, values + 2), (std::vector<double>{1, 11}));
  EXPECT_EQ(std::vector<double>(other, other + 3), (std::vector<double>{10, 11, 12}));
}

TEST_F(SmallField, ANewDrawerReplacesTheFormer) {
  std::vector<double> const cells{1, 2, 3, 4, 5, 6};
  Transfer().SetMakeNewDrawer().SetWrite().SetBuffer(0, cells.data(), 48).ExecWrite();
  EXPECT_EQ(CellsOf(m_field), cells);
  EXPECT_TRUE(DrawerOf(m_field).ChunkSizes().IsEmpty());
  m_database.Close();

  ORXSimDatabase again;
  Open(again, m_folder.Path("a.sim"));
  EXPECT_EQ(CellsOf(ORXSimContext(again.Contexts()[0]).Distributions()[0]), cells);
}

TEST_F(SmallField, ExtensionsMustFitADimension) {
  ORXSimContext const context(m_database.Contexts()[0]);
  ORXSimCSetID const foreign = ORXSimCollection(context.CreateCollection(4, {})).BiggestCSetID();
  std::string text;
  EXPECT_EQ(CodeOf([&] { Transfer().SetDimExtension(foreign).CheckView(); }, &text),
            ORXSimException::viewDoesNotFit);
  EXPECT_CONTAINS(text, "no dimension has the collection");
  EXPECT_EQ(CodeOf([&] { Transfer().InitializeExtension(); }), ORXSimException::wrongState);
  EXPECT_EQ(DrawerOf(m_field).ExtendableDimension(), 0);
  double cell = 0.0;
  ORXSimCSetID const more = ORXSimCollection(Collection(0)).CreateCSetStrided(3, 1, 1, 1);
  EXPECT_EQ(CodeOf([&] {
              Transfer()
                  .SetRead()
                  .SetDimExtension(more)
                  .SetDimOrdinalRange(0, {}, 9, 9)
                  .SetBuffer(0, &cell, 8)
                  .ExecRead();
            }),
            ORXSimException::viewDoesNotFit)
      << "selections are checked all the same";
  ORXSimDistribution const integers(CreateField(context, {3}, ORXSimTypeKey::Int32));
  CreateDrawer(integers.ID(), {});
  ORXSimTransfer extension(integers);
  extension.SetInitializationValue(ORXSimRangeValue(1e300, -1, ORXSimTypeKey::Double));
  extension.SetDimExtension(ORXSimCollection(integers.Collection(0)).BiggestCSetID());
  EXPECT_EQ(CodeOf([&] { extension.InitializeExtension(); }), ORXSimException::viewDoesNotFit);
}

TEST(Drawer, KeepsChunkLengthsAsGivenAndTinyChunksCheap) {
  TemporaryFolder const folder;
  ORXSimDatabase database;
  Create(database, folder.Path("a.sim"));
  ORXSimContext const context(database.CreateContext({}));
  ORXSimDistributionID const longChunks = CreateField(context, {5, 10});
  CreateDrawer(longChunks, {5, 1000000});
  ORXSimDistributionID const tinyChunks = CreateField(context, {1000, 1000});
  CreateDrawer(tinyChunks, {1, 1});
  database.Close();

  Open(database, folder.Path("a.sim"));
  auto const fields = ORXSimContext(database.Contexts()[0]).Distributions();
  EXPECT_EQ(DrawerOf(fields[0]).ChunkSizes()[1], 1000000);
  EXPECT_EQ(DrawerOf(fields[1]).ChunkSizes()[0], 1);
  EXPECT_LT(std::filesystem::file_size(folder.Path("a.sim")), 8.3e6)
      << "neither the length nor the number of chunks costs";
}

TEST(Drawer, MayGrowFromNothingAndByAnyNumberOfPieces) {
  WithoutLinkChecks const fast;
  TemporaryFolder const folder;
  ORXSimDatabase database;
  Create(database, folder.Path("a.sim"));
  ORXSimDistributionID field = CreateField(ORXSimContext(database.CreateContext({})), {0, 1});
  CreateDrawer(field, {});
  EXPECT_EQ(CellsOf(field), std::vector<double>());
  std::vector<double> cells(9000, 0.0);
  Extend(field, 0, 9000);
  auto const reopen = [&] {
    database.Close();
    Open(database, folder.Path("a.sim"));
    field = ORXSimContext(database.Contexts()[0]).Distributions()[0];
  };

  reopen();
  EXPECT_EQ(CellsOf(field), cells);
  cells.assign(9000, 3.0);
  WriteCells(field, cells);
  EXPECT_EQ(CellsOf(field), cells);
  {
    ORXSimTransaction const abandoned(database.Contexts()[0]);
    Extend(field, 0, 1);
  }
  Extend(field, 0, 1);
  reopen();
  cells.push_back(0.0);
  EXPECT_EQ(CellsOf(field), cells);
}

TEST(Drawer, HasUpToThirtyTwoDimensions) {
  TemporaryFolder const folder;
  ORXSimDatabase database;
  Create(database, folder.Path("a.sim"));
  ORXSimContext const context(database.CreateContext({}));
  std::vector<int> sizes(32, 1);
  sizes[5] = 3;
  sizes[31] = 2;
  ORXSimDistributionID const field = CreateField(context, sizes);
  CreateDrawer(field, {});
  WriteCells(field, {1, 2, 3, 4, 5, 6});
  Extend(field, 7, 1);
  sizes.push_back(1);
  EXPECT_EQ(CodeOf([&] { CreateField(context, sizes); }), ORXSimException::invalidArgument);
  database.Close();

  Open(database, folder.Path("a.sim"), true);
  EXPECT_EQ(CellsOf(ORXSimContext(database.Contexts()[0]).Distributions()[0]),
            (std::vector<double>{1, 2, 0, 0, 3, 4, 0, 0, 5, 6, 0, 0}));
}

TEST(Drawer, BeyondFourGibibytesAndAChunkOfTwo) {
  TemporaryFolder const folder;
  if (std::filesystem::space(folder.Path("")).available < (std::uintmax_t{12} << 30))
    GTEST_SKIP() << "needs 12 GiB";
  ORXSimDatabase database;
  Create(database, folder.Path("a.sim"));
  ORXSimContext const context(database.CreateContext({}));
  int const rows = 1 << 14;
  int const columns = 40000; // 5.2 GB, reserved but not written
  ORXSimDistributionID const field = CreateField(context, {columns, rows});
  CreateDrawer(field, {1 << 14, rows});
  ORXSimDistribution const distribution(field);
  auto const at = [&](int column, int row) {
    return ORXSimTransfer(distribution)
        .SetRead()
        .SetWrite()
        .SetDimOrdinalRange(0, {}, column, column)
        .SetDimOrdinalRange(1, {}, row, row);
  };
  double value = 1.0;
  for (int const column : {0, (1 << 14) - 1, 1 << 14, columns - 1}) {
    at(column, rows - 1).SetBuffer(0, &value, 8).ExecWrite();
    value += 1.0;
  }
  database.Close();

  Open(database, folder.Path("a.sim"), true);
  ORXSimDistribution const again(ORXSimContext(database.Contexts()[0]).Distributions()[0]);
  double expected = 1.0;
  for (int const column : {0, (1 << 14) - 1, 1 << 14, columns - 1}) {
    double pair[2] = {-1, -1};
    ORXSimTransfer(again)
        .SetRead()
        .SetDimOrdinalRange(0, {}, column, column)
        .SetDimOrdinalRange(1, {}, rows - 2, rows - 1)
        .SetBuffer(0, pair, 16)
        .ExecRead();
    EXPECT_EQ(pair[0], 0.0);
    EXPECT_EQ(pair[1], expected);
    expected += 1.0;
  }
}

// The matrix 5 7 0 / 0 0 0 / 0 0 9 with a diagonal beside it.
class SparseField : public testing::Test {
protected:
  SparseField() {
    Create(m_database, m_folder.Path("a.sim"));
    m_field = CreateField(ORXSimContext(m_database.CreateContext({})), {3, 3});
  }
  ORXSimTransfer Write(bool isSymmetric) {
    ORXSimTransfer transfer{ORXSimDistribution(m_field)};
    ORXSimSerializationType type;
    isSymmetric ? type.SetSparseSym() : type.SetSparse();
    transfer.SetMakeNewDrawer().SetWrite().SetBufferPadding(false).SetSparseNNonzero(3).SetSerialization(
        type);
    transfer.SetBuffer(0, m_values.data(), 24)
        .SetBuffer(1, m_columns.data(), 12)
        .SetBuffer(2, m_starts.data(), 16);
    if (isSymmetric) transfer.SetBuffer(3, m_diagonal.data(), 24);
    return transfer;
  }

  TemporaryFolder m_folder;
  ORXSimDatabase m_database;
  ORXSimDistributionID m_field;
  std::vector<double> m_values{5, 7, 9};
  std::vector<int> m_columns{0, 1, 2};
  std::vector<int> m_starts{0, 2, 2, 3};
  std::vector<double> m_diagonal{5, 0, 9};
};

TEST_F(SparseField, ComesBackInBothForms) {
  for (bool const isSymmetric : {false, true}) {
    Write(isSymmetric).ExecWrite();
    m_database.Close();
    Open(m_database, m_folder.Path("a.sim"));
    m_field = ORXSimContext(m_database.Contexts()[0]).Distributions()[0];

    ORXSimPersistentDrawerDesc const drawer = DrawerOf(m_field);
    EXPECT_EQ(drawer.DataSizeItems(0), 3);
    EXPECT_EQ(drawer.DataSizeItems(3), isSymmetric ? 3 : 0);
    EXPECT_EQ(static_cast<int>(drawer.Serialization().Kind()), isSymmetric ? 4 : 3);
    EXPECT_EQ(drawer.ExtendableDimension(), -1);
    std::vector<double> values(3);
    std::vector<int> columns(3);
    std::vector<int> starts(4);
    std::vector<double> diagonal(3);
    ORXSimTransfer transfer{ORXSimDistribution(m_field)};
    transfer.SetRead().SetSerialization(drawer.Serialization());
    transfer.SetBuffer(0, values.data(), 24).SetBuffer(1, columns.data(), 12).SetBuffer(2, starts.data(), 16);
    if (isSymmetric) transfer.SetBuffer(3, diagonal.data(), 24);
    transfer.ExecRead();
    EXPECT_EQ(values, m_values);
    EXPECT_EQ(columns, m_columns);
    EXPECT_EQ(starts, m_starts);
    EXPECT_EQ(diagonal, isSymmetric ? m_diagonal : std::vector<double>(3));
  }
}

TEST_F(SparseField, IsReadWholeAndInItsOwnOrder) {
  Write(false).ExecWrite();
  int const labels[] = {2, 1, 0};
  ORXSimDistribution const distribution(m_field);
  ORXSimCSetID const backwards = ORXSimCollection(distribution.Collection(0)).CreateOrderedCSet(labels, 3);
  ORXSimTransfer transfer(distribution);
  transfer.SetRead()
      .SetSerialization(ORXSimSerializationType().SetSparse())
      .SetBuffer(0, m_values.data(), 24);
  std::string text;
  EXPECT_EQ(CodeOf([&] { ORXSimTransfer(transfer).SetDim(0, backwards).ExecRead(); }, &text),
            ORXSimException::viewDoesNotFit);
  EXPECT_CONTAINS(text, "other members");
  EXPECT_EQ(CodeOf([&] { ORXSimTransfer(transfer).SetDimOrdinalRange(1, {}, 0, 1).ExecRead(); }),
            ORXSimException::viewDoesNotFit);
  EXPECT_EQ(transfer.SetDimOrdinalRange(1, {}, 0, 2).ExecRead().NumItems(), 3);
}

TEST_F(SparseField, StructuresThatMakeNoSenseAreRefused) {
  std::string text;
  m_starts = {0, 2, 1, 3};
  EXPECT_EQ(CodeOf([&] { Write(false).ExecWrite(); }, &text), ORXSimException::invalidArgument);
  EXPECT_CONTAINS(text, "the row starts decrease from 2 to 1 at row 1");
  m_starts = {0, 2, 2, 2};
  EXPECT_EQ(CodeOf([&] { Write(false).ExecWrite(); }), ORXSimException::invalidArgument);
  m_starts = {0, 2, 2, 3};
  m_columns = {0, 3, 2};
  EXPECT_EQ(CodeOf([&] { Write(false).ExecWrite(); }, &text), ORXSimException::invalidArgument);
  EXPECT_CONTAINS(text, "entry 1 has column 3, expected 0 to 2");
  m_columns = {0, 1, 2};
  EXPECT_EQ(CodeOf([&] { Write(true).SetBuffer(3, static_cast<void*>(nullptr), 0).ExecWrite(); }),
            ORXSimException::viewDoesNotFit);
  EXPECT_EQ(CodeOf([&] { Write(false).SetBuffer(1, m_columns.data(), 8).ExecWrite(); }),
            ORXSimException::viewDoesNotFit);
  ORXSimArray<ORXSimPersistentDrawerDesc> drawers;
  ORXSimDistribution(m_field).QueryDrawers(drawers);
  EXPECT_TRUE(drawers.IsEmpty());
}

} // namespace
