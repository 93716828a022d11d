#include "MatrixSupport.h"
#include "SparseSupport.h"
#include "sim/ORXSrvSystemDofDefinition.h"
#include "tests/support/TemporaryFolder.h"

#include <bit>
#include <cstdint>
#include <cstdio>

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

Entries Imported(std::string const& content) {
  File const file(content);
  return EntriesOf(*NewImported(file.Path(), 3));
}

// ---- reading

TEST(TextImport, SumsDuplicatesAndTakesTheLargestIndicesAsShape) {
  for (int const format : {2, 3}) {
    File const file("1 1 2.0\n1 1 3.0\n3 2 1.0\n");
    ORXSrvSparseMatrix matrix(7, 7);
    Assemble(matrix, {{6, 6, 1.0}});
    matrix.Import(file.Path(), format);
    EXPECT_EQ(SizeOf(matrix), (std::pair{3, 2}));
    EXPECT_EQ(EntriesOf(matrix), (Entries{{0, 0, 5.0}, {2, 1, 1.0}}));
    EXPECT_EQ(Access::SymmetryState(matrix), 0);
    matrix.AddData(0, 0, 1.0);
    matrix.EndAssembly(); // an imported matrix is assembled: no effect
    EXPECT_EQ(matrix.NumberOfNonzeros(), 2);
  }
}

TEST(TextImport, TakesEntriesInAnyOrder) {
  std::string const lines = "1 1 1\n1 2 2\n2 1 3\n3 3 4\n";
  for (std::size_t last = 0; last < lines.size(); last += 6) // one entry stands behind all others
    EXPECT_EQ(Imported(std::string(lines).erase(last, 6) + lines.substr(last, 6)),
              (Entries{{0, 0, 1}, {0, 1, 2}, {1, 0, 3}, {2, 2, 4}}))
        << last;
}

TEST(TextImport, EmptyFilesAreEmptyMatrices) {
  for (char const* content : {"", "\n", " \t\r\n\n  "}) {
    File const file(content);
    auto const matrix = NewAssembled(3, 3, {{0, 0, 1.0}});
    matrix->Import(file.Path(), 3);
    EXPECT_EQ(SizeOf(*matrix), (std::pair{0, 0}));
    EXPECT_TRUE(EntriesOf(*matrix).empty());
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
  EXPECT_EQ(NewImported(file.Path(), 3)->NumberOfColumns(), 2147483647);
}

TEST(TextImport, MalformedItemsAreErrorsWithPathAndLineAndLeaveTheMatrix) {
  std::string const row = "a row of 1 to 2147483647 expected, found ";
  std::string const column = "a column of 1 to 2147483647 expected, found ";
  std::string const value = "a value expected, found ";
  struct Malformed {
    char const* content;
    int line;
    std::string detail;
  };
  for (auto const& [content, line, detail] : {
           Malformed{"0 1 1.0\n", 1, row + "\"0\""},
           {"1 1 1\n1 -4 1\n", 2, column + "\"-4\""},
           {"1 1 1\n\n\n2147483648 1 1\n", 4, row + "\"2147483648\""},
           {"1 99999999999999999999 1\n", 1, column + "\"99999999999999999999\""},
           {"1.0 1 1\n", 1, row + "\"1.0\""},
           {"1 1 2.0x\n", 1, value + "\"2.0x\""},
           {"1 1 1\r\n1 1 1,5\r\n", 2, value + "\"1,5\""},
           {"1 1 1e-/2\n", 1, value + "\"1e-/2\""},
           {"1 1 1e999\n", 1, "a value that fits a double expected, found \"1e999\""},
           {"%%MatrixMarket matrix coordinate\n1 1 1\n", 1, row + "\"%%MatrixMarket\""},
           {"1 1 1\n1 1 1\n1 1\n", 3, value + "the end of the file"},
           {"1 1 1\n2\n", 2, "a column expected, found the end of the file"},
       }) {
    File const file(content);
    auto const matrix = NewAssembled(0, 0, {{0, 2, 4.0}});
    EXPECT_RAISED(NotOpened(file.Path(), ", line " + std::to_string(line) + ": " + detail + "."),
                  matrix->Import(file.Path(), 3));
    EXPECT_EQ(EntriesOf(*matrix), (Entries{{0, 2, 4.0}}));
    EXPECT_EQ(matrix->NumberOfColumns(), 3);
  }
}

TEST(TextImport, WhatIsNoTextTakesNoMemory) {
  // Endless zero bytes, which a reader must not look to the end of.
  EXPECT_TRUE(
      RaisesFrom(NotOpened("/dev/zero", ", line 1: a row of 1 to "), [] { NewImported("/dev/zero", 3); }));
  char const* const tooLong = ": an item of less than 16777216 characters expected";
  struct Case {
    char const* begin;
    char filling;
    char const* end;
    std::string fault;
  };
  for (auto const& [begin, filling, end, fault] :
       {Case{"", '7', "", std::string(", line 1") + tooLong},
        {"1 1 1\n1 2 0.", '7', "", std::string(", line 2") + tooLong},
        {"1", '\n', "1 1", std::string(", line 1") + tooLong},
        {"1 1 ", '\x01', "", ", line 1: a value expected, found \"????"},
        {"2147483647 1 1", '\n', "1 1 1",
         ": at most 16777216 rows for 2 items expected, found 2147483647."}}) {
    std::string content(begin);
    content.append(20 << 20, filling).append(end);
    File const file(content);
    std::string const text = Raised([&] { NewImported(file.Path(), 3); });
    EXPECT_TRUE(text.starts_with(NotOpened(file.Path(), fault))) << text;
    EXPECT_LT(text.size(), 300U) << "it is quoted in part";
  }
  EXPECT_EQ(Imported("16777216 1 1").size(), 1U);
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
  auto const line = std::to_string(std::count(content.begin(), content.end(), '\n') + 1);
  EXPECT_TRUE(
      RaisesFrom(NotOpened(file.Path(), ", line " + line + ":"), [&] { NewImported(file.Path(), 3); }));
}

TEST(TextImport, RefusesOtherFormats) {
  File const file("1 1 1\n");
  ORXSrvSparseMatrix matrix(2, 2);
  for (int const format : {-1, 4, 5, 8, 99, 256})
    EXPECT_RAISED("210 ORXSrvSparseImExPorter: Unsupported import format.",
                  matrix.Import(file.Path(), format));
  for (int const format : {-1, 0, 1, 2, 8})
    EXPECT_RAISED("207 ORXSrvSparseImExPorter: Unsupported export format.",
                  matrix.Export(file.Path(), format, nullptr));
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
  EXPECT_RAISED(IllegalInput("Export(format 4), a definition of degrees of freedom expected, found none"),
                matrix.Export(file.Path(), 4, nullptr));
  ORXSrvSystemDofDefinition const dofs = Dofs({{1, 1}, {1, 2}, {1, 3}});
  EXPECT_CODE(invalidArgument, matrix.Export(file.Path(), 4, &dofs));
  EXPECT_EQ(file.Content(), "as before");
}

TEST(TextExport, IsWhatPrintfWritesForAMillionBytes) {
  std::mt19937_64 random(9);
  Entries entries;
  std::string expected;
  for (std::uint32_t k = 0; k < 40000; ++k) {
    std::uint64_t const bits = random();
    entries.push_back({k * 1000, static_cast<std::uint32_t>(bits % 2147483647), std::bit_cast<double>(bits)});
    ORXSrvSparseMatrixEntry const& e = entries.back();
    char line[80];
    std::snprintf(line, sizeof line, "%ld %ld %18.15le\n", e.row + 1L, e.column + 1L, e.value);
    expected += line;
  }
  File const file;
  NewAssembled(0, 0, entries)->Export(file.Path(), 3, nullptr);
  EXPECT_TRUE(file.Content() == expected);
}

} // namespace
