#include "tests/mpi/Shapes.h"

#include "tools/mpi/SparseDrawer.h"
#include "tools/mpi/SplitRows.h"

#include <chrono>
#include <fstream>
#include <thread>

using namespace orx::mpi;

namespace {

/// The one drawer of a database.
constexpr char firstDrawer[] = "/context_0/distribution_0/drawer";

SparsePlace PlaceOf(Arrays const& a) { return {firstDrawer, a.rows, a.columns, !a.diagonal.empty()}; }

/// Changes bytes of a file that the root has found by their content.
void Replace(std::string const& path, std::string const& found, std::string const& by) {
  AllRanks().OnRoot([&] {
    std::ifstream in(path, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(in), {}};
    std::size_t const at = bytes.find(found);
    if (at == std::string::npos) throw std::runtime_error("the bytes are not in the file");
    std::ofstream(path, std::ios::binary) << bytes.replace(at, by.size(), by);
  });
}

template<class T>
std::string BytesOf(std::vector<T> const& values) {
  return {reinterpret_cast<char const*>(values.data()), values.size() * sizeof(T)};
}

} // namespace

TEST(Reading, EveryRankHasItsRowsWhateverTheShapeAndTheLengthOfPieces) {
  SharedFolder const folder;
  for (auto const& [name, arrays] : Shapes()) {
    std::string const path = folder.Path("shape.sim");
    WriteDatabase(path, {{"K", arrays}});
    for (std::int64_t const length : {1, 3, 1 << 19}) {
      SCOPED_TRACE(name + ", pieces of " + std::to_string(length));
      ParallelFile const file(path, AllRanks());
      RowShare share = ReadSparseDrawer(file, PlaceOf(arrays), AllRanks(), length);
      Handle<Mat> const matrix = MakeMatrix(Split(std::move(share), AllRanks(), length), AllRanks());
      EXPECT_EQ(OwnEntries(matrix.Get()), OwnPart(EntriesOf(arrays), arrays.rows));
    }
  }
}

TEST(Reading, SharesAreThoseOfPetsc) {
  for (int const length : {0, 1, 6, 7, 8, 100}) {
    PetscInt own = PETSC_DECIDE, all = length, end = 0;
    Check(PetscSplitOwnership(PETSC_COMM_WORLD, &own, &all));
    MPI_Scan(&own, &end, 1, MPI_INT, MPI_SUM, PETSC_COMM_WORLD);
    Range const share = AllRanks().OwnShare(length);
    EXPECT_EQ(share.count, own);
    EXPECT_EQ(share.End(), end);
    for (int row = share.first; row < share.End(); ++row)
      EXPECT_EQ(AllRanks().OwnerOf(row, length), AllRanks().Rank());
  }
}

TEST(Reading, DamageIsOneMessageOfAllRanksThatNamesTheArray) {
  SharedFolder const folder;
  Arrays const a = Symmetric(RandomArrays(200, 200, 12, [](int i, int j) { return i > j; }));
  auto const damaged = [](auto values, std::size_t at, auto by) {
    values[at] = by;
    return BytesOf(values);
  };
  std::size_t const row = 150;
  struct Case {
    std::string found, by, text;
  };
  Case const cases[] = {
      {BytesOf(a.values), damaged(a.values, a.values.size() - 3, 0.125), "/data: its checksum is "},
      {BytesOf(a.indices), damaged(a.indices, 5, a.indices[5] ^ 1), "/ir: its checksum is "},
      {BytesOf(a.diagonal), damaged(a.diagonal, 199, 7.0), "/diagonal: its checksum is "},
      {BytesOf(a.indices), damaged(a.indices, a.indices.size() - 1, 200),
       "/ir: entry " + std::to_string(a.indices.size() - 1) + " has column 200, expected 0 to 199"},
      {BytesOf(a.pointers), damaged(a.pointers, row, a.pointers[row] + 1), "/jc: its checksum is "},
      {BytesOf(a.pointers), damaged(a.pointers, row, a.pointers[row - 1] - 1),
       "/jc: the row starts decrease from " + std::to_string(a.pointers[row - 1]) + " to " +
           std::to_string(a.pointers[row - 1] - 1) + " at row 149"},
      {BytesOf(a.pointers), damaged(a.pointers, 0, -1), "/jc: the first row start is -1, expected 0"},
      {BytesOf(a.pointers), damaged(a.pointers, 200, a.pointers[200] + 1), "/jc: the last row start is "}};
  std::string const path = folder.Path("damaged.sim");
  for (Case const& c : cases) {
    WriteDatabase(path, {{"K", a}});
    Replace(path, c.found, c.by);
    ParallelFile const file(path, AllRanks());
    std::string const text = SharedText([&] { ReadSparseDrawer(file, PlaceOf(a), AllRanks()); });
    EXPECT_EQ(text.substr(0, path.size() + 2), path + ": ") << c.text;
    EXPECT_NE(text.find(c.text), std::string::npos) << text << "\nexpected: " << c.text;
  }
}

TEST(Reading, ArraysOfOtherLengthsAreRefused) {
  SharedFolder const folder;
  std::string const path = folder.Path("short.sim");
  WriteDatabase(path, {{"K", RandomArrays(20, 20, 3, [](int, int) { return true; })}});
  ParallelFile const file(path, AllRanks());
  std::string const text = SharedText([&] { ReadSparseDrawer(file, {firstDrawer, 30, 20}, AllRanks()); });
  EXPECT_NE(text.find("/jc: has 21 elements, expected 31"), std::string::npos) << text;
}

TEST(Ranks, AnErrorOfOneIsTheErrorOfAll) {
  int const last = AllRanks().Count() - 1;
  std::string const text = SharedText([&] {
    AllRanks().OnEach([&] {
      if (AllRanks().Rank() == last)
        throw orx::tool::ToolError(orx::tool::ExitCode::UnusableInput, "of the last");
    });
  });
  EXPECT_EQ(text, "of the last");
}

TEST(Ranks, MeetWhenAllHaveAnErrorAndGiveUpWhenSomeDoNotCome) {
  Ranks const ranks(PETSC_COMM_WORLD);
  int speaker = -1;
  EXPECT_TRUE(ranks.Meet(speaker));
  EXPECT_EQ(speaker, 0);
  if (ranks.Count() == 1) return;
  bool const isAlone = ranks.IsRoot();
  if (!isAlone) std::this_thread::sleep_for(std::chrono::milliseconds(2500));
  EXPECT_NE(ranks.Meet(speaker), isAlone); // what the root began is there for the others
  MPI_Barrier(ranks.Communicator());
}
