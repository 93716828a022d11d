#include "DatabaseSupport.h"

#include "sim/impl/store/DenseDrawer.h"

#include <cmath>
#include <hdf5.h>
#include <limits>
#include <numeric>
#include <random>
#include <sys/resource.h>

// Where the cells of drawers lie in the file, and drawers that other programs have changed.

namespace {

constexpr int largestSize = std::numeric_limits<int>::max();

TEST(Chunks, TakeLittleMoreSpaceThanTheCells) {
  std::mt19937 random(1);
  auto const draw = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
  for (int trial = 0; trial < 2000; ++trial) {
    std::vector<int> sizes, chunks;
    double bytes = 8.0, allowed = 1.0;
    for (int rank = draw(1, 3); rank > 0; --rank) {
      sizes.push_back(draw(rank == 1 ? 200 : 20, rank == 1 ? 30000 : 200));
      chunks.push_back(draw(1, 2 * sizes.back()));
      bytes *= sizes.back();
      allowed *= 1.125 + 8.0 / sizes.back(); // an eighth, or what rounding to whole cells takes
    }
    bool const isWhole = trial % 4 == 0;
    double stored = 8.0;
    auto const lengths =
        orx::store::ChunkLengths(sizes, isWhole ? std::span<int const>() : std::span<int const>(chunks), 8);
    for (std::size_t dim = 0; dim < sizes.size(); ++dim)
      stored *= static_cast<double>((sizes[dim] + lengths[dim] - 1) / lengths[dim] * lengths[dim]);
    EXPECT_LE(stored, allowed * bytes + 65536.0) << "trial " << trial;
  }
}

TEST(Chunks, OfTheLongestDimensionsAreCounted) {
  std::vector<int> const sizes(3, largestSize);
  for (std::int64_t const length : orx::store::ChunkLengths(sizes, std::vector<int>{1, 1, 1}, 8))
    EXPECT_GE(length, 1);
}

class DrawerFile : public testing::Test {
protected:
  DrawerFile() { CreateIt(); }
  void CreateIt() { Create(m_database, Path()); }
  ORXSimContext Context() {
    if (m_database.Contexts().IsEmpty()) m_database.CreateContext({});
    return ORXSimContext(m_database.Contexts()[0]);
  }
  std::string Path() const { return m_folder.Path("a.sim"); }

  /// Changes the file as another program does: `change` gets the group of the first field, and what its
  /// drawer held is "former".
  template<class Change>
  void ChangeAsOther(Change const& change) {
    m_database.Close();
    hid_t const file = H5Fopen(Path().c_str(), H5F_ACC_RDWR, H5P_DEFAULT);
    hid_t const field = H5Gopen2(file, "/context_0/distribution_0", H5P_DEFAULT);
    H5Lmove(field, "drawer", field, "former", H5P_DEFAULT, H5P_DEFAULT);
    change(field);
    H5Gclose(field);
    H5Fclose(file);
  }
  /// A dataset "drawer".
  static void MakeDataset(hid_t field, std::vector<hsize_t> const& extents, hid_t creation) {
    hid_t const space = H5Screate_simple(static_cast<int>(extents.size()), extents.data(), nullptr);
    H5Dclose(H5Dcreate2(field, "drawer", H5T_IEEE_F64LE, space, H5P_DEFAULT, creation, H5P_DEFAULT));
    H5Sclose(space);
    H5Pclose(creation);
  }
  /// The code of opening the file and reading cell 0 of the first field.
  int CodeOfReading(std::string* text = nullptr) {
    return CodeOf(
        [&] {
          Open(m_database, Path(), true);
          int const rank = ORXSimDistribution(FieldIn(m_database)).NumDimensions();
          Read<1>(FieldIn(m_database), Ranges(rank, {0, 0}));
        },
        text);
  }

  TemporaryFolder m_folder{memoryFolder};
  ORXSimDatabase m_database;
};

TEST_F(DrawerFile, LargerThanAnyFileIsRefused) {
  for (std::vector<int> const& sizes :
       {std::vector<int>(3, largestSize), std::vector<int>(32, largestSize)}) {
    ORXSimDistributionID const field = CreateField(Context(), sizes);
    EXPECT_CODE(invalidArgument, CreateDrawer(field, std::vector<int>(sizes.size(), 1)));
  }
}

TEST_F(DrawerFile, AMinusZeroStaysOne) {
  ORXSimDistributionID const field = CreateField(Context(), {3, 2});
  CreateDrawer(field, {2, 1}, -0.0);
  Extend(field, 0, 3);
  for (double const cell : CellsOf(field))
    EXPECT_TRUE(cell == 0.0 && std::signbit(cell));
}

// New chunks are filled by write calls of a megabyte, which are put together where the buffer has gaps.
TEST_F(DrawerFile, FirstValuesOfLargeChunksAreThoseOfTheBuffer) {
  ORXSimDistributionID const field = CreateField(Context(), {600, 1300});
  CreateDrawer(field, {600, 650});
  std::vector<double> cells(600 * 1300);
  std::iota(cells.begin(), cells.end(), 1.0);
  WriteCells(field, cells);
  EXPECT_TRUE(CellsOf(field) == cells);
}

// Cells at odd places would lie in two sectors, of which a power cut may leave one old and one new.
TEST_F(DrawerFile, CellsLieAtMultiplesOfTheirSize) {
  WithoutLinkChecks const fast;
  std::mt19937 random(1);
  auto const draw = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
  // Another program may have ended the file anywhere.
  CreateDrawer(CreateField(Context(), {2, 2}), {});
  ChangeAsOther([&](hid_t field) {
    H5Lmove(field, "former", field, "drawer", H5P_DEFAULT, H5P_DEFAULT);
    hsize_t const odd = 70001;
    hid_t const space = H5Screate_simple(1, &odd, nullptr);
    std::string const bytes(odd, 'x');
    hid_t const dataset =
        H5Dcreate2(field, "other", H5T_STD_I8LE, space, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
    H5Dwrite(dataset, H5T_STD_I8LE, H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes.data());
    H5Dclose(dataset);
    H5Sclose(space);
  });
  Open(m_database, Path());
  for (int k = 0; k < 300; ++k) {
    bool const isInteger = draw(0, 1) == 0;
    ORXSimDistributionID const field = CreateField(Context(), {draw(1, 9), draw(1, 9)},
                                                   isInteger ? ORXSimTypeKey::Int32 : ORXSimTypeKey::Double);
    if (draw(0, 3) == 0 && !isInteger) {
      int const rows = DrawerOf((CreateDrawer(field, {}), field)).DimensionSize(0);
      WriteSparse(field, {}, {}, std::vector<int>(rows + 1, 0));
    } else {
      CreateDrawer(field, {draw(1, 9), draw(1, 9)});
      if (draw(0, 1) == 0) Extend(field, draw(0, 1), draw(1, 5));
      if (draw(0, 1) == 0) CreateDrawer(field, {draw(1, 9), draw(1, 9)});
    }
    int const labels[] = {k, 2 * k + 7, 1};
    ORXSimCollection(ORXSimDistribution(field).Collection(0)).CreateOrderedCSet(labels, 3);
    if (draw(0, 9) == 0) ORXSimTransaction(Context().ID()).Commit();
  }
  m_database.Close();
  hid_t const file = H5Fopen(Path().c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
  int seen = 0;
  auto const visit = [](hid_t root, char const* name, H5O_info_t const* info, void* count) -> herr_t {
    if (info->type != H5O_TYPE_DATASET) return 0;
    hid_t const dataset = H5Dopen2(root, name, H5P_DEFAULT);
    hid_t const space = H5Dget_space(dataset), type = H5Dget_type(dataset);
    hsize_t chunks = 0;
    if (H5Sget_simple_extent_ndims(space) == 2) H5Dget_num_chunks(dataset, space, &chunks);
    for (hsize_t k = 0; k < chunks; ++k) {
      hsize_t corner[2];
      unsigned filters = 0;
      haddr_t place = 1;
      hsize_t bytes = 0;
      H5Dget_chunk_info(dataset, space, k, corner, &filters, &place, &bytes);
      EXPECT_EQ(place % H5Tget_size(type), 0u) << name;
      ++*static_cast<int*>(count);
    }
    H5Tclose(type);
    H5Sclose(space);
    H5Dclose(dataset);
    return 0;
  };
  H5Ovisit2(file, H5_INDEX_NAME, H5_ITER_NATIVE, visit, &seen, H5O_INFO_BASIC);
  H5Fclose(file);
  EXPECT_GT(seen, 200);
}

// Address space is limited in batch jobs.
TEST_F(DrawerFile, AWriteThatCannotBeMappedIsDoneOrReported) {
  if (isSanitized) GTEST_SKIP() << "the sanitizer takes the address space";
  ORXSimDistributionID const field = CreateField(Context(), {1000, 4000});
  CreateDrawer(field, {});
  m_database.Close();
  int const result = RunInChild([&] {
    Open(m_database, Path());
    rlimit const limit{.rlim_cur = 40 << 20, .rlim_max = RLIM_INFINITY};
    setrlimit(RLIMIT_AS, &limit);
    std::vector<double> row(1000, 1.0);
    ORXSimTransfer transfer = TransferOf(FieldIn(m_database), {{0, 999}, {7, 7}}).SetRead().SetWrite();
    int const code = CodeOf([&] { Lend(transfer, 0, row).ExecWrite(); });
    rlimit const none{.rlim_cur = RLIM_INFINITY, .rlim_max = RLIM_INFINITY};
    setrlimit(RLIMIT_AS, &none);
    row.assign(1000, 0.0);
    transfer.ExecRead();
    return code == ORXSimException::writeFailed || (code == 0 && row[999] == 1.0) ? 0 : code + 1;
  });
  EXPECT_EQ(result, 0);
}

TEST_F(DrawerFile, BytesOfOtherFilesAreNotRead) {
  std::string const secret = m_folder.Path("secret.bin");
  WriteWhole(secret, std::string(4096, 's'));
  hid_t const other = H5Fcreate(m_folder.Path("other.h5").c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT);
  hsize_t const extents[] = {4, 4};
  hid_t const space = H5Screate_simple(2, extents, nullptr);
  H5Dclose(H5Dcreate2(other, "drawer", H5T_IEEE_F64LE, space, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT));
  H5Fclose(other);

  auto const external = [&](hid_t field) {
    hid_t const creation = H5Pcreate(H5P_DATASET_CREATE);
    H5Pset_external(creation, secret.c_str(), 0, 128);
    MakeDataset(field, {4, 4}, creation);
  };
  auto const virtually = [&](hid_t field) {
    hid_t const creation = H5Pcreate(H5P_DATASET_CREATE);
    H5Pset_virtual(creation, space, m_folder.Path("other.h5").c_str(), "drawer", space);
    MakeDataset(field, {4, 4}, creation);
  };
  auto const linked = [&](hid_t field) {
    H5Lcreate_external(m_folder.Path("other.h5").c_str(), "drawer", field, "drawer", H5P_DEFAULT,
                       H5P_DEFAULT);
  };
  auto const sparse = [&](hid_t field) {
    hid_t const group = H5Gcreate2(field, "drawer", H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
    hid_t const creation = H5Pcreate(H5P_DATASET_CREATE);
    H5Pset_external(creation, secret.c_str(), 0, 128);
    hsize_t const entries = 16;
    hid_t const line = H5Screate_simple(1, &entries, nullptr);
    for (char const* const name : {"data", "ir", "jc"})
      H5Dclose(H5Dcreate2(group, name, H5T_IEEE_F64LE, line, H5P_DEFAULT, creation, H5P_DEFAULT));
    H5Sclose(line);
    H5Pclose(creation);
    H5Gclose(group);
  };
  int number = 0;
  for (std::function<void(hid_t)> const& change :
       std::initializer_list<std::function<void(hid_t)>>{external, virtually, linked, sparse}) {
    CreateDrawer(CreateField(Context(), {4, 4}), {});
    ChangeAsOther(change);
    std::string text;
    EXPECT_EQ(CodeOfReading(&text), ORXSimException::damaged) << "case " << number << ": " << text;
    ++number;
    m_database.Close();
    CreateIt();
  }
  H5Sclose(space);
}

TEST_F(DrawerFile, MoreChunksThanSixtyFourBitsCountAreReadAsFillValues) {
  CreateDrawer(CreateField(Context(), {1, 1, 1}), {});
  ChangeAsOther([&](hid_t field) {
    hid_t const creation = H5Pcreate(H5P_DATASET_CREATE);
    hsize_t const chunk[] = {1, 1, 1};
    H5Pset_chunk(creation, 3, chunk);
    MakeDataset(field, {1u << 22, 1u << 21, 1u << 21}, creation);
  });
  std::string text;
  int const result = RunInChild([&] {
    int const code = CodeOfReading(&text);
    return code == 0 || code == ORXSimException::damaged ? 0 : code;
  });
  EXPECT_EQ(result, 0) << text;
}

} // namespace
