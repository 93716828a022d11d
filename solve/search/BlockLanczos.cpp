#include "solve/search/BlockLanczos.h"

#include "blac/BLAC.h"
#include "mtx/ORXSrvMatrix.h"
#include "solve/search/SolveErrors.h"
#include "solve/search/Vectors.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <optional>
#include <utility>

namespace orx {

namespace {

constexpr int usualWidth = 8; ///< one pass over the factor and over M serves so many vectors
/// Of a Ritz value, by its magnitude. The error of an eigenvalue is about the square.
constexpr double tolerance = 1e-8;
constexpr double epsilon = std::numeric_limits<double>::epsilon();
/// A residual, by the terms that it is summed from, that a shape without alien motions does not have.
constexpr double pureResidual = 1e-9;
/// The residual of a mode, by the same measure, from which on its eigenvalue is less exact than K and M are:
/// the error of the Rayleigh quotient is about its square.
constexpr double poorResidual = 1e-8;
/// Values within this share of each other have vectors that may be turned within their space.
constexpr double closeness = 1e-6;
/// A new direction shorter than this share of the vectors that it was made of is rounding errors.
constexpr double leastDirection = 1e-13;
/// Of a vector orthogonal to Q that is made orthogonal to others, what is left is orthogonal to Q, too, if it
/// is more than this share.
constexpr double faithfulShare = 1e-3;
/// x^T M x is rounding errors below this share of the sum of x_i^2 M_ii: x is a motion without mass.
constexpr double massless = 1e-8;
/// x^T M x below minus this share of that sum, and of the longest vector's, is no rounding error.
constexpr double mostNegative = 1e-9;

/// Vectors that are read from the scratch matrix at a time.
constexpr int panelWidth = 32;

/// c = alpha * op(a) * b + beta * c; the result is m x n.
void Multiply(char const* transA, int m, int n, int k, double alpha, double const* a, int lda,
              double const* b, int ldb, double beta, double* c, int ldc) {
  if (lda == 0) lda = 1; // of a process without rows
  if (ldb == 0) ldb = 1;
  if (m > 0 && n > 0) BLAC_DGEMM(transA, "N", &m, &n, &k, &alpha, a, &lda, b, &ldb, &beta, c, &ldc);
}

/// All eigenvalues, ascending, of a symmetric matrix of order n without gaps, of which the upper triangle is
/// used; the vectors replace it.
std::vector<double> SolveByIteration(std::vector<double>& a, int n) {
  std::vector<double> values(static_cast<std::size_t>(n)), work(64 * values.size() + 1);
  int const size = static_cast<int>(work.size());
  int info = 0;
  BLAC_DSYEV("V", "U", &n, a.data(), &n, values.data(), work.data(), &size, &info);
  if (info != 0)
    RaiseSolveError(ORXSrvSolveError::engineFailed, "ORXSrvModes: the projected eigenproblem of order " +
                                                        std::to_string(n) + " did not converge.");
  return values;
}

/// Does the same by relatively robust representations, in a fraction of the time. Returns nothing where these
/// fail, which happens to matrices with tight clusters; `a` is then destroyed.
std::optional<std::vector<double>> SolveByRepresentations(std::vector<double>& a, int n) {
  auto const order = static_cast<std::size_t>(n);
  std::vector<double> diagonal(order), beside(order), tau(order), values(order), vectors(order * order);
  std::vector<double> work(64 * order + 1);
  std::vector<int> support(2 * order), integers(10 * order);
  int const size = static_cast<int>(work.size()), integerSize = static_cast<int>(integers.size());
  int const unused = 0;
  double const none = 0.0;
  int found = 0, info = 0, triesRelative = 1;
  BLAC_DSYTRD("U", &n, a.data(), &n, diagonal.data(), beside.data(), tau.data(), work.data(), &size, &info);
  BLAC_DSTEMR("V", "A", &n, diagonal.data(), beside.data(), &none, &none, &unused, &unused, &found,
              values.data(), vectors.data(), &n, &n, support.data(), &triesRelative, work.data(), &size,
              integers.data(), &integerSize, &info);
  if (info != 0 || found != n) return {};
  BLAC_DORMTR("L", "U", "N", &n, &n, a.data(), &n, tau.data(), vectors.data(), &n, work.data(), &size, &info);
  a = std::move(vectors);
  return values;
}

std::vector<double> SolveSymmetric(std::vector<double>& a, int n) {
  constexpr int worthwhileOrder = 150;
  if (n < worthwhileOrder) return SolveByIteration(a, n);
  std::vector<double> const copy = a;
  if (std::optional<std::vector<double>> values = SolveByRepresentations(a, n)) return *std::move(values);
  a = copy;
  return SolveByIteration(a, n);
}

} // namespace

double SignOfLargest(Processes const& processes, double const* x, int count) {
  double largest = 0.0;
  for (int i = 0; i < count; ++i)
    largest = std::max(largest, std::abs(x[i]));
  largest = processes.Largest(largest);
  double const* const decisive =
      std::find_if(x, x + count, [=](double value) { return std::abs(value) >= (1.0 - 1e-6) * largest; });
  std::optional<Processes::Values> value;
  if (decisive != x + count) value = {*decisive};
  return (*processes.First(value))[0] < 0.0 ? -1.0 : 1.0;
}

BlockLanczos::BlockLanczos(Pencil& pencil, double shift, std::vector<FoundMode> const& known, Size size,
                           std::size_t seed)
    : m_pencil(pencil), m_processes(pencil.SharedBy()), m_shift(shift), m_known(known),
      m_order(pencil.OwnRows()), m_width(std::min(usualWidth, pencil.Order())),
      m_capacity(std::max(size.vectors, 4 * m_width)),
      m_inMemory(std::min(m_capacity, std::max(size.inMemory, 4 * m_width))),
      m_vectors(mem_MakeArray<double>(std::int64_t{m_order} * m_inMemory)),
      m_massTimes(mem_MakeArray<double>(std::int64_t{m_order} * m_width)),
      m_massDiagonal(pencil.MassDiagonal()), m_t(static_cast<std::size_t>(m_capacity) * m_capacity, 0.0),
      m_generator(SeedOf(m_processes, seed)) {}

double BlockLanczos::DotOfAll(double const* x, double const* y) const {
  return m_processes.Sum(Dot(m_order, x, y));
}

void BlockLanczos::SumBlock(double* c, int rows, int columns) const {
  std::vector<double> sums(static_cast<std::size_t>(rows) * columns);
  for (int j = 0; j < columns; ++j)
    std::copy_n(c + std::int64_t{j} * m_size, rows, sums.data() + std::int64_t{j} * rows);
  m_processes.Sum(sums);
  for (int j = 0; j < columns; ++j)
    std::copy_n(sums.data() + std::int64_t{j} * rows, rows, c + std::int64_t{j} * m_size);
}

void BlockLanczos::MakeRoom() {
  if (m_size - m_stored + m_next + m_width <= m_inMemory) return;
  if (!m_file) m_file.emplace(m_order, m_capacity, -1, panelWidth);
  for (int first = m_stored; first < m_size; first += panelWidth) {
    ORXSrvMatrix panel(m_order, std::min(panelWidth, m_size - first));
    std::copy_n(Column(first), std::int64_t{m_order} * panel.NumberOfColumns(), panel.Values());
    m_file->SetColumns(first, first + panel.NumberOfColumns() - 1, panel);
  }
  std::copy_n(Column(m_size), std::int64_t{m_order} * m_next, m_vectors.get());
  m_stored = m_size;
}

template<class Visit>
void BlockLanczos::ForEachPanel(Visit visit) const {
  for (int first = 0; first < m_stored; first += panelWidth) {
    ORXSrvMatrix panel(m_order, std::min(panelWidth, m_stored - first));
    m_file->GetColumns(first, first + panel.NumberOfColumns() - 1, panel);
    visit(first, panel.Values(), panel.NumberOfColumns());
  }
  if (m_size > m_stored) visit(m_stored, Column(m_stored), m_size - m_stored);
}

void BlockLanczos::Apply(double* x, int count) {
  m_pencil.MultiplyByMass(x, count, m_massTimes.get());
  ApplyToMassTimes(x, count);
}

void BlockLanczos::ApplyToMassTimes(double* x, int count) {
  std::copy_n(m_massTimes.get(), std::int64_t{m_order} * count, x);
  m_pencil.Solve(x, count);
}

void BlockLanczos::Orthogonalize(int count, int passes, double* t) {
  double* const block = Column(m_size);
  std::vector<double> coefficients(static_cast<std::size_t>(m_size) * count);
  for (int pass = 0; pass < passes; ++pass) {
    m_pencil.MultiplyByMass(block, count, m_massTimes.get());
    for (FoundMode const& mode : m_known)
      for (int v = 0; v < count; ++v) {
        double* const x = block + std::int64_t{v} * m_order;
        double const* const massTimes = m_massTimes.get() + std::int64_t{v} * m_order;
        double const c = DotOfAll(mode.shape.data(), massTimes);
        for (int i = 0; i < m_order; ++i)
          x[i] -= c * mode.shape[i];
      }
    ForEachPanel([&](int first, double const* q, int columns) {
      double* const c = coefficients.data() + first;
      Multiply("T", columns, count, m_order, 1.0, q, m_order, m_massTimes.get(), m_order, 0.0, c, m_size);
      SumBlock(c, columns, count);
      Multiply("N", m_order, count, columns, -1.0, q, m_order, c, m_size, 1.0, block, m_order);
    });
    if (t == nullptr) continue;
    for (int v = 0; v < count; ++v)
      for (int i = 0; i < m_size; ++i)
        t[std::int64_t{v} * m_capacity + i] += coefficients[static_cast<std::size_t>(v) * m_size + i];
  }
}

double BlockLanczos::SquareByDiagonal(double const* x) const {
  double sum = 0.0;
  for (std::size_t i = 0; i < m_massDiagonal.size(); ++i)
    sum += x[i] * x[i] * m_massDiagonal[i];
  return m_processes.Sum(sum);
}

int BlockLanczos::Orthonormalize(int count, std::vector<double>& r) {
  double* const block = Column(m_size);
  double* const massTimes = m_massTimes.get();
  m_pencil.MultiplyByMass(block, count, massTimes);
  auto const dot = [&](double const* x, double const* y) { return DotOfAll(x, y); };
  auto const column = [&](double* first, int index) { return first + std::int64_t{index} * m_order; };
  double longest = 0.0;
  for (int v = 0; v < count; ++v)
    longest = std::max(longest, std::abs(dot(column(block, v), column(massTimes, v))));
  longest = std::sqrt(longest);
  std::vector<double> coefficients(static_cast<std::size_t>(count) * count, 0.0);
  m_leastShare = 1.0;
  int rank = 0;
  for (int v = 0; v < count; ++v) {
    // The new vector and M times it go through the same steps, which saves products with M.
    double *const x = column(block, v), *const mx = column(massTimes, v);
    double* const c = coefficients.data() + static_cast<std::size_t>(v) * count;
    double const before = std::sqrt(std::abs(dot(x, mx)));
    for (int pass = 0; pass < 2; ++pass)
      for (int k = 0; k < rank; ++k) {
        double const share = dot(column(block, k), mx);
        c[k] += share;
        for (int i = 0; i < m_order; ++i) {
          x[i] -= share * column(block, k)[i];
          mx[i] -= share * column(massTimes, k)[i];
        }
      }
    double const square = dot(x, mx), ofDiagonal = SquareByDiagonal(x);
    if (square < -mostNegative * std::max(longest * longest, ofDiagonal))
      RaiseSolveError(ORXSrvSolveError::indefiniteMass,
                      "ORXSrvModes: M is indefinite, x^T M x is " + NumberText(square) +
                          " for some x of length " + NumberText(longest) + "; expected no negative mass.");
    double const length = std::sqrt(std::max(square, 0.0));
    if (!(length > leastDirection * longest && square > massless * ofDiagonal)) continue;
    c[rank] = length;
    m_leastShare = std::min(m_leastShare, length / before);
    for (int i = 0; i < m_order; ++i) {
      column(block, rank)[i] = x[i] / length;
      column(massTimes, rank)[i] = mx[i] / length;
    }
    ++rank;
  }
  r.assign(static_cast<std::size_t>(rank) * count, 0.0);
  for (int v = 0; v < count; ++v)
    std::copy_n(coefficients.data() + static_cast<std::size_t>(v) * count, rank,
                r.data() + static_cast<std::size_t>(v) * rank);
  return rank;
}

int BlockLanczos::AddRandomDirections(int first, int count) {
  // The columns that are there count as part of Q meanwhile.
  int const size = m_size;
  m_size += first;
  FillRandomly({Column(m_size), static_cast<std::size_t>(m_order) * count}, m_generator);
  Apply(Column(m_size), count);
  std::vector<double> ignored;
  int added = Orthonormalize(count, ignored);
  if (added > 0) {
    Orthogonalize(added, 2, nullptr);
    // What is left of vectors of length 1: nothing but rounding errors where Q holds all motions with mass.
    m_pencil.MultiplyByMass(Column(m_size), added, m_massTimes.get());
    double longest = 0.0;
    for (std::int64_t v = 0; v < added; ++v)
      longest =
          std::max(longest, DotOfAll(Column(m_size + static_cast<int>(v)), m_massTimes.get() + v * m_order));
    added = longest > 1e-16 ? Orthonormalize(added, ignored) : 0;
  }
  if (added > 0) {
    Orthogonalize(added, 1, nullptr);
    added = Orthonormalize(added, ignored);
  }
  m_size = size;
  return added;
}

void BlockLanczos::Start() {
  m_next = AddRandomDirections(0, m_width);
  m_isExhausted = m_next == 0;
}

bool BlockLanczos::Extend() {
  if (m_size == 0 && m_next == 0) Start();
  if (m_isExhausted || IsFull()) return false;
  MakeRoom();
  m_last = m_next;
  m_size += m_next;
  if (!m_hasMassOfNext) m_pencil.MultiplyByMass(Column(m_size - m_last), m_last, m_massTimes.get());
  ApplyToMassTimes(Column(m_size), m_last);
  double* const t = m_t.data() + std::int64_t{m_size - m_last} * m_capacity;
  Orthogonalize(m_last, 2, t);
  double largest = 0.0;
  for (std::int64_t v = 0; v < m_last; ++v)
    for (int i = 0; i < m_size; ++i)
      largest = std::max(largest, std::abs(t[v * m_capacity + i]));

  std::vector<double> first, second;
  m_next = Orthonormalize(m_last, first);
  double remains = 0.0;
  for (double const value : first)
    remains = std::max(remains, std::abs(value));
  if (remains <= leastDirection * largest) m_next = 0;
  if (m_next > 0 && m_leastShare >= faithfulShare) {
    m_r = first;
  } else if (m_next > 0) {
    int const before = m_next;
    Orthogonalize(before, 1, nullptr);
    m_next = Orthonormalize(before, second);
    m_r.assign(static_cast<std::size_t>(m_next) * m_last, 0.0);
    Multiply("N", m_next, m_last, before, 1.0, second.data(), m_next, first.data(), before, 0.0, m_r.data(),
             m_next);
  } else {
    m_r.clear();
  }
  int const rank = m_next; // R has that many rows
  m_hasMassOfNext = true;
  if (m_next < m_width && !IsFull()) {
    m_hasMassOfNext = false;
    m_next += AddRandomDirections(m_next, m_width - m_next);
    std::vector<double> padded(static_cast<std::size_t>(m_next) * m_last, 0.0);
    for (int j = 0; j < m_last; ++j)
      std::copy_n(m_r.data() + static_cast<std::size_t>(j) * rank, rank,
                  padded.data() + static_cast<std::size_t>(j) * m_next);
    m_r = std::move(padded);
  }
  m_isExhausted = m_next == 0;
  constexpr int looksPerDoubling = 16;
  if (m_isExhausted || IsFull() || m_size - m_checkedSize >= m_checkedSize / looksPerDoubling)
    FindRitzValues();
  return true;
}

void BlockLanczos::FindRitzValues() {
  m_checkedSize = m_size;
  auto const size = static_cast<std::size_t>(m_size);
  std::vector<double> t(size * size);
  for (std::size_t j = 0; j < size; ++j)
    for (std::size_t i = 0; i <= j; ++i)
      t[j * size + i] = m_t[j * m_capacity + i];
  std::vector<double> thetas = SolveSymmetric(t, m_size);
  m_processes.Agree(thetas); // processors of several kinds round differently
  m_processes.Agree(t);
  std::vector<int> order(size);
  std::iota(order.begin(), order.end(), 0);
  std::ranges::stable_sort(order, std::greater{}, [&](int k) { return std::abs(thetas[k]); });
  m_ritzVectors.resize(size * size);
  m_values.clear();
  std::vector<double> rest(static_cast<std::size_t>(m_next));
  for (std::size_t k = 0; k < size; ++k) {
    double const* const s = t.data() + order[k] * size;
    std::copy_n(s, size, m_ritzVectors.data() + k * size);
    Multiply("N", m_next, 1, m_last, 1.0, m_r.data(), std::max(m_next, 1), s + (m_size - m_last), m_last, 0.0,
             rest.data(), std::max(m_next, 1));
    double const residual = std::sqrt(Dot(rest, rest));
    double const theta = thetas[order[k]];
    m_values.push_back({theta, residual, residual <= tolerance * std::abs(theta)});
  }
}

double BlockLanczos::ErrorOf(std::size_t index) const {
  RitzValue const& value = m_values[index];
  // Values that cannot be told apart count as one.
  double const near = closeness * std::abs(value.theta);
  double squares = 0.0, gap = std::abs(value.theta);
  for (RitzValue const& other : m_values) {
    double const distance = std::abs(other.theta - value.theta);
    if (distance <= near) {
      squares += other.residual * other.residual;
    } else {
      gap = std::min(gap, distance - other.residual);
    }
  }
  return gap > 0.0 ? std::min(value.residual, squares / gap) : value.residual;
}

void BlockLanczos::Purify(std::vector<double> const& lambdas, double* shapes,
                          std::vector<ModeQuality>& quality) {
  std::vector<std::size_t> impure;
  for (std::size_t k = 0; k < quality.size(); ++k)
    if (quality[k].residual > pureResidual) impure.push_back(k);
  auto const order = static_cast<std::size_t>(m_order), width = static_cast<std::size_t>(m_width);
  mem_Array<double> const group = mem_MakeArray<double>(std::int64_t{m_order} * m_width);
  for (std::size_t first = 0; first < impure.size(); first += width) {
    std::size_t const count = std::min(width, impure.size() - first);
    std::vector<double> values;
    for (std::size_t v = 0; v < count; ++v) {
      values.push_back(lambdas[impure[first + v]]);
      std::copy_n(shapes + impure[first + v] * order, order, group.get() + v * order);
    }
    Apply(group.get(), static_cast<int>(count));
    std::vector<ModeQuality> const purified = m_pencil.Measure(values, group.get());
    for (std::size_t v = 0; v < count; ++v) {
      quality[impure[first + v]] = purified[v];
      std::copy_n(group.get() + v * order, order, shapes + impure[first + v] * order);
    }
  }
}

std::vector<FoundMode> BlockLanczos::MakeModes() {
  std::vector<double> weights, lambdas, errors; // weights: columns of Q's coefficients
  for (std::size_t k = 0; k < m_values.size(); ++k) {
    RitzValue const& value = m_values[k];
    if (!value.isConverged) continue;
    auto const first = m_ritzVectors.begin() + static_cast<std::ptrdiff_t>(k) * m_size;
    weights.insert(weights.end(), first, first + m_size);
    lambdas.push_back(Lambda(static_cast<int>(k)));
    errors.push_back(ErrorOf(k) / (value.theta * value.theta));
  }
  int const count = static_cast<int>(lambdas.size());
  mem_Array<double> const shapes = mem_MakeArray<double>(std::int64_t{m_order} * count);
  ForEachPanel([&](int first, double const* q, int columns) {
    Multiply("N", m_order, count, columns, 1.0, q, m_order, weights.data() + first, m_size,
             first > 0 ? 1.0 : 0.0, shapes.get(), m_order);
  });
  std::vector<ModeQuality> quality = m_pencil.Measure(lambdas, shapes.get());
  Purify(lambdas, shapes.get(), quality);

  std::vector<FoundMode> modes;
  for (int k = 0; k < count; ++k) {
    if (quality[static_cast<std::size_t>(k)].residual > poorResidual) continue;
    double const* const shape = shapes.get() + std::int64_t{k} * m_order;
    m_pencil.MultiplyByMass(shape, 1, m_massTimes.get());
    double const length = std::sqrt(DotOfAll(shape, m_massTimes.get()));
    double const scale = SignOfLargest(m_processes, shape, m_order) / length;
    auto const mode = static_cast<std::size_t>(k);
    // The Rayleigh quotient knows lambda as well as K and M do; rounding in the solves blurs theta.
    double const square = length * length;
    double const lambda = lambdas[mode] + quality[mode].defect / square;
    double const error = errors[mode] + epsilon * quality[mode].defectTerms / square;
    modes.push_back({lambda, error, quality[mode], {shape, shape + m_order}});
    for (double& x : modes.back().shape)
      x *= scale;
  }
  return modes;
}

} // namespace orx
