#include "MatrixSupport.h"
#include "SparseSupport.h"
#include "mtx/impl/exchange/DenseBinary.h"
#include "mtx/impl/exchange/SparseBlocks.h"
#include "tests/support/FileBytes.h"
#include "tests/support/TemporaryFolder.h"

using namespace orx;

namespace {

constexpr int fullChunk = 1 << chunkExponent;

//    4 -1  0
//   -1  4 -2    in symmetric form
//    0 -2  5
SparsePtr Example() {
  Doubles const diagonal{4, 4, 5};
  return Access::Adopt({0, 1, 2, 2}, {1, 2}, {-1, -2}, &diagonal, 5, 3);
}

/// Order 1000, with so many entries in its last row but one, as no assembly makes them: columns repeat.
SparsePtr SymmetricOfLength(int entries) {
  std::vector<int> starts(1001, 0), columns;
  starts[999] = starts[1000] = entries;
  Doubles diagonal, values;
  for (int k = 0; k < entries; ++k) {
    columns.push_back(1 + k % 999);
    values.push_back(k + 1);
  }
  for (int i = 0; i < 1000; ++i)
    diagonal.push_back(-i);
  return Access::Adopt(starts, columns, values, &diagonal, entries + 1000, 1000);
}

bool AreSame(CompressedRowsView const& a, CompressedRowsView const& b) {
  auto const equal = [](auto const* x, auto const* y, std::int64_t count) {
    return (x == nullptr) == (y == nullptr) && (x == nullptr || std::equal(x, x + count, y));
  };
  return a.rows == b.rows && a.columns == b.columns && equal(a.rowPointers, b.rowPointers, a.rows + 1) &&
         equal(a.values, b.values, a.Entries()) && equal(a.columnIndices, b.columnIndices, a.Entries()) &&
         equal(a.diagonal, b.diagonal, a.rows);
}

// ---- chunked binary

TEST(ChunkedExport, WritesTheStatedBytes) {
  File const file;
  WriteChunkedBinary(file.Path(), Access::View(*Example()), 2); // chunks of 4
  EXPECT_EQ(file.Content(), Hex("03000000 02000000 01000000 00000000 02000000 01000000"
                                "00000000 01000000 02000000 02000000"
                                "0000000000001040 0000000000001040 0000000000001440"
                                "01000000 02000000 00000000 00000000"
                                "000000000000f0bf 00000000000000c0 0000000000000000 0000000000000000"
                                "03000000 00000000 01000000 02000000 02000000 01000000 02000000"
                                "01000000 01000000 01000000 00000000 01000000 02000000"));
}

TEST(ChunkedExport, SeveralChunksHoldColumnsThenValues) {
  File const file;
  WriteChunkedBinary(file.Path(), Access::View(*Example()), 0); // of 1: the last one is written as zeros
  EXPECT_EQ(file.Content().substr(64, 24), Hex("01000000 000000000000f0bf 00000000 0000000000000000"));
  EXPECT_EQ(file.Content().substr(8, 4), Hex("02000000"));
}

TEST(ChunkedRoundTrip, KeepsAllButTheLastChunkOfAMultiple) {
  auto const check = [](int entries, int exponent) {
    SparsePtr const matrix = SymmetricOfLength(entries), expected = SymmetricOfLength(entries);
    int const chunk = 1 << exponent, lost = entries > 0 && entries % chunk == 0 ? chunk : 0;
    CompressedRowsView const view = Access::View(*expected);
    std::fill_n(const_cast<std::uint32_t*>(view.columnIndices) + entries - lost, lost, 0);
    std::fill_n(const_cast<double*>(view.values) + entries - lost, lost, 0.0);

    File const file;
    WriteChunkedBinary(file.Path(), Access::View(*matrix), exponent);
    CompressedRows const read = ReadChunkedBinary(file.Path(), exponent);

    EXPECT_TRUE(AreSame(read.View(), view)) << entries << " entries in chunks of " << chunk;
    EXPECT_EQ(read.numberOfNonzeros, entries + 1000);
  };
  for (int const exponent : {0, 1, 3})
    for (int entries = 0; entries <= 3 * (1 << exponent) + 1; ++entries)
      check(entries, exponent);
  for (int const entries : {fullChunk, fullChunk + 1, 2 * fullChunk + 77})
    check(entries, chunkExponent);
}

TEST(ChunkedRoundTrip, AFileOfOneChunkIsABlockFileToo) {
  for (int const entries : {0, 5, fullChunk - 1}) {
    File const file;
    SparsePtr const matrix = SymmetricOfLength(entries);
    matrix->Export(file.Path(), 6, nullptr);
    for (int const format : {1, 6}) {
      SparsePtr const read = NewImported(file.Path(), format);
      EXPECT_TRUE(AreSame(Access::View(*read), Access::View(*matrix))) << format;
      EXPECT_EQ(read->NumberOfNonzeros(), entries + 1000);
      EXPECT_EQ(Access::SymmetryState(*read), 1);
    }
  }
}

TEST(ChunkedImport, NeedsNeitherTrailerNorValuePadding) {
  File const whole;
  SparsePtr const matrix = SymmetricOfLength(3);
  matrix->Export(whole.Path(), 6, nullptr);
  std::size_t const needed = 24 + 4 * 1001 + 8 * 1000 + 4 * fullChunk + 8 * 3;
  File const cut(whole.Content().substr(0, needed)), shorter(whole.Content().substr(0, needed - 1));
  SparsePtr const read = NewImported(cut.Path(), 6);
  EXPECT_TRUE(RaisesFrom(NotOpened(shorter.Path(), ", byte " + std::to_string(needed - 24)),
                         [&] { read->Import(shorter.Path(), 6); }));
  EXPECT_TRUE(AreSame(Access::View(*read), Access::View(*matrix)));
}

TEST(ChunkedImport, ColumnsAreCheckedInEveryChunk) {
  File const good;
  WriteChunkedBinary(good.Path(), Access::View(*SymmetricOfLength(10)), 2);
  std::size_t const firstChunk = 24 + 4 * 1001 + 8 * 1000;
  for (std::size_t const at : {firstChunk + 12, firstChunk + 48 + 4, firstChunk + 96 + 4})
    for (int const column : {-1, 1000, 2147483647}) {
      std::string bytes = good.Content();
      bytes.replace(at, 4, Raw<int>({column}));
      File const bad(bytes);
      EXPECT_RAISED(NotOpened(bad.Path(), ", byte " + std::to_string(at) +
                                              ": a column of 0 to 999 expected, found " +
                                              std::to_string(column) + "."),
                    ReadChunkedBinary(bad.Path(), 2));
    }
}

TEST(ChunkedExport, RefusesWhatIsNotInSymmetricForm) {
  File const file("as before");
  constexpr char refusal[] = "209 ORXSrvSparseMatrix::%s symmetric:True not supported!";
  ORXSrvSparseMatrix general(0, 0);
  Assemble(general, {{0, 0, 1.0}});
  EXPECT_RAISED(refusal, general.Export(file.Path(), 6, nullptr));
  Access::SetSymmetryState(general, 1); // a cached answer of the symmetry test makes no diagonal
  EXPECT_RAISED(refusal, general.Export(file.Path(), 6, nullptr));
  SparsePtr const changed = Example();
  changed->AddData(0, 0, 1.0);
  EXPECT_RAISED(refusal, changed->Export(file.Path(), 6, nullptr));
  EXPECT_EQ(file.Content(), "as before");
}

// ---- block binary

TEST(BlockImport, UnsymmetricSectionsHaveABlockEachEvenWithoutEntries) {
  std::string const head = Raw<int>({2, 0, 0, 1, 1, 0}) + Raw<int>({0, 0, 0}) + Raw<double>({3, 4});
  File const whole(head + Raw<double>({0, 0, 0, 0})), cut(head);
  SparsePtr const matrix = NewImported(whole.Path(), 1);
  EXPECT_EQ(EntriesOf(*matrix), (Entries{{0, 0, 3}, {1, 1, 4}}));
  EXPECT_TRUE(RaisesFrom(NotOpened(cut.Path(), ", byte 52: "), [&] { matrix->Import(cut.Path(), 1); }));
}

// The first section has the values of the transposed positions.
TEST(BlockImport, UnsymmetricPatternsOfAnyKindAreAssembled) {
  std::mt19937 random(3);
  struct Kind {
    char const* name;
    bool isLower, isUpper, isDescending, isDouble;
    int exponent;
  };
  for (auto const& [name, isLower, isUpper, isDescending, isDouble, exponent] :
       {Kind{"upper", false, true, false, false, 0}, Kind{"lower", true, false, false, false, 1},
        Kind{"both", true, true, false, false, 2}, Kind{"upper, descending", false, true, true, false, 11},
        Kind{"lower, each twice", true, false, false, true, 0}}) {
    constexpr std::uint32_t n = 60; // more triplets than are handed over at once
    std::vector<std::int32_t> starts{0}, columns;
    Doubles diagonal, below, above;
    Entries triplets;
    for (std::uint32_t i = 0; i < n; ++i) {
      diagonal.push_back(2 * i);
      triplets.push_back({i, i, diagonal.back()});
      std::vector<int> row;
      for (std::uint32_t j = isLower ? 0 : i + 1; j < (isUpper ? n : i); ++j)
        if (j != i && random() % 3 == 0) row.insert(row.end(), isDouble ? 2 : 1, static_cast<int>(j));
      if (isDescending) std::ranges::reverse(row);
      columns.insert(columns.end(), row.begin(), row.end());
      starts.push_back(static_cast<std::int32_t>(columns.size()));
    }
    for (Doubles* section : {&below, &above})
      for (std::uint32_t i = 0; i < n; ++i)
        for (int k = starts[i]; k < starts[i + 1]; ++k) {
          auto const j = static_cast<std::uint32_t>(columns[k]);
          section->push_back(0.5 * k);
          triplets.push_back(section == &below ? ORXSrvSparseMatrixEntry{j, i, 0.5 * k}
                                               : ORXSrvSparseMatrixEntry{i, j, 0.5 * k});
        }
    auto const count = static_cast<int>(columns.size()), blocks = ((count - 1) >> exponent) + 1;
    columns.resize(blocks << exponent, -7); // only the last section has no padding
    below.resize(columns.size(), 77);
    File const file(Raw<int>({n, count, blocks, 1, exponent, 0}) + Raw(starts) + Raw(diagonal) +
                    Raw(columns) + Raw(below) + Raw(above));
    ORXSrvSparseMatrix expected(0, 0), matrix(99, 99);
    Assemble(matrix, {{98, 98, 1.0}});
    Assemble(expected, triplets);
    matrix.Import(file.Path(), 1);
    EXPECT_TRUE(AreSame(Access::View(matrix), Access::View(expected))) << name;
    EXPECT_EQ(matrix.NumberOfNonzeros(), expected.NumberOfNonzeros()) << name;
    EXPECT_EQ(Access::SymmetryState(matrix), 0);
  }
}

TEST(BlockImport, SymmetricVariantKeepsAsManyEntriesAsOrderAndCountTogether) {
  std::string const head = Raw<int>({3, 2, 1, 0, 3, 0});
  std::string const rest = Raw<double>({4, 4, 5}) + Raw<int>({1, 2, 1, 0, 2, 9, 9, 9}) +
                           Raw<double>({-1, -2, -3, -4, -5, 9, 9, 9});
  File const file(head + Raw<int>({0, 1, 3, 5}) + rest), beyond(head + Raw<int>({0, 1, 3, 6}) + rest);
  SparsePtr const matrix = NewImported(file.Path(), 1);
  EXPECT_EQ(matrix->NumberOfNonzeros(), 5);
  EXPECT_EQ(Access::RowPointers(*matrix), (std::vector<int>{0, 1, 3, 5}));
  EXPECT_EQ(EntriesOf(*matrix).back(), (ORXSrvSparseMatrixEntry{2, 2, -5}));
  EXPECT_RAISED(NotOpened(beyond.Path(), ", byte 36: a last row start of 2 to 5 expected, found 6."),
                matrix->Import(beyond.Path(), 1));
}

// ---- dense binary

TEST(DenseExport, WritesTheStatedBytes) {
  ORXSrvSparseMatrix matrix(0, 0);
  Assemble(matrix, {{0, 0, 4}, {0, 1, -1}, {1, 2, 2}});
  File const file;
  matrix.Export(file.Path(), 7, nullptr);
  EXPECT_EQ(file.Content(), Hex("02000000 03000000 02000000 03000000"
                                "0000000000001040 0000000000000000"
                                "000000000000f0bf 0000000000000000"
                                "0000000000000000 0000000000000040"));
}

TEST(DenseExport, LacksTheDiagonalAndTheMirrorImagesOfTheSymmetricForm) {
  File const file;
  Example()->Export(file.Path(), 7, nullptr);
  EXPECT_EQ(file.Content(), Raw<int>({3, 3, 3, 3}) + Raw<double>({0, 0, 0, -1, 0, 0, 0, -2, 0}));
}

TEST(DenseImport, KeepsWhatIsLargerThanAZero) {
  double const above = std::nextafter(1e-16, 1.0);
  File const file(Raw<int>({2, 3, -1, -1}) +
                  Raw<double>({1e-16, -above, -1e-16, above, std::nan(""), -INFINITY}));
  SparsePtr const matrix = NewImported(file.Path(), 7);
  EXPECT_EQ(EntriesOf(*matrix), (Entries{{1, 0, -above}, {1, 1, above}, {1, 2, -INFINITY}}));
  EXPECT_EQ(matrix->NumberOfColumns(), 3);
  EXPECT_EQ(Access::SymmetryState(*matrix), 0);
}

TEST(DenseRoundTrip, RandomMatricesOfEveryShape) {
  std::mt19937 random(4);
  std::uniform_real_distribution<double> uniform(-1.0, 1.0);
  struct Shape {
    int rows, columns;
    double density;
  };
  for (auto const& [rows, columns, density] :
       {Shape{1, 1, 1.0}, Shape{1, 400000, 0.1}, Shape{400000, 1, 0.1}, Shape{700, 600, 0.02},
        Shape{333, 555, 1.0}, Shape{1000, 300, 0.0}, Shape{5, 0, 0.0}, Shape{0, 5, 0.0}, Shape{0, 0, 0.0}}) {
    ORXSrvSparseMatrix matrix(rows, columns);
    matrix.BeginAssembly();
    for (std::uint32_t i = 0; i < static_cast<std::uint32_t>(rows); ++i)
      for (std::uint32_t j = 0; j < static_cast<std::uint32_t>(columns); ++j)
        if (uniform(random) < 2 * density - 1) matrix.AddData(i, j, uniform(random));
    matrix.EndAssembly();
    File const file;
    matrix.Export(file.Path(), 7, nullptr);
    SparsePtr const read = NewImported(file.Path(), 7);
    EXPECT_TRUE(AreSame(Access::View(*read), Access::View(matrix)) || read->IsNull()) << rows;
    EXPECT_EQ(read->NumberOfNonzeros(), matrix.NumberOfNonzeros());
    EXPECT_EQ(SizeOf(*read), (std::pair{rows, columns}));
    EXPECT_EQ(file.Content().size(), 16 + 8 * rows * columns);
  }
}

// ---- both

TEST(BinaryExport, AnOlderLongerFileKeepsItsTail) {
  for (int const format : {6, 7}) {
    File const alone;
    Example()->Export(alone.Path(), format, nullptr);
    std::size_t const length = alone.Content().size();
    File const older(std::string(length + 10, 'x'));
    Example()->Export(older.Path(), format, nullptr);
    EXPECT_EQ(older.Content(), alone.Content() + std::string(10, 'x')) << format;
    EXPECT_EQ(NewImported(older.Path(), format)->NumberOfRows(), 3);
  }
}

TEST(DenseExport, AnImageThatNoDiskHoldsIsRefusedBeforeAnythingIsWritten) {
  std::int32_t const starts[] = {0, 1};
  for (std::int32_t const order : {100000001, 2147483647}) {
    auto const last = static_cast<std::uint32_t>(order) - 1;
    double const value = 1.0;
    File const file("as before");
    EXPECT_TRUE(RaisesFrom(
        "208 Error at writing to file: " + std::string(file.Path()) + ": No space left on device, ", [&] {
          WriteDenseBinary(file.Path(), {order, order, starts, &last, &value, nullptr});
        }));
    EXPECT_EQ(file.Content(), "as before");
  }
}

} // namespace
