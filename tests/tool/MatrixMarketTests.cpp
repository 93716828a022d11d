#include "ToolSupport.h"

#include "tools/formats/MatrixMarket.h"

#include <bit>
#include <limits>
#include <random>

namespace {

using orx::tool::MarketLayout;
using orx::tool::Mirror;

std::string Read(std::string const& text) {
  TemporaryFolder const folder;
  return TextOf(orx::tool::ReadMatrixMarket(folder.Write("a.mtx", text)));
}

/// The message without the path.
std::string Fault(std::string const& text) {
  TemporaryFolder const folder;
  std::string const path = folder.Write("a.mtx", text);
  std::string const ending = Ending([&] { orx::tool::ReadMatrixMarket(path); });
  std::string const begin = "1 " + path + ", ";
  return ending.starts_with(begin) ? ending.substr(begin.size()) : ending;
}

std::string Written(ORXSrvSparseMatrix const& matrix, MarketLayout layout, Mirror mirror) {
  TemporaryFolder const folder;
  orx::tool::WriteMatrixMarket(folder.Path("a.mtx"), matrix, layout, mirror);
  return folder.Read("a.mtx");
}

TEST(MatrixMarket, ReadsCoordinates) {
  EXPECT_EQ(Read(General("% a comment\n%\n\n3 4 3\n1 1 2.5\n3 2 -1e-3\n2 4 +7\n")),
            "3 x 4: 1,1=2.5 2,4=7 3,2=-0.001");
  EXPECT_EQ(Read("%%MatrixMarket matrix coordinate integer general\n2 2 2\n1 2 -3\n2 1 9007199254740992\n"),
            "2 x 2: 1,2=-3 2,1=9007199254740992");
  EXPECT_EQ(Read("%%MatrixMarket matrix coordinate pattern symmetric\n2 2 2\n1 1\n2 1"),
            "2 x 2: 1,1=1 1,2=1 2,1=1");
  EXPECT_EQ(Read("%%MatrixMarket matrix coordinate real symmetric\n3 3 2\n2 1 5\n3 3 6\n"),
            "3 x 3: 1,2=5 2,1=5 3,3=6");
  EXPECT_EQ(Read("%%MatrixMarket matrix coordinate real skew-symmetric\n2 2 1\n2 1 5\n"),
            "2 x 2: 1,2=-5 2,1=5");
  EXPECT_EQ(Read(General("5 2 0\n")), "5 x 2:");
}

TEST(MatrixMarket, ReadsArraysByColumnsWithoutZeros) {
  EXPECT_EQ(Read("%%MatrixMarket matrix array real general\n2 3\n1\n2\n0\n4\n5\n6\n"),
            "2 x 3: 1,1=1 1,3=5 2,1=2 2,2=4 2,3=6");
  EXPECT_EQ(Read("%%MatrixMarket matrix array integer symmetric\n2 2\n1\n2\n3\n"),
            "2 x 2: 1,1=1 1,2=2 2,1=2 2,2=3");
  EXPECT_EQ(Read("%%MatrixMarket matrix array real skew-symmetric\n3 3\n1\n2\n3\n"),
            "3 x 3: 1,2=-1 1,3=-2 2,1=1 2,3=-3 3,1=2 3,2=3");
  EXPECT_EQ(Read("%%MatrixMarket matrix array real general\n0 20000000\n"), "0 x 20000000:");
}

TEST(MatrixMarket, TakesWordsInAnyCaseAndOtherSpellingsOfNumbers) {
  EXPECT_EQ(Read("%%matrixMARKET Matrix  Coordinate REAL General \r\n1 3 3\r\n1 1 1.5D2\r\n1 2 .5\r\n"
                 "1 3 1e-400\r\n"),
            "1 x 3: 1,1=150 1,2=0.5 1,3=0");
  EXPECT_EQ(Read(General("1 2 3\n1 1 -inf\n1 2 2\n1 2 3\n")), "1 x 2: 1,1=-inf 1,2=5")
      << "values at one position are summed";
}

TEST(MatrixMarket, FaultsAreNamedWithTheirLine) {
  std::string const general = General("");
  std::string const symmetric = "%%MatrixMarket matrix coordinate real symmetric\n";
  std::pair<std::string, std::string> const cases[] = {
      {"", "line 0: %%MatrixMarket matrix, layout, values, symmetry expected, found the end of the file"},
      {"%%MatrixMarket matrix coordinate real\n1 1 0\n", "line 1: %%MatrixMarket matrix, layout, values"},
      {"%%MatrixMarket vector coordinate real general\n", "line 1: matrix expected, found \"vector\""},
      {"%%MatrixMarket matrix coordinate complex general\n",
       "line 1: real or integer or pattern expected, found \"complex\""},
      {"%%MatrixMarket matrix coordinate real hermitian\n", "line 1: general or symmetric or skew-symmetric"},
      {"%%MatrixMarket matrix array pattern general\n", "line 1: real or integer values of an array"},
      {"%%MatrixMarket matrix coordinate pattern skew-symmetric\n", "line 1: real or integer values"},
      {general + "% no sizes\n", "line 2: rows columns entries expected, found the end of the file"},
      {general + "2 2\n", "line 2: rows columns entries expected, found \"2 2\""},
      {general + "2 -2 1\n", "line 2: a number of columns of 0 to 2147483647 expected, found \"-2\""},
      {general + "99999999999 2 1\n", "line 2: a number of rows"},
      {symmetric + "2 3 0\n", "line 2: as many columns as rows expected, found \"2 3 0\""},
      {general + "2 2 2\n1 1 1\n", "line 3: an entry behind the first 1 expected, found the end of the file"},
      {general + "2 2 1\n1 1 1\n\n2 2 2\n",
       "line 5: the end of the file behind 1 entry expected, found \"2 2 2\""},
      {general + "2 2 1\n0 1 1\n", "line 3: a row of 1 to 2 expected, found \"0\""},
      {general + "2 2 1\n%\n1 3 1\n", "line 3: row column value expected, found \"%\""},
      {general + "2 2 1\n1 3 1\n", "line 3: a column of 1 to 2 expected, found \"3\""},
      {general + "2 2 1\n1 1.0 1\n", "line 3: a column of 1 to 2 expected, found \"1.0\""},
      {general + "2 2 1\n1 1\n", "line 3: row column value expected, found \"1 1\""},
      {general + "2 2 1\n1 1 1 1\n", "line 3: row column value expected, found \"1 1 1 1\""},
      {general + "2 2 1\n1 1 1x\n", "line 3: a value expected, found \"1x\""},
      {general + "2 2 1\n1 1 +-1\n", "line 3: a value expected, found \"+-1\""},
      {general + "2 2 1\n1 1 0x10\n", "line 3: a value expected, found \"0x10\""},
      {general + "2 2 1\n1 1 nan(1)\n", "line 3: a value expected"},
      {general + "2 2 1\n1 1 1e400\n", "line 3: a value that fits a double expected, found \"1e400\""},
      {symmetric + "2 2 1\n1 2 1\n", "line 3: an entry of the lower triangle of a symmetric matrix expected"},
      {"%%MatrixMarket matrix coordinate real skew-symmetric\n2 2 1\n1 1 0\n",
       "line 3: an entry below the diagonal of a skew-symmetric matrix expected"},
      {"%%MatrixMarket matrix coordinate integer general\n2 2 1\n1 1 1.5\n", "line 3: an integer of"},
      {"%%MatrixMarket matrix coordinate integer general\n2 2 1\n1 1 9007199254740993\n",
       "line 3: an integer of -9007199254740992 to 9007199254740992 expected"},
      {"%%MatrixMarket matrix coordinate pattern general\n2 2 1\n1 1 1\n", "line 3: row column expected"},
      {"%%MatrixMarket matrix array real general\n2 2 4\n", "line 2: rows columns expected"},
      {"%%MatrixMarket matrix array real general\n2 1\n1 2\n", "line 3: one value expected, found \"1 2\""},
      {"%%MatrixMarket matrix array real general\n2147483647 2147483647\n1\n",
       "line 3: an entry behind the first 1 expected"},
  };
  for (auto const& [text, fault] : cases)
    EXPECT_TRUE(Fault(text).starts_with(fault)) << text << "-- " << Fault(text);
}

TEST(MatrixMarket, WritesTheLowerTriangleOfMirroredMatrices) {
  EXPECT_EQ(Written(Sparse({{1, 0, 2}, {0, 0, 0.1}}), MarketLayout::Coordinate, Mirror::None),
            General("2 3 3\n1 1 1\n1 3 2\n2 3 0.1\n"));
  EXPECT_EQ(Written(Sparse({{1, 2}, {2, 0}}), MarketLayout::Coordinate, Mirror::Same),
            "%%MatrixMarket matrix coordinate real symmetric\n2 2 2\n1 1 1\n2 1 2\n");
  EXPECT_EQ(Written(Sparse({{0, -2}, {2, 0}}), MarketLayout::Coordinate, Mirror::Negative),
            "%%MatrixMarket matrix coordinate real skew-symmetric\n2 2 1\n2 1 2\n");
  EXPECT_EQ(Written(Sparse({{1, 2, 0}, {0, 3, 4}}), MarketLayout::Array, Mirror::None),
            "%%MatrixMarket matrix array real general\n2 3\n1\n0\n2\n3\n0\n4\n");
  EXPECT_EQ(Written(Sparse({{1, 2}, {2, 3}}), MarketLayout::Array, Mirror::Same),
            "%%MatrixMarket matrix array real symmetric\n2 2\n1\n2\n3\n");
  EXPECT_EQ(Written(Sparse({{0, -2, 0}, {2, 0, -3}, {0, 3, 0}}), MarketLayout::Array, Mirror::Negative),
            "%%MatrixMarket matrix array real skew-symmetric\n3 3\n2\n0\n3\n");
}

TEST(MatrixMarket, ValuesComeBackToTheBit) {
  TemporaryFolder const folder;
  std::mt19937_64 random(7);
  std::vector<double> values{std::numeric_limits<double>::denorm_min(), -std::numeric_limits<double>::max(),
                             std::numeric_limits<double>::min(), 0.1, -0.0};
  while (values.size() < 1000)
    if (double const value = std::bit_cast<double>(random()); std::isfinite(value)) values.push_back(value);
  std::vector<Entry> entries;
  for (std::uint32_t k = 0; k < values.size(); ++k)
    entries.push_back({k, 0, values[k]});
  orx::tool::WriteMatrixMarket(folder.Path("a.mtx"), Assembled(entries), MarketLayout::Coordinate,
                               Mirror::None);

  auto const back = orx::tool::ReadMatrixMarket(folder.Path("a.mtx"));

  ASSERT_EQ(back.View().Entries(), std::ssize(values));
  for (std::size_t k = 0; k < values.size(); ++k)
    EXPECT_EQ(std::bit_cast<std::uint64_t>(back.View().values[k]), std::bit_cast<std::uint64_t>(values[k]));
}

// ---- random damage

std::string Damaged(std::string text, std::mt19937& random) {
  constexpr std::string_view characters = "0123456789+-.eEdD %\n\r\t,xnaif\0\xff";
  auto const below = [&](std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
  };
  for (std::size_t changes = 1 + below(3); changes > 0 && !text.empty(); --changes) {
    std::size_t const at = below(text.size());
    char const c = characters[below(characters.size())];
    switch (below(4)) {
    case 0:
      text[at] = c;
      break;
    case 1:
      text.insert(at, 1, c);
      break;
    case 2:
      text.erase(at, 1 + below(4));
      break;
    default:
      text.insert(at, text.substr(below(text.size()), 1 + below(8)));
    }
  }
  return text;
}

TEST(MatrixMarket, RandomDamageIsAnErrorWithALineOrLeavesAMatrix) {
  std::string const source = "%%MatrixMarket matrix coordinate real symmetric\n% made by hand\n3 3 4\n1 1 "
                             "2\n2 1 -1\n2 2 2.25e1\n3 2 -1\n";
  std::mt19937 random(1);
  int refused = 0;
  for (int round = 0; round < 3000; ++round)
    if (std::string const fault = Fault(Damaged(source, random)); fault != "no error") {
      ++refused;
      EXPECT_TRUE(fault.starts_with("line ")) << fault;
    }
  EXPECT_GT(refused, 1500);
  EXPECT_LT(refused, 2900);
}

} // namespace
