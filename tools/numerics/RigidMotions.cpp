#include "tools/numerics/RigidMotions.h"

#include "tools/numerics/NullMotions.h"
#include "tools/numerics/SymmetricForm.h"

#include "blac/BLAC.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace orx::tool {
namespace {

using Motion = std::vector<double>;

/// Below this share of its length what is left of a motion, when those before are taken away, is rounding:
/// nodes on one line do not turn about it.
constexpr double dependent = 1e-8;

/// Translation along an axis for 0, 1, 2, and for 3, 4, 5 rotation about one through the centre.
Motion MakeMotion(Nodes const& nodes, int kind, Point const& centre) {
  int const unknowns = nodes.unknownsOfNode, axis = kind % 3;
  int const next = (axis + 1) % 3, last = (axis + 2) % 3;
  Motion motion(nodes.points.size() * static_cast<std::size_t>(unknowns), 0.0);
  double* node = motion.data();
  for (Point const& point : nodes.points) {
    if (kind < 3) {
      node[axis] = 1.0;
    } else {
      node[next] = -(point[last] - centre[last]);
      node[last] = point[next] - centre[next];
      if (unknowns == 6) node[3 + axis] = 1.0;
    }
    node += unknowns;
  }
  return motion;
}

Point Middle(Nodes const& nodes) {
  Point middle{};
  for (Point const& point : nodes.points)
    for (int axis = 0; axis < 3; ++axis)
      middle[axis] += point[axis] / static_cast<double>(nodes.points.size());
  return middle;
}

double Dot(Motion const& a, Motion const& b) {
  return std::inner_product(a.begin(), a.end(), b.begin(), 0.0);
}

void Scale(Motion& motion, double factor) {
  for (double& value : motion)
    value *= factor;
}

void Subtract(Motion& from, double factor, Motion const& motion) {
  for (std::size_t i = 0; i < from.size(); ++i)
    from[i] -= factor * motion[i];
}

/// The rigid motions but for unknowns that rest, orthogonal and of length 1.
std::vector<Motion> MakeBasis(Nodes const& nodes, std::vector<int> const& resting) {
  Point const middle = Middle(nodes);
  std::vector<Motion> basis;
  for (int kind = 0; kind < 6; ++kind) {
    Motion motion = MakeMotion(nodes, kind, middle);
    for (int const unknown : resting)
      motion[unknown] = 0.0;
    double const length = std::sqrt(Dot(motion, motion));
    if (length == 0.0) continue;
    Scale(motion, 1.0 / length);
    for (int pass = 0; pass < 2; ++pass)
      for (Motion const& other : basis)
        Subtract(motion, Dot(motion, other), other);
    double const rest = std::sqrt(Dot(motion, motion));
    if (rest < dependent) continue;
    Scale(motion, 1.0 / rest);
    basis.push_back(std::move(motion));
  }
  return basis;
}

/// Replaces a symmetric matrix, stored by columns, by its eigenvectors.
void FindEigenvectors(std::vector<double>& a, int order) {
  std::array<double, 6> values{};
  std::array<double, 128> work{};
  int const length = static_cast<int>(work.size());
  int info = 0;
  BLAC_DSYEV("V", "L", &order, a.data(), &order, values.data(), work.data(), &length, &info);
}

Motion Combine(std::vector<Motion> const& basis, double const* weights) {
  Motion motion(basis.front().size(), 0.0);
  for (Motion const& part : basis)
    Subtract(motion, -*weights++, part);
  return motion;
}

} // namespace

int CountRigidMotions(ORXSrvSparseMatrix const& stiffness, std::vector<int> const& empty,
                      Nodes const& nodes) {
  std::vector<Motion> const basis = MakeBasis(nodes, empty);
  if (basis.empty()) return 0;
  int const count = static_cast<int>(basis.size());
  std::vector<double> projected;
  for (Motion const& motion : basis) {
    Motion const force = Product(stiffness, motion);
    std::ranges::transform(basis, std::back_inserter(projected),
                           [&](Motion const& other) { return Dot(other, force); });
  }
  FindEigenvectors(projected, count);
  int rigid = 0;
  for (int k = 0; k < count; ++k)
    if (TakesForNothing(stiffness, Combine(basis, projected.data() + k * count))) ++rigid;
  return rigid;
}

MassTotals SumMass(ORXSrvSparseMatrix const& mass, Nodes const& nodes) {
  Point const origin{};
  MassTotals totals{};
  std::array<Motion, 3> translations;
  for (int axis = 0; axis < 3; ++axis) {
    translations[axis] = MakeMotion(nodes, axis, origin);
    totals.mass[axis] = QuadraticForm(mass, translations[axis]);
  }
  // Turning about the next axis moves along the last one by minus the coordinate on this one.
  for (int axis = 0; axis < 3; ++axis) {
    int const next = (axis + 1) % 3, last = (axis + 2) % 3;
    Motion const momentum = Product(mass, MakeMotion(nodes, 3 + next, origin));
    totals.centre[axis] = 0.0 - Dot(translations[last], momentum) / totals.mass[last];
  }
  for (int axis = 0; axis < 3; ++axis)
    totals.inertia[axis] = QuadraticForm(mass, MakeMotion(nodes, 3 + axis, totals.centre));
  return totals;
}

} // namespace orx::tool
