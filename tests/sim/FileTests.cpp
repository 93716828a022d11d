#include "DatabaseSupport.h"

#include <cerrno>
#include <csignal>

// The file under a database: who may write to it, how it comes into being, what its failures are called.

namespace {

using namespace orx::file;

class DatabaseFiles : public testing::Test {
protected:
  TemporaryFolder m_folder{memoryFolder};
  std::string m_path = m_folder.Path("a.sim");
};

/// A database with one field of 3 cells, all `value`.
ORXSimDistributionID MakeField(ORXSimDatabase& database, std::string const& path, double value) {
  Create(database, path);
  ORXSimContext const context(database.CreateContext({}));
  ORXSimTransaction transaction(context.ID());
  ORXSimDistributionID const field = CreateField(context, {3});
  CreateDrawer(field, {}, value);
  transaction.Commit();
  return field;
}

std::vector<double> CellsIn(std::string const& path, int field = 0) {
  ORXSimDatabase database;
  Open(database, path, true);
  return CellsOf(FieldIn(database, field));
}

/// A closed file with such a field.
void WriteFile(std::string const& path) {
  ORXSimDatabase database;
  MakeField(database, path, 3.0);
  database.Close();
}

std::vector<double> const threes(3, 3.0);
std::vector<double> const sevens(3, 7.0);

// Forks

TEST_F(DatabaseFiles, OfAForkedChildChangeNothingWhenItExits) {
  ORXSimDatabase database;
  ORXSimDistributionID const field = MakeField(database, m_path, 3.0);
  ORXSimContext const context(field.context);
  CreateDrawer(CreateField(context, {1000}), {}, 5.0); // behind the committed end

  int const end = RunInChild([&]() -> int {
    bool const isRefused = CodeOf([&] { WriteCells(field, sevens); }) == ORXSimException::writeFailed &&
                           CodeOf([&] { CreateDrawer(field, {}); }) == ORXSimException::writeFailed &&
                           CodeOf([&] { database.Close(); }) == ORXSimException::writeFailed &&
                           CellsOf(field) == threes;
    std::exit(isRefused ? 0 : 1); // not _exit: all that is done at the exit of a process is done
  });

  EXPECT_EQ(end, 0);
  EXPECT_EQ(CellsOf(context.Distributions()[1]), std::vector<double>(1000, 5.0));
  WriteCells(field, sevens);
  database.Close();
  EXPECT_EQ(CellsIn(m_path), sevens);
  EXPECT_EQ(CellsIn(m_path, 1), std::vector<double>(1000, 5.0));
}

TEST_F(DatabaseFiles, OfStaticObjectsMayBeClosedWhenTheProcessExits) {
  struct Host {
    ORXSimDatabase database;
    ~Host() {
      try {
        database.Close();
      } catch (ORXSimException const&) {
        _exit(1);
      }
    }
  };

  int const end = RunInChild([&]() -> int {
    static Host host;
    MakeField(host.database, m_path, 3.0);
    CreateDrawer(CreateField(ORXSimContext(host.database.Contexts()[0]), {3}), {}, 7.0);
    std::exit(0);
  });

  EXPECT_EQ(end, 0);
  EXPECT_EQ(CellsIn(m_path, 1), sevens);
}

TEST_F(DatabaseFiles, AreWrittenByOneOrReadByMany) {
  auto const codeInChild = [&](bool readOnly) {
    return RunInChild([&] {
      ORXSimDatabase database;
      return CodeOf([&] { Open(database, m_path, readOnly); });
    });
  };
  ORXSimDatabase database;
  MakeField(database, m_path, 3.0);
  EXPECT_EQ(codeInChild(false), ORXSimException::fileInUse);
  EXPECT_EQ(codeInChild(true), ORXSimException::fileInUse);
  ORXSimDatabase again;
  std::string text;
  EXPECT_EQ(CodeOf([&] { Open(again, m_path); }, &text), ORXSimException::fileInUse);
  EXPECT_NE(text.find(m_path), std::string::npos);
  EXPECT_NE(text.find("another process, or this one, has it open"), std::string::npos) << text;
  EXPECT_CODE(fileInUse, Create(again, m_path));
  database.Close();
  Open(database, m_path, true);
  EXPECT_EQ(codeInChild(true), 0);
  EXPECT_EQ(codeInChild(false), ORXSimException::fileInUse);
}

// Creation

TEST_F(DatabaseFiles, AreSeenByAPollingReaderAsNoneOrWhole) {
  int const end = RunInChild([&] {
    // The reader: opens whatever it finds under the name.
    pid_t const reader = fork();
    if (reader == 0) {
      for (;;) {
        ORXSimDatabase database;
        int const code = CodeOf([&] { Open(database, m_path, true); });
        if (code != 0 && code != ORXSimException::notOpened && code != ORXSimException::fileInUse)
          _exit(code);
      }
    }
    int failures = 0;
    for (int k = 0; k < 100; ++k) {
      std::filesystem::remove(m_path);
      ORXSimDatabase database;
      failures += CodeOf([&] { database.CreateFile(ORXUnicodeString(m_path.c_str()), 0, -1); }) != 0 ? 1 : 0;
      CodeOf([&] { database.Close(); });
    }
    kill(reader, SIGKILL);
    int status = 0;
    waitpid(reader, &status, 0);
    return WIFSIGNALED(status) ? failures : 100 + WEXITSTATUS(status);
  });
  EXPECT_EQ(end, 0);
}

TEST_F(DatabaseFiles, ThatCannotBeCreatedLeaveTheFormerOne) {
  WriteFile(m_path);
  std::string const former = ReadWhole(m_path);
  int failures = 0;
  for (int nth = 1;; ++nth) {
    WriteWhole(m_path, former);
    int code = 0;
    {
      ORXSimDatabase database;
      FaultPlan const plan(FaultPlan::Effect::FailOnce, nth, EIO);
      code = CodeOf([&] { Create(database, m_path); });
      if (plan.Steps() < nth) break;
    }
    EXPECT_FALSE(std::filesystem::exists(m_path + ".orx-new")) << nth;
    bool const isFormer = ReadWhole(m_path) == former;
    EXPECT_NE(code == 0, isFormer) << nth;
    failures += isFormer ? 1 : 0;
    ORXSimDatabase database;
    EXPECT_EQ(CodeOf([&] { Open(database, m_path); }), 0) << nth;
  }
  EXPECT_GE(failures, 4);
}

TEST_F(DatabaseFiles, OfOthersAreNotTouchedBeforeTheyAreKnown) {
  std::ofstream(m_path) << "a file of holes";
  std::filesystem::resize_file(m_path, 64 << 20);
  ORXSimDatabase database;
  EXPECT_CODE(damaged, Open(database, m_path));
  EXPECT_LT(AllocatedBytes(m_path), 1U << 20);
}

// Failures

TEST_F(DatabaseFiles, WriteNothingWhileACommitWaitsForItsDisk) {
  ORXSimDatabase database;
  ORXSimDistributionID const field = MakeField(database, m_path, 3.0);
  ORXSimTransaction transaction(field.context);
  ORXSimDistributionID const later = CreateField(ORXSimContext(field.context), {3});
  CreateDrawer(later, {}, 7.0);
  SetFaultHook([](FileStep const& step) {
    bool const isInPlace = step.kind == FileStep::Kind::Write && step.offset == 8;
    return isInPlace ? EIO : 0;
  });
  EXPECT_EQ(CodeOf([&] { transaction.Commit(); }), 0);
  EXPECT_CODE(writeFailed, WriteCells(field, sevens));
  SetFaultHook(nullptr);
  EXPECT_EQ(CellsOf(field), threes);
  WriteCells(field, sevens);
  EXPECT_EQ(CodeOf([&] { database.Close(); }), 0);

  EXPECT_EQ(CellsIn(m_path), sevens);
  EXPECT_EQ(CellsIn(m_path, 1), sevens);
}

TEST_F(DatabaseFiles, ThatCannotBeReadAreNotCalledDamaged) {
  WriteFile(m_path);
  auto const isRead = [](FileStep const& step) { return step.kind == FileStep::Kind::Read; };
  for (bool const readOnly : {true, false}) {
    for (int nth = 1;; ++nth) {
      ORXSimDatabase database;
      FaultPlan const plan(FaultPlan::Effect::FailOnce, nth, EIO, isRead);
      int const code = CodeOf([&] { Open(database, m_path, readOnly); });
      if (plan.Steps() < nth) break;
      EXPECT_EQ(code, ORXSimException::readFailed) << nth;
    }
  }
}

TEST_F(DatabaseFiles, ThatLostTheirFileRefuseToCommit) {
  for (bool const isDeleted : {true, false}) {
    ORXSimDatabase database;
    ORXSimDistributionID const field = MakeField(database, m_path, 3.0);
    ORXSimTransaction transaction(field.context);
    CreateField(ORXSimContext(field.context), {3});
    if (isDeleted) {
      std::filesystem::remove(m_path);
    } else {
      std::filesystem::resize_file(m_path, 100);
    }
    EXPECT_CODE(writeFailed, transaction.Commit());
  }
}

TEST_F(DatabaseFiles, AreBackedUpWhileTheyAreInUse) {
  std::string const copy = m_folder.Path("b.sim");
  auto const backUp = [&](ORXSimDatabase const& database, int flags) {
    return CodeOf([&] { database.BackUp(ORXUnicodeString(copy.c_str()), flags); });
  };
  ORXSimDatabase database;
  EXPECT_EQ(backUp(database, 0), ORXSimException::wrongState);
  ORXSimDistributionID const field = MakeField(database, m_path, 3.0);
  ORXSimTransaction transaction(field.context);
  CreateDrawer(CreateField(ORXSimContext(field.context), {3}), {}, 7.0);
  WriteCells(field, sevens);

  EXPECT_EQ(backUp(database, 0), 0);
  EXPECT_EQ(backUp(database, 0), ORXSimException::notOpened);
  EXPECT_EQ(backUp(database, 2), ORXSimException::invalidArgument);
  {
    ORXSimDatabase other;
    Open(other, copy);
    EXPECT_EQ(ORXSimContext(other.Contexts()[0]).Distributions().Size(), 1);
    EXPECT_EQ(backUp(database, ORXSimDatabase::replaceExisting), ORXSimException::fileInUse);
  }
  EXPECT_EQ(CellsIn(copy), sevens);
  transaction.Commit();
  EXPECT_EQ(backUp(database, ORXSimDatabase::replaceExisting), 0);
  EXPECT_EQ(CellsIn(copy, 1), sevens);

  ORXSimDatabase scratch;
  scratch.SetDurability(ORXSimDurability::Scratch);
  Create(scratch, m_folder.Path("c.sim"));
  EXPECT_EQ(backUp(scratch, 1), ORXSimException::wrongState);
}

} // namespace
