#include "solve/impl/NullMotions.h"

#include "solve/search/Vectors.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>

namespace orx {

namespace {

/// A test solution that strains less than this share of its terms needs a closer look.
constexpr double suspiciousShare = 1e-10;
/// A motion whose forces are less than this share of their terms has no stiffness.
constexpr double nullShare = 2e-15;
constexpr int narrowest = 8; ///< vectors of the iteration at first
constexpr int iterations = 2;
constexpr int mostSweeps = 30;

using Vector = std::vector<double>;

/// {x, y} := {c x - s y, s x + c y}
void Rotate(Vector& x, Vector& y, double c, double s) {
  for (std::size_t i = 0; i < x.size(); ++i) {
    double const old = x[i];
    x[i] = c * old - s * y[i];
    y[i] = s * old + c * y[i];
  }
}

/// Inverse iteration with a block, in scaled coordinates.
class MotionFinder {
public:
  explicit MotionFinder(FactoredMatrix& a) : m_a(a), m_unit(UnitsOf(a)) {}

  /// Unknowns that hold the motions that are found, not sorted.
  std::vector<int> Find() {
    int const most = std::min(mostNullMotions, m_a.OwnRows());
    for (int width = std::min(narrowest, most);; width = std::min(2 * width, most)) {
      Iterate(width);
      KeepMotionsWithoutStiffness();
      if (static_cast<int>(m_vectors.size()) < width || width == most) return ChooseUnknowns();
    }
  }

private:
  void Iterate(int width) {
    std::size_t const order = m_unit.size();
    std::mt19937_64 generator(2);
    m_vectors.assign(static_cast<std::size_t>(width), Vector(order));
    for (Vector& x : m_vectors)
      FillRandomly(x, generator);
    Vector block(order * m_vectors.size());
    for (int step = 0; step < iterations; ++step) {
      auto at = block.begin();
      for (Vector const& x : m_vectors)
        at = std::ranges::transform(x, m_unit, at, std::divides{}).out;
      if (!m_vectors.empty()) m_a.Solve(block.data(), static_cast<int>(m_vectors.size()));
      at = block.begin();
      for (Vector& x : m_vectors) {
        std::transform(at, at + static_cast<std::ptrdiff_t>(order), m_unit.begin(), x.begin(),
                       std::divides{});
        at += static_cast<std::ptrdiff_t>(order);
      }
      Orthonormalize();
    }
  }

  /// Gram and Schmidt, twice. Drops vectors of which nothing is left.
  void Orthonormalize() {
    std::vector<Vector> kept;
    for (Vector& x : m_vectors) {
      double const largest = std::abs(std::ranges::max(x, {}, [](double value) { return std::abs(value); }));
      if (!(largest > 0.0 && std::isfinite(largest))) continue;
      for (double& value : x)
        value /= largest;
      double const before = std::sqrt(Dot(x, x));
      for (int pass = 0; pass < 2; ++pass)
        for (Vector const& other : kept) {
          double const share = Dot(other, x);
          for (std::size_t i = 0; i < x.size(); ++i)
            x[i] -= share * other[i];
        }
      double const length = std::sqrt(Dot(x, x));
      if (!(length > 1e-14 * before)) continue;
      for (double& value : x)
        value /= length;
      kept.push_back(std::move(x));
    }
    m_vectors = std::move(kept);
  }

  /// Turns the vectors so that their forces are orthogonal, by Jacobi's rotations of the forces, which find
  /// small ones beside large ones; then drops all with forces.
  void KeepMotionsWithoutStiffness() {
    std::vector<Vector> forces;
    for (Vector const& x : m_vectors)
      forces.push_back(Forces(x).forces);
    bool isTurned = true;
    for (int sweep = 0; isTurned && sweep < mostSweeps; ++sweep) {
      isTurned = false;
      for (std::size_t j = 0; j < forces.size(); ++j)
        for (std::size_t k = 0; k < j; ++k) {
          double const a = Dot(forces[k], forces[k]), b = Dot(forces[j], forces[j]);
          double const c = Dot(forces[k], forces[j]);
          if (std::abs(c) <= 1e-15 * std::sqrt(a * b)) continue;
          double const tau = (b - a) / (2 * c);
          double const t = std::copysign(1.0, tau) / (std::abs(tau) + std::hypot(1.0, tau));
          double const cosine = 1 / std::hypot(1.0, t);
          Rotate(forces[k], forces[j], cosine, cosine * t);
          Rotate(m_vectors[k], m_vectors[j], cosine, cosine * t);
          isTurned = true;
        }
    }
    std::erase_if(m_vectors, [&](Vector const& x) { return Forces(x).share > nullShare; });
  }

  struct ForcesOfMotion {
    Vector forces;
    double share; ///< of the terms that the forces are summed from
  };

  ForcesOfMotion Forces(Vector const& scaled) const {
    Vector x(scaled.size()), forces(x.size()), terms(x.size());
    std::ranges::transform(scaled, m_unit, x.begin(), std::multiplies{});
    m_a.ComputeResidual(x.data(), Vector(x.size(), 0.0).data(), forces.data(), terms.data());
    std::ranges::transform(forces, m_unit, forces.begin(), std::multiplies{});
    std::ranges::transform(terms, m_unit, terms.begin(), std::multiplies{});
    double const size = Dot(terms, terms);
    double const share = size > 0.0 ? std::sqrt(Dot(forces, forces) / size) : 0.0;
    return {std::move(forces), share};
  }

  /// The places of the pivots of an elimination with complete pivoting among the vectors.
  std::vector<int> ChooseUnknowns() {
    std::vector<int> unknowns;
    while (!m_vectors.empty()) {
      auto const magnitude = [](double value) { return std::abs(value); };
      auto const largest = [&](Vector const& x) { return std::abs(std::ranges::max(x, {}, magnitude)); };
      std::swap(*std::ranges::max_element(m_vectors, {}, largest), m_vectors.back());
      Vector const pivot = std::move(m_vectors.back());
      m_vectors.pop_back();
      auto const at = std::ranges::max_element(pivot, {}, magnitude) - pivot.begin();
      unknowns.push_back(static_cast<int>(at));
      for (Vector& x : m_vectors) {
        double const share = x[static_cast<std::size_t>(at)] / pivot[static_cast<std::size_t>(at)];
        for (std::size_t i = 0; i < x.size(); ++i)
          x[i] -= share * pivot[i];
        x[static_cast<std::size_t>(at)] = 0.0;
      }
    }
    return unknowns;
  }

  FactoredMatrix& m_a;
  Vector m_unit;                 ///< see UnitsOf
  std::vector<Vector> m_vectors; ///< orthonormal
};

} // namespace

FactorTest TestFactor(Engine& engine, ShiftedMatrix const& a) {
  EngineMatrix matrix(engine, a);
  TestSolution const test = SolveForRandomLoad(matrix);
  bool const isRegular = test.isFinite && std::abs(test.form) > suspiciousShare * test.terms;
  return {test.error, isRegular ? std::vector<int>{} : MotionFinder(matrix).Find()};
}

} // namespace orx
