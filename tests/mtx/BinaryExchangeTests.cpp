#include "MatrixSupport.h"
#include "SparseSupport.h"
#include "mtx/impl/exchange/DenseBinary.h"
#include "mtx/impl/exchange/SparseBlocks.h"
#include "tests/support/FileBytes.h"
#include "tests/support/TemporaryFolder.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

using namespace orx;

namespace {

using Access = ORXSrvSparseMatrixTestAccess;
using MatrixPtr = std::unique_ptr<ORXSrvSparseMatrix>;

constexpr int fullChunk = 1 << chunkExponent;

//    4 -1  0
//   -1  4 -2    in symmetric form
//    0 -2  5
MatrixPtr Example() {
  std::vector<double> const diagonal{4, 4, 5};
  return Access::Adopt({0, 1, 2, 2}, {1, 2}, {-1, -2}, &diagonal, 5, 3);
}

/// Order 1000, with so many entries in its last row but one, as no assembly makes them: columns repeat.
MatrixPtr SymmetricOfLength(int entries) {
  std::vector<double> diagonal(1000);
  std::vector<int> starts(1001, 0);
  starts[999] = starts[1000] = entries;
  std::vector<int> columns;
  std::vector<double> values;
  for (int k = 0; k < entries; ++k) {
    columns.push_back(1 + k % 999);
    values.push_back(k + 1);
  }
  for (int i = 0; i < 1000; ++i)
    diagonal[static_cast<std::size_t>(i)] = -i;
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

ORXSrvSparseMatrix& Imported(ORXSrvSparseMatrix& matrix, File const& file, int format) {
  matrix.Import(file.Path(), format);
  return matrix;
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
  for (int const exponent : {0, 1, 3})
    for (int entries = 0; entries <= 3 * (1 << exponent) + 1; ++entries) {
      int const chunk = 1 << exponent;
      MatrixPtr const matrix = SymmetricOfLength(entries);
      int const lost = entries > 0 && entries % chunk == 0 ? chunk : 0;
      MatrixPtr const expected = SymmetricOfLength(entries);
      CompressedRowsView const view = Access::View(*expected);
      std::fill_n(const_cast<std::uint32_t*>(view.columnIndices) + entries - lost, lost, 0);
      std::fill_n(const_cast<double*>(view.values) + entries - lost, lost, 0.0);

      File const file;
      WriteChunkedBinary(file.Path(), Access::View(*matrix), exponent);
      CompressedRows const read = ReadChunkedBinary(file.Path(), exponent);

      EXPECT_TRUE(AreSame(read.View(), view)) << entries << " entries in chunks of " << chunk;
      EXPECT_EQ(read.numberOfNonzeros, entries + 1000);
    }
}

TEST(ChunkedRoundTrip, AFileOfOneChunkIsABlockFileToo) {
  for (int const entries : {0, 5, fullChunk - 1}) {
    File const file;
    MatrixPtr const matrix = SymmetricOfLength(entries);
    matrix->Export(file.Path(), 6, nullptr);
    for (int const format : {1, 6}) {
      ORXSrvSparseMatrix read(0, 0);
      EXPECT_TRUE(AreSame(Access::View(Imported(read, file, format)), Access::View(*matrix))) << format;
      EXPECT_EQ(read.NumberOfNonzeros(), entries + 1000);
      EXPECT_EQ(Access::SymmetryState(read), 1);
    }
  }
}

TEST(ChunkedRoundTrip, FullSizedChunks) {
  for (int const entries : {fullChunk, fullChunk + 1, 2 * fullChunk + 77}) {
    File const file;
    MatrixPtr const matrix = SymmetricOfLength(entries);
    matrix->Export(file.Path(), 6, nullptr);
    ORXSrvSparseMatrix read(0, 0);
    CompressedRowsView const view = Access::View(Imported(read, file, 6));
    if (entries == fullChunk) {
      EXPECT_TRUE(std::all_of(view.values, view.values + entries, [](double v) { return v == 0.0; }));
      EXPECT_TRUE(
          std::all_of(view.columnIndices, view.columnIndices + entries, [](auto c) { return c == 0; }));
    } else {
      EXPECT_TRUE(AreSame(view, Access::View(*matrix)));
    }
  }
}

TEST(ChunkedImport, NeedsNeitherTrailerNorValuePadding) {
  File const whole;
  MatrixPtr const matrix = SymmetricOfLength(3);
  matrix->Export(whole.Path(), 6, nullptr);
  std::size_t const needed = 24 + 4 * 1001 + 8 * 1000 + 4 * fullChunk + 8 * 3;
  File const cut(whole.Content().substr(0, needed));
  ORXSrvSparseMatrix read(0, 0);
  EXPECT_TRUE(AreSame(Access::View(Imported(read, cut, 6)), Access::View(*matrix)));
  File const shorter(whole.Content().substr(0, needed - 1));
  EXPECT_NE(Raised([&] { read.Import(shorter.Path(), 6); }).find(", byte " + std::to_string(needed - 24)),
            std::string::npos);
  EXPECT_TRUE(AreSame(Access::View(read), Access::View(*matrix)));
}

TEST(ChunkedImport, ColumnsAreCheckedInEveryChunk) {
  File const good;
  WriteChunkedBinary(good.Path(), Access::View(*SymmetricOfLength(10)), 2);
  std::size_t const firstChunk = 24 + 4 * 1001 + 8 * 1000;
  for (std::size_t const at : {firstChunk + 12, firstChunk + 48 + 4, firstChunk + 96 + 4}) {
    for (int const column : {-1, 1000, 2147483647}) {
      std::string bytes = good.Content();
      bytes.replace(at, 4, Raw<int>({column}));
      File const bad(bytes);
      EXPECT_EQ(Raised([&] { ReadChunkedBinary(bad.Path(), 2); }),
                "202 ORXSrvSparseImExPorter: Failed to open file " + std::string(bad.Path()) + ", byte " +
                    std::to_string(at) + ": a column of 0 to 999 expected, found " + std::to_string(column) +
                    ".");
    }
  }
}

TEST(ChunkedExport, RefusesWhatIsNotInSymmetricForm) {
  File const file("as before");
  constexpr char refusal[] = "209 ORXSrvSparseMatrix::%s symmetric:True not supported!";
  ORXSrvSparseMatrix general(0, 0);
  Assemble(general, {{0, 0, 1.0}});
  EXPECT_EQ(Raised([&] { general.Export(file.Path(), 6, nullptr); }), refusal);
  Access::SetSymmetryState(general, 1); // a cached answer of the symmetry test makes no diagonal
  EXPECT_EQ(Raised([&] { general.Export(file.Path(), 6, nullptr); }), refusal);
  MatrixPtr const changed = Example();
  changed->AddData(0, 0, 1.0);
  EXPECT_EQ(Raised([&] { changed->Export(file.Path(), 6, nullptr); }), refusal);
  EXPECT_EQ(file.Content(), "as before");
}

// ---- block binary

TEST(BlockImport, SymmetricVariantTakesTheArraysAsTheyAre) {
  File const file(Hex("03000000 02000000 01000000 00000000 01000000 ffffffff"
                      "00000000 01000000 02000000 02000000"
                      "0000000000001040 0000000000001040 0000000000001440"
                      "01000000 02000000"
                      "000000000000f0bf 00000000000000c0"));
  ORXSrvSparseMatrix matrix(0, 0);
  EXPECT_TRUE(AreSame(Access::View(Imported(matrix, file, 1)), Access::View(*Example())));
  EXPECT_EQ(matrix.NumberOfNonzeros(), 5);
  EXPECT_EQ(Access::SymmetryState(matrix), 1);
}

//   9 4 0    The pattern is the upper triangle; the first section has the values below the diagonal, the
//   1 9 5    second those above.
//   2 3 9
TEST(BlockImport, UnsymmetricVariantHasValuesOfTheTransposedPositionsFirst) {
  struct Layout {
    int exponent;
    std::string columns, below, above;
  };
  Layout const layouts[] = {
      {0, Raw<int>({1, 2, 2}), Raw<double>({1, 2, 3}), Raw<double>({4, 0, 5})},
      {1, Raw<int>({1, 2, 2, -7}), Raw<double>({1, 2, 3, 77}), Raw<double>({4, 0, 5, 77})},
      {2, Raw<int>({1, 2, 2, -7}), Raw<double>({1, 2, 3, 77}), Raw<double>({4, 0, 5})}};
  for (auto const& [exponent, columns, below, above] : layouts) {
    int const blocks = static_cast<int>(columns.size()) / (4 << exponent);
    File const file(Raw<int>({3, 3, blocks, 1, exponent, 0}) + Raw<int>({0, 2, 3, 3}) +
                    Raw<double>({9, 9, 9}) + columns + below + above);
    ORXSrvSparseMatrix matrix(5, 5);
    Assemble(matrix, {{4, 4, 1.0}});
    Imported(matrix, file, 1);
    EXPECT_EQ(EntriesOf(matrix), (Entries{{0, 0, 9},
                                          {0, 1, 4},
                                          {0, 2, 0},
                                          {1, 0, 1},
                                          {1, 1, 9},
                                          {1, 2, 5},
                                          {2, 0, 2},
                                          {2, 1, 3},
                                          {2, 2, 9}}));
    EXPECT_EQ(matrix.NumberOfRows(), 3);
    EXPECT_EQ(matrix.NumberOfNonzeros(), 9);
    EXPECT_EQ(Access::SymmetryState(matrix), 0);
  }
}

TEST(BlockImport, UnsymmetricSectionsHaveABlockEachEvenWithoutEntries) {
  std::string const head = Raw<int>({2, 0, 0, 1, 1, 0}) + Raw<int>({0, 0, 0}) + Raw<double>({3, 4});
  ORXSrvSparseMatrix matrix(0, 0);
  EXPECT_EQ(EntriesOf(Imported(matrix, File(head + Raw<double>({0, 0, 0, 0})), 1)),
            (Entries{{0, 0, 3}, {1, 1, 4}}));
  File const cut(head);
  EXPECT_NE(Raised([&] { matrix.Import(cut.Path(), 1); }).find(", byte 52: "), std::string::npos);
}

TEST(BlockImport, UnsymmetricPatternsOfAnyKindAreAssembled) {
  std::mt19937 random(3);
  auto const sum = [](std::uint32_t i, std::uint32_t j) { return i + j; };
  struct Kind {
    char const* name;
    bool isLower, isUpper, isDescending, isDouble;
  };
  for (auto const& [name, isLower, isUpper, isDescending, isDouble] :
       {Kind{"upper", false, true, false, false}, Kind{"lower", true, false, false, false},
        Kind{"both", true, true, false, false}, Kind{"upper, descending", false, true, true, false},
        Kind{"lower, each twice", true, false, false, true}}) {
    constexpr std::uint32_t n = 60; // more triplets than are handed over at once
    std::vector<std::int32_t> starts{0};
    std::vector<std::int32_t> columns;
    std::vector<double> diagonal, below, above;
    Entries triplets;
    for (std::uint32_t i = 0; i < n; ++i) {
      diagonal.push_back(sum(i, i));
      triplets.push_back({i, i, diagonal.back()});
      std::vector<int> row;
      for (std::uint32_t j = isLower ? 0 : i + 1; j < (isUpper ? n : i); ++j)
        if (j != i && random() % 3 == 0) row.insert(row.end(), isDouble ? 2 : 1, static_cast<int>(j));
      if (isDescending) std::ranges::reverse(row);
      columns.insert(columns.end(), row.begin(), row.end());
      starts.push_back(static_cast<std::int32_t>(columns.size()));
    }
    for (std::vector<double>* section : {&below, &above})
      for (std::uint32_t i = 0; i < n; ++i)
        for (int k = starts[i]; k < starts[i + 1]; ++k) {
          auto const j = static_cast<std::uint32_t>(columns[static_cast<std::size_t>(k)]);
          section->push_back(0.5 * k);
          triplets.push_back(section == &below ? ORXSrvSparseMatrixEntry{j, i, 0.5 * k}
                                               : ORXSrvSparseMatrixEntry{i, j, 0.5 * k});
        }
    auto const count = static_cast<int>(columns.size());
    File const file(Raw<int>({n, count, count, 1, 0, 0}) + Raw(starts) + Raw(diagonal) + Raw(columns) +
                    Raw(below) + Raw(above));
    ORXSrvSparseMatrix expected(0, 0), matrix(0, 0);
    Assemble(expected, triplets);
    EXPECT_TRUE(AreSame(Access::View(Imported(matrix, file, 1)), Access::View(expected))) << name;
    EXPECT_EQ(matrix.NumberOfNonzeros(), expected.NumberOfNonzeros()) << name;
  }
}

TEST(BlockImport, SymmetricVariantKeepsAsManyEntriesAsOrderAndCountTogether) {
  std::string const head = Raw<int>({3, 2, 1, 0, 3, 0});
  std::string const rest = Raw<double>({4, 4, 5}) + Raw<int>({1, 2, 1, 0, 2, 9, 9, 9}) +
                           Raw<double>({-1, -2, -3, -4, -5, 9, 9, 9});
  ORXSrvSparseMatrix matrix(0, 0);
  Imported(matrix, File(head + Raw<int>({0, 1, 3, 5}) + rest), 1);
  EXPECT_EQ(matrix.NumberOfNonzeros(), 5);
  EXPECT_EQ(Access::RowPointers(matrix), (std::vector<int>{0, 1, 3, 5}));
  EXPECT_EQ(EntriesOf(matrix).back(), (ORXSrvSparseMatrixEntry{2, 2, -5}));
  File const beyond(head + Raw<int>({0, 1, 3, 6}) + rest);
  EXPECT_NE(Raised([&] {
              matrix.Import(beyond.Path(), 1);
            }).find("byte 36: a last row start of 2 to 5 expected, found 6"),
            std::string::npos);
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
  double const nan = std::nan("");
  File const file(Raw<int>({2, 3, -1, -1}) + Raw<double>({1e-16, -above, -1e-16, above, nan, -INFINITY}));
  ORXSrvSparseMatrix matrix(0, 0);
  EXPECT_EQ(EntriesOf(Imported(matrix, file, 7)),
            (Entries{{1, 0, -above}, {1, 1, above}, {1, 2, -INFINITY}}));
  EXPECT_EQ(matrix.NumberOfColumns(), 3);
  EXPECT_EQ(Access::SymmetryState(matrix), 0);
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
    ORXSrvSparseMatrix read(0, 0);
    Imported(read, file, 7);
    EXPECT_TRUE(AreSame(Access::View(read), Access::View(matrix)) || read.IsNull())
        << rows << " x " << columns;
    EXPECT_EQ(read.NumberOfNonzeros(), matrix.NumberOfNonzeros());
    EXPECT_EQ(read.NumberOfRows(), rows);
    EXPECT_EQ(read.NumberOfColumns(), columns);
    EXPECT_EQ(file.Content().size(), 16 + 8 * static_cast<std::size_t>(rows) * columns);
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
    ORXSrvSparseMatrix read(0, 0);
    EXPECT_EQ(Imported(read, older, format).NumberOfRows(), 3);
  }
}

TEST(DenseExport, AnImageThatNoDiskHoldsIsRefusedBeforeAnythingIsWritten) {
  std::int32_t const starts[] = {0, 1};
  for (std::int32_t const order : {100000001, 2147483647}) {
    auto const last = static_cast<std::uint32_t>(order) - 1;
    double const value = 1.0;
    File const file("as before");
    EXPECT_EQ(
        Raised([&] {
          WriteDenseBinary(file.Path(), {order, order, starts, &last, &value, nullptr});
        }).find("208 Error at writing to file: " + std::string(file.Path()) + ": No space left on device, "),
        0u);
    EXPECT_EQ(file.Content(), "as before");
  }
}

} // namespace
