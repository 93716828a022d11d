#include "core/mem_Allocator.h"
#include "mtx/impl/blocks/ORXSrvUtilitiesChunks.h"
#include "sim/ORXSimDistribution.h"
#include "sim/ORXSimTransfer.h"
#include "sim/impl/OpenDatabase.h"
#include "tests/mtx/DenseSupport.h"

#include <climits>
#include <numeric>
#include <utility>

namespace {

using Ints = std::vector<int>;
using Utilities = ORXSrvUtilities;

// ---- the database around the factory

/// "5 x 10 in chunks of 5 x 20", "5 x 10 whole", or "no drawer".
std::string Shape(ORXSimDistributionID const& id) {
  ORXSimArray<ORXSimPersistentDrawerDesc> drawers;
  ORXSimDistribution(id).QueryDrawers(drawers);
  if (drawers.IsEmpty()) return "no drawer";
  ORXSimPersistentDrawerDesc const& drawer = drawers[0];
  std::string sizes;
  for (int d = 0; d < drawer.NumDimensions(); ++d)
    sizes += (d > 0 ? " x " : "") + std::to_string(drawer.DimensionSize(d));
  std::string chunks;
  for (int const length : drawer.ChunkSizes())
    chunks += (chunks.empty() ? " in chunks of " : " x ") + std::to_string(length);
  return sizes + (chunks.empty() ? " whole" : chunks);
}

/// The set that stands along a dimension of the drawer.
ORXSimCSetID SetAlong(ORXSimDistributionID const& id, int dim) {
  ORXSimArray<ORXSimPersistentDrawerDesc> drawers;
  ORXSimDistribution(id).QueryDrawers(drawers);
  return drawers.IsEmpty() ? ORXSimCSetID() : drawers[0].DimensionCSetID(dim);
}

template<class Cell>
std::vector<Cell> ReadAll(ORXSimDistributionID const& id, int cells) {
  std::vector<Cell> values(cells, Cell(-7));
  ORXSimTransfer(ORXSimDistribution(id))
      .SetRead()
      .SetBuffer(0, values.data(), cells * std::int64_t{sizeof(Cell)})
      .ExecRead();
  return values;
}

bool SameCollection(ORXSimDistributionID const& id, int dim, ORXSimCollectionID const& collection) {
  return ORXSimDistribution(id).Collection(dim).Equal(collection);
}

/// A database with a context, an open transaction on it, and a position in it with the types 0 and 1.
class DistributionFactory : public testing::Test {
protected:
  ORXSimCSetID NewSet(int size) const { return m_database.NewSet(size); }
  static ORXSimCSetID Subset(ORXSimCSetID const& set, Ints const& labels) {
    return ORXSimCollection(set.Collection())
        .CreateOrderedCSet(labels.data(), static_cast<int>(labels.size()));
  }
  int NumDistributions() const { return m_context.Distributions().Size(); }

  DenseDatabase m_database;
  ORXSimContext m_context = m_database.Context();
  int m_types[2] = {m_context.DefineType("stiffness"), m_context.DefineType("force")};
  ORXSimTransaction m_transaction{m_context.ID()};
  ORXSrvPosition m_position{m_context.ID()};
};

// ---- chunk limit

TEST(LimitChunkSize2GB, LimitsTheFirstChunkByTheLastSize) {
  struct Case {
    int chunkA, chunkB, sizeB, sizeA, limitedA, limitedB;
  };
  for (Case const& c :
       {Case{100000, 100000, 1000, 4096, 65536, 100000}, Case{100000, 100000, 4096, 1000, 100000, 65536},
        Case{65536, 65537, 4096, 4096, 65536, 65536}, Case{5, 5, 1 << 28, (1 << 28) + 1, 0, 1},
        Case{INT_MAX, -1, 1, 3, 89478485, -1}}) {
    int chunkA = c.chunkA, chunkB = c.chunkB;
    Utilities::LimitChunkSize2GB(chunkA, chunkB, c.sizeB, c.sizeA);
    EXPECT_EQ(std::pair(chunkA, chunkB), std::pair(c.limitedA, c.limitedB)) << c.sizeB << ' ' << c.sizeA;
  }
}

// ---- vectors and matrices of doubles

TEST_F(DistributionFactory, VectorsUseTheChunkLengthAsGiven) {
  ORXSimCSetID const set = Subset(NewSet(9), {8, 2, 5});
  for (auto const& [chunk, shape] : {std::pair{-1, "3 whole"}, std::pair{2, "3 in chunks of 2"},
                                     std::pair{3, "3 in chunks of 3"}, std::pair{20, "3 in chunks of 20"}}) {
    for (ORXSimDistributionID const id :
         {Utilities::Create1DDistribution(set, chunk),
          Utilities::Create1DDistribution(m_transaction, m_position, -1, set, chunk)}) {
      EXPECT_EQ(Shape(id), shape);
      EXPECT_EQ(Labels(SetAlong(id, 0)), (Ints{8, 2, 5}));
      EXPECT_EQ(ReadAll<double>(id, 3), std::vector<double>(3, 0.0));
    }
  }
}

TEST_F(DistributionFactory, MatricesHaveColumnsFirst) {
  ORXSimCSetID const rows = Subset(NewSet(4), {3, 0, 1});
  ORXSimCSetID const columns = Subset(NewSet(2), {1, 0});
  for (ORXSimDistributionID const id :
       {Utilities::Create2DDistribution(rows, columns, 2, 1),
        Utilities::Create2DDistribution(m_transaction, m_position, -1, rows, columns, 2, 1)}) {
    EXPECT_EQ(Shape(id), "2 x 3 in chunks of 1 x 2");
    EXPECT_EQ(Labels(SetAlong(id, 0)), (Ints{1, 0}));
    EXPECT_EQ(Labels(SetAlong(id, 1)), (Ints{3, 0, 1}));
    EXPECT_EQ(ReadAll<double>(id, 6), std::vector<double>(6, 0.0));
  }
}

TEST_F(DistributionFactory, MatrixChunksThatCutNothingCountOnlyWithoutAPosition) {
  ORXSimCSetID const rows = NewSet(10), columns = NewSet(5);
  struct Case {
    int chunkRows, chunkColumns;
    char const *inContext, *atPosition;
  };
  for (Case const& c : {Case{-1, -1, "5 x 10 whole", "5 x 10 whole"},
                        Case{20, 5, "5 x 10 in chunks of 5 x 20", "5 x 10 whole"},
                        Case{10, 5, "5 x 10 in chunks of 5 x 10", "5 x 10 whole"},
                        Case{4, -1, "5 x 10 in chunks of 5 x 4", "5 x 10 in chunks of 5 x 4"},
                        Case{-1, 2, "5 x 10 in chunks of 2 x 10", "5 x 10 in chunks of 2 x 10"},
                        Case{9, 20, "5 x 10 in chunks of 20 x 9", "5 x 10 in chunks of 5 x 9"},
                        Case{20, 4, "5 x 10 in chunks of 4 x 20", "5 x 10 in chunks of 4 x 10"}}) {
    EXPECT_EQ(Shape(Utilities::Create2DDistribution(rows, columns, c.chunkRows, c.chunkColumns)),
              c.inContext);
    EXPECT_EQ(Shape(Utilities::Create2DDistribution(m_transaction, m_position, -1, rows, columns, c.chunkRows,
                                                    c.chunkColumns)),
              c.atPosition);
  }
}

TEST_F(DistributionFactory, SquareMatrixOverOneCollectionHasColumnsOnColourOne) {
  ORXSimCSetID const rows = NewSet(4);
  ORXSimCSetID const columns = Subset(rows, {2, 3});
  ORXSimCSetID const rowsBefore = rows, columnsBefore = columns;
  for (ORXSimDistributionID const id :
       {Utilities::Create2DDistribution(rows, columns, -1, 1),
        Utilities::Create2DDistribution(m_transaction, m_position, -1, rows, columns, -1, 1)}) {
    EXPECT_EQ(Shape(id), "2 x 4 in chunks of 1 x 4");
    EXPECT_TRUE(SameCollection(id, 0, rows.Collection().ColorVariant(1)));
    EXPECT_TRUE(SameCollection(id, 1, rows.Collection()));
    EXPECT_EQ(Labels(SetAlong(id, 0)), (Ints{2, 3}));
  }
  EXPECT_TRUE(rows.Equal(rowsBefore));
  EXPECT_TRUE(columns.Equal(columnsBefore));
}

// ---- sparse matrices

TEST_F(DistributionFactory, SparseMatricesHaveRowsFirstAndNoDrawer) {
  ORXSimCSetID rows = NewSet(4), columns = NewSet(3);
  ORXSimCSetID const columnsBefore = columns;
  for (ORXSimDistributionID const id :
       {Utilities::CreateSparseDistribution(rows, columns),
        Utilities::CreateSparseDistribution(m_transaction, m_position, -1, rows, columns)}) {
    EXPECT_EQ(Shape(id), "no drawer");
    EXPECT_TRUE(SameCollection(id, 0, rows.Collection()));
    EXPECT_TRUE(SameCollection(id, 1, columns.Collection()));
  }
  EXPECT_TRUE(columns.Equal(columnsBefore));
}

TEST_F(DistributionFactory, SparseSquareMatrixTellsTheCallerItsColumns) {
  for (bool const isAtPosition : {false, true}) {
    ORXSimCSetID rows = NewSet(4), columns = rows;
    ORXSimCSetID const before = rows;
    ORXSimDistributionID const id =
        isAtPosition ? Utilities::CreateSparseDistribution(m_transaction, m_position, -1, rows, columns)
                     : Utilities::CreateSparseDistribution(rows, columns);
    EXPECT_TRUE(rows.Equal(before));
    EXPECT_TRUE(columns.Equal(before.OnColorVariant(1)));
    EXPECT_TRUE(SameCollection(id, 0, before.Collection()));
    EXPECT_TRUE(SameCollection(id, 1, columns.Collection()));
    EXPECT_EQ(Labels(columns), Labels(rows));
    EXPECT_EQ(orx::sim::FindContext(m_context.ID()).FindRecord(before.Collection()).colors,
              isAtPosition ? Ints{1} : Ints{});
  }
}

// ---- fields of any number of dimensions

TEST_F(DistributionFactory, FieldsReverseTheOrderOfSetsAndChunks) {
  ORXSimArray<ORXSimCSetID> const sets{NewSet(2), Subset(NewSet(3), {2, 0, 1}), NewSet(4)};
  ORXSimDistributionID const id =
      Utilities::CreateDistribution(m_transaction, m_position, -1, sets, {1, 2, 3}, false);
  EXPECT_EQ(Shape(id), "4 x 3 x 2 in chunks of 3 x 2 x 1");
  EXPECT_EQ(Labels(SetAlong(id, 1)), (Ints{2, 0, 1}));
  for (int d = 0; d < 3; ++d)
    EXPECT_TRUE(SameCollection(id, d, sets[2 - d].Collection())) << d;
  EXPECT_EQ(ReadAll<double>(id, 24), std::vector<double>(24, 0.0));

  // The first set varies fastest: cells 8 ... 9 of the run are both members of set 0 at (1, 1) of the others.
  std::vector<double> values(24);
  std::iota(values.begin(), values.end(), 0.0);
  ORXSimTransfer(ORXSimDistribution(id)).SetWrite().SetBuffer(0, values.data(), 24 * 8).ExecWrite();
  double pair[2] = {};
  ORXSimTransfer(ORXSimDistribution(id))
      .SetRead()
      .SetDimOrdinalRange(0, {}, 1, 1)
      .SetDimOrdinalRange(1, {}, 1, 1)
      .SetDim(2, sets[0])
      .SetBuffer(0, pair, sizeof pair)
      .ExecRead();
  EXPECT_EQ(pair[0], 8.0);
  EXPECT_EQ(pair[1], 9.0);

  EXPECT_EQ(Shape(Utilities::CreateDistribution(m_transaction, m_position, -1, sets, {}, false)),
            "4 x 3 x 2 whole");
}

TEST_F(DistributionFactory, FieldsResolveOneClashOfCollections) {
  ORXSimCSetID const nodes = NewSet(4);
  ORXSimCSetID const some = Subset(nodes, {1, 3});
  ORXSimDistributionID const id =
      Utilities::CreateDistribution(m_transaction, m_position, -1, {some, NewSet(5), nodes}, {}, false);
  EXPECT_EQ(Shape(id), "4 x 5 x 2 whole");
  EXPECT_TRUE(SameCollection(id, 0, nodes.Collection()));
  EXPECT_TRUE(SameCollection(id, 2, nodes.Collection().ColorVariant(1)));
  EXPECT_EQ(Labels(SetAlong(id, 2)), (Ints{1, 3}));
}

TEST_F(DistributionFactory, FieldsWithMoreClashesAreNotCreated) {
  ORXSimCSetID const a = NewSet(2), b = NewSet(3);
  int const before = NumDistributions();
  using Sets = ORXSimArray<ORXSimCSetID>;
  for (Sets const& sets : {Sets{a, a, a}, Sets{a, b, a, b}, Sets{a, a.OnColorVariant(1), a}})
    for (bool const isTemporary : {false, true})
      EXPECT_TRUE(
          Utilities::CreateDistribution(m_transaction, m_position, -1, sets, {}, isTemporary).IsNull());
  EXPECT_EQ(NumDistributions(), before);
}

// ---- types, transactions, temporary distributions

TEST_F(DistributionFactory, PositionsGiveTypesByIndex) {
  ORXSimCSetID rows = NewSet(2), columns = NewSet(2);
  for (int const index : {-1, m_types[0], m_types[1]})
    for (ORXSimDistributionID const id :
         {Utilities::Create1DDistribution(m_transaction, m_position, index, rows, -1),
          Utilities::Create2DDistribution(m_transaction, m_position, index, rows, columns, -1, -1),
          Utilities::CreateSparseDistribution(m_transaction, m_position, index, rows, columns),
          Utilities::CreateDistribution(m_transaction, m_position, index, {rows, columns}, {}, false),
          Utilities::CreateDistribution(m_transaction, m_position, index, {rows, columns}, {}, true)}) {
      EXPECT_EQ(ORXSimDistribution(id).Type(), index < 0 ? ORXSimTypeID() : m_context.Schema().TypeID(index));
      EXPECT_EQ(ORXSimDistribution(id).RangeType().Key(), ORXSimTypeKey::Double);
    }
  EXPECT_EQ(ORXSimDistribution(Utilities::Create2DDistribution(rows, columns, -1, -1)).Type(),
            ORXSimTypeID());
}

TEST_F(DistributionFactory, OnlyTemporaryFieldsDoWithoutTheTransaction) {
  ORXSimCSetID rows = NewSet(2), columns = NewSet(2);
  m_transaction.Commit();
  int const before = NumDistributions();

  ORXSimDistributionID const temporary =
      Utilities::CreateDistribution(m_transaction, m_position, -1, {rows, columns}, {1, 2}, true);
  EXPECT_EQ(Shape(temporary), "2 x 2 in chunks of 2 x 1");
  for (int const error :
       {CodeOf([&] { Utilities::Create1DDistribution(m_transaction, m_position, -1, rows, -1); }),
        CodeOf([&] { Utilities::Create2DDistribution(m_transaction, m_position, 0, rows, columns, -1, -1); }),
        CodeOf([&] { Utilities::CreateSparseDistribution(m_transaction, m_position, -1, rows, columns); }),
        CodeOf([&] {
          Utilities::CreateDistribution(m_transaction, m_position, 0, {rows, columns}, {}, false);
        })})
    EXPECT_EQ(error, ORXSimException::wrongState);
  EXPECT_EQ(NumDistributions(), before);
}

// ---- integers

TEST_F(DistributionFactory, IntegersAreWrittenInSetOrder) {
  ORXSimCSetID const set = Subset(NewSet(6), {5, 0, 3});
  Ints const values{INT_MIN, 7, INT_MAX, 99};

  ORXSimDistributionID const id = Utilities::Write1DIntDistribution(set, values.data(), 3);
  ORXSimDistributionID const fromLonger = Utilities::Write1DIntDistribution(set, values.data(), 4);

  EXPECT_EQ(Shape(id), "3 whole");
  EXPECT_EQ(Labels(SetAlong(id, 0)), (Ints{5, 0, 3}));
  EXPECT_EQ(ORXSimDistribution(id).RangeType().Key(), ORXSimTypeKey::Int32);
  EXPECT_EQ(ReadAll<int>(id, 3), (Ints{INT_MIN, 7, INT_MAX}));
  EXPECT_EQ(ReadAll<int>(fromLonger, 3), (Ints{INT_MIN, 7, INT_MAX}));
}

TEST_F(DistributionFactory, TooFewIntegersAreRefused) {
  ORXSimCSetID const set = NewSet(3);
  int const values[3] = {1, 2, 3}, before = NumDistributions();
  EXPECT_CODE(viewDoesNotFit, Utilities::Write1DIntDistribution(set, values, 2));
  EXPECT_EQ(NumDistributions(), before + 1);
}

// ---- contiguous ranges

Ints Ranges(Ints const& labels, int maxRun, int count) {
  int numRanges = -1;
  mem_Array<int> const starts(ORXSrvFindContiguousRanges(labels.data(), count, maxRun, numRanges));
  if (starts == nullptr) return {};
  return {starts.get(), starts.get() + numRanges + 1};
}
Ints Ranges(Ints const& labels, int maxRun) {
  return Ranges(labels, maxRun, static_cast<int>(labels.size()));
}

TEST(FindContiguousRanges, SplitsAtEveryStepOtherThanOne) {
  EXPECT_EQ(Ranges({3, 4, 5, 9, 10}, 100), (Ints{0, 3, 5}));
  EXPECT_EQ(Ranges({7}, 100), (Ints{0, 1}));
  EXPECT_EQ(Ranges({4, 4, 5, 4, 3, 4, 6}, 100), (Ints{0, 1, 3, 4, 6, 7}));
  EXPECT_EQ(Ranges({-2, -1, 0, 1}, 100), (Ints{0, 4}));
  EXPECT_EQ(Ranges({INT_MAX, INT_MIN, INT_MAX}, 100), (Ints{0, 1, 2, 3}));
}

TEST(FindContiguousRanges, LimitsTheLengthOfARun) {
  EXPECT_EQ(Ranges({3, 4, 5, 9, 10}, 2), (Ints{0, 2, 3, 5}));
  EXPECT_EQ(Ranges({0, 1, 2, 3, 4, 5, 6}, 3), (Ints{0, 3, 6, 7}));
  for (int const maxRun : {1, 0, -5, INT_MIN})
    EXPECT_EQ(Ranges({0, 1, 2}, maxRun), (Ints{0, 1, 2, 3})) << maxRun;
}

TEST(FindContiguousRanges, TakesANegativeCountForOneAndNoneForNoArray) {
  EXPECT_EQ(Ranges({0, 1, 2}, 100, -3), (Ints{0, 1}));
  int numRanges = -1;
  EXPECT_EQ(ORXSrvFindContiguousRanges(nullptr, 0, 100, numRanges), nullptr);
  EXPECT_EQ(numRanges, 0);
}

TEST(LimitChunks, NeverCutsToNothing) {
  constexpr int many = (1 << 28) + 1;
  struct Case {
    int rowChunk, columnChunk, rows, columns, newRowChunk, newColumnChunk;
  };
  for (Case const& c : {
           Case{100, 100, 10, 7, 10, 7},                // to the size
           Case{-1, 4, 10, 7, -1, 4},                   // not chunked
           Case{0, 4, 10, 7, 0, 4},                     // the database refuses it
           Case{4096, 64, many, 1, 4096, 1},            // a column of more than 2 GB
           Case{64, 4096, 1, many, 1, 4096},            // a row
           Case{-1, -1, many, 1, -1, -1},               //
           Case{1 << 20, 1, 1 << 20, 1024, 1 << 18, 1}, // 2 GB in a row of chunks
       }) {
    int rowChunk = c.rowChunk, columnChunk = c.columnChunk;
    orx::LimitChunks(rowChunk, columnChunk, c.rows, c.columns);
    EXPECT_EQ(rowChunk, c.newRowChunk) << c.rows << " x " << c.columns;
    EXPECT_EQ(columnChunk, c.newColumnChunk) << c.rows << " x " << c.columns;
  }
}

} // namespace
