#include "DenseSupport.h"
#include "mtx/ORXSrvSimFileHandle.h"
#include "tests/support/Shortage.h"

#include <optional>

namespace {

using Files = std::set<std::string>;

atr_String const name("scratch.sim");

class SimFileHandle : public testing::Test {
protected:
  WorkingFolder m_folder;
};

using SimFileHandleDeathTest = SimFileHandle;

TEST_F(SimFileHandle, OffersAContextForDistributions) {
  ORXSrvSimFileHandle handle;
  handle.Associate(name);

  ORXSimContext const context(handle.ContextID());
  ORXSimCollection const rows(context.CreateCollection(3, ORXSimTypeID()));
  ORXSrvUtilities::Create1DDistribution(rows.BiggestCSetID(), -1);

  EXPECT_EQ(context.NamespaceID(), ORXSimNamespaceID(-1, -1));
  EXPECT_EQ(context.Distributions().Size(), 1);
  EXPECT_EQ(handle.GetPtr()->ContextID(), handle.ContextID());
}

TEST_F(SimFileHandle, LastCopyDeletesTheFile) {
  std::optional<ORXSrvSimFileHandle> first(std::in_place);
  first->Associate(name);
  ORXSimContextID const context = first->ContextID();
  std::optional<ORXSrvSimFileHandle> second(*first);

  first.reset();
  EXPECT_EQ(m_folder.Files(), Files{"scratch.sim"});
  EXPECT_EQ(second->ContextID(), context);
  EXPECT_EQ(ORXSimContext(context).Collections().Size(), 0);

  second.reset();
  EXPECT_EQ(m_folder.Files(), Files());
  EXPECT_CODE(staleIdentifier, ORXSimContext(context).Collections());
}

TEST_F(SimFileHandle, AssociatingMakesTheFileAndLeavesEarlierCopiesAsTheyWere) {
  ORXSrvSimFileHandle const early;
  {
    ORXSrvSimFileHandle handle(early);
    EXPECT_TRUE(handle.IsNull());
    EXPECT_EQ(early.UseCount(), 2);
    EXPECT_EQ(m_folder.Files(), Files());
    handle.Associate(name);
    EXPECT_TRUE(early.IsNull());
    EXPECT_EQ(early.UseCount(), 1);
    EXPECT_EQ(handle.UseCount(), 1);
  }
  EXPECT_EQ(m_folder.Files(), Files());
}

TEST_F(SimFileHandle, FailedCreationLeavesTheHandleAndFilesOfOthersAsTheyWere) {
  ORXSrvSimFileHandle owner;
  owner.Associate(name);
  ORXSrvSimFileHandle handle;

  EXPECT_CODE(fileInUse, handle.Associate(name));
  EXPECT_EQ(m_folder.Files(), Files{"scratch.sim"});
  EXPECT_CODE(notOpened, handle.Associate(atr_String("missing/scratch.sim")));
  EXPECT_CODE(notOpened, handle.Associate(atr_String()));
  EXPECT_TRUE(handle.IsNull());

  handle.Associate(atr_String("other.sim"));
  EXPECT_FALSE(handle.IsNull());
}

TEST_F(SimFileHandle, ReleaseCopesWithAFileThatIsGone) {
  std::optional<ORXSrvSimFileHandle> handle(std::in_place);
  handle->Associate(name);
  ORXSimContextID const context = handle->ContextID();
  std::filesystem::remove("scratch.sim");

  handle.reset();
  EXPECT_EQ(m_folder.Files(), Files());
  EXPECT_CODE(staleIdentifier, ORXSimContext(context).Collections());
}

TEST_F(SimFileHandle, ReleaseDeletesAFileThatCannotBeClosed) {
  ORXSimDatabase comparison; // shows that closing such a file does fail
  comparison.SetDurability(ORXSimDurability::Scratch);
  comparison.CreateFile(ORXUnicodeString("comparison.sim"), 0, -1);
  comparison.CreateContext(ORXSimNamespaceID());
  std::optional<ORXSrvSimFileHandle> handle(std::in_place);
  handle->Associate(name);
  ORXSimContextID const context = handle->ContextID();

  int error = 0;
  {
    FullDisk const full;
    error = CodeOf([&] { comparison.Close(); });
    handle.reset();
  }

  EXPECT_EQ(error, ORXSimException::writeFailed);
  EXPECT_EQ(m_folder.Files(), Files{"comparison.sim"});
  EXPECT_CODE(staleIdentifier, ORXSimContext(context).Collections());
}

TEST_F(SimFileHandleDeathTest, CallsThatDoNotSuitTheStateEndTheProcess) {
  ORXSrvSimFileHandle handle;
  EXPECT_DEATH(static_cast<void>(handle.ContextID()),
               "mtx/impl/ORXSrvSimFileHandle:22:.*"
               "pointer\\.HasValue\\(\\) && \"File Handle is not associated with a SIM database\\.\"");
  handle.Associate(name);
  EXPECT_DEATH(handle.Associate(atr_String("other.sim")),
               "mtx/impl/ORXSrvSimFileHandle:16:.*"
               "pointer\\.IsNull\\(\\) && \"File Handle already associated with a SIM database\\.\"");
  EXPECT_EQ(m_folder.Files(), Files{"scratch.sim"});
}

} // namespace
