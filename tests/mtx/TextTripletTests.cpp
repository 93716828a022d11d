#include "MatrixSupport.h"
#include "SparseSupport.h"
#include "sim/ORXSrvSystemDofDefinition.h"
#include "tests/support/TemporaryFolder.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <random>
#include <string>

namespace {

using Access = ORXSrvSparseMatrixTestAccess;
constexpr double infinity = std::numeric_limits<double>::infinity();

Entries Imported(std::string const& content, int format = 3) {
  File const file(content);
  ORXSrvSparseMatrix matrix(0, 0);
  matrix.Import(file.Path(), format);
  return EntriesOf(matrix);
}

// ---- reading

TEST(TextImport, SumsDuplicatesAndTakesTheLargestIndicesAsShape) {
  for (int const format : {2, 3}) {
    File const file("1 1 2.0\n1 1 3.0\n3 2 1.0\n");
    ORXSrvSparseMatrix matrix(7, 7);
    Assemble(matrix, {{6, 6, 1.0}});
    matrix.Import(file.Path(), format);
    EXPECT_EQ(matrix.NumberOfRows(), 3);
    EXPECT_EQ(matrix.NumberOfColumns(), 2);
    EXPECT_EQ(EntriesOf(matrix), (Entries{{0, 0, 5.0}, {2, 1, 1.0}}));
    EXPECT_EQ(Access::SymmetryState(matrix), 0);
    matrix.AddData(0, 0, 1.0);
    matrix.EndAssembly(); // an imported matrix is assembled: no effect
    EXPECT_EQ(matrix.NumberOfNonzeros(), 2);
  }
}

TEST(TextImport, TakesEntriesInAnyOrder) {
  Entries const sorted = {{0, 0, 1.0}, {0, 1, 2.0}, {1, 0, 3.0}, {2, 2, 4.0}};
  for (std::size_t last = 0; last < sorted.size(); ++last) { // one entry stands behind all others
    Entries given = sorted;
    std::rotate(given.begin() + static_cast<std::ptrdiff_t>(last),
                given.begin() + static_cast<std::ptrdiff_t>(last) + 1, given.end());
    std::string text;
    for (auto const& e : given)
      text += std::to_string(e.row + 1) + " " + std::to_string(e.column + 1) + " " + std::to_string(e.value) +
              "\n";
    EXPECT_EQ(Imported(text), sorted) << text;
  }
}

TEST(TextImport, EmptyFilesAreEmptyMatrices) {
  for (char const* content : {"", "\n", " \t\r\n\n  "}) {
    File const file(content);
    ORXSrvSparseMatrix matrix(3, 3);
    Assemble(matrix, {{0, 0, 1.0}});
    matrix.Import(file.Path(), 3);
    EXPECT_EQ(matrix.NumberOfRows(), 0);
    EXPECT_EQ(matrix.NumberOfColumns(), 0);
    EXPECT_TRUE(EntriesOf(matrix).empty());
  }
}

TEST(TextImport, AcceptsEverySpellingOfANumber) {
  EXPECT_EQ(Imported("1 1 1e3\n1 2 +2.5E-1\n+1 3 -3d2\n1\t4 .5D+1\r\n\r\n1 5 7.\n1 6 -0\n1 7\n\n8 2 1 1"),
            (Entries{{0, 0, 1000},
                     {0, 1, 0.25},
                     {0, 2, -300},
                     {0, 3, 5},
                     {0, 4, 7},
                     {0, 5, -0.0},
                     {0, 6, 8},
                     {1, 0, 1}}));
  EXPECT_EQ(
      Imported("1 1 inf 1 2 -INF 1 3 1e-400 1 4 0.1000000000000000055511151231257827021181583404541015625"),
      (Entries{{0, 0, infinity}, {0, 1, -infinity}, {0, 2, 0.0}, {0, 3, 0.1}}));
  EXPECT_TRUE(std::isnan(Imported("1 1 nan").front().value));
}

TEST(TextImport, ReadsTheLargestIndex) {
  File const file("1 2147483647 1\n");
  ORXSrvSparseMatrix matrix(0, 0);
  matrix.Import(file.Path(), 3);
  EXPECT_EQ(matrix.NumberOfColumns(), 2147483647);
}

struct Malformed {
  char const* content;
  int line;
  char const* detail;
};

TEST(TextImport, MalformedItemsAreErrorsWithPathAndLineAndLeaveTheMatrix) {
  constexpr Malformed all[] = {
      {"0 1 1.0\n", 1, "a row of 1 to 2147483647 expected, found \"0\""},
      {"1 1 1\n1 -4 1\n", 2, "a column of 1 to 2147483647 expected, found \"-4\""},
      {"1 1 1\n\n\n2147483648 1 1\n", 4, "a row of 1 to 2147483647 expected, found \"2147483648\""},
      {"1 99999999999999999999 1\n", 1,
       "a column of 1 to 2147483647 expected, found \"99999999999999999999\""},
      {"1.0 1 1\n", 1, "a row of 1 to 2147483647 expected, found \"1.0\""},
      {"1 1 2.0x\n", 1, "a value expected, found \"2.0x\""},
      {"1 1 1\r\n1 1 1,5\r\n", 2, "a value expected, found \"1,5\""},
      {"1 1 0x10\n", 1, "a value expected, found \"0x10\""},
      {"1 1 1e\n", 1, "a value expected, found \"1e\""},
      {"1 1 1e:2\n", 1, "a value expected, found \"1e:2\""},
      {"1 1 1e-/2\n", 1, "a value expected, found \"1e-/2\""},
      {"1 1 .\n", 1, "a value expected, found \".\""},
      {"1 1 --1\n", 1, "a value expected, found \"--1\""},
      {"1 1 1e999\n", 1, "a value that fits a double expected, found \"1e999\""},
      {"%%MatrixMarket matrix coordinate\n1 1 1\n", 1,
       "a row of 1 to 2147483647 expected, found \"%%MatrixMarket\""},
      {"1 1 1\n1 1 1\n1 1\n", 3, "a value expected, found the end of the file"},
      {"1 1 1\n2\n", 2, "a column expected, found the end of the file"},
  };
  for (Malformed const& bad : all) {
    File const file(bad.content);
    ORXSrvSparseMatrix matrix(0, 0);
    Assemble(matrix, {{0, 2, 4.0}});
    EXPECT_EQ(Raised([&] { matrix.Import(file.Path(), 3); }),
              "202 ORXSrvSparseImExPorter: Failed to open file " + std::string(file.Path()) + ", line " +
                  std::to_string(bad.line) + ": " + bad.detail + ".");
    EXPECT_EQ(EntriesOf(matrix), (Entries{{0, 2, 4.0}}));
    EXPECT_EQ(matrix.NumberOfColumns(), 3);
  }
}

TEST(TextImport, LongJunkIsQuotedInPart) {
  File const file("1 1 " + std::string(3000000, 'z'));
  ORXSrvSparseMatrix matrix(0, 0);
  std::string const text = Raised([&] { matrix.Import(file.Path(), 3); });
  EXPECT_NE(text.find("line 1: a value expected, found \"zzzz"), std::string::npos) << text;
  EXPECT_LT(text.size(), 300u);
}

TEST(TextImport, WhatIsNoTextTakesNoMemory) {
  ORXSrvSparseMatrix matrix(0, 0);
  // Endless zero bytes, which a reader must not look to the end of.
  EXPECT_EQ(Raised([&] {
              matrix.Import("/dev/zero", 3);
            }).find("202 ORXSrvSparseImExPorter: Failed to open file /dev/zero, line 1: a row of 1 to "),
            0u);
  struct Case {
    char const* begin;
    char filling;
    char const* end;
    char const* fault;
  };
  constexpr Case all[] = {
      {"", '7', "", ", line 1: an item of less than 16777216 characters expected"},
      {"1 1 1\n1 2 0.", '7', "", ", line 2: an item of less than 16777216 characters expected"},
      {"1", '\n', "1 1", ", line 1: an item of less than 16777216 characters expected"},
      {"1 1 ", '\x01', "", ", line 1: a value expected, found \"????"},
      {"2147483647 1 1", '\n', "1 1 1", ": at most 16777216 rows for 2 items expected, found 2147483647."}};
  for (auto const& [begin, filling, end, fault] : all) {
    std::string content(begin);
    content.append(20 << 20, filling).append(end);
    File const file(content);
    std::string const text = Raised([&] { matrix.Import(file.Path(), 3); });
    EXPECT_EQ(
        text.find(std::string("202 ORXSrvSparseImExPorter: Failed to open file ") + file.Path() + fault), 0u)
        << text;
  }
  EXPECT_EQ(Imported("16777216 1 1").size(), 1u);
}

TEST(TextImport, ItemsMayStandAnywhereInTheReadersBuffer) {
  // Lines of growing length, blanks between items of up to a megabyte: every item straddles a refill
  // somewhere.
  std::string content;
  Entries expected;
  std::mt19937 random(1);
  for (std::uint32_t k = 0; k < 100000; ++k) {
    content += std::to_string(k + 1) + std::string(1 + random() % 5, ' ') + std::to_string(k % 7 + 1) +
               (random() % 3 == 0 ? "\n" : "\t") + std::to_string(k) + ".25\n";
    if (k % 30000 == 29999) content += std::string(1500000, k % 2 == 0 ? ' ' : '\n');
    expected.push_back({k, k % 7, k + 0.25});
  }
  EXPECT_TRUE(Imported(content) == expected);
  content += "0 1 1";
  File const file(content);
  ORXSrvSparseMatrix matrix(0, 0);
  auto const lines = std::count(content.begin(), content.end(), '\n') + 1;
  EXPECT_NE(Raised([&] { matrix.Import(file.Path(), 3); }).find("line " + std::to_string(lines) + ":"),
            std::string::npos);
}

TEST(TextImport, RefusesOtherFormats) {
  File const file("1 1 1\n");
  ORXSrvSparseMatrix matrix(2, 2);
  for (int const format : {-1, 4, 5, 8, 99, 256})
    EXPECT_EQ(Raised([&] { matrix.Import(file.Path(), format); }),
              "210 ORXSrvSparseImExPorter: Unsupported import format.");
  for (int const format : {-1, 0, 1, 2, 8})
    EXPECT_EQ(Raised([&] { matrix.Export(file.Path(), format, nullptr); }),
              "207 ORXSrvSparseImExPorter: Unsupported export format.");
  EXPECT_EQ(file.Content(), "1 1 1\n");
}

// ---- writing

ORXSrvSystemDofDefinition Dofs(std::initializer_list<ORXSrvNodeDof> equations) {
  ORXSimArray<ORXSrvNodeDof> array;
  for (ORXSrvNodeDof const& equation : equations)
    array.Append(equation);
  return ORXSrvSystemDofDefinition(array);
}

TEST(TextExport, WritesTheStatedBytes) {
  Doubles const diagonal{1, 2, 3};
  auto const symmetric = Access::Adopt({0, 0, 1, 2}, {0, 1}, {5, 6}, &diagonal, 5, 3);
  auto const withEmptyRow = Access::Adopt({0, 0, 1, 1}, {0}, {5}, &diagonal, 4, 3);
  ORXSrvSparseMatrix wide(0, 0), square(0, 0), tall(0, 0);
  Assemble(wide, {{2, 0, -0.1}, {0, 11, 1e-300}, {0, 3, 0.0}, {1, 0, infinity}});
  Assemble(square, {{0, 2, 1.5}, {2, 0, -0.1}, {2, 2, 4}});
  Assemble(tall, {{0, 2, 1.5}, {1, 0, 2}});
  struct Case {
    ORXSrvSparseMatrix const& matrix;
    int format;
    std::string text;
    ORXSrvSystemDofDefinition dofs = Dofs({});
  };
  for (Case const& c : {
           Case{wide, 3,
                "1 4 0.000000000000000e+00\n1 12 1.000000000000000e-300\n2 1                inf\n"
                "3 1 -1.000000000000000e-01\n"},
           // the diagonal, then pairs
           Case{*symmetric, 3,
                "1 1 1.000000000000000e+00\n2 2 2.000000000000000e+00\n3 3 3.000000000000000e+00\n"
                "2 1 5.000000000000000e+00\n1 2 5.000000000000000e+00\n"
                "3 2 6.000000000000000e+00\n2 3 6.000000000000000e+00\n"},
           Case{wide, 5,
                "0,3, 0.000000000000000e+00\n0,11, 1.000000000000000e-300\n1,0,                inf\n"
                "2,0, -1.000000000000000e-01\n"},
           // the diagonal of each row, then its entries, not mirrored
           Case{*symmetric, 5,
                "0,0, 1.000000000000000e+00\n1,1, 2.000000000000000e+00\n1,0, 5.000000000000000e+00\n"
                "2,2, 3.000000000000000e+00\n2,1, 6.000000000000000e+00\n"},
           Case{square, 4,
                "100,1,-2147483648,6,1.500000000000000e+00\n-2147483648,6,100,1,-1.000000000000000e-01\n"
                "-2147483648,6,-2147483648,6,4.000000000000000e+00\n",
                Dofs({{100, 1}, {0, 0}, {-2147483648, 6}})},
           // the column itself where the matrix is not square
           Case{tall, 4, "100,1,2,0,1.500000000000000e+00\n101,2,0,0,2.000000000000000e+00\n",
                Dofs({{100, 1}, {101, 2}})},
           // no diagonal, and no equation for a row without entries
           Case{*withEmptyRow, 4, "7,2,7,1,5.000000000000000e+00\n", Dofs({{7, 1}, {7, 2}})},
       }) {
    File const file;
    c.matrix.Export(file.Path(), c.format, &c.dofs);
    EXPECT_EQ(file.Content(), c.text) << c.format;
  }
}

TEST(TextExport, NodeDofTextNeedsADefinitionOfAllEquationsAndElseLeavesTheFile) {
  ORXSrvSparseMatrix matrix(0, 0);
  Assemble(matrix, {{0, 0, 1}, {1, 3, 1}, {3, 0, 1}});
  File const file("as before");
  EXPECT_EQ(Raised([&] { matrix.Export(file.Path(), 4, nullptr); }),
            IllegalInput("Export(format 4), a definition of degrees of freedom expected, found none"));
  ORXSrvSystemDofDefinition const dofs = Dofs({{1, 1}, {1, 2}, {1, 3}});
  EXPECT_EQ(CodeOf([&] { matrix.Export(file.Path(), 4, &dofs); }), ORXSimException::invalidArgument);
  EXPECT_EQ(file.Content(), "as before");
}

TEST(TextExport, IsWhatPrintfWritesForAMillionBytes) {
  std::mt19937_64 random(9);
  Entries entries;
  for (std::uint32_t k = 0; k < 40000; ++k) {
    std::uint64_t const bits = random();
    double value = 0.0;
    std::memcpy(&value, &bits, sizeof value);
    entries.push_back({k * 1000, static_cast<std::uint32_t>(bits % 2147483647), value});
  }
  ORXSrvSparseMatrix matrix(0, 0);
  Assemble(matrix, entries);
  File const file;
  matrix.Export(file.Path(), 3, nullptr);
  std::string expected;
  for (ORXSrvSparseMatrixEntry const& e : entries) {
    char line[80];
    std::snprintf(line, sizeof line, "%ld %ld %18.15le\n", e.row + 1L, e.column + 1L, e.value);
    expected += line;
  }
  EXPECT_TRUE(file.Content() == expected);
}

TEST(TextExport, WhatIsWrittenIsReadBackToSixteenDigits) {
  Entries const entries{
      {0, 0, 0.1}, {0, 5, -1.0 / 3.0}, {4, 2, 5e-324}, {5, 5, std::numeric_limits<double>::max() / 2}};
  ORXSrvSparseMatrix matrix(0, 0);
  Assemble(matrix, entries);
  File const file;
  matrix.Export(file.Path(), 3, nullptr);
  ORXSrvSparseMatrix back(0, 0);
  back.Import(file.Path(), 3);
  Entries const read = EntriesOf(back);
  ASSERT_EQ(read.size(), entries.size());
  for (std::size_t k = 0; k < read.size(); ++k)
    EXPECT_LE(std::abs(read[k].value - entries[k].value), 5e-16 * std::abs(entries[k].value));
}

} // namespace
