// Matrices of published collections, with products and solutions known to all digits. The folder is optional.

#include "MatrixSupport.h"
#include "SparseSupport.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>

namespace {

namespace fs = std::filesystem;

Doubles ReadVector(fs::path const& path) {
  std::ifstream file(path);
  return {std::istream_iterator<double>(file), std::istream_iterator<double>()};
}

Doubles Ramp(int n) {
  Doubles ramp(n);
  std::iota(ramp.begin(), ramp.end(), 1.0);
  return ramp;
}

ORXSrvMatrix ToFull(ORXSrvSparseMatrix const& sparse, bool symmetric) {
  ORXSrvMatrix full(sparse.NumberOfRows(), sparse.NumberOfColumns(), nullptr, symmetric, false);
  full = 0.0;
  for (ORXSrvSparseMatrixEntry const& e : EntriesOf(sparse))
    full.Values()[std::int64_t{e.column} * full.NumberOfRows() + e.row] = e.value;
  return full;
}

/// The number behind occurrence `index` of "cond_2": in ref.json (K before M); NaN when it says null.
double Condition(fs::path const& folder, int index) {
  std::ifstream file(folder / "ref.json");
  std::string const text{std::istreambuf_iterator<char>(file), {}};
  std::size_t at = 0;
  for (int k = 0; k <= index; ++k)
    at = text.find("\"cond_2\": ", at + 1);
  return text.compare(at + 10, 4, "null") == 0 ? std::nan("") : std::stod(text.substr(at + 10));
}

/// |y - expected| stays below the rounding of a sum of the row's entries.
void ExpectProduct(ORXSrvSparseMatrix const& sparse, bool transpose, Doubles const& x, fs::path const& file) {
  if (!fs::exists(file)) return;
  Doubles const expected = ReadVector(file);
  ASSERT_EQ(static_cast<int>(expected.size()), transpose ? sparse.NumberOfColumns() : sparse.NumberOfRows());
  Doubles y(expected.size()), bound(expected.size()), count(expected.size());
  sparse.Multiply(x.data(), 1, y.data(), transpose);
  for (ORXSrvSparseMatrixEntry const& e : EntriesOf(sparse)) {
    std::size_t const i = transpose ? e.column : e.row;
    bound[i] += std::abs(e.value * x[transpose ? e.row : e.column]);
    ++count[i];
  }
  for (std::size_t i = 0; i < y.size(); ++i)
    EXPECT_LE(std::abs(y[i] - expected[i]), count[i] * 0x1p-53 * bound[i]) << file << ", component " << i;
}

void ExpectSolution(ORXSrvSparseMatrix const& sparse, bool transpose, bool symmetric, double condition,
                    fs::path const& file) {
  if (!fs::exists(file)) return;
  SCOPED_TRACE(file.string() + (symmetric ? ", symmetric" : ", general"));
  Doubles const expected = ReadVector(file);
  int const n = sparse.NumberOfRows();
  ORXSrvMatrix factors = ToFull(sparse, symmetric);
  std::vector<int> pivots(n);
  factors.Factorize(pivots.data());
  Doubles x = Ramp(n);
  ORXSrvMatrix rhs(n, 1, x.data());
  factors.ForwardBackwardPass(pivots.data(), rhs, transpose);
  double error = 0.0, norm = 0.0;
  for (std::size_t i = 0; i < x.size(); ++i) {
    error = std::hypot(error, x[i] - expected[i]);
    norm = std::hypot(norm, expected[i]);
  }
  EXPECT_LE(error, condition * n * std::numeric_limits<double>::epsilon() * norm);
}

void CheckMatrix(fs::path const& folder, std::string const& name, int conditionIndex) {
  fs::path const path = folder / (name + ".full.txt");
  if (!fs::exists(path)) return;
  ORXSrvSparseMatrix sparse(0, 0);
  sparse.Import(path.c_str(), 3);
  auto const with = [&](char const* suffix) { return folder / (name + suffix); };
  Doubles const ones(sparse.NumberOfColumns(), 1.0);
  ExpectProduct(sparse, false, ones, with(".A_ones.txt"));
  ExpectProduct(sparse, true, Ramp(sparse.NumberOfRows()), with(".At_ramp.txt"));
  ExpectProduct(sparse, false, Ramp(sparse.NumberOfColumns()), with(".A_ramp.txt"));
  double const condition = Condition(folder, conditionIndex);
  ExpectSolution(sparse, false, false, condition, with(".solve_A_x_eq_ramp.txt"));
  ExpectSolution(sparse, true, false, condition, with(".solve_At_x_eq_ramp.txt"));
  bool const isSymmetric = ToFull(sparse, false).IsSymmetricNumerically();
  if (sparse.NumberOfRows() == sparse.NumberOfColumns()) {
    EXPECT_EQ(sparse.IsSymmetric(), isSymmetric);
  }
  if (isSymmetric) ExpectSolution(sparse, false, true, condition, with(".solve_A_x_eq_ramp.txt"));
}

TEST(PublishedMatrices, ProductsAndSolvesHoldTheirBounds) {
  if (!fs::is_directory(ORX_TEST_DATA)) GTEST_SKIP() << "no folder " ORX_TEST_DATA;
  for (auto const& folder : fs::directory_iterator(ORX_TEST_DATA)) {
    if (!folder.is_directory()) continue;
    CheckMatrix(folder, "A", 0);
    CheckMatrix(folder, "K", 0);
    CheckMatrix(folder, "M", 1);
  }
}

} // namespace
