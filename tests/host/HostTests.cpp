#include "host/orx_linear_algebra.h"
#include "mtx/ORXSrvMatrixContainer.h"
#include "mtx/ORXSrvSparseMatrix.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Raised.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <numbers>
#include <numeric>
#include <string>
#include <vector>

namespace {

using Text = std::string;
using Values = std::vector<double>;

Text LastError() {
  int const length = 400;
  char text[400];
  ORXSRVLASTERROR(text, &length);
  return text;
}

/// The address of a value for the length of a call.
template<class T>
T const* At(T const& value) {
  return &value;
}

/// Calls an entry point; the number and text of its error, empty without one.
template<class Function, class... Arguments>
Text Call(Function function, Arguments... arguments) {
  int stat = -7;
  function(arguments..., &stat);
  return stat == 0 ? "" : std::to_string(stat) + " " + LastError();
}
#define EXPECT_DONE(...) EXPECT_EQ(Call(__VA_ARGS__), "")

class Host : public testing::Test {
protected:
  Host() { ORX_START(nullptr); }
  ~Host() override {
    ORX_STOP(nullptr);
    EXPECT_EQ(m_folder.Files(), m_results);
  }

  /// A bar of n springs of stiffness 1 between n + 1 masses of 1, the first of which is a support.
  void MakeBar(int n, orx_sparse_matrix& k, orx_sparse_matrix& m) {
    EXPECT_DONE(ORX_SPARSE_CREATE, &n, &n, &k);
    EXPECT_DONE(ORX_SPARSE_CREATE, &n, &n, &m);
    double const spring[] = {1, -1, -1, 1}, lower[] = {1, -1, 1};
    for (int i = 1; i <= n; ++i) {
      int const dofs[] = {i - 1, i};
      auto const add = i % 2 == 0 ? ORX_SPARSE_ADD_ELEMENT : ORX_SPARSE_ADD_PACKED_ELEMENT;
      EXPECT_DONE(add, &k, At(2), dofs, i % 2 == 0 ? spring : lower);
      EXPECT_DONE(ORX_SPARSE_ADD, &m, &i, &i, At(1.0));
    }
    EXPECT_DONE(ORX_SPARSE_END, &k);
    EXPECT_DONE(ORX_SPARSE_END, &m);
  }
  /// lambda of mode j, from 1, of this bar.
  static double LambdaOfBar(int n, int j) {
    return std::pow(2 * std::sin(std::numbers::pi * (2 * j - 1) / (4 * n + 2)), 2);
  }
  Values ValuesOf(orx_block_matrix const& matrix) {
    int rows = 0, columns = 0;
    EXPECT_DONE(ORX_BLOCK_SHAPE, &matrix, &rows, &columns);
    Values values(static_cast<std::size_t>(rows) * columns);
    EXPECT_DONE(ORX_BLOCK_GET, &matrix, At(1), &rows, At(1), &columns, values.data());
    return values;
  }
  orx_block_matrix Filled(int rows, int columns, double first) {
    orx_block_matrix matrix = 0;
    EXPECT_DONE(ORX_BLOCK_CREATE, &rows, &columns, At(2), At(2), &matrix);
    Values values(static_cast<std::size_t>(rows) * columns);
    std::iota(values.begin(), values.end(), first);
    EXPECT_DONE(ORX_BLOCK_SET, &matrix, At(1), &rows, At(1), &columns, values.data());
    return matrix;
  }

  WorkingFolder m_folder;
  std::set<std::string> m_results; ///< files that the test leaves
};

TEST_F(Host, AnalysesABar) {
  int const n = 700, count = 5;
  orx_sparse_matrix k = 0, m = 0;
  MakeBar(n, k, m);

  Values x(static_cast<std::size_t>(n), 0.0), b = x;
  x.back() = b.back() = 1.0;
  orx_factor factor = 0;
  EXPECT_DONE(ORX_FACTOR_CREATE, &factor);
  int negative = 0, zero = 0, positive = 0;
  EXPECT_EQ(Call(ORX_FACTOR_INERTIA, &factor, &negative, &zero, &positive),
            "503 ORX_FACTOR_INERTIA: there is no factor; expected ORX_FACTOR_FACTORIZE before.");
  EXPECT_DONE(ORX_FACTOR_FACTORIZE, &factor, &k);
  EXPECT_DONE(ORX_FACTOR_SOLVE, &factor, At(1), x.data());
  for (int i = 0; i < n; ++i)
    EXPECT_NEAR(x[static_cast<std::size_t>(i)], i + 1, 1e-9 * n);
  double error = 1.0;
  EXPECT_DONE(ORX_FACTOR_SOLVE_REFINED, &factor, At(1), b.data(), x.data(), &error);
  EXPECT_LT(error, 1e-15);
  EXPECT_DONE(ORX_SPARSE_APPLY, &k, At(0), At(1), x.data(), b.data());
  EXPECT_NEAR(b.back(), 1.0, 1e-12 * n);
  EXPECT_DONE(ORX_FACTOR_FACTORIZE_SHIFTED, &factor, &k, At(0.5 * (LambdaOfBar(n, 4) + LambdaOfBar(n, 5))),
              &m);
  EXPECT_DONE(ORX_FACTOR_INERTIA, &factor, &negative, &zero, &positive);
  EXPECT_EQ(negative, 4);
  EXPECT_EQ(positive, n - 4);

  orx_modes modes = 0;
  EXPECT_DONE(ORX_MODES_CREATE, &k, &m, &modes);
  EXPECT_DONE(ORX_DELETE, &k); // the modes keep the matrices
  EXPECT_DONE(ORX_DELETE, &m);
  EXPECT_DONE(ORX_MODES_FIND_LOWEST, &modes, &count);
  int found = 0, certified = 0;
  EXPECT_DONE(ORX_MODES_COUNT, &modes, &found, &certified);
  EXPECT_EQ(found, count);
  EXPECT_EQ(certified, 1);
  Values shape(static_cast<std::size_t>(n));
  for (int j = 1; j <= count; ++j) {
    double lambda = 0, frequency = 0, bound = 0, residual = 0;
    int rigid = 1;
    EXPECT_DONE(ORX_MODES_GET, &modes, &j, &lambda, &frequency, &bound, &residual, &rigid);
    EXPECT_NEAR(lambda, LambdaOfBar(n, j), 1e-9 * lambda);
    EXPECT_NEAR(frequency, std::sqrt(lambda) / (2 * std::numbers::pi), 1e-12);
    EXPECT_EQ(rigid, 0);
  }
  EXPECT_EQ(Call(ORX_MODES_SHAPE, &modes, At(6), shape.data()),
            "502 ORX_MODES_SHAPE: number is 6; expected a number from 1 to 5.");

  orx_registry registry = 0;
  orx_block_matrix shapes = 0;
  EXPECT_DONE(ORX_REGISTRY_CREATE, &registry);
  EXPECT_DONE(ORX_REGISTRY_ADD, &registry, At(7), &n, &count, At(256), At(2), nullptr, nullptr);
  EXPECT_DONE(ORX_REGISTRY_MATRIX, &registry, At(7), &shapes);
  EXPECT_DONE(ORX_MODES_SHAPES, &modes, &shapes);
  void* address = nullptr;
  EXPECT_DONE(ORX_REGISTRY_ADDRESS, &registry, &address);
  Values all(static_cast<std::size_t>(n) * count);
  ORXSRVMATRIXCONTAINERGETVALUES(address, At(7), all.data());
  EXPECT_DONE(ORX_MODES_SHAPE, &modes, At(5), shape.data());
  EXPECT_TRUE(std::equal(shape.begin(), shape.end(), all.end() - n));
}

TEST_F(Host, SingularMatricesTellTheirUnknowns) {
  int const n = 3;
  orx_sparse_matrix k = 0;
  EXPECT_DONE(ORX_SPARSE_CREATE, &n, &n, &k);
  double const spring[] = {1, -1, -1, 1};
  int const first[] = {1, 2}, second[] = {2, 3};
  EXPECT_DONE(ORX_SPARSE_ADD_ELEMENT, &k, At(2), first, spring);
  EXPECT_DONE(ORX_SPARSE_ADD_ELEMENT, &k, At(2), second, spring);
  EXPECT_DONE(ORX_SPARSE_END, &k);
  orx_factor factor = 0;
  EXPECT_DONE(ORX_FACTOR_CREATE, &factor);
  EXPECT_DONE(ORX_FACTOR_FACTORIZE, &factor, &k);
  int unknowns[3] = {-1, -1, -1}, count = -1;
  EXPECT_EQ(Call(ORX_FACTOR_NULL_UNKNOWNS, &factor, At(0), unknowns, &count),
            "502 ORX_FACTOR_NULL_UNKNOWNS: room is 0; expected at least 1.");
  EXPECT_EQ(count, -1);
  EXPECT_DONE(ORX_FACTOR_NULL_UNKNOWNS, &factor, At(3), unknowns, &count);
  ASSERT_EQ(count, 1);
  double x[] = {1, 0, -1};
  EXPECT_EQ(Call(ORX_FACTOR_SOLVE, &factor, At(1), x).substr(0, 4), "402 ");
  EXPECT_DONE(ORX_FACTOR_HOLD_NULL_UNKNOWNS, &factor, At(1));
  double y[] = {1, 0, -1};
  EXPECT_DONE(ORX_FACTOR_SOLVE, &factor, At(1), y);
  EXPECT_EQ(y[unknowns[0] - 1], 0.0);
  EXPECT_NEAR(y[0] - y[2], 2.0, 1e-12);
}

TEST_F(Host, SparseMatricesShowTheirEntries) {
  orx_sparse_matrix a = 0, b = 0;
  EXPECT_DONE(ORX_SPARSE_CREATE, At(2), At(3), &a);
  EXPECT_DONE(ORX_SPARSE_ADD, &a, At(2), At(3), At(5.0));
  EXPECT_DONE(ORX_SPARSE_ADD, &a, At(1), At(2), At(3.0));
  EXPECT_EQ(Call(ORX_SPARSE_ADD, &a, At(0), At(2), At(3.0)),
            "502 ORX_SPARSE_ADD: row is 0; expected a number from 1 to 2147483646.");
  int const *rowPointers = nullptr, *columnIndices = nullptr;
  double const *entries = nullptr, *diagonal = nullptr;
  EXPECT_EQ(Call(ORX_SPARSE_ARRAYS, &a, &rowPointers, &columnIndices, &entries, &diagonal),
            "503 ORX_SPARSE_ARRAYS: the matrix is not assembled; expected ORX_SPARSE_END before.");
  EXPECT_DONE(ORX_SPARSE_END, &a);
  EXPECT_DONE(ORX_SPARSE_ARRAYS, &a, &rowPointers, &columnIndices, &entries, &diagonal);
  EXPECT_EQ(std::vector<int>(rowPointers, rowPointers + 3), (std::vector<int>{0, 1, 2}));
  EXPECT_EQ(std::vector<int>(columnIndices, columnIndices + 2), (std::vector<int>{1, 2}));
  EXPECT_EQ(diagonal, nullptr);

  EXPECT_DONE(ORX_SPARSE_TRANSPOSE, &a, &b);
  int rows[2] = {}, columns[2] = {};
  double values[2] = {};
  EXPECT_EQ(Call(ORX_SPARSE_ENTRIES, &b, At(std::int64_t{1}), rows, columns, values),
            "502 ORX_SPARSE_ENTRIES: room is 1; expected at least 2, the number of entries.");
  EXPECT_EQ(rows[0], 0);
  EXPECT_DONE(ORX_SPARSE_ENTRIES, &b, At(std::int64_t{2}), rows, columns, values);
  EXPECT_EQ(rows[0] * 100 + columns[0] * 10, 210);
  EXPECT_EQ(rows[1] * 100 + columns[1] * 10, 320);
  EXPECT_EQ(values[0] * 10 + values[1], 35);

  Values const x{1, 10, 100};
  Values y{-1, -1};
  EXPECT_DONE(ORX_SPARSE_APPLY, &a, At(0), At(1), x.data(), y.data());
  EXPECT_EQ(y, (Values{30, 500}));
  orx_block_matrix const d = Filled(3, 2, 1), r = Filled(2, 2, 77);
  EXPECT_DONE(ORX_SPARSE_MULTIPLY, &a, At(0), &d, &r);
  EXPECT_EQ(ValuesOf(r), (Values{6, 15, 15, 30}));

  int rowCount = 0, columnCount = 0;
  std::int64_t entryCount = 0;
  EXPECT_DONE(ORX_SPARSE_SHAPE, &b, &rowCount, &columnCount, &entryCount);
  EXPECT_EQ(rowCount * 100 + columnCount * 10 + entryCount, 322);
  int const same[] = {1, 2};
  EXPECT_EQ(Call(ORX_SPARSE_PERMUTE, &a, same, &b).substr(0, 4), "206 "); // not square
}

TEST_F(Host, EmptyAndDiagonalMatricesMultiply) {
  int const two = 2;
  orx_sparse_matrix empty = 0, diagonal = 0;
  EXPECT_DONE(ORX_SPARSE_CREATE, &two, &two, &empty);
  EXPECT_DONE(ORX_SPARSE_END, &empty);
  Values y{-1, -1};
  EXPECT_DONE(ORX_SPARSE_APPLY, &empty, At(0), At(1), Values{1, 2}.data(), y.data());
  EXPECT_EQ(y, (Values{0, 0}));
  orx_block_matrix const d = Filled(2, 2, 1), r = Filled(2, 2, 7);
  EXPECT_DONE(ORX_SPARSE_MULTIPLY, &empty, At(1), &d, &r);
  EXPECT_EQ(ValuesOf(r), (Values{0, 0, 0, 0}));

  // Fortran records of a symmetric matrix with nothing off the diagonal: its number of nonzeros is 0.
  auto const record = [](std::string const& bytes) {
    auto const length = static_cast<std::int32_t>(bytes.size());
    std::string const marker(reinterpret_cast<char const*>(&length), 4);
    return marker + bytes + marker;
  };
  auto const row = [&](std::int32_t column, double value) {
    std::int32_t const head[] = {1, column};
    return record(std::string(reinterpret_cast<char const*>(head), 8) +
                  std::string(reinterpret_cast<char const*>(&value), 8));
  };
  m_folder.Write("diagonal.rec",
                 record(std::string(reinterpret_cast<char const*>(&two), 4)) + row(1, 4.0) + row(2, 5.0));
  m_results.insert("diagonal.rec");
  EXPECT_DONE(ORX_SPARSE_IMPORT, "diagonal.rec", At(0), &diagonal);
  EXPECT_DONE(ORX_SPARSE_APPLY, &diagonal, At(0), At(1), Values{1, 2}.data(), y.data());
  EXPECT_EQ(y, (Values{4, 10}));
}

TEST_F(Host, BlockMatricesCalculate) {
  orx_block_matrix const a = Filled(3, 2, 1), b = Filled(2, 2, 1), c = Filled(3, 2, 0), d = Filled(2, 2, 0);
  EXPECT_DONE(ORX_BLOCK_MULTIPLY, &a, At(0), &b, &c);
  EXPECT_EQ(ValuesOf(c), (Values{9, 12, 15, 19, 26, 33}));
  EXPECT_DONE(ORX_BLOCK_MULTIPLY, &a, At(1), &c, &d);
  EXPECT_EQ(ValuesOf(d), (Values{78, 186, 170, 404}));
  Values y{-1, -1, -1};
  EXPECT_DONE(ORX_BLOCK_APPLY, &a, At(0), At(1), Values{1, 1}.data(), y.data());
  EXPECT_EQ(y, (Values{5, 7, 9}));
  EXPECT_DONE(ORX_BLOCK_APPLY, &a, At(1), At(1), Values{1, 0, 1}.data(), y.data());
  EXPECT_EQ(y, (Values{4, 10, 9}));
  EXPECT_DONE(ORX_BLOCK_SCALE, &b, At(2.0));
  EXPECT_DONE(ORX_BLOCK_ADD, &b, &d);
  EXPECT_EQ(ValuesOf(b), (Values{80, 190, 176, 412}));
  EXPECT_DONE(ORX_BLOCK_COPY, &b, &d);
  EXPECT_EQ(ValuesOf(d), ValuesOf(b));
  orx_block_matrix symmetric = 0;
  EXPECT_DONE(ORX_BLOCK_CREATE_SYMMETRIC, At(3), At(2), &symmetric);
  EXPECT_DONE(ORX_BLOCK_SET, &symmetric, At(1), At(1), At(2), At(3), Values{4, 5}.data());
  EXPECT_EQ(
      Call(ORX_BLOCK_SET, &symmetric, At(1), At(2), At(1), At(2), Values{1, 2, 3, 4}.data()).substr(0, 4),
      "204 ");
  EXPECT_EQ(ValuesOf(symmetric), (Values{0, 4, 5, 4, 0, 0, 5, 0, 0}));
  EXPECT_DONE(ORX_BLOCK_APPLY, &symmetric, At(0), At(1), Values{1, 1, 1}.data(), y.data());
  EXPECT_EQ(y, (Values{9, 4, 5}));
  double value = 0.0;
  EXPECT_EQ(Call(ORX_BLOCK_GET, &a, At(1), At(4), At(1), At(1), &value),
            "502 ORX_BLOCK_GET: last_row is 4; expected a number from 1 to 3.");
  EXPECT_EQ(Call(ORX_BLOCK_APPLY, &a, At(2), At(1), &value, &value),
            "502 ORX_BLOCK_APPLY: transpose is 2; expected 0 for no or 1 for yes.");
}

TEST_F(Host, DatabasesKeepMatrices) {
  m_results = {"results.sim"};
  orx_database database = 0;
  orx_block_matrix kept = 0, dropped = 0, found = 0;
  auto const add = [&](char const* name, orx_block_matrix* matrix) {
    return Call(ORX_DATABASE_ADD, &database, name, At(3), At(2), At(100), At(1), nullptr, nullptr, matrix);
  };
  EXPECT_DONE(ORX_DATABASE_CREATE, "results.sim", At(0), &database);
  EXPECT_DONE(ORX_DATABASE_BEGIN, &database);
  EXPECT_EQ(add("dropped", &dropped), "");
  EXPECT_EQ(Call(ORX_DATABASE_BEGIN, &database).substr(0, 45),
            "503 ORX_DATABASE_BEGIN: a transaction is open");
  EXPECT_DONE(ORX_DATABASE_ABANDON, &database);
  EXPECT_EQ(Call(ORX_BLOCK_SCALE, &dropped, At(1.0)).substr(0, 3), "10 ");
  EXPECT_DONE(ORX_DATABASE_BEGIN, &database);
  EXPECT_EQ(add("kept", &kept), "");
  EXPECT_DONE(ORX_BLOCK_SET, &kept, At(1), At(3), At(2), At(2), Values{1, 2, 3}.data());
  EXPECT_DONE(ORX_DATABASE_COMMIT, &database);
  EXPECT_EQ(Call(ORX_DATABASE_COMMIT, &database),
            "503 ORX_DATABASE_COMMIT: no transaction is open; expected ORX_DATABASE_BEGIN before.");
  EXPECT_EQ(add("twice", &found), "");
  EXPECT_EQ(add("twice", &found), "");
  orx_database again = 0;
  EXPECT_EQ(Call(ORX_DATABASE_OPEN, "results.sim", At(0), &again).substr(0, 3), "41 ");
  EXPECT_EQ(again, 0);
  EXPECT_DONE(ORX_DATABASE_CLOSE, &database);
  EXPECT_EQ(database, 0);
  EXPECT_EQ(Call(ORX_BLOCK_SCALE, &kept, At(1.0)).substr(0, 3), "10 ");

  EXPECT_DONE(ORX_DATABASE_OPEN, "results.sim", At(1), &database);
  int count = 0;
  EXPECT_DONE(ORX_DATABASE_COUNT, &database, &count);
  EXPECT_EQ(count, 3);
  EXPECT_DONE(ORX_DATABASE_MATRIX, &database, "kept", &found);
  EXPECT_EQ(ValuesOf(found), (Values{0, 0, 0, 1, 2, 3}));
  EXPECT_DONE(ORX_DATABASE_MATRIX_AT, &database, At(1), &found);
  EXPECT_EQ(ValuesOf(found), (Values{0, 0, 0, 1, 2, 3}));
  EXPECT_EQ(Call(ORX_DATABASE_MATRIX_AT, &database, At(4), &found),
            "502 ORX_DATABASE_MATRIX_AT: number is 4; expected a number from 1 to 3.");
  EXPECT_EQ(Call(ORX_DATABASE_MATRIX, &database, "twice", &found),
            "502 ORX_DATABASE_MATRIX: the database has 2 matrices named 'twice'; expected one.");
  EXPECT_EQ(add("more", &found).substr(0, 3), "70 ");
}

TEST_F(Host, LabelsComeFromTheHost) {
  m_results = {"labels.sim"};
  orx_database database = 0;
  orx_block_matrix matrix = 0;
  int const nodes[] = {1007, 1001, 1013}, columns[] = {2, 1};
  EXPECT_DONE(ORX_DATABASE_CREATE, "labels.sim", At(1), &database);
  EXPECT_DONE(ORX_DATABASE_ADD, &database, "u", At(3), At(2), At(2), At(2), nodes, columns, &matrix);
  EXPECT_DONE(ORX_BLOCK_SET, &matrix, At(3), At(3), At(1), At(2), Values{5, 6}.data());
  EXPECT_EQ(ValuesOf(matrix), (Values{0, 0, 5, 0, 0, 6}));
  EXPECT_DONE(ORX_DATABASE_CLOSE, &database);
}

TEST_F(Host, RegistriesOfOtherPartsAreAdopted) {
  orx_registry registry = 0;
  orx_block_matrix matrix = 0;
  {
    ORXSrvMatrixContainer container;
    container.Create(3, 2, 2, 2, 2);
    void* address = &container;
    EXPECT_DONE(ORX_REGISTRY_ADOPT, &address, &registry);
    EXPECT_DONE(ORX_REGISTRY_MATRIX, &registry, At(3), &matrix);
    EXPECT_DONE(ORX_BLOCK_SET, &matrix, At(1), At(2), At(1), At(2), Values{1, 2, 3, 4}.data());
    EXPECT_EQ(Call(ORX_REGISTRY_ADD, &registry, At(3), At(1), At(1), At(1), At(1), nullptr, nullptr),
              "502 ORX_REGISTRY_ADD: id is 3, which is or was in use; expected a new one.");
    EXPECT_EQ(ValuesOf(matrix), (Values{1, 2, 3, 4}));
    EXPECT_DONE(ORX_REGISTRY_REMOVE, &registry, At(3));
    EXPECT_EQ(Call(ORX_BLOCK_SCALE, &matrix, At(1.0)), "20 The matrix container has no matrix 3.");
    EXPECT_EQ(Call(ORX_REGISTRY_REMOVE, &registry, At(3)), "20 The matrix container has no matrix 3.");
    EXPECT_DONE(ORX_DELETE, &registry);
    EXPECT_EQ(container.Size(), 1); // the registry itself is not the library's to delete
  }
  EXPECT_EQ(Call(ORX_BLOCK_SCALE, &matrix, At(1.0)),
            "501 ORX_BLOCK_SCALE: the registry of the block matrix was deleted.");
}

TEST_F(Host, DenseMatricesInArraysAreSolved) {
  Values a{4, 1, 1, 3}, b{1, 2};
  int pivots[2] = {};
  for (int const symmetric : {0, 1}) {
    Values factors = a, x = b;
    EXPECT_DONE(ORX_DENSE_FACTORIZE, &symmetric, At(2), factors.data(), pivots);
    EXPECT_DONE(ORX_DENSE_SOLVE, &symmetric, At(2), factors.data(), pivots, At(1), x.data());
    EXPECT_NEAR(x[0], 1.0 / 11, 1e-15);
    EXPECT_NEAR(x[1], 7.0 / 11, 1e-15);
  }
  Values lambda(2), shapes(4), singular{1, 1, 1, 1};
  EXPECT_DONE(ORX_DENSE_MODES, At(2), Values{2, -1, -1, 2}.data(), Values{1, 0, 0, 1}.data(), lambda.data(),
              shapes.data());
  EXPECT_NEAR(lambda[0], 1.0, 1e-14);
  EXPECT_NEAR(lambda[1], 3.0, 1e-14);
  EXPECT_EQ(Call(ORX_DENSE_FACTORIZE, At(0), At(2), singular.data(), pivots),
            "502 ORX_DENSE_FACTORIZE: a is singular: pivot 2 is zero.");
}

struct Watched {
  orx_sparse_matrix k = 0;
  int calls = 0, stopAt = 0;
  Text nested;
};

int Watch(void* context, char const* operation, std::int64_t const* done, std::int64_t const* total) {
  auto& watched = *static_cast<Watched*>(context);
  ++watched.calls;
  EXPECT_NE(operation, nullptr);
  EXPECT_LE(*done, *total);
  watched.nested = Call(ORX_DELETE, &watched.k);
  return watched.calls == watched.stopAt ? 1 : 0;
}

TEST_F(Host, ProgressFunctionsWatchAndStop) {
  Watched watched;
  orx_sparse_matrix m = 0;
  orx_modes modes = 0;
  MakeBar(600, watched.k, m);
  EXPECT_DONE(ORX_MODES_CREATE, &watched.k, &m, &modes);
  EXPECT_DONE(ORX_SET_PROGRESS, Watch, &watched);
  EXPECT_DONE(ORX_MODES_FIND_LOWEST, &modes, At(3));
  EXPECT_GT(watched.calls, 2);
  EXPECT_EQ(watched.nested,
            "503 ORX_DELETE: called from a progress function; expected it to return 0 or 1 only.");
  watched = {.k = watched.k, .calls = 0, .stopAt = 2, .nested = ""};
  EXPECT_EQ(Call(ORX_MODES_FIND_LOWEST, &modes, At(3)).substr(0, 4), "301 ");
  EXPECT_EQ(watched.calls, 2);
  EXPECT_DONE(ORX_SET_PROGRESS, nullptr, nullptr);
  EXPECT_DONE(ORX_MODES_FIND_LOWEST, &modes, At(3));
  EXPECT_DONE(ORX_DELETE, &watched.k);
}

TEST_F(Host, ErrorsLeaveOnlyWhenAskedFor) {
  orx_sparse_matrix none = 0;
  EXPECT_DONE(ORX_RAISE_ERRORS, At(1));
  EXPECT_RAISED("501 ORX_SPARSE_END: matrix is 0, the handle of nothing; expected one of a sparse matrix.",
                ORX_SPARSE_END(&none, nullptr));
  EXPECT_DONE(ORX_RAISE_ERRORS, At(0));
  EXPECT_EQ(Call(ORX_SPARSE_IMPORT, "no such file", At(3), &none).substr(0, 4), "202 ");
  EXPECT_EQ(Call(ORX_SPARSE_CREATE, At(-1), At(1), &none),
            "502 ORX_SPARSE_CREATE: rows is -1; expected 0 or more.");
  EXPECT_EXIT(ORX_SPARSE_END(&none, nullptr), testing::ExitedWithCode(1),
              "Error 501: ORX_SPARSE_END: matrix is 0");
  EXPECT_EXIT(ORX_SPARSE_IMPORT("no such file", At(3), &none, nullptr), testing::ExitedWithCode(1),
              "Error 202: ORX_SPARSE_IMPORT: ORXSrvSparseImExPorter: Failed to open file no such file");
}

TEST_F(Host, MemoryAndTimerAreSettings) {
  std::int64_t bytes = 0, before = 0;
  EXPECT_DONE(ORX_GET_MEMORY, &before);
  EXPECT_DONE(ORX_SET_MEMORY, At(std::int64_t{123456789}));
  EXPECT_DONE(ORX_GET_MEMORY, &bytes);
  EXPECT_EQ(bytes, 123456789);
  EXPECT_DONE(ORX_SET_MEMORY, At(std::int64_t{0}));
  EXPECT_DONE(ORX_GET_MEMORY, &bytes);
  EXPECT_NEAR(static_cast<double>(bytes), static_cast<double>(before), 0.1 * static_cast<double>(before));
  double seconds = -1;
  EXPECT_DONE(ORX_START_TIMER);
  ORXSRVGETWALLTIME(&seconds);
  EXPECT_GE(seconds, 0.0);
  int major = -1, minor = -1, patch = -1;
  EXPECT_DONE(ORX_VERSION, &major, &minor, &patch);
  EXPECT_GE(major + minor + patch, 1);
}

TEST(HostLifecycle, TheLastStopDeletesWhatIsLeft) {
  WorkingFolder const folder;
  EXPECT_EQ(Call(ORX_STOP), "503 ORX_STOP: the library was not started; expected ORX_START before.");
  orx_block_matrix matrix = 0;
  int count = 0;
  EXPECT_DONE(ORX_START);
  EXPECT_DONE(ORX_START);
  EXPECT_DONE(ORX_BLOCK_CREATE, At(1), At(1), At(1), At(1), &matrix);
  EXPECT_DONE(ORX_STOP);
  EXPECT_DONE(ORX_COUNT_OBJECTS, &count);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(folder.Files().size(), 1U);
  EXPECT_DONE(ORX_STOP);
  EXPECT_TRUE(folder.Files().empty());
  EXPECT_DONE(ORX_START);
  EXPECT_EQ(Call(ORX_BLOCK_SCALE, &matrix, At(1.0)).substr(0, 4), "501 ");
  EXPECT_DONE(ORX_STOP);
}

TEST_F(Host, FailedProductsLeaveTheirOperands) {
  orx_block_matrix const a = Filled(2, 2, 1);
  Values x{5, 6};
  EXPECT_EQ(Call(ORX_BLOCK_APPLY, &a, At(0), At(1), x.data(), x.data()).substr(0, 4), "206 ");
  EXPECT_EQ(Call(ORX_BLOCK_APPLY, &a, At(1), At(1), x.data(), x.data()).substr(0, 4), "206 ");
  orx_sparse_matrix k = 0;
  EXPECT_DONE(ORX_SPARSE_CREATE, At(1), At(1), &k);
  EXPECT_DONE(ORX_SPARSE_ADD, &k, At(1), At(1), At(3.0));
  EXPECT_DONE(ORX_SPARSE_END, &k);
  EXPECT_EQ(Call(ORX_SPARSE_APPLY, &k, At(0), At(2), x.data(), x.data() + 1),
            "502 ORX_SPARSE_APPLY: y overlaps x; expected memory of its own.");
  EXPECT_EQ(x, (Values{5, 6}));
  EXPECT_DONE(ORX_SPARSE_APPLY, &k, At(0), At(1), x.data(), x.data() + 1);
  EXPECT_EQ(x, (Values{5, 15}));
  EXPECT_DONE(ORX_BLOCK_APPLY, &a, At(0), At(0), x.data(), x.data());
}

TEST_F(Host, AForkedChildLeavesTheParentsFiles) {
  orx_block_matrix const a = Filled(2, 2, 1), b = Filled(2, 2, 5);
  EXPECT_EQ(RunInChild([&] {
              orx_handle own = b;
              ORX_DELETE(&own, nullptr);
              std::exit(7);
              return 0;
            }),
            7);
  EXPECT_EQ(ValuesOf(a), (Values{1, 2, 3, 4}));
  EXPECT_EQ(ValuesOf(b), (Values{5, 6, 7, 8}));
}

TEST(HostLifecycle, AProgramThatEndsWithoutStopLeavesNoFile) {
  WorkingFolder const folder;
  EXPECT_EQ(RunInChild([] {
              ORX_START(nullptr);
              orx_block_matrix matrix = 0;
              orx_registry registry = 0;
              orx_database database = 0;
              ORX_BLOCK_CREATE(At(1), At(1), At(1), At(1), &matrix, nullptr);
              ORX_REGISTRY_CREATE(&registry, nullptr);
              ORX_DATABASE_CREATE("kept.sim", At(0), &database, nullptr);
              std::exit(7);
              return 0;
            }),
            7);
  EXPECT_EQ(folder.Files(), (std::set<std::string>{"kept.sim"}));
}

} // namespace
