#include "tests/mpi/Shapes.h"

#include "tools/mpi/Info.h"
#include "tools/mpi/SourceOnRanks.h"

#include "tools/commands/Info.h"

#include <limits>

using namespace orx::mpi;

namespace {

/// The sum of a matrix and its transpose, in general form.
Arrays Mirrored(Arrays const& half) {
  Entries both = EntriesOf(half);
  for (auto const& [position, value] : EntriesOf(half))
    both[{position.second, position.first}] = value;
  Arrays a{half.rows, half.rows};
  for (int i = 0; i < a.rows; ++i) {
    for (auto at = both.lower_bound({i, 0}); at != both.end() && at->first.first == i; ++at)
      a.Add(at->first.second, at->second);
    a.EndRow();
  }
  return a;
}

Arrays Square() {
  return Mirrored(RandomArrays(83, 83, 7, [](int i, int j) { return i >= j; }));
}

/// The square matrix with its entry number `k` changed.
Arrays Changed(int k, double factor, double term = 0.0) {
  Arrays a = Square();
  a.values[k] = a.values[k] * factor + term;
  return a;
}

std::map<std::string, Arrays> Sources() {
  std::map<std::string, Arrays> sources = Shapes();
  double const infinity = std::numeric_limits<double>::infinity();
  sources["exactly symmetric"] = Square();
  sources["symmetric to rounding"] = Changed(100, 1.0 + 1e-13);
  sources["two differences"] = Changed(100, 1.0 + 1e-13);
  sources["two differences"].values[300] *= 1.0 + 1e-12;
  sources["unsymmetric values"] = Changed(200, 3.0);
  sources["unsymmetric pattern"] = RandomArrays(71, 71, 5, [](int, int) { return true; });
  sources["a stored zero without its mirror image"] = Changed(0, 1.0);
  sources["a stored zero without its mirror image"].values[3] = 0.0;
  sources["not a number"] = Changed(7, infinity, -infinity);
  sources["two that are infinite"] = Changed(150, 1.0, infinity);
  sources["two that are infinite"].values[20] = -infinity;
  sources["one triangle"] = RandomArrays(50, 50, 6, [](int i, int j) { return i < j; });
  return sources;
}

} // namespace

TEST(Source, InfoSaysToTheLetterWhatOrxmtxSays) {
  SharedFolder const folder;
  std::string const path = folder.Path("K.sim");
  for (auto const& [name, arrays] : Sources()) {
    SCOPED_TRACE(name);
    WriteDatabase(path, {{"K", arrays}});
    std::string const text = InfoText(path, AllRanks());
    AllRanks().OnRoot([&] { EXPECT_EQ(text, orx::tool::InfoText(path)); });
  }
}

TEST(Source, SymmetricMatricesAreThoseOfOrxmtxAndOthersAreRefusedInItsWords) {
  SharedFolder const folder;
  std::string const path = folder.Path("K.sim");
  for (auto const& [name, arrays] : Sources()) {
    SCOPED_TRACE(name);
    WriteDatabase(path, {{"K", arrays}});
    Entries expected;
    std::string expectedError, error;
    int const order = std::max(arrays.rows, arrays.columns);
    try { // each rank for itself
      orx::tool::MatrixSource const source("K", path);
      RequireAsStated(source);
      ForEachEntry(SymmetricFormOf(source, order).View(), [&](int row, int column, double value) {
        expected[{row, column}] = value;
      });
    } catch (orx::tool::ToolError const& e) {
      expectedError = e.what();
    }
    try {
      SourceOnRanks source("K", path, AllRanks());
      EXPECT_TRUE(source.IsReadByAll());
      source.RequireAsStated();
      Handle<Mat> const matrix = source.TakeSymmetric(order);
      Entries const own = OwnEntries(matrix.Get());
      for (auto const& [position, value] : OwnPart(expected, order))
        EXPECT_EQ(own.contains(position) ? own.at(position) : 0.0, value)
            << position.first << ", " << position.second;
      for (auto const& [position, value] : own)
        EXPECT_TRUE(value == 0.0 || expected.contains(position)) << position.first << ", " << position.second;
    } catch (orx::tool::ToolError const& e) {
      error = e.what();
    }
    EXPECT_EQ(error, expectedError);
  }
}

TEST(Source, FilesThatOneRankReadsGiveTheSameRowsToAll) {
  SharedFolder const folder;
  std::string const path = folder.Path("K.txt");
  AllRanks().OnRoot([&] {
    std::ofstream(path) << "1 1 4\n2 1 -1.5\n2 2 5\n4 2 0.25\n3 3 1\n4 4 2\n"; // the lower triangle
  });
  SourceOnRanks source("K", path, AllRanks());
  EXPECT_FALSE(source.IsReadByAll());
  EXPECT_EQ(source.Facts().entryCount, 6);
  EXPECT_EQ(source.NoteText().empty(), AllRanks().Count() == 1);
  Handle<Mat> const matrix = source.TakeSymmetric(5);
  Entries const all{{{0, 0}, 4}, {{0, 1}, -1.5}, {{1, 0}, -1.5}, {{1, 1}, 5}, {{1, 3}, 0.25},
                    {{2, 2}, 1}, {{3, 1}, 0.25}, {{3, 3}, 2},    {{4, 4}, 0}};
  EXPECT_EQ(OwnEntries(matrix.Get()), OwnPart(all, 5));
}
