#include "Hdf5Support.h"
#include "tests/file/FileSupport.h"

#include "sim/impl/store/Hdf5Driver.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace {

using namespace orx::file;

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

TEST_F(Transactions, WorkAfterAHostHasShutHdf5Down) {
  int const end = RunInChild([&] {
    { Change(Session::Create(m_path), 0); }
    H5close();
    Session const session = Session::Create(m_path);
    Change(session, 0);
    session.Commit();
    return DescribeWithPlainHdf5(m_path) == Describe(session.Id()) ? 0 : 1;
  });

  EXPECT_EQ(end, 0);
}

/// What goes wrong, by the kind of a step and what it is done to.
using Fails = std::function<bool(FileStep const&)>;

void FailWhere(Fails const& fails) {
  SetFaultHook([fails](FileStep const& step) { return fails(step) ? EIO : 0; });
}

bool IsMark(FileStep const& step) {
  return step.kind == FileStep::Kind::Write && step.offset == 0 && std::memcmp(step.data, "orxapply", 8) == 0;
}
/// Pages go to their places: the first begins behind the signature.
bool IsInPlace(FileStep const& step) { return step.kind == FileStep::Kind::Write && step.offset == 8; }

TEST_F(Transactions, ThatFailAreNotThereAfterwards) {
  bool isMarked = false;
  std::pair<char const*, Fails> const faults[] = {
      {"values and journal", [](FileStep const& step) { return step.kind == FileStep::Kind::Sync; }},
      {"the mark", [](FileStep const& step) { return IsMark(step); }},
      {"the mark's sync", [&](FileStep const& step) {
         isMarked |= IsMark(step);
         return isMarked && step.kind == FileStep::Kind::Sync;
       }}};
  for (auto const& [what, fails] : faults) {
    std::filesystem::remove(m_path);
    std::string committed;
    {
      Session const session = Session::Create(m_path);
      Change(session, 0);
      session.Commit();
      committed = Describe(session.Id());
      Change(session, 1);
      FailWhere(fails);
      EXPECT_THROW(session.Commit(), FileError) << what;
      SetFaultHook(nullptr);
      EXPECT_EQ(DescribeWithPlainHdf5(m_path), committed) << what;
      // After a failed sync nobody knows what the disk has of the values; otherwise it may be tried again.
      bool const isOver = fails({FileStep::Kind::Sync, -1, 0, nullptr, 0});
      EXPECT_EQ(isOver, ErrorOf([&] { session.File().WillWriteRawData(); }) != 0) << what;
      EXPECT_EQ(isOver, ErrorOf([&] { session.File().Commit(); }) != 0) << what;
      if (!isOver) committed = Describe(session.Id());
    }
    EXPECT_EQ(Describe(Session::Open(m_path).Id()), committed) << what;
  }
}

TEST_F(Transactions, WhoseLastStepFailsOnceAreWhole) {
  std::pair<char const*, FileStep::Kind> const faults[] = {{"a page", FileStep::Kind::Write},
                                                           {"a sync", FileStep::Kind::Sync},
                                                           {"the cut", FileStep::Kind::Resize}};
  for (auto const& [what, kind] : faults) {
    std::filesystem::remove(m_path);
    Session const session = Session::Create(m_path);
    session.Commit();
    Change(session, 0);
    bool isInPlace = false, hasFailed = false;
    FailWhere([&, kind = kind](FileStep const& step) {
      isInPlace |= IsInPlace(step);
      return isInPlace && step.kind == kind && !std::exchange(hasFailed, true);
    });
    session.Commit();
    SetFaultHook(nullptr);
    EXPECT_TRUE(hasFailed) << what;
    EXPECT_EQ(DescribeWithPlainHdf5(m_path), Describe(session.Id())) << what;
  }
}

TEST_F(Transactions, ThatStickAfterTheirMarkAreFinishedByTheNextWriteOrOpening) {
  for (bool const isFinishedHere : {false, true}) {
    for (bool const readsFirst : {false, true}) {
      std::filesystem::remove(m_path);
      std::string expected;
      {
        Session const session = Session::Create(m_path);
        session.Commit();
        Change(session, 0);
        session.Flush();
        expected = Describe(session.Id());
        FailWhere(IsInPlace);
        session.Commit();
        // A value that was written now would be overwritten by the page that waits.
        EXPECT_EQ(ErrorOf([&] { session.File().WillWriteRawData(); }), EIO);
        EXPECT_EQ(ErrorOf([&] { session.Commit(); }), EIO);
        EXPECT_EQ(ErrorOf([&] { session.File().ReserveGrowth(1); }), EIO);
        EXPECT_EQ(Describe(session.Id()), expected);
        EXPECT_EQ(DescribeWithPlainHdf5(m_path), "refused");
        if (isFinishedHere) {
          SetFaultHook(nullptr);
          session.File().WillWriteRawData();
          EXPECT_EQ(DescribeWithPlainHdf5(m_path), expected);
        }
      }
      SetFaultHook(nullptr);
      if (readsFirst) {
        std::string const bytes = ReadWhole(m_path);
        EXPECT_EQ(Describe(Session::Open(m_path, true).Id()), expected);
        EXPECT_TRUE(ReadWhole(m_path) == bytes);
      }
      EXPECT_EQ(Describe(Session::Open(m_path).Id()), expected);
      EXPECT_EQ(DescribeWithPlainHdf5(m_path), expected);
    }
  }
}

TEST_F(Transactions, BringTheMarkToTheDiskBetweenJournalAndPages) {
  Session const session = Session::Create(m_path);
  session.Commit();
  Change(session, 0);
  session.Flush();
  std::uint64_t const end = session.File().EndOfAllocation();
  std::string order;
  SetFaultHook([&](FileStep const& step) {
    char const what = step.kind == FileStep::Kind::Sync                          ? 's'
                      : IsMark(step)                                             ? 'm'
                      : step.kind == FileStep::Kind::Resize                      ? 'c'
                      : step.kind == FileStep::Kind::Write && step.offset >= end ? 'j'
                      : step.kind == FileStep::Kind::Write && step.bytes == 8    ? 'h'
                      : step.kind == FileStep::Kind::Write                       ? 'p'
                                                                                 : '.';
    if (what != '.' && (order.empty() || order.back() != what)) order += what;
    return 0;
  });
  session.File().Commit();
  SetFaultHook(nullptr);
  EXPECT_EQ(order, "jsmspshsc"); // journal, mark, pages, head, each on the disk before the next; the cut
}

TEST_F(Transactions, AreNotForgedByRawData) {
  // A journal of one page at the end of a file, as values, and a commit that ends the file with them.
  std::string forged(3 * 4096, '\0');
  {
    auto const other = TransactionalFile::Create(m_folder.Path("other"), false, false);
    std::string const page(4096, 'p');
    other->SetEndOfAllocation(2 * page.size());
    other->WriteMetadata(0, page.data(), page.size());
    other->Commit();
    other->WriteMetadata(0, page.data(), page.size());
    FailWhere(IsInPlace);
    other->Commit();
    forged = ReadWhole(m_folder.Path("other")).substr(2 * page.size());
    SetFaultHook(nullptr);
  }
  auto file = TransactionalFile::Create(m_path, false, false);
  std::string const page(4096, 's');
  file->SetEndOfAllocation(2 * page.size() + forged.size());
  file->WriteMetadata(0, page.data(), page.size());
  file->WriteRawData(2 * page.size(), forged.data(), forged.size());
  file->Commit();
  file.reset();
  std::string const bytes = ReadWhole(m_path);
  ASSERT_TRUE(bytes.ends_with(forged));
  for (bool const readOnly : {true, false}) {
    auto const again = TransactionalFile::Open(m_path, readOnly);
    std::string seen(page.size(), '~');
    again->ReadMetadata(0, seen.data(), seen.size());
    EXPECT_EQ(seen, page);
    EXPECT_EQ(again->Counts().replays, 0U);
  }
  EXPECT_TRUE(ReadWhole(m_path) == bytes);
}

TEST_F(Transactions, AreCopiedAsTheyWereCommitted) {
  Session const session = Session::Create(m_path);
  Change(session, 0);
  session.Commit();
  std::string const committed = Describe(session.Id());
  Change(session, 1);
  session.Flush();
  std::string const copy = m_folder.Path("copy");
  session.File().CopyTo(copy, false);
  EXPECT_EQ(Describe(Session::Open(copy).Id()), committed);
  EXPECT_EQ(ErrorOf([&] { session.File().CopyTo(copy, false); }), EEXIST);

  FailWhere(IsInPlace);
  session.Commit();
  SetFaultHook(nullptr);
  session.File().CopyTo(copy, true); // finishes it before
  EXPECT_EQ(DescribeWithPlainHdf5(copy), Describe(session.Id()));
}

TEST_F(Transactions, OfAScratchFileCostNothingBeforeItsEnd) {
  std::string expected;
  {
    Session const session = Session::Create(m_path, true);
    int syncs = 0;
    SetFaultHook([&](FileStep const& step) {
      syncs += step.kind == FileStep::Kind::Sync ? 1 : 0;
      return 0;
    });
    Change(session, 0);
    session.Commit();
    EXPECT_EQ(DescribeWithPlainHdf5(m_path), "refused");
    Change(session, 1);
    session.Flush();
    session.File().CommitForClose();
    SetFaultHook(nullptr);
    EXPECT_EQ(syncs, 0);
    expected = Describe(session.Id());
  }
  EXPECT_EQ(DescribeWithPlainHdf5(m_path), expected);
}

TEST_F(Transactions, ThatAreDiscardedWriteNoValues) {
  auto const file = TransactionalFile::Create(m_path, false, false);
  file->SetEndOfAllocation(100);
  file->WriteRawData(0, "before", 6);

  file->Discard();
  file->WriteRawData(0, "after", 6);

  char seen[6];
  file->ReadRawData(0, seen, 6);
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

TEST_F(Transactions, MayHoldMetadataThatHasNoSpaceYet) {
  auto const file = TransactionalFile::Create(m_path, false, false);
  std::string const metadata(100000, 's');
  {
    FaultPlan const plan(FaultPlan::Effect::FailOn, 1, ENOSPC);
    file->SetEndOfMetadata(metadata.size());
    file->WriteMetadata(0, metadata.data(), metadata.size());
    EXPECT_THROW(file->Commit(), FileError);
  }
  EXPECT_EQ(file->File().Size(), 0U); // a longer one would not have the space

  file->Commit();

  EXPECT_EQ(ReadWhole(m_path), metadata);
}

TEST_F(Transactions, TakeSpaceBackOnlyIfNoCommittedStateHasIt) {
  auto const file = TransactionalFile::Create(m_path, false, false);
  std::string const metadata(5000, 's');
  file->SetEndOfAllocation(5000);
  file->WriteMetadata(0, metadata.data(), metadata.size());
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
  file->WriteMetadata(0, text.data(), text.size());
  file->WriteRawData(6000, text.data(), text.size());
  file->Free(6000, 3000);
  EXPECT_EQ(file->FreshFrom(), 9000U); // values may have been there
  file->Commit();
  EXPECT_EQ(file->FreshFrom(), 6000U); // they were cut off

  file->SetEndOfAllocation(100000);

  std::string zeros(94000, '~');
  file->ReadRawData(6000, zeros.data(), zeros.size());
  EXPECT_EQ(zeros, std::string(94000, '\0'));
}

TEST_F(Transactions, DoNotPutOldMetadataOverRawDataInItsSpace) {
  auto const file = TransactionalFile::Create(m_path, false, false);
  std::string const metadata(4000, 's'), values(1000, 'v');
  file->SetEndOfAllocation(4000);
  file->WriteMetadata(0, metadata.data(), metadata.size());
  file->Free(1000, 3000);
  file->SetEndOfAllocation(4000);
  file->WriteMetadata(2000, metadata.data(), 2000);
  std::memcpy(file->File().Bytes(1000, 1000), values.data(), 1000); // past us
  file->WriteRawData(3000, values.data(), 1000);

  file->Commit();

  EXPECT_EQ(ReadWhole(m_path), metadata.substr(0, 1000) + values + metadata.substr(0, 1000) + values);
}

// Misuse

TEST_F(Transactions, BelongToOneOpeningOfTheFile) {
  Session const session = Session::Create(m_path);
  Change(session, 0);
  orx::store::QuietErrors const quiet;
  orx::store::Handle const access(orx::store::MakeFileAccess(session.File()));
  EXPECT_LT(H5Fopen(m_path.c_str(), H5F_ACC_RDWR, access.Get()), 0);
  session.Commit();
  EXPECT_EQ(DescribeWithPlainHdf5(m_path), Describe(session.Id()));
}

} // namespace
