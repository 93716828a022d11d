#include "examples/bladed_disk/Brick.h"

#include <algorithm>
#include <cmath>

namespace disk {
namespace {

/// Trial functions of each direction: those of the corners, and 1 - r^2, 1 - s^2, 1 - t^2, whose amplitudes
/// are the element's own.
constexpr int functionCount = cornerCount + 3;
constexpr int cornerUnknowns = 3 * cornerCount;
constexpr int unknownCount = 3 * functionCount;

using Stiffness = std::array<std::array<double, unknownCount>, unknownCount>;

/// r, s and t of the corners.
constexpr std::array<Vector, cornerCount> signs{
    {{-1, -1, -1}, {1, -1, -1}, {1, 1, -1}, {-1, 1, -1}, {-1, -1, 1}, {1, -1, 1}, {1, 1, 1}, {-1, 1, 1}}};

double ValueAt(Vector place, int corner) {
  Vector const sign = signs[corner];
  return 0.125 * (1 + sign.x * place.x) * (1 + sign.y * place.y) * (1 + sign.z * place.z);
}

/// Derivatives by r, s and t.
Vector SlopeAt(Vector place, int corner) {
  Vector const sign = signs[corner];
  double const r = 1 + sign.x * place.x, s = 1 + sign.y * place.y, t = 1 + sign.z * place.z;
  return {0.125 * sign.x * s * t, 0.125 * sign.y * r * t, 0.125 * sign.z * r * s};
}

/// How r, s and t change in space at a place of the brick.
struct Gradients {
  Vector r, s, t;
  double volume; ///< of space by that of (r, s, t)

  Gradients(std::array<Vector, cornerCount> const& corners, Vector place) {
    Vector alongR{}, alongS{}, alongT{};
    for (int a = 0; a < cornerCount; ++a) {
      Vector const slope = SlopeAt(place, a);
      alongR = alongR + slope.x * corners[a];
      alongS = alongS + slope.y * corners[a];
      alongT = alongT + slope.z * corners[a];
    }
    volume = Dot(alongR, Cross(alongS, alongT));
    r = (1 / volume) * Cross(alongS, alongT);
    s = (1 / volume) * Cross(alongT, alongR);
    t = (1 / volume) * Cross(alongR, alongS);
  }

  Vector InSpace(Vector slope) const { return slope.x * r + slope.y * s + slope.z * t; }
};

/// Gradients of all trial functions. Those of the incompatible ones are taken with the axes of the brick's
/// middle, so that it passes the patch test.
std::array<Vector, functionCount> TrialGradients(Gradients const& here, Gradients const& middle,
                                                 Vector place) {
  std::array<Vector, functionCount> gradients;
  for (int a = 0; a < cornerCount; ++a)
    gradients[a] = here.InSpace(SlopeAt(place, a));
  double const share = middle.volume / here.volume;
  gradients[cornerCount] = (-2 * place.x * share) * middle.r;
  gradients[cornerCount + 1] = (-2 * place.y * share) * middle.s;
  gradients[cornerCount + 2] = (-2 * place.z * share) * middle.t;
  return gradients;
}

/// Adds weight * strain^T * elasticity * strain of each two functions a, b with gradients g, h:
///
///     lambda g h^T + mu h g^T + mu (g . h) I
void AddStiffness(Stiffness& k, std::array<Vector, functionCount> const& gradients, double lambda,
                  double mu) {
  for (int a = 0; a < functionCount; ++a)
    for (int b = 0; b < functionCount; ++b) {
      std::array const g{gradients[a].x, gradients[a].y, gradients[a].z};
      std::array const h{gradients[b].x, gradients[b].y, gradients[b].z};
      double const both = mu * Dot(gradients[a], gradients[b]);
      for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
          k[3 * a + i][3 * b + j] += lambda * g[i] * h[j] + mu * h[i] * g[j] + (i == j ? both : 0.0);
    }
}

/// Eliminates the amplitudes of the incompatible functions, which no load acts on.
void Condense(Stiffness& k) {
  for (int p = unknownCount - 1; p >= cornerUnknowns; --p)
    for (int i = 0; i < p; ++i)
      for (int j = 0; j < p; ++j)
        k[i][j] -= k[i][p] * k[p][j] / k[p][p];
}

} // namespace

BrickMatrices ComputeBrickMatrices(std::array<Vector, cornerCount> const& corners, Material const& material) {
  double const e = material.elasticModulus, nu = material.poissonRatio;
  double const lambda = e * nu / ((1 + nu) * (1 - 2 * nu)), mu = e / (2 * (1 + nu));
  Gradients const middle(corners, {0, 0, 0});
  Stiffness k{};
  BrickMatrices matrices{};
  for (Vector const sign : signs) {
    Vector const place = (1 / std::sqrt(3.0)) * sign;
    Gradients const here(corners, place);
    double const volume = here.volume;
    AddStiffness(k, TrialGradients(here, middle, place), lambda * volume, mu * volume);
    for (int a = 0; a < cornerCount; ++a)
      for (int b = 0; b < cornerCount; ++b)
        matrices.mass[a][b] += material.density * volume * ValueAt(place, a) * ValueAt(place, b);
  }
  Condense(k);
  for (int i = 0; i < cornerUnknowns; ++i)
    std::copy_n(k[i].begin(), cornerUnknowns, matrices.stiffness[i].begin());
  return matrices;
}

} // namespace disk
