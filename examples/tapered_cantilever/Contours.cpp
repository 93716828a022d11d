#include "examples/tapered_cantilever/Contours.h"

#include <algorithm>
#include <array>
#include <map>
#include <tuple>

// Marching squares. A ring of extra points below every level lies around the grid, at the same places as the
// grid's own outermost points. So each contour is closed, and where the region touches the outline of the
// grid the contour runs along it.

namespace fv32 {
namespace {

constexpr double belowEveryLevel = -1.0;

/// A line of the grid between two neighbouring points, named by the place of the lower or left one. The ring
/// is at column and row -1 and behind the last ones.
struct Line {
  int column;
  int row;
  bool isUpward;

  friend bool operator<(Line const& a, Line const& b) {
    return std::tie(a.column, a.row, a.isUpward) < std::tie(b.column, b.row, b.isUpward);
  }
};

/// Where the contour goes from a line that it crosses.
using Steps = std::map<Line, Line>;

class Tracer {
public:
  Tracer(SampledField const& field, double level) : m_field(field), m_level(level) {}

  std::vector<Polygon> Trace() const {
    Steps steps;
    for (int column = -1; column < m_field.columns; ++column)
      for (int row = -1; row < m_field.rows; ++row)
        AddStepsThroughCell(column, row, steps);
    std::vector<Polygon> polygons;
    while (!steps.empty())
      polygons.push_back(TakeLoop(steps));
    return polygons;
  }

private:
  bool IsInRing(int column, int row) const {
    return column < 0 || row < 0 || column == m_field.columns || row == m_field.rows;
  }
  int NearestIndex(int column, int row) const {
    return m_field.Index(std::clamp(column, 0, m_field.columns - 1), std::clamp(row, 0, m_field.rows - 1));
  }
  double Value(int column, int row) const {
    return IsInRing(column, row) ? belowEveryLevel : m_field.values[NearestIndex(column, row)];
  }
  Point Place(int column, int row) const { return m_field.points[NearestIndex(column, row)]; }

  /// Corners and sides counter-clockwise; side k goes from corner k to corner k + 1. A walk around the cell
  /// leaves the region on some sides and enters it on others: the contour goes from each exit to the next
  /// entry. In the neighbouring cell that entry is an exit.
  void AddStepsThroughCell(int column, int row, Steps& steps) const {
    std::array<bool, 4> const isInside{Value(column, row) >= m_level, Value(column + 1, row) >= m_level,
                                       Value(column + 1, row + 1) >= m_level,
                                       Value(column, row + 1) >= m_level};
    std::array<Line, 4> const sides{
        {{column, row, false}, {column + 1, row, true}, {column, row + 1, false}, {column, row, true}}};
    auto const isInsideAt = [&](int corner) { return isInside[corner % 4]; };
    for (int exit = 0; exit < 4; ++exit) {
      if (!isInsideAt(exit) || isInsideAt(exit + 1)) continue;
      int entry = exit + 1;
      while (!isInsideAt(entry + 1))
        ++entry;
      steps.emplace(sides[exit], sides[entry % 4]);
    }
  }

  Point Crossing(Line const& line) const {
    int const nextColumn = line.column + (line.isUpward ? 0 : 1);
    int const nextRow = line.row + (line.isUpward ? 1 : 0);
    double const from = Value(line.column, line.row);
    double const to = Value(nextColumn, nextRow);
    Point const start = Place(line.column, line.row);
    return start + (m_level - from) / (to - from) * (Place(nextColumn, nextRow) - start);
  }

  Polygon TakeLoop(Steps& steps) const {
    Polygon polygon;
    for (auto step = steps.begin(); step != steps.end();) {
      polygon.push_back(Crossing(step->first));
      Line const next = step->second;
      steps.erase(step);
      step = steps.find(next);
    }
    return polygon;
  }

  SampledField const& m_field;
  double m_level;
};

} // namespace

std::vector<Polygon> RegionAbove(SampledField const& field, double level) {
  return Tracer(field, level).Trace();
}

} // namespace fv32
