#include "DatabaseSupport.h"

#include "sim/impl/ORXSimIndexSet.h"

#include <algorithm>
#include <hdf5.h>
#include <optional>
#include <random>

// The catalogue of a file in long and large use: what is written, what is kept, what it costs.

namespace {

class Catalog : public WithOneContext {};

// HDF5 keeps about 2 MB of structure in memory and reads the rest again when it is needed; objects that wait
// for their commit must survive that.
TEST_F(Catalog, ManyNewDrawersKeepTheirCells) {
  ORXSimCollection const labels = NewCollection(0);
  std::vector<double> expected;
  auto const addDrawers = [&](int count) {
    for (int k = 0; k < count; ++k) {
      ORXSimDistributionID const field = CreateField(Context(), {8, 8});
      CreateDrawer(field, {});
      WriteCells(field, std::vector<double>(64, static_cast<double>(expected.size())));
      expected.push_back(static_cast<double>(expected.size()));
    }
  };
  auto const expectCells = [&](char const* when) {
    auto const fields = Context().Distributions();
    ASSERT_EQ(fields.Size(), static_cast<int>(expected.size())) << when;
    for (std::size_t k = 0; k < expected.size(); ++k)
      ASSERT_EQ(CellsOf(fields[static_cast<int>(k)]), std::vector<double>(64, expected[k])) << when << k;
  };
  for (auto const& [drawers, sets, isCommitted] : {std::tuple{1, 4000, true}, std::tuple{1000, 0, true},
                                                   std::tuple{50, 0, false}, std::tuple{50, 0, true}}) {
    std::optional<ORXSimTransaction> transaction(m_context);
    std::size_t const former = expected.size();
    addDrawers(drawers);
    for (int k = 0; k < sets; ++k) {
      int const pair[] = {k, k + 5000};
      labels.CreateOrderedCSet(pair, 2);
    }
    expectCells("before the commit ");
    if (isCommitted) transaction->Commit();
    transaction.reset();
    if (!isCommitted) expected.resize(former);
    expectCells("after the transaction ");
  }
  Reopen();
  expectCells("reopened ");
}

// Sets that continue each other share their labels; what they answer is what a plain list answers.
TEST(IndexSets, JoinedOnesAreTheListsTheyStandFor) {
  std::mt19937 random(7);
  auto const below = [&](int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); };
  std::vector<std::pair<ORXSimIndexSet, std::vector<int>>> sets{{ORXSimIndexSet::Strided(0, 0, 1), {}}};
  for (int k = 0; k < 600; ++k) {
    std::vector<int> more(below(3) == 0 ? below(200) : below(4));
    int const start = 1000 + below(200), stride = below(5) - 2;
    for (std::size_t j = 0; j < more.size(); ++j)
      more[j] = stride == 2 ? below(300) : start + stride * static_cast<int>(j);
    auto const [front, frontLabels] = sets[below(static_cast<int>(sets.size()))];
    if (frontLabels.size() > 3000) continue;
    std::vector<int> labels = frontLabels;
    labels.insert(labels.end(), more.begin(), more.end());
    ORXSimIndexSet const joined = ORXSimIndexSet::Joined(front, ORXSimIndexSet::Listed(more));
    ASSERT_TRUE(joined == ORXSimIndexSet::Listed(labels));
    ASSERT_EQ(joined.Digest(), ORXSimIndexSet::Listed(labels).Digest());
    sets.emplace_back(joined, labels);
  }
  for (auto const& [set, labels] : sets) {
    ASSERT_EQ(set.Size(), static_cast<int>(labels.size()));
    std::vector<int> copied(labels.size());
    set.CopyTo(copied.data());
    ASSERT_EQ(copied, labels) << "also when others have continued it";
    for (std::size_t k = 0; k < labels.size(); k += 37)
      ASSERT_EQ(set[static_cast<int>(k)], labels[k]);
    for (int k = 0; k < 5; ++k) {
      int const label = labels.empty() || k == 0 ? below(1300) : labels[random() % labels.size()];
      auto const last = std::find(labels.rbegin(), labels.rend(), label);
      ASSERT_EQ(set.PositionOf(label), static_cast<int>(labels.rend() - last) - 1);
    }
  }
  EXPECT_FALSE(sets[1].first == ORXSimIndexSet::Joined(sets[1].first, ORXSimIndexSet::Strided(5, 1, 1)));
}

// Rows that come one by one with labels of no order: each costs itself, in the file and in time, and all of
// them come back.
TEST_F(Catalog, AnExtensionCostsWhatIsNew) {
  ORXSimDistributionID field = CreateField(Context(), {1, 0});
  CreateDrawer(field, {1, 64});
  std::vector<int> labels;
  std::uint64_t half = 0;
  ORXSimCSetID early;
  constexpr int steps = 3000;
  for (int k = 0; k < steps; ++k) {
    ORXSimTransaction transaction(m_context);
    for (int j = 0; j < 100; ++j, ++k) {
      labels.push_back((k * 7919 + 13) % 100003);
      ORXSimCollection const rows(ORXSimDistribution(field).Collection(1));
      TransferOf(field).SetDimExtension(rows.CreateOrderedCSet(&labels.back(), 1)).InitializeExtension();
      if (j == 50) early = DrawerOf(field).DimensionCSetID(1);
    }
    EXPECT_EQ(Members(early), std::vector<int>(labels.begin(), labels.end() - 49));
    if (k > 1000 && k < 1300) { // the next one continues a set that this abandoned one has continued
      labels.resize(labels.size() - 100);
      continue;
    }
    transaction.Commit();
    if (k < steps / 2) half = FileSize(Path());
    if (k < 700 || k > 900) continue;
    Reopen();
    field = Context().Distributions()[0];
    ASSERT_EQ(Members(DrawerOf(field).DimensionCSetID(1)), labels);
  }
  EXPECT_LT(FileSize(Path()) - half, steps / 2 * 300u) << "a row has 8 bytes of cells and 4 of a label";
  Reopen();
  field = Context().Distributions()[0];
  EXPECT_EQ(Members(DrawerOf(field).DimensionCSetID(1)), labels);
  ORXSimCollection const rows(ORXSimDistribution(field).Collection(1));
  EXPECT_TRUE(DrawerOf(field).DimensionCSetID(1).Equal(
      rows.CreateOrderedCSet(labels.data(), static_cast<int>(labels.size()))))
      << "equal sets share an identifier";
}

TEST_F(Catalog, TemporarySetsAndFieldsTakeNoNumbersAndEnd) {
  ORXSimCollection const collection = NewCollection(50);
  std::vector<ORXSimCSetID> sets;
  for (int k = 0; k < 40; ++k)
    sets.push_back(collection.CreateTempOrderedCSet(&k, 1));
  int const first = 0;
  EXPECT_TRUE(collection.CreateTempOrderedCSet(&first, 1).Equal(sets[0]));
  auto const createTemporary = [&](ORXSimCSetID const& set) {
    ORXSimDistributionID const field = Context().CreateTempDistribution(
        ORXSimGrid({collection.ID()}), ORXSimRangeType(ORXSimTypeKey::Double), {});
    TransferOf(field).SetMakeNewDrawer().SetWrite().SetDim(0, set).InitializePersistentDrawer();
    return field;
  };
  ORXSimDistributionID const temporary = createTemporary(sets[2]);
  EXPECT_EQ(collection.BiggestCSetID().Data().memberSet, 0);
  EXPECT_EQ(CreateField(Context(), {1}).handle, 1u);

  for (int const k : {0, 1, 2})
    collection.DropTempCSet(sets[k]);
  EXPECT_EQ(Members(sets[0]), std::vector<int>{0}) << "asked for twice, dropped once";
  EXPECT_CODE(staleIdentifier, Members(sets[1]));
  EXPECT_EQ(Members(sets[2]), std::vector<int>{2}) << "a drawer stands on it";
  EXPECT_CODE(invalidArgument, Context().DropTempDistribution(Context().Distributions()[0]));
  ORXSimDistribution const handle(temporary);
  Context().DropTempDistribution(temporary);
  EXPECT_CODE(staleIdentifier, handle.RangeType());

  ORXSimDistributionID const kept = Context().Distributions()[0];
  ORXSimGrid const grid({collection.ID()});
  ORXSimDistributionID const over =
      Context().CreateDistribution(grid, ORXSimRangeType(ORXSimTypeKey::Double), {});
  TransferOf(over).SetMakeNewDrawer().SetWrite().SetDim(0, sets[9]).InitializePersistentDrawer();
  EXPECT_NE(kept.handle, over.handle);
  createTemporary(sets[5]);
  Reopen();
  EXPECT_EQ(Members(DrawerOf(Context().Distributions()[1]).DimensionCSetID(0)), std::vector<int>{9});
  EXPECT_EQ(ReadWhole(Path()).find("pending"), std::string::npos);
}

TEST_F(Catalog, WhatNoFileHoldsIsRefusedAtTheCall) {
  ORXSimCollection const full = NewCollection(2147483647);
  int const labels[] = {3, 2147483647};
  EXPECT_CODE(invalidArgument, full.CreateOrderedCSet(labels, 2));
  EXPECT_EQ(full.Size(), 2147483647);
  ORXSimCollection const other = NewCollection(2147483646);
  int const two[] = {2147483647, 2147483646};
  EXPECT_CODE(invalidArgument, other.CreateOrderedCSet(two, 2));
  EXPECT_EQ(other.Size(), 2147483646) << "nothing is left of the refused set";
  other.CreateOrderedCSet(two, 1);
  ORXSimCollection const coloured = NewCollection(1);
  for (int color = 1; color < 70000; color += 7)
    coloured.CreateColorVariant(color);
  Reopen();
  EXPECT_EQ(ORXSimCollection(Context().Collections()[1]).Size(), 2147483647);
}

// What one session puts in the trash the next one uses again.
TEST_F(Catalog, SessionsThatReplaceADrawerDoNotGrowTheFile) {
  CreateField(Context(), {100});
  std::vector<std::uint64_t> sizes;
  for (int session = 0; session < 12; ++session) {
    ORXSimTransaction transaction(m_context);
    CreateDrawer(Context().Distributions()[0], {}, session);
    transaction.Commit();
    Reopen();
    EXPECT_EQ(CellsOf(Context().Distributions()[0])[99], session);
    sizes.push_back(FileSize(Path()));
  }
  EXPECT_LT(sizes[11] - sizes[3], 8 * 2000u) << "what HDF5 leaves between its blocks";
}

// The dataset of a drawer that an open transaction has extended is longer in the file when another context is
// committed; after a crash the next session cuts it.
TEST_F(Catalog, AnExtensionThatWasCutOffIsNotLeftInTheFile) {
  ORXSimDistributionID const field = CreateField(Context(), {4});
  CreateDrawer(field, {2});
  ORXSimContextID const sibling = m_database.CreateContext({});
  ORXSimTransaction(m_context).Commit();
  ORXSimTransaction const open(m_context);
  Extend(field, 0, 6);
  ORXSimTransaction(sibling).Commit();
  std::string const copy = m_folder.Path("b.sim");
  WriteWhole(copy, ReadWhole(Path()));
  auto const extent = [&] {
    hid_t const file = H5Fopen(copy.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
    hid_t const dataset = H5Dopen2(file, "/context_0/distribution_0/drawer", H5P_DEFAULT);
    hid_t const space = H5Dget_space(dataset);
    hsize_t cells = 0;
    H5Sget_simple_extent_dims(space, &cells, nullptr);
    H5Sclose(space), H5Dclose(dataset), H5Fclose(file);
    return cells;
  };
  EXPECT_EQ(extent(), 10u);
  ORXSimDatabase next;
  Open(next, copy);
  next.Close();
  EXPECT_EQ(extent(), 4u);
}

} // namespace
