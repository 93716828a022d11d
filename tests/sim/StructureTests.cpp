#include "DatabaseSupport.h"

#include "sim/ORXSimAssert.h"
#include "sim/ORXSrvPosition.h"
#include "sim/ORXSrvSystemDofDefinition.h"

#include <cerrno>
#include <memory>
#include <optional>

namespace {

class Structure : public WithOneContext {
protected:
  Structure() : WithOneContext(ORXSimNamespaceID(-1, -1)) {}
};

ORXSimCSetID Ordered(ORXSimCollection const& collection, std::vector<int> const& labels) {
  return collection.CreateOrderedCSet(labels.data(), static_cast<int>(labels.size()));
}

TEST(Identifiers, DeriveFromEachOther) {
  ORXSimContextID const context{.file = 3, .context = 1};
  ORXSimCSetID const set(context, {.minor = {.collection = 4, .color = 0}, .memberSet = 9}, ORXSimTypeID(2));

  EXPECT_TRUE(
      set.Collection().Equal(ORXSimCollectionID(context, {.collection = 4, .color = 0}, ORXSimTypeID(2))));
  EXPECT_EQ(set.OnColorVariant(1).Kind(), 5);
  EXPECT_EQ(set.OnColorVariant(1).Data().memberSet, 9);
  EXPECT_TRUE(set.OnColorVariant(1).Collection().Equal(set.Collection().ColorVariant(1)));
  EXPECT_FALSE(set.OnColorVariant(1).Equal(set));
  EXPECT_TRUE(ORXSimCSetID().Collection().IsNull());
  EXPECT_TRUE(ORXSimCSetID().OnColorVariant(1).IsNull());
  EXPECT_EQ(ORXSimContextID().file, 0u);
  EXPECT_EQ(ORXSimContextID().context, ~0u);
}

TEST_F(Structure, CollectionsGrowByTheLabelsOfTheirSets) {
  ORXSimCollection const empty = NewCollection(0), three = NewCollection(3);

  EXPECT_EQ(Members(Ordered(empty, {0, 1, 2})), (std::vector<int>{0, 1, 2}));
  EXPECT_EQ(Members(Ordered(three, {9, 4, 1, 9})), (std::vector<int>{9, 4, 1, 9}))
      << "in order, with repeats";
  EXPECT_EQ(Members(empty.CreateCSetStrided(3, 2, 1, 1)), (std::vector<int>{3, 4}));
  EXPECT_EQ(Members(three.CreateCSetStrided(0, 3, 4, 1)), (std::vector<int>{0, 4, 8}));
  int const temporary[] = {7};
  EXPECT_EQ(Members(three.CreateTempOrderedCSet(temporary, 1)), (std::vector<int>{7}));

  for (bool const readOnly : {false, true}) {
    Reopen(readOnly);
    auto const collections = Context().Collections();
    EXPECT_EQ(ORXSimCollection(collections[0]).Size(), 5);
    EXPECT_EQ(Members(ORXSimCollection(collections[1]).BiggestCSetID()),
              (std::vector<int>{0, 1, 2, 9, 4, 8, 7}));
  }
}

TEST_F(Structure, SetsKnowWhetherTheyOverlap) {
  ORXSimCollection const collection = NewCollection(20);
  ORXSimCSet const even(collection.CreateCSetStrided(0, 10, 2, 1));
  ORXSimCSet const odd(collection.CreateCSetStrided(1, 10, 2, 1));
  ORXSimCSet const some(Ordered(collection, {3, 1, 8}));

  EXPECT_FALSE(even.HasOverlap(odd));
  EXPECT_TRUE(even.HasOverlap(some));
  EXPECT_TRUE(some.HasOverlap(odd));
  EXPECT_FALSE(ORXSimCSet(Ordered(collection, {})).HasOverlap(some));
}

TEST_F(Structure, EqualSetsShareAnIdentifier) {
  ORXSimCollection const collection = NewCollection(5);
  EXPECT_TRUE(Ordered(collection, {0, 1, 2, 3, 4}).Equal(collection.BiggestCSetID()));
  EXPECT_FALSE(Ordered(collection, {0, 1}).Equal(Ordered(collection, {1, 0})));
  EXPECT_FALSE(Ordered(NewCollection(2), {0, 1}).Equal(Ordered(collection, {0, 1})));
}

TEST_F(Structure, BadArgumentsAreNamed) {
  ORXSimCollection const collection = NewCollection(5);
  ORXSimCollectionID const id = collection.ID();
  ORXSimRangeType const range(ORXSimTypeKey::Double);
  for (auto const& call : std::vector<std::function<void()>>{
           [&] { NewCollection(-1); },
           [&] {
             Ordered(collection, {3, -4});
           },
           [&] { collection.CreateCSetStrided(0, 2, 1, 2); },
           [&] { collection.CreateCSetStrided(2147483647, 2, 1, 1); },
           [&] { collection.CreateColorVariant(-1); },
           [&] { Context().CreateDistribution(ORXSimGrid(), range, {}); },
           [&] {
             Context().CreateDistribution(ORXSimGrid({id, id}), range, {});
           },
           [&] { Context().CreateDistribution(ORXSimGrid({ORXSimCollectionID()}), range, {}); },
           [&] { Context().CreateDistribution(ORXSimGrid({id}), ORXSimRangeType(), {}); },
           [&] { Context().CreateDistribution(ORXSimGrid({id}), range, ORXSimTypeID(0)); },
           [&] { Context().DefineType(""); },
           [&] { Context().Schema().TypeID(0); },
           [&] { m_database.CreateContext({}), ORXSimDatabase().CreateFile(ORXUnicodeString("x"), 8, -1); },
       })
    EXPECT_EQ(CodeOf(call), ORXSimException::invalidArgument);
}

TEST_F(Structure, TypesPositionsAndColoursComeBack) {
  ORXSimCollection const collection = NewCollection(4);
  EXPECT_EQ(Context().DefineType("stiffness"), 0);
  EXPECT_EQ(Context().DefineType("mass"), 1);
  EXPECT_EQ(Context().DefineType("stiffness"), 0);
  ORXSimCollectionID const variant = collection.CreateColorVariant(1);
  ORXSrvPosition const position(m_context);
  {
    ORXSimTransaction transaction(m_context);
    ORXSimGrid const grid({collection.ID(), variant});
    position.CreateTypedDistribution(transaction, grid, 1, ORXSimRangeType(ORXSimTypeKey::Double));
    position.CreateDistribution(transaction, grid, ORXSimRangeType(ORXSimTypeKey::Int32));
    transaction.Commit();
    EXPECT_CODE(wrongState,
                position.CreateDistribution(transaction, grid, ORXSimRangeType(ORXSimTypeKey::Int32)));
  }
  Context().CreateTempDistribution(ORXSimGrid({variant}), ORXSimRangeType(ORXSimTypeKey::Double), {});

  Reopen(true);
  auto const fields = Context().Distributions();
  ASSERT_EQ(fields.Size(), 2) << "the temporary one is gone";
  EXPECT_STREQ(Context().Schema().Name(ORXSimDistribution(fields[0]).Type().type).AsText(), "mass");
  EXPECT_EQ(ORXSimDistribution(fields[1]).Type().type, -1);
  EXPECT_EQ(ORXSimDistribution(fields[0]).Collection(1).Minor().color, 1);
  EXPECT_EQ(static_cast<int>(ORXSimDistribution(fields[1]).RangeType().Key()), 1);
}

TEST_F(Structure, StaleIdentifiersAreRefused) {
  ORXSimCollection const collection = NewCollection(4);
  ORXSimCSetID const set = collection.BiggestCSetID();
  ORXSimCSet const members(set);
  ORXSimDistributionID const field = CreateField(Context(), {2, 2});
  CreateDrawer(field, {});
  ORXSimDistribution const distribution(field);
  ORXSimTransfer transfer(distribution);
  ORXSimTransaction transaction(m_context);
  m_database.Close();

  double cells[4];
  ORXSimArray<ORXSimPersistentDrawerDesc> drawers;
  for (auto const& call : std::vector<std::function<void()>>{
           [&] { NewCollection(1); },
           [&] { collection.Size(); },
           [&] { ORXSimCSet{set}; },
           [&] { ORXSimCSet{ORXSimCSetID()}; },
           [&] { ORXSimDistribution{field}; },
           [&] { ORXSimDistribution{ORXSimDistributionID()}; },
           [&] { distribution.QueryDrawers(drawers); },
           [&] { transfer.SetRead().SetBuffer(0, cells, 32).ExecRead(); },
           [&] { transaction.Commit(); },
       })
    EXPECT_EQ(CodeOf(call), ORXSimException::staleIdentifier);
  EXPECT_EQ(members.Size(), 4);
  EXPECT_CODE(wrongState, m_database.CreateContext({}));

  ORXSimDatabase other;
  Open(other, Path());
  EXPECT_CODE(staleIdentifier, ORXSimDistribution{field}) << "of another opening";
}

TEST_F(Structure, AnAbandonedTransactionLeavesNothing) {
  ORXSimCollection const collection = NewCollection(3);
  ORXSimDistributionID const field = CreateField(Context(), {3, 2});
  CreateDrawer(field, {2, 2});
  WriteCells(field, {1, 2, 3, 4, 5, 6});
  ORXSimContextID const sibling = m_database.CreateContext({});
  ORXSimTransaction(m_context).Commit();

  ORXSimCSetID set;
  ORXSimDistributionID abandoned;
  {
    ORXSimTransaction transaction(m_context);
    set = Ordered(collection, {8, 9});
    Context().DefineType("gone");
    abandoned = CreateField(Context(), {4});
    CreateDrawer(abandoned, {});
    Extend(field, 1, 5);
    EXPECT_EQ(DrawerOf(field).DimensionSize(1), 7);
    CreateDrawer(field, {}, 4.5);
    EXPECT_EQ(CellsOf(field).back(), 4.5);
    ORXSimContext(sibling).CreateCollection(5, {});
  }

  auto const check = [&] {
    EXPECT_EQ(ORXSimCollection(Context().Collections()[0]).Size(), 3);
    EXPECT_EQ(Context().Collections().Size(), 3);
    EXPECT_EQ(Context().Schema().Size(), 0);
    ASSERT_EQ(Context().Distributions().Size(), 1);
    ORXSimDistributionID const there = Context().Distributions()[0];
    EXPECT_EQ(DrawerOf(there).DimensionSize(1), 2);
    EXPECT_EQ(DrawerOf(there).ChunkSizes().Size(), 2);
    EXPECT_EQ(CellsOf(there), (std::vector<double>{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(ORXSimContext(m_database.Contexts()[1]).Collections().Size(), 1) << "the sibling's work stays";
  };
  check();
  EXPECT_CODE(staleIdentifier, ORXSimCSet{set});
  EXPECT_CODE(staleIdentifier, ORXSimDistribution{abandoned});
  CreateField(Context(), {1});
  EXPECT_CODE(staleIdentifier, ORXSimDistribution{abandoned}) << "not used again";
  EXPECT_EQ(Context().Distributions().Size(), 2);
  { ORXSimTransaction undo(m_context); }
  Reopen();
  EXPECT_EQ(Context().Distributions().Size(), 2);
  EXPECT_EQ(CellsOf(Context().Distributions()[0]), (std::vector<double>{1, 2, 3, 4, 5, 6}));
}

TEST_F(Structure, ATransactionIsAloneAndEndsOnce) {
  std::optional<ORXSimTransaction> first(m_context);
  std::string text;
  EXPECT_EQ(CodeOf([&] { ORXSimTransaction{m_context}; }, &text), ORXSimException::wrongState);
  EXPECT_NE(text.find("a.sim"), std::string::npos);
  ORXSimTransaction const copy = *first;
  first.reset();
  EXPECT_CODE(wrongState, ORXSimTransaction{m_context}) << "a copy holds it open";
  ORXSimTransaction shared = copy;
  shared.Commit();
  EXPECT_FALSE(copy.IsOpen());
  EXPECT_CODE(wrongState, shared.Commit());
  ORXSimTransaction{m_context}.Commit();
}

TEST_F(Structure, ATransactionThatClosingEndedTouchesNoLaterOne) {
  auto first = std::make_unique<ORXSimTransaction>(m_context);
  m_database.CreateContext({});
  {
    FaultPlan const full(FaultPlan::Effect::FailOn, 1, ENOSPC);
    EXPECT_CODE(writeFailed, m_database.Close());
  }
  ORXSimTransaction second(m_context);
  EXPECT_FALSE(first->IsOpen());
  EXPECT_CODE(wrongState, first->Commit());
  NewCollection(3);

  first.reset();
  second.Commit();

  EXPECT_EQ(Context().Collections().Size(), 1);
}

// After each commit of the second context the file, as a killed process would leave it, has nothing of the
// transaction that is open on the first, neither before that has tried to commit nor after.
TEST_F(Structure, ACommitTakesNothingOfOtherTransactionsWithIt) {
  ORXSimCollection const collection = NewCollection(3);
  Context().DefineType("one");
  ORXSimDistributionID const longer = CreateField(Context(), {3, 2});
  CreateDrawer(longer, {2, 2}, 4.0);
  ORXSimDistributionID const replaced = CreateField(Context(), {3, 2});
  CreateDrawer(replaced, {2, 2}, 8.0);
  Ordered(collection, {7});
  ORXSimTransaction(m_context).Commit();
  ORXSimContextID const sibling = m_database.CreateContext({});

  ORXSimTransaction transaction(m_context);
  Extend(longer, 0, 7);
  CreateDrawer(replaced, {}, 9.0);
  CreateDrawer(CreateField(Context(), {5}), {});
  Ordered(collection, {3, 4, 9});
  collection.CreateColorVariant(2);
  Context().DefineType("two");
  for (int const failingStep : {0, 1, 2, 3}) {
    if (failingStep > 0) {
      FaultPlan const full(FaultPlan::Effect::FailOn, failingStep, ENOSPC);
      EXPECT_CODE(writeFailed, transaction.Commit());
    }
    ORXSimTransaction(sibling).Commit();

    WriteWhole(m_folder.Path("b.sim"), ReadWhole(Path()));
    ORXSimDatabase copy;
    Open(copy, m_folder.Path("b.sim"));
    ORXSimContext const there(copy.Contexts()[0]);
    EXPECT_EQ(there.Schema().Size(), 1);
    EXPECT_EQ(ORXSimCollection(there.Collections()[0]).Size(), 4);
    ASSERT_EQ(there.Distributions().Size(), 2);
    EXPECT_EQ(CellsOf(there.Distributions()[0]), std::vector<double>(6, 4.0));
    EXPECT_EQ(CellsOf(there.Distributions()[1]), std::vector<double>(6, 8.0));
    Extend(there.Distributions()[0], 0, 1);
    EXPECT_EQ(CellsOf(there.Distributions()[0]), std::vector<double>(8, 4.0));
  }
  transaction.Commit();

  Reopen(true);
  EXPECT_EQ(Context().Schema().Size(), 2);
  EXPECT_EQ(ORXSimCollection(Context().Collections()[0]).Size(), 7);
  EXPECT_EQ(CellsOf(Context().Distributions()[0]), std::vector<double>(20, 4.0));
  EXPECT_EQ(CellsOf(Context().Distributions()[1]), std::vector<double>(6, 9.0));
}

TEST_F(Structure, TemporaryFieldsNeverReachTheFile) {
  ORXSimCollection const collection = NewCollection(0);
  int const labels[] = {4, 1};
  ORXSimDistribution const field(Context().CreateTempDistribution(
      ORXSimGrid({collection.ID()}), ORXSimRangeType(ORXSimTypeKey::Double), {}));
  ORXSimTransfer transfer = TransferOf(field.ID()).SetMakeNewDrawer().SetWrite();
  transfer.SetDim(0, collection.CreateTempOrderedCSet(labels, 2)).InitializePersistentDrawer();
  {
    ORXSimTransaction const abandoned(m_context);
    Extend(field.ID(), 0, 3);
  }
  EXPECT_EQ(DrawerOf(field.ID()).DimensionSize(0), 2);

  Reopen(false);
  EXPECT_EQ(Context().Distributions().Size(), 0);
}

TEST_F(Structure, AReadOnlyFileIsNotWritten) {
  ORXSimDistributionID const field = CreateField(Context(), {2});
  CreateDrawer(field, {});
  m_database.Close();
  std::string const before = ReadWhole(Path());
  Open(m_database, Path(), true);
  m_context = m_database.Contexts()[0];
  ORXSimDistributionID const there = Context().Distributions()[0];
  int const label[] = {5};

  EXPECT_TRUE(m_database.IsReadOnly());
  for (auto const& call : std::vector<std::function<void()>>{
           [&] { m_database.CreateContext({}); },
           [&] { NewCollection(1); },
           [&] { ORXSimTransaction{m_context}; },
           [&] { ORXSimCollection(Context().Collections()[0]).CreateTempOrderedCSet(label, 1); },
           [&] {
             WriteCells(there, {1, 2});
           },
           [&] { CreateDrawer(there, {}); },
       })
    EXPECT_EQ(CodeOf(call), ORXSimException::writeFailed);
  int const known[] = {1};
  EXPECT_EQ(Members(ORXSimCollection(Context().Collections()[0]).CreateTempOrderedCSet(known, 1)),
            (std::vector<int>{1}));
  m_database.Close();
  EXPECT_EQ(ReadWhole(Path()), before);
}

TEST_F(Structure, FilesAreNotOverwrittenUnasked) {
  m_database.Close();
  ORXSimDatabase other;
  std::string text;
  EXPECT_EQ(CodeOf([&] { other.CreateFile(ORXUnicodeString(Path().c_str()), 0, -1); }, &text),
            ORXSimException::notOpened);
  EXPECT_NE(text.find("a.sim"), std::string::npos);
  Create(other, Path());
  EXPECT_EQ(other.Contexts().Size(), 0);
  EXPECT_CODE(wrongState, Open(other, Path()));
}

TEST_F(Structure, ScratchFilesReplaceDatabasesWhenAskedAndCommitForFree) {
  m_database.Close();
  ORXSimDatabase scratch;
  scratch.SetDurability(ORXSimDurability::Scratch);
  ORXUnicodeString const name(Path().c_str());
  EXPECT_CODE(notOpened, scratch.CreateFile(name, 0, -1));
  scratch.CreateFile(name, ORXSimDatabase::replaceExisting, -1);
  ORXSimContextID const id = scratch.CreateContext({});
  ORXSimTransaction transaction(id);
  ORXSimDistributionID const field = CreateField(ORXSimContext(id), {2, 2});
  CreateDrawer(field, {1, 1});
  WriteCells(field, {1, 2, 3, 4});
  FaultPlan const counting;
  transaction.Commit();
  EXPECT_EQ(counting.Steps(), 0);
  scratch.Close();

  Open(m_database, Path());
  EXPECT_EQ(CellsOf(ORXSimContext(m_database.Contexts()[0]).Distributions()[0]),
            (std::vector<double>{1, 2, 3, 4}));
}

TEST(Dofs, MapEquationsToNodes) {
  ORXSrvSystemDofDefinition const system({{.node = 7, .dof = 1}, {.node = 7, .dof = 3}});
  EXPECT_EQ(system.NumberOfDofs(), 2);
  EXPECT_EQ(system.NodeDofFromSolverDof(1), (ORXSrvNodeDof{.node = 7, .dof = 3}));
  EXPECT_CODE(invalidArgument, system.NodeDofFromSolverDof(2));
}

} // namespace
