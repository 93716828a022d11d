#pragma once

#include "examples/support/Point.h"

#include <string>

namespace support {

/// The data of an SVG path in whole units, written short: steps are relative to the rounded place reached so
/// far, so that rounding does not add up, and separators appear only where numbers would run together.
class SvgPath {
public:
  void MoveTo(Point p);
  /// A step that rounds to nothing is left out.
  void LineTo(Point p);
  /// A parabola, the exact shape of an element's side through three nodes.
  void ParabolaTo(Point middle, Point end);
  void Close() { m_data += 'z'; }

  std::string const& Data() const { return m_data; }

private:
  struct Place {
    int x = 0;
    int y = 0;
  };
  static Place Rounded(Point p);
  /// Appends the step from the place reached so far.
  void AppendStep(Place to);
  void AppendNumber(int number);

  std::string m_data;
  Place m_reached; ///< the end of the last step
};

} // namespace support
