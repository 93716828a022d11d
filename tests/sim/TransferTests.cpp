#include "DatabaseSupport.h"

namespace {

/// 3 x 2 of columns x rows: column c, row r holds 10 r + c.
class SmallField : public WithOneContext {
protected:
  SmallField() : m_field(CreateField(Context(), {3, 2})) {
    CreateDrawer(m_field, {2, 1});
    WriteCells(m_field, {0, 10, 1, 11, 2, 12});
  }
  ORXSimTransfer Transfer() const { return TransferOf(m_field); }
  ORXSimCollection Collection(int dim) const {
    return ORXSimCollection(ORXSimDistribution(m_field).Collection(dim));
  }
  /// The message of a failed read of this selection.
  std::string Message(ORXSimTransfer transfer) const {
    std::vector<double> values(6);
    std::string text;
    EXPECT_EQ(CodeOf([&] { Lend(transfer.SetRead(), 0, values).ExecRead(); }, &text),
              ORXSimException::viewDoesNotFit);
    return text;
  }

  ORXSimDistributionID m_field;
};

#define EXPECT_CONTAINS(text, part) EXPECT_NE((text).find(part), std::string::npos) << (text)

TEST_F(SmallField, ViewsThatDoNotFitAreNamed) {
  ORXSimCollectionID const columns = Collection(0).ID(), rows = Collection(1).ID();
  EXPECT_CONTAINS(Message(Transfer().SetDimOrdinalRange(1, rows, 0, 2)),
                  "along dimension 1 the positions are 0 to 2, the drawer has 0 to 1");
  EXPECT_CONTAINS(Message(TransferOf(m_field, {{2, 1}})), "along dimension 0 the positions are 2 to 1");
  EXPECT_CONTAINS(Message(TransferOf(m_field, {{-1, 1}})), "along dimension 0 the positions are -1 to 1");
  EXPECT_CONTAINS(Message(Transfer().SetDimOrdinalRange(0, rows, 0, 1)), "along dimension 0 the selection");
  EXPECT_CONTAINS(Message(Transfer().SetDim(0, {})), "along dimension 0 the member set is null");
  int const foreign[] = {1, 7};
  EXPECT_CONTAINS(Message(Transfer().SetDim(0, Collection(0).CreateOrderedCSet(foreign, 2))),
                  "the drawer has no member 7");
  EXPECT_CONTAINS(Message(Transfer().SetSerialization(ORXSimSerializationType().SetSparse())),
                  "its drawer is dense");
  EXPECT_CODE(invalidArgument, Transfer().SetDimOrdinalRange(2, columns, 0, 0));
  EXPECT_CODE(invalidArgument, Transfer().SetBuffer(4, static_cast<void*>(nullptr), 0));
}

TEST_F(SmallField, CheckViewFindsMembersAndSetsThatAreNotThere) {
  int const foreign[] = {1, 7};
  ORXSimCollection const columns = Collection(0);
  ORXSimDynamicDataID data = columns.CreateOrderedCSet(foreign, 2).Data();
  data.memberSet += 1000;
  ORXSimCSetID const none(columns.ID().Context(), data, {});
  EXPECT_EQ(CodeOf([&] { Transfer().SetDim(0, columns.CreateOrderedCSet(foreign, 1)).CheckView(); }), 0);
  for (ORXSimTransfer const& unfit :
       {Transfer().SetDim(0, columns.CreateOrderedCSet(foreign, 2)), Transfer().SetDim(0, none),
        Transfer().SetMakeNewDrawer().SetDim(0, none), Transfer().SetDimExtension(none)})
    EXPECT_CODE(viewDoesNotFit, ORXSimTransfer(unfit).CheckView());
}

TEST_F(SmallField, ViewsAreCheckedAgainBecauseDrawersChange) {
  std::vector<double> values(6);
  ORXSimTransfer transfer = TransferOf(m_field, {{2, 2}}).SetRead().CheckView();
  int const label[] = {0};
  ORXSimTransfer replacement = Transfer().SetMakeNewDrawer().SetWrite();
  replacement.SetDim(0, Collection(0).CreateOrderedCSet(label, 1)).InitializePersistentDrawer();
  EXPECT_CONTAINS(Message(transfer), "the drawer has 0 to 0");

  ORXSimDistribution const other(CreateField(Context(), {2, 3}));
  {
    ORXSimTransaction const abandoned(m_context);
    Extend(m_field, 0, 1);
    transfer.SetDimOrdinalRange(0, {}, 1, 1).CheckView();
  }
  EXPECT_CONTAINS(Message(transfer), "the drawer has 0 to 0");
  ORXSimTransfer late(other);
  {
    ORXSimTransaction const abandoned(m_context);
    CreateDrawer(other.ID(), {});
    late.SetRead().CheckView();
  }
  EXPECT_CODE(viewDoesNotFit, Lend(late, 0, values));
  EXPECT_CODE(viewDoesNotFit, late.ExecRead());
}

TEST_F(SmallField, SelectionsBeyondAnyMemoryAreRefused) {
  ORXSimTransfer transfer = Transfer();
  for (int const dim : {0, 1})
    transfer.SetDim(dim, Collection(dim).CreateCSetStrided(0, 2147483647, 0, 1));
  EXPECT_CONTAINS(Message(transfer), "more cells are selected than any buffer holds");
}

TEST_F(SmallField, BuffersMustBeLongEnough) {
  double values[6] = {7, 7, 7, 7, 7, 7};
  std::string text;
  EXPECT_EQ(CodeOf([&] { Transfer().SetWrite().SetBuffer(0, values, 40).ExecWrite(); }, &text),
            ORXSimException::viewDoesNotFit);
  EXPECT_CONTAINS(text, "buffer 0 has 40 bytes, the selection needs 48");
  EXPECT_CODE(viewDoesNotFit, Transfer().SetWrite().CheckView().SetBuffer(0, values, 40))
      << "known before the execution";
  EXPECT_CODE(viewDoesNotFit, Transfer().SetRead().ExecRead());
  EXPECT_CODE(wrongState, Transfer().SetBuffer(0, values, 48).ExecWrite());

  EXPECT_EQ(CellsOf(m_field), (std::vector<double>{0, 10, 1, 11, 2, 12})) << "nothing was written";
}

TEST_F(SmallField, CopiesOfATransferAreConfiguredApart) {
  ORXSimTransfer first = Transfer().SetRead(), second = first;
  std::vector<double> values(2), other(3);

  Lend(second.SetDimOrdinalRange(1, {}, 1, 1), 0, other);
  Lend(first.SetDimOrdinalRange(0, {}, 1, 1), 0, values).ExecRead();
  second.ExecRead();

  EXPECT_EQ(values, (std::vector<double>{1, 11}));
  EXPECT_EQ(other, (std::vector<double>{10, 11, 12}));
}

TEST_F(SmallField, ANewDrawerReplacesTheFormer) {
  std::vector<double> const cells{1, 2, 3, 4, 5, 6};
  Lend(Transfer().SetMakeNewDrawer().SetWrite(), 0, cells).ExecWrite();
  EXPECT_EQ(CellsOf(m_field), cells);
  EXPECT_TRUE(DrawerOf(m_field).ChunkSizes().IsEmpty());
  Reopen();
  EXPECT_EQ(CellsOf(FieldIn(m_database)), cells);
}

TEST_F(SmallField, ExtensionsMustFitADimension) {
  std::string text;
  EXPECT_EQ(CodeOf([&] { Transfer().SetDimExtension(NewCollection(4).BiggestCSetID()).CheckView(); }, &text),
            ORXSimException::viewDoesNotFit);
  EXPECT_CONTAINS(text, "no dimension has the collection");
  EXPECT_CODE(wrongState, Transfer().InitializeExtension());
  EXPECT_EQ(DrawerOf(m_field).ExtendableDimension(), 0);
  std::vector<double> cell(1);
  ORXSimTransfer outside = TransferOf(m_field, {{9, 9}}).SetRead();
  outside.SetDimExtension(Collection(0).CreateCSetStrided(3, 1, 1, 1));
  EXPECT_CODE(viewDoesNotFit, Lend(outside, 0, cell).ExecRead()) << "selections are checked all the same";
  ORXSimDistribution const integers(CreateField(Context(), {3}, ORXSimTypeKey::Int32));
  CreateDrawer(integers.ID(), {});
  ORXSimTransfer extension(integers);
  extension.SetInitializationValue(ORXSimRangeValue(1e300, -1, ORXSimTypeKey::Double));
  extension.SetDimExtension(ORXSimCollection(integers.Collection(0)).BiggestCSetID());
  EXPECT_CODE(viewDoesNotFit, extension.InitializeExtension());
}

class Drawer : public WithOneContext {};

TEST_F(Drawer, KeepsChunkLengthsAsGivenAndTinyChunksCheap) {
  CreateDrawer(CreateField(Context(), {5, 10}), {5, 1000000});
  CreateDrawer(CreateField(Context(), {1000, 1000}), {1, 1});
  Reopen();
  EXPECT_EQ(DrawerOf(FieldIn(m_database, 0)).ChunkSizes()[1], 1000000);
  EXPECT_EQ(DrawerOf(FieldIn(m_database, 1)).ChunkSizes()[0], 1);
  EXPECT_LT(FileSize(Path()), 8.3e6) << "neither the length nor the number of chunks costs";
}

TEST_F(Drawer, MayGrowFromNothingAndByAnyNumberOfPieces) {
  WithoutLinkChecks const fast;
  ORXSimDistributionID const field = CreateField(Context(), {0, 1});
  CreateDrawer(field, {});
  EXPECT_EQ(CellsOf(field), std::vector<double>());
  Extend(field, 0, 9000);

  Reopen();
  EXPECT_EQ(CellsOf(FieldIn(m_database)), std::vector<double>(9000, 0.0));
  std::vector<double> cells(9000, 3.0);
  WriteCells(FieldIn(m_database), cells);
  EXPECT_EQ(CellsOf(FieldIn(m_database)), cells);
  {
    ORXSimTransaction const abandoned(m_context);
    Extend(FieldIn(m_database), 0, 1);
  }
  Extend(FieldIn(m_database), 0, 1);
  Reopen();
  cells.push_back(0.0);
  EXPECT_EQ(CellsOf(FieldIn(m_database)), cells);
}

TEST_F(Drawer, HasUpToThirtyTwoDimensions) {
  std::vector<int> sizes(32, 1);
  sizes[5] = 3;
  sizes[31] = 2;
  ORXSimDistributionID const field = CreateField(Context(), sizes);
  CreateDrawer(field, {});
  WriteCells(field, {1, 2, 3, 4, 5, 6});
  Extend(field, 7, 1);
  sizes.push_back(1);
  EXPECT_CODE(invalidArgument, CreateField(Context(), sizes));
  Reopen(true);
  EXPECT_EQ(CellsOf(FieldIn(m_database)), (std::vector<double>{1, 2, 0, 0, 3, 4, 0, 0, 5, 6, 0, 0}));
}

TEST_F(Drawer, BeyondFourGibibytesAndAChunkOfTwo) {
  if (std::filesystem::space(m_folder.Path("")).available < (std::uintmax_t{12} << 30))
    GTEST_SKIP() << "needs 12 GiB";
  int const rows = 1 << 14, columns = 40000; // 5.2 GB, reserved but not written
  ORXSimDistributionID const field = CreateField(Context(), {columns, rows});
  CreateDrawer(field, {1 << 14, rows});
  int const written[] = {0, (1 << 14) - 1, 1 << 14, columns - 1};
  for (int const column : written)
    WriteCells(field, {column + 1.0}, {{column, column}, {rows - 1, rows - 1}});
  Reopen(true);
  for (int const column : written)
    EXPECT_EQ(Read<2>(FieldIn(m_database), {{column, column}, {rows - 2, rows - 1}}),
              (std::array{0.0, column + 1.0}));
}

// The matrix 5 7 0 / 0 0 0 / 0 0 9 with a diagonal beside it.
class SparseField : public WithOneContext {
protected:
  SparseField() : m_field(CreateField(Context(), {3, 3})) {}
  ORXSimTransfer Write(bool isSymmetric) {
    ORXSimTransfer transfer = TransferOf(m_field).SetMakeNewDrawer().SetWrite();
    transfer.SetBufferPadding(false).SetSparseNNonzero(3);
    return LendAll(transfer, isSymmetric);
  }
  ORXSimTransfer& LendAll(ORXSimTransfer& transfer, bool isSymmetric) {
    ORXSimSerializationType type;
    transfer.SetSerialization(isSymmetric ? type.SetSparseSym() : type.SetSparse());
    Lend(Lend(Lend(transfer, 0, m_values), 1, m_columns), 2, m_starts);
    return isSymmetric ? Lend(transfer, 3, m_diagonal) : transfer;
  }

  ORXSimDistributionID m_field;
  std::vector<double> m_values{5, 7, 9};
  std::vector<int> m_columns{0, 1, 2}, m_starts{0, 2, 2, 3};
  std::vector<double> m_diagonal{5, 0, 9};
};

TEST_F(SparseField, ComesBackInBothForms) {
  for (bool const isSymmetric : {false, true}) {
    Write(isSymmetric).ExecWrite();
    Reopen();
    m_field = FieldIn(m_database);

    ORXSimPersistentDrawerDesc const drawer = DrawerOf(m_field);
    EXPECT_EQ(drawer.DataSizeItems(0), 3);
    EXPECT_EQ(drawer.DataSizeItems(3), isSymmetric ? 3 : 0);
    EXPECT_EQ(static_cast<int>(drawer.Serialization().Kind()), isSymmetric ? 4 : 3);
    EXPECT_EQ(drawer.ExtendableDimension(), -1);
    auto const expected = std::tuple(m_values, m_columns, m_starts, m_diagonal);
    m_values = {-1, -1, -1};
    m_columns = {-1, -1, -1};
    m_starts = {-1, -1, -1, -1};
    if (isSymmetric) m_diagonal = {-1, -1, -1};
    ORXSimTransfer transfer = TransferOf(m_field).SetRead();
    LendAll(transfer, isSymmetric).ExecRead();
    EXPECT_EQ(std::tuple(m_values, m_columns, m_starts, m_diagonal), expected);
  }
}

TEST_F(SparseField, IsReadWholeAndInItsOwnOrder) {
  Write(false).ExecWrite();
  int const labels[] = {2, 1, 0};
  ORXSimDistribution const distribution(m_field);
  ORXSimCSetID const backwards = ORXSimCollection(distribution.Collection(0)).CreateOrderedCSet(labels, 3);
  ORXSimTransfer transfer = TransferOf(m_field).SetRead();
  LendAll(transfer, false);
  std::string text;
  EXPECT_EQ(CodeOf([&] { ORXSimTransfer(transfer).SetDim(0, backwards).ExecRead(); }, &text),
            ORXSimException::viewDoesNotFit);
  EXPECT_CONTAINS(text, "other members");
  EXPECT_CODE(viewDoesNotFit, ORXSimTransfer(transfer).SetDimOrdinalRange(1, {}, 0, 1).ExecRead());
  EXPECT_EQ(transfer.SetDimOrdinalRange(1, {}, 0, 2).ExecRead().NumItems(), 3);
}

TEST_F(SparseField, StructuresThatMakeNoSenseAreRefused) {
  std::string text;
  m_starts = {0, 2, 1, 3};
  EXPECT_EQ(CodeOf([&] { Write(false).ExecWrite(); }, &text), ORXSimException::invalidArgument);
  EXPECT_CONTAINS(text, "the row starts decrease from 2 to 1 at row 1");
  m_starts = {0, 2, 2, 2};
  EXPECT_CODE(invalidArgument, Write(false).ExecWrite());
  m_starts = {0, 2, 2, 3};
  m_columns = {0, 3, 2};
  EXPECT_EQ(CodeOf([&] { Write(false).ExecWrite(); }, &text), ORXSimException::invalidArgument);
  EXPECT_CONTAINS(text, "entry 1 has column 3, expected 0 to 2");
  m_columns = {0, 1, 2};
  EXPECT_CODE(viewDoesNotFit, Write(true).SetBuffer(3, static_cast<void*>(nullptr), 0).ExecWrite());
  EXPECT_CODE(viewDoesNotFit, Write(false).SetBuffer(1, m_columns.data(), 8).ExecWrite());
  ORXSimArray<ORXSimPersistentDrawerDesc> drawers;
  ORXSimDistribution(m_field).QueryDrawers(drawers);
  EXPECT_TRUE(drawers.IsEmpty());
}

} // namespace
