#include "DenseSupport.h"
#include "tests/support/ChildProcess.h"

#include <csignal>
#include <optional>
#include <sys/stat.h>

// The files of scratch matrices and containers in folders where others have files, too.

namespace {

using Files = std::set<std::string>;

struct Scratch : ORXSrvScratchDenseMatrix {
  Scratch() : ORXSrvScratchDenseMatrix(3, 3, 2, 2) {}
};

/// A results database with one context.
void WriteResults(std::string const& name) {
  ORXSimDatabase results;
  results.CreateFile(ORXUnicodeString(name.c_str()), 0, -1);
  results.CreateContext(ORXSimNamespaceID());
  results.Close();
}

template<class Owner>
class ScratchFiles : public testing::Test {
protected:
  /// Makes owners at one address, so that their files have one name.
  void Make() { m_owner.emplace(); }
  void Destroy() { m_owner.reset(); }
  /// The name of the file, known from one that is gone.
  std::string Name() {
    Make();
    std::string const name = *m_folder.Files().begin();
    Destroy();
    return name;
  }

  WorkingFolder m_folder;
  std::optional<Owner> m_owner;
};

using Owners = testing::Types<Scratch, ORXSrvMatrixContainer>;
TYPED_TEST_SUITE(ScratchFiles, Owners);

TYPED_TEST(ScratchFiles, TakeThePlaceOfWhatADeadProcessLeft) {
  std::string const name = this->Name();
  this->m_folder.Write(name, "left behind");
  chmod(name.c_str(), 0444);
  this->Make();
  EXPECT_EQ(this->m_folder.Files(), Files{name});
  this->Destroy();
  EXPECT_EQ(this->m_folder.Files(), Files());
}

TYPED_TEST(ScratchFiles, LeaveWhatALinkPointsTo) {
  std::string const name = this->Name();
  this->m_folder.Write("precious", "values");
  std::filesystem::create_symlink("precious", name);
  this->Make();
  EXPECT_FALSE(std::filesystem::is_symlink(name));
  this->Destroy();
  EXPECT_EQ(this->m_folder.Files(), Files{"precious"});
  EXPECT_EQ(this->m_folder.Read("precious"), "values");
}

TYPED_TEST(ScratchFiles, LeaveADatabaseOfTheirName) {
  std::string const name = this->Name();
  WriteResults(name);
  std::string const before = this->m_folder.Read(name);
  this->Make();
  EXPECT_EQ(this->m_folder.Files().size(), 2u);
  this->Destroy();
  EXPECT_EQ(this->m_folder.Files(), Files{name});
  EXPECT_EQ(this->m_folder.Read(name), before);
}

TYPED_TEST(ScratchFiles, GoFromWhereTheyAre) {
  this->Make();
  std::string const name = *this->m_folder.Files().begin();
  std::filesystem::create_directory("elsewhere");
  std::filesystem::current_path("elsewhere");
  this->m_folder.Write("elsewhere/" + name, "another one's");
  this->Destroy();
  EXPECT_EQ(this->m_folder.Read("elsewhere/" + name), "another one's");
  EXPECT_EQ(this->m_folder.Files(), Files{"elsewhere"});
}

TYPED_TEST(ScratchFiles, LeaveAFileThatHasTakenTheirPlace) {
  this->Make();
  std::string const name = *this->m_folder.Files().begin();
  this->m_folder.Write("new", "another one's");
  std::filesystem::rename("new", name);
  this->Destroy();
  EXPECT_EQ(this->m_folder.Read(name), "another one's");
}

TYPED_TEST(ScratchFiles, AreNotDeletedByAForkedChild) {
  this->Make();
  std::string const name = *this->m_folder.Files().begin();
  RunInChild([this] {
    this->Destroy();
    return 0;
  });
  EXPECT_EQ(this->m_folder.Files(), Files{name});
}

/// Runs a child that makes a matrix and a container and is killed; returns what it left.
Files KilledChild(WorkingFolder const& folder) {
  RunInChild([] {
    Scratch const matrix;
    ORXSrvMatrixContainer const container;
    return raise(SIGKILL);
  });
  return folder.Files();
}

TEST(ScratchFilesOfKilledProcesses, AreSweptWithTheNextOne) {
  WorkingFolder const folder;
  ASSERT_EQ(KilledChild(folder).size(), 2u);
  WriteResults("results.sim");
  folder.Write("notes.sim", "orx scratch, on paper");
  {
    Scratch const matrix;
    Files const files = folder.Files();
    EXPECT_EQ(files.size(), 3u) << "the results, the notes, the new one";
    EXPECT_EQ(files.count("results.sim") + files.count("notes.sim"), 2u);
  }
  EXPECT_EQ(folder.Files(), (Files{"notes.sim", "results.sim"}));
}

TEST(ScratchFilesOfKilledProcesses, AreToldFromThoseOfLivingOnes) {
  WorkingFolder const folder;
  Scratch const matrix;
  Files const living = folder.Files();
  RunInChild([] {
    std::filesystem::create_directory("x"); // a folder that the child has not swept, though its parent has
    std::filesystem::create_directory_symlink("..", "x/up");
    ORXSimDatabase another;
    another.SetDurability(ORXSimDurability::Scratch);
    another.CreateFile(ORXUnicodeString("x/up/another.sim"), 0, -1);
    another.Discard();
    return 0;
  });
  for (std::string const& name : living)
    EXPECT_EQ(folder.Files().count(name), 1u) << name;
}

} // namespace
