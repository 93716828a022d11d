#include "Hdf5Support.h"
#include "StoreSupport.h"

#include "sim/impl/store/Hdf5Driver.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

using orx::store::FileError;
using orx::store::FileStep;
using orx::store::TransactionalFile;

class Transactions : public testing::Test {
protected:
  TemporaryFolder m_folder{memoryFolder};
  std::string m_path = m_folder.Path("file.h5");
};

TEST_F(Transactions, AreSeenByPlainHdf5OnceCommittedAndNotBefore) {
  Session session = Session::Create(m_path);
  Change(session, 0);
  session.Commit();
  std::string const first = Describe(session.Id());
  Change(session, 1);

  std::string const plain = DescribeWithPlainHdf5(m_path);
  session.Commit();
  std::string const second = Describe(session.Id());
  std::string const plainSecond = DescribeWithPlainHdf5(m_path);

  EXPECT_EQ(plain, first);
  EXPECT_EQ(plainSecond, second);
  EXPECT_NE(first.find("growing 2048: 2048x0"), std::string::npos) << first;
  EXPECT_NE(second.find("growing 4096: 2048x0 2048x1\n"), std::string::npos) << second;
  EXPECT_NE(second.find("t1/small5 20: 3x-1 1x1 16x-1\n"), std::string::npos) << second;
  EXPECT_EQ(session.File().Counts().commits, 2U);
}

TEST_F(Transactions, ThatAreDiscardedLeaveNothing) {
  Session session = Session::Create(m_path);
  Change(session, 0);
  session.Commit();
  std::string const committed = Describe(session.Id());
  std::uint64_t const size = FileSize(m_path);

  Change(session, 1);
  session.Flush();
  session.File().Discard();
  EXPECT_THROW(session.Commit(), FileError);
  session.Reopen();

  EXPECT_EQ(Describe(session.Id()), committed);
  EXPECT_EQ(FileSize(m_path), size);
  Change(session, 1);
  session.Commit();
  EXPECT_NE(Describe(session.Id()), committed);
}

TEST_F(Transactions, ThatWereNeverCommittedLeaveAnEmptyFile) {
  { Change(Session::Create(m_path), 0); }

  EXPECT_EQ(FileSize(m_path), 0U);
}

TEST_F(Transactions, AreNotCommittedByAnExitInTheMiddle) {
  {
    Session const session = Session::Create(m_path);
    Change(session, 0);
    session.Commit();
  }
  std::string const committed = DescribeWithPlainHdf5(m_path);

  // exit, and not _exit: HDF5 closes all files then.
  int const end = RunInChild([&]() -> int {
    auto* const session = new Session(Session::Open(m_path));
    Change(*session, 1);
    std::exit(7);
  });

  EXPECT_EQ(end, 7);
  EXPECT_EQ(DescribeWithPlainHdf5(m_path), committed);
}

TEST_F(Transactions, WorkAfterAHostHasShutHdf5Down) {
  int const end = RunInChild([&] {
    { Change(Session::Create(m_path), 0); }
    H5close();
    Session const session = Session::Create(m_path);
    Change(session, 0);
    session.Commit();
    return session.File().Counts().pages > 0 ? 0 : 1;
  });

  EXPECT_EQ(end, 0);
}

TEST_F(Transactions, ThatFailForWantOfSpaceMayBeRepeated) {
  Session session = Session::Create(m_path);
  Change(session, 0);
  session.Commit();
  std::string const committed = DescribeWithPlainHdf5(m_path);
  Change(session, 1);
  session.Flush();
  std::uint64_t const size = FileSize(m_path);
  {
    FaultPlan const plan(FaultPlan::Effect::FailOnce, 3, ENOSPC); // after values and space, the journal
    EXPECT_THROW(session.File().Commit(), FileError);
  }
  EXPECT_LE(FileSize(m_path), size); // the journal's space is given back
  EXPECT_EQ(DescribeWithPlainHdf5(m_path), committed);

  session.Commit();

  EXPECT_EQ(DescribeWithPlainHdf5(m_path), Describe(session.Id()));
  EXPECT_NE(Describe(session.Id()), committed);
}

TEST_F(Transactions, EndForGoodWhenASyncFails) {
  Session session = Session::Create(m_path);
  Change(session, 0);
  {
    FaultPlan const plan(FaultPlan::Effect::FailOnce, 2, EIO); // the folder's is the first
    EXPECT_THROW(session.File().Commit(), FileError);
  }

  EXPECT_THROW(session.File().Commit(), FileError);
  EXPECT_THROW(session.File().ReserveGrowth(1), FileError);
}

TEST_F(Transactions, ThatStickAfterTheJournalAreFinishedByTheNextOpening) {
  for (bool const readsFirst : {false, true}) {
    std::string expected;
    {
      Session session = Session::Create(m_path);
      Change(session, 0);
      session.Flush();
      expected = Describe(session.Id());
      orx::store::SetFaultHook([](FileStep const& step) {
        bool const isInPlace = step.kind == FileStep::Kind::Write && step.offset == 8;
        return isInPlace ? EIO : 0;
      });
      EXPECT_THROW(session.Commit(), FileError);
      orx::store::SetFaultHook(nullptr);
      EXPECT_THROW(session.Commit(), FileError);
      EXPECT_THROW(session.File().ReserveGrowth(1), FileError);
      EXPECT_EQ(Describe(session.Id()), expected);
    }
    EXPECT_EQ(DescribeWithPlainHdf5(m_path), "refused");

    if (readsFirst) {
      std::string const bytes = ReadWhole(m_path);
      EXPECT_EQ(Describe(Session::Open(m_path, true).Id()), expected);
      EXPECT_TRUE(ReadWhole(m_path) == bytes);
    }
    EXPECT_EQ(Describe(Session::Open(m_path).Id()), expected);
    EXPECT_EQ(DescribeWithPlainHdf5(m_path), expected);
  }
}

TEST_F(Transactions, OfAScratchFileCostNothingBeforeItsEnd) {
  std::string expected;
  {
    Session const session = Session::Create(m_path, true);
    int syncs = 0;
    orx::store::SetFaultHook([&](FileStep const& step) {
      syncs += step.kind == FileStep::Kind::Sync ? 1 : 0;
      return 0;
    });
    Change(session, 0);
    session.Commit();
    EXPECT_EQ(DescribeWithPlainHdf5(m_path), "refused");
    Change(session, 1);
    session.Flush();
    session.File().CommitForClose();
    orx::store::SetFaultHook(nullptr);
    EXPECT_EQ(syncs, 0);
    expected = Describe(session.Id());
  }
  EXPECT_EQ(DescribeWithPlainHdf5(m_path), expected);
}

TEST_F(Transactions, ThatAreDiscardedWriteNoValues) {
  auto const file = TransactionalFile::Create(m_path, false, false);
  file->SetEndOfAllocation(100);
  file->WriteValues(0, "before", 6);

  file->Discard();
  file->WriteValues(0, "after", 6);

  char seen[6];
  file->ReadValues(0, seen, 6);
  EXPECT_EQ(std::string(seen, 6), "before");
}

// Space

TEST_F(Transactions, ReserveWhatTheyAllocate) {
  auto const file = TransactionalFile::Create(m_path, false, false);

  file->SetEndOfAllocation(1000);
  EXPECT_GT(file->File().Size(), 1000U + 60000U); // small growth comes often
  file->ReserveGrowth(1 << 20);
  EXPECT_EQ(file->File().Size(), 1000U + (1 << 20));
  file->SetEndOfAllocation(1 << 20);
  EXPECT_EQ(file->File().Size(), 1000U + (1 << 20));
  EXPECT_THROW(file->ReserveGrowth(~std::uint64_t{0}), FileError);

  FaultPlan const plan(FaultPlan::Effect::FailOn, 1, ENOSPC);
  EXPECT_THROW(file->ReserveGrowth(8 << 20), FileError);
  EXPECT_THROW(file->SetEndOfAllocation(8 << 20), FileError);
  EXPECT_EQ(file->EndOfAllocation(), 1U << 20);
}

TEST_F(Transactions, MayHoldStructureThatHasNoSpaceYet) {
  auto const file = TransactionalFile::Create(m_path, false, false);
  std::string const structure(100000, 's');
  {
    FaultPlan const plan(FaultPlan::Effect::FailOn, 1, ENOSPC);
    file->SetEndOfStructure(structure.size());
    file->WriteStructure(0, structure.data(), structure.size());
    EXPECT_THROW(file->Commit(), FileError);
  }
  EXPECT_EQ(FileSize(m_path), 0U); // a longer one would not have the space

  file->Commit();

  EXPECT_EQ(ReadWhole(m_path), structure);
}

TEST_F(Transactions, TakeSpaceBackOnlyIfNoCommittedStateHasIt) {
  auto const file = TransactionalFile::Create(m_path, false, false);
  std::string const structure(5000, 's');
  file->SetEndOfAllocation(5000);
  file->WriteStructure(0, structure.data(), structure.size());
  file->Commit();

  file->Free(4000, 1000);
  EXPECT_EQ(file->EndOfAllocation(), 5000U);
  file->SetEndOfAllocation(9000);
  file->Free(6000, 3000);
  EXPECT_EQ(file->EndOfAllocation(), 6000U);
}

TEST_F(Transactions, KnowWhereTheFileReadsAsZero) {
  std::string const text(3000, 's');
  auto const file = TransactionalFile::Create(m_path, false, false);
  EXPECT_EQ(file->FreshFrom(), 0U);
  file->SetEndOfAllocation(9000);
  file->WriteStructure(0, text.data(), text.size());
  file->WriteValues(6000, text.data(), text.size());
  file->Free(6000, 3000);
  EXPECT_EQ(file->FreshFrom(), 9000U); // values may have been there
  file->Commit();
  EXPECT_EQ(file->FreshFrom(), 6000U); // they were cut off

  file->SetEndOfAllocation(100000);

  std::string zeros(94000, '~');
  file->ReadValues(6000, zeros.data(), zeros.size());
  EXPECT_EQ(zeros, std::string(94000, '\0'));
}

TEST_F(Transactions, DoNotPutOldStructureOverValuesThatTookItsPlace) {
  auto const file = TransactionalFile::Create(m_path, false, false);
  std::string const structure(4000, 's');
  std::string const values(1000, 'v');
  file->SetEndOfAllocation(4000);
  file->WriteStructure(0, structure.data(), structure.size());
  file->Free(1000, 3000);
  file->SetEndOfAllocation(4000);
  file->WriteStructure(2000, structure.data(), 2000);
  std::memcpy(file->File().Bytes(1000, 1000), values.data(), 1000); // past us
  file->WriteValues(3000, values.data(), 1000);

  file->Commit();

  EXPECT_EQ(ReadWhole(m_path), structure.substr(0, 1000) + values + structure.substr(0, 1000) + values);
}

// Misuse

TEST_F(Transactions, CannotCreateOverAFileThatIsNotEmpty) {
  {
    Session const session = Session::Create(m_path);
    Change(session, 0);
    session.Commit();
  }
  orx::store::QuietErrors const quiet;
  auto const file = TransactionalFile::Open(m_path, false);
  orx::store::Hdf5Id const access(orx::store::MakeFileAccess(*file));
  EXPECT_LT(H5Fcreate(m_path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access.Get()), 0);
  EXPECT_NE(DescribeWithPlainHdf5(m_path), "refused");
}

TEST_F(Transactions, BelongToOneOpeningOfTheFile) {
  Session const session = Session::Create(m_path);
  Change(session, 0);
  orx::store::QuietErrors const quiet;
  orx::store::Hdf5Id const access(orx::store::MakeFileAccess(session.File()));
  EXPECT_LT(H5Fopen(m_path.c_str(), H5F_ACC_RDWR, access.Get()), 0);
  session.Commit();
  EXPECT_EQ(DescribeWithPlainHdf5(m_path), Describe(session.Id()));
}

TEST_F(Transactions, OfTwoReadersAreApart) {
  {
    Session const session = Session::Create(m_path);
    Change(session, 0);
    session.Commit();
  }
  auto first = std::make_unique<Session>(Session::Open(m_path, true));
  Session const second = Session::Open(m_path, true);
  std::string const seen = Describe(first->Id());
  first.reset();

  EXPECT_EQ(Describe(second.Id()), seen);
  EXPECT_THROW(second.File().Commit(), FileError);
}

} // namespace
