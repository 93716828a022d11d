#pragma once

#include <array>

namespace disk {

struct Vector {
  double x, y, z;
};

inline Vector operator+(Vector a, Vector b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline Vector operator-(Vector a, Vector b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline Vector operator*(double factor, Vector v) { return {factor * v.x, factor * v.y, factor * v.z}; }
inline double Dot(Vector a, Vector b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline Vector Cross(Vector a, Vector b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

/// Corners of a brick: those of its lower face counter-clockwise, then those above them.
///
///       7-------6
///      /|      /|          t
///     4-------5 |          | s
///     | 3-----|-2          |/
///     |/      |/           +--- r
///     0-------1
constexpr int cornerCount = 8;

struct Material {
  double elasticModulus;
  double poissonRatio;
  double density;
};

struct BrickMatrices {
  /// Unknown 3 * corner + direction.
  std::array<std::array<double, 3 * cornerCount>, 3 * cornerCount> stiffness;
  /// Consistent; the same for each direction, which inertia does not couple.
  std::array<std::array<double, cornerCount>, cornerCount> mass;
};

/// The matrices of a brick with eight nodes and incompatible modes (Taylor, Beresford, Wilson, Int. J. Numer.
/// Methods Eng. 10, 1976), which lets thin structures bend; 2 x 2 x 2 Gauss points.
BrickMatrices ComputeBrickMatrices(std::array<Vector, cornerCount> const& corners, Material const& material);

} // namespace disk
