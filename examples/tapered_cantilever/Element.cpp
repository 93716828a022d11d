#include "examples/tapered_cantilever/Element.h"

#include "examples/tapered_cantilever/Benchmark.h"

#include <cmath>

namespace fv32 {
namespace {

/// Places of the nodes in the square.
constexpr std::array<Point, 8> nodePlaces{
    {{-1, -1}, {1, -1}, {1, 1}, {-1, 1}, {0, -1}, {1, 0}, {0, 1}, {-1, 0}}};

/// Derivatives with respect to x and y, and the area that a unit of the square stands for.
struct Gradients {
  std::array<double, 8> dx{};
  std::array<double, 8> dy{};
  double area;
};

Gradients ComputeGradients(ShapeFunctions const& shape, std::array<Point, 8> const& nodes) {
  double xr = 0.0, yr = 0.0, xs = 0.0, ys = 0.0; // the Jacobian
  for (int a = 0; a < 8; ++a) {
    xr += shape.dr[a] * nodes[a].x;
    yr += shape.dr[a] * nodes[a].y;
    xs += shape.ds[a] * nodes[a].x;
    ys += shape.ds[a] * nodes[a].y;
  }
  Gradients g;
  g.area = xr * ys - yr * xs;
  for (int a = 0; a < 8; ++a) {
    g.dx[a] = (ys * shape.dr[a] - yr * shape.ds[a]) / g.area;
    g.dy[a] = (xr * shape.ds[a] - xs * shape.dr[a]) / g.area;
  }
  return g;
}

/// Three components: along x, along y, and shear.
using Tensor = std::array<double, 3>;

/// Strain of a unit displacement of one unknown.
Tensor Strain(Gradients const& g, int unknown) {
  int const node = unknown / 2;
  return unknown % 2 == 0 ? Tensor{g.dx[node], 0.0, g.dy[node]} : Tensor{0.0, g.dy[node], g.dx[node]};
}

/// Hooke's law in plane stress.
Tensor Stress(Tensor const& strain) {
  constexpr double e = elasticModulus / (1.0 - poissonRatio * poissonRatio);
  return {e * (strain[0] + poissonRatio * strain[1]), e * (strain[1] + poissonRatio * strain[0]),
          e * 0.5 * (1.0 - poissonRatio) * strain[2]};
}

double Dot(Tensor const& a, Tensor const& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

/// Adds one Gauss point to the lower triangles.
void AddGaussPoint(ElementMatrices& m, ShapeFunctions const& shape, Gradients const& g, double weight) {
  double const volume = weight * g.area * thickness;
  for (int j = 0; j < 16; ++j) {
    Tensor const stress = Stress(Strain(g, j));
    for (int i = j; i < 16; ++i) {
      m.stiffness[i][j] += volume * Dot(Strain(g, i), stress);
      if (i % 2 == j % 2) m.mass[i][j] += volume * density * shape.n[i / 2] * shape.n[j / 2];
    }
  }
}

/// The eigenproblem asks for matrices that are symmetric to the last bit. Computing both triangles would
/// round them differently, so one is the copy of the other; assembly keeps mirrored entries mirrored, because
/// it sums in the order of AddData.
void MirrorLowerTriangle(ElementMatrix& matrix) {
  for (int i = 0; i < 16; ++i)
    for (int j = 0; j < i; ++j)
      matrix[j][i] = matrix[i][j];
}

} // namespace

ShapeFunctions::ShapeFunctions(double r, double s) {
  for (int a = 0; a < 8; ++a) {
    auto const [ra, sa] = nodePlaces[a];
    double const fr = 1.0 + ra * r;
    double const fs = 1.0 + sa * s;
    if (ra != 0.0 && sa != 0.0) { // corner
      n[a] = 0.25 * fr * fs * (ra * r + sa * s - 1.0);
      dr[a] = 0.25 * ra * fs * (2.0 * ra * r + sa * s);
      ds[a] = 0.25 * sa * fr * (ra * r + 2.0 * sa * s);
    } else if (ra == 0.0) { // middle of the lower or upper side
      n[a] = 0.5 * (1.0 - r * r) * fs;
      dr[a] = -r * fs;
      ds[a] = 0.5 * sa * (1.0 - r * r);
    } else { // middle of the left or right side
      n[a] = 0.5 * (1.0 - s * s) * fr;
      dr[a] = 0.5 * ra * (1.0 - s * s);
      ds[a] = -s * fr;
    }
  }
}

Point Interpolate(std::array<Point, 8> const& atNodes, double r, double s) {
  ShapeFunctions const shape(r, s);
  Point sum{0.0, 0.0};
  for (int a = 0; a < 8; ++a)
    sum = sum + shape.n[a] * atNodes[a];
  return sum;
}

ElementMatrices ComputeElementMatrices(std::array<Point, 8> const& nodes) {
  double const outer = std::sqrt(0.6);
  std::array<double, 3> const places{-outer, 0.0, outer};
  constexpr std::array<double, 3> weights{5.0 / 9.0, 8.0 / 9.0, 5.0 / 9.0};

  ElementMatrices matrices{};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) {
      ShapeFunctions const shape(places[i], places[j]);
      AddGaussPoint(matrices, shape, ComputeGradients(shape, nodes), weights[i] * weights[j]);
    }
  MirrorLowerTriangle(matrices.stiffness);
  MirrorLowerTriangle(matrices.mass);
  return matrices;
}

} // namespace fv32
