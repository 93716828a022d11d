#pragma once

namespace support {

/// A place or a displacement in the plane.
struct Point {
  double x;
  double y;
};

inline Point operator+(Point a, Point b) { return {a.x + b.x, a.y + b.y}; }
inline Point operator-(Point a, Point b) { return {a.x - b.x, a.y - b.y}; }
inline Point operator*(double factor, Point p) { return {factor * p.x, factor * p.y}; }

} // namespace support
