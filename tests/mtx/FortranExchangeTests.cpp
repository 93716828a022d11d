#include "MatrixSupport.h"
#include "SparseSupport.h"
#include "tests/support/FileBytes.h"
#include "tests/support/TemporaryFolder.h"

extern "C" {
void write_record_file(char const* path, int length, int order, int band, int swapped);
void occupy_unit(int number);
void release_unit(int number, int* isOpen);
void _gfortran_set_max_subrecord_length(
    int bytes); // NOLINT: of the runtime; what -fmax-subrecord-length calls
}

namespace {

void WriteRecords(File const& file, int order, int band, bool swapped = false) {
  std::string const path = file.Path();
  write_record_file(path.c_str(), static_cast<int>(path.size()), order, band, swapped ? 1 : 0);
}

bool IsUnitOpen(int number) {
  int isOpen = 0;
  release_unit(number, &isOpen);
  return isOpen != 0;
}

/// The entries that fortran_records.f90 writes, as GetEntries has them.
Entries Written(std::uint32_t order, std::uint32_t band) {
  Entries entries;
  auto const value = [](std::uint32_t i, std::uint32_t j) { return 1000.0 * (i + 1) + (j + 1); };
  for (std::uint32_t i = 0; i < order; ++i)
    entries.push_back({i, i, value(i, i)});
  for (std::uint32_t i = 0; i < order; ++i)
    for (std::uint32_t j = i + 1; j < std::min(order, i + band + 1); ++j) {
      entries.push_back({i, j, value(i, j)});
      entries.push_back({j, i, value(i, j)});
    }
  return entries;
}

TEST(FortranImport, ReadsWhatAFortranProgramWrote) {
  for (int const order : {1, 2, 40, 3000})
    for (int const band : {0, 1, 17}) {
      File const file;
      WriteRecords(file, order, band);
      SparsePtr const matrix = NewImported(file.Path(), 0);
      Entries const expected = Written(static_cast<std::uint32_t>(order), static_cast<std::uint32_t>(band));
      EXPECT_TRUE(EntriesOf(*matrix) == expected) << order << ' ' << band;
      EXPECT_EQ(SizeOf(*matrix), (std::pair{order, order}));
      // This format counts the off-diagonal entries only.
      EXPECT_EQ(matrix->NumberOfNonzeros(), (static_cast<int>(expected.size()) - order) / 2);
      EXPECT_EQ(Access::SymmetryState(*matrix), 1);
      EXPECT_FALSE(IsUnitOpen(81));
    }
}

TEST(FortranImport, AMatrixWithoutRowsIsOneRecord) {
  File const file(Raw<int>({4, 0, 4}));
  ORXSrvSparseMatrix matrix(3, 3);
  matrix.Import(file.Path(), 0);
  EXPECT_EQ(matrix.NumberOfRows(), 0);
  EXPECT_TRUE(EntriesOf(matrix).empty());
}

TEST(FortranImport, SubrecordsAreJoined) {
  File const file;
  _gfortran_set_max_subrecord_length(64);
  WriteRecords(file, 60, 25);
  _gfortran_set_max_subrecord_length(2147483639);
  EXPECT_EQ(file.Content().substr(12, 4), Raw<int>({-64})); // really cut: a negative marker is continued
  EXPECT_TRUE(EntriesOf(*NewImported(file.Path(), 0)) == Written(60, 25));
}

// The runtime looks at its environment when it starts, so a process of its own reads the swapped file.
constexpr char swappedFile[] = "ORX_TEST_SWAPPED_FILE";

TEST(FortranImport, ReadsTheOtherByteOrderWhenTheRuntimeIsToldTo) {
  if (char const* const path = std::getenv(swappedFile)) {
    EXPECT_TRUE(EntriesOf(*NewImported(path, 0)) == Written(40, 7));
    return;
  }
  File const file;
  WriteRecords(file, 40, 7, true);
  EXPECT_TRUE(RaisesFrom("202 ", [&] { NewImported(file.Path(), 0); }));
  std::string const self = std::filesystem::read_symlink("/proc/self/exe").string();
  std::string const command = std::string(swappedFile) + "='" + file.Path() +
                              "' GFORTRAN_CONVERT_UNIT=big_endian:81 '" + self +
                              "' --gtest_filter=FortranImport.ReadsTheOther* >/dev/null";
  EXPECT_EQ(std::system(command.c_str()), 0); // NOLINT: no other way to start it with another environment
}

TEST(FortranImport, AUnitThatTheHostHasInUseIsAnErrorAndStaysOpen) {
  File const file;
  WriteRecords(file, 2, 1);
  occupy_unit(81);
  EXPECT_RAISED(
      NotOpened(file.Path(),
                ", record 1: the order of the matrix expected, found \"Fortran unit 81 is in use\"."),
      NewImported(file.Path(), 0));
  EXPECT_TRUE(IsUnitOpen(81));
  EXPECT_EQ(NewImported(file.Path(), 0)->NumberOfRows(), 2);
}

TEST(FortranImport, FaultsOfAFileLeaveTheUnitFree) {
  File const file;
  WriteRecords(file, 30, 5);
  std::string const whole = file.Content();
  for (std::size_t length = 0; length < whole.size() - 4; ++length) {
    File const part(whole.substr(0, length));
    EXPECT_TRUE(RaisesFrom("202 ", [&] { NewImported(part.Path(), 0); })) << length;
    EXPECT_FALSE(IsUnitOpen(81));
  }
}

TEST(FortranImport, RefusesPathsThatItsRuntimeWouldCutShort) {
  EXPECT_RAISED(NotOpened("", "."), NewImported("", 0));
  TemporaryFolder const folder;
  std::string const blank = folder.Write("blank ", "x");
  EXPECT_RAISED(NotOpened(blank, ": Fortran cannot open a path that ends in a blank."),
                NewImported(blank.c_str(), 0));
}

} // namespace
