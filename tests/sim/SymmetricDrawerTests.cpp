#include "DatabaseSupport.h"

#include "sim/impl/store/DenseDrawer.h"

#include <cmath>
#include <filesystem>
#include <hdf5.h>
#include <limits>
#include <random>

// Symmetric matrices of which one triangle of blocks is stored, against plain arrays of all cells.

namespace {

using Cells = std::vector<double>;
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

class SymmetricDrawers : public WithOneContext {
protected:
  /// A field over the columns and rows of one collection, without a drawer.
  ORXSimDistributionID SquareField(int order) const {
    ORXSimCollectionID const rows = Context().CreateCollection(order, {});
    ORXSimCollectionID const columns = ORXSimCollection(rows).CreateColorVariant(1);
    return Context().CreateDistribution(ORXSimGrid({columns, rows}), ORXSimRangeType(ORXSimTypeKey::Double),
                                        {});
  }
  static void CreateSymmetric(ORXSimDistributionID const& field, std::vector<int> const& chunks,
                              double fill = 0.0) {
    ORXSimTransfer transfer{ORXSimDistribution(field)};
    chunks.empty() ? transfer.SetMakeNewDrawer() : transfer.SetMakeNewDrawerChunked(Numbers(chunks));
    transfer.SetSerialization(ORXSimSerializationType().SetDenseSym()).SetWrite();
    transfer.SetInitializationValue(ORXSimRangeValue(fill, -1, ORXSimTypeKey::Double));
    transfer.CheckView().InitializePersistentDrawer();
  }
  /// Blocks of `length`; 0: stored whole.
  ORXSimDistributionID New(int order, int length, double fill = 0.0) const {
    ORXSimDistributionID const field = SquareField(order);
    CreateSymmetric(field, length > 0 ? std::vector<int>{length, length} : std::vector<int>{}, fill);
    return field;
  }
};

/// All cells of a symmetric matrix, and what writes and growth do to them.
struct Model {
  int order = 0;
  Cells cells{};

  double& At(int row, int column) { return cells[static_cast<std::size_t>(column) * order + row]; }
  void Grow(int count, double fill) {
    Model larger{order + count, Cells(static_cast<std::size_t>(order + count) * (order + count), fill)};
    for (int j = 0; j < order; ++j)
      for (int i = 0; i < order; ++i)
        larger.At(i, j) = At(i, j);
    *this = larger;
  }
};

struct Rectangle {
  int firstRow, lastRow, firstColumn, lastColumn;
};

class RandomSymmetric : public SymmetricDrawers {
protected:
  int Draw(int low, int high) { return std::uniform_int_distribution<int>(low, high)(m_random); }
  Rectangle DrawRectangle(int order) {
    int const r = Draw(0, order - 1), c = Draw(0, order - 1);
    if (Draw(0, 3) == 0) return {0, order - 1, c, Draw(c, order - 1)}; // columns
    return {r, Draw(r, order - 1), c, Draw(c, order - 1)};
  }
  static Ranges AsRanges(Rectangle const& r) {
    return {{r.firstColumn, r.lastColumn}, {r.firstRow, r.lastRow}};
  }
  /// Writes new values into a rectangle of both, and reads another one.
  void WriteAndRead(ORXSimDistributionID const& field, Model& model) {
    Rectangle const to = DrawRectangle(model.order);
    for (int j = to.firstColumn; j <= to.lastColumn; ++j)
      for (int i = to.firstRow; i <= to.lastRow; ++i)
        model.At(i, j) = model.At(j, i) = m_next += 1.0;
    WriteCells(field, Part(model, to), AsRanges(to));
    Rectangle const from = DrawRectangle(model.order);
    Cells const expected = Part(model, from);
    Cells read(expected.size());
    Lend(TransferOf(field, AsRanges(from)).SetRead(), 0, read).ExecRead();
    ASSERT_EQ(read, expected);
  }
  static Cells Part(Model& model, Rectangle const& r) {
    Cells part;
    for (int j = r.firstColumn; j <= r.lastColumn; ++j)
      for (int i = r.firstRow; i <= r.lastRow; ++i)
        part.push_back(model.At(i, j));
    return part;
  }

  std::mt19937 m_random{7};
  double m_next = 0.0;
};

TEST_F(RandomSymmetric, AreTheMatrixWhateverIsWrittenGrownAbandonedAndReopened) {
  for (auto const& [order, length] : {std::pair{1, 1},
                                      {1, 4},
                                      {0, 3},
                                      {5, 1},
                                      {9, 3},
                                      {11, 4},
                                      {23, 64},
                                      {40, 0},
                                      {150, 67},
                                      {300, 256},
                                      {300, 0}}) {
    SCOPED_TRACE(std::to_string(order) + " in blocks of " + std::to_string(length));
    New(order, length, 0.25);
    int number = ORXSimContext(m_context).Distributions().Size() - 1;
    Model model{order, Cells(static_cast<std::size_t>(order) * order, 0.25)};
    for (int step = 0; step < 40; ++step) {
      ORXSimDistributionID const field = FieldIn(m_database, number);
      if (model.order > 0) WriteAndRead(field, model);
      if (HasFatalFailure()) return;
      if (step % 8 == 3) { // what an abandoned growth leaves in the blocks is not seen by the next one
        Model longer = model;
        ORXSimTransaction const abandoned(m_context);
        longer.Grow(Draw(1, 9), 0.25);
        Extend(field, step % 2, longer.order - model.order);
        WriteAndRead(field, longer);
      }
      if (step % 8 == 3) { // cells that both have were written in place
        WriteCells(field, model.cells);
        ASSERT_EQ(CellsOf(field), model.cells);
      }
      if (step % 8 == 5) {
        int const count = Draw(1, step > 30 ? 70 : 5);
        Extend(field, step % 2, count);
        model.Grow(count, 0.25);
        ASSERT_EQ(CellsOf(field), model.cells);
        ASSERT_EQ(DrawerOf(field).DimensionSize(0), model.order);
        ASSERT_EQ(DrawerOf(field).DimensionSize(1), model.order);
      }
      if (step % 10 == 9) {
        ORXSimTransaction(m_context).Commit();
        Reopen(step % 20 == 9 && step < 35 ? false : true);
        ASSERT_EQ(CellsOf(FieldIn(m_database, number)), model.cells);
        Reopen();
      }
    }
  }
}

TEST_F(SymmetricDrawers, ValuesForMirrorImagesAgreeOrNothingIsWritten) {
  ORXSimDistributionID const field = New(6, 2);
  auto const write = [&](Ranges const& ranges, Cells const& cells) {
    return CodeOf([&] { WriteCells(field, cells, ranges); });
  };
  Ranges const rows1To3Columns2To4{{2, 4}, {1, 3}}; // has (2, 3) and (3, 2)
  EXPECT_EQ(write(rows1To3Columns2To4, {12, 22, 99, 13, 23, 33, 14, 24, 34}), ORXSimException::mirrorsDiffer);
  EXPECT_EQ(CellsOf(field), Cells(36));
  EXPECT_EQ(write(rows1To3Columns2To4, {12, 22, 23, 13, 23, 33, 14, 24, 34}), 0);
  EXPECT_EQ((Read<2>(field, {{1, 1}, {3, 4}})), (std::array<double, 2>{13, 14}));
  EXPECT_EQ(write({{0, 1}, {0, 1}}, {0, notANumber, notANumber, 0}), 0);
  EXPECT_EQ(write({{0, 1}, {0, 1}}, {0, notANumber, 1, 0}), ORXSimException::mirrorsDiffer);
  EXPECT_EQ(write({{0, 1}, {0, 1}}, {0, -0.0, 0.0, 0}), 0) << "equal as values";
  EXPECT_EQ(write({{0, 5}, {0, 5}}, Cells(36, 5.0)), 0);

  // Members in any order, some of them twice: cells that were selected by several boxes.
  ORXSimDistribution const distribution(field);
  auto const setsOf = [&](ORXSimTransfer& transfer, std::vector<int> const& columns,
                          std::vector<int> const& rows) {
    int dim = 0;
    for (std::vector<int> const& labels : {columns, rows}) {
      ORXSimCollection const members(distribution.Collection(dim));
      transfer.SetDim(dim++, members.CreateTempOrderedCSet(labels.data(), static_cast<int>(labels.size())));
    }
  };
  for (bool const agree : {false, true}) {
    ORXSimTransfer transfer(distribution);
    setsOf(transfer, {5, 0, 3}, {0, 5, 1});
    Cells const cells{50, 55, 51, 0, agree ? 50.0 : 5.0, 10, 30, 53, 31};
    Lend(transfer.SetWrite(), 0, cells);
    std::string text;
    EXPECT_EQ(CodeOf([&] { transfer.ExecWrite(); }, &text), agree ? 0 : ORXSimException::mirrorsDiffer);
    char const fault[] = "row 0, column 5 would be 50, but row 5, column 0 would be 5.";
    EXPECT_EQ(text.find(fault) == text.npos, agree) << text;
    Cells expected(36, 5.0);
    auto const set = [&](int i, int j, double value) { expected[6 * j + i] = expected[6 * i + j] = value; };
    if (agree)
      set(0, 5, 50), set(5, 5, 55), set(1, 5, 51), set(0, 0, 0), set(1, 0, 10), set(0, 3, 30), set(5, 3, 53),
          set(1, 3, 31);
    EXPECT_EQ(CellsOf(field), expected);
  }
}

TEST_F(SymmetricDrawers, WhatIsNotSquareAndOfOneSetIsRefused) {
  struct Fault {
    char const* text;
    std::function<void()> run;
  };
  auto const refused = [](ORXSimDistributionID const& field, std::vector<int> const& chunks) {
    return [=] { CreateSymmetric(field, chunks); };
  };
  ORXSimCollection const collection = NewCollection(3);
  ORXSimCollectionID const other = collection.CreateColorVariant(1);
  ORXSimDistributionID const integers = Context().CreateDistribution(
      ORXSimGrid({other, collection.ID()}), ORXSimRangeType(ORXSimTypeKey::Int32), {});
  int const few[] = {0, 2};
  auto const ofOtherMembers = [&] {
    ORXSimDistribution const field(SquareField(3));
    ORXSimTransfer transfer(field);
    transfer.SetDim(0, ORXSimCollection(field.Collection(0)).CreateOrderedCSet(few, 2)).SetMakeNewDrawer();
    transfer.SetSerialization(ORXSimSerializationType().SetDenseSym()).CheckView();
  };
  for (Fault const& fault : std::initializer_list<Fault>{
           {"same members of one collection", refused(CreateField(Context(), {3, 3}), {})},
           {"same members of one collection", ofOtherMembers},
           {"two dimensions", refused(CreateField(Context(), {3, 3, 3}), {})},
           {"double precision", refused(integers, {})},
           {"1 and 2", refused(SquareField(3), {1, 2})}}) {
    std::string text;
    EXPECT_EQ(CodeOf(fault.run, &text), ORXSimException::viewDoesNotFit);
    EXPECT_NE(text.find(fault.text), text.npos) << text;
  }
  EXPECT_CODE(invalidArgument, New(70000, 1));

  ORXSimDistributionID const dense = CreateField(Context(), {3, 3});
  CreateDrawer(dense, {});
  Cells cells(9);
  ORXSimTransfer read = TransferOf(dense).SetRead().SetSerialization(ORXSimSerializationType().SetDenseSym());
  EXPECT_CODE(viewDoesNotFit, Lend(read, 0, cells).ExecRead());
  EXPECT_TRUE(DrawerOf(New(3, 1)).Serialization().IsDenseSym());
}

TEST_F(SymmetricDrawers, TakeHalfOfTheSpaceAndTheDiagonal) {
  auto const bytesOf = [&](auto create) {
    std::uint64_t const before = std::filesystem::file_size(Path());
    create();
    ORXSimTransaction(m_context).Commit();
    return static_cast<double>(std::filesystem::file_size(Path()) - before);
  };
  constexpr double full = 8.0 * 2048 * 2048;
  EXPECT_LT(bytesOf([&] { New(2048, 128); }), (0.5 + 0.5 / 16 + 0.01) * full);
  EXPECT_LT(bytesOf([&] { New(1025, 1024); }), 0.78 * 8 * 1025 * 1025) << "blocks of equal length";
  EXPECT_LT(bytesOf([&] { New(2048, 0); }), 0.76 * full) << "stored whole: blocks of 1024";
  EXPECT_LT(bytesOf([&] { New(600, 3); }), 0.52 * 8 * 600 * 600) << "few chunks hold many small blocks";
}

/// Changes the drawer of field 0 in the closed file.
template<class Change>
void ChangeDrawer(std::string const& path, Change change) {
  hid_t const file = H5Fopen(path.c_str(), H5F_ACC_RDWR, H5P_DEFAULT);
  hid_t const field = H5Gopen2(file, "/context_0/distribution_0", H5P_DEFAULT);
  H5Lmove(field, "drawer", field, "former", H5P_DEFAULT, H5P_DEFAULT);
  change(field);
  H5Gclose(field);
  H5Fclose(file);
}

void MakeDrawer(hid_t field, std::array<hsize_t, 3> const& extents, Cells const& cells) {
  hid_t const space = H5Screate_simple(3, extents.data(), nullptr);
  hid_t const creation = H5Pcreate(H5P_DATASET_CREATE);
  H5Pset_chunk(creation, 3, extents.data());
  H5Pset_deflate(creation, 1);
  hid_t const dataset =
      H5Dcreate2(field, "drawer", H5T_IEEE_F64LE, space, H5P_DEFAULT, creation, H5P_DEFAULT);
  H5Dwrite(dataset, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, cells.data());
  H5Dclose(dataset), H5Pclose(creation), H5Sclose(space);
}

// Blocks (0, 0), (1, 0), (1, 1) of a matrix of order 3, column by column; 9 lies beyond the order.
TEST_F(SymmetricDrawers, LieInTheFileAsDocumented) {
  Cells const expected{1, 2, 3, 2, 4, 5, 3, 5, 6};
  Cells const stored{1, 2, 2, 4, 3, 9, 5, 9, 6, 9, 9, 9};
  WriteCells(New(3, 2, 9.0), expected);
  ORXSimTransaction(m_context).Commit();
  m_database.Close();
  Cells found(12);
  ChangeDrawer(Path(), [&](hid_t field) {
    hid_t const dataset = H5Dopen2(field, "former", H5P_DEFAULT);
    H5Dread(dataset, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, found.data());
    H5Dclose(dataset);
    MakeDrawer(field, {3, 2, 2}, stored);
  });
  EXPECT_EQ(found, stored);
  Open(m_database, Path());
  EXPECT_EQ(CellsOf(FieldIn(m_database)), expected) << "compressed by another program";
  EXPECT_CODE(writeFailed, WriteCells(FieldIn(m_database), expected));
}

TEST_F(SymmetricDrawers, OfAnotherShapeThanTheCatalogueSaysAreDamaged) {
  New(3, 2);
  ORXSimTransaction(m_context).Commit();
  m_database.Close();
  for (auto const& extents : {std::array<hsize_t, 3>{2, 2, 2}, {3, 2, 1}, {3, 1, 1}, {6, 1, 2}}) {
    std::string const copy = m_folder.Path("copy.sim");
    WriteWhole(copy, ReadWhole(Path()));
    ChangeDrawer(copy, [&](hid_t field) { MakeDrawer(field, extents, Cells(12)); });
    ORXSimDatabase database;
    Open(database, copy);
    EXPECT_CODE(damaged, CellsOf(FieldIn(database))) << extents[0] << ' ' << extents[1] << ' ' << extents[2];
  }
}

// As other dense drawers; a crash may come while another context is committed.
TEST_F(SymmetricDrawers, AnExtensionThatWasCutOffIsNotLeftInTheFile) {
  ORXSimDistributionID const field = New(4, 2);
  Cells const ones(16, 1.0);
  WriteCells(field, ones);
  ORXSimContextID const sibling = m_database.CreateContext({});
  ORXSimTransaction(m_context).Commit();
  ORXSimTransaction const open(m_context);
  Extend(field, 0, 6);
  WriteCells(field, Cells(100, 7.0));
  ORXSimTransaction(sibling).Commit();
  std::string const copy = m_folder.Path("b.sim");
  WriteWhole(copy, ReadWhole(Path()));
  ORXSimDatabase next;
  Open(next, copy);
  ORXSimDistributionID const same = FieldIn(next);
  EXPECT_EQ(CellsOf(same), Cells(16, 7.0)) << "values are written in place";
  Extend(same, 1, 1);
  Model expected{4, Cells(16, 7.0)};
  expected.Grow(1, 0.0);
  EXPECT_EQ(CellsOf(same), expected.cells);
}

} // namespace
