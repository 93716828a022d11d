#include "MatrixSupport.h"
#include "SparseSupport.h"
#include "sim/ORXSrvSystemDofDefinition.h"
#include "tests/support/Shortage.h"
#include "tests/support/TemporaryFolder.h"

#include <fcntl.h>

// What all formats of files share: what is written is the whole matrix, and the file is a whole one.

namespace {

namespace fs = std::filesystem;

constexpr int formats[] = {3, 4, 5, 6, 7};

/// [4 -1; -1 5] in symmetric form, which every format takes.
SparsePtr Example() {
  Doubles const diagonal{4, 5};
  return Access::Adopt({0, 1, 1}, {1}, {-1}, &diagonal, 3, 2);
}

void Export(ORXSrvSparseMatrix const& matrix, std::string const& path, int format) {
  ORXSimArray<ORXSrvNodeDof> equations;
  for (int node = 1; node <= 2; ++node)
    equations.Append({node, 1});
  ORXSrvSystemDofDefinition const dofs(equations);
  matrix.Export(path.c_str(), format, &dofs);
}

std::string WrittenAnew(int format) {
  File const file;
  Export(*Example(), file.Path(), format);
  return file.Content();
}

TEST(Export, OfAMatrixThatIsNotWholeIsRefusedAndLeavesTheFile) {
  char const* const notAssembled = "Export, a matrix assembled with all its rows expected";
  char const* const notAll = "Export, a matrix without entries added since its assembly expected";
  for (int const format : formats) {
    File const file("as before");
    auto const expectRefusal = [&](ORXSrvSparseMatrix const& matrix, char const* detail) {
      EXPECT_RAISED(IllegalInput(detail), Export(matrix, file.Path(), format)) << format;
      EXPECT_EQ(file.Content(), "as before") << format;
    };
    SparsePtr const matrix = Example();
    matrix->BeginAssembly();
    if (format != 6) expectRefusal(ORXSrvSparseMatrix(2, 2), notAssembled);
    expectRefusal(*matrix, notAssembled);
    if (format == 6) continue; // entries added make it unsymmetric, which is error 209
    ORXSrvSparseMatrix general(0, 0);
    general.AddData(0, 0, 1.0);
    expectRefusal(general, notAssembled);
    general.EndAssembly();
    general.AddData(0, 0, 2.0);
    expectRefusal(general, notAll);
    general.AddData(1, 1, 2.0);
    expectRefusal(general, notAssembled);
  }
}

TEST(Export, ThatFailsLeavesTheOlderFileOrNone) {
  for (int const format : formats) {
    WorkingFolder const folder;
    std::string const failed = "208 Error at writing to file: k: File too large";
    folder.Write("k", std::string(3000000, 'x'));
    {
      FullDisk const full;
      EXPECT_RAISED(failed, Export(*Example(), "k", format)) << format;
      EXPECT_EQ(fs::file_size("k"), 3000000u) << format;
      fs::remove("k");
      EXPECT_RAISED(failed, Export(*Example(), "k", format)) << format;
    }
    EXPECT_EQ(folder.Files(), std::set<std::string>{}) << format;
  }
}

TEST(Export, FailuresCarryThePathAndTheReason) {
  for (int const format : formats)
    for (auto const& [path, reason] : {std::pair{"/no/such/folder/k", "No such file or directory"},
                                       {"/", "Is a directory"},
                                       {"/dev/full", "No space left on device"}})
      EXPECT_RAISED(std::string("208 Error at writing to file: ") + path + ": " + reason,
                    Export(*Example(), path, format))
          << format;
}

TEST(Import, FailuresCarryThePathAndTheReason) {
  ORXSrvSparseMatrix matrix(0, 0);
  char const* const device = ": a regular file expected, found a pipe or a device.";
  for (int const format : {0, 1, 2, 3, 6, 7})
    for (auto const& [path, reason] :
         {std::pair{"/no/such/file", "."}, {"/", ": Is a directory."}, {"/dev/zero", device}})
      if (bool const isText = format == 2 || format == 3; !isText || reason != device) {
        EXPECT_RAISED(NotOpened(path, reason), matrix.Import(path, format)) << format;
      }
}

TEST(Export, ReplacesAFileButNotItsLinksAndPermissions) {
  for (int const format : formats) {
    WorkingFolder const folder;
    fs::create_directory("elsewhere");
    folder.Write("elsewhere/k", "older");
    fs::permissions("elsewhere/k", fs::perms(0640));
    fs::create_symlink("elsewhere/k", "link");
    fs::create_symlink("elsewhere/new", "link to nothing");
    for (char const* link : {"link", "link to nothing"}) {
      Export(*Example(), link, format);
      EXPECT_TRUE(fs::is_symlink(link)) << format;
      EXPECT_TRUE(folder.Read(link) == WrittenAnew(format)) << format << ' ' << link;
    }
    EXPECT_EQ(fs::status("elsewhere/k").permissions(), fs::perms(0640)) << format;
    EXPECT_EQ(std::distance(fs::directory_iterator("elsewhere"), {}), 2) << format;
  }
}

TEST(Export, IntoAFileWithoutANameMakesNoOther) {
  for (int const format : formats) {
    WorkingFolder const folder;
    int const file = open("k", O_RDWR | O_CREAT, 0600);
    fs::remove("k");
    fs::path const path = "/proc/self/fd/" + std::to_string(file);
    Export(*Example(), path, format);
    EXPECT_TRUE(folder.Read(path) == WrittenAnew(format)) << format;
    EXPECT_EQ(folder.Files(), std::set<std::string>{}) << format;
    close(file);
  }
}

TEST(Export, WhereTheFolderTakesNoNewFileWritesInPlace) {
  if (geteuid() == 0) GTEST_SKIP() << "the superuser may write to any folder";
  WorkingFolder const folder;
  fs::create_directory("locked");
  folder.Write("locked/k", "older");
  fs::permissions("locked", fs::perms(0555));
  Export(*Example(), "locked/k", 3);
  EXPECT_EQ(folder.Read("locked/k"), WrittenAnew(3));
  EXPECT_RAISED("208 Error at writing to file: locked/new: Permission denied",
                Export(*Example(), "locked/new", 3));
  fs::permissions("locked", fs::perms(0755));
}

} // namespace
