#include "BlacSupport.h"
#include "blac/BLAC.h"
#include "blac/sparse/InterleavedKernels.h"
#include "blac/sparse/SpmvKernels.h"
#include "tests/support/SparseProducts.h"

#include <numeric>

namespace {

using namespace orx::blac;

constexpr double infinity = std::numeric_limits<double>::infinity();

/// Compressed rows. The arrays end with their last element, so that sanitizers notice reads beyond it.
struct Sparse {
  explicit Sparse(int columnCount) : columns(columnCount) {}

  int Rows() const { return static_cast<int>(rowPointers.size()) - 1; }
  RowArrays Arrays() const { return {values.data(), rowPointers.data(), columnIndices.data()}; }
  void AppendRow(std::vector<int> const& rowColumns, std::vector<double> const& rowValues) {
    columnIndices.insert(columnIndices.end(), rowColumns.begin(), rowColumns.end());
    values.insert(values.end(), rowValues.begin(), rowValues.end());
    rowPointers.push_back(static_cast<int>(columnIndices.size()));
    columnIndices.shrink_to_fit();
    values.shrink_to_fit();
  }
  std::vector<double> StatedSymmetricProduct(std::vector<double> const& diagonal,
                                             std::vector<double> const& x) const {
    return ::StatedSymmetricProduct(rowPointers, columnIndices, values, diagonal, x);
  }

  int columns;
  std::vector<int> rowPointers{0}, columnIndices;
  std::vector<double> values;
};

/// Random values and patterns.
class Maker {
public:
  explicit Maker(unsigned seed) : m_generator(seed) {}

  int Below(int end) { return std::uniform_int_distribution(0, end - 1)(m_generator); }
  std::vector<double> Values(std::size_t count) {
    std::uniform_real_distribution<double> distribution(-1, 1);
    std::vector<double> values(count);
    std::generate(values.begin(), values.end(), [&] { return distribution(m_generator); });
    return values;
  }
  /// As Values, but now and then infinite or a zero of either sign.
  std::vector<double> SpecialValues(std::size_t count) {
    std::vector<double> values = Values(count);
    for (double& value : values)
      if (Below(40) == 0) value = std::array{infinity, 0.0, -0.0}[Below(3)];
    return values;
  }
  /// Ascending runs of up to `longest` columns with gaps between them.
  std::vector<int> Runs(int columns, int longest) {
    std::vector<int> row;
    for (int column = Below(4); column < columns; column += 1 + Below(6))
      for (int left = 1 + Below(longest); left > 0 && column < columns; --left)
        row.push_back(column++);
    return row;
  }
  std::vector<int> Pattern(int columns) {
    std::vector<int> row = Runs(columns, 9);
    switch (Below(8)) {
    case 0:
      return {};
    case 1: // short
      row.resize(std::min<std::size_t>(row.size(), 9));
      return row;
    case 2: // in any order
      std::shuffle(row.begin(), row.end(), m_generator);
      return row;
    case 3: // columns that come twice, side by side
      for (std::size_t k = 2; k < row.size(); k += 5)
        row[k] = row[k - 1];
      return row;
    case 4: // and far apart
      row.insert(row.end(), row.begin(), row.begin() + static_cast<std::ptrdiff_t>(row.size() / 2));
      return row;
    case 5: // full
      row.resize(columns);
      std::iota(row.begin(), row.end(), 0);
      return row;
    case 6: // the unknowns of nodes that are not neighbours
      return Runs(columns, 3);
    default:
      return row;
    }
  }
  /// Rows of all patterns, each up to nine times one after the other, some always and some now and then moved
  /// by one, and now and then with another column at the end or anywhere.
  Sparse Matrix(int rows, int columns) {
    Sparse matrix(columns);
    while (matrix.Rows() < rows) {
      std::vector<int> pattern = Pattern(columns);
      int const size = static_cast<int>(pattern.size());
      bool const isGrid = Below(2) == 0;
      for (int times = 1 + Below(9); times > 0 && matrix.Rows() < rows; --times) {
        if (size > 0 && Below(12) == 0) pattern.back() = Below(columns);
        if (size > 0 && Below(12) == 0) pattern[Below(size)] = Below(columns);
        if (isGrid || Below(6) == 0) Shift(pattern, columns);
        matrix.AppendRow(pattern, Values(pattern.size()));
      }
    }
    return matrix;
  }

private:
  static void Shift(std::vector<int>& pattern, int columns) {
    for (int& column : pattern)
      column = (column + 1) % columns;
  }

  std::mt19937_64 m_generator;
};

/// What y holds before a kernel writes it.
constexpr double stale = 1e300;
std::vector<double> Stale(std::ptrdiff_t length) { return std::vector<double>(length, stale); }

std::vector<double> Perform(SpmvKernel kernel, SpmvOperands operands, std::ptrdiff_t length) {
  std::vector<double> y = Stale(length);
  operands.y = y.data();
  kernel(operands);
  return y;
}

enum class Kernel : std::uint8_t { Product, Transposed, Listed };

/// The exported kernel's y.
std::vector<double> Call(Kernel kernel, Sparse const& matrix, std::vector<double> const& x, int vectors,
                         std::vector<int> const& list = {}) {
  int const rows = kernel == Kernel::Listed ? static_cast<int>(list.size()) : matrix.Rows();
  std::vector<double> y =
      Stale(std::ptrdiff_t{std::max(vectors, 1)} * (kernel == Kernel::Product ? rows : matrix.columns));
  auto const [a, ia, ja] = matrix.Arrays();
  if (kernel == Kernel::Product)
    BLAC_SPARSE_UMV(a, x.data(), ia, ja, y.data(), &rows, &matrix.columns, &vectors);
  else if (kernel == Kernel::Transposed)
    BLAC_SPARSE_UMTV(a, x.data(), ia, ja, y.data(), &rows, &matrix.columns, &vectors);
  else
    BLAC_SPARSE_SPARSE_UMTV(a, x.data(), ia, ja, y.data(), &rows, &matrix.columns, &vectors, list.data());
  return y;
}

//     . 2 . -1
//     . . .  .
//     3 . 5  .
Sparse Example() {
  Sparse matrix(4);
  matrix.AppendRow({1, 3}, {2, -1});
  matrix.AppendRow({}, {});
  matrix.AppendRow({0, 2}, {3, 5});
  return matrix;
}

/// A set of kernels for a kind of processor.
template<class Kernels>
struct NamedSet {
  char const* name;
  Kernels const* set;
  bool isSupported;
};

template<class Kernels>
class OnProcessors : public testing::TestWithParam<NamedSet<Kernels>> {
protected:
  void SetUp() override {
    if (!this->GetParam().isSupported) GTEST_SKIP() << "this processor has no " << this->GetParam().name;
  }
};

#ifdef __x86_64__
/// Each set for a kind of processor must give the bits of the plain one.
class KernelsForProcessors : public OnProcessors<SpmvKernels> {
protected:
  /// Product and transposed product, with a row list and without, for each number of vectors.
  static void Compare(Sparse const& matrix, std::vector<int> const& list, Maker& maker) {
    std::ptrdiff_t const rows = matrix.Rows();
    auto const listed = static_cast<std::ptrdiff_t>(list.size());
    for (int vectors = 1; vectors <= vectorsInGroup; ++vectors) {
      SCOPED_TRACE(testing::Message() << rows << " x " << matrix.columns << ", " << vectors << " vectors");
      auto const n = static_cast<std::size_t>(vectors - 1);
      SpmvOperands operands{matrix.Arrays(), nullptr, rows, matrix.columns, nullptr, nullptr};
      auto const compare = [&](auto kernels, std::size_t lengthX, std::ptrdiff_t lengthY) {
        std::vector<double> const x = maker.SpecialValues(lengthX * vectors);
        operands.x = x.data();
        ASSERT_TRUE(SameBits(Perform((plainSpmvKernels.*kernels)[n], operands, lengthY * vectors),
                             Perform((GetParam().set->*kernels)[n], operands, lengthY * vectors)));
      };
      compare(&SpmvKernels::product, matrix.columns, rows);
      compare(&SpmvKernels::transposedProduct, rows, matrix.columns);
      operands.rows = listed;
      operands.rowList = list.data();
      compare(&SpmvKernels::transposedProduct, list.size(), matrix.columns);
    }
  }
};

INSTANTIATE_TEST_SUITE_P(X86, KernelsForProcessors,
                         testing::Values(NamedSet<SpmvKernels>{"AVX2", &avx2SpmvKernels,
                                                               __builtin_cpu_supports("avx2") != 0}),
                         [](auto const& set) { return set.param.name; });
#endif

} // namespace

// The order of the additions is part of the contract; the plain kernel for one vector defines it.
TEST(SparseKernels, GiveEachVectorWhatItGetsAlone) {
  Maker maker(2);
  Sparse scattered(40000); // beyond the cache with eight vectors
  for (int entries = 3; entries <= 117000; entries += 3) {
    scattered.columnIndices.insert(scattered.columnIndices.end(),
                                   {maker.Below(9000), 9000 + maker.Below(9000), maker.Below(40000)});
    scattered.rowPointers.push_back(entries);
  }
  scattered.values = maker.Values(scattered.columnIndices.size());
  auto const compare = [&](Sparse const& matrix, int vectors) {
    std::ptrdiff_t const rows = matrix.Rows(), columns = matrix.columns;
    SpmvOperands operands{matrix.Arrays(), nullptr, rows, columns, nullptr, nullptr};
    std::vector<double> const x = maker.Values(columns * vectors);
    std::vector<double> const z = maker.Values(rows * vectors);
    std::vector<double> y, w;
    for (int v = 0; v < vectors; ++v) {
      operands.x = x.data() + columns * v;
      std::vector<double> const one = Perform(plainSpmvKernels.product[0], operands, rows);
      y.insert(y.end(), one.begin(), one.end());
      operands.x = z.data() + rows * v;
      std::vector<double> const other = Perform(plainSpmvKernels.transposedProduct[0], operands, columns);
      w.insert(w.end(), other.begin(), other.end());
    }
    EXPECT_TRUE(SameBits(y, Call(Kernel::Product, matrix, x, vectors))) << vectors;
    EXPECT_TRUE(SameBits(w, Call(Kernel::Transposed, matrix, z, vectors))) << vectors;
  };
  Sparse const matrix = maker.Matrix(70, 60);
  for (int const vectors : {1, 2, 3, 4, 5, 6, 7, 8, 9, 15, 16, 17, 24})
    compare(matrix, vectors);
  for (int const vectors : {2, 8, 11})
    compare(scattered, vectors);
}

TEST(SparseKernels, TakeRowsThatAreNotListedForZero) {
  Maker maker(3);
  Sparse const matrix = maker.Matrix(90, 50);
  std::vector<int> all(90), some;
  std::iota(all.begin(), all.end(), 0);
  std::copy_if(all.begin(), all.end(), std::back_inserter(some), [](int row) { return row % 5 < 3; });
  int const count = static_cast<int>(some.size());
  Dense const x = Random(90, 9, 0);
  Dense const listed = Filled(count, 9, 0, [&](int p, int v) { return x(some[p], v); });
  Dense const extended = Filled(90, 9, 0, [&](int i, int v) { return i % 5 < 3 ? x(i, v) : 0; });

  EXPECT_TRUE(SameBits(Call(Kernel::Transposed, matrix, x.values, 9),
                       Call(Kernel::Listed, matrix, x.values, 9, all)));
  EXPECT_TRUE(SameBits(Call(Kernel::Transposed, matrix, extended.values, 9),
                       Call(Kernel::Listed, matrix, listed.values, 9, some)));
}

TEST(SparseKernels, WriteNothingForNoVectorsAndZerosForNoRows) {
  Sparse const matrix = Example();
  for (int const vectors : {0, -1, -8, -9})
    for (Kernel const kernel : {Kernel::Product, Kernel::Transposed, Kernel::Listed}) {
      std::vector<double> const y = Call(kernel, matrix, {}, vectors, {0});
      EXPECT_EQ(y, Stale(static_cast<std::ptrdiff_t>(y.size()))) << vectors;
    }

  EXPECT_EQ(Call(Kernel::Transposed, Sparse(3), {}, 9), std::vector<double>(27, 0.0));
  EXPECT_EQ(Call(Kernel::Listed, matrix, {}, 3, {}), std::vector<double>(12, 0.0));
}

#ifdef __x86_64__
TEST_P(KernelsForProcessors, GiveTheBitsOfThePlainOnesForAllPatterns) {
  Maker maker(4);
  for (int const columns : {1, 2, 3, 4, 5, 12, 13, 20, 37, 64, 300, 1100})
    for (int repetition = 0; repetition < 4; ++repetition) {
      // Many rows: some pass before rows are looked for again that can be taken together.
      Sparse const matrix = maker.Matrix(1 + maker.Below(repetition == 0 ? 600 : 60), columns);
      // Neighbours, rows that come twice, and any order.
      std::vector<int> list(maker.Below(40));
      for (std::size_t p = 0; p < list.size(); ++p) {
        bool const isNeighbour = p > 0 && maker.Below(4) > 0;
        list[p] = isNeighbour ? std::min(list[p - 1] + 1, matrix.Rows() - 1) : maker.Below(matrix.Rows());
      }
      Compare(matrix, list, maker);
      if (HasFatalFailure()) return;
    }
}

TEST_P(KernelsForProcessors, LookAtWhereRowsBegin) {
  Maker maker(8);
  Sparse matrix(10);
  for (std::vector<int> const& row :
       std::vector<std::vector<int>>{{0, 2, 4, 6}, {1, 3, 5, 7, 2}, {4, 6, 8}, {3, 5, 7, 9}})
    matrix.AppendRow(row, maker.Values(row.size()));
  Compare(matrix, {0, 1, 2, 3}, maker);
}

// The transposed product clears y some way ahead of the columns that it has met; each of these rows is the
// first to reach behind that.
TEST_P(KernelsForProcessors, ClearWhatFourRowsReach) {
  Maker maker(9);
  for (int last = 200; last < 300; ++last) {
    Sparse matrix(320);
    matrix.AppendRow({10}, {1.0});
    for (int r = 0; r < 4; ++r)
      matrix.AppendRow({20 + r, 30 + r, 40 + r, last + r}, maker.Values(4));
    Compare(matrix, {0, 4}, maker);
  }
}
#endif

// Interleaved vectors

namespace {

/// Random rows below the diagonal, those of three unknowns with their columns in common, and now and then an
/// entry above it.
Sparse NodesBelowDiagonal(Maker& maker, int nodes) {
  Sparse matrix(3 * nodes);
  for (int node = 0; node < nodes; ++node) {
    std::vector<int> row = maker.Runs(3 * node + 1, 9);
    if (maker.Below(6) == 0) row.push_back(maker.Below(3 * nodes));
    std::erase_if(row, [&](int column) { return column >= 3 * node && column < 3 * node + 3; });
    for (int r = 0; r < 3; ++r) {
      matrix.AppendRow(row, maker.Values(row.size()));
      row.push_back(3 * node + r);
    }
  }
  return matrix;
}

/// Random rows below the diagonal, most of them with the columns of the row before plus one, some with
/// entries above it, some in another order.
Sparse GridBelowDiagonal(Maker& maker, int rows) {
  Sparse matrix(rows);
  while (matrix.Rows() < rows) {
    int const first = matrix.Rows();
    std::vector<int> row = maker.Runs(first + 1, 3);
    if (row.size() > 20) row.erase(row.begin(), row.end() - 20);
    if (maker.Below(3) == 0) row.push_back(maker.Below(rows));
    if (maker.Below(6) == 0) std::reverse(row.begin(), row.end());
    int const end = std::min(rows, first + 1 + maker.Below(maker.Below(4) > 0 ? 12 : rows));
    for (int i = first; i < end; ++i) {
      std::vector<int> columns;
      for (int const column : row)
        if (column + i - first < rows && column != first) columns.push_back(column + i - first);
      matrix.AppendRow(columns, maker.Values(columns.size()));
    }
  }
  return matrix;
}

struct AlignedWorkspace {
  explicit AlignedWorkspace(std::ptrdiff_t size) : values(size + 8, stale) {}
  double* Begin() { return values.data() + (-reinterpret_cast<std::uintptr_t>(values.data()) & 63) / 8; }
  std::vector<double> values;
};

class VectorsInterleaved : public OnProcessors<InterleavedKernels> {};

std::vector<VectorsInterleaved::ParamType> InterleavedSets() {
  std::vector<VectorsInterleaved::ParamType> sets{{"Plain", &plainInterleavedKernels, true}};
#ifdef __x86_64__
  sets.push_back({"AVX2", &avx2InterleavedKernels, __builtin_cpu_supports("avx2") != 0});
#endif
  return sets;
}

INSTANTIATE_TEST_SUITE_P(Sets, VectorsInterleaved, testing::ValuesIn(InterleavedSets()),
                         [](auto const& set) { return set.param.name; });

} // namespace

TEST_P(VectorsInterleaved, GiveTheBitsOfThePlainKernels) {
  Maker maker(6);
  Sparse const matrix = maker.Matrix(60, 45);
  for (int width = 0; width < InterleavedKernels::widths; ++width)
    for (int vectors = 1 + (1 << width); vectors <= 2 << width; ++vectors) {
      std::vector<double> const x = maker.SpecialValues(60U * vectors);
      AlignedWorkspace workspace(InterleavedWorkspace(45, 2 << width));
      InterleavedOperands operands{matrix.Arrays(), nullptr,           60, 45, vectors, x.data(),
                                   nullptr,         workspace.Begin(), 0};
      SpmvOperands const plain{matrix.Arrays(), nullptr, 60, 45, x.data(), nullptr};
      auto const compare = [&](auto const& interleaved, auto const& plainKernels, int length) {
        std::vector<double> y = Stale(length * vectors);
        operands.y = y.data();
        interleaved[width](operands);
        EXPECT_TRUE(SameBits(Perform(plainKernels[vectors - 1], plain, length * vectors), y)) << vectors;
      };
      compare(GetParam().set->product, plainSpmvKernels.product, 60);
      compare(GetParam().set->transposedProduct, plainSpmvKernels.transposedProduct, 45);
    }
}

// Rings from too small to larger than the matrix.
TEST_P(VectorsInterleaved, MultiplyTheSymmetricFormInTheStatedOrder) {
  Maker maker(7);
  for (int const nodes : {1, 2, 9, 40}) {
    Sparse const matrix = NodesBelowDiagonal(maker, nodes);
    int const rows = 3 * nodes;
    std::vector<double> const diagonal = maker.Values(rows);
    for (int width = 0; width < InterleavedKernels::widths; ++width)
      for (int vectors = 1 + (1 << width); vectors <= 2 << width; ++vectors)
        for (int const slots : {4, 16, 64, 256}) {
          std::vector<double> const x = maker.SpecialValues(rows * vectors);
          std::vector<double> y = Stale(std::ptrdiff_t{rows} * vectors);
          AlignedWorkspace workspace(RingWorkspace(slots, 2 << width));
          GetParam().set->symmetricProduct[width]({matrix.Arrays(), diagonal.data(), rows, rows, vectors,
                                                   x.data(), y.data(), workspace.Begin(), slots});
          EXPECT_TRUE(SameBits(matrix.StatedSymmetricProduct(diagonal, x), y))
              << rows << " rows, " << vectors << " vectors, " << slots;
        }
  }
}

#ifdef __x86_64__
TEST_P(KernelsForProcessors, MultiplyTheSymmetricFormInTheStatedOrder) {
  Maker maker(10);
  for (int const rows : {1, 4, 5, 30, 100, 400, 700, 900, 1000}) {
    Sparse const matrix = rows != 5 ? GridBelowDiagonal(maker, rows) : NodesBelowDiagonal(maker, rows);
    std::ptrdiff_t const length = matrix.Rows() + rows % 3; // of the vectors
    std::vector<double> const diagonal = maker.Values(length);
    for (int vectors = 1; vectors <= vectorsInGroup; ++vectors) {
      std::vector<double> const x = maker.SpecialValues(diagonal.size() * vectors);
      SpmvOperands const operands{matrix.Arrays(), nullptr, length,         matrix.Rows(),
                                  x.data(),        nullptr, diagonal.data()};
      std::vector<double> const expected = matrix.StatedSymmetricProduct(diagonal, x);
      for (SpmvKernels const* const set : {&plainSpmvKernels, GetParam().set})
        EXPECT_TRUE(
            SameBits(expected, Perform(set->symmetricProduct[vectors - 1], operands, length * vectors)))
            << rows << " rows, " << vectors << " vectors";
    }
  }
}
#endif
